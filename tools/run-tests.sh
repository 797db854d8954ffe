#!/usr/bin/env bash
# Builds and runs the tests: natively with sanitizers, natively and optimised, natively with ThreadSanitizer, and for
# Windows under Wine:
#
#   tools/run-tests.sh [--thorough] [--room NAME] [sanitize] [native] [threads] [windows]
#
# One process and one line per room; the last line is "N passed, N failed" (", N skipped" when tests were skipped). A
# room that crashes, hangs, ends badly after its tests or runs none is a failure, and so is a build that fails or runs
# no test. Exit status: 0 when nothing failed.
#
# Each build lists its rooms in tests.txt, fields parted by tabs: name, kind, seconds allowed, command. A room of kind
# "gtest" is a GoogleTest binary; "sweep" is one that makes many thousand runs, "long-sweep" one that makes many more;
# "run" is one test that passes when its command exits with 0, and is skipped when that is 77; "release" is such a test of
# an optimised build, "thorough" one for --thorough alone. What a room counts besides its tests it writes as
# "[    TOTAL ] ...", shown beside its result.
#
# The optimised build runs "release" and the sweeps only, these whole, but of a long one one run in VARNEL_LONG_SAMPLE (5);
# the one with ThreadSanitizer builds and runs threads_test only. The others run all but "release", and of every sweep one
# run in VARNEL_SAMPLE (50). Which runs VARNEL_SAMPLE_SEED decides (another one each time, which is told). --thorough runs
# the sweeps whole everywhere, with VARNEL_HOSTS (20,000) random hosts.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly summary=build/test-summary.txt
readonly jobs=$(nproc)
# ThreadSanitizer does not run where the kernel spreads addresses wider than it knows of.
fixed_addresses=()
if setarch --addr-no-randomize true 2>/dev/null; then fixed_addresses=(setarch --addr-no-randomize); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=1:strict_string_checks=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:exitcode=66}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

only_room=
thorough=
builds=()
while (($#)); do
  case $1 in
    --thorough) thorough=yes ;;
    --room)
      only_room=${2:?--room needs a name}
      shift
      ;;
    sanitize | native | threads | windows) builds+=("$1") ;;
    *)
      sed -n 's/^#   \(tools.*\)/usage: \1/p' "$0" >&2
      exit 2
      ;;
  esac
  shift
