#!/usr/bin/env python3
"""Pages downloaded with wget from a loopback HTTP server for html, dlang and
recode: the printed command line, redirects, the character set of the last
response, file naming, and downloads that fail (404, a redirect loop, no wget),
leaving nothing behind in the temporary folder."""
import http.server
import os
import re
import socketserver
import sys
import tempfile
import threading

from harness import LOGIN, Checks, Lexsim, read, run, write

LATIN1_PAGE = "<html><body><p>Caf\u00e9 hello world</p></body></html>".encode("latin-1")
ASCII_PAGE = b"<html><body><p>hello world</p></body></html>"
TEXT = b"Hello world. This is a small English text about the weather."
PAGES = {
    "/page.html": ("text/html; charset=ISO-8859-1", LATIN1_PAGE),
    "/ascii.html": ("text/html; charset=ISO-8859-1", ASCII_PAGE),
    "/doc.txt": ("text/plain; charset=UTF-8", TEXT),
}
REDIRECTS = {"/moved": "/hop", "/hop": "/page.html", "/loop": "/loop"}
AGENT = "Mozilla/5.0 (Windows; U; Windows NT 5.1; en-US; rv:1.9.1.3) Gecko/20090824 Firefox/3.5.3"


class Pages(http.server.BaseHTTPRequestHandler):
    agents = []

    def do_GET(self):  # noqa: N802
        Pages.agents.append(self.headers.get("User-Agent"))
        status, kind, body = ((302, "text/plain", b"moved") if self.path in REDIRECTS else
                              (200, *PAGES[self.path]) if self.path in PAGES else (404, "text/plain", b"no such page"))
        self.send_response(status)
        if status == 302:
            self.send_header("Location", REDIRECTS[self.path])
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *args):
        pass


def sections(out):
    """The output of each "@echo ==NAME" block of the script, by name."""
    parts = re.split(r"^==(\S+) ?\n", out, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))


