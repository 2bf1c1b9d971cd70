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
"""
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


def read_request(conn):
    data = b""
    conn.settimeout(10)
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(65536)
        if not chunk:
            return False
        data += chunk
    head, _, body = data.partition(b"\r\n\r\n")
    length = 0
    for line in head.split(b"\r\n"):
        if line.lower().startswith(b"content-length:"):
            length = int(line.split(b":", 1)[1])
    while len(body) < length:
        chunk = conn.recv(65536)
        if not chunk:
            return False
        body += chunk
    return True


def serve(conn, mode):
    try:
        if not read_request(conn):
            return
        if mode == "notxml":
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