done
((${#builds[@]})) || builds=(sanitize native threads windows)
if [[ $thorough ]]; then export VARNEL_HOSTS=${VARNEL_HOSTS:-20000} VARNEL_SAMPLE=1 VARNEL_LONG_SAMPLE=1; fi
export VARNEL_SAMPLE=${VARNEL_SAMPLE:-50} VARNEL_SAMPLE_SEED=${VARNEL_SAMPLE_SEED:-$RANDOM}
readonly long_sample=${VARNEL_LONG_SAMPLE:-5}

# Documents captured from real servers are no part of the checkout; tests that read them skip where they are absent.
find_captures() {
  if [[ -d ${VARNEL_CAPTURES:-} ]]; then
    VARNEL_CAPTURES=$(cd "$VARNEL_CAPTURES" && pwd)
    export VARNEL_CAPTURES
  fi
}

# The rooms that the build runs.
rooms_of() { # BUILD
  awk -F '\t' -v build="$1" -v room="$only_room" -v thorough="$thorough" '
    room != "" && $1 != room { next }
    $2 == "thorough" { if (build == "native" && (thorough || room != "")) print; next }
    build == "native" ? $2 ~ /sweep/ || $2 == "release" : build == "threads" ? $1 == "threads_test" : $2 != "release"
  ' "build/$1/tests.txt"
}

build() { # BUILD
  local targets=(all)
  if [[ $1 == native ]]; then targets=(release_rooms); fi
  if [[ $1 == threads ]]; then targets=(threads_test); fi
  rm -f "build/$1/tests.txt"
  cmake --log-level=WARNING --preset "$1" >"build/$1-configure.log" || { cat "build/$1-configure.log" && return 1; }
  if [[ $only_room ]]; then
    [[ $(rooms_of "$1") ]] || return 0
    targets=("$only_room")
  fi
  echo "== $1: building"
  cmake --build --preset "$1" --target "${targets[@]}"
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

judge_run() { # STATUS SECONDS LOG
  if (($1 == 0)); then
    passed=1
  elif (($1 == 77)); then
    skipped=1
    note=$(tail -n 1 "$3")
  else
    failed=1
    note="exit status $1"
    if (($1 == 124 || $1 == 137)); then note="TIMED OUT after $2 s"; fi
  fi
}

run_room() { # BUILD ROOM KIND SECONDS COMMAND...
  local build=$1 room=$2 kind=$3 seconds=$4
  shift 4
  local -a command=("$@")
  local results=build/$build/test-results judge=judge_run
  local log=$results/$room.log report=$results/$room.json status=0
  local passed=0 failed=0 skipped=0 note= running=
  trap '[[ -z $running ]] || kill "$running"; exit 143' TERM
  if [[ $kind == gtest || $kind == *sweep ]]; then
    judge=judge_gtest
    command+=("--gtest_output=json:$report" --gtest_color=no)
    if [[ $build == windows ]]; then command=(tools/wine.sh "${command[@]}"); fi
    if [[ $build == threads ]]; then command=("${fixed_addresses[@]}" "${command[@]}"); fi
  fi
  if [[ $build == native ]]; then VARNEL_SAMPLE=$([[ $kind == long-sweep ]] && echo "$long_sample" || echo 1); fi

  local begin=${EPOCHREALTIME//[^0-9]/}
  timeout --kill-after=10 "$seconds" "${command[@]}" >"$log" 2>&1 </dev/null &
  running=$!
  wait "$running" 2>/dev/null || status=$? # the shell itself would report signals
  running=
  local milliseconds=$(((${EPOCHREALTIME//[^0-9]/} - begin) / 1000))

  local total
  total=$(tr -d '\r' <"$log" | sed -n 's/^\[    TOTAL \] //p')
  "$judge" "$status" "$seconds" "$log" "$report"
  printf '%s\t%d\t%d\t%d\n' "$room" "$passed" "$failed" "$skipped" >>"$results/rooms.tsv"
  printf '%-8s %-28s %5d passed %4d failed %4d skipped %6d.%02d s  %s\n' "$build" "$room" "$passed" "$failed" \
    "$skipped" $((milliseconds / 1000)) $((milliseconds % 1000 / 10)) "${note:-$total}"
}

# Every room of every build that is ready, the longest first, on all cores.
run_rooms() {
  local fields started=0 queue
  queue=$(for build in "${ready[@]}"; do rooms_of "$build" | sed "s/^/$build\t/"; done | sort --stable -t $'\t' -k 4,4rn)
  while IFS=$'\t' read -r -a fields; do
    if ((started >= jobs)); then wait -n || true; fi
    started=$((started + 1))
    run_room "${fields[@]}" &
  done <<<"$queue"
  wait
}

# The output of the failed tests alone; of a room that did not end as it should, its last lines as well.
show_failures() { # BUILD
  local results=build/$1/test-results room passed failed skipped
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

# What needs no build: format, structure, and whether their checks work.
check_sources() {
  local problems=()
  git ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h' |
    xargs -0 --max-procs="$jobs" --max-args=20 clang-format --dry-run -Werror || problems+=("format: make format")
  tools/check-structure.py || problems+=("structure: see above")
  tools/check-structure.py --self-test || problems+=("structure: its check does not work")
  if [[ ${VARNEL_GATES:-} != report ]]; then troubles+=("${problems[@]}"); fi
}

wine_started=
clean_up() {
  jobs -p | xargs --no-run-if-empty kill 2>/dev/null || true
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

add_up() { # BUILD
  local rooms=build/$1/test-results/rooms.tsv sums=(0 0 0)
  if [[ -s $rooms ]]; then
    read -r -a sums < <(awk -F '\t' '{ p += $2; f += $3; s += $4 } END { print p, f, s }' "$rooms")
  fi
  total_passed=$((total_passed + sums[0]))
  total_failed=$((total_failed + sums[1]))
  total_skipped=$((total_skipped + sums[2]))
  if [[ $(rooms_of "$1" | wc -l) != $(wc -l <"$rooms") ]]; then troubles+=("$1: a run broke off"); fi
  if ((sums[0] + sums[1] == 0)); then troubles+=("$1: ran no test"); fi
}

mkdir -p build
rm -f "$summary"
find_captures

if [[ -z $only_room ]]; then
  echo "== format and structure"
  check_sources
fi

ready=()
for build in "${builds[@]}"; do
  rm -rf "build/$build/test-results"
  if ! build "$build"; then
    troubles+=("$build: could not be built")
  elif [[ -z $(rooms_of "$build") ]]; then
    [[ $only_room ]] || troubles+=("$build: lists no test")
  elif [[ $build == windows ]] && ! start_wine; then
    troubles+=("$build: Wine does not start, see build/windows/wine-start.log")
  else
    mkdir -p "build/$build/test-results"
    ready+=("$build")
  fi
done

if ((${#ready[@]})); then
  echo "== tests (VARNEL_SAMPLE=$VARNEL_SAMPLE VARNEL_LONG_SAMPLE=$long_sample VARNEL_SAMPLE_SEED=$VARNEL_SAMPLE_SEED)"
  run_rooms
else
  troubles+=("no test was run")
fi

for build in "${ready[@]}"; do
  show_failures "$build"
  add_up "$build"
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
