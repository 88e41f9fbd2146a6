#!/usr/bin/env bash
# Packs the build, unpacks the package into an empty folder and uses everything from there: qos-host, and the examples,
# compiled with the installed headers and pkg-config file. The package's dependencies must cover what its files are
# linked with.
# usage: unpack_and_use.sh CPACK BUILD_DIR C_COMPILER [EMULATOR...]     exits 77 where there is no dpkg
set -euo pipefail
export LC_ALL=C
cpack=$1 build=$2 compiler=$3
emulator=("${@:4}")
command -v dpkg-shlibdeps >/dev/null || { echo "skipped: there is no dpkg-shlibdeps (package dpkg-dev)"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "$1" >&2; exit 1; }

"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work" >cpack.log 2>&1 || { cat cpack.log; exit 1; }
package=$(echo nivex-qos_*.deb)
root=$work/root
dpkg-deb -x "$package" "$root"
architecture=$(dpkg-deb -f "$package" Architecture)
depends=", $(dpkg-deb -f "$package" Depends),"
echo "$package depends on ${depends:2:-1}"

qos_host() { ${emulator[@]+"${emulator[@]}"} "$root/usr/bin/qos-host" "$@"; }
# rows ARGUMENTS...: the records of a sample, without the line on the pass.
rows() { qos_host sample queue-statistics --db q.db "$@" | grep -v '^pass '; }

paths=$(sed -n 's/^#define QOS_TLM_FAMILY_NUM \([0-9]*\)u$/\1/p' "$root/usr/include/nivex-qos-plugin/nivex_qos/sample.h")
[ "$(qos_host paths | grep -c '^  xpath ')" -eq "$paths" ] || fail "qos-host does not list $paths paths"
qos_host feed sim --db q.db --count 1
rows --encoding gpb >gpb
rows --encoding json >json
diff -u gpb json || fail "the encodings differ"
records=$(($(wc -l <gpb) - 1))
[ "$records" -gt 0 ] || fail "the sample has no records"

# The folder stands for the root of another machine, as far as pkg-config knows. The examples, built as they say.
export PKG_CONFIG_LIBDIR=$root/usr/lib/pkgconfig
examples=$root/usr/share/nivex-qos/examples
plugin=$(pkg-config --variable=plugin nivex-qos-plugin)
strict=(-std=c11 -Wall -Wextra -Werror)
# shellcheck disable=SC2046
"$compiler" "${strict[@]}" -rdynamic "$examples/host.c" -o host $(pkg-config --cflags --libs nivex-qos-plugin)
# shellcheck disable=SC2046
"$compiler" "${strict[@]}" -shared -fPIC "$examples/db_qos.c" -o libdb_qos.so $(pkg-config --cflags nivex-qos-plugin)
host() { ${emulator[@]+"${emulator[@]}"} ./host "$plugin" json "$@"; }
arrived=$(NIVEX_QOS_DB=q.db host queue-statistics | awk '{ sum += $3 } END { print sum }')
[ "$arrived" -eq "$records" ] || fail "$arrived records arrive in a host of its own, $records in qos-host"
[ "$(LD_LIBRARY_PATH=. host | wc -l)" -eq "$paths" ] || fail "the plug-in does not use a libdb_qos of its own"

# owner FILE: the package of this architecture that holds a file of that name.
owner() { dpkg -S "*/$1" 2>/dev/null | sed -n "s/^\([^ ]*\):$architecture: .*/\1/p" | head -n 1; }
covered() { [[ $depends == *", $1 "* || $depends == *", $1,"* ]]; }
count=0
while read -r file; do
    readelf -dW "$file" >dynamic 2>/dev/null || continue
    ! grep -E '(RPATH|RUNPATH)' dynamic | grep -vE '\[\$ORIGIN(/[./a-z]*)?\]' || fail "$file: library path of the build"
    while read -r library; do
        [ ! -e "$root/usr/lib/$library" ] || continue
        holder=$(owner "$library")
        covered "${holder:-none}" || fail "$file needs $library of package '$holder', on which $package does not depend"
        count=$((count + 1))
    done < <(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' dynamic)
done < <(find "$root/usr/bin" "$root/usr/lib" -type f)
[ "$count" -ge 5 ] || fail "only $count needed libraries found"
# cJSON is not linked but opened by this name.
covered "$(owner libcjson.so)" || fail "$package does not depend on what holds libcjson.so"
