#!/usr/bin/env bash
# The main job: build lexctl3 and run the demo script.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
build="$top/build-normal"
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target lexctl3 >/dev/null
cd "$top"
"$build/app/lexctl3" --script examples/demo.lex
