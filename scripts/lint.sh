#!/usr/bin/env bash
# Formatting and static analysis; changes nothing, exits 1 on any finding.
set -euo pipefail

git ls-files -co --exclude-standard '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror
echo "clang-format: clean"

cmake --preset clang -DNIVEX_QOS_AGENT=ON >/dev/null
# Generated sources must exist before the analysis can include them.
cmake --build --preset clang --target qos_schema gnmi_messages devhost/sampling/leaf_texts.inc >/dev/null
# What the compiler is given, so that headers are read once for several sources; the library and its host, no generated
# sources, no tests.
sed -n 's/^ *"file": "\([^"]*\)".*/\1/p' build/clang/compile_commands.json |
  grep -E '/(src|devhost)/.*\.(cpp|cxx)$' | grep -vE '/(tests|fuzz)/|/gnmi_messages\.dir/' |
  xargs -P "$(nproc)" -n 1 clang-tidy -p build/clang --quiet --warnings-as-errors='*' \
    --checks=-bugprone-suspicious-include --header-filter='/(src|devhost|include|platform)/[^.]*\.(h|cpp)$' 2>/dev/null
echo "clang-tidy: clean"
