#!/usr/bin/env bash
# Runs a Windows program under Wine: wine-run.sh PROGRAM [ARGUMENT...]. CMake's emulator for the Windows build.
#
# The Wine prefix is WINEPREFIX, by default build/wineprefix of this source tree; it is created if missing.
# TESSIVATOR_* variables with an absolute Linux path are converted to Windows form (Z:\...). The exit
# status is the low eight bits of the program's own.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${WINEPREFIX:-$root/build/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEARCH=win64
# Do not offer to download .NET or a browser engine, and make no desktop menu entries.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-"mscoree,mshtml=;winemenubuilder.exe=d"}
# Wine reads file names in the locale's encoding; in the C locale it would not see those beyond ASCII.
export LC_ALL=C.UTF-8
export HOME=${HOME:-$root/build}

# Use the loader itself: Debian's wrapper script looks for 32-bit Wine first and prints a warning if it is missing.
if [ -x /usr/lib/wine/wine64 ]; then
  wine=/usr/lib/wine/wine64
else
  wine=$(command -v wine64 || command -v wine) || { echo "wine-run.sh: Wine is not installed" >&2; exit 127; }
fi

clear_prefix() { find "$WINEPREFIX" -mindepth 1 -maxdepth 1 ! -name '.tessivator-*' -exec rm -rf {} +; }
prefix_works() { "$wine" cmd /c exit >/dev/null 2>&1 9>&-; }
# Makes the prefix with Wine's own installation. If that fails (it gives no reason and leaves a prefix without system
# files), makes it of links to the system files, which is all that the tests need.
make_prefix() {
  clear_prefix
  "$wine" wineboot -i </dev/null >"$WINEPREFIX/.tessivator-log" 2>&1 9>&- && prefix_works && return
  local files
  files=$(dirname "$(dpkg -L libwine 2>/dev/null | grep '/x86_64-windows/kernel32\.dll$' || echo /usr/lib/wine/x86_64-windows/kernel32.dll)")
  clear_prefix
  mkdir -p "$WINEPREFIX/drive_c/windows/system32"
  ln -s "$files"/* "$WINEPREFIX/drive_c/windows/system32/"
  echo disable >"$WINEPREFIX/.update-timestamp"
  prefix_works && return
  {
    echo "wine-run.sh: the Wine prefix $WINEPREFIX could not be made"
    tail -n 60 "$WINEPREFIX/.tessivator-log"
    WINEDEBUG=err+all,warn+module "$wine" cmd /c exit 2>&1 9>&- | tail -n 40
    df -h "$WINEPREFIX" /tmp
    free -m
    ulimit -a
    id
  } >&2
  exit 126
}
if [ ! -f "$WINEPREFIX/.tessivator-ready" ]; then
  mkdir -p "$WINEPREFIX"
  exec 9>"$WINEPREFIX/.tessivator-lock"
  flock 9
  if [ ! -f "$WINEPREFIX/.tessivator-ready" ]; then
    (make_prefix)
    touch "$WINEPREFIX/.tessivator-ready"
  fi
  exec 9>&-
fi

for name in ${!TESSIVATOR_*}; do
  value=${!name}
  if [[ $value == /* ]]; then
    export "$name=Z:${value//\//\\}"
  fi
done
exec "$wine" "$@"
