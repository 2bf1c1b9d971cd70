#!/usr/bin/env python3
"""HTTPS certificate checks of both comms layers against lexsim, and both
layers through a real HTTP proxy (tinyproxy on loopback).

Makes a throw-away certificate authority with the openssl command, starts
lexsim with one server certificate at a time, and runs `test` under every
sslauth mode on both layers. Each layer must judge host names as strictly as
curl does, and each mode must relax exactly what it names. Through the proxy,
plain HTTP goes out as proxy-form requests and HTTPS as a CONNECT tunnel in
which the certificate is still checked; a proxy that is not there ends the
command with one FAILED line, and clearing the setting makes the next work."""
import os
import socket
import subprocess
import sys
import tempfile
import time

from harness import EMULATOR, LAYERS, WINDOWS, Checks, Lexsim, Terminal, command, free_port, read, run, stop_process, write

MODES = ["full", "noexpire", "nohost", "minimum", "none"]
OK, NO = True, False


def openssl(*args, cwd):
    subprocess.run(["openssl", *args], cwd=cwd, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, timeout=60)


def make_ca(name, cwd):
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out",
            f"{name}.pem", "-days", "30", "-subj", f"/CN={name}",
            "-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=keyCertSign,cRLSign",
            cwd=cwd)
    os.makedirs(os.path.join(cwd, f"{name}.db"), exist_ok=True)
    write(cwd, f"{name}.db/index.txt", "")
    write(cwd, f"{name}.db/serial", "1000\n")
    write(cwd, f"{name}.cnf", f"""[ca]
default_ca = ca
dir = {name}.db
database = $dir/index.txt
new_certs_dir = $dir
serial = $dir/serial
certificate = {name}.pem
private_key = {name}.key
default_md = sha256
policy = any
unique_subject = no
copy_extensions = copy
[any]
commonName = supplied
""")


def make_cert(name, cn, sans, cwd, ca="ca", start=None, end=None, self_signed=False):
    ext = ["-addext", f"subjectAltName={','.join(sans)}"] if sans else []
    if self_signed:
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out",
                f"{name}.pem", "-days", "30", "-subj", f"/CN={cn}", *ext, cwd=cwd)
        return
    openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out",
            f"{name}.csr", "-subj", f"/CN={cn}", *ext, cwd=cwd)
    dates = ["-startdate", start, "-enddate", end] if start else ["-days", "30"]
    openssl("ca", "-batch", "-config", f"{ca}.cnf", "-in", f"{name}.csr", "-out", f"{name}.pem",
            "-notext", *dates, cwd=cwd)


# name: (cn, sans, options, expected per mode for gsoap, for windows)
LOCAL = ["DNS:localhost", "IP:127.0.0.1"]
STRICT_ONLY_CA = {"full": NO, "noexpire": NO, "nohost": NO, "minimum": NO, "none": OK}
HOST_RELAXED = {"full": NO, "noexpire": NO, "nohost": OK, "minimum": OK, "none": OK}
DATE_RELAXED = {"full": NO, "noexpire": OK, "nohost": NO, "minimum": OK, "none": OK}
CASES = {
    "good": ("localhost", LOCAL, {}, dict.fromkeys(MODES, OK)),
    "selfsigned": ("localhost", LOCAL, {"self_signed": True}, STRICT_ONLY_CA),
    "untrusted": ("localhost", LOCAL, {"ca": "other"}, STRICT_ONLY_CA),
    "otherhost": ("other.example", ["DNS:other.example"], {}, HOST_RELAXED),
    "expired": ("localhost", LOCAL, {"start": "20200101000000Z", "end": "20210101000000Z"}, DATE_RELAXED),
    "notyet": ("localhost", LOCAL, {"start": "20400101000000Z", "end": "20410101000000Z"}, DATE_RELAXED),
    "sanwrong": ("localhost", ["DNS:other.example"], {}, HOST_RELAXED),
    "star": ("*", ["DNS:*"], {}, HOST_RELAXED),
    "dash": ("localh-st", ["DNS:localh-st"], {}, HOST_RELAXED),
}
# The reason a refused certificate is given for, the same on both layers.
REASONS = {
    "selfsigned": "SSL certificate problem: self-signed certificate",
    "untrusted": "SSL certificate problem: unable to get local issuer certificate",
    "expired": "SSL certificate problem: certificate has expired",
    "notyet": "SSL certificate problem: certificate is not yet valid",
}


