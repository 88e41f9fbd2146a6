#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs and this machine lacks, and says which.
# usage: scripts/setup.sh run|test|lint|bench   (test includes run; lint and bench include both)
set -euo pipefail

run=(g++ cmake ninja-build pkg-config libcjson-dev libcli11-dev libfmt-dev libnl-3-dev libprotobuf-dev libsqlite3-dev
     nlohmann-json3-dev protobuf-compiler iproute2)
test=(binutils libgmock-dev libgtest-dev libyang-tools sqlite3)
lint=(clang clang-format clang-tidy libclang-rt-14-dev valgrind)
bench=(libnanopb-dev libprotozero-dev nanopb rapidjson-dev)

case "${1:-}" in
  run) wanted=("${run[@]}") ;;
  test) wanted=("${run[@]}" "${test[@]}") ;;
  lint) wanted=("${run[@]}" "${test[@]}" "${lint[@]}") ;;
  bench) wanted=("${run[@]}" "${test[@]}" "${bench[@]}") ;;
  *) echo "usage: $0 run|test|lint|bench" >&2; exit 2 ;;
esac

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "setup: this is no Debian system; the build needs what these packages hold: ${wanted[*]}" >&2
  exit 0
fi

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "setup: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "setup: not root and no sudo; as root, run: apt-get install ${missing[*]}" >&2
    exit 1
  }
  as_root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1
}
# The package lists may be absent or old on a new machine.
if ! install; then
  "${as_root[@]}" apt-get update >"$log" 2>&1 && install || { tail -n 20 "$log" >&2; exit 1; }
fi
