#!/usr/bin/env bash
# Makes the Debian packages and looks at what is in them: debian.sh BUILD VERSION SCRATCH.
set -euo pipefail

build=$1 version=$2 scratch=$3
export SOURCE_DATE_EPOCH=1700000000

fail() {
  printf '%s\n' "$*"
  exit 1
}
field() { dpkg-deb --field "$1" "$2"; }

rm -rf "$scratch"
mkdir -p "$scratch/root"
for time in first second; do
  cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/$time" >"$scratch/$time.log" 2>&1 || fail "$(cat "$scratch/$time.log")"
done
for package in varnelctl libvarnel-dev; do
  file=$scratch/first/${package}_${version}_amd64.deb
  [[ -f $file ]] || fail "no $file: $(ls "$scratch/first")"
  cmp "$file" "$scratch/second/${file##*/}" || fail "$package differs when it is packed again"
  [[ $(field "$file" Version) == "$version" && $(field "$file" Maintainer) ]] || fail "the fields of $package"
  dpkg-deb --extract "$file" "$scratch/root"
  dpkg-deb --contents "$file" | grep -v '^[-d]rw[-x]r-[-x]r-[-x] root/root ' | grep -v '^\(-rwxr-xr-x\|lrwxrwxrwx\) root/root ' &&
    fail "$package has files of other owners or rights" || true
done
[[ $(field "$scratch/first/varnelctl_${version}_amd64.deb" Depends) == *libc6*libstdc++6* ]] || fail "varnelctl depends on too little"

usr=$scratch/root/usr
for path in bin/varnelctl share/man/man1/varnelctl.1 share/bash-completion/completions/varnelctl \
  share/doc/varnelctl/copyright share/doc/libvarnel-dev/copyright share/doc/libvarnel-dev/varnel.spdx.json share/varnel/varnel.spdx.json share/varnel/README.md \
  share/varnel/hosts/sql-server.json share/varnel/powershell/varnel/varnel.psd1 lib/libvarnel.a \
  lib/cmake/varnel/varnelConfig.cmake lib/pkgconfig/varnel.pc include/varnel/core/varnel.h; do
  [[ -f $usr/$path ]] || fail "the packages lack /usr/$path"
done
[[ $("$usr/bin/varnelctl" --version) == "varnelctl $version" ]] || fail "varnelctl does not run"
"$usr/bin/varnelctl" --host "$usr/share/varnel/hosts/sql-server.json" --no-journal snapshot --app sql \
  --disk TSL0001 TSL0002 TSL0003 >"$scratch/run.log" || fail "no snapshot: $(cat "$scratch/run.log")"
${CXX:-g++} -o "$scratch/consumer" "$(dirname "${BASH_SOURCE[0]}")/../consumer/project/main.cpp" \
  $(PKG_CONFIG_PATH=$usr/lib/pkgconfig pkg-config --cflags --libs varnel) || fail "what pkg-config tells does not link"
"$scratch/consumer" || fail "what is linked by pkg-config ends with $?"
cmp <("$usr/bin/varnelctl" completion bash) "$usr/share/bash-completion/completions/varnelctl"
cmp <("$usr/bin/varnelctl" completion man) "$usr/share/man/man1/varnelctl.1"
grep -q "ModuleVersion = '$version'" "$usr/share/varnel/powershell/varnel/varnel.psd1" || fail "the module's version"
