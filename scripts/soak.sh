#!/usr/bin/env bash
# Feeds a simulated device while samplers of all paths read it, both encodings, with and without a capture, and
# watches their memory: after a warm-up none may grow by more than the bound. Ends with a table; exits 1 on growth, on
# any message, on an exit code and on a capture that does not read back whole.
# usage: scripts/soak.sh SECONDS [QOS_HOST]
set -euo pipefail

seconds=${1:?usage: scripts/soak.sh SECONDS [QOS_HOST]}
[[ $seconds =~ ^[0-9]+$ && $seconds -ge 6 ]] || { echo "soak: '$seconds' is no number of seconds from 6" >&2; exit 2; }
qos_host=$(realpath "${2:-build/release/bin/qos-host}")
bound=1024 # KiB
warm_up=$((seconds / 3 < 60 ? seconds / 3 : 60))

work=$(mktemp -d)
names=()
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; wait; rm -rf "$work"' EXIT
cd "$work"

start() { # NAME ARGUMENTS...
  names+=("$1")
  "$qos_host" "${@:2}" >"$1.out" 2>"$1.err" &
  pids+=($!)
}
sampler() { # NAME PATH ARGUMENTS...
  start "$1" sample "$2" --db soak.db --output none "${@:3}"
}

"$qos_host" feed sim --db soak.db --count 1
start feed feed sim --db soak.db --every 50ms --speed 5
number=0
for path in $("$qos_host" paths --json | sed -n 's/.*"alias":"\([^"]*\)".*/\1/p'); do
  encoding=gpb
  [ $((number++ % 2)) -eq 0 ] || encoding=json
  sampler "$path $encoding" "$path" --encoding "$encoding" --every 10ms
done
[ "$number" -gt 0 ] || { echo "soak: there is no path" >&2; exit 1; }
sampler "queue-statistics gpb captured" queue-statistics --every 100ms --capture gpb.cap
sampler "interface-monitoring-result json captured" interface-monitoring-result --encoding json --every 100ms \
  --capture json.cap
sampler "queue-statistics gpb unchanged ones left out" queue-statistics --every 20ms --suppress-redundant 2
sampler "port-buffer-usage json once a second" port-buffer-usage-statistics --encoding json --every 20ms --period 1

memory() { # PID FIELD
  sed -n "s/^$2:[[:space:]]*\([0-9]*\) kB/\1/p" "/proc/$1/status"
}
failed=0
complain() { echo "soak: $*" >&2; failed=1; }

sleep "$warm_up"
for i in "${!pids[@]}"; do
  warm[i]=$(memory "${pids[i]}" VmRSS) || true
  most[i]=${warm[i]}
done
while [ "$SECONDS" -lt "$seconds" ]; do
  sleep 1
  for i in "${!pids[@]}"; do
    now=$(memory "${pids[i]}" VmRSS 2>/dev/null) || true
    [ "${now:-0}" -le "${most[i]:-0}" ] || most[i]=$now
  done
done
for i in "${!pids[@]}"; do
  peak[i]=$(memory "${pids[i]}" VmHWM 2>/dev/null) || true
done

for i in "${!pids[@]}"; do
  kill -TERM "${pids[i]}" 2>/dev/null || complain "${names[i]} has ended by itself"
done
for i in "${!pids[@]}"; do
  code=0
  wait "${pids[i]}" || code=$?
  [ "$code" -eq 0 ] || complain "${names[i]} ends with $code"
  # That rounds are late is the machine's fault.
  said=$(grep -v 'is late\|on time again\|rounds missed\|s old: feed sim' "${names[i]}.err" | head -n 3) || true
  [ -z "$said" ] || complain "${names[i]} says: $said"
done
pids=()

printf '%-46s %8s %12s %12s %8s %8s\n' "after $warm_up s, for $((SECONDS - warm_up)) s; KiB" passes resident most growth peak
for i in "${!names[@]}"; do
  passes=$(grep -c '^pass ' "${names[i]}.out" || true)
  growth=$((${most[i]:-0} - ${warm[i]:-0}))
  printf '%-46s %8s %12s %12s %8s %8s\n' "${names[i]}" "$passes" "${warm[i]:-?}" "${most[i]:-?}" "$growth" "${peak[i]:-?}"
  [ -n "${warm[i]:-}" ] && [ "$growth" -le "$bound" ] || complain "${names[i]} grew by $growth KiB, bound $bound KiB"
  [ "${names[i]}" = feed ] || [ "$passes" -gt 10 ] || complain "${names[i]} made $passes passes"
done
for encoding in gpb json; do
  sent=$(sed -n 's/^pass .* batches \([0-9]*\),.*/\1/p' ./*"$encoding captured.out" | awk '{ sum += $1 } END { print sum }')
  kept=$("$qos_host" decode $encoding.cap --output none | grep -c '^batch ') || complain "$encoding.cap does not read back"
  [ "$kept" -gt 10 ] && [ "$kept" -eq "$sent" ] || complain "$encoding.cap has $kept batches, $sent were sent"
done
[ "$failed" -eq 0 ] && echo "soak: ${#names[@]} processes, none grew by more than $bound KiB"
exit "$failed"
