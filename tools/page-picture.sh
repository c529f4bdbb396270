#!/usr/bin/env bash
# Makes docs/page.png, the README's picture of a page: the programs in BUILD (default: build/linux-release) scan the
# sample repository of the tests, and Chromium shows the page.
#
#   tools/page-picture.sh [BUILD]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "${1:-$root/build/linux-release}" && pwd)
program() { find "$build" -type f -name "$1" -perm -u+x | head -n 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/survey"
"$(program brantle)" "$root/tests/fixtures/tree" "$work/survey"
# Use a neutral path, because the picture shows it.
sed -i "s#<Name>$root/tests/fixtures/tree#<Name>/srv/repository#" "$work/survey/info.xml"
"$(program brantle-report)" html "$work/survey" -o "$work/page.html"
chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
  --disable-component-update --disable-sync --user-data-dir="$work/profile" --hide-scrollbars \
  --window-size=1280,1000 --screenshot="$work/page.png" "file://$work/page.html" >"$work/log" 2>&1 ||
  { cat "$work/log" >&2; exit 1; }
size=$(stat -c %s "$work/page.png")
[ "$size" -lt 204800 ] || { echo "page-picture: $size bytes are too many for a picture in the tree" >&2; exit 1; }
install -m 644 "$work/page.png" "$root/docs/page.png"
