#!/usr/bin/env python3
"""tran -indata of a large document on each comms layer, side by side with
curl posting the same request, prepared once, to the same lexsim and saving
the reply. Reports elapsed times, their ratio, lexctl3's peak resident memory
against the size of the document and whether the file written is the
translation, byte for byte: 100 MB inline and as DIME, and 1 GB as DIME
(inline requests stop at lexsim's XML limit).

Usage: document_large.py LEXCTL3 LEXSIM [MEGABYTES]"""
import filecmp
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))
from harness import Lexsim  # noqa: E402
from large_document import TRAN, make_document, write_expected  # noqa: E402

LOGIN = ["setopt userid admin", "setopt passwd admin", "setopt timeout 600"]
COMMAND = TRAN.format("doc", "{}")
INLINE_LIMIT = 256 << 20  # lexsim's default request limit


def run_measured(argv, cwd, stdin=None):
    """Runs a program; returns its elapsed seconds and peak resident memory in bytes.
    GNU time starts it: a child of this process would count the memory this
    process had when it forked."""
    start = time.perf_counter()
    proc = subprocess.run(["/usr/bin/time", "-f", "%M"] + argv, cwd=cwd, stdin=stdin, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    elapsed = time.perf_counter() - start
    if proc.returncode:
        raise RuntimeError(f"{argv[0]} failed: {proc.stderr[-500:]}")
    return elapsed, int(proc.stderr.strip().splitlines()[-1]) * 1024


def capture(lexctl, cwd, server, dime):
    """lexctl3's own request for the command from its SOAP debug log: the
    headers curl needs, the log's path and where the body starts in it."""
    log = os.path.join(cwd, "cap-sent.log")
    for name in ("cap-sent.log", "cap-recv.log", "cap-test.log"):
        if os.path.lexists(os.path.join(cwd, name)):
            os.remove(os.path.join(cwd, name))
        if name != "cap-sent.log":
            os.symlink(os.devnull, os.path.join(cwd, name))
    subprocess.run([lexctl, f"setopt server {server}", f"setopt dime {dime}"] + LOGIN +
                   ["setopt soapdebug cap", COMMAND.format("cap")], cwd=cwd, check=True,
                   stdout=subprocess.DEVNULL)
    os.remove(os.path.join(cwd, "cap.out.html"))
    with open(log, "rb") as f:
        head = f.read(1 << 16).partition(b"\r\n\r\n")[0].decode()
    headers = [line for line in head.split("\r\n")[1:]
               if line.split(":")[0].lower() in ("content-type", "soapaction", "content-length")]
    return headers, log, len(head) + 4


def measure(lexctl, lexsim, size, modes, rows):
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-doc-", dir=os.environ.get("TMPDIR")) as cwd:
        image = make_document(os.path.join(cwd, "doc.html"), size)
        with Lexsim(lexsim, cwd=cwd) as sim:
            expected = write_expected(lexctl, cwd, sim.server, image)
            if not expected:
                raise RuntimeError("lexsim's translation of the small page lost its image")
            for dime in modes:
                headers, log, body_at = capture(lexctl, cwd, sim.server, dime)
                # Streamed from the log, as lexctl3 streams it: too large to read into memory first.
                curl = ["curl", "-s", "-f", "-o", "reply.bin", "-X", "POST", "-T", "-", "-H", "Expect:",
                        "-H", "Transfer-Encoding:"]
                for h in headers:
                    curl += ["-H", h]
                curl.append(sim.url)
                for layer in ("gsoap", "windows"):
                    with open(log, "rb") as body:
                        body.seek(body_at)
                        ref, _ = run_measured(curl, cwd, stdin=body)
                    os.remove(os.path.join(cwd, "reply.bin"))
                    took, rss = run_measured([lexctl, f"setopt server {sim.server}", f"setopt commslayer {layer}",
                                              f"setopt dime {dime}"] + LOGIN + [COMMAND.format("out")], cwd)
                    out = os.path.join(cwd, "out.out.html")
                    same = filecmp.cmp(out, expected, shallow=False)
                    os.remove(out)
                    rows.append((size, layer, dime, took, ref, rss, same))
                os.remove(log)


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    sizes = [int(float(sys.argv[3]) * (1 << 20))] if len(sys.argv) > 3 else [100 << 20, 1 << 30]
    rows = []
    for size in sizes:
        measure(lexctl, lexsim, size, ("false", "true") if size <= INLINE_LIMIT else ("true",), rows)
    print("tran -indata of a large HTML document against curl posting lexctl3's own request to the same lexsim; "
          "one run each")
    for size, layer, dime, took, ref, rss, same in rows:
        mode = "DIME" if dime == "true" else "inline"
        target = " (targets: at most 1.2 times curl, under 100 MB)" if dime == "true" else \
                 " (target: at most 1.5 times curl)"
        print(f"{size / (1 << 20):.0f} MB, lexctl3 {layer} layer, {mode}: {took:.1f} s against curl {ref:.1f} s = "
              f"{took / ref:.2f} times; peak memory {rss / (1 << 20):.0f} MB = {rss / size:.2f} times the "
              f"document{target}; the file written {'is' if same else 'IS NOT'} the translation")
    return 0


if __name__ == "__main__":
    sys.exit(main())
