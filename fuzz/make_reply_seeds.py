#!/usr/bin/env python3
"""Writes seed replies for fuzz_reply: one per operation, every element of
its response filled in from the schema, plus fault, chunked, gzip and DIME
variants. Usage: make_reply_seeds.py NV_XSD OPERATIONS_HEADER OUT_DIR"""
import gzip
import re
import struct
import sys
import xml.etree.ElementTree as ET

XS = "{http://www.w3.org/2001/XMLSchema}"
NS = "http://schemas.lexary.net/nvsoap/2/schema"
SIMPLE = {"string": "text", "long": "42", "int": "7", "boolean": "true",
          "base64Binary": "aGVsbG8=", "double": "1.5", "dateTime": "2024-01-02T03:04:05Z"}


def fill(types, type_name, depth):
    prefix, _, name = type_name.partition(":")
    if prefix == "xsd":
        return SIMPLE.get(name, "1")
    if depth > 4 or name not in types:
        return ""
    out = []
    for element in types[name].iter(XS + "element"):
        child = element.get("name")
        body = fill(types, element.get("type", "xsd:string"), depth + 1)
        count = 2 if element.get("maxOccurs") == "unbounded" else 1
        out.extend(f"<{child}>{body}</{child}>" for _ in range(count))
    return "".join(out)


def envelope(body):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n<SOAP-ENV:Envelope '
            'xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
            f'xmlns:nv="{NS}"><SOAP-ENV:Body>{body}</SOAP-ENV:Body></SOAP-ENV:Envelope>').encode()


def http(body, status="200 OK", content_type="text/xml; charset=utf-8", extra=""):
    head = (f"HTTP/1.1 {status}\r\nServer: lexsim\r\nContent-Type: {content_type}\r\n{extra}"
            f"Content-Length: {len(body)}\r\nConnection: close\r\n\r\n")
    return head.encode() + body


def dime_record(flags, type_t, record_id, record_type, data):
    pad = lambda b: b + b"\0" * (-len(b) % 4)
    header = struct.pack(">BBHHHI", 0x08 | flags, type_t, 0, len(record_id), len(record_type), len(data))
    return header + pad(record_id) + pad(record_type) + pad(data)


def main():
    xsd, header, out = sys.argv[1:4]
    types = {t.get("name"): t for t in ET.parse(xsd).getroot().findall(XS + "complexType")}
    ops = re.findall(r"^int nv__(\w+)\(", open(header).read(), re.M)
    for index, op in enumerate(ops):
        body = envelope(f"<nv:{op}Response>{fill(types, 'nv:' + op + 'Response', 0)}</nv:{op}Response>")
        open(f"{out}/{index:02d}_{op}", "wb").write(bytes([index, 0]) + http(body))
    fault = envelope(
        "<SOAP-ENV:Fault><faultcode>SOAP-ENV:Server</faultcode><faultstring>E</faultstring>"
        "<detail><nv:NvsoapException><err>1042</err><msg>No such user</msg><error><item><key>k"
        "</key><err>w</err></item></error><token>t2</token></nv:NvsoapException></detail>"
        "</SOAP-ENV:Fault>")
    open(f"{out}/fault_detail", "wb").write(bytes([26, 0]) + http(fault, "500 Internal Server Error"))
    open(f"{out}/http_error", "wb").write(bytes([2, 0]) + http(b"Not here", "404 Not Found", "text/plain"))
    echo = envelope("<nv:TestEchoResponse><token>t</token><str>s</str><num>-9</num>"
                    "<bin href=\"cid:id1\"/></nv:TestEchoResponse>")
    chunked = b"".join(b"%x\r\n%s\r\n" % (len(part), part) for part in (echo[:50], echo[50:])) + b"0\r\n\r\n"
    open(f"{out}/chunked", "wb").write(bytes([2, 0]) + b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n"
                                       b"Transfer-Encoding: chunked\r\n\r\n" + chunked)
    packed = gzip.compress(echo)
    open(f"{out}/gzip", "wb").write(bytes([2, 1]) + http(packed, extra="Content-Encoding: gzip\r\n"))
    dime = (dime_record(0x04, 0x20, b"", b"http://schemas.xmlsoap.org/soap/envelope/", echo) +
            dime_record(0x02, 0x10, b"id1", b"application/octet-stream", b"\x00\x01binary\xff"))
    open(f"{out}/dime", "wb").write(bytes([2, 0]) + http(dime, content_type="application/dime"))


main()
