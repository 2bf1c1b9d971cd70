#!/usr/bin/env python3
"""The command table, the manual pages, "help" and the end-to-end cases agree:
every command, alias and setopt option of the table is in lexctl3's manual
page and in "help" ("help setopt" for options), every command has a .case
file that runs it, and every lexsim option is in lexsim's page.
Usage: manual_checks.py LEXCTL3 MANPAGE_TOOL LEXCTL3_PAGE LEXSIM LEXSIM_PAGE CASE_DIR"""
import glob
import gzip
import os
import re
import subprocess
import sys
import tempfile

from harness import Checks

PREFIXES = "@$=-+"


def read_page(path):
    opener = gzip.open if path.endswith(".gz") else open
    with opener(path, "rt", encoding="utf-8") as f:
        text = f.read()
    return text.replace("\\-", "-").replace("\\e", "\\").replace("\\&", "")


def run(cmd, cwd):
    return subprocess.run(cmd, cwd=cwd, capture_output=True, text=True, timeout=60,
                          stdin=subprocess.DEVNULL).stdout


def case_words(case_dir):
    """Command words each case runs: the first word of its script and session
    lines, of its files' lines and of its command-line commands."""
    words = {}
    for path in glob.glob(os.path.join(case_dir, "**", "*.case"), recursive=True):
        section = "script"
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                if line.startswith("#### "):
                    section = line[5:].split(" ")[0].strip()
                    continue
                if section == "session" and line.startswith(("> ", "@")):
                    line = line[2:] if line[0] == ">" else line
                elif section not in ("script", "file", "args"):
                    continue
                text = line.strip().lstrip(PREFIXES).strip()
                if section == "args" and text.startswith("--"):
                    continue
                word = text.split(" ")[0].strip('"').lower() if text else ""
                if word:
                    words.setdefault(word, set()).add(os.path.relpath(path, case_dir))
    return words


def main():
    lexctl3, tool, page_path, lexsim, sim_page_path, case_dir = map(os.path.abspath, sys.argv[1:7])
    failures = []
    with tempfile.TemporaryDirectory() as work:
        rows = [line.split() for line in run([tool, "--rows"], work).splitlines()]
        summary = run([lexctl3, "help"], work)
        setopt_help = run([lexctl3, "help setopt"], work)
        sim_usage = run([lexsim, "--help"], work)
    page = read_page(page_path)
    sim_page = read_page(sim_page_path)
    # Names as the page's entries and help's listing give them.
    page_names = set()
    for line in page.splitlines():
        if line.startswith(".B "):
            page_names.update(name.strip() for name in line[3:].split(","))
    # A names list longer than its 15-column field runs straight into the
    # description ("l, lf, lformat, lookupLookup a word ..."), so a name ends
    # at ", ", a blank, an upper-case letter or the line's end.
    def in_help(name):
        pattern = r"(^|, )" + re.escape(name) + r"(, |\s|[A-Z]|$)"
        return any(re.search(pattern, line) for line in summary.splitlines())
    head, _, listed = setopt_help.partition("\nAvailable options are:\n")
    options = set(re.findall(r"^  (\S+) +\S", listed, re.M))  # each with its summary
    used = case_words(case_dir)

    commands = [r for r in rows if r[0] == "command"]
    check = Checks("manual_checks")
    check(head.endswith("default filename will be used.\n"), f"\"help setopt\" lacks its usage:\n{head}")
    check(len(commands) >= 10, f"the table lists only {len(commands)} commands")
    aliases = {}
    for kind, name, *rest in rows:
        if kind == "alias":
            aliases.setdefault(rest[0], []).append(name)
    for kind, name, *rest in rows:
        if kind == "option":
            check(f"setopt {name}" in page_names, f"setopt option {name} is not in the manual page")
            check(name in options, f"setopt option {name} is not in \"help setopt\"")
            continue
        what = "alias" if kind == "alias" else "command"
        check(name in page_names, f"{what} {name} is not in the manual page")
        check(in_help(name), f"{what} {name} is not in \"help\"")
        if kind == "command":
            check(any(w.lower() in used for w in [name] + aliases.get(name, [])), f"command {name} has no end-to-end case")
    for switch in ("--script", "--output", "--version", "--errexit", "--help"):
        check(switch in page, f"{switch} is not in the manual page")
    sim_options = set(re.findall(r"--[a-z-]+", sim_usage)) | {"--version", "--help"}
    check(len(sim_options) >= 4, f"lexsim --help names too few options: {sim_usage!r}")
    for option in sorted(sim_options):
        check(option in sim_page, f"lexsim option {option} is not in lexsim's manual page")
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
