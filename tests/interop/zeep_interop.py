#!/usr/bin/python3
"""Calls a running lexsim through zeep, a SOAP toolkit nobody here wrote, using only the
WSDL that the build installs beside lexsim.

Usage: zeep_interop.py LEXSIM WSDL
Exit status: 0 when every check passed, 1 when some failed, 77 when zeep is missing.
"""
import hashlib
import hmac
import os
import select
import signal
import subprocess
import sys
import urllib.parse

try:
    import requests
    import zeep
    import zeep.exceptions
    from zeep.transports import Transport
except ImportError as e:
    print(f"SKIP: zeep is not importable by {sys.executable}: {e}")
    sys.exit(77)

NS = "http://schemas.lexary.net/nvsoap/2/schema"
ADMIN, ADMIN_PASSWORD = "admin", "admin"
START_TIMEOUT, CALL_TIMEOUT, STOP_TIMEOUT = 10, 20, 15

failures = []
CHECKS = [0]


def check(ok, what):
    CHECKS[0] += 1
    if not ok:
        print("FAIL  " + what)
        failures.append(what)
    return ok


def hmac_hex(key, message):
    return hmac.new(key.encode(), message.encode(), hashlib.sha1).hexdigest()


def start_lexsim(path):
    proc = subprocess.Popen([path, "--port", "0"], stdout=subprocess.PIPE, text=True)
    ready, _, _ = select.select([proc.stdout], [], [], START_TIMEOUT)
    line = proc.stdout.readline().strip() if ready else ""
    if not line.startswith("http://"):
        proc.kill()
        sys.exit(f"lexsim did not print its address (got {line!r})")
    return proc, line + proc.stdout.readline().strip().split(": ", 1)[1]


def service_for(wsdl, url, session=None):
    transport = Transport(session=session or requests.Session(), timeout=CALL_TIMEOUT,
                          operation_timeout=CALL_TIMEOUT)
    client = zeep.Client(wsdl, transport=transport)
    binding = next(iter(client.wsdl.bindings))
    return client, client.create_service(binding, url)


def fault_err(fault):
    """The err field of a fault's NvsoapException detail, or None."""
    if fault.detail is None:
        return None
    for el in fault.detail.iter():
        if el.tag in ("err", f"{{{NS}}}err"):
            return el.text
    return None


def call(what, fn, **kwargs):
    try:
        return fn(**kwargs)
    except Exception as e:  # a fault, a transport or a schema error is a failed check
        check(False, f"{what}: {fault_err(e) if isinstance(e, zeep.exceptions.Fault) else e!r}")
    return None


def faults(what, want, fn, **kwargs):
    """Checks that the call faults, with err `want` (any err when None)."""
    try:
        fn(**kwargs)
        check(False, f"{what} must fault")
    except zeep.exceptions.Fault as f:
        check(fault_err(f) is not None and want in (None, fault_err(f)), f"{what} faults {want} (got {fault_err(f)})")


def test_echo(svc):
    r = call("TestEcho", svc.TestEcho, str="h\u00e9llo \u20ac <&>", num=-9007199254740993,
             bin=bytes(range(256)))
    if r is not None:
        check(r.str == "h\u00e9llo \u20ac <&>", "TestEcho echoes a string with markup and UTF-8")
        check(r.num == -9007199254740993, "TestEcho echoes a 64-bit number")
        check(r.bin == bytes(range(256)), "TestEcho echoes all byte values")
        check(r.error is None and r.token is None, "anonymous TestEcho has no warnings or token")
    r = call("TestEcho (empty)", svc.TestEcho)
    if r is not None:
        check(r.str is None and r.num is None and r.bin is None, "absent values stay absent")


def test_licences(svc, pwhash):
    r = call("TestEcho with licence", svc.TestEcho, licence=f"{ADMIN} {pwhash}", str="x")
    check(r is not None and r.str == "x", "TestEcho accepts the admin licence")
    faults("a wrong licence", "AUTH_FAILED", svc.TestEcho, licence=f"{ADMIN} {hmac_hex('wrong', ADMIN)}", str="x")


