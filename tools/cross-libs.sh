#!/usr/bin/env bash
# Builds the static libraries that the Windows build needs, libcrypto and tinyxml2, for x86_64-w64-mingw32 from
# Debian's source packages, into DEST (default: build/cross). Does nothing when DEST already holds those of the
# Debian versions that are installed here, so that both platforms run the same releases.
#
#   tools/cross-libs.sh [DEST]
#
# The source packages are found through a private apt configuration that is derived from the system's own source
# entries; the system's configuration, package lists and cache are left as they are, and no rights are needed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dest=${1:-${TESSIVATOR_CROSS:-$root/build/cross}}
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)
host=x86_64-w64-mingw32
jobs=$(nproc)

source_version() { dpkg-query -W -f '${source:Version}' "$1" 2>/dev/null || true; }
openssl_version=$(source_version libssl-dev)
tinyxml2_version=$(source_version libtinyxml2-dev)
# The script's own digest is part of the key: other build options mean another build.
key="openssl $openssl_version, tinyxml2 $tinyxml2_version, $(sha256sum <"${BASH_SOURCE[0]}" | cut -c1-16)"
up_to_date() {
  [ -f "$dest/.stamp" ] && [ "$(cat "$dest/.stamp")" = "$key" ] &&
    [ -f "$dest/lib/libcrypto.a" ] && [ -f "$dest/lib/libtinyxml2.a" ]
}

exec 9>"$dest/.lock"
flock 9
if up_to_date; then
  exit 0
fi
echo "cross-libs: building libcrypto and tinyxml2 for $host into $dest (once, some minutes)"
rm -f "$dest/.stamp"
work=$dest/work
rm -rf "$work"
mkdir -p "$work"/{apt/parts,apt/lists/partial,apt/cache/archives/partial,src}

# The system's entries for this release, asked for sources instead of binaries. Entries of other vendors are left
# out: they have no use here, and many offer no sources.
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
    # A paragraph is kept when one of its suites belongs to this release; comments may stand inside one.
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
fetch_source openssl "$openssl_version"
fetch_source tinyxml2 "$tinyxml2_version"

# run LOG COMMAND...: quiet unless it fails.
run() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 60 "$log" >&2; exit 1; }
}
(
  cd "$work/src/openssl/tree"
  # A library inside a host's process reads no configuration file and loads nothing: neither of its own accord nor
  # from a default folder that any user of a Windows machine could create.
  run "$work/configure.log" ./Configure mingw64 --cross-compile-prefix="$host-" \
    --prefix="C:/Program Files/OpenSSL" \
    no-shared no-pinshared no-tests no-engine no-legacy no-module no-dso no-autoload-config -ffunction-sections -fdata-sections
  run "$work/openssl.log" make -j"$jobs" build_generated libcrypto.a
)
(
  cd "$work/src/tinyxml2/tree"
  run "$work/tinyxml2.log" "$host-g++-posix" -O2 -ffunction-sections -fdata-sections -c tinyxml2.cpp -o tinyxml2.o
  run "$work/tinyxml2.log" "$host-ar" rcs libtinyxml2.a tinyxml2.o
)
mkdir -p "$dest/include" "$dest/lib"
rm -rf "$dest/include/openssl"
cp -r "$work/src/openssl/tree/include/openssl" "$dest/include/"
find "$dest/include/openssl" -name '*.in' -delete
install -m 644 "$work/src/tinyxml2/tree/tinyxml2.h" "$dest/include/"
install -m 644 "$work/src/openssl/tree/libcrypto.a" "$work/src/tinyxml2/tree/libtinyxml2.a" "$dest/lib/"
rm -rf "$work"
echo "$key" >"$dest/.stamp"
echo "cross-libs: done ($key)"
