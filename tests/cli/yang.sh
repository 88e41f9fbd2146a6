#!/usr/bin/env bash
# What `qos-host sample --output json` prints of each path is valid data of the YANG module, which has the fields of the
# proto file.
#
#   yang.sh PROGRAM_DIR SCHEMA
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
PATH=$(cd "$1" && pwd):$PATH
schema=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
cat "$here/../../docs/samples/example.sql" "$here/every.sql" | sqlite3 -bail every.db

count=0
for alias in $(qos-host paths --json | sed -n 's/.*"alias":"\([^"]*\)".*/\1/p'); do
    qos-host sample "$alias" --db every.db --output json >"$alias.json"
    grep -q "\"$alias\":\[{" "$alias.json" || { echo "$alias: the sample has no record" >&2; exit 1; }
    yanglint -t data "$schema" "$alias.json" || { echo "$alias: not valid" >&2; exit 1; }
    # A name that the module lacks, to see that this check can fail.
    sed 's/:\[{/:[{"other":1,/' "$alias.json" >other.json
    ! yanglint -t data "$schema" other.json 2>/dev/null || { echo "$alias: accepts a name it lacks" >&2; exit 1; }
    count=$((count + 1))
done
expected=$(grep -c '^        list ' "$schema")
[ "$count" -eq "$expected" ] || { echo "$count paths, not $expected" >&2; exit 1; }

# Parent, name, number and type of each field, those of a parent in their order.
awk '/\{$/ { name[++depth] = $2; kind[depth] = $1 }
     /^ *\}$/ { --depth }
     $1 == "vqos:field" { number = $2 + 0; if (kind[depth] != "leaf") print name[depth - 1], name[depth], number, "" }
     $1 == "type" { sub(";", ""); sub("boolean", "bool"); print name[depth - 1], name[depth], number, $2 }' "$schema" |
    sed 's/^qos /sample /' | sort -s -k1,1 >yang.fields
sed -nE 's/^message (\w+) .*/message \1/p; s/^ *(repeated )?(\w+) \w+ = ([0-9]+) \[json_name = "(.*)"\];/field \4 \3 \2/p' \
    "${schema%/*}/vexlor_qos.proto" |
    awk '$1 == "message" { gsub(/[A-Z]/, "-&", $2); message = tolower(substr($2, 2)) }
         $1 == "field" { print message, $2, $3, $4 ~ /^[A-Z]/ ? "" : $4 }' | sort -s -k1,1 >proto.fields
diff yang.fields proto.fields
[ "$(wc -l <yang.fields)" -gt 80 ]

# What tells a row from its others.
awk '$1 == "list" { list = $2 } $1 == "key" { gsub(/[";]/, ""); $1 = list; print }' "$schema" | sort >yang.keys
qos-host paths --json |
    sed -nE 's/.*"alias":"([^"]*)".*"keys":\[([^]]*)\].*/\1,\2/p' | tr -d '"' | tr ',' ' ' | sort >host.keys
diff yang.keys host.keys
[ "$(wc -l <yang.keys)" -eq "$expected" ]