def run_modes(lexctl, cwd, url, layer, extra=()):
    """{mode: accepted} for a test call in every sslauth mode, one after the
    other in one run (a new mode holds from the next call on), and the output."""
    lines = [f"setopt server {url}", f"setopt commslayer {layer}", *extra]
    for mode in MODES:
        lines += [f"setopt sslauth {mode}", "@echo RESULT-START", "test -string tls", "@echo RESULT-END"]
    proc = run(lexctl, cwd, lines, timeout=300)
    results = ["OK." in chunk.split("RESULT-END")[0] for chunk in proc.stdout.split("RESULT-START")[1:]]
    if len(results) != len(MODES):
        raise AssertionError(f"unexpected output:\n{proc.stdout}\n{proc.stderr}")
    return dict(zip(MODES, results)), proc.stdout


def full_mode_failure(out):
    body = out.split("RESULT-START")[1].split("RESULT-END")[0]
    return "".join(line for line in body.splitlines() if line.startswith("FAILED"))


def trust_in_wine(cwd, ca):
    """Adds the CA to the Root store of the prefix lexctl3.exe runs in."""
    prefix = next(word.split("=", 1)[1] for word in EMULATOR if word.startswith("WINEPREFIX="))
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "wine-trust.sh")
    subprocess.run(["bash", script, ca], cwd=cwd, env=dict(os.environ, WINEPREFIX=prefix, LEXCTL_WINE=EMULATOR[-1]),
                   check=True, stdout=subprocess.DEVNULL, timeout=300)


def main():
    global LAYERS
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    # WinINet trusts the Windows store only (no CA file or folder, no key
    # file): under Wine the throw-away CA goes into the prefix's store, and
    # that layer runs the certificate cases only.
    store_layers = ("windows",) if WINDOWS and "windows" in LAYERS else ()
    LAYERS = tuple(layer for layer in LAYERS if layer not in store_layers)
    check = Checks("tls_matrix")
    with tempfile.TemporaryDirectory(prefix="lexctl3-tls-") as cwd:
        make_ca("ca", cwd)
        make_ca("other", cwd)
        for name, (cn, sans, options, _) in CASES.items():
            make_cert(name, cn, sans, cwd, **options)
        if store_layers:
            trust_in_wine(cwd, "ca.pem")
        make_cert("ipcn", "127.0.0.1", [], cwd)
        for folder, ca in (("cadir", "ca"), ("otherdir", "other")):
            os.mkdir(os.path.join(cwd, folder))
            os.link(os.path.join(cwd, f"{ca}.pem"), os.path.join(cwd, folder, f"{ca}.pem"))
            openssl("rehash", folder, cwd=cwd)
        # A client certificate, in one PEM file with its encrypted key.
        openssl("req", "-new", "-newkey", "rsa:2048", "-keyout", "client.key", "-passout", "pass:kpw",
                "-out", "client.csr", "-subj", "/CN=lexctl3-client", cwd=cwd)
        openssl("ca", "-batch", "-config", "ca.cnf", "-in", "client.csr", "-out", "client.crt", "-notext",
                "-days", "30", cwd=cwd)
        write(cwd, "client.pem", read(cwd, "client.crt") + read(cwd, "client.key"))
        # The CA file is given by name; cacert.pem in the folder is the default one.
        for name, (_, _, _, expected) in CASES.items():
            with Lexsim(lexsim, ["--tls-cert", f"{name}.pem", "--tls-key", f"{name}.key"], cwd) as sim:
                url = f"https://localhost:{sim.port}"
                for layer in LAYERS + store_layers:
                    want = dict(expected)
                    if layer == "windows" and name in ("selfsigned", "untrusted"):
                        want["none"] = NO  # "none" is "minimum" on the windows layer
                    got, out = run_modes(lexctl, cwd, url, layer, ["setopt sslcafile ca.pem"])
                    check(got == want, f"{name} {layer}: accepted {got}, expected {want}")
                    if layer in store_layers:
                        continue
                    check(name not in REASONS or REASONS[name] in full_mode_failure(out),
                          f"{name} {layer}: reason not named: {full_mode_failure(out)!r}")
                    if name == "good":
                        good_only(lexctl, cwd, sim.port, layer, check)
                if name == "good":
                    through_proxy(lexctl, lexsim, cwd, sim.port, check)
        with Lexsim(lexsim, ["--tls-cert", "good.pem", "--tls-key", "good.key", "--tls-client-ca", "ca.pem"],
                    cwd) as sim:
            url = f"https://localhost:{sim.port}"
            for layer in LAYERS:
                without, _ = run_modes(lexctl, cwd, url, layer, ["setopt sslcafile ca.pem"])
                check(not any(without.values()), f"client certificate {layer}: accepted without one: {without}")
                with_key, out = run_modes(lexctl, cwd, url, layer, ["setopt sslcafile ca.pem", "setopt sslkeyfile "
                                                                    "client.pem", "setopt sslkeypass kpw"])
                check(all(with_key.values()), f"client certificate {layer}: refused with one: {with_key}\n{out[-800:]}")
                # The key is used with the pass phrase set when the request is
                # made, in either order; the program never asks on the terminal.
                base = [f"setopt server {url}", f"setopt commslayer {layer}", "setopt sslcafile ca.pem"]
                for label, extra, good in (("key before pass", ["setopt sslkeyfile client.pem", "setopt sslkeypass kpw"], True),
                                           ("no pass", ["setopt sslkeyfile client.pem"], False),
                                           ("wrong pass", ["setopt sslkeypass nope", "setopt sslkeyfile client.pem"], False)):
                    write(cwd, "tty.lex", "\n".join(base + extra + ["test -string tls", "test -string again"]) + "\n")
                    status, out = Terminal(command(lexctl) + ["--script", "tty.lex"], cwd, dict(os.environ, HOME=cwd)).close()
                    out = out if status is not None else None
                    check(out is not None and "pass phrase" not in out.lower() and
                          (out.count("OK.") == 2 if good else out.count("FAILED") == 2 and "OK." not in out),
                          f"client key {layer} {label}: expected {'two OK.' if good else 'two FAILED'} and no "
                          f"pass phrase prompt:\n{(out or 'did not end')[-800:]}")
        # An IP host must be an IP subject alternative name: a certificate that
        # names the address only as its common name is refused on both layers.
        with Lexsim(lexsim, ["--tls-cert", "ipcn.pem", "--tls-key", "ipcn.key"], cwd) as sim:
            for layer in LAYERS:
                got, _ = run_modes(lexctl, cwd, f"https://127.0.0.1:{sim.port}", layer, ["setopt sslcafile ca.pem"])
                check(got == HOST_RELAXED, f"ipcn {layer}: {got}, expected {HOST_RELAXED}")
    return check.report()


