#!/usr/bin/env bash
# Compares the examples in docs/samples with what the plug-in sends for docs/samples/example.sql.
# usage: samples.sh QOS_HOST [--update]   (--update writes the examples anew)
set -euo pipefail

qos_host=$1
update=${2:-}
pages=$(cd "$(dirname "$0")/../../docs/samples" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sqlite3 "$work/example.db" "PRAGMA journal_mode=WAL" ".read $pages/example.sql" >/dev/null

failed=0
count=0
while read -r alias; do
  page=$pages/$alias.md
  sample() { "$qos_host" sample "$alias" --db "$work/example.db" "$@" | grep -v '^pass '; }
  sample --encoding json --output json >"$work/json"
  sample --encoding gpb --output hex >"$work/hex"
  # The page with its fenced examples replaced by the samples.
  awk -v json="$work/json" -v hex="$work/hex" '
    /^```/ && inside { inside = 0 }
    !inside { print }
    /^```(json|hex)$/ { inside = 1; file = $0 == "```json" ? json : hex; while ((getline line < file) > 0) print line }
  ' "$page" >"$work/page"
  if [ "$update" = --update ]; then
    cp "$work/page" "$page"
  elif ! diff -u "$page" "$work/page"; then
    failed=1
  fi
  count=$((count + 1))
done < <("$qos_host" paths --json | sed -n 's/.*"alias":"\([^"]*\)".*/\1/p')

expected=$(grep -c '^| \[' "$pages/README.md")
[ "$count" -eq "$expected" ] || { echo "expected $expected paths, found $count" >&2; exit 1; }
[ "$failed" -eq 0 ] || echo "the examples differ: if that is meant, run $0 QOS_HOST --update" >&2
exit "$failed"
