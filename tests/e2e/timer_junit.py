#!/usr/bin/env python3
"""`timer tellxml` prints a JUnit test-suite document that an XML parser and
a CI server can read: one main case per timer, one case per lap, the open
stretch after the last lap commented out as ignored."""
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

from harness import Checks


def main():
    lexctl = sys.argv[1]
    script = ["@timer start build \"a <build> & 'more'\"", "@timer lap build", "@timer lap build",
              "@timer start idle", "@timer stop idle", "@timer tellxml nightly"]
    with tempfile.TemporaryDirectory() as cwd:
        out = subprocess.run([lexctl, *script], cwd=cwd, capture_output=True, text=True, timeout=60).stdout
    check = Checks("timer_junit")
    try:
        suite = ET.fromstring(out.encode())
    except ET.ParseError as e:
        print(f"FAIL: not XML ({e}):\n{out}")
        return 1
    cases = suite.findall("testcase")
    check(suite.tag == "testsuite" and suite.get("name") == "nightly", f"root {suite.tag} {suite.attrib}")
    check([c.get("class") for c in cases] == ["main", "lap", "lap", "main"], f"cases {cases}")
    check(cases[0].get("name") == "a <build> & 'more'", f"name not escaped and read back: {cases[0].get('name')!r}")
    check([c.get("id") for c in cases[1:3]] == ["build-1", "build-2"], "lap ids")
    check((suite.get("tests"), suite.get("ignored"), suite.get("errors")) == ("4", "1", "0"), f"counts {suite.attrib}")
    check("<!--<testcase class='lap' id='build-3'" in out, "open lap not listed as ignored")
    for c in cases:
        float(c.get("time"))
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
