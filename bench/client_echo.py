#!/usr/bin/env python3
"""TestEcho round trips: lexctl3 (each comms layer, 1 thread and 8 threads)
side by side with wrk replaying the same request and with python3-zeep
calling through the WSDL, all against one lexsim in the same run. Given
bench_echo_curl, also libcurl alone posting that request in a loop: the
ceiling of the windows layer, which adds the SOAP work to it.

Usage: client_echo.py LEXCTL3 LEXSIM [BENCH_ECHO_CURL]"""
import os
import re
from statistics import median
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from run_case import Lexsim  # noqa: E402

# Calls per lexctl3 thread, at 1 and at 8 threads: a run lasts about as long
# as wrk's, so that starting the program and loading libraries (startup.py
# measures those) are a small part of it, as connecting is of wrk's.
CALLS = {1: 24000, 8: 6000}
SECONDS = 2         # per wrk and zeep run
ZEEP = """
import sys, time, zeep
client = zeep.Client(sys.argv[1])
service = client.create_service(next(iter(client.wsdl.bindings)), sys.argv[2])
calls, end = 0, time.time() + float(sys.argv[3])
while time.time() < end:
    service.TestEcho(str="hello", num=42)
    calls += 1
print(calls / float(sys.argv[3]))
"""


def lexctl_rate(lexctl, cwd, server, layer, threads):
    job = ("setopt console none\nproc begin echo\ntest -string hello -number 42\nproc end\n"
           f"loop echo count {CALLS[threads]}\n")
    with open(os.path.join(cwd, "job.lex"), "w") as f:
        f.write(job)
    lines = [f"setopt server {server}", f"setopt commslayer {layer}", "setopt console none"]
    if threads == 1:
        lines.append("read job.lex")
    else:
        lines += [f"threads start t{i} job.lex" for i in range(threads)] + ["threads joinall"]
    with open(os.path.join(cwd, "main.lex"), "w") as f:
        f.write("\n".join(lines) + "\n")
    start = time.perf_counter()
    subprocess.run([lexctl, "--script", "main.lex"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    return CALLS[threads] * threads / (time.perf_counter() - start)


def capture_request(lexctl, cwd, server):
    """The exact request lexctl3 sends (headers and body), from its SOAP debug log."""
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap", "setopt soapdebug cap",
                    "test -string hello -number 42"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    raw = open(os.path.join(cwd, "cap-sent.log"), "rb").read()
    head, _, body = raw.partition(b"\r\n\r\n")
    headers = []
    for line in head.decode().split("\r\n")[1:]:
        name, _, value = line.partition(": ")
        if name.lower() not in ("host", "content-length"):  # wrk writes these itself
            headers.append((name, value))
    return headers, body


def wrk_rate(cwd, url, request, threads, connections):
    headers, body = request
    with open(os.path.join(cwd, "body.xml"), "wb") as f:
        f.write(body)
    with open(os.path.join(cwd, "echo.lua"), "w") as f:
        f.write('wrk.method = "POST"\n'
                'local f = io.open("body.xml", "rb"); wrk.body = f:read("*a"); f:close()\n')
        for name, value in headers:
            f.write(f"wrk.headers[{lua_string(name)}] = {lua_string(value)}\n")
    out = subprocess.run(["wrk", f"-t{threads}", f"-c{connections}", f"-d{SECONDS}s", "-s", "echo.lua", url],
                         cwd=cwd, check=True, capture_output=True, text=True).stdout
    if "Non-2xx" in out:
        raise RuntimeError("wrk got error replies:\n" + out)
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1))


def curl_rate(floor, cwd, url, request):
    headers, body = request
    out = subprocess.run([floor, url, str(CALLS[1]), "body.xml"] + [f"{name}: {value}" for name, value in headers],
                         cwd=cwd, check=True, capture_output=True, text=True).stdout
    return float(out)


def lua_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def zeep_rate(cwd, wsdl, url):
    with open(os.path.join(cwd, "zeep_echo.py"), "w") as f:
        f.write(ZEEP)
    out = subprocess.run(["/usr/bin/python3", "zeep_echo.py", wsdl, url, str(SECONDS)], cwd=cwd, check=True,
                         capture_output=True, text=True).stdout
    return float(out.strip())


ROUNDS = 5          # each round measures every contender once


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    floor = os.path.abspath(sys.argv[3]) if len(sys.argv) > 3 else None
    wsdl = os.path.join(os.path.dirname(lexsim), "nvsoap.wsdl")
    targets = {("gsoap", 1): 0.85, ("windows", 1): 0.75, ("gsoap", 8): 0.75, ("windows", 8): 0.65}
    # This machine's speed drifts by tens of percent within a minute, so each
    # contender runs between two wrk runs at the same concurrency and is
    # compared with their mean: wrk1 g1 wrk1 w1 wrk1 wrk8 g8 wrk8 w8 wrk8.
    ratios = {config: [] for config in targets}
    rates = {config: [] for config in targets}
    refs = {1: [], 8: []}
    floors = []
    zeeps = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-") as cwd:
        sim = Lexsim(lexsim, ["--threads", "8"], cwd)
        try:
            request = capture_request(lexctl, cwd, sim.server)
            for _ in range(ROUNDS):
                zeeps.append(zeep_rate(cwd, wsdl, sim.url))
                for threads in (1, 8):
                    wrk = (lambda: wrk_rate(cwd, sim.url, request, 1, 1)) if threads == 1 else \
                          (lambda: wrk_rate(cwd, sim.url, request, 2, 8))
                    before = wrk()
                    refs[threads].append(before)
                    for layer in ("gsoap", "windows"):
                        rate = lexctl_rate(lexctl, cwd, sim.server, layer, threads)
                        after = wrk()
                        refs[threads].append(after)
                        rates[layer, threads].append(rate)
                        ratios[layer, threads].append((rate * 2 / (before + after), rate / zeeps[-1]))
                        before = after
                    if floor and threads == 1:  # wrk has written body.xml
                        rate = curl_rate(floor, cwd, sim.url, request)
                        after = wrk()
                        refs[threads].append(after)
                        floors.append((rate, rate * 2 / (before + after)))
        finally:
            sim.stop()
    print(f"TestEcho request: {len(request[1])} bytes of XML, {len(request[0])} headers besides Host and "
          f"Content-Length, replayed by wrk as sent; {ROUNDS} rounds, medians")
    print(f"wrk: {median(refs[1]):,.0f} calls/s at 1 connection, {median(refs[8]):,.0f} calls/s at 8 connections")
    print(f"zeep: {median(zeeps):,.0f} calls/s")
    if floors:
        print(f"libcurl alone, the same request in a loop without SOAP work: {median(f[0] for f in floors):,.0f} "
              f"calls/s, {median(f[1] for f in floors):.2f} of wrk (the windows layer's ceiling)")
    for config, target in targets.items():
        layer, threads = config
        of_wrk = median([r[0] for r in ratios[config]])
        of_zeep = median([r[1] for r in ratios[config]])
        goal = f" (target: at least {target:.2f})"
        print(f"lexctl3 {layer} layer, {threads} thread{'s' if threads > 1 else ''}: "
              f"{median(rates[config]):,.0f} calls/s, {of_wrk:.2f} of wrk{goal}, "
              f"{of_zeep:.1f} times zeep (target: at least 10)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
