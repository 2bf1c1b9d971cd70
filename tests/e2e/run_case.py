#!/usr/bin/env python3
"""Runs one end-to-end case: a lexctl3 script with its expected output.

A case file is a script followed by sections that start with a line
"#### NAME [ARG]":
  #### args            command-line arguments, one per line
  #### stdin           text fed to standard input (default: nothing)
  #### file PATH       a file created in the working folder before the run
                      ({server} in it is lexsim's address)
  #### env             NAME=VALUE lines added to lexctl3's environment
                      ({server} is lexsim's address)
  #### stdout          expected standard output
  #### stderr          expected standard error (default: empty)
  #### exit            expected exit status (default: 0)
  #### result PATH     expected content of a file after the run
  #### absent GLOB     no file may match GLOB after the run
  #### noeol           the section before it ends without its last line break
  #### lexsim          run against a fresh lexsim; the script finds its URL in {{server}}
  #### lexsim admin    the same, the script starting with lexsim as its server
                      and admin logged in
  #### stdout LAYER    expected standard output for one comms layer only
  #### windows         for lexctl3.exe: "OLD => NEW" lines replacing text
                      throughout the case, or "skip: REASON"
  #### session         expected standard output (after that of a stdout section)
                      whose "> COMMAND" echo lines are also the script's last lines,
                      with its "@COMMAND" lines (not echoed, not expected output)
Without an args section the script is run with --script. Volatile values
(times, durations, the working folder) are normalised in the actual output.
With LEXCTL_E2E_ACCEPT=1 in the environment a failing output section is
rewritten with what the run printed; review the case's diff before committing.
"""
import glob
import os
import re
import subprocess
import sys
import tempfile

from harness import WINDOWS, Lexsim, command

NORMALISE = [
    (re.compile(r"Elapsed time \d+\.\d{3} seconds\."), "Elapsed time <SECS> seconds."),
    (re.compile(r"(Begin:|End:  ) \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3}"), r"\1 <STAMP>"),
    (re.compile(r"[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d{2}:\d{2}:\d{2} \d{4}"), "<CTIME>"),
    (re.compile(r"System: \d+\.\d{3}, User: \d+\.\d{3}"), "System: <SECS>, User: <SECS>"),
    (re.compile(r"timestamp='[^']*'"), "timestamp='<STAMP>'"),
    (re.compile(r"time='\d+\.\d{3}'"), "time='<SECS>'"),
    (re.compile(r"\d+\.\d{3} secs"), "<SECS> secs"),
    (re.compile(r"\d+\.\d{6}"), "<SECS>"),
    (re.compile(r"\b[0-9a-f]{32}\b"), "<HEX32>"),
    (re.compile(r"after \d+ ms"), "after <N> ms"),
]


def parse(path, windows=False):
    sections = {"script": []}
    order = ["script"]
    current = "script"
    with open(path, encoding="utf-8", newline="") as f:
        text = f.read()
    if windows:
        for line in text.partition("\n#### windows\n")[2].partition("\n#### ")[0].splitlines():
            old, _, new = line.partition(" => ")
            text = text.replace(old, new) if new else text
    for line in text.splitlines(keepends=True):
        if line.rstrip("\n") == "#### noeol":
            if sections[current]:
                sections[current][-1] = sections[current][-1][:-1]
            continue
        if line.startswith("#### "):
            current = line[5:].rstrip("\n")
            sections[current] = []
            order.append(current)
            continue
        sections[current].append(line)
    return {k: "".join(v) for k, v in sections.items()}, order


def normalise(text, cwd, server=None):
    if server:
        text = text.replace(server, "<SERVER>")
    for folder in (os.path.realpath(cwd), cwd):
        text = text.replace(folder, "<CWD>")
        if WINDOWS:  # Wine's drive for the Linux root
            text = text.replace("Z:" + folder.replace("/", "\\"), "<CWD>")
    if WINDOWS:  # from programs that "shell" starts
        text = text.replace("\r\n", "\n")
    for pattern, repl in NORMALISE:
        text = pattern.sub(repl, text)
    return text


