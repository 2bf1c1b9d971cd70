#!/usr/bin/env python3
"""What lexctl3.exe does only on Windows: UTF-16 to a console and UTF-8 to a
pipe, console input read as UTF-8, the CTRL-C notice, scripts without a
signature read in the ANSI code page, and COMSPEC for a bare "shell"."""
import os
import re
import subprocess
import sys
import tempfile

from harness import Checks, Terminal, command, write

# Wine's console draws on the tty with cursor movements: a blank is "erase,
# one right", and each character is wrapped in hide and show cursor.
CURSOR = re.compile(rb"\x1b\[\?25[lh]|\x1b\[K")
RIGHT = re.compile(rb"\x1b\[(\d*)C")


class Console(Terminal):
    def expect(self, text):
        want = text.encode()
        while True:
            self.seen = RIGHT.sub(lambda m: b" " * int(m.group(1) or 1), CURSOR.sub(b"", self.seen))
            if want in self.seen:
                break
            chunk = self.read()
            if not chunk:
                raise AssertionError(f"no {text!r} in time; screen so far:\n{self.seen.decode(errors='replace')}")
            self.seen += chunk
        self.seen = self.seen[self.seen.index(want) + len(want):]


def main():
    lexctl = sys.argv[1]
    check = Checks("windows_console")
    with tempfile.TemporaryDirectory(prefix="lexctl3-win-") as cwd:
        env = dict(os.environ, HOME=cwd)

        # Typed text reaches the program as UTF-8 and comes back as UTF-16:
        # UTF-8 bytes written to the console would show as code-page letters.
        # Enter is CR to the console: the tty must not make it LF.
        s = Console(["sh", "-c", 'stty -icrnl && exec "$@"', "sh", *command(lexctl)], cwd, env, timeout=30)
        try:
            for typed, shown in (("", "> "), ('setvar g "Grüße 世界"\r', "> "), ("echo [{{g}}]\r", "[Grüße 世界]"),
                                 ("\x03", "CTRL-C interrupt ignored."), ("echo [{{g}}]\r", "[Grüße 世界]")):
                s.send(typed)
                s.expect(shown)
            s.send("exit\r")
            status, _ = s.close()
            check(status == 0, f"console session ended with status {status}")
        except AssertionError as e:
            s.close()
            check(False, str(e))

        def script_output(body, comspec=None):
            write(cwd, "run.lex", body)
            argv = command(lexctl) + ["--script", "run.lex"]
            if comspec:  # Wine sets COMSPEC itself for a program started from Linux
                exe = "Z:" + os.path.abspath(lexctl).replace("/", "\\")
                argv = command("cmd") + ["/c", f"set COMSPEC={comspec}&& {exe} --script run.lex"]
            return subprocess.run(argv, cwd=cwd, env=env, capture_output=True, timeout=120).stdout

        # A pipe gets the UTF-8 bytes; a script with a signature is UTF-8, one
        # without it is in the code page (0xE9 is "é" in 1252).
        for body, want in ((b"\xef\xbb\xbfecho caf\xc3\xa9 \xe4\xb8\x96\n", "café 世"), (b"echo caf\xe9\n", "café")):
            got = script_output(body)
            check(got == f"> echo {want}\n{want} \n".encode(), f"script {body!r} printed {got!r}")

        # A bare "shell" runs COMSPEC's program (which cmd.exe would not be).
        got = script_output(b"shell\necho back\n", "C:\\windows\\system32\\hostname.exe")
        check(got.startswith(b"> shell \n") and b"hostname" in got and b"Microsoft" not in got and
              got.endswith(b"> echo back\nback \n"), f"shell with COMSPEC printed {got!r}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
