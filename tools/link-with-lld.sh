#!/usr/bin/env bash
# Links a Windows program with lld in place of GNU ld, which takes five seconds for a test program's thousands of inline
# functions. Given to MinGW's gcc as its -wrapper: PROGRAM ARGUMENT..., where PROGRAM is gcc's own caller of the linker.
set -euo pipefail

shift
arguments=()
while (($#)); do
  case $1 in
    -plugin) shift ;; # of GNU ld
    -plugin-opt=*) ;;
    *) arguments+=("$1") ;;
  esac
  shift
done
exec ld.lld "${arguments[@]}"
