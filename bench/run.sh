#!/usr/bin/env bash
# Builds an optimised lexctl3 and runs every benchmark, each side by side
# with its reference. Figures vary with the machine; ratios are what count.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
build="$top/build-bench"
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j "$(nproc)" --target lexctl3 bench_shell_only bench_load_curl >/dev/null
python3 "$top/bench/startup.py" "$build/app/lexctl3" "$build/bench/bench_shell_only" "$build/bench/bench_load_curl"
python3 "$top/bench/script_speed.py" "$build/app/lexctl3"
cmake --build "$build" -j "$(nproc)" --target lexsim bench_echo_reference bench_capture_echo bench_echo_curl >/dev/null
"$top/bench/sim/run_sim_bench.sh" "$build"
python3 "$top/bench/client_echo.py" "$build/app/lexctl3" "$build/sim/lexsim" "$build/bench/bench_echo_curl"
python3 "$top/bench/text_roundtrip.py" "$build/app/lexctl3" "$build/sim/lexsim"
python3 "$top/bench/dict_transfer.py" "$build/app/lexctl3" "$build/sim/lexsim"
python3 "$top/bench/udump_replay.py" "$build/app/lexctl3" "$build/sim/lexsim"
python3 "$top/bench/tfile_lines.py" "$build/app/lexctl3" "$build/sim/lexsim"
python3 "$top/bench/document_large.py" "$build/app/lexctl3" "$build/sim/lexsim"
