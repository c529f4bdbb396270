#!/usr/bin/env bash
# Fetches Debian's signed boot loaders and unpacks them into build/real: real images with real signatures for the
# tests. They are never installed. Does nothing if they are already there.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dest=$root/build/real
packages=(shim-signed grub-efi-amd64-signed)
if [ -f "$dest/.complete" ]; then
  exit 0
fi
echo "real-images: fetching ${packages[*]}"
rm -rf "$dest" "$dest.new"
mkdir -p "$dest.new/packages"
cd "$dest.new/packages"
# apt's own user may not be able to read the work folder.
download() { apt-get -q -o APT::Sandbox::User="$(id -un)" download "${packages[@]}" >download.log 2>&1; }
if ! download; then
  # Package lists are missing or too old: update them.
  if [ "$(id -u)" -eq 0 ]; then apt-get -q update >/dev/null; else sudo apt-get -q update >/dev/null; fi
  download || { cat download.log >&2; exit 1; }
fi
for package in *.deb; do
  dpkg-deb -x "$package" ..
done
touch "$dest.new/.complete"
mv "$dest.new" "$dest"
