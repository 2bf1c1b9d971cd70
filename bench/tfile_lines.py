#!/usr/bin/env python3
"""tfile on a 100,000-line file with -blocks 100, side by side with wrk
replaying one 100-line TranslateText request, captured from lexctl3 itself,
on the same lexsim: lines per second, wrk's being its requests per second
times 100. The lexctl3 run sits between two wrk runs and is compared with
their mean; three rounds, medians.

Usage: tfile_lines.py LEXCTL3 LEXSIM"""
import os
from statistics import median
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))
import client_echo  # noqa: E402
from client_echo import wrk_rate  # noqa: E402
from run_case import Lexsim  # noqa: E402

LINES = 100_000
ROUNDS = 3
BLOCKS = 100
SENTENCES = ["The small house is red.", "The old cat sleeps in the garden.", "A green tree stands near the river.",
             "The children play there every morning.", "Is the cat in the house?"]
LOGIN = ["setopt userid admin", "setopt passwd admin"]


def write_lines(path, count):
    with open(path, "w") as f:
        for i in range(count):
            f.write(f"{SENTENCES[i % len(SENTENCES)]} Line {i + 1}.\n")


def capture_request(lexctl, cwd, server):
    """The request lexctl3 sends for one batch of 100 lines (headers and body)."""
    write_lines(os.path.join(cwd, "batch.txt"), BLOCKS)
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap"] + LOGIN +
                   ["setopt soapdebug cap", f"tfile batch.txt -blocks {BLOCKS}"], cwd=cwd, check=True,
                   stdout=subprocess.DEVNULL)
    with open(os.path.join(cwd, "cap-sent.log"), "rb") as f:
        raw = f.read()
    head, _, body = raw.partition(b"\r\n\r\n")
    headers = []
    for line in head.decode().split("\r\n")[1:]:
        name, _, value = line.partition(": ")
        if name.lower() not in ("host", "content-length"):
            headers.append((name, value))
    length = int(next(line.split(":")[1] for line in head.decode().split("\r\n")
                      if line.lower().startswith("content-length")))
    return headers, body[:length]


def tfile_rate(lexctl, cwd, server, layer):
    start = time.perf_counter()
    subprocess.run([lexctl, f"setopt server {server}", f"setopt commslayer {layer}", "setopt console none"] + LOGIN +
                   [f"tfile lines.txt -blocks {BLOCKS}"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    took = time.perf_counter() - start
    with open(os.path.join(cwd, "lines.txn.txt"), "rb") as f:
        if f.read().count(b"\n") != LINES:
            raise RuntimeError("tfile did not write every line")
    return LINES / took


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    client_echo.SECONDS = 5
    layers = ("gsoap", "windows")
    ratios = {layer: [] for layer in layers}
    rates = {layer: [] for layer in layers}
    refs = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-tfile-") as cwd:
        write_lines(os.path.join(cwd, "lines.txt"), LINES)
        sim = Lexsim(lexsim, [], cwd)
        try:
            request = capture_request(lexctl, cwd, sim.server)
            # This machine's speed drifts within a minute: each lexctl3 run sits
            # between two wrk runs and is compared with their mean.
            before = wrk_rate(cwd, sim.url, request, 1, 1) * BLOCKS
            refs.append(before)
            for _ in range(ROUNDS):
                for layer in layers:
                    rate = tfile_rate(lexctl, cwd, sim.server, layer)
                    after = wrk_rate(cwd, sim.url, request, 1, 1) * BLOCKS
                    refs.append(after)
                    rates[layer].append(rate)
                    ratios[layer].append(rate * 2 / (before + after))
                    before = after
        finally:
            sim.stop()
    print(f"tfile, {LINES:,} lines with -blocks {BLOCKS}, against wrk replaying one {BLOCKS}-line TranslateText "
          f"request ({len(request[1]):,} bytes) at 1 connection; {ROUNDS} rounds, medians")
    print(f"wrk: {median(refs):,.0f} lines/s (from {min(refs):,.0f} to {max(refs):,.0f})")
    for layer in layers:
        print(f"lexctl3 {layer} layer: {median(rates[layer]):,.0f} lines/s, {median(ratios[layer]):.2f} of wrk "
              f"(target: at least 0.70)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
