#!/usr/bin/env bash
# Builds the fuzz targets and runs each, from its seeds, for a number of inputs or of seconds. The first finding ends it,
# kept beside the targets under the name that libFuzzer prints. What new inputs uncover is kept in build/fuzz/corpus.
# usage: scripts/fuzz.sh [--runs N | --seconds N] [TARGET...]   (without either, what CI has time for)
set -euo pipefail

declare -A runs=([sampling]=5000 [names]=40000 [capture]=40000 [netlink]=10000 [gnmi_request]=40000 [gnmi_stream]=4000)
declare -A longest=([sampling]=300 [names]=100 [capture]=512 [netlink]=4096 [gnmi_request]=1024 [gnmi_stream]=512)
# Costs of the address sanitizer that find nothing here.
export ASAN_OPTIONS=malloc_context_size=4:quarantine_size_mb=4:allocator_release_to_os_interval_ms=-1
limit=
case "${1:-}" in
  --runs) limit="-runs=$2"; shift 2 ;;
  --seconds) limit="-max_total_time=$2"; shift 2 ;;
  -*) echo "usage: $0 [--runs N | --seconds N] [TARGET...]" >&2; exit 2 ;;
esac
[ $# -gt 0 ] || set -- sampling names capture netlink gnmi_request gnmi_stream

scripts/build.sh fuzz -DNIVEX_QOS_AGENT=ON "${@/#/fuzz_}"
for target in "$@"; do
  corpus=build/fuzz/corpus/$target
  mkdir -p "$corpus"
  printf 'fuzz %s: ' "$target"
  log=build/fuzz/$target.log
  "build/fuzz/bin/fuzz_$target" ${limit:--runs=${runs[$target]} -seed=1} -max_len="${longest[$target]}" -timeout=20 \
    -artifact_prefix="build/fuzz/$target-" -print_final_stats=1 "$corpus" "fuzz/corpus/$target" >"$log" 2>&1 ||
    { tail -n 60 "$log" >&2; exit 1; }
  grep -o 'Done .*' "$log"
done
