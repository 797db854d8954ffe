#!/usr/bin/env bash
# Fails when a snapshot request needs more instructions than bench/budget.txt allows:
#
#   tools/check-budget.sh [--update] [BUILD]
#
# BUILD is the folder of a release build with benchmarks (build/native). More than 5 % above a count of the file is a
# failure. Counts depend on the compiler and the C library: where these are others than the file was counted with, nothing
# is checked and a line says so. --update counts anew and writes the file.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly budget=bench/budget.txt
readonly allowed_percent=5

action=check
if [[ ${1:-} == --update ]]; then
  action=update
  shift
fi
build=${1:-build/native}

if ! command -v valgrind >/dev/null; then
  echo "budget: NOT CHECKED: there is no valgrind"
  exit 0
fi

compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
built_with="$("$compiler" --version | head -n 1), $(getconf GNU_LIBC_VERSION)"
counted_with=$(sed -n 's/^# counted with: //p' "$budget")
if [[ $action == check && $counted_with != "$built_with" ]]; then
  echo "budget: NOT CHECKED: counted with $counted_with; this is $built_with"
  exit 0
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Workload, n, who and instructions of each line.
entries() { grep -v '^#' "$budget"; }

entries | cut -d ' ' -f 1-3 | xargs -P 2 -L 1 bash -c \
  'tools/count-request.sh "$0/bin/bench/request_cost" "$2" "$3" "$4" >"$1/$2-$3-$4"' "$build" "$scratch"

write_budget() {
  grep '^#' "$budget" | sed "s|^# counted with: .*|# counted with: $built_with|"
  local workload n who
  while read -r workload n who _; do
    echo "$workload $n $who $(cut -d ' ' -f 1 "$scratch/$workload-$n-$who")"
  done < <(entries)
}

if [[ $action == update ]]; then
  write_budget >"$scratch/budget"
  cp "$scratch/budget" "$budget"
  exit 0
fi

status=0
while read -r workload n who allowed; do
  counted=$(cut -d ' ' -f 1 "$scratch/$workload-$n-$who")
  growth=$(awk -v counted="$counted" -v allowed="$allowed" 'BEGIN { printf "%+.2f", (counted / allowed - 1) * 100 }')
  verdict=ok
  if ((counted * 100 > allowed * (100 + allowed_percent))); then
    verdict="OVER BUDGET, which allows $allowed and $allowed_percent %"
    status=1
  fi
  printf 'budget: %s n=%s %s: %d instructions, %s %%, %s\n' "$workload" "$n" "$who" "$counted" "$growth" "$verdict"
done < <(entries)

# The C interface costs next to nothing beside the classes, of which "quiet" is the same request.
while read -r workload n _; do
  added=$(awk -v c="$(cut -d ' ' -f 1 "$scratch/$workload-$n-c")" -v classes="$(cut -d ' ' -f 1 "$scratch/$workload-$n-quiet")" \
    'BEGIN { printf "%+.2f", (c / classes - 1) * 100 }')
  verdict=ok
  if awk -v added="$added" 'BEGIN { exit !(added >= 1) }'; then
    verdict="OVER BUDGET, which allows 1 %"
    status=1
  fi
  printf 'budget: %s n=%s: the C interface adds %s %%, %s\n' "$workload" "$n" "$added" "$verdict"
done < <(entries | awk '$3 == "c"')
exit "$status"
