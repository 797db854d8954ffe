#!/usr/bin/env bash
# Makes the installer for Windows of a folder that holds what is to be installed:
#
#   tools/make-installer.sh FOLDER VERSION INSTALLER.exe
#
# With SOURCE_DATE_EPOCH in the environment the same contents make the same bytes. COMPRESSOR=zlib is quick, for tests.
set -euo pipefail
export TZ=UTC LC_ALL=C.UTF-8 # times of archives and the order of names are not the builder's

stage=$(cd "$1" && pwd)
version=$2
output=$(realpath "$3")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
removals=$(mktemp --suffix=.nsh)
trap 'rm -f "$removals"' EXIT

# The uninstaller knows each file by its name, so that nobody else's is lost.
cd "$stage"
{
  find . -type f \( -name '*.exe' -o -name '*.dll' \) -printf '!insertmacro RequireFree "%P"\n' | sort
  find . -type f -printf 'Delete "$INSTDIR\\%P"\n' | sort
  find . -mindepth 1 -type d -printf 'RMDir "$INSTDIR\\%P"\n' | sort --reverse
} | tr / '\\' >"$removals"
if [[ ${SOURCE_DATE_EPOCH:-} ]]; then find . -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +; fi
makensis -V2 -WX "-XSetCompressor ${COMPRESSOR:-/SOLID lzma}" "-DSTAGE=$stage" "-DVERSION=$version" "-DOUTPUT=$output" "-DREMOVALS=$removals" "$root/installer/varnel.nsi"
