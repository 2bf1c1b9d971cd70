"""Pieces the end-to-end test programs share: helper processes, loopback
servers and the summary every test prints."""
import socket
import subprocess
import threading


def stop_process(proc):
    """Asks a helper process to end, and kills it when it will not."""
    proc.terminate()
    try:
        proc.wait(timeout=10)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


def endpoint_path(line):
    """The path from lexsim's second line, "Endpoint path: /PATH"."""
    return line.strip().split(": ", 1)[1]


def read_message(sock, buffer):
    """Reads one HTTP message (head and Content-Length body) from sock."""
    while b"\r\n\r\n" not in buffer:
        chunk = sock.recv(65536)
        if not chunk:
            return None, buffer
        buffer += chunk
    head, _, rest = buffer.partition(b"\r\n\r\n")
    length = 0
    for line in head.split(b"\r\n")[1:]:
        name, _, value = line.partition(b":")
        if name.strip().lower() == b"content-length":
            length = int(value)
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


def serve_on_loopback(handle, lifetime):
    """Prints a free loopback port, then runs handle(connection) on a thread of
    its own for every connection; ends after `lifetime` seconds without one."""
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    listener.settimeout(lifetime)
    try:
        while True:
            conn, _ = listener.accept()
            threading.Thread(target=handle, args=(conn,), daemon=True).start()
    except (socket.timeout, KeyboardInterrupt):
        pass


def report(name, failures, checks=1):
    """Prints every failure and the summary line; returns the exit status."""
    for failure in failures:
        print("FAIL:", failure)
    print(f"{name}: {max(checks - len(failures), 0)} passed, {len(failures)} failed")
    return 1 if failures else 0
