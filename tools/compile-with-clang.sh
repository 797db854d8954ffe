#!/usr/bin/env bash
# Compiles test code with clang in place of GCC, which takes three times as long and as one of which it comes to the
# linker. Given to CMake as compiler launcher: GCC ARGUMENT...
set -euo pipefail

gcc=$1
shift
target=$("$gcc" -dumpmachine)
arguments=(--target="$target" -Wno-unknown-warning-option)
# A cross compiler has its own headers and ways that its run-time library knows.
standard=$("$gcc" -print-file-name=include/c++)
if [[ -d $standard ]]; then
  arguments+=(-femulated-tls -D__GXX_MERGED_TYPEINFO_NAMES=0 -D__GXX_TYPEINFO_EQUALITY_INLINE=0 -nostdlibinc)
  for folder in "$standard"{,"/$target",/backward} "/usr/$target/include"; do arguments+=(-isystem "$folder"); done
fi
for argument in "$@"; do
  [[ $argument == -fno-keep-inline-dllexport ]] || arguments+=("$argument") # says what clang does anyway
done
exec clang++ "${arguments[@]}"
