#!/usr/bin/env python3
"""TestEcho round trips: lexctl3 (each comms layer, 1 thread and 8 threads)
side by side with wrk replaying the same request and with python3-zeep
calling through the WSDL, all against one lexsim in the same run."""
import os
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from run_case import Lexsim  # noqa: E402

CALLS = 4000        # per lexctl3 thread
SECONDS = 5         # per wrk and zeep run
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
           f"loop echo count {CALLS}\n")
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
    return CALLS * threads / (time.perf_counter() - start)


def capture_request(lexctl, cwd, server):
    """The exact request lexctl3 sends, from its SOAP debug log."""
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap", "setopt soapdebug cap",
                    "test -string hello -number 42"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    raw = open(os.path.join(cwd, "cap-sent.log"), "rb").read()
    head, _, body = raw.partition(b"\r\n\r\n")
    return body


def wrk_rate(cwd, url, body, threads, connections):
    with open(os.path.join(cwd, "body.xml"), "wb") as f:
        f.write(body)
    with open(os.path.join(cwd, "echo.lua"), "w") as f:
        f.write('wrk.method = "POST"\n'
                'local f = io.open("body.xml", "rb"); wrk.body = f:read("*a"); f:close()\n'
                'wrk.headers["Content-Type"] = "text/xml; charset=utf-8"\n'
                'wrk.headers["SOAPAction"] = "\\"\\""\n')
    out = subprocess.run(["wrk", f"-t{threads}", f"-c{connections}", f"-d{SECONDS}s", "-s", "echo.lua", url],
                         cwd=cwd, check=True, capture_output=True, text=True).stdout
    if "Non-2xx" in out:
        raise RuntimeError("wrk got error replies:\n" + out)
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1))


def zeep_rate(cwd, wsdl, url):
    with open(os.path.join(cwd, "zeep_echo.py"), "w") as f:
        f.write(ZEEP)
    out = subprocess.run(["/usr/bin/python3", "zeep_echo.py", wsdl, url, str(SECONDS)], cwd=cwd, check=True,
                         capture_output=True, text=True).stdout
    return float(out.strip())


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    wsdl = os.path.join(os.path.dirname(lexsim), "nvsoap.wsdl")
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-") as cwd:
        sim = Lexsim(lexsim, ["--threads", "8"], cwd)
        try:
            body = capture_request(lexctl, cwd, sim.server)
            wrk1 = wrk_rate(cwd, sim.url, body, 1, 1)
            wrk8 = wrk_rate(cwd, sim.url, body, 2, 8)
            zeep = zeep_rate(cwd, wsdl, sim.url)
            rates = {}
            for layer in ("gsoap", "windows"):
                for threads in (1, 8):
                    rates[layer, threads] = lexctl_rate(lexctl, cwd, sim.server, layer, threads)
        finally:
            sim.stop()
    print(f"TestEcho request: {len(body)} bytes of XML")
    print(f"wrk: {wrk1:,.0f} calls/s at 1 connection, {wrk8:,.0f} calls/s at 8 connections")
    print(f"zeep: {zeep:,.0f} calls/s")
    targets = {("gsoap", 1): (wrk1, 0.65), ("windows", 1): (wrk1, 0.50), ("gsoap", 8): (wrk8, 0.60),
               ("windows", 8): (wrk8, None)}
    for (layer, threads), rate in rates.items():
        ref, target = targets[layer, threads]
        goal = f" (target: at least {target:.2f})" if target else ""
        print(f"lexctl3 {layer} layer, {threads} thread{'s' if threads > 1 else ''}: {rate:,.0f} calls/s, "
              f"{rate / ref:.2f} of wrk{goal}, {rate / zeep:.1f} times zeep (target: at least 5)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