def main():
    args = sys.argv[1:]
    lexsim_binary = layer = None
    while args and args[0].startswith("--"):
        if args[0] == "--lexsim":
            lexsim_binary = args[1]
        elif args[0] == "--layer":
            layer = args[1]
        args = args[2:]
    lexctl, case = args[0], args[1]
    sections, _ = parse(case, WINDOWS)
    skip = re.search(r"(?m)^skip: (.*)", sections.get("windows", ""))
    if WINDOWS and skip:
        print("Skipped for lexctl3.exe:", skip.group(1))
        return 77
    failures = []
    if layer and f"stdout {layer}" in sections:
        sections["stdout"] = sections[f"stdout {layer}"]
    if "session" in sections:
        session = sections["session"].splitlines(keepends=True)
        sections["stdout"] = sections.get("stdout", "") + "".join(line for line in session if line[0] != "@")
        sections["script"] += "".join(line[2:].rstrip() + "\n" if line[0] == ">" else line for line in session
                                      if line.startswith(("> ", "@")))
    with tempfile.TemporaryDirectory(prefix="lexctl3-e2e-") as cwd:
        script = os.path.join(cwd, "case.lex")
        # Windows reads a script without a signature in its ANSI code page.
        utf8_sig = WINDOWS and not sections["script"].isascii()
        with open(script, "w", encoding="utf-8-sig" if utf8_sig else "utf-8", newline="") as f:
            f.write(sections["script"])
        def write_files(with_server):
            for name, body in sections.items():
                if name.startswith("file ") and ("{server}" in body) == with_server:
                    target = os.path.join(cwd, name[5:])
                    os.makedirs(os.path.dirname(target), exist_ok=True)
                    with open(target, "w", encoding="utf-8", newline="") as f:
                        f.write(body.replace("{server}", sim.server) if with_server else body)
        sim = None
        write_files(False)
        if "args" in sections:
            args = sections["args"].splitlines()
        else:
            args = ["--script", "case.lex"]
        lexsim = next((name for name in sections if name.split(" ")[0] == "lexsim"), None)
        if lexsim:
            sim = Lexsim(lexsim_binary, cwd=cwd)
            prelude = [f"@setvar server {sim.server}"]
            if lexsim == "lexsim admin":
                prelude += [f"@setopt server {sim.server}", "@setopt userid admin", "@setopt passwd admin"]
            if layer:
                prelude.append(f"@setopt commslayer {layer}")
            args = prelude + args
            write_files(True)
        env = dict(os.environ, HOME=cwd, TZ="UTC", LC_ALL="C.UTF-8")
        env.pop("http_proxy", None)
        for name in ("LEXCTL3_SERVER", "LEXCTL3_USERID", "LEXCTL3_PASSWD"):
            env.pop(name, None)  # the caller's own settings stay out of the cases
        for line in sections.get("env", "").splitlines():
            if line.strip():
                name, _, value = line.partition("=")
                env[name] = value.replace("{server}", sim.server if sim else "")
        try:
            proc = subprocess.run(command(lexctl) + args, cwd=cwd, input=sections.get("stdin", "").encode(),
                                  capture_output=True, env=env, timeout=120)
        except subprocess.TimeoutExpired:
            print("FAIL: lexctl3 did not end within 120 s")
            return 1
        finally:
            if sim:
                sim.stop()
        server = sim.server if sim else None
        out = normalise(proc.stdout.decode("utf-8", "replace"), cwd, server)
        err = normalise(proc.stderr.decode("utf-8", "replace"), cwd, server)
        checks = [("stdout", out, sections.get("stdout", "")),
                  ("stderr", err, sections.get("stderr", ""))]
        for name, body in sections.items():
            if name.startswith("result "):
                target = os.path.join(cwd, name[7:])
                if not os.path.exists(target):
                    failures.append(f"{name}: file was not made")
                    continue
                with open(target, encoding="utf-8", errors="replace", newline="") as f:
                    checks.append((name, normalise(f.read(), cwd, server), body))
            elif name.startswith("absent "):
                if glob.glob(os.path.join(cwd, name[7:])):
                    failures.append(f"{name}: file exists")
        accepted = {}
        for name, actual, expected in checks:
            if actual != expected:
                failures.append(f"--- {name}: expected ---\n{expected}--- {name}: actual ---\n{actual}")
                accepted[name] = actual
        want_exit = int(sections.get("exit", "0").strip() or 0)
        if proc.returncode != want_exit:
            failures.append(f"exit status {proc.returncode}, expected {want_exit}")
    if failures and accepted and os.environ.get("LEXCTL_E2E_ACCEPT") == "1":
        accept(case, accepted, layer)
    if failures:
        print("\n".join(failures))
        return 1
    return 0


def accept(case, accepted, layer):
    """Writes the actual output into the case's sections."""
    sections, order = parse(case)
    for name, actual in accepted.items():
        if name == "stdout" and layer and f"stdout {layer}" in sections:
            name = f"stdout {layer}"
        elif name == "stdout" and "session" in sections:
            # Each command's output, with the "@" lines put back where they stood in it.
            chunks = re.split(r"(?m)^(?=> )", actual[len(sections.get("stdout", "")):])
            for i, chunk in enumerate(re.split(r"(?m)^(?=> )", sections["session"])[:len(chunks)]):
                lines = chunks[i].splitlines(keepends=True)
                for at, line in enumerate(chunk.splitlines(keepends=True)):
                    if line[0] == "@":
                        lines.insert(at, line)
                chunks[i] = "".join(lines)
            name, actual = "session", "".join(chunks)
        if name not in sections:
            order.append(name)
        sections[name] = actual
    with open(case, "w", encoding="utf-8", newline="") as f:
        for name in order:
            if name != "script":
                f.write(f"#### {name}\n")
            f.write(sections[name])


if __name__ == "__main__":
    sys.exit(main())
