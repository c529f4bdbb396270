#!/usr/bin/env bash
# Scans FILEPATH and writes certificate files and info.xml to OUTPUT: ./run.sh FILEPATH OUTPUT [options]
# Builds the program first if needed. Without arguments it scans the sample repository of the tests,
# shows the report and makes a page from it.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$root/build/linux-release
mkdir -p "$root/build"

# Only the program writes to standard output. Installation and build write to standard error, and only if there
# is something to do.
build_program() {
  "$root/tools/install-deps.sh" run
  local log=$root/build/run.log
  if [ ! -f "$build/build.ninja" ]; then
    echo "run.sh: configuring $build"
    (cd "$root" && cmake --preset linux-release -DTESSIVATOR_TESTS=OFF) >"$log" 2>&1 || { cat "$log"; exit 1; }
  fi
  local targets=(brantle_cli brantle_report)
  # The share program is left out where libsmbclient is missing.
  if ninja -C "$build" -t query brantle_smb >/dev/null 2>&1; then
    targets+=(brantle_smb)
  fi
  if ! ninja -C "$build" -n "${targets[@]}" | grep -q 'no work to do'; then
    echo "run.sh: building the programs"
  fi
  ninja -C "$build" "${targets[@]}" >"$log" 2>&1 || { cat "$log"; exit 1; }
}
exec 9>"$root/build/run.lock"
flock 9
build_program >&2 9>&-
exec 9>&-

program=$(find "$build" -type f -name brantle -perm -u+x | head -n 1)
if [ $# -gt 0 ]; then
  exec "$program" "$@"
fi
output=$root/build/sample-out
rm -rf "$output"
mkdir -p "$output"
status=0
"$program" "$root/tests/fixtures/tree" "$output" || status=$?
cat "$output/info.xml"
report=$(find "$build" -type f -name brantle-report -perm -u+x | head -n 1)
"$report" html "$output" -o "$output/survey.html" || status=$?
echo "Certificate files and this report are in $output; for a browser: $output/survey.html"
exit "$status"
