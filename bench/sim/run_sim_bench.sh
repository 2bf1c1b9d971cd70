#!/usr/bin/env bash
# lexsim against a bare gSOAP echo server (thread per connection, keep-alive), both loaded by
# wrk replaying the same captured TestEcho over keep-alive on loopback, at 1 and 8
# connections. Usage: run_sim_bench.sh BUILD_DIR   (a Release build holding lexsim,
# bench_echo_reference and bench_capture_echo). BENCH_SECONDS sets each run's length.
set -euo pipefail
build=${1:?usage: run_sim_bench.sh BUILD_DIR}
seconds=${BENCH_SECONDS:-5}
here=$(cd "$(dirname "$0")" && pwd)
lexsim=$build/sim/lexsim
reference=$build/bench/sim/bench_echo_reference
capture=$build/bench/sim/bench_capture_echo
for p in "$lexsim" "$reference" "$capture"; do
  [ -x "$p" ] || { echo "missing $p; build it first" >&2; exit 1; }
done
command -v wrk >/dev/null || { echo "wrk is not installed (scripts/setup.sh)" >&2; exit 1; }

tmp=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT

# Starts a server that prints its URL first; waits for it at most 10 s.
start() {
  local name=$1; shift
  "$@" >"$tmp/$name.out" 2>"$tmp/$name.err" &
  pids+=($!)
  for _ in $(seq 100); do
    if [ -s "$tmp/$name.out" ]; then head -1 "$tmp/$name.out"; return; fi
    sleep 0.1
  done
  echo "$name did not start: $(cat "$tmp/$name.err")" >&2
  exit 1
}
lexsim_url=$(start lexsim "$lexsim" --port 0 --threads 8)/nvsoap/nvsoap.cgi
reference_url=$(start reference "$reference" 0)

# One TestEcho as the generated client sends it; both servers must echo it correctly.
read -r header_bytes body_bytes < <("$capture" "$lexsim_url" "$tmp/body.xml")
"$capture" "$reference_url" "$tmp/check.xml" >/dev/null
cmp -s "$tmp/body.xml" "$tmp/check.xml" || { echo "the two captures differ" >&2; exit 1; }
export SIM_BENCH_BODY=$tmp/body.xml

# Prints requests/s of one wrk run; fails on socket errors or non-2xx answers.
rate() {
  local threads=$1 conns=$2 url=$3 out
  out=$(wrk -t"$threads" -c"$conns" -d"${seconds}s" -s "$here/replay_body.lua" "$url")
  if grep -qE "Non-2xx|Socket errors" <<<"$out"; then
    echo "wrk reported errors against $url:" >&2
    echo "$out" >&2
    exit 1
  fi
  awk '/^Requests\/sec:/ {printf "%.0f", $2}' <<<"$out"
}

echo "lexsim TestEcho vs bare gSOAP echo; request body $body_bytes bytes" \
     "(client header $header_bytes bytes), ${seconds}s per run"
printf "%-12s %14s %14s %8s\n" connections "lexsim req/s" "reference req/s" ratio
for pair in "1 1" "2 8"; do
  read -r t c <<<"$pair"
  l=$(rate "$t" "$c" "$lexsim_url")
  r=$(rate "$t" "$c" "$reference_url")
  printf "%-12s %14s %14s %7.0f%%\n" "$c (-t$t)" "$l" "$r" "$(awk -v l="$l" -v r="$r" 'BEGIN {print 100 * l / r}')"
done
