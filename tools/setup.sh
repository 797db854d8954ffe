#!/usr/bin/env bash
# Installs what the project needs on Debian 12 and does nothing when everything is there.
#
#   tools/setup.sh [GROUP...]
#
# Groups: build (the default: build and test on both platforms), format (clang-format and clang-tidy), fuzz (clang with
# libFuzzer), instructions (valgrind), coverage (gcovr), browser (what the tests of report pages need), docs (doxygen and
# what checks the manual page), package (installer and Debian packages), fleet (Ansible and its checker). Installs as
# root or with a password-less sudo; otherwise, and on any other system, prints what is missing and exits with 1.
set -euo pipefail

packages_of() {
  case $1 in
    build)
      echo cmake ninja-build g++ clang lld libclang-rt-dev llvm make git g++-mingw-w64-x86-64-posix wine wine64 \
        nlohmann-json3-dev libvalijson-dev libcli11-dev libboost-dev googletest libgtest-dev libgmock-dev \
        libbenchmark-dev valgrind clang-format python3
      ;;
    format) echo clang clang-format clang-tidy python3 ;;
    fuzz) echo clang ;;
    instructions) echo valgrind ;;
    coverage) echo gcovr ;;
    docs) echo doxygen mandoc ;;
    package) echo nsis dpkg-dev pkg-config ;;
    # ansible brings the collection for Windows hosts, which a control node needs as well.
    fleet) echo ansible-core ansible ansible-lint ;;
    browser)
      # Node.js may have come from elsewhere, and then brings npm itself.
      echo chromium
      command -v node >/dev/null || echo nodejs
      command -v npm >/dev/null || echo npm
      ;;
    *)
      echo "setup: no such group: $1 (build, format, fuzz, instructions, coverage, browser, docs, package, fleet)" >&2
      return 2
      ;;
  esac
}

is_installed() {
  [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

is_debian() {
  [[ -r /etc/os-release ]] && (. /etc/os-release && [[ ${ID:-} == debian ]])
}

wanted=()
for group in "${@:-build}"; do
  packages=$(packages_of "$group")
  read -r -d '' -a packages <<<"$packages" || true
  wanted+=("${packages[@]}")
done

if ! is_debian; then
  echo "setup: this system is not Debian; install the equivalents of these Debian 12 packages:" >&2
  echo "  ${wanted[*]}" >&2
  echo "and skip this step from then on: make SETUP=: TARGET" >&2
  exit 1
fi

missing=()
for package in "${wanted[@]}"; do
  is_installed "$package" || missing+=("$package")
done
((${#missing[@]})) || exit 0

as_root=()
if ((EUID != 0)); then
  if ! sudo -n true 2>/dev/null; then
    echo "setup: missing packages: ${missing[*]}" >&2
    echo "Install them with:" >&2
    echo "  sudo apt-get update && sudo apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo -n)
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install --yes --no-install-recommends "${missing[@]}"
