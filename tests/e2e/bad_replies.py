#!/usr/bin/env python3
"""Replies of a misbehaving loopback server, on both comms layers. Each of
MODES ends one command with a single "FAILED: ..." line, leaves the settings
as they were, and the next command works. The service's fault as other SOAP
stacks write it (gSOAP's prefixes, .NET, JAX-WS, a default namespace without
prefixes, SOAP 1.2) prints its detail, with the error list echoing the
request's licence, and its token signs the next request. 100,000 attachments,
all but five of one name, are one file with the last one's bytes; of the
five, three have names that try to leave the output folder and one is empty.
A reply that failed halfway leaves no connection for the next call, and a
new time-out holds from the next call on.
"""
import hashlib
import hmac
import os
import re
import socket
import struct
import sys
import tempfile
import time

from harness import LAYERS, LOGIN, WINDOWS, Checks, Lexsim, read_message, run, serve_on_loopback

ENVELOPE = (b'<?xml version="1.0" encoding="UTF-8"?>\n<SOAP-ENV:Envelope '
            b'xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
            b'xmlns:nv="http://schemas.lexary.net/nvsoap/2/schema"><SOAP-ENV:Body>'
            b'<nv:TestEchoResponse><str>echoed text</str></nv:TestEchoResponse>'
            b'</SOAP-ENV:Body></SOAP-ENV:Envelope>')
SOAP_ENV = "http://schemas.xmlsoap.org/soap/envelope/"
NV = "http://schemas.lexary.net/nvsoap/2/schema"
FAULT_TOKEN = "0123456789abcdef"
SEP = "\\" if WINDOWS else "/"
# Claims 7 MB, then stops 2 MB into a base64 value: a value past 1 MB is decoded
# into a buffer sized from the claimed length.
LIAR_START = ENVELOPE[: ENVELOPE.index(b"</nv:TestEchoResponse>")] + b"<bin>" + b"QUJD" * (1 << 19)
LIAR_SHORT = (7 << 20) - len(LIAR_START)


def fault_body(style, licence):
    """The same fault in the shape each style of SOAP stack gives it."""
    detail = ("<err>NOT_FOUND</err><msg>no such dictionary</msg><error><item><key>licence</key>"
              f"<err>{licence}</err></item></error><token>{FAULT_TOKEN}</token>")
    if style == "default":
        # No prefix on any element: the envelope's namespace is the default
        # one, which the unqualified members of the fault undo (xmlns=""),
        # as the detail's members undo the service's.
        plain = (detail.replace("<err>", '<err xmlns="">').replace("<msg>", '<msg xmlns="">')
                 .replace("<error>", '<error xmlns="">').replace("<token>", '<token xmlns="">'))
        return (f'<?xml version="1.0" encoding="utf-8"?><Envelope xmlns="{SOAP_ENV}"><Body><Fault>'
                f'<faultcode xmlns:e="{SOAP_ENV}" xmlns="">e:Client</faultcode>'
                '<faultstring xmlns="">no such dictionary</faultstring>'
                f'<detail xmlns=""><NvsoapException xmlns="{NV}">{plain}</NvsoapException></detail>'
                "</Fault></Body></Envelope>")
    if style == "soap12":
        return ('<?xml version="1.0" encoding="UTF-8"?><env:Envelope xmlns:env="http://www.w3.org/2003/05/soap-envelope">'
                "<env:Body><env:Fault><env:Code><env:Value>env:Sender</env:Value></env:Code>"
                '<env:Reason><env:Text xml:lang="en">no such dictionary</env:Text></env:Reason>'
                f'<env:Detail><nv:NvsoapException xmlns:nv="{NV}">{detail}</nv:NvsoapException></env:Detail>'
                "</env:Fault></env:Body></env:Envelope>")
    env, nv, extra = {"SOAP-ENV": ("SOAP-ENV", "nv", ""), "soap": ("soap", "n1", ' xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"'),
                      "S": ("S", "ns2", "")}[style]
    return (f'<?xml version="1.0" encoding="UTF-8"?><{env}:Envelope xmlns:{env}="{SOAP_ENV}"{extra}>'
            f"<{env}:Body><{env}:Fault><faultcode>{env}:Client</faultcode>"
            "<faultstring>no such dictionary</faultstring>"
            f'<detail><{nv}:NvsoapException xmlns:{nv}="{NV}">{detail}</{nv}:NvsoapException></detail>'
            f"</{env}:Fault></{env}:Body></{env}:Envelope>")


