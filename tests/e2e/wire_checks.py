#!/usr/bin/env python3
"""What lexctl3 puts on the wire, seen by a recording relay between it and
lexsim, on both comms layers: compression only when asked, the trust and
forwarding headers, Basic authentication on CreateSession only, the user
agent, keep-alive, requests through an HTTP proxy, and the thread's uilang
in the displayLang of every operation that has one."""
import base64
import json
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(__file__))
from harness import report  # noqa: E402
from run_case import Lexsim  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
ADMIN_HASH = "22acb1a0beb75bd6854f515c27a2538da06ffdee"  # HMAC-SHA1("admin", "admin")


def header(record, name, side="headers"):
    for line in record[side]:
        key, _, value = line.partition(":")
        if key.lower() == name.lower():
            return value
    return None


def run(lexctl, cwd, lines):
    with open(os.path.join(cwd, "wire.lex"), "w") as f:
        f.write("\n".join(lines) + "\n")
    proc = subprocess.run([lexctl, "--script", "wire.lex"], cwd=cwd, capture_output=True, text=True,
                          timeout=120, env=dict(os.environ, HOME=cwd))
    return proc.stdout


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    failures = []

    def check(condition, what):
        if not condition:
            failures.append(what)

    with tempfile.TemporaryDirectory(prefix="lexctl3-wire-") as cwd:
        sim = Lexsim(lexsim, [], cwd)
        sim_port = int(sim.server.rsplit(":", 1)[1])
        log = os.path.join(cwd, "wire.jsonl")
        relay = subprocess.Popen([sys.executable, os.path.join(HERE, "wire_capture.py"), "127.0.0.1",
                                  str(sim_port), log], stdout=subprocess.PIPE, text=True)
        relay_port = int(relay.stdout.readline())
        try:
            for layer in ("gsoap", "windows"):
                common = [f"setopt commslayer {layer}", "setopt userid admin", "setopt passwd admin"]
                # Defaults: no compression, keep-alive, extra headers set.
                open(log, "w").close()
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{relay_port}", *common,
                                        "setopt trustheader X-Trusted-User", "setopt forwardedfor 10.1.2.3",
                                        "test -string a", "test -string b", "creates full", "test -string c",
                                        "ends"])
                records = [json.loads(line) for line in open(log)]
                check(out.count("OK.") == 3 and "OK\n" in out, f"{layer}: calls failed:\n{out}")
                check(len(records) == 5, f"{layer}: {len(records)} requests recorded, expected 5")
                check(len({r["connection"] for r in records}) == 1, f"{layer}: keep-alive used "
                      f"{len({r['connection'] for r in records})} connections")
                for r in records:
                    check(header(r, "Accept-Encoding") is None, f"{layer}: Accept-Encoding sent uncompressed")
                    check(header(r, "Content-Encoding") is None, f"{layer}: request compressed uncompressed")
                    check(header(r, "Content-Encoding", "reply_headers") is None, f"{layer}: reply compressed")
                    check(header(r, "X-Trusted-User") == "admin", f"{layer}: trust header {header(r, 'X-Trusted-User')}")
                    check(header(r, "X-Forwarded-For") == "10.1.2.3", f"{layer}: X-Forwarded-For missing")
                    auth = header(r, "Authorization")
                    if r["create_session"]:
                        want = "Basic " + base64.b64encode(f"admin:{ADMIN_HASH}".encode()).decode()
                        check(auth == want, f"{layer}: CreateSession authorization {auth!r}")
                    else:
                        check(auth is None, f"{layer}: Authorization sent outside CreateSession")
                    if layer == "windows":
                        check(header(r, "User-Agent") == "lexctl3 4.7.2 R52475",
                              f"windows: user agent {header(r, 'User-Agent')!r}")

                # Compression on, keep-alive off.
                open(log, "w").close()
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{relay_port}", *common,
                                        "setopt compress true", "setopt keepalive false",
                                        "test -string compressed", "test -string again"])
                records = [json.loads(line) for line in open(log)]
                check(out.count("OK.") == 2, f"{layer}: compressed calls failed:\n{out}")
                check(len({r["connection"] for r in records}) == 2, f"{layer}: keep-alive off reused a connection")
                for r in records:
                    check(header(r, "Content-Encoding") == "gzip" and r["body_start"].startswith("1f8b"),
                          f"{layer}: request body not gzip: {r['body_start']} {header(r, 'Content-Encoding')}")
                    check(header(r, "Accept-Encoding") is not None, f"{layer}: no Accept-Encoding with compression")
                    check(header(r, "Content-Encoding", "reply_headers") == "gzip", f"{layer}: reply not gzip")

                # DIME: the binary travels as an attachment both ways.
                with open(os.path.join(cwd, "blob.bin"), "wb") as f:
                    f.write(bytes(range(256)) * 40)
                open(log, "w").close()
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{relay_port}", *common,
                                        "setopt dime true", "test -binary blob.bin -string with-dime"])
                records = [json.loads(line) for line in open(log)]
                check("OK." in out and len(records) == 1, f"{layer}: DIME call failed:\n{out}")
                for r in records:
                    check(header(r, "Content-Type") == "application/dime", f"{layer}: request not DIME")
                    check(header(r, "Content-Type", "reply_headers") == "application/dime", f"{layer}: reply not DIME")

                # Debug logs hold what was sent and received, never a clear password.
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{sim_port}", f"setopt commslayer {layer}",
                                        "setopt userid admin", "setopt passwd s3cret-admin-pw",
                                        f"setopt soapdebug dbg-{layer}", f"setopt wininetlog trace-{layer}.log",
                                        "test -string logged", "setopt soapdebug off", "setopt wininetlog off",
                                        "test -string not-logged"])
                sent = open(os.path.join(cwd, f"dbg-{layer}-sent.log"), errors="replace").read()
                received = open(os.path.join(cwd, f"dbg-{layer}-recv.log"), errors="replace").read()
                check("logged" in sent and "not-logged" not in sent, f"{layer}: sent log wrong:\n{sent[:800]}")
                check("Envelope" in received, f"{layer}: receive log lacks the reply")
                check(os.path.exists(os.path.join(cwd, f"dbg-{layer}-test.log")), f"{layer}: no test log")
                trace_path = os.path.join(cwd, f"trace-{layer}.log")
                if layer == "windows":
                    trace = open(trace_path, errors="replace").read()
                    check("POST /nvsoap/nvsoap.cgi" in trace and "not-logged" not in trace,
                          f"windows: libcurl trace wrong:\n{trace[:800]}")
                    logs = sent + received + trace
                else:
                    logs = sent + received
                check("s3cret-admin-pw" not in logs, f"{layer}: clear password in a debug log")

                # Every request of an operation with a displayLang element carries the
                # thread's uilang: users, engines, dictionaries, lookup, udump, dtransfer.
                open(log, "w").close()
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{relay_port}", *common,
                                        "setopt uilang ja", f"ucreate dl{layer} -userPass pw",
                                        f"uupdate dl{layer} -userName Dee", f"uupdate dl{layer} -userIpAdd 10.1.0.0/16",
                                        f"uget dl{layer}", "einfo", f"dcreate -runas dl{layer} -eid QZ-EJ -type USER",
                                        f"udump dl{layer}", f"dtransfer dl{layer} -from QZ-EJ -to QZ-JE",
                                        "lookup -eid QZ-EJ apple", f"udelete -force dl{layer}"])
                records = [json.loads(line) for line in open(log)]
                langs = {}
                for r in records:
                    if r["operation"] in ("CreateUser", "UpdateUser", "GetUser", "GetEngineInfo", "LookupFormatted"):
                        langs.setdefault(r["operation"], []).append(r["display_lang"])
                check("SOAP EXCEPTION" not in out and "FAILED" not in out, f"{layer}: uilang calls failed:\n{out}")
                check(len(langs) == 5 and len(langs["GetUser"]) >= 3 and len(langs["UpdateUser"]) >= 3 and
                      len(langs["GetEngineInfo"]) >= 4 and
                      all(lang == "ja" for sent in langs.values() for lang in sent),
                      f"{layer}: displayLang not the thread's uilang: {langs}")

                # Through an HTTP proxy: the request names the server in full.
                open(log, "w").close()
                out = run(lexctl, cwd, [f"setopt server http://127.0.0.1:{sim_port}", *common,
                                        f"setopt proxy 127.0.0.1:{relay_port}", "test -string proxied"])
                records = [json.loads(line) for line in open(log)]
                check("OK." in out, f"{layer}: proxied call failed:\n{out}")
                check(len(records) == 1 and records[0]["request_line"].startswith(
                    f"POST http://127.0.0.1:{sim_port}/nvsoap/nvsoap.cgi "),
                    f"{layer}: not sent through the proxy: {[r['request_line'] for r in records]}")
        finally:
            relay.kill()
            relay.wait()
            sim.stop()
    return report("wire_checks", failures)


if __name__ == "__main__":
    sys.exit(main())
