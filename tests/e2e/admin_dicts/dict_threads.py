#!/usr/bin/env python3
"""Eight interpreter threads create and copy dictionaries at once; lastdid on
the main thread must then list every dictionary the threads were told about,
each exactly once, newest first. Under ThreadSanitizer this checks the
created-DID list and the LAST variable that all threads share."""
import os
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from harness import report  # noqa: E402
from run_case import Lexsim  # noqa: E402

THREADS = 8
ROUNDS = 5  # each makes one dictionary and one copy


def main():
    lexctl, lexsim, layer = sys.argv[1], sys.argv[2], sys.argv[3]
    with tempfile.TemporaryDirectory(prefix="lexctl3-dicts-") as cwd:
        with open(os.path.join(cwd, "job.lex"), "w") as f:
            f.write("@tee out_{{TNAME}}.txt\n"
                    "proc begin make\n"
                    "dcreate -subject {{TNAME}}\n"
                    "dcopy LAST\n"
                    "proc end\n"
                    f"loop make count {ROUNDS}\n")
        with open(os.path.join(cwd, "main.lex"), "w") as f:
            f.write(f"setopt commslayer {layer}\nsetopt userid admin\nsetopt passwd admin\n")
            f.write("".join(f"threads start t{i} job.lex\n" for i in range(THREADS)))
            f.write("threads joinall\nlastdid\n")
        sim = Lexsim(lexsim, [], cwd)
        try:
            proc = subprocess.run([lexctl, f"@setopt server {sim.server}", "--script", "main.lex"], cwd=cwd,
                                  capture_output=True, text=True, timeout=600, env=dict(os.environ, HOME=cwd))
        finally:
            sim.stop()
        failures = []
        if proc.returncode != 0 or proc.stderr:
            failures.append(f"status {proc.returncode}\n{proc.stdout[-2000:]}\n{proc.stderr[-4000:]}")
        told = []
        for i in range(THREADS):
            path = os.path.join(cwd, f"out_t{i}.txt")
            text = open(path).read() if os.path.exists(path) else ""
            made = re.findall(r"^Dic DID:      (\d+)$", text, re.M)
            copies = re.findall(r"^Copy DID:     (\d+)$", text, re.M)
            if len(made) != ROUNDS or len(copies) != ROUNDS or "FAILED" in text or "EXCEPTION" in text:
                failures.append(f"t{i}: {len(made)} made, {len(copies)} copied\n{text[-600:]}")
            told += made + copies
        rows = re.findall(r"^LAST(?:-(\d+))?\s+(\d+)\s+QZ-EJ\s+USER\s+(\w+)$", proc.stdout, re.M)
        listed = [str(int(did)) for _, did, _ in rows]
        if sorted(listed) != sorted(told) or len(set(listed)) != len(listed):
            failures.append(f"lastdid lists {len(listed)} DIDs ({len(set(listed))} distinct), "
                            f"threads made {len(told)}\n{proc.stdout[-3000:]}")
        distances = [int(n or 0) for n, _, _ in rows]
        if distances != list(range(len(rows))):
            failures.append("lastdid rows are not numbered LAST, LAST-1, ... in order")
        operations = [op for _, _, op in rows]
        if operations.count("CREATE_DICTIONARY") != THREADS * ROUNDS or \
                operations.count("COPY_DICTIONARY") != THREADS * ROUNDS:
            failures.append(f"operations: {operations}")
    return report("dict_threads", failures, checks=4)


if __name__ == "__main__":
    sys.exit(main())
