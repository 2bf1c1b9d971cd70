#!/usr/bin/env python3
"""udump and the replay of its script for a user who owns 100 dictionaries of
1,000 entries each: the time each takes and the requests each sends (counted
in lexsim's request log). Reference in the same run: the plain export and
import of the same dictionaries with dexport/dimport, which is the floor of
what a dump and a replay must move.

Usage: udump_replay.py LEXCTL3 LEXSIM [DICTIONARIES [ENTRIES]]"""
import os
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from run_case import Lexsim  # noqa: E402


def run(lexctl, cwd, server, body):
    with open(os.path.join(cwd, "job.lex"), "w", encoding="utf-8") as f:
        f.write(f"setopt server {server}\nsetopt userid admin\nsetopt passwd admin\n"
                "setopt console none\n" + body)
    start = time.perf_counter()
    subprocess.run([lexctl, "--script", "job.lex"], cwd=cwd, check=True, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def requests(log):
    """Lines "STAMP PEER OPERATION USER OUTCOME" of lexsim's log."""
    with open(log, encoding="utf-8", errors="replace") as f:
        return sum(1 for line in f if len(line.split()) == 5 and line.split()[2][0].isupper())


def main():
    lexctl, lexsim = (os.path.abspath(p) for p in sys.argv[1:3])
    dics = int(sys.argv[3]) if len(sys.argv) > 3 else 100
    entries = int(sys.argv[4]) if len(sys.argv) > 4 else 1000
    with tempfile.TemporaryDirectory() as cwd:
        log = os.path.join(cwd, "requests.log")
        sim = Lexsim(lexsim, ["--log", log], cwd)
        try:
            with open(os.path.join(cwd, "words.native"), "w", encoding="utf-8") as f:
                for i in range(entries):
                    f.write(f"word{i} = 訳語{i}\n")
            setup = "ucreate big -userPass pw\n" + "".join(
                f"dcreate -runas big -eid QZ-EJ -type USER -subject s{i}\n"
                "dimport -runas big LAST words.native\n" for i in range(dics))
            run(lexctl, cwd, sim.server, setup)

            def measured(body):
                before = requests(log)
                secs = run(lexctl, cwd, sim.server, body)
                return secs, requests(log) - before

            dump = measured("udump big -target copy\n")
            replay = measured("read big_udump.txt\n")
            first = 10001
            ref_body = "".join(f"dexport {first + i} ref_{i}.native\n" for i in range(dics))
            ref_out = measured(ref_body)
            ref_body = "ucreate refuser -userPass pw\n" + "".join(
                f"dcreate -runas refuser -eid QZ-EJ -type USER -subject s{i}\n"
                f"dimport -runas refuser LAST -replace ref_{i}.native\n" for i in range(dics))
            ref_in = measured(ref_body)
        finally:
            sim.stop()
    print(f"udump of {dics} dictionaries x {entries} entries:")
    print(f"  udump          {dump[0]:7.2f} s  {dump[1]:6d} requests")
    print(f"  replay (read)  {replay[0]:7.2f} s  {replay[1]:6d} requests")
    print(f"  dexport only   {ref_out[0]:7.2f} s  {ref_out[1]:6d} requests  (udump / dexport = {dump[0] / ref_out[0]:.2f})")
    print(f"  dimport only   {ref_in[0]:7.2f} s  {ref_in[1]:6d} requests  (replay / dimport = {replay[0] / ref_in[0]:.2f})")


if __name__ == "__main__":
    main()
