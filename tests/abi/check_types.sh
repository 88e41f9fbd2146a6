#!/usr/bin/env bash
# Compares the functions, variables and records that the built plug-in offers with baseline.abi, which holds for every
# architecture; exits 77 where that cannot be done.
# usage: check_types.sh LIBRARY [--update]   (--update writes the baseline anew)
set -euo pipefail
library=$1
here=$(dirname "$0")
baseline=$here/baseline.abi
skip() {
    echo "skipped: $1"
    exit 77
}
command -v abidiff >/dev/null || skip "there is no abidiff (package abigail-tools)"

if [ "${2:-}" = --update ]; then
    # No path of a machine, and of the types only those of the public headers.
    abidw --no-architecture --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-write-default-sizes \
        --exported-interfaces-only --drop-undefined-syms --drop-private-types --headers-dir "$here/../../include" \
        "$library" | sed "s|path='[^']*/src/|path='src/|" >"$baseline"
    exit
fi

compare() { abidiff --no-architecture "$1" "$library"; }

# Without debug information nothing would differ: a baseline with one member moved must.
moved=$(mktemp)
trap 'rm -f "$moved"' EXIT
sed "s/layout-offset-in-bits='192'/layout-offset-in-bits='200'/" "$baseline" >"$moved"
! cmp -s "$baseline" "$moved" || { echo "$baseline has no member to move" >&2; exit 1; }
! compare "$moved" >/dev/null || skip "$library has no debug information"

compare "$baseline" || {
    echo "$library differs from $baseline; if that is meant, run $0 LIBRARY --update"
    exit 1
}
