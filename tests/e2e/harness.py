"""Pieces the end-to-end test programs share: lexsim and lexctl3 runs,
loopback servers and relays, and the summary every test prints."""
import fcntl
import itertools
import os
import pty
import re
import select
import shlex
import socket
import subprocess
import termios
import threading

LAYERS = tuple(os.environ.get("LEXCTL_E2E_LAYERS", "gsoap windows").split())
# A Windows build's lexctl3.exe runs under the emulator its build names (Wine).
EMULATOR = shlex.split(os.environ.get("LEXCTL_E2E_EMULATOR", ""))
WINDOWS = bool(EMULATOR)
# What the gsoap layer reports for a closed port; under Wine the connect times out.
REFUSED = "Timeout." if WINDOWS else "Connection refused."


def command(lexctl):
    return EMULATOR + [lexctl]
LOGIN = ["setopt userid admin", "setopt passwd admin"]


def stop_process(proc):
    """Asks a helper process to end, and kills it when it will not."""
    proc.terminate()
    try:
        proc.wait(timeout=10)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


class Lexsim:
    """A lexsim on a free loopback port; server is the address setopt takes."""

    def __init__(self, binary, extra=(), cwd=None):
        self.proc = subprocess.Popen([binary, "--host", "127.0.0.1", "--port", "0", *extra], cwd=cwd,
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        ready, _, _ = select.select([self.proc.stdout], [], [], 30)
        line = self.proc.stdout.readline().strip() if ready else ""
        if not line.startswith("http"):
            self.stop()
            raise RuntimeError(f"lexsim did not start: {line!r}")
        self.server = line
        self.port = int(line.rsplit(":", 1)[1])
        self.url = line + self.proc.stdout.readline().strip().split(": ", 1)[1]

    def stop(self):
        stop_process(self.proc)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


def run(lexctl, cwd, lines, errexit=False, timeout=120, env=None):
    """Runs the lines as a script in cwd (its HOME); the finished process, text."""
    write(cwd, "run.lex", "\n".join(lines) + "\n")
    return subprocess.run(command(lexctl) + (["--errexit"] if errexit else []) + ["--script", "run.lex"], cwd=cwd,
                          capture_output=True, text=True, timeout=timeout, env=env or dict(os.environ, HOME=cwd))


def write(cwd, name, body):
    binary = isinstance(body, bytes)
    with open(os.path.join(cwd, name), "wb" if binary else "w", encoding=None if binary else "utf-8") as f:
        f.write(body)


def read(cwd, name, mode="r"):
    path = os.path.join(cwd, name)
    if not os.path.exists(path):
        return None
    with open(path, mode) as f:
        return f.read()


class Checks:
    """Counts checks and collects the failed ones."""

    def __init__(self, name):
        self.name, self.count, self.failures = name, 0, []

    def __call__(self, ok, what):
        self.count += 1
        if not ok:
            self.failures.append(what)
        return ok

    def report(self):
        """Prints every failure and the summary line; returns the exit status."""
        for failure in self.failures:
            print("FAIL:", failure)
        print(f"{self.name}: {self.count - len(self.failures)} passed, {len(self.failures)} failed")
        return 1 if self.failures else 0


def read_message(sock, buffer):
    """Reads one HTTP message (head and Content-Length body) from sock."""
    while b"\r\n\r\n" not in buffer:
        chunk = sock.recv(65536)
        if not chunk:
            return None, buffer
        buffer += chunk
    head, _, rest = buffer.partition(b"\r\n\r\n")
    found = re.search(rb"(?im)^content-length:\s*(\d+)", head)
    length = int(found.group(1)) if found else 0
    while len(rest) < length:
        chunk = sock.recv(65536)
        if not chunk:
            return None, buffer
        rest += chunk
    return (head, rest[:length]), rest[length:]


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def serve_on_loopback(handle, lifetime=300):
    """Runs handle(connection) on a thread of its own for every connection to
    a free loopback port, until `lifetime` seconds pass without one; returns
    the port."""
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    listener.settimeout(lifetime)

    def accept():
        with listener:
            while True:
                try:
                    conn, _ = listener.accept()
                except OSError:
                    return
                threading.Thread(target=handle, args=(conn,), daemon=True).start()
    threading.Thread(target=accept, daemon=True).start()
    return listener.getsockname()[1]


def headers_of(head):
    lines = head.decode("latin-1").split("\r\n")
    return lines[0], {k.strip().lower(): v.strip() for k, _, v in (line.partition(":") for line in lines[1:])}


class Relay:
    """An HTTP relay on loopback to lexsim's port (or, for a proxy-form request,
    to the host it names). It records every exchange, and replaces each key of
    `rewrite` in a reply body by its value. With `drop_kept` it closes a
    connection that already carried a reply when the next request comes, as a
    proxy that never says "Connection: close" does."""

    def __init__(self, target_port):
        self.target, self.records, self.rewrite, self.drop_kept = ("127.0.0.1", target_port), [], {}, False
        self.lock, self.connections = threading.Lock(), itertools.count(1)
        self.port = serve_on_loopback(self.serve)
        self.server = f"http://127.0.0.1:{self.port}"

    def serve(self, client):
        conn_id = next(self.connections)
        upstream, pending, answered = None, b"", False
        try:
            client.settimeout(30)
            while True:
                message, pending = read_message(client, pending)
                if not message or (answered and self.drop_kept):
                    return
                head, body = message
                request_line, headers = headers_of(head)
                method, uri, version = request_line.split(" ", 2)
                target = self.target
                if uri.startswith("http://"):  # proxy form: relay to the named host
                    host, _, port = uri[7:].split("/", 1)[0].partition(":")
                    target, uri = (host, int(port or 80)), "/" + uri[7:].split("/", 1)[1]
                upstream = upstream or socket.create_connection(target, timeout=30)
                upstream.sendall(f"{method} {uri} {version}".encode() + head[len(request_line):] + b"\r\n\r\n" + body)
                reply, _ = read_message(upstream, b"")
                if not reply:
                    return
                reply_head, reply_body = reply
                for old, new in self.rewrite.items():
                    reply_body = reply_body.replace(old.encode(), new.encode())
                reply_head = re.sub(rb"(?im)^content-length:.*$", b"Content-Length: %d" % len(reply_body), reply_head)
                op = re.search(rb"<(?:[\w.-]+:)?Body[^>]*>\s*<(?:[\w.-]+:)?([\w.-]+)", body)
                lang = re.search(rb"<(?:[\w.-]+:)?displayLang(?:\s[^>]*)?>([^<]*)<", body)
                with self.lock:
                    self.records.append({"connection": conn_id, "request_line": request_line, "headers": headers,
                                         "operation": op and op.group(1).decode(),
                                         "display_lang": lang and lang.group(1).decode(), "body_start": body[:4],
                                         "reply_headers": headers_of(reply_head)[1]})
                client.sendall(reply_head + b"\r\n\r\n" + reply_body)
                answered = True
                if self.records[-1]["reply_headers"].get("connection", "").lower() == "close":
                    return
        except OSError:
            pass
        finally:
            client.close()
            if upstream:
                upstream.close()


class Terminal:
    """argv with a new pseudo-terminal as its controlling tty, so that CTRL-C
    typed there is its SIGINT and OpenSSL would ask there for a pass phrase."""

    def __init__(self, argv, cwd, env, timeout=20):
        def controlling_tty():
            os.setsid()
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)
        self.master, slave = pty.openpty()
        self.proc = subprocess.Popen(argv, stdin=slave, stdout=slave, stderr=slave, cwd=cwd, env=env, close_fds=True,
                                     preexec_fn=controlling_tty)
        os.close(slave)
        self.timeout, self.seen = timeout, b""

    def read(self):
        """More output; nothing at its end or when none came in time."""
        ready, _, _ = select.select([self.master], [], [], self.timeout)
        try:
            return os.read(self.master, 4096) if ready else b""
        except OSError:  # the end, on Linux
            return b""

    def expect(self, text):
        """Waits for text; later expectations look only at what follows it."""
        want = text.encode()
        while want not in self.seen:
            chunk = self.read()
            if not chunk:
                raise AssertionError(f"no {text!r} in time; screen so far:\n{self.seen.decode(errors='replace')}")
            self.seen += chunk
        self.seen = self.seen[self.seen.index(want) + len(want):]

    def send(self, text):
        os.write(self.master, text.encode())

    def close(self):
        """The exit status (None when the program would not end) and the output not yet expected."""
        while chunk := self.read():
            self.seen += chunk
        try:
            status = self.proc.wait(timeout=self.timeout)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
            status = None
        os.close(self.master)
        return status, self.seen.decode(errors="replace")
