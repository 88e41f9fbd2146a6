#!/usr/bin/env bash
# Compares the built plug-in with what it may export, need and contain, on every architecture.
# usage: check_library.sh LIBRARY
set -uo pipefail
export LC_ALL=C
library=$1
here=$(dirname "$0")
status=0

# names FILE: the names that a list file holds, one a line.
names() {
    grep -v '^#' "$1" | tr -s ' ' '\n'
}
# same WHAT EXPECTED ACTUAL: both files must hold the same lines.
same() {
    if ! diff -u --label "expected $1" --label "actual $1" <(sort "$2") <(sort "$3"); then
        status=1
    fi
}
fail() {
    echo "$library: $1"
    status=1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

nm -D --defined-only "$library" | awk '{print $3}' > "$work/exports"
[ -s "$work/exports" ] || fail "nm lists no symbol"
names "$here/exports.txt" > "$work/expected_exports"
same exports "$work/expected_exports" "$work/exports"

# Weak references are the start files'; versioned ones are the C library's, its loader included.
nm -D --undefined-only "$library" > "$work/undefined"
awk '$1 == "U" && $2 !~ /@GLIBC_/ {print $2}' "$work/undefined" > "$work/imports"
names "$here/imports.txt" > "$work/expected_imports"
same imports "$work/expected_imports" "$work/imports"

printf '%s\n' libc.so.6 libdb_qos.so > "$work/expected_needed"
# The loader is part of the C library; AArch64 keeps the stack protector's guard there.
readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^ld-linux' > "$work/needed"
same "needed libraries" "$work/expected_needed" "$work/needed"

readelf -dW "$library" > "$work/dynamic"
! grep -q 'TEXTREL' "$work/dynamic" || fail "text relocations"
grep -q 'NODELETE' "$work/dynamic" || fail "can be unloaded (NODELETE)"

# Calls are made one at a time, by the host's threads.
! grep -E ' (pthread_|thrd_|mtx_|cnd_|sem_|clone|fork)' "$work/undefined" || fail "threads or locks"

# Patterns come with requests and are read the same in every locale.
! grep -E ' (regcomp|regexec|regfree|__ctype|isalnum|tolower|toupper|tow|wct|isw|btowc|setlocale)' "$work/undefined" ||
    fail "the C library's regular expressions, or its locale"

# One pointer: the start files' frame_dummy. A static initialiser of the library's own would add another.
size=$(readelf -SW "$library" | sed 's/^ *\[ *//' | awk '$2 == ".init_array" {print $6}')
size=$((16#${size:-0}))
[ "$size" -le 8 ] || fail ".init_array has $size bytes: static initialisers"

exit $status
