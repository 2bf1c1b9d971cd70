#!/usr/bin/env python3
"""What lexctl3 puts on the wire, seen by a recording relay between it and
lexsim, on both comms layers: compression only when asked, the trust and
forwarding headers, Basic authentication on CreateSession only, the user
agent, keep-alive (and a request again on a fresh connection when the
peer closed the kept one), DIME, debug logs without the password, requests through
an HTTP proxy, and the thread's uilang in the displayLang of every operation
that has one."""
import base64
import os
import sys
import tempfile

from harness import LAYERS, LOGIN, Checks, Lexsim, Relay, run, read, write

ADMIN_HASH = "22acb1a0beb75bd6854f515c27a2538da06ffdee"  # HMAC-SHA1("admin", "admin")


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    check = Checks("wire_checks")
    with tempfile.TemporaryDirectory(prefix="lexctl3-wire-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        relay = Relay(sim.port)
        write(cwd, "blob.bin", bytes(range(256)) * 40)

        def exchange(layer, *lines, server=relay.server):
            relay.records.clear()
            out = run(lexctl, cwd, [f"setopt server {server}", f"setopt commslayer {layer}", *LOGIN, *lines]).stdout
            return out, list(relay.records)

        for layer in LAYERS:
            # Defaults: no compression, keep-alive, extra headers set.
            out, records = exchange(layer, "setopt trustheader X-Trusted-User", "setopt forwardedfor 10.1.2.3",
                                    "test -string a", "test -string b", "creates full", "test -string c", "ends")
            check(out.count("OK.") == 3 and "OK\n" in out and len(records) == 5, f"{layer}: calls failed:\n{out}")
            check(len({r["connection"] for r in records}) == 1, f"{layer}: keep-alive used several connections")
            basic = "Basic " + base64.b64encode(f"admin:{ADMIN_HASH}".encode()).decode()
            for r in records:
                h = r["headers"]
                check("accept-encoding" not in h and "content-encoding" not in h and
                      "content-encoding" not in r["reply_headers"], f"{layer}: compressed without asking: {r}")
                check(h.get("x-trusted-user") == "admin" and h.get("x-forwarded-for") == "10.1.2.3",
                      f"{layer}: trust or forwarding header: {h}")
                check(h.get("authorization") == (basic if r["operation"] == "CreateSession" else None),
                      f"{layer}: {r['operation']} authorization {h.get('authorization')!r}")
                if layer == "windows":
                    check(h.get("user-agent") == "lexctl3 4.7.2 R52475", f"windows: user agent {h.get('user-agent')!r}")

            # A peer that closes a kept-alive connection without saying so: the
            # request that found it closed goes again, once, on a fresh one.
            relay.drop_kept = True
            out, records = exchange(layer, "test -string a", "test -string b", "test -string c")
            relay.drop_kept = False
            check(out.count("OK.") == 3 and len({r["connection"] for r in records}) == 3,
                  f"{layer}: a silently closed connection failed a call:\n{out}")

            # Compression on, keep-alive off, from the call after the change.
            out, records = exchange(layer, "test -string plain", "setopt compress true", "setopt keepalive false",
                                    "test -string compressed", "test -string again")
            check(out.count("OK.") == 3 and "accept-encoding" not in records[0]["headers"],
                  f"{layer}: calls before compression failed:\n{out}")
            records = records[1:]
            check(len({r["connection"] for r in records}) == 2, f"{layer}: keep-alive off reused a connection")
            for r in records:
                check(r["headers"].get("content-encoding") == "gzip" and r["body_start"].startswith(b"\x1f\x8b") and
                      "accept-encoding" in r["headers"] and r["reply_headers"].get("content-encoding") == "gzip",
                      f"{layer}: not gzip both ways: {r}")

            # DIME: the binary travels as an attachment both ways (the first
            # record, the envelope, is not the message's last: ME unset).
            out, records = exchange(layer, "setopt dime true", "test -binary blob.bin -string with-dime")
            check("OK." in out and len(records) == 1 and all(
                r["headers"].get("content-type") == r["reply_headers"].get("content-type") == "application/dime" and
                not r["body_start"][0] & 0x02 for r in records), f"{layer}: DIME call failed:\n{out} {records}")

            # Debug logs hold what was sent and received, never a clear password.
            exchange(layer, "setopt passwd s3cret-admin-pw", f"setopt soapdebug dbg-{layer}",
                     f"setopt wininetlog trace-{layer}.log", "test -string logged", "setopt soapdebug off",
                     "setopt wininetlog off", "test -string not-logged", server=sim.server)
            sent, received = (read(cwd, f"dbg-{layer}-{n}.log") or "" for n in ("sent", "recv"))
            check("logged" in sent and "not-logged" not in sent, f"{layer}: sent log wrong:\n{sent[:800]}")
            check("Envelope" in received and read(cwd, f"dbg-{layer}-test.log") is not None,
                  f"{layer}: receive or test log missing")
            trace = read(cwd, f"trace-{layer}.log") or ""
            if layer == "windows":
                check("POST /nvsoap/nvsoap.cgi" in trace and "not-logged" not in trace,
                      f"windows: libcurl trace wrong:\n{trace[:800]}")
            check("s3cret-admin-pw" not in sent + received + trace, f"{layer}: clear password in a debug log")

            # Every request of an operation with a displayLang element carries the
            # thread's uilang: users, engines, dictionaries, lookup, udump, dtransfer.
            u = f"dl{layer}"
            out, records = exchange(layer, "setopt uilang ja", f"ucreate {u} -userPass pw", f"uupdate {u} -userName Dee",
                                    f"uupdate {u} -userIpAdd 10.1.0.0/16", f"uget {u}", "einfo",
                                    f"dcreate -runas {u} -eid QZ-EJ -type USER", f"udump {u}",
                                    f"dtransfer {u} -from QZ-EJ -to QZ-JE", "lookup -eid QZ-EJ apple",
                                    f"udelete -force {u}")
            langs = {}
            for r in records:
                if r["operation"] in ("CreateUser", "UpdateUser", "GetUser", "GetEngineInfo", "LookupFormatted"):
                    langs.setdefault(r["operation"], []).append(r["display_lang"])
            check("SOAP EXCEPTION" not in out and "FAILED" not in out, f"{layer}: uilang calls failed:\n{out}")
            check(len(langs) == 5 and len(langs["GetUser"]) >= 3 and len(langs["UpdateUser"]) >= 3 and
                  len(langs["GetEngineInfo"]) >= 4 and all(lang == "ja" for sent in langs.values() for lang in sent),
                  f"{layer}: displayLang not the thread's uilang: {langs}")

            # Through an HTTP proxy: the request names the server in full.
            out, records = exchange(layer, f"setopt proxy 127.0.0.1:{relay.port}", "test -string proxied",
                                    server=sim.server)
            check("OK." in out and [r["request_line"].split(" ")[1] for r in records] ==
                  [f"{sim.url}"], f"{layer}: not sent through the proxy: {[r['request_line'] for r in records]}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
