#!/usr/bin/env bash
# Measures what whole snapshot requests cost on simulated hosts of growing size, beside a bare requestor that makes the
# same calls:
#
#   tools/measure-cost.sh PROGRAMS OUT [N...]
#
# PROGRAMS is the folder of the built request_cost and cost_report. Prints the table and leaves runs.jsonl, cost.json and
# cost.svg in the folder OUT. Time, allocations and memory are measured natively, one run at a time; instructions under
# callgrind, two runs at a time. N are the sizes, ascending; at the third from the end the log is measured as well.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly workloads=(sql hyperv hyperv-csv exchange system deep wide)
repetitions=3

programs=${1:?where are the programs?}
out=${2:?where to?}
shift 2
sizes=("$@")
(($#)) || sizes=(100 1250 2500 5000 10000)
logged_size=${sizes[${#sizes[@]} > 2 ? ${#sizes[@]} - 3 : 0]}

mkdir -p "$out"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

list_runs() {
  local workload n
  for workload in "${workloads[@]}"; do
    for n in "${sizes[@]}"; do
      printf '%s %s %s\n' "$workload" "$n" floor "$workload" "$n" quiet "$workload" "$n" memory
      if ((n == logged_size)); then echo "$workload $n logged"; fi
    done
  done
}

# Repetitions only differ in their time; the shortest counts. That of "memory" tells nothing.
measure_natively() { # WORKLOAD N WHO
  local i repetitions=$repetitions
  if [[ $3 == memory ]]; then repetitions=1; fi
  for ((i = 0; i < repetitions; ++i)); do "$programs/request_cost" "$@"; done |
    awk -F '"milliseconds":' 'NR == 1 || $2 + 0 < least { least = $2 + 0; line = $0 } END { print line }'
}

echo "cost: measuring time and memory" >&2
list_runs | while read -r workload n who; do
  measure_natively "$workload" "$n" "$who" >"$scratch/$workload-$n-$who.json"
done

# The largest first, so that both processors have work to the end.
echo "cost: counting instructions" >&2
list_runs | grep -v ' memory$' | sort -s -k2,2nr | xargs -P 2 -L 1 bash -c \
  'tools/count-request.sh "$0/request_cost" "$2" "$3" "$4" >"$1/$2-$3-$4.count"' "$programs" "$scratch"

list_runs | while read -r workload n who; do
  if [[ $who == memory ]]; then
    cat "$scratch/$workload-$n-$who.json"
    continue
  fi
  read -r instructions host <"$scratch/$workload-$n-$who.count"
  sed "s/}\$/,\"instructions\":$instructions,\"simulatorInstructions\":$host}/" "$scratch/$workload-$n-$who.json"
done >"$out/runs.jsonl"
"$programs/cost_report" "$out/runs.jsonl" "$out/cost.json" "$out/cost.svg"
