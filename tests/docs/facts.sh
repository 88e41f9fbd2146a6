#!/usr/bin/env bash
# Compares what the documents repeat with where it is fixed: batch limits, and what the plug-in needs of its process.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1

status=0
fail() { echo "$*" >&2; status=1; }

count=0
for header in $(grep -l '^#define QOS_TLM_.*_BATCH_LIMIT' include/nivex_qos/*.h); do
    limit=$(sed -n 's/^#define QOS_TLM_.*_BATCH_LIMIT \([0-9]*\)u$/\1/p' "$header")
    alias=$(sed -n 's/^ \* Path "\([a-z-]*\)".*/\1/p' "$header")
    grep -q "^$limit records a call" "docs/samples/$alias.md" || fail "docs/samples/$alias.md: the batch limit is $limit"
    grep -q "^| \[$alias\].*| $limit |$" docs/samples/README.md || fail "docs/samples/README.md: $alias has $limit"
    grep -q "^| \[$alias\].*| $limit | " docs/integration.md || fail "docs/integration.md: $alias has $limit"
    count=$((count + 1))
done
[ "$count" -eq 9 ] || fail "$count batch limits found"

needs() { grep -v '^#' tests/abi/imports.txt | tr ' ' '\n' | grep "$@" | sort; }
sed -n '/^## What the process must provide/,/^## /s/^| \(`[^|]*`\) | `platform.*/\1/p' docs/integration.md |
    grep -o '[A-Za-z_][A-Za-z0-9_]*' | sort | diff - <(needs -v '^db_') ||
    fail "docs/integration.md: these functions of the process differ from tests/abi/imports.txt"
grep -q "functions of all nine tables, $(needs -c '^db_') in all" <(tr '\n' ' ' <docs/integration.md) ||
    fail "docs/integration.md: libdb_qos has $(needs -c '^db_') functions"
exit $status
