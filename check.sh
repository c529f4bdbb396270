#!/usr/bin/env bash
# The whole gate: builds every platform and sanitizer with warnings as errors and runs all tests and linters in one
# ctest run. Its summary is the last output, and its result the result of this script. Needs no terminal and no input.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$root"
exec </dev/null
mkdir -p build
exec 9>build/check.lock
flock -n 9 || { echo "check.sh: another run is busy in this source tree" >&2; exit 1; }

step() { echo "check.sh: $*"; }
# quiet LOG COMMAND...: shows the command's output only if it fails.
quiet() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 9>&- || { tail -n 200 "$log" >&2; step "failed: $*" >&2; exit 1; }
}

tools/install-deps.sh check
tools/cross-libs.sh
tools/real-images.sh
export WINEPREFIX=$root/build/wineprefix WINEDEBUG=-all
quiet build/wine.log tools/wine-run.sh cmd /c exit

# build PRESET TARGET [OPTION...]: configures and builds one preset's folder.
build() {
  local preset=$1 target=$2 start=$SECONDS
  shift 2
  quiet "build/$preset-configure.log" cmake --preset "$preset" -DTESSIVATOR_WERROR=ON -DTESSIVATOR_TESTS=ON "$@"
  quiet "build/$preset-build.log" cmake --build "build/$preset" --target "$target" -j "$(nproc)"
  step "$preset built in $((SECONDS - start)) s"
}
# The packages are built in separate folders from the same objects; the compiler cache distinguishes languages.
export CCACHE_NOHASHDIR=1 LC_ALL=C.UTF-8
build linux-release all -DTESSIVATOR_BENCH=ON -DTESSIVATOR_PACKAGES=ON
build linux-asan all
build linux-tsan tsan_tests
build windows-release all

# A leak, a data race or undefined behaviour fails the test that shows it.
export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
export TESSIVATOR_REAL=$root/build/real

/usr/bin/python3 tools/gather-tests.py build/check linux-release linux-asan linux-tsan:tsan windows-release
# This compiler's sanitizers fail on kernels that randomise more than 28 bits of an address.
without_random=()
if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 28)" -gt 28 ] && setarch -R true 2>/dev/null; then
  without_random=(setarch -R)
fi
# Wine's server ends with its last program, and a program that starts at that moment fails: keep it for a minute.
for server in /usr/lib/wine/wineserver64 /usr/lib/wine/wineserver; do
  [ ! -x "$server" ] || { "$server" -p60 >/dev/null 2>&1 9>&- || true; break; }
done
# One job more than processors, because many tests wait for Wine, servers or a browser.
exec "${without_random[@]}" ctest --test-dir build/check -j "$(($(nproc) + 1))" --output-on-failure --no-label-summary --no-tests=error
