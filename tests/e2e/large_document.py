#!/usr/bin/env python3
"""A large document through tran -indata on both comms layers, inline and
as DIME: the file written is the translation of the same page with a small
image (lexsim translates the sentences and passes the image through), the
large image in its place.

Usage: large_document.py LEXCTL3 LEXSIM [MEGABYTES]"""
import base64
import filecmp
import os
import resource
import sys
import tempfile

from harness import LAYERS, LOGIN, Checks, Lexsim, read, run, write

# A few sentences around a photo embedded as a data URI, which is what makes
# real pages this large; made here rather than stored.
HEAD = (b'<html><head><title>The red house</title></head><body>\n<p>The small house is red.</p>\n'
        b'<img alt="A red house" src="data:image/jpeg;base64,')
TAIL = b'">\n<p>The old cat sleeps in the garden.</p>\n</body></html>\n'


def copy_into(dst, path, start, length):
    """Appends length bytes of the file at path from start to dst, a piece at a time."""
    with open(path, "rb") as src:
        src.seek(start)
        while length > 0:
            piece = src.read(min(length, 1 << 20))
            dst.write(piece)
            length -= len(piece)


def make_document(path, size):
    """Writes a page of size bytes, most of it the photo."""
    image = max(size - len(HEAD) - len(TAIL), 0)
    with open(path, "wb") as f:
        f.write(HEAD)
        for at in range(0, image, 1 << 20):
            f.write(base64.b64encode(os.urandom(3 << 18))[:min(1 << 20, image - at)])
        f.write(TAIL)
    return image


TRAN = "tran -rules rules.txt -indata {}.html -outdata {}.out.html"


def write_expected(lexctl, cwd, server, image):
    """Writes expected.html, the translation of doc.html, from lexsim's
    translation of a small page with the same text; its path, or None when
    that translation lost the image."""
    write(cwd, "small.html", HEAD + b"SMALL" + TAIL)
    write(cwd, "rules.txt", "# no rules\n")
    run(lexctl, cwd, [f"setopt server {server}", *LOGIN, TRAN.format("small", "small")])
    before, found, after = (read(cwd, "small.out.html", "rb") or b"").partition(b"SMALL")
    if not found or not after:
        return None
    expected = os.path.join(cwd, "expected.html")
    with open(expected, "wb") as f:
        f.write(before)
        copy_into(f, os.path.join(cwd, "doc.html"), len(HEAD), image)
        f.write(after)
    return expected


def main():
    lexctl, lexsim = sys.argv[1], sys.argv[2]
    size = int(float(sys.argv[3]) * (1 << 20)) if len(sys.argv) > 3 else 100 << 20
    check = Checks(f"large document ({size >> 20} MB)")
    # Made and compared a piece at a time: a child's peak memory counts what
    # this process held when it started the child.
    with tempfile.TemporaryDirectory(prefix="lexctl3-large-") as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        image = make_document(os.path.join(cwd, "doc.html"), size)
        expected = write_expected(lexctl, cwd, sim.server, image)
        if not check(expected, "the small page's translation lost its image"):
            return check.report()
        # DIME first, so that no inline run's peak hides theirs.
        for dime in ("true", "false"):
            for layer in LAYERS:
                out = f"{layer}-{dime}"
                proc = run(lexctl, cwd, [f"setopt server {sim.server}", f"setopt commslayer {layer}",
                                         f"setopt dime {dime}", *LOGIN, "setopt timeout 600",
                                         TRAN.format("doc", out)], timeout=600)
                line = f"Output File (html, UTF-8): {out}.out.html ({os.path.getsize(expected)} bytes)"
                if check(line in proc.stdout, f"{layer}, dime {dime}: no {line!r} in:\n{proc.stdout[-2000:]}"):
                    check(filecmp.cmp(os.path.join(cwd, f"{out}.out.html"), expected, shallow=False),
                          f"{layer}, dime {dime}: the file written is not the translation")
                    os.remove(os.path.join(cwd, f"{out}.out.html"))
                # DIME streams the file: lexctl3 never holds the document (the
                # sanitizers' own memory hides that at their smaller size).
                peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss << 10
                if dime == "true" and size >= 64 << 20:
                    check(peak < size // 2, f"{layer}, dime: peak memory {peak >> 20} MB for a {size >> 20} MB document")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
