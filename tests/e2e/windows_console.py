#!/usr/bin/env python3
"""What lexctl3.exe does only on Windows: UTF-16 to a console and UTF-8 to a
pipe, console input read as UTF-8, the CTRL-C notice, scripts without a
signature read in the ANSI code page, and COMSPEC for a bare "shell"."""
import os
import subprocess
import sys
import tempfile

from harness import Checks, Terminal, command, write


def main():
    lexctl = sys.argv[1]
    check = Checks("windows_console")
    with tempfile.TemporaryDirectory(prefix="lexctl3-win-") as cwd:
        # English Windows: code page 1252.
        env = dict(os.environ, HOME=cwd, LANG="en_US.UTF-8", LC_ALL="en_US.UTF-8")
        env.pop("COMSPEC", None)

        # The console's own line editing hands over UTF-16, and text written
        # to the console as UTF-8 bytes would come out as code-page letters.
        s = Terminal(command(lexctl), cwd, env, timeout=60)
        try:
            s.expect("> ")
            for typed, shown in (("echo Grüße 世界\r", "Grüße 世界 "), ("\x03", "CTRL-C interrupt ignored."),
                                 ("echo still alive\r", "still alive ")):
                s.send(typed)
                s.expect(shown)
            s.send("exit\r")
            status, _ = s.close()
            check(status == 0, f"console session ended with status {status}")
        except AssertionError as e:
            s.close()
            check(False, str(e))

        def script_output(body, extra_env=()):
            write(cwd, "run.lex", body)
            proc = subprocess.run(command(lexctl) + ["--script", "run.lex"], cwd=cwd, env=dict(env, **dict(extra_env)),
                                  capture_output=True, timeout=120)
            return proc.stdout

        # A pipe gets the UTF-8 bytes; a script with a signature is UTF-8, one
        # without it is in the code page (0xE9 is "é" in 1252).
        for body, want in ((b"\xef\xbb\xbfecho caf\xc3\xa9 \xe4\xb8\x96\n", "café 世"), (b"echo caf\xe9\n", "café")):
            got = script_output(body)
            check(got == (want + " \n").encode(), f"script {body!r} printed {got!r}")

        # A bare "shell" starts the program COMSPEC names.
        got = script_output(b"shell\necho back\n", {"COMSPEC": "C:\\windows\\system32\\hostname.exe"})
        check(got.endswith(b"back \n") and len(got.split(b"\n")) >= 3, f"shell with COMSPEC printed {got!r}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
