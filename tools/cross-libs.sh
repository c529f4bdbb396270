#!/usr/bin/env bash
# Builds the static libraries that the Windows build needs, libcrypto, tinyxml2 and expat, for x86_64-w64-mingw32 from
# Debian's source packages, into DEST (default: build/cross). A library is kept if DEST has it in the Debian version
# that is installed here and with the same build options. So both platforms use the same releases.
#
#   tools/cross-libs.sh [DEST]
#
# The source packages are found through a private apt configuration that is derived from the system's own source
# entries. The system's configuration, package lists and cache are not changed, and no privileges are needed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dest=${1:-${TESSIVATOR_CROSS:-$root/build/cross}}
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)
host=x86_64-w64-mingw32
jobs=$(nproc)

# run LOG COMMAND...: quiet unless it fails.
run() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 60 "$log" >&2; exit 1; }
}
# How each library is built, in the folder of its source: headers into $dest/include, the archive into $dest/lib.
build_openssl() {
  # A library inside a host's process must not read a configuration file or load modules, least of all from a default
  # folder that any user of a Windows machine could create.
  run "$work/configure.log" ./Configure mingw64 --cross-compile-prefix="$host-" \
    --prefix="C:/Program Files/OpenSSL" \
    no-shared no-pinshared no-tests no-engine no-legacy no-module no-dso no-autoload-config -ffunction-sections -fdata-sections
  run "$work/openssl.log" make -j"$jobs" build_generated libcrypto.a
  rm -rf "$dest/include/openssl"
  cp -r include/openssl "$dest/include/"
  find "$dest/include/openssl" -name '*.in' -delete
  install -m 644 libcrypto.a "$dest/lib/"
}
build_tinyxml2() {
  run "$work/tinyxml2.log" "$host-g++-posix" -O2 -ffunction-sections -fdata-sections -c tinyxml2.cpp -o tinyxml2.o
  run "$work/tinyxml2.log" "$host-ar" rcs libtinyxml2.a tinyxml2.o
  install -m 644 tinyxml2.h "$dest/include/"
  install -m 644 libtinyxml2.a "$dest/lib/"
}
build_expat() {
  local source=.
  [ -f CMakeLists.txt ] || source=expat  # the project's repository keeps the library one folder down
  run "$work/expat.log" cmake -S "$source" -B cross -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER="$host-gcc-posix" \
    -DCMAKE_CXX_COMPILER="$host-g++-posix" -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS='-ffunction-sections -fdata-sections' \
    -DEXPAT_SHARED_LIBS=OFF -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF
  run "$work/expat.log" cmake --build cross -j "$jobs"
  install -m 644 "$source/lib/expat.h" "$source/lib/expat_external.h" "$dest/include/"
  install -m 644 cross/libexpat.a "$dest/lib/"
}

# source package, Debian package whose version counts, archive
libraries=("openssl libssl-dev libcrypto" "tinyxml2 libtinyxml2-dev libtinyxml2" "expat libexpat1-dev libexpat")
source_version() { dpkg-query -W -f '${source:Version}' "$1" 2>/dev/null || true; }
# Identifies the source and build options of a library: when they change, only that library is built again.
key_of() { echo "$1 $(source_version "$2"), $(declare -f "build_$1" | sha256sum | cut -c1-16)"; }

exec 9>"$dest/.lock"
flock 9
needed=()
for library in "${libraries[@]}"; do
  read -r name package archive <<<"$library"
  stamp=$dest/.stamp-$name
  [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$(key_of "$name" "$package")" ] && [ -f "$dest/lib/$archive.a" ] ||
    needed+=("$library")
done
if [ ${#needed[@]} -eq 0 ]; then
  exit 0
fi
work=$dest/work
rm -rf "$work"
mkdir -p "$work"/{apt/parts,apt/lists/partial,apt/cache/archives/partial,src} "$dest/include" "$dest/lib"

# The system's entries for this release, asked for sources instead of binaries. Entries of other vendors are
# skipped: they are not needed, and many have no sources.
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:?}")
one_line_entries() {
  local f
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -r "$f" ] || continue
    awk -v suite="$codename" '
      $1 == "deb" {
        i = 2
        if ($i ~ /^\[/) while (i < NF && $i !~ /\]$/) i++
        if ($2 ~ /^\[/) i++
        s = $(i + 1); sub(/\/updates$/, "", s)
        if (s == suite || index(s, suite "-") == 1) { $1 = "deb-src"; gsub(/arch=[^] ]*/, ""); gsub(/\[ *\]/, ""); print }
      }' "$f"
  done
}
deb822_entries() {
  local f
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -r "$f" ] || continue
    # A paragraph is kept when one of its suites belongs to this release; comments may be inside one.
    sed '/^#/d' "$f" | awk -v RS= -v suite="$codename" '
      {
        n = split($0, line, "\n"); types = 0; ours = 0; out = ""
        for (i = 1; i <= n; i++) {
          if (line[i] ~ /^[Tt]ypes:/) { types = line[i] ~ /(^|[: ])deb( |$)/; line[i] = "Types: deb-src" }
          if (line[i] ~ /^[Ee]nabled: *no/) types = 0
          if (line[i] ~ /^[Ss]uites:/) {
            k = split(line[i], s, /[: ]+/)
            for (j = 2; j <= k; j++) if (s[j] == suite || index(s[j], suite "-") == 1) ours = 1
          }
          if (line[i] !~ /^[Aa]rchitectures:/) out = out line[i] "\n"
        }
        if (types && ours) print out
      }'
  done
}
one_line_entries >"$work/apt/parts/own.list"
deb822_entries >"$work/apt/parts/own.sources"
if [ ! -s "$work/apt/parts/own.list" ] && [ ! -s "$work/apt/parts/own.sources" ]; then
  echo "cross-libs: no apt source entry for '$codename' was found" >&2
  exit 1
fi
private_apt() {
  # As root, apt would drop to a user that cannot write into the work folder.
  apt-get -q -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$work/apt/parts" \
    -o Dir::State::Lists="$work/apt/lists" -o Dir::Cache="$work/apt/cache" \
    -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none "$@"
}
# fetch_source NAME VERSION: the source in $work/src/NAME/tree, of the newest release when VERSION is gone. A mirror
# that does not serve Debian's own part still serves the original archive, which apt checks just as well.
fetch_source() {
  local name=$1 version=$2
  mkdir -p "$work/src/$name/tree"
  (
    cd "$work/src/$name"
    private_apt source --tar-only "$name${version:+=$version}" >fetch.log 2>&1 ||
      private_apt source --tar-only "$name" >>fetch.log 2>&1 || { cat fetch.log >&2; exit 1; }
    tar -xf "$(find . -maxdepth 1 -name '*.orig.tar.?z' -o -maxdepth 1 -name '*.orig.tar.bz2')" \
      -C tree --strip-components=1
  )
}

private_apt update >"$work/update.log" 2>&1 || { cat "$work/update.log" >&2; exit 1; }
for library in "${needed[@]}"; do
  read -r name package archive <<<"$library"
  echo "cross-libs: building $archive for $host into $dest (once)"
  rm -f "$dest/.stamp-$name"
  fetch_source "$name" "$(source_version "$package")"
  (cd "$work/src/$name/tree" && "build_$name")
  key_of "$name" "$package" >"$dest/.stamp-$name"
done
rm -rf "$work"
echo "cross-libs: done"
