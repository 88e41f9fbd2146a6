#!/usr/bin/env bash
# Compares what the documents repeat with where it is fixed: batch limits, and what the plug-in needs of its process.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1

status=0
fail() { echo "$*" >&2; status=1; }

count=0
while read -r alias limit; do
    header=$(grep -l "^ \* Path \"$alias\"" include/nivex_qos/*.h)
    tr -d '\n*' <"$header" | grep -q "batches of *$limit *records" || fail "$header: the batch limit is $limit"
    grep -q "^$limit records a call" "docs/samples/$alias.md" || fail "docs/samples/$alias.md: the batch limit is $limit"
    grep -q "^| \[$alias\].*| $limit |$" docs/samples/README.md || fail "docs/samples/README.md: $alias has $limit"
    grep -q "^| \[$alias\].*| $limit | " docs/integration.md || fail "docs/integration.md: $alias has $limit"
    count=$((count + 1))
done < <(tr -d '\\\n' <include/nivex_qos/paths.h |
    grep -o 'PATH([A-Z_]*, *"[^"]*"[^)]*)' | sed 's/.*"\(.*\)".*, *\([0-9]*\))/\1 \2/')
paths=$(sed -n 's/^#define QOS_TLM_FAMILY_NUM \([0-9]*\)u$/\1/p' include/nivex_qos/sample.h)
[ "$count" -eq "$paths" ] || fail "$count batch limits found, not $paths"

needs() { grep -v '^#' tests/abi/imports.txt | tr ' ' '\n' | grep "$@" | sort; }
sed -n '/^## What the process must provide/,/^## /s/^| \(`[^|]*`\) | `platform.*/\1/p' docs/integration.md |
    grep -o '[A-Za-z_][A-Za-z0-9_]*' | sort | diff - <(needs -v '^db_') ||
    fail "docs/integration.md: these functions of the process differ from tests/abi/imports.txt"
grep -q "functions of all tables, $(needs -c '^db_') in all" <(tr '\n' ' ' <docs/integration.md) ||
    fail "docs/integration.md: libdb_qos has $(needs -c '^db_') functions"
exit $status
