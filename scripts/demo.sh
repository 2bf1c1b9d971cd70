#!/usr/bin/env bash
# The main job: build lexctl3 and lexsim, start lexsim on a free loopback
# port, take the tour of examples/demo.lex against it, and stop lexsim again.
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
server=$(head -n 1 "$work/url")
echo "lexsim is listening on $server"
# The tour writes its files (translations, exports, the user dump) into a
# scratch folder, listed at the end and removed with it.
cp "$top"/examples/* "$work/"
cd "$work"
"$build/app/lexctl3" "@setvar server $server" --script demo.lex
echo
echo "The tour wrote: $(ls | grep -v -e '^url$' -e '^lexsim.err$' -e '\.lex$' | tr '\n' ' ')"
echo "tour-notes.txn.txt:"
cat tour-notes.txn.txt
