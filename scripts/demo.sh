#!/usr/bin/env bash
# The main job: build lexctl3 and lexsim, start lexsim on a free loopback
# port, run the demo script against it, and stop lexsim again.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
build="$top/build-normal"
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target lexctl3 lexsim >/dev/null

work=$(mktemp -d)
trap 'kill "$sim" 2>/dev/null || true; wait "$sim" 2>/dev/null || true; rm -rf "$work"' EXIT
"$build/sim/lexsim" --host 127.0.0.1 --port 0 >"$work/url" 2>"$work/lexsim.err" &
sim=$!
for _ in $(seq 100); do
  [ -s "$work/url" ] && break
  sleep 0.1
done
url=$(head -n 1 "$work/url")
server=${url%/nvsoap/nvsoap.cgi}
echo "lexsim is listening on $server"
cd "$top"
"$build/app/lexctl3" "@setvar server $server" --script examples/demo.lex
