#!/usr/bin/env bash
# Installs the Debian packages that this project needs and prints their names; quick when none is missing.
#
#   tools/install-deps.sh run      to build and run the program here
#   tools/install-deps.sh check    also for the Windows build, all tests and the linters (default)
set -euo pipefail

run_packages=(
  g++ cmake ninja-build pkg-config ccache
  libssl-dev libtinyxml2-dev libexpat1-dev rapidjson-dev libsmbclient-dev
)
check_packages=(
  "${run_packages[@]}"
  googletest libbenchmark-dev binutils
  # the Windows build, and Wine to run it
  g++-mingw-w64-x86-64-posix wine wine64 dpkg-dev make perl xz-utils
  # linters and fuzzers
  clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev
  # independent tools to compare results with, and tools that make fixtures
  openssl osslsigncode msitools wixl gcab python3 python3-pefile python3-ecdsa python3-asn1crypto
  # real hosts: a Java virtual machine and an SMB server, in a network of its own
  openjdk-17-jdk-headless samba smbclient iproute2
  # tools that make, read and check packages, and GNU parallel for brantle-parallel
  fakeroot file lintian mandoc bsdextrautils parallel
  # to check outputs against their schemas, to parse the script of the page, and a real browser for the page
  libxml2-utils python3-jsonschema nodejs chromium chromium-driver python3-selenium
)
case ${1:-check} in
  run) packages=("${run_packages[@]}") ;;
  check) packages=("${check_packages[@]}") ;;
  *) echo "usage: install-deps.sh [run|check]" >&2; exit 2 ;;
esac

missing() {
  local installed
  installed=$(dpkg-query -W -f '${binary:Package} ${db:Status-Status}\n' 2>/dev/null |
    awk '$2 == "installed" { sub(/:.*/, "", $1); print $1 }')
  printf '%s\n' "${packages[@]}" | grep -vxF -f <(printf '%s\n' "$installed") || true
}
mapfile -t needed < <(missing)
if [ ${#needed[@]} -eq 0 ]; then
  exit 0
fi

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: run as root, or install: ${needed[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=120 "$@" </dev/null >"$log" 2>&1
}
echo "install-deps: installing ${needed[*]}"
# Ignore a failed update: if only one of several sources failed, the installation may still work.
apt update || true
apt install -y --no-install-recommends "${needed[@]}" || { cat "$log" >&2; exit 1; }
