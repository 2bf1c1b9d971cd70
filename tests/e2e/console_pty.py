#!/usr/bin/env python3
"""Drives lexctl3 through a pseudo-terminal, as a person at the console would:
readline editing, completion, history, continuation and CTRL-C."""
import fcntl
import os
import pty
import select
import subprocess
import sys
import tempfile
import termios

TIMEOUT = 20  # seconds to wait for any one expected text


def _controlling_tty():
    # A session of its own with the terminal as controlling tty, so that
    # CTRL-C typed there becomes SIGINT for lexctl3.
    os.setsid()
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


class Session:
    def __init__(self, argv, home):
        self.master, slave = pty.openpty()
        env = dict(os.environ, HOME=home, TERM="dumb", LC_ALL="C.UTF-8")
        self.proc = subprocess.Popen(argv, stdin=slave, stdout=slave, stderr=slave, cwd=home,
                                     env=env, close_fds=True, preexec_fn=_controlling_tty)
        os.close(slave)
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


def main():
    lexctl = sys.argv[1]
    with tempfile.TemporaryDirectory(prefix="lexctl3-pty-") as home:
        s = Session([lexctl], home)
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

        s.send("exit\r")
        status = s.close()
        if status != 0:
            raise AssertionError(f"exit status {status}")

        with open(os.path.join(home, ".lexctl3_history")) as f:
            history = f.read()
        if "echo {{v}}" not in history:
            raise AssertionError(f"history file lacks the typed lines:\n{history}")

        # End of input (CTRL-D) ends the program normally too.
        s = Session([lexctl], home)
        s.expect("> ")
        s.send("\x04")
        if s.close() != 0:
            raise AssertionError("CTRL-D did not end the program with status 0")
    print("console_pty: 1 passed, 0 failed")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except AssertionError as e:
        print(f"FAIL: {e}")
        sys.exit(1)
