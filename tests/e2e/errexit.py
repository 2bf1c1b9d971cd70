#!/usr/bin/env python3
"""lexctl3 --errexit: one failure of each kind on the main thread ends the run
after its report with status 2, and the other threads are stopped; a failed
thread makes the status 2 too and is named on standard error."""
import sys
import tempfile

from harness import LOGIN, REFUSED, Checks, Lexsim, run, write

FAULT = "SOAP EXCEPTION:\nErr: ACCESS_DENIED\nMsg: Fault requested by select key\n"
SPIN = "proc begin spin\nsleep 100\nproc end\nloop spin count 1000\n"
# kind, script (each ends with "echo after"), its other files, stdout, stderr
CASES = [
    ("argument", "threads start spinner spin.lex\ndcreate -type bogus", {"spin.lex": SPIN},
     "> threads start spinner spin.lex\n> dcreate -type bogus\nInvalid type: bogus. See help.\n", ""),
    ("file", "text -file nosuch.txt", {}, "> text -file nosuch.txt\nUnable to open file: nosuch.txt\n", ""),
    ("transport", "setopt server http://127.0.0.1:1\ntest", {},
     f"> setopt server http://127.0.0.1:1\n> test \n\nFAILED: SOAP_TCP_ERROR (28): {REFUSED}\n", ""),
    ("fault", "test -select sim.fault=ACCESS_DENIED", {},
     "> test -select sim.fault=ACCESS_DENIED\nSelectKeys:   sim.fault=ACCESS_DENIED\n\n" + FAULT, ""),
    ("error array", "test -reqgroup 42 -select sim.fault=BUSY", {},
     "> test -reqgroup 42 -select sim.fault=BUSY\nSelectKeys:   sim.fault=BUSY\n\nSOAP EXCEPTION:\n"
     "Err: BUSY\nMsg: Fault requested by select key\nWarnings:\n   reqgroup = 1\n\n", ""),
    ("unknown command", "nosuch", {}, "> nosuch \nUnrecognized command: nosuch\n", ""),
    ("thread", "threads start worker worker.lex\nthreads joinall",
     {"worker.lex": "test -select sim.fault=ACCESS_DENIED\n"},
     "> threads start worker worker.lex\n> threads joinall\n> echo after\nafter \n",
     "Thread worker failed: SOAP EXCEPTION: Err: ACCESS_DENIED Msg: Fault requested by select key\n"),
]


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    check = Checks("errexit")
    with tempfile.TemporaryDirectory(prefix="lexctl3-errexit-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        for kind, script, files, stdout, stderr in CASES:
            for name, body in files.items():
                write(cwd, name, body)
            proc = run(lexctl, cwd, ["@setopt commslayer gsoap", f"@setopt server {sim.server}",
                                     *("@" + line for line in LOGIN), script, "echo after"], errexit=True)
            check((proc.returncode, proc.stdout, proc.stderr) == (2, stdout, stderr),
                  f"{kind}: status {proc.returncode}\n{proc.stdout}{proc.stderr}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
