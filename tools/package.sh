#!/usr/bin/env bash
# Builds every package of this version into build/package: for Windows the archive, that of the debug information and the
# installer, for Debian those of varnelctl and of the library. The same sources make the same bytes: whatever has a time has
# that of the release, unless SOURCE_DATE_EPOCH names another.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export TZ=UTC LC_ALL=C.UTF-8 # times of archives and the order of names are not the builder's

release=$(sed -n 's/^## \([0-9.]*\) - \([0-9-]*\)$/\1 \2/p' CHANGELOG.md | head -n 1)
version=${release% *}
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(date --utc --date="${release#* }" +%s)}
# What a package has rights of is not the umask's to say.
umask 022

rm -rf build/package
mkdir -p build/package
for preset in release release-windows; do
  cmake --log-level=WARNING --preset "$preset"
  cmake --build --preset "$preset" --target varnel_product
  (cd "build/$preset" && rm -rf package && cpack)
  mv build/"$preset"/package/varnel*.zip build/"$preset"/package/*.deb build/package/ 2>/dev/null || true
done

# The installer brings what the archive does.
unpacked=build/package/unpacked
archive=varnel-$version-Windows-x64
mkdir "$unpacked"
(cd "$unpacked" && cmake -E tar xf "../$archive.zip")
tools/make-installer.sh "$unpacked/$archive" "$version" "build/package/$archive.exe"
rm -rf "$unpacked"
ls -l build/package
