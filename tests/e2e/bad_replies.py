#!/usr/bin/env python3
"""Bad replies end one command with a single "FAILED: ..." line, leave the
settings as they were, and the next command works; on both comms layers."""
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(__file__))
from harness import report  # noqa: E402
from run_case import Lexsim  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
# mode: text the FAILED line must contain (per layer where they differ)
NOT_SOAP = "The reply is not a complete SOAP message"
MODES = {
    "notxml": {"gsoap": NOT_SOAP, "windows": NOT_SOAP},
    "truncated": {"gsoap": NOT_SOAP, "windows": NOT_SOAP},
    "garbage": {"gsoap": "max message length exceeded", "windows": "reply too large"},
    "silent": {"gsoap": "timed out", "windows": "Operation too slow"},
    "drip": {"gsoap": "Operation too slow", "windows": "Operation too slow"},
    "reset": {"gsoap": NOT_SOAP, "windows": "Connection reset"},
    "http500": {"gsoap": "Internal Server Error (500)", "windows": "Internal Server Error (500)"},
}


def start_bad(mode):
    proc = subprocess.Popen([sys.executable, os.path.join(HERE, "bad_server.py"), mode],
                            stdout=subprocess.PIPE, text=True)
    port = int(proc.stdout.readline())
    return proc, port


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    failures = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-bad-") as cwd:
        sim = Lexsim(lexsim, [], cwd)
        try:
            for mode, expected in MODES.items():
                bad, port = start_bad(mode)
                try:
                    for layer in ("gsoap", "windows"):
                        script = [f"setopt commslayer {layer}", "setopt timeout 3", "setopt userid admin",
                                  "setopt passwd admin", f"setopt server http://127.0.0.1:{port}",
                                  "@echo SETTINGS-BEFORE", "@setopt", "@echo CALL", "test -string bad",
                                  "@echo SETTINGS-AFTER", "@setopt", "@echo NEXT",
                                  f"setopt server {sim.server}", "test -string good"]
                        with open(os.path.join(cwd, "bad.lex"), "w") as f:
                            f.write("\n".join(script) + "\n")
                        proc = subprocess.run([lexctl, "--script", "bad.lex"], cwd=cwd, capture_output=True,
                                              text=True, timeout=180,
                                              # a small reply limit keeps the endless reply short
                                              env=dict(os.environ, HOME=cwd, LEXCTL3_MAX_REPLY_MB="8"))
                        out = proc.stdout
                        before = out.split("SETTINGS-BEFORE")[1].split("CALL")[0]
                        call = out.split("CALL")[1].split("SETTINGS-AFTER")[0]
                        after = out.split("SETTINGS-AFTER")[1].split("NEXT")[0]
                        nxt = out.split("NEXT")[1]
                        failed = [line for line in call.splitlines() if line.startswith("FAILED")]
                        where = f"{mode} {layer}"
                        if len(failed) != 1 or "EXCEPTION" in call or "OK." in call.splitlines():
                            failures.append(f"{where}: expected one FAILED line:\n{call}")
                        elif expected[layer] not in failed[0]:
                            failures.append(f"{where}: {failed[0]!r} lacks {expected[layer]!r}")
                        if before != after:
                            failures.append(f"{where}: settings changed:\n{before}\n---\n{after}")
                        if "OK." not in nxt:
                            failures.append(f"{where}: the next command failed:\n{nxt}")
                        if proc.returncode != 0 or proc.stderr:
                            failures.append(f"{where}: status {proc.returncode}, stderr {proc.stderr[-500:]}")
                        print(f"{where}: {failed[0] if failed else '(none)'}")
                finally:
                    bad.kill()
                    bad.wait()
        finally:
            sim.stop()
    return report("bad_replies", failures, checks=len(MODES) * 2)


if __name__ == "__main__":
    sys.exit(main())
