#!/usr/bin/env bash
# Builds and runs the whole suite: a normal build, then ASan+UBSan and TSan
# builds, then every fuzz target for 30 s, then the Debian package's checks.
# "windows" cross-builds both programs, their unit tests and the zip, and runs
# the tests under Wine, lexctl3.exe's cases against the Linux lexsim.
# Usage: scripts/test.sh [normal|asan|tsan|fuzz|package|windows ...]   (default: all six)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

jobs=$(nproc 2>/dev/null || echo 2)
variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(normal asan tsan fuzz package windows)

for v in "${variants[@]}"; do
  case "$v" in
    fuzz) echo "=== fuzz targets ==="
          "$top/scripts/fuzz.sh"
          continue ;;
    package) echo "=== package ==="
             # The normal build, made here when that variant did not run first.
             cmake -S "$top" -B "$top/build-normal" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
             cmake --build "$top/build-normal" -j "$jobs" >/dev/null
             "$top/scripts/package_check.sh" "$top/build-normal"
             continue ;;
    windows) echo "=== windows build ==="
             # The Linux lexsim and manual page of this tree, from the normal build's folder.
             cmake -S "$top" -B "$top/build-normal" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
             cmake --build "$top/build-normal" -j "$jobs" --target lexsim docs >/dev/null
             "$top/scripts/build-windows.sh" --target lexctl3 >/dev/null
             dir=$top/build-windows
             cmake "$dir" -DLEXCTL_E2E_LEXSIM="$top/build-normal/sim/lexsim" \
               -DLEXCTL_LINUX_MANPAGE="$top/build-normal/packaging/man/lexctl3.1" >/dev/null
             nice -n 19 cmake --build "$dir" -j "$jobs" >/dev/null
             nice -n 19 cmake --build "$dir" --target zip >/dev/null
             echo "=== windows tests (under Wine) ==="
             # One prefix set-up before the parallel runs share it, finished
             # before they start: a fresh prefix keeps the Wine server busy
             # for a while after wineboot returns.
             env WINEPREFIX="$dir/wine-prefix" WINEDEBUG=-all DISPLAY= /usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1
             env WINEPREFIX="$dir/wine-prefix" /usr/lib/wine/wineserver -w
             # Wine's server now and then stalls a program for a minute or
             # more under parallel load (seen twice, on fresh prefixes, in
             # different tests): a test that fails runs once more.
             (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 600 --repeat until-pass:2)
             continue ;;
    normal) flags=() ;;
    asan) flags=(-DLEXCTL_ASAN=ON)
          export LSAN_OPTIONS="suppressions=$top/tests/lsan.supp:print_suppressions=0" ;;
    tsan) flags=(-DLEXCTL_TSAN=ON) ;;
    *) echo "unknown variant: $v" >&2; exit 2 ;;
  esac
  dir="$top/build-$v"
  echo "=== $v build ==="
  cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${flags[@]}" >/dev/null
  cmake --build "$dir" -j "$jobs" >/dev/null
  echo "=== $v tests ==="
  (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 300)
done
