#!/usr/bin/env python3
"""A large document through tran -indata on both comms layers, inline and
as DIME: the file written is the translation of the same page with a small
image (lexsim translates the sentences and passes the image through), the
large image in its place.

Usage: large_document.py LEXCTL3 LEXSIM [MEGABYTES]"""
import base64
import os
import sys
import tempfile

from harness import LAYERS, LOGIN, Checks, Lexsim, read, run, write

# A few sentences around a photo embedded as a data URI, which is what makes
# real pages this large; made here rather than stored.
HEAD = (b'<html><head><title>The red house</title></head><body>\n<p>The small house is red.</p>\n'
        b'<img alt="A red house" src="data:image/jpeg;base64,')
TAIL = b'">\n<p>The old cat sleeps in the garden.</p>\n</body></html>\n'


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    size = int(float(sys.argv[3]) * (1 << 20)) if len(sys.argv) > 3 else 100 << 20
    check = Checks(f"large document ({size >> 20} MB)")
    image = base64.b64encode(os.urandom(size * 3 // 4))[:max(size - len(HEAD) - len(TAIL), 0)]
    with tempfile.TemporaryDirectory(prefix="lexctl3-large-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        write(cwd, "small.html", HEAD + b"SMALL" + TAIL)
        write(cwd, "doc.html", HEAD + image + TAIL)
        write(cwd, "rules.txt", "# no rules\n")
        tran = "tran -rules rules.txt -indata {}.html -outdata {}.out.html"
        run(lexctl, cwd, [f"setopt server {sim.server}", *LOGIN, tran.format("small", "small")])
        expected = (read(cwd, "small.out.html", "rb") or b"").replace(b"SMALL", image)
        check(image in expected, "the small page's translation lost its image")
        for layer in LAYERS:
            for dime in ("false", "true"):
                out = f"{layer}-{dime}"
                proc = run(lexctl, cwd, [f"setopt server {sim.server}", f"setopt commslayer {layer}",
                                         f"setopt dime {dime}", *LOGIN, "setopt timeout 600",
                                         tran.format("doc", out)], timeout=600)
                line = f"Output File (html, UTF-8): {out}.out.html ({len(expected)} bytes)"
                if check(line in proc.stdout, f"{layer}, dime {dime}: no {line!r} in:\n{proc.stdout[-2000:]}"):
                    check(read(cwd, f"{out}.out.html", "rb") == expected,
                          f"{layer}, dime {dime}: the file written is not the translation")
                    os.remove(os.path.join(cwd, f"{out}.out.html"))
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
