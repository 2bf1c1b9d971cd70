#!/usr/bin/env python3
"""Drives lexctl3 through a pseudo-terminal, as a person at the console would:
readline editing, completion (commands, their options, file names, setopt
options), history (its file private, and no line with a password in it),
continuation, CTRL-C, and a start after "setopt -save" that still shows output."""
import os
import stat
import select
import subprocess
import sys
import tempfile

from harness import pty_spawn

TIMEOUT = 20  # seconds to wait for any one expected text


class Session:
    def __init__(self, argv, home):
        env = dict(os.environ, HOME=home, TERM="dumb", LC_ALL="C.UTF-8")
        for name in ("LEXCTL3_SERVER", "LEXCTL3_USERID", "LEXCTL3_PASSWD"):
            env.pop(name, None)
        self.proc, self.master = pty_spawn(argv, home, env)
        self.seen = b""

    def expect(self, text):
        want = text.encode()
        while want not in self.seen:
            ready, _, _ = select.select([self.master], [], [], TIMEOUT)
            if not ready:
                raise AssertionError(f"timed out waiting for {text!r}; screen so far:\n{self.seen.decode(errors='replace')}")
            try:
                chunk = os.read(self.master, 4096)
            except OSError:
                chunk = b""
            if not chunk:
                raise AssertionError(f"lexctl3 ended before {text!r}; screen:\n{self.seen.decode(errors='replace')}")
            self.seen += chunk
        # Later expectations only look at what follows this match.
        self.seen = self.seen[self.seen.index(want) + len(want):]

    def send(self, text):
        os.write(self.master, text.encode())

    def close(self):
        try:
            return self.proc.wait(timeout=TIMEOUT)
        finally:
            os.close(self.master)


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


def check_completion(s):
    """Commands' own options, file names after file options and commands,
    command names after help."""
    s.send("tfile -bl\t")  # an option of a client command, from its table
    s.expect("tfile -blocks ")
    s.send("-?\r")
    s.expect("Translate a text file line by line.")
    s.send("tee -ap\t")  # an option of an interpreter command
    s.expect("tee -append ")
    s.send("-?\r")
    s.expect("Copy all output to a file.")
    s.send("text -indata sam\t")  # a file name after a file option
    s.expect("text -indata sample-input.txt ")
    s.send("-?\r")
    s.expect("Translate text.")
    s.send("read setup-s\t")  # a file name after a file command
    s.expect("read setup-script.lex ")
    s.send("\r")
    s.expect("from the script \r\n")
    s.send("help udu\t")  # a command name after help
    s.expect("help udump ")
    s.send("\r")
    s.expect("Generate a script to recreate a user")


def check_secrets(s):
    """Each secret line runs; an ordinary line follows it as a marker."""
    s.send("setopt server 127.0.0.1:9\r")  # a closed port: passwd fails at once
    for n, line in enumerate(SECRET_LINES):
        s.send(line + "\r")
        s.send(f"echo mark-{n}\r")
        s.expect(f"mark-{n} \r\n")
    s.send("setopt passwd \\\r")  # a continued line is judged as a whole
    s.expect("_ ")
    s.send("hunter2-h\r")
    s.send("echo kept-line\r")
    s.expect("kept-line \r\n")


def main():
    lexctl = sys.argv[1]
    with tempfile.TemporaryDirectory(prefix="lexctl3-pty-") as home:
        with open(os.path.join(home, "sample-input.txt"), "w") as f:
            f.write("hello\n")
        with open(os.path.join(home, "setup-script.lex"), "w") as f:
            f.write("echo from the script\n")
        old_umask = os.umask(0o022)  # what a history file would get by default
        s = Session([lexctl], home)
        os.umask(old_umask)
        s.expect("Administration Client")
        s.expect("> ")

        s.send("echo hi\r")
        s.expect("hi \r\n")
        s.expect("> ")  # readline waits for the next line

        s.send("\x03")  # CTRL-C: a notice, and the shell goes on
        s.expect("CTRL-C interrupt ignored.")
        s.send("echo still alive\r")
        s.expect("still alive \r\n")

        s.send("ech\t")  # command words complete
        s.expect("echo ")
        s.send("completed\r")
        s.expect("completed \r\n")

        s.send("setopt cons\t")  # and so do option names
        s.expect("console ")
        s.send("\r")
        s.expect("setopt console      all")

        s.send("echo con\\\r")  # a trailing backslash continues the line
        s.expect("_ ")
        s.send("tinued\r")
        s.expect("continued \r\n")

        s.send("setvar v substituted\r")
        s.send("echo {{v}}\r")  # a line changed by substitution is echoed
        s.expect("> echo substituted\r\n")
        s.expect("substituted \r\n")

        s.send("\x10\r")  # CTRL-P recalls the previous line from the history
        s.expect("substituted \r\n")

        check_completion(s)
        check_secrets(s)
        s.send("setopt -save\r")  # lexctl3.cfg, read by every later start here

        s.send("exit\r")
        status = s.close()
        if status != 0:
            raise AssertionError(f"exit status {status}")

        history_path = os.path.join(home, ".lexctl3_history")
        with open(history_path) as f:
            history = f.read()
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
        s = Session([lexctl], home)
        s.send("echo after the save\r")
        s.expect("after the save \r\n")
        # End of input (CTRL-D) ends the program normally too. Typed before
        # readline has the terminal, the tty would turn it into a NUL byte.
        s.expect("> ")
        s.send("\x04")
        if s.close() != 0:
            raise AssertionError("CTRL-D did not end the program with status 0")
        env = dict(os.environ, HOME=home)
        out = subprocess.run([lexctl, "echo hi"], cwd=home, env=env, capture_output=True, text=True,
                             timeout=TIMEOUT).stdout
        if "hi \n" not in out:
            raise AssertionError(f"'lexctl3 \"echo hi\"' after a save printed {out!r}")

        # A history file that others could read is made private at start.
        os.chmod(history_path, 0o644)
        s = Session([lexctl], home)
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
