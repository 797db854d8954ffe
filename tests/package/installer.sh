#!/usr/bin/env bash
# Installs, runs, upgrades and removes under Wine what the build makes: installer.sh BUILD VERSION SCRATCH. Ends with 77
# where makensis is missing.
set -euo pipefail
export COMPRESSOR=zlib

build=$1 version=$2 scratch=$3
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
if ! command -v makensis >/dev/null; then
  echo "makensis is missing (tools/setup.sh package)"
  exit 77
fi

readonly events='HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\varnel'
readonly uninstall='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\varnel'
readonly environment='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'

fail() {
  printf '%s\n' "$*"
  exit 1
}
windows() { "$root/tools/wine.sh" "$@" | tr -d '\r'; }
value() { # KEY NAME
  windows reg query "$1" /v "$2" 2>/dev/null | sed -n "s/^ *$2 *REG_[A-Z_]* *//p"
}
has_key() { windows reg query "$1" >/dev/null 2>&1; }
path() { value "$environment" PATH; } # as Wine spells it
# The same files, and nothing else but what the arguments name.
expect_files() { # FOLDER STAGE [FILE...]
  local folder=$1 stage=$2
  shift 2
  diff <(cd "$folder" && find . -type f | sort) <({ cd "$stage" && find . -type f && printf './%s\n' "$@"; } | sort) ||
    fail "$folder holds other files than were installed"
  (cd "$stage" && find . -type f -exec cmp {} "$folder/{}" \;) | grep . && fail "a file differs" || true
}
install() { # INSTALLER [ARGUMENT...]
  windows "$@" || fail "$* ended with $?"
}
remove() { # The uninstaller returns before it is done; Windows forgets the program last.
  windows "$installed/uninstall.exe" /S || fail "the removal ended with $?"
  for ((tries = 0; tries < 120; tries++)); do
    has_key "$uninstall" || return 0
    sleep 0.5
  done
  fail "the removal does not end"
}

rm -rf "$scratch"
mkdir -p "$scratch"
export VARNEL_WINEPREFIX=$scratch/prefix # nothing of another test in it, and nothing that one sees
cleanup() { "$root/tools/wine.sh" --stop >/dev/null 2>&1 || true; }
trap cleanup EXIT
"$root/tools/wine.sh" --start >/dev/null 2>&1

for component in $(sed -n 's/^set(CPACK_COMPONENTS_ALL "\(.*\)")$/\1/p' "$build/CPackConfig.cmake" | tr ';' ' '); do
  [[ $component == symbols ]] ||
    cmake --install "$build" --component "$component" --prefix "$scratch/stage" >>"$scratch/stage.log"
done
[[ -f $scratch/stage/bin/varnelctl.exe && -f $scratch/stage/bin/varnel.dll ]] || fail "nothing was installed"
"$root/tools/make-installer.sh" "$scratch/stage" "$version" "$scratch/varnel-this.exe"
mkdir -p "$scratch/newer-stage/share/varnel"
cp -r "$scratch/stage/bin" "$scratch/newer-stage"
echo new >"$scratch/newer-stage/share/varnel/new file.txt"
"$root/tools/make-installer.sh" "$scratch/newer-stage" 99.0.0 "$scratch/varnel-newer.exe"

path_before=$(path)
installed="$VARNEL_WINEPREFIX/drive_c/Program Files/varnel"
echo "== into the usual folder"
install "$scratch/varnel-this.exe" /S
expect_files "$installed" "$scratch/stage" uninstall.exe
[[ $(windows 'C:\Program Files\varnel\bin\varnelctl.exe' --version) == "varnelctl $version" ]] || fail "it does not run"
[[ $(value "$events" EventMessageFile) == 'C:\Program Files\varnel\bin\varnelctl.exe' ]] || fail "no event source"
[[ $(value "$events" TypesSupported) == 0x7 ]] || fail "the event source's types"
[[ $(value "$uninstall" DisplayVersion) == "$version" ]] || fail "Windows does not know of it"
[[ $(path) == "$path_before" ]] || fail "the PATH was changed unasked"

echo "== over itself, on the PATH"
install "$scratch/varnel-this.exe" /S /PATH=1
install "$scratch/varnel-this.exe" /S
[[ $(path) == "$path_before;C:\\Program Files\\varnel\\bin" ]] || fail "the PATH is $(path)"

echo "== a newer version"
echo mine >"$installed/mine.txt"
install "$scratch/varnel-newer.exe" /S
expect_files "$installed" "$scratch/newer-stage" uninstall.exe mine.txt
[[ $(value "$uninstall" DisplayVersion) == 99.0.0 ]] || fail "Windows does not know of the newer version"
[[ $(path) == "$path_before;C:\\Program Files\\varnel\\bin" ]] || fail "after the newer version the PATH is $(path)"

echo "== away"
remove
[[ $(find "$installed" | sort | tr '\n' ' ') == "$installed $installed/mine.txt " ]] || fail "left: $(find "$installed")"
has_key "$events" && fail "the event source is left"
[[ $(path) == "$path_before" ]] || fail "the PATH is $(path), and was $path_before"
rm -r "$installed"

echo "== into a folder of one's own"
installed=$VARNEL_WINEPREFIX/drive_c/agent
install "$scratch/varnel-this.exe" /S '/D=C:\agent'
expect_files "$installed" "$scratch/stage" uninstall.exe
mv "$installed/bin/varnelctl.exe" "$scratch/kept.exe"
mkdir "$installed/bin/varnelctl.exe" # which nobody deletes as a file, as one that runs
cp "$installed/uninstall.exe" "$scratch/uninstall.exe"
before=$(find "$installed" | sort)
status=0
windows "$scratch/uninstall.exe" /S '_?=C:\agent' || status=$?
[[ $(find "$installed" | sort) == "$before" ]] || fail "what is in use was taken apart"
((status == 4)) && has_key "$uninstall" && [[ -f $installed/uninstall.exe ]] || fail "what cannot be removed ends with $status"
rmdir "$installed/bin/varnelctl.exe"
remove
[[ ! -e $installed ]] || fail "left: $(find "$installed")"

echo "== into a folder of another program"
mkdir -p "$installed/bin"
echo theirs >"$installed/bin/libstdc++-6.dll"
status=0
windows "$scratch/varnel-this.exe" /S '/D=C:\agent' || status=$?
((status == 5)) && ! has_key "$uninstall" || fail "over another program it ends with $status"
[[ $(cat "$installed/bin/libstdc++-6.dll") == theirs ]] || fail "another program's file was overwritten"
echo "all as it was"
