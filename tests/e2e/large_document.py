#!/usr/bin/env python3
"""A large document through tran -indata on both comms layers, inline and
as DIME: the file written is byte for byte the document lexsim returns to a
plain SOAP request for the same translation.

Usage: large_document.py LEXCTL3 LEXSIM [MEGABYTES]"""
import base64
import hmac
import http.client
import os
import re
import sys
import tempfile
import urllib.parse

from harness import LAYERS, LOGIN, Checks, Lexsim, run

RULES = "# no rules\n"


def make_document(path, size):
    """Writes an HTML page of about `size` bytes, made here rather than stored:
    a few sentences to translate around a photo embedded as a data URI, which
    is what makes real pages this large. lexsim translates the sentences and
    passes the image through, so the time measured is mostly the transfer."""
    head = (b'<html><head><title>The red house</title></head><body>\n<p>The small house is red.</p>\n'
            b'<img alt="A red house" src="data:image/jpeg;base64,')
    tail = b'">\n<p>The old cat sleeps in the garden.</p>\n</body></html>\n'
    image = max(size - len(head) - len(tail), 0)
    with open(path, "wb") as f:
        f.write(head)
        chunk = 3 << 20
        while image > 0:
            part = base64.b64encode(os.urandom(chunk))[:image]
            f.write(part)
            image -= len(part)
        f.write(tail)


def soap_request(document, intype):
    """The Translate request lexctl3 sends for `tran -rules rules.txt -indata doc.<intype>`,
    without its transport details."""
    return (b'<?xml version="1.0" encoding="UTF-8"?>\n'
            b'<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
            b'xmlns:nv="http://schemas.lexary.net/nvsoap/2/schema"><SOAP-ENV:Body><nv:Translate>'
            b'<licence>admin ' + hmac.new(b"admin", b"admin", "sha1").hexdigest().encode() + b'</licence>'
            b'<clientid>lexctl3 4.7.2</clientid><select>intype=' + intype.encode() + b'</select>'
            b'<engine><eid>QZ-EJ</eid></engine><rules>' + RULES.encode() + b'</rules><indata><data>' +
            base64.b64encode(document) + b'</data></indata></nv:Translate></SOAP-ENV:Body></SOAP-ENV:Envelope>')


def reference_translation(url, body):
    """What lexsim answers to a plain request: the decoded outdata document."""
    parts = urllib.parse.urlsplit(url)
    conn = http.client.HTTPConnection(parts.hostname, parts.port, timeout=600)
    conn.request("POST", parts.path, body, {"Content-Type": "text/xml; charset=utf-8", "SOAPAction": '""'})
    reply = conn.getresponse().read()
    conn.close()
    found = re.search(rb"<outdata>.*?<data>([^<]*)</data>", reply, re.S)
    if not found:
        raise RuntimeError("lexsim gave no document: " + reply[:500].decode("utf-8", "replace"))
    return base64.b64decode(found.group(1))


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    size = int(float(sys.argv[3]) * (1 << 20)) if len(sys.argv) > 3 else 100 << 20
    check = Checks(f"large document ({size >> 20} MB)")
    with tempfile.TemporaryDirectory(prefix="lexctl3-large-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        doc, out = os.path.join(cwd, "doc.html"), os.path.join(cwd, "out.html")
        make_document(doc, size)
        with open(os.path.join(cwd, "rules.txt"), "w") as f:
            f.write(RULES)
        with open(doc, "rb") as f:
            expected = reference_translation(sim.url, soap_request(f.read(), "html"))
        for layer in LAYERS:
            for dime in ("false", "true"):
                if os.path.exists(out):
                    os.remove(out)
                proc = run(lexctl, cwd, [f"setopt server {sim.server}", f"setopt commslayer {layer}",
                                         f"setopt dime {dime}", *LOGIN, "setopt timeout 600",
                                         "tran -rules rules.txt -indata doc.html -outdata out.html"], timeout=600)
                line = f"Output File (html, UTF-8): out.html ({len(expected)} bytes)"
                if check(line in proc.stdout, f"{layer}, dime {dime}: no {line!r} in:\n{proc.stdout[-2000:]}"):
                    with open(out, "rb") as f:
                        check(f.read() == expected, f"{layer}, dime {dime}: the file written differs from lexsim's document")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
