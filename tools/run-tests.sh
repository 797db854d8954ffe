#!/usr/bin/env bash
# Builds and runs the tests of both platforms, natively with sanitizers and for Windows under Wine:
#
#   tools/run-tests.sh [--room NAME] [native] [windows]
#
# One process and one line per room; the last line is "N passed, N failed" (", N skipped" when tests were skipped). A
# room that crashes, hangs, ends badly after its tests or runs none is a failure, and so is a platform that cannot be
# built or runs no test. Exit status: 0 when nothing failed.
#
# Each build lists its rooms in tests.txt, fields parted by tabs: name, kind, seconds allowed, command. A room of kind
# "gtest" is a GoogleTest binary; one of kind "run" is one test that passes when its command exits with 0. What a room
# counts besides its tests it writes as "[    TOTAL ] ...", shown beside its result.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly summary=build/test-summary.txt
declare -A preset_of=([native]=sanitize [windows]=windows)

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

only_room=
platforms=()
while (($#)); do
  case $1 in
    --room)
      only_room=${2:?--room needs a name}
      shift
      ;;
    native | windows) platforms+=("$1") ;;
    *)
      sed -n 's/^#   \(tools.*\)/usage: \1/p' "$0" >&2
      exit 2
      ;;
  esac
  shift
done
((${#platforms[@]})) || platforms=(native windows)

# Documents captured from real servers are no part of the checkout; tests that read them skip where they are absent.
find_captures() {
  if [[ -d ${VARNEL_CAPTURES:-} ]]; then
    VARNEL_CAPTURES=$(cd "$VARNEL_CAPTURES" && pwd)
    export VARNEL_CAPTURES
  fi
}

build() { # PLATFORM
  local preset=${preset_of[$1]}
  local target=(--target "${only_room:-all}")
  echo "== $1: building (preset $preset)"
  rm -f "build/$preset/tests.txt"
  cmake --log-level=WARNING --preset "$preset" && cmake --build --preset "$preset" "${target[@]}"
}

count() { # PATTERN FILE
  grep --count -e "$1" "$2" || true
}

# Tells what the process left behind: sets passed, failed, skipped and note.
judge_gtest() { # STATUS SECONDS LOG REPORT
  local status=$1 seconds=$2 log=$3 report=$4
  if [[ -s $report ]]; then
    failed=$(count '^ *"failures": \[' "$report")
    passed=$(($(count '^ *"result": "COMPLETED"' "$report") - failed))
    skipped=$(($(count '^ *"result": "SKIPPED"' "$report") + $(count '^ *"result": "SUPPRESSED"' "$report")))
  else
    failed=$(count '^\[  FAILED  \] .* ms)' "$log")
    passed=$(count '\[       OK \] .* ms)' "$log")
    skipped=$(count '^\[  SKIPPED \] .* ms)' "$log")
  fi
  if ((status == 124 || status == 137)); then
    note="TIMED OUT after $seconds s"
  elif [[ ! -s $report ]]; then
    note="CRASHED in $(last_test "$log") (exit status $status)"
  elif ((status > 1 || status == 1 && failed == 0)); then
    note="ENDED BADLY after its tests (exit status $status)"
  elif ((passed + failed + skipped == 0)); then
    note="RAN NO TEST"
  fi
  if [[ $note ]]; then failed=$((failed + 1)); fi
}

last_test() { # LOG
  local name
  name=$(sed -n 's/^\[ RUN      \] \([^ \r]*\).*/\1/p' "$1" | tail -n 1)
  echo "${name:-its start}"
}

judge_run() { # STATUS SECONDS
  if (($1 == 0)); then
    passed=1
  else
    failed=1
    note="exit status $1"
    if (($1 == 124 || $1 == 137)); then note="TIMED OUT after $2 s"; fi
  fi
}

run_room() { # PLATFORM RESULTS ROOM KIND SECONDS COMMAND...
  local platform=$1 results=$2 room=$3 kind=$4 seconds=$5
  shift 5
  local -a command=("$@")
  local log=$results/$room.log report=$results/$room.json status=0
  local passed=0 failed=0 skipped=0 note=
  if [[ $kind == gtest ]]; then
    command+=("--gtest_output=json:$report" --gtest_color=no)
    if [[ $platform == windows ]]; then command=(tools/wine.sh "${command[@]}"); fi
  fi

  local begin=${EPOCHREALTIME//[^0-9]/}
  timeout --kill-after=10 "$seconds" "${command[@]}" >"$log" 2>&1 </dev/null &
  running=$!
  wait "$running" 2>/dev/null || status=$? # the shell itself would report signals
  running=
  local milliseconds=$(((${EPOCHREALTIME//[^0-9]/} - begin) / 1000))

  local total
  total=$(tr -d '\r' <"$log" | sed -n 's/^\[    TOTAL \] //p')
  "judge_$kind" "$status" "$seconds" "$log" "$report"
  printf '%s\t%d\t%d\t%d\n' "$room" "$passed" "$failed" "$skipped" >>"$results/rooms.tsv"
  printf '%-8s %-28s %5d passed %4d failed %4d skipped %6d.%02d s  %s\n' "$platform" "$room" "$passed" "$failed" \
    "$skipped" $((milliseconds / 1000)) $((milliseconds % 1000 / 10)) "${note:-$total}"
}

run_platform() { # PLATFORM
  local platform=$1 list=build/${preset_of[$1]}/tests.txt results=build/${preset_of[$1]}/test-results
  local running= fields
  trap '[[ -z $running ]] || kill "$running"; exit 143' TERM
  while IFS=$'\t' read -r -a fields; do
    if [[ -z $only_room || $only_room == "${fields[0]}" ]]; then run_room "$platform" "$results" "${fields[@]}"; fi
  done <"$list"
}

# The output of the failed tests alone; of a room that did not end as it should, its last lines as well.
show_failures() { # PLATFORM
  local results=build/${preset_of[$1]}/test-results room passed failed skipped
  [[ -f $results/rooms.tsv ]] || return 0
  while IFS=$'\t' read -r room passed failed skipped; do
    ((failed > 0)) || continue
    printf '\n== %s: %s\n' "$1" "$room"
    tr -d '\r' <"$results/$room.log" |
      awk '/^\[ RUN      \]/ { block = "" } { block = block $0 "\n" } /^\[  FAILED  \] .* ms\)$/ { printf "%s", block }'
    if [[ ! -s $results/$room.json ]] || ! grep -q '^ *"failures": \[' "$results/$room.json"; then
      echo "-- last lines of $results/$room.log:"
      tail -n 60 "$results/$room.log" | tr -d '\r'
    fi
  done <"$results/rooms.tsv"
}

wine_started=
workers=()
clean_up() {
  if ((${#workers[@]})); then kill "${workers[@]}" 2>/dev/null || true; fi
  if [[ $wine_started ]]; then tools/wine.sh --stop; fi
}
trap clean_up EXIT
trap 'exit 130' INT TERM

start_wine() {
  wine_started=yes
  timeout 180 tools/wine.sh --start >build/windows/wine-start.log 2>&1 </dev/null
}

total_passed=0 total_failed=0 total_skipped=0
troubles=()

add_up() { # PLATFORM
  local rooms=build/${preset_of[$1]}/test-results/rooms.tsv sums=(0 0 0)
  if [[ -s $rooms ]]; then
    read -r -a sums < <(awk -F '\t' '{ p += $2; f += $3; s += $4 } END { print p, f, s }' "$rooms")
  fi
  total_passed=$((total_passed + sums[0]))
  total_failed=$((total_failed + sums[1]))
  total_skipped=$((total_skipped + sums[2]))
  if ((sums[0] + sums[1] == 0)); then troubles+=("$1: ran no test"); fi
}

mkdir -p build
rm -f "$summary"
find_captures

ready=()
for platform in "${platforms[@]}"; do
  rm -rf "build/${preset_of[$platform]}/test-results"
  if ! build "$platform"; then
    troubles+=("$platform: could not be built")
  elif [[ ! -s build/${preset_of[$platform]}/tests.txt ]]; then
    troubles+=("$platform: lists no test")
  elif [[ $platform == windows ]] && ! start_wine; then
    troubles+=("$platform: Wine does not start, see build/windows/wine-start.log")
  else
    mkdir -p "build/${preset_of[$platform]}/test-results"
    ready+=("$platform")
  fi
done

echo "== tests"
for platform in "${ready[@]}"; do
  run_platform "$platform" &
  workers+=("$!")
done
for i in "${!workers[@]}"; do
  wait "${workers[i]}" || troubles+=("${ready[i]}: the run broke off")
done
workers=()

for platform in "${ready[@]}"; do
  show_failures "$platform"
  add_up "$platform"
done
echo
for trouble in "${troubles[@]}"; do
  echo "$trouble"
  total_failed=$((total_failed + 1))
done

line="$total_passed passed, $total_failed failed"
if ((total_skipped > 0)); then line+=", $total_skipped skipped"; fi
echo "$line" | tee "$summary"
((total_failed == 0))
