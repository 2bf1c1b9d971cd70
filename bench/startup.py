#!/usr/bin/env python3
"""Start-up cost: `lexctl3 "echo hi"` against `bash -c "echo hi"`, median of
20 runs each, measured side by side in the same run."""
import os
import statistics
import subprocess
import sys
import tempfile
import time

RUNS = 20


def median_seconds(argv, cwd):
    times = []
    for _ in range(RUNS):
        start = time.perf_counter()
        subprocess.run(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main():
    lexctl = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as cwd:
        subprocess.run([lexctl, "echo warm"], cwd=cwd, stdout=subprocess.DEVNULL, check=True)
        ours = median_seconds([lexctl, "echo hi"], cwd)
        bash = median_seconds(["bash", "-c", "echo hi"], cwd)
    ratio = ours / bash
    print(f"startup: lexctl3 {ours * 1000:.2f} ms, bash {bash * 1000:.2f} ms, "
          f"ratio {ratio:.2f} (target: at most 3.00)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
