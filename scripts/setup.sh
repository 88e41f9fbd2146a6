#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs and this machine lacks, and says which.
# usage: scripts/setup.sh run|agent|test|lint|bench|arm64|bare
# agent includes run, test includes both; lint, bench and arm64 include all three
set -euo pipefail

run=(g++ cmake ninja-build pkg-config libcjson-dev libcli11-dev libfmt-dev libnl-3-dev libprotobuf-dev libsqlite3-dev
     nlohmann-json3-dev protobuf-compiler iproute2)
agent=(libevent-dev libgrpc++-dev libmicrohttpd-dev libssl-dev libsystemd-dev libyaml-cpp-dev protobuf-compiler-grpc)
test=(abigail-tools binutils dpkg-dev file libgmock-dev libgtest-dev libyang-tools mandoc mount openssl prometheus
      python3-grpcio python3-protobuf sqlite3 systemd)
lint=(clang clang-format clang-tidy libclang-rt-14-dev valgrind)
bench=(collectd-core libnanopb-dev libprotozero-dev nanopb prometheus-node-exporter rapidjson-dev)
# The cross compiler, the emulator, and the libraries of the other architecture.
arm64=(crossbuild-essential-arm64 qemu-user libcjson-dev:arm64 libfmt-dev:arm64 libgmock-dev:arm64 libgtest-dev:arm64
       libnl-3-dev:arm64 libprotobuf-dev:arm64 libsqlite3-dev:arm64)

case "${1:-}" in
  run) wanted=("${run[@]}") ;;
  agent) wanted=("${run[@]}" "${agent[@]}") ;;
  test) wanted=("${run[@]}" "${agent[@]}" "${test[@]}") ;;
  lint) wanted=("${run[@]}" "${agent[@]}" "${test[@]}" "${lint[@]}") ;;
  bench) wanted=("${run[@]}" "${agent[@]}" "${test[@]}" "${bench[@]}") ;;
  arm64) wanted=("${run[@]}" "${agent[@]}" "${test[@]}" "${arm64[@]}") ;;
  bare) wanted=(mmdebstrap) ;;
  *) echo "usage: $0 run|agent|test|lint|bench|arm64|bare" >&2; exit 2 ;;
esac

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "setup: this is no Debian system; the build needs what these packages hold: ${wanted[*]}" >&2
  exit 0
fi

missing=()
native=$(dpkg --print-architecture)
for package in "${wanted[@]}"; do
  architecture=$native
  [[ $package != *:* ]] || architecture=${package#*:}
  dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "$package" 2>/dev/null |
    grep -xE "($architecture|all) installed" >/dev/null || missing+=("$package")
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
if [[ " ${missing[*]} " == *:arm64\ * ]] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  echo "setup: adding the foreign architecture arm64"
  "${as_root[@]}" dpkg --add-architecture arm64
fi
# Of some packages only the programs are wanted: no service starts because a test needs one.
policy=/usr/sbin/policy-rc.d
made_policy=
if [ ! -e "$policy" ] && printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null; then
  made_policy=1
  "${as_root[@]}" chmod 755 "$policy"
fi
log=$(mktemp)
trap 'rm -f "$log"; [ -z "$made_policy" ] || "${as_root[@]}" rm -f "$policy"' EXIT
install() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1
}
# The package lists may be absent or old on a new machine.
if ! install; then
  "${as_root[@]}" apt-get update >"$log" 2>&1 && install || { tail -n 20 "$log" >&2; exit 1; }
fi
