#!/usr/bin/env bash
# Cross-builds lexctl3.exe and lexsim.exe for 64-bit Windows into build-windows/, with the
# dependencies scripts/windows-deps.sh builds from Debian's sources.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-windows
"$root/scripts/windows-deps.sh"

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake" \
    -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" >/dev/null
fi
# Both programs by default; other targets can be named as arguments.
[ $# -gt 0 ] || set -- --target lexctl3 lexsim
# At most two jobs, at the lowest priority: the machine's cores are shared.
nice -n 19 cmake --build "$build" -j2 "$@"
