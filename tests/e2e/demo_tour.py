#!/usr/bin/env python3
"""The README's main job: examples/demo.lex, run as scripts/demo.sh runs it,
must take its whole tour against lexsim without a failure."""
import glob
import os
import shutil
import subprocess
import sys
import tempfile

from harness import Checks, Lexsim, read

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    check = Checks("demo_tour")
    with tempfile.TemporaryDirectory(prefix="lexctl3-demo-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        for name in glob.glob(os.path.join(EXAMPLES, "*")):
            shutil.copy(name, cwd)
        proc = subprocess.run([lexctl, "--errexit", f"@setvar server {sim.server}", "--script", "demo.lex"],
                              cwd=cwd, capture_output=True, text=True, timeout=120, env=dict(os.environ, HOME=cwd))
        bad = [w for w in ("FAILED", "EXCEPTION", "Invalid", "Unable", "Errors occurred", "Unknown command")
               if w in proc.stdout]
        check(proc.returncode == 0 and not bad and not proc.stderr,
              f"status {proc.returncode}, {bad}\n{proc.stdout[-3000:]}\n{proc.stderr[-2000:]}")
        check(len((read(cwd, "tour-notes.txn.txt") or "").splitlines()) == 2, "tfile wrote no two lines")
        check(all(w in (read(cwd, "alice-travel.native") or "") for w in ("ticket", "station", "train")), "export")
        check("ucreate alice" in (read(cwd, "alice_udump.txt") or ""), "udump")
        check("The worker left a message: hello" in (read(cwd, "demo-output.txt") or ""), "tee")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
