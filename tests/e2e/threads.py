#!/usr/bin/env python3
"""Eight interpreter threads, each with its own client state copied from the
main thread, call TestEcho and create and copy dictionaries at once on one
comms layer. Every call must come back OK, and lastdid on the main thread must
then list every dictionary the threads were told about, each exactly once,
newest first. Under ThreadSanitizer this checks the shared parts (variables,
registry, output lock, the created-DID list) for races."""
import re
import sys
import tempfile

from harness import LOGIN, Checks, Lexsim, read, run, write

THREADS, CALLS, ROUNDS = 8, 600, 5  # each round makes one dictionary and one copy


def main():
    lexctl, lexsim, layer = sys.argv[1:4]
    check = Checks(f"threads.{layer}")
    with tempfile.TemporaryDirectory(prefix="lexctl3-threads-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        write(cwd, "job.lex", "@tee out_{{TNAME}}.txt\nproc begin echo\ntest -string {{TNAME}}-{{UNIQ}} -number {{UNIQ}}\n"
              f"proc end\nproc begin make\ndcreate -subject {{{{TNAME}}}}\ndcopy LAST\nproc end\n"
              f"loop echo count {CALLS}\nloop make count {ROUNDS}\n")
        proc = run(lexctl, cwd, [f"setopt server {sim.server}", f"setopt commslayer {layer}", *LOGIN,
                                 *(f"threads start t{i} job.lex" for i in range(THREADS)), "threads joinall", "lastdid"],
                   timeout=600)
        check(proc.returncode == 0 and not proc.stderr, f"status {proc.returncode}\n{proc.stderr[-4000:]}")
        told = []
        for i in range(THREADS):
            text = read(cwd, f"out_t{i}.txt") or ""
            made = re.findall(r"^Dic DID:      (\d+)$", text, re.M)
            copies = re.findall(r"^Copy DID:     (\d+)$", text, re.M)
            check(text.count("OK.\n") == CALLS and len(made) == len(copies) == ROUNDS and "FAILED" not in text
                  and "EXCEPTION" not in text, f"t{i}: {text.count('OK.')} of {CALLS} calls OK, {len(made)} made, "
                  f"{len(copies)} copied\n{text[-600:]}")
            told += made + copies
        rows = re.findall(r"^LAST(?:-(\d+))?\s+(\d+)\s+QZ-EJ\s+USER\s+(\w+)$", proc.stdout, re.M)
        listed = [str(int(did)) for _, did, _ in rows]
        check(sorted(listed) == sorted(told) and len(set(listed)) == len(listed),
              f"lastdid lists {len(listed)} DIDs ({len(set(listed))} distinct), threads made {len(told)}")
        check([int(n or 0) for n, _, _ in rows] == list(range(len(rows))), "lastdid rows not LAST, LAST-1, ...")
        operations = [op for _, _, op in rows]
        check(operations.count("CREATE_DICTIONARY") == operations.count("COPY_DICTIONARY") == THREADS * ROUNDS,
              f"operations: {operations}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