def attachments_body():
    """A translated document with many attachments of one name; the last
    one of that name holds "last"."""
    items = [f"<item><data>eA==</data><name>{name}</name><type>text/plain</type></item>"
             for name in ("../escape.txt", "/tmp/lexctl3-bad-absolute.txt", "..", "sub/inner.txt")]
    items.append("<item><data></data><name>empty.txt</name><type>text/plain</type></item>")
    # 100,000 items in all, the most gSOAP takes in one array.
    items += ["<item><data>eA==</data><name>same.txt</name><type>text/plain</type></item>"] * (99999 - len(items))
    items.append("<item><data>bGFzdA==</data><name>same.txt</name><type>text/plain</type></item>")
    return (f'<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="{SOAP_ENV}" '
            f'xmlns:nv="{NV}"><SOAP-ENV:Body><nv:TranslateResponse><error></error>'
            "<encodingUsed>UTF-8</encodingUsed><outdata><data>ZG9j</data><type>text</type>"
            f"<attachments>{''.join(items)}</attachments></outdata>"
            "</nv:TranslateResponse></SOAP-ENV:Body></SOAP-ENV:Envelope>").encode()


def read_request(conn):
    """The request's body, or None when the connection ends before it."""
    conn.settimeout(10)
    message, _ = read_message(conn, b"")
    return message and message[1]


def serve(conn, mode):
    try:
        request = read_request(conn)
        if request is None:
            return
        if mode.startswith("fault-"):
            # One connection may carry several requests (keep-alive).
            while request is not None:
                found = re.search(rb"<licence>([^<]*)</licence>", request)
                body = fault_body(mode[6:], found.group(1).decode() if found else "").encode()
                conn.sendall(b"HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/xml; charset=utf-8\r\n"
                             b"Content-Length: %d\r\n\r\n" % len(body) + body)
                request = read_request(conn)
        elif mode == "attachments":
            body = attachments_body()
            conn.settimeout(300)  # a sanitizer build reads it slowly
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\n"
                         b"Content-Length: %d\r\nConnection: close\r\n\r\n" % len(body) + body)
        elif mode == "notxml":
            body = b"this is not XML at all\n"
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % len(body) + body)
        elif mode == "truncated":
            body = ENVELOPE[: len(ENVELOPE) // 2]
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nConnection: close\r\n\r\n" + body)
        elif mode == "garbage":
            # A well-formed start, then one string element that never ends.
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nConnection: close\r\n\r\n"
                         + ENVELOPE[: ENVELOPE.index(b"<str>") + 5])
            block = b"garbage " * 8192
            deadline = time.time() + 120
            while time.time() < deadline:
                conn.sendall(block)
        elif mode == "drip":
            reply = b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % len(ENVELOPE)
            for byte in reply + ENVELOPE:
                conn.sendall(bytes([byte]))
                time.sleep(1)
        elif mode == "silent":
            time.sleep(300)
        elif mode == "reset":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % len(ENVELOPE)
                         + ENVELOPE[:40])
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        elif mode == "liar":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % (7 << 20)
                         + LIAR_START)
        elif mode == "http500":
            body = b"<html><body>broken</body></html>"
            conn.sendall(b"HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/html\r\n"
                         b"Content-Length: %d\r\n\r\n" % len(body) + body)
    except OSError:
        pass
    finally:
        conn.close()


