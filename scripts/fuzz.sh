#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) in build-fuzz and runs each
# for a while; fails when any target finds a crash, leak, hang or sanitizer
# report. Seeds come from fuzz/corpus/<target>/ (read-only); what a run learns
# stays in build-fuzz/fuzz/work/<target>/, so the next run goes on from there.
# Usage: scripts/fuzz.sh [-t SECONDS] [TARGET ...]   (default: 30 s, every target)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=30
while getopts "t:" opt; do
  case "$opt" in
    t) seconds=$OPTARG ;;
    *) echo "usage: $0 [-t SECONDS] [TARGET ...]" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
"$top/scripts/setup.sh"

dir="$top/build-fuzz"
cmake -S "$top" -B "$dir" -DLEXCTL_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target fuzz_all >/dev/null

targets=("$@")
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < "$dir/fuzz/fuzz_targets.txt"
export LSAN_OPTIONS="suppressions=$top/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1"

failed=()
for t in "${targets[@]}"; do
  [ -n "$t" ] || continue
  work="$dir/fuzz/work/$t"
  findings="$dir/fuzz/findings"
  mkdir -p "$work" "$findings"
  log="$dir/fuzz/$t.log"
  args=(-max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -print_final_stats=1
        -artifact_prefix="$findings/$t-" "$work" "$top/fuzz/corpus/$t")
  if (cd "$dir/fuzz" && "./$t" "${args[@]}") >"$log" 2>&1; then
    stats=$(grep -E "^#[0-9]+[[:space:]]+DONE" "$log" | tail -1 | sed -E 's/^#([0-9]+).*cov: ([0-9]+).*/\1 runs, coverage \2/' || true)
    echo "fuzz $t: ${seconds}s, ${stats:-done}, no finding"
  else
    echo "fuzz $t: FINDING (log: $log)"
    grep -E "^(==[0-9]+==ERROR|SUMMARY|.*runtime error)" "$log" | head -5 || true
    ls "$findings"/"$t"-* 2>/dev/null | head -5 || true
    failed+=("$t")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]}; reproduce with build-fuzz/fuzz/<target> <file>" >&2
  exit 1
fi
