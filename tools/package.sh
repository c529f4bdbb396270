#!/usr/bin/env bash
# Makes the release packages in DEST (default: build/package): Debian packages of the programs, the share program,
# the Java library and the C++ components, and an archive of everything for Windows.
#
#   tools/package.sh [DEST [CMAKE-OPTION...]]
#
# First run tools/install-deps.sh check and tools/cross-libs.sh.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
dest=${1:-$root/build/package}
options=("${@:2}")
# Let the compiler cache reuse objects of other build folders with the same options.
export CCACHE_NOHASHDIR=1
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)
rm -f "$dest"/*.deb "$dest"/*.zip

quiet() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 60 "$log" >&2; echo "package.sh: failed: $*" >&2; exit 1; }
}
# Separate build folders, because packages are installed into /usr.
pack() {
  local name=$1 preset=$2
  shift 2
  quiet "$dest/$name.log" cmake --preset "$preset" -B "$dest/$name" -DTESSIVATOR_TESTS=OFF "${options[@]}" "$@"
  quiet "$dest/$name.log" cmake --build "$dest/$name" -j "$(nproc)"
  quiet "$dest/$name.log" cpack --config "$dest/$name/CPackConfig.cmake" -B "$dest/$name.packages"
}
pack linux linux-release -DCMAKE_INSTALL_PREFIX=/usr
# windows_docs FOLDER: manuals as text, and the licences of the libraries linked in, copied from their source packages.
windows_docs() {
  local page library
  mkdir -p "$1/manuals" "$1/licences"
  for page in brantle.1 brantle-report.1 brantle-info.5 brantle-details.5; do
    mandoc -T utf8 "packaging/man/$page" | col -bx | sed 's/$/\r/' >"$1/manuals/${page%.*}.txt"
  done
  for library in libssl-dev:OpenSSL libtinyxml2-dev:tinyxml2 libexpat1-dev:Expat rapidjson-dev:RapidJSON \
    mingw-w64-common:MinGW-w64 libstdc++-12-dev:libstdc++; do
    install -m 644 "/usr/share/doc/${library%%:*}/copyright" "$1/licences/${library#*:}.txt"
  done
  install -m 644 /usr/share/common-licenses/{Apache-2.0,GPL-3} "$1/licences/"
}
rm -rf "$dest/windows/package-docs"
windows_docs "$dest/windows/package-docs"
pack windows windows-release
mv "$dest"/linux.packages/*.deb "$dest"/windows.packages/*.zip "$dest/"
ls "$dest"/*.deb "$dest"/*.zip