NOT_SOAP = "The reply is not a complete SOAP message"
MODES = {  # mode: what the FAILED line holds on gsoap, on windows
    "notxml": (NOT_SOAP, NOT_SOAP),  # 200 with a body that is not XML
    "truncated": (NOT_SOAP, NOT_SOAP),  # the envelope stops halfway
    "garbage": ("max message length exceeded", "reply too large"),  # a body that never ends
    "silent": ("timed out", "Operation too slow"),  # the request read, never an answer
    "drip": ("Operation too slow", "Operation too slow"),  # a valid reply, one byte a second
    "reset": (NOT_SOAP, "Connection reset"),  # a reset halfway through the reply
    "liar": ("End of file or no input", f"closed with {LIAR_SHORT} bytes"),  # a Content-Length larger than the reply
    "http500": ("Internal Server Error (500)",) * 2,  # with an HTML body
}


def start_bad(mode):
    return serve_on_loopback(lambda conn: serve(conn, mode))


def licence(token):
    """What the client sends as its licence for admin/admin with session key KEY."""
    password_hash = hmac.new(b"admin", b"admin", hashlib.sha1).hexdigest()
    return "admin " + hmac.new(password_hash.encode(), token.encode(), hashlib.sha1).hexdigest() + " KEY"


def fault_checks(lexctl, cwd, check):
    """The same fault with the envelope's namespace under any prefix, or none,
    prints the service's detail, and its token signs the next request."""
    for style in ("SOAP-ENV", "soap", "S", "default", "soap12"):
        port = start_bad("fault-" + style)
        for layer in LAYERS:
            proc = run(lexctl, cwd, [f"setopt commslayer {layer}", "setopt timeout 10", *LOGIN, "setopt sesskey KEY",
                                     f"setopt server http://127.0.0.1:{port}", "@echo FIRST", "@test -string one",
                                     "@echo TOKEN", "@setopt sesstoken", "@echo SECOND", "@test -string two"])
            fault = "SOAP EXCEPTION:\nErr: NOT_FOUND\nMsg: no such dictionary\nWarnings:\n   licence = "
            want = (f"FIRST \nString:       one\n\n{fault}{licence('')}\n\nTOKEN \n"
                    f"setopt sesstoken    {FAULT_TOKEN}\nSECOND \nString:       two\n\n{fault}{licence(FAULT_TOKEN)}\n\n")
            got = proc.stdout[proc.stdout.find("FIRST"):]
            check(got == want and proc.returncode == 0 and not proc.stderr,
                  f"fault-{style} {layer}: printed\n{got}\nexpected\n{want}{proc.stderr[-500:]}")


def attachment_checks(lexctl, cwd, check):
    """99,995 attachments of one name are one file with the last one's bytes;
    names that point elsewhere stay inside the folder."""
    outside = "/tmp/lexctl3-bad-absolute.txt"
    port = start_bad("attachments")
    for layer in LAYERS:
        folder = os.path.join(cwd, layer)
        os.mkdir(folder)
        if os.path.exists(outside):
            os.unlink(outside)
        proc = run(lexctl, cwd, [f"setopt commslayer {layer}", "setopt timeout 60", *LOGIN,
                                 f"setopt server http://127.0.0.1:{port}", "@echo CALL",
                                 f'@tran "" x -outdata {layer}/out.txt'], timeout=300)
        out = f"{layer}{SEP}out.txt"  # lexctl3.exe writes file options with the system's separator
        saved = f"Output Attachment (text/plain): {out}_files{SEP}"
        want = (f"CALL \nOutput File:  {out}\nInput Encoding Used: UTF-8\n"
                f"Output File (text): {out} (3 bytes)\n{saved}escape.txt (1 bytes)\n"
                f"{saved}lexctl3-bad-absolute.txt (1 bytes)\nInvalid attachment name: ..\n{saved}inner.txt (1 bytes)\n"
                f"{saved}empty.txt (0 bytes)\nAttachment name given 99995 times, the last one is saved: same.txt\n"
                f"{saved}same.txt (4 bytes)\n")
        got = proc.stdout[proc.stdout.find("CALL"):]
        check(got == want and proc.returncode == 0 and not proc.stderr,
              f"attachments {layer}: printed\n{got[:3000]}\nexpected\n{want}{proc.stderr[-500:]}")
        saved = os.path.join(folder, "out.txt_files")
        files = sorted(os.listdir(saved)) if os.path.isdir(saved) else []
        check(files == ["empty.txt", "escape.txt", "inner.txt", "lexctl3-bad-absolute.txt", "same.txt"] and
              open(os.path.join(saved, "same.txt")).read() == "last", f"attachments {layer}: files {files}")
        check(not os.path.exists(outside) and not os.path.exists(os.path.join(folder, "escape.txt")),
              f"attachments {layer}: an attachment was written outside its folder")


