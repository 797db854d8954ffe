#!/usr/bin/env bash
# A new user's machine: a fresh Debian root into which the packages are installed, where an agent is then built and run:
# clean_root.sh SCRATCH. Ends with 77 where no such root can be made: that takes root, mmdebstrap and a mirror.
set -euo pipefail

scratch=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
skip() {
  echo "$1"
  exit 77
}
((EUID == 0)) || skip "a clean root takes root"
command -v mmdebstrap >/dev/null || skip "mmdebstrap is missing"
unshare --mount --pid --fork true 2>/dev/null || skip "no namespaces of one's own here"

rm -rf "$scratch"
mkdir -p "$scratch/root"
# Made once; it is none of the sources'.
base=$root/build/clean-root.tar
if [[ ! -s $base ]]; then
  mmdebstrap --variant=apt --include=cmake,make,g++,pkg-config bookworm "$base.new.tar" >"$scratch/mmdebstrap.log" 2>&1 ||
    skip "no mirror: $(tail -n 1 "$scratch/mmdebstrap.log")"
  mv "$base.new.tar" "$base"
fi
tar --extract --file="$base" --directory="$scratch/root" --exclude=./dev/*

cmake --log-level=WARNING --preset release -S "$root"
cmake --build "$root/build/release" --target varnel_product
mkdir "$scratch/root/packages"
cpack -G DEB --config "$root/build/release/CPackConfig.cmake" -B "$scratch/root/packages" >"$scratch/cpack.log"

# shellcheck disable=SC2016
unshare --mount --pid --fork --mount-proc="$scratch/root/proc" chroot "$scratch/root" /bin/bash -euc '
  export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8
  mknod -m 666 /dev/null c 1 3 2>/dev/null || true
  cd /root
  apt install --yes /packages/varnelctl_*.deb /packages/libvarnel-dev_*.deb cmake g++
  cmake -S /usr/share/varnel/examples/agent -B agent && cmake --build agent
  ctest --test-dir agent --output-on-failure --no-tests=error
  varnelctl --no-journal snapshot --app sql --disk TSL0001 TSL0002 TSL0003
  pkg-config --exists varnel
  apt-get remove --yes varnelctl libvarnel-dev
  left=$(ls -d /usr/bin/varnelctl /usr/include/varnel /usr/share/varnel /usr/lib/cmake/varnel /usr/share/doc/libvarnel-dev 2>/dev/null || true)
  [[ -z $left ]] || { echo "left: $left" && exit 1; }
'
