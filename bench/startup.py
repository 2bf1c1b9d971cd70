#!/usr/bin/env python3
"""Start-up cost of `lexctl3 "echo hi"`, measured side by side in the same run
against `bash -c "echo hi"` and, when the baselines are given, against the
interpreter built without the service client plus what loading libcurl costs
a process. Runs are interleaved and medians taken, so drift of the machine
hits every contender alike.

Usage: startup.py LEXCTL3 [SHELL_ONLY LOAD_CURL]"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

RUNS = 40


def timed(argv, cwd):
    start = time.perf_counter()
    subprocess.run(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    return time.perf_counter() - start


def main():
    lexctl = os.path.abspath(sys.argv[1])
    contenders = {"lexctl3": [lexctl, "echo hi"], "bash": ["bash", "-c", "echo hi"]}
    if len(sys.argv) > 3:
        shell_only, load_curl = os.path.abspath(sys.argv[2]), os.path.abspath(sys.argv[3])
        contenders.update({"shell": [shell_only, "echo hi"], "bare": [load_curl],
                           "curl": [load_curl, "load"]})
    with tempfile.TemporaryDirectory() as cwd:
        for argv in contenders.values():
            timed(argv, cwd)  # warm the page cache
        times = {name: [] for name in contenders}
        for _ in range(RUNS):
            for name, argv in contenders.items():
                times[name].append(timed(argv, cwd))
    ms = {name: statistics.median(values) * 1000 for name, values in times.items()}
    print(f"startup: lexctl3 {ms['lexctl3']:.2f} ms, bash {ms['bash']:.2f} ms, "
          f"ratio {ms['lexctl3'] / ms['bash']:.2f} (target: at most 1.60)")
    if "shell" in ms:
        curl = ms["curl"] - ms["bare"]
        budget = ms["shell"] + curl
        print(f"startup: interpreter without the client {ms['shell']:.2f} ms, loading libcurl {curl:.2f} ms; "
              f"lexctl3 {ms['lexctl3']:.2f} ms against that sum {budget:.2f} ms "
              f"(target: at most the sum), ratio {ms['lexctl3'] / budget:.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
