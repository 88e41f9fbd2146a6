#!/usr/bin/env bash
# Builds and installs the plug-in without the development host, against a libdb_qos alone: none of the packages that
# any other part of the tree looks for may be asked for. Where there is dpkg, packs it, too.
# usage: plugin_alone.sh CMAKE CPACK GENERATOR C_COMPILER CXX_COMPILER DB_LIBRARY
set -euo pipefail
export LC_ALL=C
cmake=$1 cpack=$2 generator=$3 c=$4 cxx=$5 db=$6
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$1" >&2; exit 1; }

mapfile -t packages < <(find "$root" -path "$root/build" -prune -o \( -name CMakeLists.txt -o -name '*.cmake' \) \
    -exec sed -n 's/.*find_package(\([A-Za-z0-9_]*\).*/\1/p' {} + | sort -u)
[[ " ${packages[*]} " == *" Protobuf "* ]] || fail "the packages of the tree are not found: ${packages[*]}"
forbidden=("${packages[@]/#/-DCMAKE_DISABLE_FIND_PACKAGE_}")
forbidden=("${forbidden[@]/%/=ON}")
configure() {
    "$cmake" -S "$root" -B "$work/build" -G "$generator" -DCMAKE_C_COMPILER="$c" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_BUILD_TYPE=Debug -DNIVEX_QOS_DEVHOST=OFF \
        "${forbidden[@]}" "$@" >"$work/log" 2>&1
}
! configure || fail "configures without a libdb_qos"
tr -s '\n ' ' ' <"$work/log" | grep -q "name the device's libdb_qos.so with NIVEX_QOS_DB_LIBRARY" || fail "$(cat "$work/log")"
configure -DNIVEX_QOS_DB_LIBRARY="$db" || fail "$(cat "$work/log")"
"$cmake" --build "$work/build" --target nivex_qos_plugin >"$work/log" 2>&1 || fail "$(cat "$work/log")"
"$cmake" --install "$work/build" --prefix "$work/installed" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
library=$(find "$work/installed" -name libnivex_qos_plugin.so)
[ -n "$library" ] || fail "the plug-in is not installed"
"$root/tests/abi/check_library.sh" "$library"
[ -e "$work/installed/include/nivex-qos-plugin/nivex_qos/sample.h" ] || fail "the headers are not installed"
[ ! -e "$work/installed/bin" ] || fail "installed as well: $(ls "$work/installed/bin")"

if command -v dpkg-shlibdeps >/dev/null; then
    "$cpack" -G DEB --config "$work/build/CPackConfig.cmake" -B "$work" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
    packed=$(basename -a "$work"/*.deb)
    [[ $packed == nivex-qos-plugin_*.deb ]] || fail "packed: $packed"
    dpkg-deb -x "$work/$packed" "$work/unpacked"
    diff <(cd "$work/installed" && find . | sort) <(cd "$work/unpacked/usr" && find . | sort) ||
        fail "installed (<) and packed (>) are not the same"
fi
