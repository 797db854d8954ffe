#!/usr/bin/env bash
# Counts the instructions of one snapshot request under callgrind:
#
#   tools/count-request.sh PROGRAM WORKLOAD N floor|quiet|logged|c
#
# PROGRAM is the built request_cost. Prints two numbers: all instructions of the request, and those of them that the
# simulated host used. The numbers do not depend on the machine's load, but on the compiler and the C library.
set -euo pipefail

export LD_BIND_NOW=1 # the dynamic linker's work is no request's
export LC_ALL=C
# The C library's plain text functions, whatever the processor has.
export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-AVX,-ERMS
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

if ! nice valgrind --tool=callgrind --callgrind-out-file="$scratch/profile" --compress-strings=no --compress-pos=no \
  "--toggle-collect=*MeasuredRequest*" "$@" >"$scratch/log" 2>&1; then
  cat "$scratch/log" >&2
  exit 1
fi
instructions=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$scratch/log")
if ((${instructions:-0} == 0)); then
  echo "count-request: nothing counted" >&2
  exit 1
fi

# The profile has, for each function, its calls of others with what they cost altogether. The host's part is what the
# calls cost that enter it: from a function outside, but not from the standard library's, which the host itself calls.
awk -v all="$instructions" '
  /^fn=/ { outside = !/varnel::simulator::/ && !/^fn=(\(.*\) )?((void|bool) )?(std::|__gnu_cxx::|operator )/ }
  /^cfn=/ { enters = outside && /varnel::simulator::/ }
  /^calls=/ { if ((getline line) > 0 && enters) { split(line, fields, " "); host += fields[2] } }
  END { printf "%.0f %.0f\n", all, host }' "$scratch/profile"
