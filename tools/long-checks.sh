#!/usr/bin/env bash
# What takes hours and is run before a release, not by the gate: tools/long-checks.sh [NAME]...
# Without names all of them, in this order. A check prints its figures and fails the script when it fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C.UTF-8
work=$PWD/build/long
mkdir -p "$work"

# Half an hour for each fuzz target, from its corpus and its seeds.
fuzz() {
  cmake --preset linux-fuzz >"$work/fuzz-build.log"
  cmake --build build/linux-fuzz >>"$work/fuzz-build.log"
  local target seeds
  for target in build/linux-fuzz/fuzz/fuzz_*; do
    [ -x "$target" ] && [ -f "$target" ] || continue
    seeds=(fuzz/corpus/"${target##*/}")
    case ${target##*/} in
      fuzz_image) seeds+=(tests/fixtures/images) ;;
      fuzz_signature) seeds+=(tests/fixtures/pkcs7) ;;
      fuzz_package) seeds+=(tests/fixtures/packages) ;;
      fuzz_request) seeds+=(tests/fixtures/images tests/fixtures/packages tests/fixtures/cabinets) ;;
    esac
    mkdir -p "$work/found/${target##*/}" fuzz/corpus/"${target##*/}"
    "$target" -max_len=65536 -max_total_time="${FUZZ_SECONDS:-1800}" -print_final_stats=1 \
      "$work/found/${target##*/}" "${seeds[@]}" 2>&1 | tail -n 8
  done
}

# A Java host of twelve threads on disks and shares, good, slow, dying and silent ones; then a million calls on a small
# tree. Memory, threads, descriptors and child processes must not grow.
soak() {
  cmake --preset linux-release >"$work/soak-build.log"
  cmake --build build/linux-release >>"$work/soak-build.log"
  tools/long/soak.py build/linux-release "${SOAK_SECONDS:-600}" "${MILLION_CALLS:-1000000}"
}

# A repository of a million files: peak memory in KiB and the time.
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

# The faults that the tests do not notice.
mutation() { tools/mutate.py --count "${FAULTS:-150}"; }

# Two servers on loopback stand for two machines, one of which dies in the middle of a scan.
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

# The page's script under eslint, and the page under axe-core. Both come from npm (Debian's package, or with nodejs),
# and know more than Debian's versions, which are too old for the script.
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

# The packages in a bare Debian root.
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
