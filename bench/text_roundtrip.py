#!/usr/bin/env python3
"""TranslateText round trips with one ten-word block: lexctl3's `text` on the
gsoap layer (1 thread and 8 threads) side by side with wrk replaying the same
request, headers and body, against one lexsim in the same run."""
import os
from statistics import median
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_case import Lexsim  # noqa: E402
from client_echo import wrk_rate  # noqa: E402

CALLS = 1500        # per lexctl3 thread
ROUNDS = 3          # each round measures every contender once
BLOCK = "The quick brown fox jumps over the lazy dog today"
LOGIN = ["setopt userid admin", "setopt passwd admin"]


def lexctl_rate(lexctl, cwd, server, threads):
    job = ("setopt console none\nproc begin txn\n"
           f'text "{BLOCK}"\nproc end\nloop txn count {CALLS}\n')
    with open(os.path.join(cwd, "job.lex"), "w") as f:
        f.write(job)
    lines = [f"setopt server {server}", "setopt commslayer gsoap", "setopt console none"] + LOGIN
    if threads == 1:
        lines.append("read job.lex")
    else:
        lines += [f"threads start t{i} job.lex" for i in range(threads)] + ["threads joinall"]
    with open(os.path.join(cwd, "main.lex"), "w") as f:
        f.write("\n".join(lines) + "\n")
    start = time.perf_counter()
    subprocess.run([lexctl, "--script", "main.lex"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    return CALLS * threads / (time.perf_counter() - start)


def capture_request(lexctl, cwd, server):
    """The exact request lexctl3 sends (headers and body), from its SOAP debug log."""
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap"] + LOGIN +
                   ["setopt soapdebug cap", f'text "{BLOCK}"'], cwd=cwd, check=True,
                   stdout=subprocess.DEVNULL)
    raw = open(os.path.join(cwd, "cap-sent.log"), "rb").read()
    head, _, body = raw.partition(b"\r\n\r\n")
    headers = []
    for line in head.decode().split("\r\n")[1:]:
        name, _, value = line.partition(": ")
        if name.lower() not in ("host", "content-length"):  # wrk writes these itself
            headers.append((name, value))
    if b"TranslateText" not in body:
        raise RuntimeError("no TranslateText request captured")
    return headers, body


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    targets = {1: 0.70, 8: 0.60}
    # Each lexctl3 run sits between two wrk runs at the same concurrency and is
    # compared with their mean, as the machine's speed drifts.
    ratios = {threads: [] for threads in targets}
    rates = {threads: [] for threads in targets}
    refs = {threads: [] for threads in targets}
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-") as cwd:
        sim = Lexsim(lexsim, ["--threads", "8"], cwd)
        try:
            request = capture_request(lexctl, cwd, sim.server)
            for _ in range(ROUNDS):
                for threads in targets:
                    wrk_threads, connections = (1, 1) if threads == 1 else (2, 8)
                    before = wrk_rate(cwd, sim.url, request, wrk_threads, connections)
                    rate = lexctl_rate(lexctl, cwd, sim.server, threads)
                    after = wrk_rate(cwd, sim.url, request, wrk_threads, connections)
                    refs[threads] += [before, after]
                    rates[threads].append(rate)
                    ratios[threads].append(rate * 2 / (before + after))
        finally:
            sim.stop()
    print(f"TranslateText request: one block of ten words, {len(request[1])} bytes of XML, "
          f"replayed by wrk as sent; {ROUNDS} rounds, medians")
    for threads, target in targets.items():
        print(f"lexctl3 gsoap layer, {threads} thread{'s' if threads > 1 else ''}: "
              f"{median(rates[threads]):,.0f} calls/s; wrk at {threads} connection"
              f"{'s' if threads > 1 else ''}: {median(refs[threads]):,.0f} calls/s; "
              f"{median(ratios[threads]):.2f} of wrk (target: at least {target:.2f})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