def test_session(wsdl, url, svc, pwhash):
    # Basic auth: the percent-encoded user id and the 40-digit password hash.
    session = requests.Session()
    session.auth = (urllib.parse.quote(ADMIN, safe=""), pwhash)
    _, auth_svc = service_for(wsdl, url, session)
    r = call("CreateSession", auth_svc.CreateSession, type="login", clientid="zeep-interop")
    if r is None:
        return
    check(bool(r.session) and bool(r.token), "CreateSession returns a session key and token")
    check((r.expireSecs or 0) > 0 and (r.lifetimeHours or 0) > 0,
          "CreateSession returns positive expiry and lifetime")
    licence = f"{ADMIN} {hmac_hex(pwhash, r.token)} {r.session}"
    e = call("TestEcho in session", svc.TestEcho, licence=licence, str="in session")
    check(e is not None and e.str == "in session", "the session credential is accepted")
    faults("a session credential with the wrong token", None, svc.TestEcho,
           licence=f"{ADMIN} {hmac_hex(pwhash, 'not-the-token')} {r.session}")

    bad = requests.Session()
    bad.auth = (ADMIN, hmac_hex("wrong", ADMIN))
    _, bad_svc = service_for(wsdl, url, bad)
    faults("CreateSession with a wrong password", "AUTH_FAILED", bad_svc.CreateSession, type="login")


def test_engines(client, svc, licence):
    r = call("GetEngineInfo", svc.GetEngineInfo, licence=licence, displayLang="en")
    if r is None:
        return
    engines = {e.eid: e for e in (r.engines.item if r.engines else [])}
    check({"QZ-EJ", "QZ-TM"} <= engines.keys(),
          f"GetEngineInfo lists QZ-EJ and QZ-TM (got {sorted(engines)})")
    ej = engines.get("QZ-EJ")
    if ej is not None:
        check((ej.__getattribute__("from"), ej.to) == ("en", "ja"), "QZ-EJ goes from en to ja")
        check(bool(ej.display), "QZ-EJ has a display name")
    bridges = [e for e in engines.values() if e.inter]
    check(bool(bridges) and all(e.eidLeft and e.eidRight for e in bridges),
          f"bridge engines name both halves ({[(e.eid, e.eidLeft, e.eidRight) for e in bridges]})")
    for e in bridges:
        left = engines.get(e.eidLeft)
        if left is not None:
            check((left.__getattribute__("from"), left.to) == (e.__getattribute__("from"), e.inter),
                  f"{e.eid}'s left half {left.eid} leads to its intermediate language")

    engine_filter = client.get_type(f"{{{NS}}}EngineFilter")(**{"from": "ja"})
    f = call("GetEngineInfo filtered", svc.GetEngineInfo, licence=licence, filter=engine_filter)
    if f is not None:
        got = [e for e in (f.engines.item if f.engines else [])]
        check(bool(got) and all(e.__getattribute__("from") == "ja" for e in got),
              f"the filter from=ja keeps only engines from ja ({[e.eid for e in got]})")


def test_translate(client, svc, licence):
    text = "hello world zzqxv."
    engine = client.get_type(f"{{{NS}}}EngineSelect")(eid="QZ-EJ")
    block = client.get_type(f"{{{NS}}}SourceBlock")(lang="en", text=text)
    blocks = client.get_type(f"{{{NS}}}SourceBlockArray")(item=[block])
    r = call("TranslateText", svc.TranslateText, licence=licence, engine=engine, blocks=blocks)
    if r is None:
        return
    out = r.blocks.item if r.blocks else []
    check(len(out) == 1, f"one translated block per source block (got {len(out)})")
    parts = out[0].parts.item if out and out[0].parts else []
    translation = "".join(p.text or "" for p in parts)
    check("\u3053\u3093\u306b\u3061\u306f" in translation and "\u4e16\u754c" in translation,
          f"hello and world come back in Japanese (got {translation!r})")
    for p in parts:
        start, length = (int(x) for x in p.loc.split())
        check(0 <= start and start + length <= len(text), f"part location {p.loc!r} lies in the text")
    unknown = r.unknown.item if r.unknown else []
    words = [u.context[u.start:u.start + u.length] for u in unknown]
    check(words == ["zzqxv"], f"the one unknown word is reported at its place (got {words})")


def main():
    lexsim, wsdl = sys.argv[1], sys.argv[2]
    if not os.path.exists(wsdl):
        sys.exit(f"no WSDL at {wsdl}")
    proc, url = start_lexsim(lexsim)
    try:
        pwhash = hmac_hex(ADMIN_PASSWORD, ADMIN)
        client, svc = service_for(wsdl, url)
        test_echo(svc)
        test_licences(svc, pwhash)
        test_session(wsdl, url, svc, pwhash)
        test_engines(client, svc, f"{ADMIN} {pwhash}")
        test_translate(client, svc, f"{ADMIN} {pwhash}")
    finally:
        proc.send_signal(signal.SIGTERM)
        try:
            status = proc.wait(STOP_TIMEOUT)
        except subprocess.TimeoutExpired:
            proc.kill()
            status = proc.wait()
        check(status == 0, f"lexsim stops cleanly on SIGTERM (status {status})")
    print(f"zeep_interop: {CHECKS[0] - len(failures)} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
