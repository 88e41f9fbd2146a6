#!/usr/bin/env bash
# Runs the host of examples/ over SQLite and over the libdb_qos of examples/, which has the rows of docs/samples: what it
# tells must be as many bytes as the pages show.
# usage: examples.sh PLUGIN DB_DIR LACKING_DB_DIR [EMULATOR...] HOST
set -uo pipefail
plugin=$1 whole=$2 lacking=$3
host() { "${command[@]}" "$plugin" "$@"; }
command=("${@:4}")
tests=$(cd "$(dirname "$0")/.." && pwd)
pages=$tests/../docs/samples
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

status=0
fail() { echo "$*" >&2; status=1; }
# expect CODE FILE ARGUMENTS...: the host's exit code, and its output.
expect() {
    host "${@:3}" >out 2>err
    local code=$?
    [ "$code" -eq "$1" ] || fail "host ${*:3}: exit code $code: $(cat err)"
    diff -u "$2" out || fail "host ${*:3}: not what was expected"
}
# A page's example in JSON or as a dump, in bytes.
bytes_in() {
    case $1 in
    json) sed -n '/^```json/{n;p}' "$2" | tr -d '\n' | wc -c ;;
    gpb) printf '%d' "0x$(grep -xE '[0-9a-f]{8}' "$2")" ;;
    esac
}
make_db() { sqlite3 -bail "$1" "PRAGMA journal_mode=WAL" >/dev/null && cat "${@:2}" | sqlite3 -bail "$1" >/dev/null; }

make_db example.db "$pages/example.sql"
paths=$(sed -n 's/^| \[\([a-z-]*\)\].*/\1/p' "$pages/README.md")
for encoding in gpb json; do
    for path in $paths; do
        echo "$path 1: 1 records, $(bytes_in $encoding "$pages/$path.md") bytes"
    done >expected
    [ -s expected ] || fail "no path is expected"
    NIVEX_QOS_DB=example.db expect 0 expected $encoding
    LD_LIBRARY_PATH=$whole expect 0 expected $encoding
done

# A pass of several batches.
make_db many.db "$tests/cli/queue_stat.sql" "$tests/cli/many.sql"
printf 'queue-statistics %s records\n' '1: 128' '2: 128' '3: 44' >expected
NIVEX_QOS_DB=many.db host gpb queue-statistics | sed 's/,.*//' >out || fail "a pass of several batches fails"
diff -u expected out || fail "a pass of several batches"

# What does not work is told.
: >expected
# complaint TEXT ARGUMENTS...
complaint() {
    expect 1 expected "${@:2}"
    grep -Fq -- "$1" err || fail "host ${*:2}: '$1' is missing: $(cat err)"
}
complaint "there is no path drops" gpb drops
complaint "usage: host" xml
NIVEX_QOS_DB=none.db complaint "queue-statistics 1: no batch, result 2" gpb queue-statistics
LD_LIBRARY_PATH=$lacking complaint "undefined symbol: db_get_qos_tlm_tm_chip_buf_stat_usedPct" gpb
plugin=$whole/libdb_qos.so complaint "it has no QOS_TLM_InitPlugin" gpb
exit $status
