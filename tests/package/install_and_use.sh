#!/usr/bin/env bash
# Packs the build and uses the packages as their users do: the plug-in's alone, unpacked, with the examples for a host and
# a libdb_qos; then both, installed by dpkg over the single package that they once were, with qos-host too.
# usage: install_and_use.sh CPACK CMAKE BUILD_DIR C_COMPILER [EMULATOR...]     exits 77 where there is no dpkg
set -euo pipefail
export LC_ALL=C
cpack=$1 cmake=$2 build=$3 compiler=$4
emulator=("${@:5}")
command -v dpkg-shlibdeps >/dev/null || { echo "skipped: there is no dpkg-shlibdeps (package dpkg-dev)"; exit 77; }
root=$(cd "$(dirname "$0")/../.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "$1" >&2; exit 1; }

"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work" >cpack.log 2>&1 || { cat cpack.log; exit 1; }
plugin=$(echo nivex-qos-plugin_*.deb)
host=$(echo nivex-qos-host_*.deb)
architecture=$(dpkg-deb -f "$plugin" Architecture)
version=$(dpkg-deb -f "$plugin" Version)
# depends PACKAGE: its dependencies, each between ", " and ",".
depends() { echo ", $(dpkg-deb -f "$1" Depends),"; }
[ "$(ls ./*.deb)" = "$(printf '%s\n' "./$host" "./$plugin")" ] || fail "packed: $(ls ./*.deb)"

# Each installed file is in one of them.
files() { (cd "$1" && find . ! -type d | sort); }
dpkg-deb -x "$plugin" device
dpkg-deb -x "$host" rest
DESTDIR=$work/installed "$cmake" --install "$build" --prefix /usr >install.log || fail "$(cat install.log)"
files device >in_plugin
files rest >in_host
twice=$(comm -12 in_plugin in_host)
[ -z "$twice" ] || fail "in both packages: $twice"
sort in_plugin in_host | diff <(files installed) - || fail "installed (<) and packed (>) are not the same"
# A device takes the first; a libdb_qos of its own must not meet another there.
grep -E 'libdb_qos\.so|/s?bin/|qos-host' in_plugin | grep -v /doc/ && fail "this is no part of the plug-in's package"

diff <(grep '^./etc/' in_host) <(dpkg-deb -I "$host" conffiles 2>/dev/null | sed 's/^/./') ||
    fail "files of /etc (<) and those that an upgrade leaves to the administrator (>) are not the same"

# links_hold FOLDER: what its documents refer to is there.
links_hold() {
    local count=0 document target
    while IFS=: read -r document target; do
        [ -e "$(dirname "$document")/$target" ] || fail "$document refers to $target, which is not installed"
        count=$((count + 1))
    done < <(grep -roE '\]\([^)#:]+' --include='*.md' "$1" | sed 's/](//')
    [ "$count" -ge 20 ] || fail "only $count links found"
}
links_hold device/usr/share/nivex-qos
[ -e device/usr/share/doc/nivex-qos-plugin/docs/integration.md ] || fail "Debian's name for the documents leads elsewhere"

# build_examples ROOT: by the very commands that the examples show. The folder stands for the root of another machine, as
# far as pkg-config knows.
cc() { "$compiler" -Wall -Wextra -Werror "$@"; }
build_examples() {
    export PKG_CONFIG_LIBDIR=$1/usr/lib/pkgconfig
    examples=$1/usr/share/nivex-qos/examples
    rm -f host libdb_qos.so
    for example in host db_qos; do
        command=$(sed -n 's/^ \* *\(cc .*\)$/\1/p' "$examples/$example.c")
        [[ $command == "cc "*"$example.c"* ]] || fail "$example.c does not say how to build it"
        (eval "cd '$work'; ${command/$example.c/\"\$examples/$example.c\"}") || fail "$example.c: $command"
    done
    library=$(pkg-config --variable=plugin nivex-qos-plugin)
}
# the_host ENCODING [PATH]...
the_host() { ${emulator[@]+"${emulator[@]}"} ./host "$library" "$@"; }
paths=$(sed -n 's/^#define QOS_TLM_FAMILY_NUM \([0-9]*\)u$/\1/p' "$root/include/nivex_qos/sample.h")
# one_record_of_each ENCODING: the pages of docs/samples show one.
one_record_of_each() {
    the_host "$1" >told || fail "the example's host fails"
    [ "$(grep -c ' 1: 1 records, ' told)" -eq "$paths" ] || fail "not a record of each path: $(cat told)"
}

build_examples "$work/device"
"$root/tests/abi/check_library.sh" "$library"
for encoding in gpb json; do
    LD_LIBRARY_PATH=$work one_record_of_each $encoding
done
! the_host gpb 2>errors || fail "the plug-in finds a libdb_qos where none is"
grep -q 'libdb_qos\.so: cannot open shared object file' errors || fail "without a libdb_qos: $(cat errors)"

# Both, over the single package. dpkg knows of this machine's packages what the two name; their scripts are run, with
# this folder for the root.
target=$work/target
mkdir -p "$target/var/lib/dpkg/"{info,updates,triggers} "$target/etc" tools
echo "$architecture" >"$target/var/lib/dpkg/arch"
[ "$architecture" = "$(dpkg --print-architecture)" ] || dpkg --print-architecture >>"$target/var/lib/dpkg/arch"
for dependency in $( (depends "$plugin" && depends "$host") | grep -oE ', [a-z0-9.+-]+' | tr -d ', ' | sort -u); do
    [ "$dependency" != nivex-qos-plugin ] || continue
    dpkg-query -s "$dependency:$architecture" >>"$target/var/lib/dpkg/status" || fail "$dependency is not installed here"
    echo >>"$target/var/lib/dpkg/status"
    touch "$target/var/lib/dpkg/info/$dependency"{,:"$architecture"}.list
done
echo 1 >"$target/var/lib/dpkg/info/format"
printf '#!/bin/sh\necho ldconfig >>"%s/scripts.log"\n' "$work" >tools/ldconfig
chmod 755 tools/ldconfig
into_target() {
    PATH=$work/tools:$PATH:/usr/sbin:/sbin \
        dpkg --root="$target" --force-not-root --force-script-chrootless --no-pager "$@" >dpkg.log 2>&1
}
state() { dpkg-query --admindir="$target/var/lib/dpkg" -W -f='${db:Status-Abbrev}' "$1" 2>/dev/null | tr -d ' '; }

cp -a installed single
mkdir single/DEBIAN
printf '%s\n' 'Package: nivex-qos' "Version: $version" "Architecture: $architecture" 'Maintainer: none <none@localhost>' \
    'Description: the plug-in and the host in one' >single/DEBIAN/control
dpkg-deb --root-owner-group -b single nivex-qos.deb >build.log
into_target -i nivex-qos.deb || fail "$(cat dpkg.log)"
! into_target -i "$host" || fail "the host's package is installed without the plug-in's"
grep -q "depends on nivex-qos-plugin (= $version)" dpkg.log || fail "$(cat dpkg.log)"
into_target -i "$plugin" "$host" || fail "$(cat dpkg.log)"
[ "$(state nivex-qos-plugin) $(state nivex-qos-host)" = "ii ii" ] || fail "the packages are not installed"
[[ $(state nivex-qos) != ?i ]] || fail "the single package is still installed"
[ "$(cat scripts.log)" = "$(printf 'ldconfig\nldconfig')" ] || fail "the loader's cache is not renewed: $(cat scripts.log)"
diff <(files installed) <(files "$target" | grep -v '^./var/lib/dpkg/') || fail "files wanted (<) and there (>) differ"
links_hold "$target/usr/share/nivex-qos"
for program in "$target"/usr/bin/*; do
    page=$target/usr/share/man/man1/$(basename "$program").1.gz
    zcat "$page" | grep -q "^\.Nm $(basename "$program")$" || fail "$program has no manual page $page"
done

qos_host() { ${emulator[@]+"${emulator[@]}"} "$target/usr/bin/qos-host" "$@"; }
# rows ARGUMENTS...: the records of a sample, without the line on the pass.
rows() { qos_host sample queue-statistics --db q.db "$@" | grep -v '^pass '; }
[ "$(qos_host paths | grep -c '^  xpath ')" -eq "$paths" ] || fail "qos-host does not list $paths paths"
qos_host feed sim --db q.db --count 1
rows --encoding gpb >gpb
rows --encoding json >json
diff -u gpb json || fail "the encodings differ"
records=$(($(wc -l <gpb) - 1))
[ "$records" -gt 0 ] || fail "the sample has no records"

build_examples "$target"
arrived=$(NIVEX_QOS_DB=q.db the_host json queue-statistics | awk '{ sum += $3 } END { print sum }')
[ "$arrived" -eq "$records" ] || fail "$arrived records arrive in a host of its own, $records in qos-host"
LD_LIBRARY_PATH=$work one_record_of_each json

# owner FILE: the package of this architecture that holds a file of that name.
owner() { dpkg -S "*/$1" 2>/dev/null | sed -n "s/^\([^ ]*\):$architecture: .*/\1/p" | head -n 1; }
# covers PACKAGE NAME: its dependencies name that package.
covers() { [[ $(depends "$1") == *", $2 "* || $(depends "$1") == *", $2,"* ]]; }
# needs_are_covered PACKAGE FOLDER OTHERS...: what the programs and libraries in the folder are linked with is among the
# package's dependencies or OTHERS.
count=0
needs_are_covered() {
    while read -r file; do
        readelf -dW "$file" >dynamic 2>/dev/null || continue
        ! grep -E '(RPATH|RUNPATH)' dynamic | grep -vE '\[\$ORIGIN(/[./a-z]*)?\]' || fail "$file: library path of the build"
        while read -r needed; do
            [[ " ${*:3} " != *" $needed "* ]] || continue
            holder=$(owner "$needed")
            covers "$1" "${holder:-none}" || fail "$file needs $needed of '$holder', on which $1 does not depend"
            count=$((count + 1))
        done < <(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' dynamic)
    done < <(find "$2/usr/bin" "$2/usr/lib" -type f 2>/dev/null)
}
needs_are_covered "$plugin" device libdb_qos.so
needs_are_covered "$host" rest libdb_qos.so libnivex_qos_plugin.so
[ "$count" -ge 5 ] || fail "only $count needed libraries found"
# cJSON is not linked but opened by this name.
covers "$plugin" "$(owner libcjson.so)" || fail "$plugin does not depend on what holds libcjson.so"

into_target -P nivex-qos-host nivex-qos-plugin nivex-qos || fail "$(cat dpkg.log)"
left=$(files "$target" | grep -v '^./var/lib/dpkg/' || true)
[ -z "$left" ] || fail "left behind: $left"
echo "$plugin depends on$(depends "$plugin" | sed 's/^,//; s/,$//')"
echo "$host depends on$(depends "$host" | sed 's/^,//; s/,$//')"