def good_only(lexctl, cwd, port, layer, check):
    """CA settings, checked against the good certificate."""
    url = f"https://localhost:{port}"
    ip, _ = run_modes(lexctl, cwd, f"https://127.0.0.1:{port}", layer, ["setopt sslcafile ca.pem"])
    check(all(ip.values()), f"good {layer}: IP host with the IP in the SAN refused: {ip}")
    # The default CA file: cacert.pem in the current folder.
    os.link(os.path.join(cwd, "ca.pem"), os.path.join(cwd, "cacert.pem"))
    dflt, _ = run_modes(lexctl, cwd, url, layer)
    os.unlink(os.path.join(cwd, "cacert.pem"))
    check(all(dflt.values()), f"good {layer}: default cacert.pem not used: {dflt}")
    # Without cacert.pem the system's store stands in: the throw-away CA is
    # unknown there, and no file is blamed.
    _, out = run_modes(lexctl, cwd, url, layer)
    check(not os.path.exists("/etc/ssl/certs/ca-certificates.crt") or
          full_mode_failure(out) == f"FAILED: SOAP_SSL_ERROR (30): {REASONS['untrusted']}.",
          f"good {layer}: no cacert.pem: {full_mode_failure(out)!r}")
    # gSOAP's "none" checks nothing, so it needs no CA.
    refused = dict(STRICT_ONLY_CA, none=layer == "gsoap")
    # A CA file or folder that is set but cannot be read is named in the
    # failure line, and on the gsoap layer as its context is built.
    for setting, named in (("sslcafile nosuch.pem", "CA file nosuch.pem"), ("sslcadir nosuch.d", "CA folder nosuch.d")):
        got, out = run_modes(lexctl, cwd, url, layer, [f"setopt {setting}"])
        line = f"FAILED: SOAP_SSL_ERROR (30): cannot read {named} (No such file or directory)."
        said = f"\nFailed to initialize SSL: cannot read {named} (No such file or directory)\n" in out
        check(got == refused and full_mode_failure(out) == line and said == (layer == "gsoap"),
              f"good {layer}: unreadable {named}: {got} {full_mode_failure(out)!r}, context line {said}")
    # A hashed CA directory instead of a file: the right CA is found there,
    # and a folder with another CA trusts nothing.
    trusting, _ = run_modes(lexctl, cwd, url, layer, ["setopt sslcadir cadir"])
    check(all(trusting.values()), f"good {layer}: CA directory not used: {trusting}")
    strangers, _ = run_modes(lexctl, cwd, url, layer, ["setopt sslcadir otherdir"])
    check(strangers == refused, f"good {layer}: a CA directory without the CA: {strangers}")


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


def through_proxy(lexctl, lexsim, cwd, tls_port, check):
    """A plain lexsim and the good certificate's through tinyproxy."""
    with Lexsim(lexsim, cwd=cwd) as plain:
        proxy = Tinyproxy(cwd)
        tls_url = f"https://localhost:{tls_port}"
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
                check(any(f"CONNECT localhost:{tls_port}" in line for line in new), f"{layer} https: no CONNECT")
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


if __name__ == "__main__":
    sys.exit(main())
