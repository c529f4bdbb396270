#!/usr/bin/env bash
# Checks that take hours, run before a release and not by the gate: tools/long-checks.sh [NAME]...
# Without names it runs all of them in this order. Each prints its figures; if one fails, the script fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C.UTF-8
work=$PWD/build/long
mkdir -p "$work"

# Runs each fuzz target for half an hour, from its corpus and seeds.
fuzz() {
  cmake --preset linux-fuzz >"$work/fuzz-build.log"
  cmake --build build/linux-fuzz >>"$work/fuzz-build.log"
  local target seeds
  for target in build/linux-fuzz/fuzz/fuzz_*; do
    [ -x "$target" ] && [ -f "$target" ] || continue
    seeds=(fuzz/corpus/"${target##*/}")
    case ${target##*/} in
      fuzz_image) seeds+=(tests/fixtures/images) ;;
      fuzz_signature | fuzz_facts) seeds+=(tests/fixtures/pkcs7) ;;
      fuzz_package) seeds+=(tests/fixtures/packages) ;;
      fuzz_request) seeds+=(tests/fixtures/images tests/fixtures/packages tests/fixtures/cabinets) ;;
    esac
    mkdir -p "$work/found/${target##*/}" fuzz/corpus/"${target##*/}"
    "$target" -max_len=65536 -max_total_time="${FUZZ_SECONDS:-1800}" -print_final_stats=1 \
      "$work/found/${target##*/}" "${seeds[@]}" 2>&1 | tail -n 8
  done
}

# A Java host with twelve threads scans disks and shares (good, slow, dying and silent ones); then it makes a million
# calls on a small tree. The numbers of threads, descriptors and child processes and the memory must not grow.
soak() {
  cmake --preset linux-release >"$work/soak-build.log"
  cmake --build build/linux-release >>"$work/soak-build.log"
  tools/long/soak.py build/linux-release "${SOAK_SECONDS:-600}" "${MILLION_CALLS:-1000000}"
}

# Scans a repository of a million files, and prints peak memory in KiB and the time.
million() {
  cmake --preset linux-release >"$work/million-build.log"
  cmake --build build/linux-release --target brantle_cli >>"$work/million-build.log"
  local tree=$work/million out=$work/million-out image=tests/fixtures/images/bare32.exe i
  rm -rf "$tree" "$out"
  mkdir -p "$tree/0" "$out"
  for ((i = 0; i < 1000; i++)); do cp "$image" "$tree/0/$i.exe"; done
  for ((i = 1; i < 1000; i++)); do cp -al "$tree/0" "$tree/$i"; done
  /usr/bin/time -f 'million: %M KiB, %e s' build/linux-release/tessivator/utils/signing/brantle/brantle "$tree" "$out"
  local count
  count=$(grep -c '<Executable>' "$out/info.xml")
  rm -rf "$tree"
  [ "$count" -eq 1000000 ] || { echo "million: $count records" >&2; return 1; }
}

# Prints planted faults that no test catches.
mutation() { tools/mutate.py --count "${FAULTS:-150}"; }

# Two servers on loopback simulate two machines, one of which dies during a scan.
two_machines() {
  tools/package.sh "$work/package"
  rm -rf "$work/programs"
  dpkg-deb -x "$work"/package/brantle_*.deb "$work/programs"
  # Folders of forty files each: a part is a folder.
  local tree=$work/machines number=0 file
  rm -rf "$tree"
  find build/real tests/fixtures/images "${REPOSITORY:-/usr/lib/x86_64-linux-gnu/wine/x86_64-windows}" -type f | while read -r file; do
    mkdir -p "$tree/$((number / 40))"
    cp "$file" "$tree/$((number / 40))/$((number++))-${file##*/}"
  done
  tools/long/two-machines.sh "$work/programs/usr/bin" "$tree"
}

# Checks the page's script with eslint and the page with axe-core. npm (Debian's package, or with nodejs) installs both,
# because Debian's versions are too old for the script.
page() {
  local npm=$work/npm build=build/linux-release
  mkdir -p "$npm"
  npm install --prefix "$npm" --no-audit --no-fund --ignore-scripts eslint@9.39.1 axe-core@4.11.0 >"$work/page.log" 2>&1 ||
    { cat "$work/page.log" >&2; return 1; }
  cmake --preset linux-release >"$work/page-build.log"
  cmake --build "$build" --target brantle_report >>"$work/page-build.log"
  cp tools/long/eslint.config.mjs "$build/tessivator/utils/report/page.js" "$npm"
  (cd "$npm" && node_modules/.bin/eslint page.js)
  /usr/bin/python3 bench/make_report.py "$work/survey" 500
  "$build/tessivator/utils/report/brantle-report" html "$work/survey" -o "$work/page.html"
  /usr/bin/python3 tools/long/page_axe.py "$npm/node_modules/axe-core/axe.min.js" "$work/page.html"
}

# Tests the packages in a minimal Debian root.
bare_root() {
  tools/package.sh "$work/package"
  tools/long/bare-root.sh "$work/package" tests/fixtures/tree tests/install/consumer "$work/package/linux/java"
}

for check in "${@:-fuzz page soak million two_machines bare_root mutation}"; do
  for one in $check; do
    echo "long-checks: $one"
    "$one"
  done
done
