#!/usr/bin/env bash
# What `qos-host sample --output json` prints of each path is valid data of the YANG module.
#
#   yang.sh PROGRAM_DIR SCHEMA
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
PATH=$(cd "$1" && pwd):$PATH
schema=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
cat "$here/../../docs/samples/example.sql" "$here/nine.sql" | sqlite3 -bail nine.db

count=0
for alias in $(qos-host paths --json | sed -n 's/.*"alias":"\([^"]*\)".*/\1/p'); do
    qos-host sample "$alias" --db nine.db --output json >"$alias.json"
    grep -q "\"$alias\":\[{" "$alias.json" || { echo "$alias: the sample has no record" >&2; exit 1; }
    yanglint -t data "$schema" "$alias.json" || { echo "$alias: not valid" >&2; exit 1; }
    # A name that the module lacks, to see that this check can fail.
    sed 's/:\[{/:[{"other":1,/' "$alias.json" >other.json
    ! yanglint -t data "$schema" other.json 2>/dev/null || { echo "$alias: accepts a name it lacks" >&2; exit 1; }
    count=$((count + 1))
done
[ "$count" -eq 9 ] || { echo "$count paths, not 9" >&2; exit 1; }
