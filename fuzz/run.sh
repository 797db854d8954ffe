#!/usr/bin/env bash
# Runs the built fuzz targets one after the other, each for a while, and ends with a line for each:
#
#   fuzz/run.sh SECONDS [NAME...]     all of them when none is named
#
# The first finding ends the run. Below build/fuzz: inputs/NAME keeps what a target found worth keeping from run to run,
# findings/NAME the inputs that broke something, logs/NAME.log what the target said. Exit status: 0 without a finding, 1
# with one, 2 when there is nothing to run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly build=build/fuzz
duration=${1:-}
if [[ ! $duration =~ ^[1-9][0-9]*$ ]]; then
  sed -n 's/^#   \(fuzz.*\)/usage: \1/p' "$0" >&2
  exit 2
fi
shift

# Frames of ended calls are kept, in little room: every exception looks through all of it. Freed memory is kept for many
# inputs, which run within milliseconds.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=1:max_uar_stack_size_log=16:strict_string_checks=1:\
quarantine_size_mb=16:malloc_context_size=6}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

names=()
declare -A program_of=()
while IFS=$'\t' read -r name program; do
  names+=("$name")
  program_of[$name]=$program
done <"$build/fuzzers.txt"
for name in "$@"; do
  if [[ -z ${program_of[$name]:-} ]]; then
    echo "fuzz: no such target: $name (${names[*]})" >&2
    exit 2
  fi
done
if (($#)); then names=("$@"); fi

# Both from lines such as "#123 NEW cov: 456 ft: ...", the last of which counts; a finding leaves no statistics.
coverage_of() { # LOG
  local coverage
  coverage=$(sed -n 's/^#[0-9]*\t.* cov: \([0-9]*\) .*/\1/p' "$1" | tail -n 1)
  echo "${coverage:-no}"
}
runs_of() { # LOG
  local runs
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$1" | tail -n 1)
  echo "${runs:-$(sed -n 's/^#\([0-9]*\)\t.*/\1/p' "$1" | tail -n 1)}"
}

run_target() { # NAME: its exit status
  local name=$1 log=$build/logs/$1.log status=0
  # Inputs that take long are tried less often.
  local options=(-max_total_time="$duration" -entropic_scale_per_exec_time=1 -print_final_stats=1
    -artifact_prefix="$build/findings/$name/")
  if [[ -f fuzz/dictionaries/$name ]]; then options+=(-dict="fuzz/dictionaries/$name"); fi
  mkdir -p "$build/logs" "$build/inputs/$name" "$build/findings/$name"
  echo "== $name: $duration s"
  "${program_of[$name]}" "${options[@]}" "$build/inputs/$name" "fuzz/corpus/$name" >"$log" 2>&1 </dev/null || status=$?
  return "$status"
}

show_finding() { # NAME
  local log=$build/logs/$1.log file
  grep -A 25 -m 1 -e '^does not hold:' -e 'ERROR: ' -e 'runtime error:' -e 'what():' "$log" || tail -n 40 "$log"
  file=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  echo
  echo "$1: a finding, in ${file:-$log}"
}

summary=()
found=
for name in "${names[@]}"; do
  result=
  run_target "$name" || result="  FINDING"
  summary+=("$(printf '%-18s %10s runs %7s points covered%s' "$name" "$(runs_of "$build/logs/$name.log")" \
    "$(coverage_of "$build/logs/$name.log")" "$result")")
  if [[ $result ]]; then
    found=$name
    break
  fi
done

if [[ $found ]]; then show_finding "$found"; fi
echo
printf '%s\n' "${summary[@]}"
[[ -z $found ]]
