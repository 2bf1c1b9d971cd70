#!/usr/bin/env python3
"""Drives lexctl3 through a pseudo-terminal, as a person at the console would:
readline editing, completion (commands, their options, file names, setopt
options), history (its file private, and no line with a password in it),
continuation, CTRL-C, and a start after "setopt -save" that still shows output."""
import os
import stat
import subprocess
import sys
import tempfile

from harness import Terminal, read, write

# Lines that carry a password: none may reach the history file.
SECRET_LINES = [
    "setopt passwd hunter2-a",
    "SETOPT SslKeyPass hunter2-b",
    "@ setopt -escaped \\x70asswd hunter2-c",
    "passwd hunter2-d",
    "=Pwhash alice hunter2-e",
    "ucreate bob -USERPASS=hunter2-f -?",
    "echo /userPass hunter2-g",
]
# What is typed, and what must then appear, in order.
STEPS = [
    ("echo hi\r", "hi \r\n", "> "),  # readline waits for the next line
    ("\x03", "CTRL-C interrupt ignored."), ("echo still alive\r", "still alive \r\n"),
    ("ech\t", "echo "), ("completed\r", "completed \r\n"),
    ("setopt cons\t", "console "), ("\r", "setopt console      all"),
    ("echo con\\\r", "_ "), ("tinued\r", "continued \r\n"),
    ("setvar v substituted\r",), ("echo {{v}}\r", "> echo substituted\r\n", "substituted \r\n"),
    ("\x10\r", "substituted \r\n"),  # CTRL-P recalls the previous line from the history
    # A client command's option (from its table), an interpreter command's,
    # a file name after a file option and after a file command, a command
    # name after help.
    ("tfile -bl\t", "tfile -blocks "), ("-?\r", "Translate a text file line by line."),
    ("tee -ap\t", "tee -append "), ("-?\r", "Copy all output to a file."),
    ("text -indata sam\t", "text -indata sample-input.txt "), ("-?\r", "Translate text."),
    ("read setup-s\t", "read setup-script.lex "), ("\r", "from the script \r\n"),
    ("help udu\t", "help udump "), ("\r", "Generate a script to recreate a user"),
    ("setopt server 127.0.0.1:9\r",),  # a closed port: passwd fails at once
    *((f"{line}\recho mark-{n}\r", f"mark-{n} \r\n") for n, line in enumerate(SECRET_LINES)),
    ("setopt passwd \\\r", "_ "), ("hunter2-h\recho kept-line\r", "kept-line \r\n"),  # judged as a whole
    ("setopt -save\r",),  # lexctl3.cfg, read by every later start here
    ("exit\r",),
]


def main():
    lexctl = sys.argv[1]
    with tempfile.TemporaryDirectory(prefix="lexctl3-pty-") as home:
        env = dict(os.environ, HOME=home, TERM="dumb", LC_ALL="C.UTF-8")
        for name in ("LEXCTL3_SERVER", "LEXCTL3_USERID", "LEXCTL3_PASSWD"):
            env.pop(name, None)
        write(home, "sample-input.txt", "hello\n")
        write(home, "setup-script.lex", "echo from the script\n")
        old_umask = os.umask(0o022)  # what a history file would get by default
        s = Terminal([lexctl], home, env)
        os.umask(old_umask)
        s.expect("Administration Client")
        s.expect("> ")
        for typed, *shown in STEPS:
            s.send(typed)
            for text in shown:
                s.expect(text)
        status, _ = s.close()
        if status != 0:
            raise AssertionError(f"exit status {status}")

        history_path, history = os.path.join(home, ".lexctl3_history"), read(home, ".lexctl3_history")
        for kept in ("echo {{v}}", "echo kept-line", "tfile -blocks -?", "help udump", "setopt server 127.0.0.1:9"):
            if kept not in history:
                raise AssertionError(f"history file lacks the typed line {kept!r}:\n{history}")
        if "hunter2" in history:
            raise AssertionError(f"history file holds a password:\n{history}")
        mode = stat.S_IMODE(os.stat(history_path).st_mode)
        if mode != 0o600:
            raise AssertionError(f"history file has mode {mode:o}, not 600")

        # The saved lexctl3.cfg begins "@setopt console none"; a later start
        # still shows output, on the console and with commands.
        s = Terminal([lexctl], home, env)
        s.send("echo after the save\r")
        s.expect("after the save \r\n")
        # End of input (CTRL-D) ends the program normally too. Typed before
        # readline has the terminal, the tty would turn it into a NUL byte.
        s.expect("> ")
        s.send("\x04")
        if s.close()[0] != 0:
            raise AssertionError("CTRL-D did not end the program with status 0")
        out = subprocess.run([lexctl, "echo hi"], cwd=home, env=env, capture_output=True, text=True, timeout=20).stdout
        if "hi \n" not in out:
            raise AssertionError(f"'lexctl3 \"echo hi\"' after a save printed {out!r}")

        # A history file that others could read is made private at start.
        os.chmod(history_path, 0o644)
        s = Terminal([lexctl], home, env)
        s.send("echo private again\r")
        s.expect("private again \r\n")
        s.send("exit\r")
        s.close()
        mode = stat.S_IMODE(os.stat(history_path).st_mode)
        if mode != 0o600:
            raise AssertionError(f"an existing history file kept mode {mode:o}")
    print("console_pty: 1 passed, 0 failed")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except AssertionError as e:
        print(f"FAIL: {e}")
        sys.exit(1)
