#!/usr/bin/env bash
# Counts the instructions of each benchmark under valgrind, a number that does not depend on the machine's load:
#
#   tools/count-instructions.sh PROGRAM...
#
# Each benchmark runs for one iteration. What counts is its function from entry to exit, or, of a fixture's benchmark
# ("Fixture/Name"), the BenchmarkCase without SetUp and TearDown.
set -euo pipefail

export LD_BIND_NOW=1 # the dynamic linker's work is no benchmark's
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

counted_function() { # BENCHMARK
  local name=$1
  while [[ $name =~ ^(.*)/[^/]*[0-9:][^/]*$ ]]; do name=${BASH_REMATCH[1]}; done # arguments after the name
  if [[ $name == */* ]]; then echo "*${name//\//_}_Benchmark::BenchmarkCase(*"; else echo "*${name}(*"; fi
}

count() { # PROGRAM BENCHMARK
  if ! valgrind --tool=callgrind --callgrind-out-file="$scratch/profile" "--toggle-collect=$(counted_function "$2")" \
    "$1" "--benchmark_filter=^$2\$" --benchmark_min_time=0.000000001 >"$scratch/log" 2>&1; then
    cat "$scratch/log" >&2
    return 1
  fi
  sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$scratch/log"
}

for program in "$@"; do
  for benchmark in $("$program" --benchmark_list_tests); do
    instructions=$(count "$program" "$benchmark")
    if grep -q 'ERROR OCCURRED' "$scratch/log"; then # it says so itself where it has nothing to measure
      printf '%-50s %14s\n' "$benchmark" skipped
      continue
    fi
    if ((${instructions:-0} == 0)); then
      echo "$benchmark: nothing counted" >&2
      exit 1
    fi
    printf '%-50s %14d\n' "$benchmark" "$instructions"
  done
done
