#!/usr/bin/env python3
"""Dictionary transfer: dimport of a 50 MB source file and dexport of the same
dictionary, lexctl3 (each comms layer, data inline as base64 and as DIME
attachments) side by side with curl posting the same SOAP requests, captured
from lexctl3, to the same lexsim. Also the peak resident memory of lexctl3 and
whether the exported source holds exactly the imported entries."""
import os
from statistics import median
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from run_case import Lexsim  # noqa: E402

SIZE = 50 << 20
ROUNDS = 3
LOGIN = ["setopt userid admin", "setopt passwd admin"]


def make_source(path):
    """About SIZE bytes of entries in lexsim's native format, one per line,
    written as lexsim writes them back."""
    filler = "with some more words to make the line as long as a real one"
    with open(path, "w", encoding="utf-8") as f:
        size, i = 0, 0
        while size < SIZE:
            line = f"word{i:08d} = translation {i} of the word {filler} [noun]\n"
            f.write(line)
            size += len(line.encode())
            i += 1
    return i


def run_lexctl(lexctl, cwd, server, layer, dime, command):
    """Elapsed seconds and peak resident kilobytes of one lexctl3 command."""
    # GNU time measures the program alone; a child forked from this script
    # would count the script's own memory from before its exec.
    args = ["/usr/bin/time", "-f", "%M", "-o", "rss.txt", lexctl, f"setopt server {server}",
            f"setopt commslayer {layer}", f"setopt dime {dime}"] + LOGIN + [command]
    start = time.perf_counter()
    proc = subprocess.run(args, cwd=cwd, capture_output=True)
    elapsed = time.perf_counter() - start
    out = proc.stdout.decode("utf-8", "replace")
    if proc.returncode != 0 or "FAILED" in out or "EXCEPTION" in out or "Done." not in out and "Written" not in out:
        raise RuntimeError(f"{command}: {out[-2000:]}")
    return elapsed, int(open(os.path.join(cwd, "rss.txt")).read().split()[-1])


def capture(lexctl, cwd, server, dime, command, prefix):
    """The request lexctl3 sends for command: its headers and body."""
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap", f"setopt dime {dime}",
                    f"setopt soapdebug {prefix}"] + LOGIN + [command], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    raw = open(os.path.join(cwd, f"{prefix}-sent.log"), "rb").read()
    head, _, body = raw.partition(b"\r\n\r\n")
    headers = [line for line in head.decode().split("\r\n")[1:]
               if line.split(":")[0].lower() in ("content-type", "soapaction")]
    path = os.path.join(cwd, f"{prefix}.body")
    with open(path, "wb") as f:
        f.write(body)
    return headers, path


def run_curl(cwd, url, request, output):
    headers, body = request
    args = ["curl", "-sS", "--fail", "-o", output, "--data-binary", "@" + body, url]
    for header in headers:
        args += ["-H", header]
    start = time.perf_counter()
    subprocess.run(args, cwd=cwd, check=True)
    return time.perf_counter() - start


def entries(path):
    with open(path, encoding="utf-8") as f:
        return [line for line in f if line.strip() and not line.startswith("#")]


def main():
    lexctl, lexsim = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="lexctl3-bench-") as cwd:
        count = make_source(os.path.join(cwd, "big.txt"))
        size = os.path.getsize(os.path.join(cwd, "big.txt"))
        sim = Lexsim(lexsim, ["--threads", "2"], cwd)
        try:
            subprocess.run([lexctl, f"setopt server {sim.server}"] + LOGIN + ["dcreate -subject Bench"], cwd=cwd,
                           check=True, stdout=subprocess.DEVNULL)
            import_cmd = "dimport 10001 big.txt -replace"
            export_cmd = "dexport 10001 exported"
            requests = {}
            for dime in ("false", "true"):
                requests["import", dime] = capture(lexctl, cwd, sim.server, dime, import_cmd, f"imp{dime}")
                requests["export", dime] = capture(lexctl, cwd, sim.server, dime, export_cmd, f"exp{dime}")
            times = {}
            rss = {}
            source = entries(os.path.join(cwd, "big.txt"))
            differ = []
            for _ in range(ROUNDS):
                for dime in ("false", "true"):
                    for name, cmd in (("import", import_cmd), ("export", export_cmd)):
                        times.setdefault((name, dime, "curl"), []).append(
                            run_curl(cwd, sim.url, requests[name, dime], os.path.join(cwd, f"curl-{name}.xml")))
                        for layer in ("gsoap", "windows"):
                            elapsed, peak = run_lexctl(lexctl, cwd, sim.server, layer, dime, cmd)
                            times.setdefault((name, dime, layer), []).append(elapsed)
                            rss[name, dime, layer] = max(rss.get((name, dime, layer), 0), peak)
                            if name == "export" and entries(os.path.join(cwd, "exported.native")) != source:
                                differ.append(f"{layer} layer, dime {dime}")
        finally:
            sim.stop()
    print(f"source: {size / (1 << 20):.1f} MB, {count:,} entries; {ROUNDS} rounds, medians; "
          "targets: at most 1.50 of curl, peak memory at most 3 times the file")
    for dime, label in (("false", "inline base64"), ("true", "DIME attachments")):
        for name in ("import", "export"):
            curl = median(times[name, dime, "curl"])
            print(f"{name}, {label}: curl {curl:.2f} s", end="")
            for layer in ("gsoap", "windows"):
                t = median(times[name, dime, layer])
                peak = rss[name, dime, layer] * 1024
                print(f"; {layer} {t:.2f} s = {t / curl:.2f} of curl, {peak / size:.2f} times the file",
                      end="")
            print()
    print("exported source holds exactly the imported entries: " +
          ("yes, in every export" if not differ else "NO: " + ", ".join(differ)))
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
