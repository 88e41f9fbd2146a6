#!/usr/bin/env bash
# Descriptions of a family with one fault each: none of them compiles.
# usage: descriptions.sh COMPILER [OPTION...]
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
family=$root/src/families/ing_port_drop_stat.cpp
table=ing_port_drop_stat
compiler=("$@")
status=0

# name, what the compiler must say ("": nothing), edit of the family's source
attempt() {
    local name=$1 complaint=$2 edit=$3 source output
    source=$(sed "$edit" "$family")
    if [ -n "$edit" ] && [ "$source" = "$(<"$family")" ]; then
        echo "$name: the edit changes nothing" >&2
        status=1
    fi
    output=$("${compiler[@]}" -x c++ -std=c++20 -fsyntax-only -I "$root" -I "$root/src" -I "$root/include" - <<<"$source" 2>&1)
    if [ -z "$complaint" ] && [ -n "$output" ] || ! grep -q "$complaint" <<<"$output"; then
        printf '%s: expected "%s", the compiler says:\n%s\n' "$name" "$complaint" "$(head -20 <<<"$output")" >&2
        status=1
    fi
}
columns() { # COLUMN...
    local rows='' column
    for column in "$@"; do
        rows+="QOS_RENAMED_COLUMN($table, $column, , ) "
    done
    echo "s/QOS_DB_COLUMNS_ING_PORT_DROP_STAT(.*)}/$rows}/"
}

wrong='a column is forgotten, or stands twice or in the wrong place'
doubled="a leaf's name, number or field stands twice"
attempt 'no fault' '' ''
attempt 'columns by hand' '' "$(columns ifIndex ifName dropByts dropPkts)"
attempt 'a column that is forgotten' "$wrong" "$(columns ifIndex ifName dropByts)"
attempt 'a column that stands twice' "$wrong" "$(columns ifIndex ifName dropByts dropByts dropPkts)"
attempt 'columns in another order' "$wrong" "$(columns ifIndex ifName dropPkts dropByts)"
attempt "another column's field" "$wrong" 's/dropByts = QOS_FIELD(dropBytes)/dropByts = QOS_FIELD(dropPkts)/'
attempt "another column's field for each" "$wrong" \
    's/QOS_FIELD(dropBytes);/QOS_FIELD(swap);/; s/QOS_FIELD(dropPkts);/QOS_FIELD(dropBytes);/; s/(swap)/(dropPkts)/'
attempt 'an accessor of another type' "$wrong" "s/QOS_DB_COLUMNS.*)}/{QOS_FIELD(ifIndex), db_get_qos_tlm_${table}_dropPkts}}/"
attempt "a leaf's number that stands twice" "$doubled" 's/"drop-packets", 3/"drop-packets", 2/'
attempt "a leaf's name that stands twice" "$doubled" 's/"drop-packets", 3/"drop-bytes", 3/'
attempt "a leaf's field that stands twice" "$doubled" 's/3, QOS_FIELD(dropPkts)/3, QOS_FIELD(dropBytes)/'
exit $status
