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

from harness import LAYERS, Checks, Lexsim, free_port, run, stop_process
from tls_matrix import make_ca, make_cert


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


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    check = Checks("proxy_checks")
    with tempfile.TemporaryDirectory(prefix="lexctl3-proxy-") as cwd:
        make_ca("ca", cwd)
        make_cert("good", "localhost", ["DNS:localhost", "IP:127.0.0.1"], cwd)
        with Lexsim(lexsim, cwd=cwd) as plain, Lexsim(lexsim, ["--tls-cert", "good.pem", "--tls-key", "good.key"],
                                                       cwd) as tls:
            proxy = Tinyproxy(cwd)
            tls_url = f"https://localhost:{tls.port}"
            try:
                for layer in LAYERS:
                    def through(server, *lines):
                        seen = len(proxy.requests())
                        out = run(lexctl, cwd, [f"setopt server {server}", f"setopt commslayer {layer}",
                                                f"setopt proxy 127.0.0.1:{proxy.port}", *lines]).stdout
                        return out, proxy.requests()[seen:]
                    # The second call reads the proxy setting after the first call's memory is gone.
                    out, new = through(plain.server, "test -string via-proxy", "test -string again")
                    check(out.count("OK.") == 2, f"{layer} http: calls through the proxy failed:\n{out}")
                    check(sum(f"POST {plain.url}" in line for line in new) == 2,
                          f"{layer} http: not both calls as proxy-form requests: {new}")
                    out, new = through(tls_url, "setopt sslauth full", "setopt sslcafile ca.pem", "test -string tunnelled")
                    check("OK." in out, f"{layer} https: call through the tunnel failed:\n{out}")
                    check(any(f"CONNECT localhost:{tls.port}" in line for line in new), f"{layer} https: no CONNECT")
                    # The tunnel does not weaken the certificate check.
                    out, _ = through(tls_url, "setopt sslauth full", "setopt sslcafile nosuch.pem", "setopt sslcadir .",
                                     "test -string untrusted")
                    check("OK." not in out and out.count("FAILED:") == 1,
                          f"{layer} https: an untrusted server was accepted through the tunnel:\n{out}")
                    # No proxy listening: one FAILED line; without the proxy the next call works.
                    out = run(lexctl, cwd, [f"setopt server {plain.server}", f"setopt commslayer {layer}",
                                            f"setopt proxy 127.0.0.1:{free_port()}", "test -string nowhere",
                                            "setopt proxy \"\"", "setopt proxy", "test -string direct"]).stdout
                    before, _, after = out.partition("test -string direct")
                    check(before.count("FAILED:") == 1 and "OK." not in before and "OK." in after,
                          f"{layer}: a missing proxy did not fail once, or clearing it did not help:\n{out}")
            finally:
                proxy.stop()
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
