#!/usr/bin/env python3
"""Eight interpreter threads call TestEcho at once, each with its own client
state copied from the main thread, on one comms layer. Every call must come
back OK; under ThreadSanitizer this also checks the shared parts (variables,
registry, output lock) for races."""
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(__file__))
from harness import report  # noqa: E402
from run_case import Lexsim  # noqa: E402

THREADS = 8
CALLS = 600


def main():
    lexctl, lexsim, layer = sys.argv[1], sys.argv[2], sys.argv[3]
    with tempfile.TemporaryDirectory(prefix="lexctl3-threads-") as cwd:
        with open(os.path.join(cwd, "job.lex"), "w") as f:
            f.write("@tee out_{{TNAME}}.txt\n"
                    "proc begin echo\n"
                    "test -string {{TNAME}}-{{UNIQ}} -number {{UNIQ}}\n"
                    "proc end\n"
                    f"loop echo count {CALLS}\n")
        with open(os.path.join(cwd, "main.lex"), "w") as f:
            f.write(f"setopt commslayer {layer}\nsetopt userid admin\nsetopt passwd admin\n")
            f.write("".join(f"threads start t{i} job.lex\n" for i in range(THREADS)))
            f.write("threads joinall\necho all joined\n")
        sim = Lexsim(lexsim, [], cwd)
        try:
            proc = subprocess.run([lexctl, f"@setopt server {sim.server}", "--script", "main.lex"], cwd=cwd,
                                  capture_output=True, text=True, timeout=600, env=dict(os.environ, HOME=cwd))
        finally:
            sim.stop()
        failures = []
        if proc.returncode != 0 or "all joined" not in proc.stdout or proc.stderr:
            failures.append(f"status {proc.returncode}\n{proc.stdout[-2000:]}\n{proc.stderr[-4000:]}")
        for i in range(THREADS):
            path = os.path.join(cwd, f"out_t{i}.txt")
            text = open(path).read() if os.path.exists(path) else ""
            if text.count("OK.\n") != CALLS or "FAILED" in text or "EXCEPTION" in text:
                failures.append(f"t{i}: {text.count('OK.')} of {CALLS} calls OK\n{text[-600:]}")
    return report("client_threads", failures, checks=THREADS)


if __name__ == "__main__":
    sys.exit(main())
