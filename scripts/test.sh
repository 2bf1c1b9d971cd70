#!/usr/bin/env bash
# Builds and runs the whole suite: a normal build, then ASan+UBSan and TSan builds.
# Usage: scripts/test.sh [normal|asan|tsan ...]   (default: all three)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

jobs=$(nproc 2>/dev/null || echo 2)
variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(normal asan tsan)

for v in "${variants[@]}"; do
  case "$v" in
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
