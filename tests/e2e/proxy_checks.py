#!/usr/bin/env python3
"""Both comms layers through a real HTTP proxy (tinyproxy on loopback).

Plain HTTP must go out as a proxy-form request and HTTPS as a CONNECT tunnel
in which the server's certificate is still checked; a proxy that is not
there ends the command with one FAILED line and clearing the setting makes
the next command work again."""
import os
import socket
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(__file__))
from harness import free_port, report, stop_process  # noqa: E402
from run_case import Lexsim  # noqa: E402
from tls_matrix import make_ca, make_cert  # noqa: E402


class Tinyproxy:
    def __init__(self, cwd):
        self.log = os.path.join(cwd, "tinyproxy.log")
        # A free port can be taken by a parallel test before tinyproxy binds
        # it; tinyproxy then exits, and a fresh port is tried.
        for _ in range(5):
            if self._start(cwd):
                return
        raise RuntimeError("tinyproxy did not start")

    def _start(self, cwd):
        self.port = free_port()
        conf = os.path.join(cwd, "tinyproxy.conf")
        with open(conf, "w") as f:
            # No ConnectPort line: CONNECT is allowed to any port.
            f.write(f"Port {self.port}\nListen 127.0.0.1\nTimeout 30\nMaxClients 20\n"
                    f"LogFile \"{self.log}\"\nLogLevel Info\nAllow 127.0.0.1\n")
        self.proc = subprocess.Popen(["tinyproxy", "-d", "-c", conf], cwd=cwd,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 20
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                if self.proc.poll() is None:
                    return True
            except OSError:
                pass
            if self.proc.poll() is not None or time.monotonic() > deadline:
                self.stop()
                return False
            time.sleep(0.05)

    def requests(self):
        try:
            with open(self.log, errors="replace") as f:
                return [line for line in f if "Request (file descriptor" in line]
        except FileNotFoundError:
            return []

    def stop(self):
        stop_process(self.proc)


def run(lexctl, cwd, lines):
    proc = subprocess.run([lexctl, *lines], cwd=cwd, capture_output=True, text=True, timeout=120,
                          env=dict(os.environ, HOME=cwd))
    return proc.stdout


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    failures = []
    with tempfile.TemporaryDirectory(prefix="lexctl3-proxy-") as cwd:
        make_ca("ca", cwd)
        make_cert("good", "localhost", ["DNS:localhost", "IP:127.0.0.1"], cwd)
        plain = Lexsim(lexsim, [], cwd)
        tls = Lexsim(lexsim, ["--tls-cert", "good.pem", "--tls-key", "good.key"], cwd)
        proxy = Tinyproxy(cwd)
        try:
            tls_port = tls.server.rsplit(":", 1)[1]
            for layer in ("gsoap", "windows"):
                seen = len(proxy.requests())
                out = run(lexctl, cwd, [f"setopt server {plain.server}", f"setopt commslayer {layer}",
                                        f"setopt proxy 127.0.0.1:{proxy.port}", "test -string via-proxy",
                                        "test -string again"])
                new = proxy.requests()[seen:]
                # The second call reads the proxy setting after the first call's memory is gone.
                if out.count("OK.") != 2:
                    failures.append(f"{layer} http: calls through the proxy failed:\n{out}")
                if not any(f"POST {plain.server}/nvsoap/nvsoap.cgi" in line for line in new):
                    failures.append(f"{layer} http: the proxy saw no proxy-form request: {new}")

                seen = len(proxy.requests())
                out = run(lexctl, cwd, [f"setopt server https://localhost:{tls_port}",
                                        f"setopt commslayer {layer}", "setopt sslauth full",
                                        "setopt sslcafile ca.pem", f"setopt proxy 127.0.0.1:{proxy.port}",
                                        "test -string tunnelled"])
                new = proxy.requests()[seen:]
                if "OK." not in out:
                    failures.append(f"{layer} https: call through the tunnel failed:\n{out}")
                if not any(f"CONNECT localhost:{tls_port}" in line for line in new):
                    failures.append(f"{layer} https: the proxy saw no CONNECT: {new}")

                # The tunnel does not weaken the certificate check.
                out = run(lexctl, cwd, [f"setopt server https://localhost:{tls_port}",
                                        f"setopt commslayer {layer}", "setopt sslauth full",
                                        "setopt sslcafile nosuch.pem", "setopt sslcadir .",
                                        f"setopt proxy 127.0.0.1:{proxy.port}", "test -string untrusted"])
                if "OK." in out or out.count("FAILED:") != 1:
                    failures.append(f"{layer} https: an untrusted server was accepted through the tunnel:\n{out}")

                # No proxy listening: one FAILED line; without the proxy the next call works.
                out = run(lexctl, cwd, [f"setopt server {plain.server}", f"setopt commslayer {layer}",
                                        f"setopt proxy 127.0.0.1:{free_port()}", "test -string nowhere",
                                        "setopt proxy \"\"", "setopt proxy", "test -string direct"])
                before, _, after = out.partition("test -string direct")
                if before.count("FAILED:") != 1 or "OK." in before:
                    failures.append(f"{layer}: a missing proxy did not fail once:\n{out}")
                if "OK." not in after:
                    failures.append(f"{layer}: the call after clearing the proxy failed:\n{out}")
        finally:
            proxy.stop()
            tls.stop()
            plain.stop()
    return report("proxy_checks", failures, checks=8)


if __name__ == "__main__":
    sys.exit(main())
