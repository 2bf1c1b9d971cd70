#!/usr/bin/env python3
"""tran -indata of a large document (100 MB by default) on each comms layer,
inline and as DIME, side by side with curl posting the same request,
prepared once, to the same lexsim and saving the reply. Reports elapsed
times, their ratio and lexctl3's peak resident memory against the size of
the document.

Usage: document_large.py LEXCTL3 LEXSIM [MEGABYTES]"""
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e", "documents"))
from run_case import Lexsim  # noqa: E402
from large_document import make_document  # noqa: E402

LOGIN = ["setopt userid admin", "setopt passwd admin", "setopt timeout 600"]
COMMAND = "tran -rules rules.txt -indata doc.html -outdata out.html"


def run_measured(argv, cwd):
    """Runs a program; returns its elapsed seconds and peak resident memory in bytes.
    GNU time starts it: a child of this process would count the memory this
    process had when it forked."""
    start = time.perf_counter()
    proc = subprocess.run(["/usr/bin/time", "-f", "%M"] + argv, cwd=cwd, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    elapsed = time.perf_counter() - start
    if proc.returncode:
        raise RuntimeError(f"{argv[0]} failed: {proc.stderr[-500:]}")
    return elapsed, int(proc.stderr.strip().splitlines()[-1]) * 1024


def capture(lexctl, cwd, server, layer, dime):
    """lexctl3's own request for the command, headers and body, from its SOAP debug log."""
    for name in ("cap-sent.log", "cap-recv.log"):
        if os.path.exists(os.path.join(cwd, name)):
            os.remove(os.path.join(cwd, name))
    subprocess.run([lexctl, f"setopt server {server}", f"setopt commslayer {layer}", f"setopt dime {dime}"] +
                   LOGIN + ["setopt soapdebug cap", COMMAND], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    with open(os.path.join(cwd, "cap-sent.log"), "rb") as f:
        raw = f.read()
    os.remove(os.path.join(cwd, "cap-recv.log"))
    head, _, body = raw.partition(b"\r\n\r\n")
    headers = [line for line in head.decode().split("\r\n")[1:]
               if line.split(":")[0].lower() in ("content-type", "soapaction")]
    body_file = os.path.join(cwd, f"request-{dime}.bin")
    with open(body_file, "wb") as f:
        f.write(body[: int([h for h in head.decode().split("\r\n") if h.lower().startswith("content-length")][0]
                           .split(":")[1])])
    return headers, body_file


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    size = int(float(sys.argv[3]) * (1 << 20)) if len(sys.argv) > 3 else 100 << 20
    rows = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-doc-") as cwd:
        make_document(os.path.join(cwd, "doc.html"), size)
        with open(os.path.join(cwd, "rules.txt"), "w") as f:
            f.write("# no rules\n")
        sim = Lexsim(lexsim, [], cwd)
        try:
            requests = {dime: capture(lexctl, cwd, sim.server, "gsoap", dime) for dime in ("false", "true")}
            for dime in ("false", "true"):
                headers, body_file = requests[dime]
                curl = ["curl", "-s", "-f", "-o", "reply.bin", "--data-binary", "@" + body_file, "-H", "Expect:"]
                for h in headers:
                    curl += ["-H", h]
                curl.append(sim.url)
                for layer in ("gsoap", "windows"):
                    ref, _ = run_measured(curl, cwd)
                    took, rss = run_measured([lexctl, f"setopt server {sim.server}", f"setopt commslayer {layer}",
                                              f"setopt dime {dime}"] + LOGIN + [COMMAND], cwd)
                    rows.append((layer, dime, took, ref, rss))
        finally:
            sim.stop()
    print(f"tran -indata of a {size / (1 << 20):.0f} MB HTML document against curl posting lexctl3's own "
          "request to the same lexsim; one run each")
    for layer, dime, took, ref, rss in rows:
        mode = "DIME" if dime == "true" else "inline"
        target = " (targets: at most 1.5 times curl, 3 times the document)" if layer == "gsoap" else \
                 " (target: at most 1.5 times curl)"
        print(f"lexctl3 {layer} layer, {mode}: {took:.1f} s against curl {ref:.1f} s = {took / ref:.2f} times; "
              f"peak memory {rss / (1 << 20):.0f} MB = {rss / size:.2f} times the document{target}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
