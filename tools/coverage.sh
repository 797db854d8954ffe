#!/usr/bin/env bash
# Tells which lines and branches of the library (core/ and requestors/) the native tests reach:
#
#   tools/coverage.sh
#
# Builds the tests with counters (preset coverage), runs the GoogleTest rooms and prints a line per file with the lines
# that none of them reached, the same for branches, and the share of both. Branches that only an exception takes do not
# count. docs/development.md gives the reasons for what stays unreached.
# Exit status: 0 when every room passed and enough lines were reached.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly build=build/coverage lowest_percentage=97
readonly results=$build/test-results

build() {
  rm -f "$build/tests.txt"
  cmake --log-level=WARNING --preset coverage
  cmake --build --preset coverage
}

# Counts add up over runs, and counts of an earlier build fit no longer.
forget_counts() {
  find "$build" -name '*.gcda' -delete
  rm -rf "$results"
  mkdir -p "$results"
}

# The other rooms look at the build and the package, not at the library.
run_rooms() {
  local failed=0 fields room
  while IFS=$'\t' read -r -a fields; do
    room=${fields[0]}
    [[ ${fields[1]} == gtest || ${fields[1]} == sweep ]] || continue
    echo "$room"
    # Without optimisation a room may take longer than it is given elsewhere.
    if ! timeout --kill-after=10 $((fields[2] * 3)) "${fields[@]:3}" --gtest_color=no >"$results/$room.log" 2>&1 \
      </dev/null; then
      echo "$room failed, see $results/$room.log" >&2
      failed=1
    fi
  done <"$build/tests.txt"
  return "$failed"
}

report() {
  local -a counts=(gcovr --root . --object-directory "$build" --filter core/ --filter requestors/
    --exclude-throw-branches --exclude-unreachable-branches)
  "${counts[@]}" --branches
  "${counts[@]}" --print-summary --fail-under-line "$lowest_percentage"
}

build
forget_counts
status=0
run_rooms || status=1
report || status=1
exit "$status"
