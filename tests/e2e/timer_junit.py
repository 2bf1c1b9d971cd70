#!/usr/bin/env python3
"""`timer tellxml` prints a JUnit test-suite document that an XML parser and
a CI server can read: one main case per timer, one case per lap, the open
stretch after the last lap commented out as ignored."""
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

from harness import report


def main():
    lexctl = sys.argv[1]
    script = ["@timer start build \"a <build> & 'more'\"", "@timer lap build", "@timer lap build",
              "@timer start idle", "@timer stop idle", "@timer tellxml nightly"]
    with tempfile.TemporaryDirectory() as cwd:
        out = subprocess.run([lexctl, *script], cwd=cwd, capture_output=True, text=True, timeout=60).stdout
    failures = []
    try:
        suite = ET.fromstring(out.encode())
    except ET.ParseError as e:
        print(f"FAIL: not XML ({e}):\n{out}")
        return 1
    cases = suite.findall("testcase")
    if suite.tag != "testsuite" or suite.get("name") != "nightly":
        failures.append(f"root {suite.tag} {suite.attrib}")
    if [c.get("class") for c in cases] != ["main", "lap", "lap", "main"]:
        failures.append(f"cases {[(c.get('class'), c.get('id')) for c in cases]}")
    if cases and cases[0].get("name") != "a <build> & 'more'":
        failures.append(f"name not escaped and read back: {cases[0].get('name')!r}")
    if [c.get("id") for c in cases[1:3]] != ["build-1", "build-2"]:
        failures.append("lap ids")
    if suite.get("tests") != "4" or suite.get("ignored") != "1" or suite.get("errors") != "0":
        failures.append(f"counts {suite.attrib}")
    if "<!--<testcase class='lap' id='build-3'" not in out:
        failures.append("open lap not listed as ignored")
    for c in cases:
        float(c.get("time"))
    return report("timer_junit", failures)


if __name__ == "__main__":
    sys.exit(main())
