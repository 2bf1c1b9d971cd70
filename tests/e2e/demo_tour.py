#!/usr/bin/env python3
"""The README's main job: examples/demo.lex, run as scripts/demo.sh runs it,
must take its whole tour against lexsim without a failure."""
import glob
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(__file__))
from harness import report  # noqa: E402
from run_case import Lexsim  # noqa: E402

EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples")


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    failures = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-demo-") as cwd:
        for name in glob.glob(os.path.join(EXAMPLES, "*")):
            shutil.copy(name, cwd)
        sim = Lexsim(lexsim, [], cwd)
        try:
            proc = subprocess.run([lexctl, "--errexit", f"@setvar server {sim.server}", "--script", "demo.lex"],
                                  cwd=cwd, capture_output=True, text=True, timeout=120,
                                  env=dict(os.environ, HOME=cwd))
        finally:
            sim.stop()
        out = proc.stdout
        bad = [w for w in ("FAILED", "EXCEPTION", "Invalid", "Unable", "Errors occurred", "Unknown command") if w in out]
        if proc.returncode != 0 or bad or proc.stderr:
            failures.append(f"status {proc.returncode}, {bad}\n{out[-3000:]}\n{proc.stderr[-2000:]}")

        def text(name):
            path = os.path.join(cwd, name)
            return open(path, encoding="utf-8-sig").read() if os.path.exists(path) else ""
        if len(text("tour-notes.txn.txt").splitlines()) != 2:
            failures.append("tfile: " + text("tour-notes.txn.txt"))
        export = text("alice-travel.native")
        if not all(w in export for w in ("ticket", "station", "train")):
            failures.append("export: " + export)
        if "ucreate alice" not in text("alice_udump.txt"):
            failures.append("udump: " + text("alice_udump.txt"))
        if "The worker left a message: hello" not in text("demo-output.txt"):
            failures.append("tee: " + text("demo-output.txt")[-500:])
    return report("demo_tour", failures, checks=5)


if __name__ == "__main__":
    sys.exit(main())