def later_call_checks(lexctl, cwd, check):
    """What one call leaves behind does not reach the next: after a reply that
    failed halfway (300 kB of junk on a connection left open) the next call
    takes a new connection, and a new time-out holds from the next call on,
    also against a reply that comes too late."""
    replies = []  # what each request gets in turn; (seconds, body): late

    def serve_in_turn(conn):
        # Requests are answered in turn on whichever connection they come:
        # Wine's WinINet keeps a connection the request asked to close.
        try:
            while read_request(conn) is not None:  # held open until the client leaves, or for 10 s
                body = replies.pop(0) if replies else None
                if isinstance(body, tuple):
                    time.sleep(body[0])
                    body = body[1]
                if body is not None:
                    conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n"
                                 % len(body) + body)
        except OSError:
            pass
        finally:
            conn.close()
    port = serve_on_loopback(serve_in_turn)
    start = [*LOGIN, f"setopt server http://127.0.0.1:{port}"]
    good = 'test -string "echoed text"'
    for layer, timed_out in zip(LAYERS, MODES["silent"]):
        replies[:] = [b"junk " * 60000, ENVELOPE]
        out = run(lexctl, cwd, [f"setopt commslayer {layer}", *start, "test -string bad", "@echo NEXT", good]).stdout
        bad, nxt = out.split("NEXT")
        check("FAILED" in bad and "OK." in nxt and "FAILED" not in nxt,
              f"half-read {layer}: the call after a half-read reply failed:\n{out[-1500:]}")
        replies[:] = [ENVELOPE, (5, ENVELOPE)]
        out = run(lexctl, cwd, [f"setopt commslayer {layer}", *start, "setopt keepalive false", good, "setopt timeout 2", "@echo NEXT",
                                "test -string late"]).stdout
        first, nxt = out.split("NEXT")
        check("OK." in first and timed_out in nxt, f"time-out {layer}: a new time-out did not hold:\n{out[-1500:]}")


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    check = Checks("bad_replies")
    with tempfile.TemporaryDirectory(prefix="lexctl3-bad-") as cwd:
        with Lexsim(lexsim, cwd=cwd) as sim:
            for mode, texts in MODES.items():
                port = start_bad(mode)
                for layer, expected in zip(LAYERS, texts):
                    proc = run(lexctl, cwd, [f"setopt commslayer {layer}", "setopt timeout 3", *LOGIN,
                                             f"setopt server http://127.0.0.1:{port}", "@echo SETTINGS-BEFORE",
                                             "@setopt", "@echo CALL", "test -string bad", "@echo SETTINGS-AFTER",
                                             "@setopt", "@echo NEXT", f"setopt server {sim.server}", "test -string good"],
                               # a small reply limit keeps the endless reply short
                               timeout=180, env=dict(os.environ, HOME=cwd, LEXCTL3_MAX_REPLY_MB="8"))
                    before, call, after, nxt = re.split(r"SETTINGS-BEFORE|CALL|SETTINGS-AFTER|NEXT", proc.stdout)[1:]
                    failed = [line for line in call.splitlines() if line.startswith("FAILED")]
                    where = f"{mode} {layer}"
                    check(len(failed) == 1 and "EXCEPTION" not in call and "OK." not in call.splitlines() and
                          expected in failed[0], f"{where}: expected one FAILED line with {expected!r}:"
                          f"\n{call}")
                    check(before == after, f"{where}: settings changed:\n{before}\n---\n{after}")
                    check("OK." in nxt and proc.returncode == 0 and not proc.stderr,
                          f"{where}: the next command failed ({proc.returncode}):\n{nxt}{proc.stderr[-500:]}")
        fault_checks(lexctl, cwd, check)
        later_call_checks(lexctl, cwd, check)
        attachment_checks(lexctl, cwd, check)
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
