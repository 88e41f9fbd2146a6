#!/usr/bin/env bash
# Formatting and static analysis; changes nothing, exits 1 on any finding.
set -euo pipefail

git ls-files -co --exclude-standard '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror
echo "clang-format: clean"

cmake --preset clang -DNIVEX_QOS_AGENT=ON >/dev/null
# Generated sources must exist before the analysis can include them.
cmake --build --preset clang --target qos_schema gnmi_messages devhost/sampling/leaf_texts.inc >/dev/null
git ls-files -co --exclude-standard 'src/*.cpp' 'devhost/*.cpp' |
  xargs -P "$(nproc)" -n 3 clang-tidy -p build/clang --quiet --warnings-as-errors='*' 2>/dev/null
echo "clang-tidy: clean"
