#!/usr/bin/env bash
# Makes the packages twice, from two copies of the sources at two times in two time zones, and compares the bytes: reproducible.sh SCRATCH.
set -euo pipefail

scratch=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
rm -rf "$scratch"
for copy in one another-folder; do
  mkdir -p "$scratch/$copy"
  (cd "$root" && git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents --target-directory="$scratch/$copy")
  (cd "$scratch/$copy" && SETUP=: SOURCE_DATE_EPOCH= TZ=$([[ $copy == one ]] && echo UTC || echo Asia/Tokyo) tools/package.sh >package.log 2>&1) ||
    { tail -n 40 "$scratch/$copy/package.log" && exit 1; }
  rm -rf "$scratch/$copy/build/release" "$scratch/$copy/build/release-windows"
done
cd "$scratch/one/build/package"
(($(ls | wc -l) >= 5)) || { ls && exit 1; }
status=0
for package in *; do
  cmp "$package" "$scratch/another-folder/build/package/$package" || status=1
done
((status)) || ls -l
exit "$status"
