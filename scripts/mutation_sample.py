#!/usr/bin/env python3
"""A fixed-seed sample of mutants, to measure how many faults the tests catch.

Picks COUNT mutation sites over shell/, client/, commands/ and sim/ in
proportion to each folder's lines (a comparison or condition flipped, a
constant off by one, a statement deleted, a returned value changed), and for
each one: applies it to a scratch copy of the tree, rebuilds incrementally,
runs the tests of the mutant's own area and, only when those pass, the whole
suite. Prints killed/survived per mutant and the kill rate. The tree it is run
from is only read (the files git knows, copied once).

Usage: scripts/mutation_sample.py [--seed N] [--count N] [--scratch DIR]
                                  [--only ID,ID,...] [--list]
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FOLDERS = ["shell", "client", "commands", "sim"]
# The tests that look at each area first; the whole suite runs after them.
AREA_TESTS = {
    "shell": r"^(unit\.shell|e2e\.shell|e2e\.console)",
    "client": r"^(unit\.client|e2e\.client)",
    "commands/translate": r"^(unit\.commands|e2e\.(translate|documents|analysis))",
    "commands/admin": r"^(unit\.commands|e2e\.(admin_dicts|admin_engines|users))",
    "commands/common": r"^(unit\.commands|e2e\.(translate|documents|admin_dicts))",
    "sim": r"^unit\.sim\.",
}
STEP_TIMEOUT = 900

# (name, pattern, replacement function). Patterns need blanks around binary
# operators, as the formatter writes them, so templates and includes stay out.
SWAPS = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">", "&&": "||", "||": "&&"}
OPERATORS = [
    ("flip-comparison", re.compile(r"(?<=\S) (==|!=|<=|>=|<|>) (?=\S)"), lambda m: f" {SWAPS[m.group(1)]} "),
    ("flip-logic", re.compile(r" (&&|\|\|) "), lambda m: f" {SWAPS[m.group(1)]} "),
    ("negate-condition", re.compile(r"\b(if|while) \((?!.*\belse\b)(.+)\)(?= \{$| return\b| continue;| break;)"),
     lambda m: f"{m.group(1)} (!({m.group(2)}))"),
    ("off-by-one", re.compile(r"(?<![\w.\"'])([1-9]\d{0,5}|0)(?![\w.\"'x])"), lambda m: str(int(m.group(1)) + 1)),
    ("flip-return", re.compile(r"\breturn (true|false);"), lambda m: "return " + ("false" if m.group(1) == "true" else "true") + ";"),
    ("delete-statement", re.compile(r"^(\s+)([A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*\(.*\);)$"), lambda m: m.group(1) + ";"),
]


def code_files():
    files = subprocess.run(["git", "ls-files"] + FOLDERS, cwd=TOP, capture_output=True, text=True,
                           check=True).stdout.split()
    return [f for f in files if f.endswith(".cpp")]


def in_literal(line, start):
    """True when position start is inside a string or character literal."""
    quotes = 0
    i = 0
    while i < start:
        if line[i] == "\\":
            i += 2
            continue
        if line[i] in "\"'":
            quotes += 1
        i += 1
    return quotes % 2 == 1


def sites_of(path):
    sites = []
    with open(os.path.join(TOP, path), encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    in_comment = False
    for number, line in enumerate(lines, 1):
        text = line.strip()
        if in_comment:
            in_comment = "*/" not in text
            continue
        if text.startswith("/*"):
            in_comment = "*/" not in text
            continue
        if not text or text.startswith(("//", "#", "*")) or "constexpr" in text or "static_assert" in text:
            continue
        code = line.split("//")[0] if '"' not in line else line
        for name, pattern, replace in OPERATORS:
            for m in pattern.finditer(code):
                if in_literal(line, m.start()):
                    continue
                mutated = line[:m.start()] + replace(m) + line[m.end():]
                if mutated != line:
                    sites.append((path, number, name, line, mutated))
    return sites


def area_of(path):
    for area in sorted(AREA_TESTS, key=len, reverse=True):
        if path.startswith(area + "/"):
            return area
    return path.split("/")[0]


def pick(seed, count):
    rng = random.Random(seed)
    by_folder = {f: [] for f in FOLDERS}
    size = {f: 0 for f in FOLDERS}
    for path in code_files():
        folder = path.split("/")[0]
        by_folder[folder].extend(sites_of(path))
        size[folder] += sum(1 for _ in open(os.path.join(TOP, path), encoding="utf-8", errors="replace"))
    total = sum(size.values())
    chosen = []
    for folder in FOLDERS:
        want = max(1, round(count * size[folder] / total))
        pool = by_folder[folder]
        chosen.extend(rng.sample(pool, min(want, len(pool))))
    return chosen


def run(cmd, cwd, log):
    try:
        proc = subprocess.run(cmd, cwd=cwd, stdout=log, stderr=subprocess.STDOUT, timeout=STEP_TIMEOUT)
        return proc.returncode == 0
    except subprocess.TimeoutExpired:
        return False


def tests_pass(build, jobs, log, pattern=None):
    """False only when a failing test fails again: a test that fails once on
    a loaded machine and then passes does not count as a kill."""
    cmd = ["ctest", "-j", jobs, "--timeout", "300", "--stop-on-failure"] + (["-R", pattern] if pattern else [])
    if run(cmd, build, log):
        return True
    print("--- again, the tests that failed", file=log, flush=True)
    return run(["ctest", "--timeout", "300", "--rerun-failed"], build, log)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--seed", type=int, default=20261126)
    ap.add_argument("--count", type=int, default=120)
    ap.add_argument("--scratch", default="/tmp/lexctl3-mutation")
    ap.add_argument("--only", default="", help="comma-separated mutant numbers to run")
    ap.add_argument("--list", action="store_true", help="list the sample and stop")
    args = ap.parse_args()

    mutants = pick(args.seed, args.count)
    if args.list:
        for i, (path, number, name, _, mutated) in enumerate(mutants, 1):
            print(f"{i:3} {path}:{number} {name}: {mutated.strip()}")
        return 0
    scratch = os.path.realpath(args.scratch)
    if scratch == TOP or scratch.startswith(TOP + os.sep):
        sys.exit("the scratch folder must lie outside the tree")
    src, build = os.path.join(scratch, "src"), os.path.join(scratch, "build")
    # A copy of what git knows; the build folder is kept between runs. A file
    # that differs from the copy (a mutant left by a run that was stopped) is
    # written anew with a fresh time, so that the build sees it.
    known = {p for p in subprocess.run(["git", "ls-files"], cwd=TOP, capture_output=True, text=True,
                                       check=True).stdout.split("\n")
             if p and os.path.isfile(os.path.join(TOP, p))}
    for folder, _, names in os.walk(src):
        for name in names:
            if os.path.relpath(os.path.join(folder, name), src) not in known:
                os.remove(os.path.join(folder, name))
    for path in known:
        mine, theirs = os.path.join(TOP, path), os.path.join(src, path)
        if os.path.isfile(theirs) and open(mine, "rb").read() == open(theirs, "rb").read():
            continue
        os.makedirs(os.path.dirname(theirs), exist_ok=True)
        shutil.copy2(mine, theirs)
        os.utime(theirs)
    log = open(os.path.join(scratch, "mutation.log"), "w")
    jobs = str(os.cpu_count() or 2)
    if not (run(["cmake", "-S", src, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"], scratch, log)
            and run(["cmake", "--build", build, "-j", jobs], scratch, log)
            and run(["ctest", "-j", jobs, "--timeout", "300"], build, log)):
        sys.exit(f"the unmutated tree does not build or pass; see {log.name}")

    only = {int(x) for x in args.only.split(",") if x}
    killed = survived = stillborn = 0
    started = time.time()
    for i, (path, number, name, original, mutated) in enumerate(mutants, 1):
        if only and i not in only:
            continue
        target = os.path.join(src, path)
        with open(target, encoding="utf-8", errors="surrogateescape") as f:
            lines = f.read().split("\n")
        kept = lines[number - 1]
        lines[number - 1] = mutated
        with open(target, "w", encoding="utf-8", errors="surrogateescape") as f:
            f.write("\n".join(lines))
        try:
            print(f"--- mutant {i} {path}:{number} {name}", file=log, flush=True)
            if not run(["cmake", "--build", build, "-j", jobs], scratch, log):
                verdict = "stillborn"
                stillborn += 1
            elif not tests_pass(build, jobs, log, AREA_TESTS.get(area_of(path), ".")):
                verdict = "killed (area)"
                killed += 1
            elif not tests_pass(build, jobs, log):
                verdict = "killed (suite)"
                killed += 1
            else:
                verdict = "SURVIVED"
                survived += 1
        finally:
            lines[number - 1] = kept
            with open(target, "w", encoding="utf-8", errors="surrogateescape") as f:
                f.write("\n".join(lines))
        print(f"{i:3} {verdict:15} {path}:{number} {name}: {kept.strip()}  =>  {mutated.strip()}", flush=True)
    # Leave the scratch build matching the tree again.
    run(["cmake", "--build", build, "-j", jobs], scratch, log)
    tested = killed + survived
    rate = 100.0 * killed / tested if tested else 0.0
    print(f"\n{len(mutants)} mutants (seed {args.seed}): {killed} killed, {survived} survived, "
          f"{stillborn} did not build; kill rate {rate:.1f}% in {time.time() - started:.0f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
