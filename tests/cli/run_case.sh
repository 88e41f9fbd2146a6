#!/usr/bin/env bash
# Runs the commands of a transcript and compares what they print with it.
#
#   run_case.sh PROGRAM_DIR CASE_FILE [EMULATOR]        UPDATE=1 writes the transcript anew instead
#
# In a transcript "$ " begins a command line for bash, which finds qos-host in PROGRAM_DIR and few.db, many.db, every.db and
# other files around it. Its output follows (standard output, then standard error), then "? " and the
# exit code. Lines that begin with "#" are remarks. Spans of time are shown as N, times as T and random run ids as R.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
case_file=$(realpath "$2")
programs=$(cd "$1" && pwd)
if [ -n "${3:-}" ] && [[ $2 =~ (demo|feed_kernel)\.txt$ ]]; then
    echo "skipped: $3 passes no requests for queueing disciplines on to the kernel"
    exit 77
fi
PATH=$programs:$PATH
unset NIVEX_QOS_DB NIVEX_QOS_PLUGIN
export LC_ALL=C

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
for name in few many; do
    cat "$here/queue_stat.sql" "$here/$name.sql" | sqlite3 -bail "$name.db" >make.log 2>&1 || { cat make.log; exit 1; }
done
cat "$here/../../docs/samples/example.sql" "$here/every.sql" | sqlite3 -bail every.db || exit 1
sqlite3 empty.db 'CREATE TABLE other (x)'

while IFS= read -r line; do
    case $line in
    '$ '*)
        echo "$line"
        eval "${line#\$ }" 2>errors </dev/null
        code=$?
        cat errors
        echo "? $code"
        ;;
    '#'* | '') echo "$line" ;;
    esac
done <"$case_file" | sed -E -e 's/encoding time [0-9]+ us/encoding time N us/' \
    -e 's/(collected|begun|logged) [0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\.[0-9]{3}Z/\1 T/' \
    -e 's/(took|late) [0-9]+ us/\1 N us/g' -e 's/run [0-9a-f]{16}/run R/' >transcript

if [ -n "${UPDATE:-}" ]; then
    cp transcript "$case_file"
else
    diff -u "$case_file" transcript
fi
