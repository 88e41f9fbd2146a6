#!/usr/bin/env bash
# What is installed is hardened, and nothing that is built looks for libraries in the current directory.
# usage: check_hardening.sh BUILD_DIR INSTALLED_FILE...
set -uo pipefail
export LC_ALL=C
status=0
fail() {
    echo "$1: $2"
    status=1
}

seen=0
while IFS= read -r file; do
    paths=$(readelf -dW "$file" 2>/dev/null | sed -n 's/.*(R\(UN\)\?PATH).*\[\(.*\)\]/\2/p')
    seen=$((seen + 1))
    # An empty or relative element is a folder below the current one.
    while IFS= read -d: -r element; do
        [[ $element == /* || $element == \$ORIGIN* ]] || fail "$file" "'$element' in its library search path '$paths'"
    done < <([ -z "$paths" ] || printf '%s:' "$paths")
done < <(find "$1/bin" "$1/lib" -type f \( -perm -100 -o -name '*.so*' \))
[ "$seen" -ge $(($# - 1)) ] || fail "$1" "only $seen programs and libraries"

for file in "${@:2}"; do
    dynamic=$(readelf -dW "$file")
    segments=$(readelf -lW "$file")
    imports=$(nm -D --undefined-only "$file")
    [[ $(readelf -hW "$file") == *' DYN ('* ]] || fail "$file" "not position-independent"
    [[ $segments == *GNU_RELRO* && $dynamic =~ BIND_NOW|'Flags: NOW' ]] || fail "$file" "no full RELRO"
    awk '/GNU_STACK/ {found = 1; if ($7 != "RW") exit 1} END {exit !found}' <<<"$segments" || fail "$file" "executable stack"
    [[ $imports == *' __stack_chk_fail@'* ]] || fail "$file" "no stack protector"
done
# Few files import a checking function that shows it: the commands do.
if grep -q '^CMAKE_BUILD_TYPE:.*=Rel' "$1/CMakeCache.txt"; then
    commands=$(grep -E '"command".*/(src|devhost)/[^ ]*\.cpp"' "$1/compile_commands.json")
    [ -n "$commands" ] || fail "$1" "no commands of src/ and devhost/"
    ! grep -v -- '-D_FORTIFY_SOURCE=2' <<<"$commands" || fail "$1" "sources that are not built with _FORTIFY_SOURCE"
fi
exit $status
