#!/usr/bin/env python3
"""Dictionary transfer: dimport of a 50 MB source file and dexport of the same
dictionary, lexctl3 (each comms layer) side by side with curl posting the same
SOAP requests, captured from lexctl3, to the same lexsim. Also the peak
resident memory of lexctl3 and whether the exported source holds exactly the
imported entries."""
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


def run_lexctl(lexctl, cwd, server, layer, command):
    """Elapsed seconds and peak resident kilobytes of one lexctl3 command."""
    args = [lexctl, f"setopt server {server}", f"setopt commslayer {layer}"] + LOGIN + [command]
    start = time.perf_counter()
    proc = subprocess.Popen(args, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    out = proc.stdout.read().decode("utf-8", "replace")
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    if status != 0 or "FAILED" in out or "EXCEPTION" in out or "Done." not in out and "Written" not in out:
        raise RuntimeError(f"{command}: {out[-2000:]}")
    return elapsed, usage.ru_maxrss


def capture(lexctl, cwd, server, command, prefix):
    """The request lexctl3 sends for command: its headers and body."""
    subprocess.run([lexctl, f"setopt server {server}", "setopt commslayer gsoap", f"setopt soapdebug {prefix}"]
                   + LOGIN + [command], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
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
            imp = capture(lexctl, cwd, sim.server, import_cmd, "imp")
            exp = capture(lexctl, cwd, sim.server, export_cmd, "exp")
            times = {}
            rss = []
            for _ in range(ROUNDS):
                for name, cmd, request in (("import", import_cmd, imp), ("export", export_cmd, exp)):
                    times.setdefault((name, "curl"), []).append(
                        run_curl(cwd, sim.url, request, os.path.join(cwd, f"curl-{name}.xml")))
                    for layer in ("gsoap", "windows"):
                        elapsed, peak = run_lexctl(lexctl, cwd, sim.server, layer, cmd)
                        times.setdefault((name, layer), []).append(elapsed)
                        rss.append(peak)
        finally:
            sim.stop()
        same = entries(os.path.join(cwd, "exported.native")) == entries(os.path.join(cwd, "big.txt"))
    print(f"source: {size / (1 << 20):.1f} MB, {count:,} entries; {ROUNDS} rounds, medians")
    for name in ("import", "export"):
        curl = median(times[name, "curl"])
        print(f"{name}: curl {curl:.2f} s", end="")
        for layer in ("gsoap", "windows"):
            t = median(times[name, layer])
            print(f"; lexctl3 {layer} {t:.2f} s = {t / curl:.2f} of curl", end="")
        print(" (target: at most 1.50)")
    peak = max(rss) * 1024
    print(f"peak resident memory of lexctl3: {peak / (1 << 20):.0f} MB = {peak / size:.2f} times the file "
          "(target: at most 3)")
    print(f"exported source holds exactly the imported entries: {'yes' if same else 'NO'}")
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
