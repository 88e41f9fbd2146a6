#!/usr/bin/env bash
# Configures a preset and builds it, or only the named targets.
# usage: scripts/build.sh PRESET [TARGET...]
set -euo pipefail

preset=$1
shift
[ -f "build/$preset/build.ninja" ] || cmake --preset "$preset"
cmake --build --preset "$preset" ${1:+--target "$@"}
