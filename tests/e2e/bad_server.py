#!/usr/bin/env python3
"""A misbehaving HTTP server on loopback, for the client's failure tests.

Usage: bad_server.py MODE — prints its port, then serves every connection
the same way until killed:
  notxml     200 with a body that is not XML
  truncated  200 whose body stops halfway through the envelope
  garbage    200 whose body never ends (bytes until the client gives up)
  drip       a valid reply, one byte a second
  silent     accepts, reads the request, never answers
  reset      starts a reply, then resets the connection
  http500    500 with an HTML body
  fault-STYLE  the service's fault (NOT_FOUND, "no such dictionary", a session
             token) as another SOAP stack writes it: STYLE is SOAP-ENV (gSOAP's
             prefixes), soap (.NET), S (JAX-WS), default (a default namespace
             and no prefixes at all) or soap12 (SOAP 1.2 with the prefix env);
             the detail's error list echoes the licence the request carried
  attachments  a TranslateResponse whose document lists 100,000 attachments,
             all but five of the same name (bounded: about 7 MB); of those five,
             three have names that try to leave the output folder and one is empty
"""
import re
import socket
import struct
import sys
import time

from harness import serve_on_loopback

ENVELOPE = (b'<?xml version="1.0" encoding="UTF-8"?>\n<SOAP-ENV:Envelope '
            b'xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
            b'xmlns:nv="http://schemas.lexary.net/nvsoap/2/schema"><SOAP-ENV:Body>'
            b'<nv:TestEchoResponse><str>echoed text</str></nv:TestEchoResponse>'
            b'</SOAP-ENV:Body></SOAP-ENV:Envelope>')
LIFETIME = 300  # seconds: the server ends by itself
SOAP_ENV = "http://schemas.xmlsoap.org/soap/envelope/"
NV = "http://schemas.lexary.net/nvsoap/2/schema"
FAULT_TOKEN = "0123456789abcdef"


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
    data = b""
    conn.settimeout(10)
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(65536)
        if not chunk:
            return None
        data += chunk
    head, _, body = data.partition(b"\r\n\r\n")
    length = 0
    for line in head.split(b"\r\n"):
        if line.lower().startswith(b"content-length:"):
            length = int(line.split(b":", 1)[1])
    while len(body) < length:
        chunk = conn.recv(65536)
        if not chunk:
            return None
        body += chunk
    return body


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
            conn.settimeout(LIFETIME)  # a sanitizer build reads it slowly
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
            time.sleep(LIFETIME)
        elif mode == "reset":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % len(ENVELOPE)
                         + ENVELOPE[:40])
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        elif mode == "http500":
            body = b"<html><body>broken</body></html>"
            conn.sendall(b"HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/html\r\n"
                         b"Content-Length: %d\r\n\r\n" % len(body) + body)
    except OSError:
        pass
    finally:
        conn.close()


def main():
    mode = sys.argv[1]
    serve_on_loopback(lambda conn: serve(conn, mode), LIFETIME)


if __name__ == "__main__":
    main()
