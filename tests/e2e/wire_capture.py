#!/usr/bin/env python3
"""A recording HTTP relay on loopback: forwards every request to a target
server (or, for proxy-form requests, to the host they name) and writes what
crossed the wire to a JSON-lines log, one record per request.

Usage: wire_capture.py TARGET_HOST TARGET_PORT LOG — prints its port first."""
import json
import re
import socket
import sys
import threading

from harness import read_message, serve_on_loopback

LIFETIME = 300


def operation_of(body):
    """The operation a SOAP request calls and its displayLang text (None when
    the request has none); (None, None) for a body that is not plain XML."""
    op = re.search(rb"<(?:[\w.-]+:)?Body[^>]*>\s*<(?:[\w.-]+:)?([\w.-]+)", body)
    lang = re.search(rb"<(?:[\w.-]+:)?displayLang(?:\s[^>]*)?>([^<]*)<", body)
    return (op.group(1).decode() if op else None, lang.group(1).decode() if lang else None)


def headers_of(head):
    lines = head.decode("latin-1").split("\r\n")
    return lines[0], [line.split(":", 1)[0].strip() + ":" + line.split(":", 1)[1].strip()
                      for line in lines[1:] if ":" in line]


class Relay:
    def __init__(self, target, log_path):
        self.target = target
        self.log = open(log_path, "a")
        self.lock = threading.Lock()
        self.connections = 0

    def record(self, entry):
        with self.lock:
            self.log.write(json.dumps(entry) + "\n")
            self.log.flush()

    def serve(self, client):
        with self.lock:
            self.connections += 1
            conn_id = self.connections
        upstream = None
        pending = b""
        try:
            client.settimeout(30)
            while True:
                message, pending = read_message(client, pending)
                if not message:
                    return
                head, body = message
                request_line, headers = headers_of(head)
                target = self.target
                method, uri, version = request_line.split(" ", 2)
                if uri.startswith("http://"):  # proxy form: relay to the named host
                    hostport = uri[7:].split("/", 1)[0]
                    host, _, port = hostport.partition(":")
                    target = (host, int(port or 80))
                    uri = "/" + uri[7:].split("/", 1)[1]
                if upstream is None:
                    upstream = socket.create_connection(target, timeout=30)
                forwarded = f"{method} {uri} {version}".encode() + head[len(request_line):] + b"\r\n\r\n" + body
                upstream.sendall(forwarded)
                reply, rest = read_message(upstream, b"")
                if not reply:
                    return
                reply_line, reply_headers = headers_of(reply[0])
                operation, display_lang = operation_of(body)
                self.record({"connection": conn_id, "request_line": request_line, "headers": headers,
                             "operation": operation, "display_lang": display_lang,
                             "body_start": body[:4].hex(), "create_session": b"CreateSession" in body,
                             "reply_line": reply_line,
                             "reply_headers": reply_headers})
                client.sendall(reply[0] + b"\r\n\r\n" + reply[1])
                if any(h.lower() == "connection:close" for h in reply_headers):
                    return
        except OSError:
            pass
        finally:
            client.close()
            if upstream:
                upstream.close()


def main():
    host, port, log_path = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    relay = Relay((host, port), log_path)
    serve_on_loopback(relay.serve, LIFETIME)


if __name__ == "__main__":
    main()
