#!/usr/bin/env bash
# Runs a Windows program under Wine, in a prefix of this checkout's own and without a display:
#
#   tools/wine.sh PROGRAM.exe [ARGUMENT...]
#   tools/wine.sh --start    starts the prefix's server and keeps it: programs then start at once
#   tools/wine.sh --stop     ends it, and every program in the prefix
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${VARNEL_WINEPREFIX:-$root/build/windows/wineprefix}
export WINEARCH=win64
export WINEDEBUG=${WINEDEBUG:--all}
# No menu entries, no .NET, no HTML and no debugger: a program that crashes just ends. A vssapi.dll beside a program, or
# loaded by its path, comes before Wine's own.
export WINEDLLOVERRIDES='winemenubuilder.exe=d;mscoree=d;mshtml=d;winedbg.exe=d;vssapi,*vssapi=n,b'
unset DISPLAY WAYLAND_DISPLAY
# Drive Z: is the root of the file system.
if [[ ${VARNEL_CAPTURES:-} == /* ]]; then export VARNEL_CAPTURES="Z:$VARNEL_CAPTURES"; fi

mkdir -p "$WINEPREFIX"
case ${1:?which program?} in
  --start)
    # A server that an interrupted run left behind would refuse a second one.
    wineserver --kill 2>/dev/null || true
    wineserver --persistent
    wine wineboot --init
    ;;
  --stop) wineserver --kill || true ;;
  *) exec wine "$@" ;;
esac