def main():
    lexctl, lexsim, layer = sys.argv[1], sys.argv[2], sys.argv[3]
    check = Checks(f"downloads {layer}")
    httpd = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Pages)
    threading.Thread(target=httpd.serve_forever, daemon=True).start()
    url = f"http://127.0.0.1:{httpd.server_address[1]}"
    with tempfile.TemporaryDirectory(prefix="lexctl3-dl-") as cwd:
        tmp = os.path.join(cwd, "tmp")
        os.mkdir(tmp)
        sim = Lexsim(lexsim, cwd=cwd)
        script = [
            f"setopt server {sim.server}", f"setopt commslayer {layer}", *LOGIN,
            "@echo ==redirect", f"html -downfile got.html {url}/moved",
            "@echo ==temporary", f"html {url}/page.html",
            "@echo ==fromcode", f"html -fromCode UTF-8 -downfile ascii.html {url}/ascii.html",
            "@echo ==ifnotexist", f"html -downifnotexist -infile cached.html {url}/ascii.html",
            "@echo ==exists", f"html -downifnotexist -infile cached.html {url}/ascii.html",
            "@echo ==dlang", f"dlang -file {url}/doc.txt",
            "@echo ==recode", f"recode {url}/doc.txt UTF-16LE",
            "@echo ==nodir", f"html -downfile nodir/x.html {url}/page.html",
            "@echo ==loop", f"html {url}/loop",
            "@echo ==missing", f"dlang -file {url}/missing",
            "@echo ==nowget", "setopt wget /nonexistent/wget", f"recode {url}/doc.txt UTF-8",
            "@echo ==notonpath", "setopt wget no-such-wget-on-path", f"dlang -file {url}/doc.txt",
            # A wget that saves no headers, run with a proxy set.
            "@echo ==noheaders", f"setopt wget {cwd}/fakewget", "setopt proxy 127.0.0.1:9",
            f"html -downfile kept.html {url}/page.html",
            "@echo ==end",
        ]
        write(cwd, "fakewget", '#!/bin/sh\nprintf "%s\\n" "$@" > args.txt\n'
              'for a; do case "$a" in --output-document=*) echo body > "${a#*=}";; esac; done\n')
        os.chmod(os.path.join(cwd, "fakewget"), 0o755)
        env = dict(os.environ, HOME=cwd, TMPDIR=tmp)
        env.pop("http_proxy", None)
        try:
            proc = run(lexctl, cwd, script, env=env)
        finally:
            sim.stop()
            httpd.shutdown()
        out = sections(proc.stdout)
        work = re.escape(tmp) + r"/wget-[0-9a-f]+-\d+"

        # The command line is printed as it is run, followed by an empty line.
        red = out.get("redirect", "")
        line = (f'wget --no-verbose --save-headers --no-proxy --output-document="({work})" '
                f'--user-agent="{re.escape(AGENT)}" "{re.escape(url)}/moved"\n\n')
        check(re.search("^" + line, red, re.M), f"command line of a download:\n{red}")
        check("  Content:    text/html; charset=ISO-8859-1\n" in red and
              "  Encoding:   ISO-8859-1\n" in red and "Input Encoding Used: ISO-8859-1\n" in red,
              f"the charset of the last response after redirects is the encoding:\n{red}")
        check(read(cwd, "got.html", "rb") == LATIN1_PAGE, "the downfile holds the page's body only")
        translated = read(cwd, "got.out.html", "rb") or b""
        check(f"Output File: got.out.html ({len(translated)} bytes)\n" in red and
              "Caf\u00e9".encode() in translated, f"the translation of the downfile:\n{red}")
        check(set(Pages.agents) == {AGENT}, f"user agents sent: {set(Pages.agents)}")

        temp = out.get("temporary", "")
        made = re.search(r"Output File: (" + work + r"\.tmp\.out\.html) \(\d+ bytes\)", temp)
        check(made and os.path.exists(made.group(1)), f"a page without downfile:\n{temp}")

        fromcode = out.get("fromcode", "")
        check("  Encoding:   UTF-8\n" in fromcode and "Input Encoding Used: UTF-8\n" in fromcode,
              f"-fromCode wins over the downloaded charset:\n{fromcode}")
        check("--output-document" in out.get("ifnotexist", "") and read(cwd, "cached.html", "rb") == ASCII_PAGE,
              "-downifnotexist downloads a missing -infile")
        exists = out.get("exists", "")
        check("wget" not in exists and "Output File: cached.out.html" in exists,
              f"-downifnotexist reads an -infile that exists:\n{exists}")

        dlang = out.get("dlang", "")
        check(f"URL:                  {url}/doc.txt\n" in dlang and
              "Content:              text/plain; charset=UTF-8\n" in dlang and
              "From Encoding:        UTF-8\n" in dlang and "Language:             en\n" in dlang,
              f"dlang of a URL:\n{dlang}")
        recode = out.get("recode", "")
        made = re.search(r"Output File: (" + work + r"\.tmp\.out) \((\d+) bytes\)", recode)
        check(made and read(tmp, made.group(1), "rb") == TEXT.decode().encode("utf-16-le"),
              f"recode of a URL:\n{recode}")

        noheaders = out.get("noheaders", "")
        check(noheaders.endswith("\n\nFailed to process the file.\n") and "--proxy --output" in noheaders
              and not os.path.exists(os.path.join(cwd, "kept.html")),
              f"a saved file without headers:\n{noheaders}")
        # wget gets the words of the printed line, none of them taken apart by a shell.
        args = (read(cwd, "args.txt") or "").splitlines()
        check(args[:3] == ["--no-verbose", "--save-headers", "--proxy"] and
              args[4:] == [f"--user-agent={AGENT}", f"{url}/page.html"], f"wget's arguments: {args}")
        nodir = out.get("nodir", "")
        check(nodir.endswith("\n\nUnable to open file: nodir/x.html\n"), f"a downfile that cannot be made:\n{nodir}")
        for name in ("loop", "missing", "nowget", "notonpath"):
            text = out.get(name, "")
            check(text.endswith("\n\nFailed to download using wget.\n"),
                  f"a failed download ends the command:\n{text}")
        leftover = sorted(n for n in os.listdir(tmp) if not re.search(r"\.out(\.html)?$", n))
        check(not leftover, f"files left in the temporary folder: {leftover}")
        check(proc.returncode == 0 and "==end" in proc.stdout, f"status {proc.returncode}")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
