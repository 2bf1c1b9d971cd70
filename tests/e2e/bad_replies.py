#!/usr/bin/env python3
"""Bad replies end one command with a single "FAILED: ..." line, leave the
settings as they were, and the next command works; on both comms layers.
Replies in shapes lexsim never sends are read as they are meant: the
service's fault written by other SOAP stacks, and a document with a flood of
attachments of one name."""
import hashlib
import hmac
import os
import subprocess
import sys
import tempfile
import time

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


def run_script(lexctl, cwd, lines):
    with open(os.path.join(cwd, "canned.lex"), "w") as f:
        f.write("\n".join(lines) + "\n")
    return subprocess.run([lexctl, "--script", "canned.lex"], cwd=cwd, capture_output=True, text=True,
                          timeout=300, env=dict(os.environ, HOME=cwd))


def licence(token):
    """What the client sends as its licence for admin/admin with session key KEY."""
    password_hash = hmac.new(b"admin", b"admin", hashlib.sha1).hexdigest()
    return "admin " + hmac.new(password_hash.encode(), token.encode(), hashlib.sha1).hexdigest() + " KEY"


def fault_checks(lexctl, cwd, failures):
    """The same fault with the envelope's namespace under any prefix, or none,
    prints the service's detail, and its token signs the next request."""
    from bad_server import FAULT_TOKEN
    for style in ("SOAP-ENV", "soap", "S", "default", "soap12"):
        bad, port = start_bad("fault-" + style)
        try:
            for layer in ("gsoap", "windows"):
                proc = run_script(lexctl, cwd, [
                    f"setopt commslayer {layer}", "setopt timeout 10", "setopt userid admin", "setopt passwd admin",
                    "setopt sesskey KEY", f"setopt server http://127.0.0.1:{port}", "@echo FIRST",
                    "@test -string one", "@echo TOKEN", "@setopt sesstoken", "@echo SECOND", "@test -string two"])
                want = ("FIRST \nString:       one\n\n"
                        "SOAP EXCEPTION:\nErr: NOT_FOUND\nMsg: no such dictionary\n"
                        f"Warnings:\n   licence = {licence('')}\n\n"
                        "TOKEN \n"
                        f"setopt sesstoken    {FAULT_TOKEN}\n"
                        "SECOND \nString:       two\n\n"
                        "SOAP EXCEPTION:\nErr: NOT_FOUND\nMsg: no such dictionary\n"
                        f"Warnings:\n   licence = {licence(FAULT_TOKEN)}\n\n")
                got = proc.stdout[proc.stdout.find("FIRST"):]
                if got != want or proc.returncode != 0 or proc.stderr:
                    failures.append(f"fault-{style} {layer}: printed\n{got}\nexpected\n{want}{proc.stderr[-500:]}")
                print(f"fault-{style} {layer}: {'ok' if got == want else 'wrong'}")
        finally:
            bad.kill()
            bad.wait()


def attachment_checks(lexctl, cwd, failures):
    """99,995 attachments of one name are one file, written in moments, with
    the last one's bytes; names that point elsewhere stay inside the folder."""
    outside = "/tmp/lexctl3-bad-absolute.txt"
    bad, port = start_bad("attachments")
    try:
        for layer in ("gsoap", "windows"):
            folder = os.path.join(cwd, layer)
            os.mkdir(folder)
            if os.path.exists(outside):
                os.unlink(outside)
            started = time.monotonic()
            proc = run_script(lexctl, cwd, [
                f"setopt commslayer {layer}", "setopt timeout 60", "setopt userid admin", "setopt passwd admin",
                f"setopt server http://127.0.0.1:{port}", "@echo CALL", f'@tran "" x -outdata {layer}/out.txt'])
            seconds = time.monotonic() - started
            want = ("CALL \n"
                    f"Output File:  {layer}/out.txt\n"
                    "Input Encoding Used: UTF-8\n"
                    f"Output File (text): {layer}/out.txt (3 bytes)\n"
                    f"Output Attachment (text/plain): {layer}/out.txt_files/escape.txt (1 bytes)\n"
                    f"Output Attachment (text/plain): {layer}/out.txt_files/lexctl3-bad-absolute.txt (1 bytes)\n"
                    "Invalid attachment name: ..\n"
                    f"Output Attachment (text/plain): {layer}/out.txt_files/inner.txt (1 bytes)\n"
                    f"Output Attachment (text/plain): {layer}/out.txt_files/empty.txt (0 bytes)\n"
                    "Attachment name given 99995 times, the last one is saved: same.txt\n"
                    f"Output Attachment (text/plain): {layer}/out.txt_files/same.txt (4 bytes)\n")
            got = proc.stdout[proc.stdout.find("CALL"):]
            where = f"attachments {layer}"
            if got != want or proc.returncode != 0 or proc.stderr:
                failures.append(f"{where}: printed\n{got[:3000]}\nexpected\n{want}{proc.stderr[-500:]}")
            saved = os.path.join(folder, "out.txt_files")
            files = sorted(os.listdir(saved)) if os.path.isdir(saved) else []
            if files != ["empty.txt", "escape.txt", "inner.txt", "lexctl3-bad-absolute.txt", "same.txt"]:
                failures.append(f"{where}: files {files}")
            elif open(os.path.join(saved, "same.txt")).read() != "last":
                failures.append(f"{where}: same.txt is not the last attachment of that name")
            if os.path.exists(outside) or os.path.exists(os.path.join(folder, "escape.txt")):
                failures.append(f"{where}: an attachment was written outside its folder")
            # Parsing the 7 MB reply takes a second or two, a sanitizer build a few more.
            if seconds > 30:
                failures.append(f"{where}: took {seconds:.1f} seconds")
            print(f"{where}: {seconds:.1f} s")
    finally:
        bad.kill()
        bad.wait()


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
        fault_checks(lexctl, cwd, failures)
        attachment_checks(lexctl, cwd, failures)
    return report("bad_replies", failures, checks=len(MODES) * 2 + 5 * 2 + 2)


if __name__ == "__main__":
    sys.exit(main())
