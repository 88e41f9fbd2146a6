#!/usr/bin/env bash
# Configures a preset, with options, where that has not been done yet, and builds it or only the named targets.
# usage: scripts/build.sh PRESET [-DOPTION=VALUE...] [TARGET...]
set -euo pipefail

preset=$1
shift
options=()
configured=1
[ -f "build/$preset/build.ninja" ] || configured=
while [[ ${1:-} == -D* ]]; do
  options+=("$1")
  grep -qx "${1#-D}" <(sed 's/:[A-Z]*=/=/' "build/$preset/CMakeCache.txt" 2>/dev/null) || configured=
  shift
done
[ -n "$configured" ] || cmake --preset "$preset" "${options[@]}"
cmake --build --preset "$preset" ${1:+--target "$@"}
