#!/usr/bin/env python3
"""Script speed: a loop over a procedure of 10 setvar/echo lines (200,000 lines
in console mode none) against bash running the same loop, writing its echoes
to a descriptor opened on /dev/null. Reports lines per second and the ratio."""
import os
import subprocess
import sys
import tempfile
import time

ITERATIONS = 20000
BODY = 10  # lines per iteration


def lexctl_script():
    lines = ["setopt console none", "proc begin body"]
    for i in range(BODY // 2):
        lines.append(f"setvar v{i} value{i}")
        lines.append(f"echo line {i} has {{{{v{i}}}}}")
    lines += ["proc end", f"loop body count {ITERATIONS}", ""]
    return "\n".join(lines)


def bash_script():
    lines = ["exec 3>/dev/null", "body() {"]
    for i in range(BODY // 2):
        lines.append(f"  v{i}=value{i}")
        lines.append(f"  echo \"line {i} has $v{i}\" >&3")
    lines += ["}", f"for ((i = 0; i < {ITERATIONS}; i++)); do body; done", ""]
    return "\n".join(lines)


def timed(argv, cwd):
    start = time.perf_counter()
    subprocess.run(argv, cwd=cwd, stdout=subprocess.DEVNULL, check=True)
    return time.perf_counter() - start


def main():
    lexctl = os.path.abspath(sys.argv[1])
    total = ITERATIONS * BODY
    with tempfile.TemporaryDirectory() as cwd:
        with open(os.path.join(cwd, "loop.lex"), "w") as f:
            f.write(lexctl_script())
        with open(os.path.join(cwd, "loop.sh"), "w") as f:
            f.write(bash_script())
        ours = min(timed([lexctl, "--script", "loop.lex"], cwd) for _ in range(3))
        bash = min(timed(["bash", "loop.sh"], cwd) for _ in range(3))
    print(f"script speed: lexctl3 {total / ours:,.0f} lines/s, bash {total / bash:,.0f} lines/s, "
          f"ratio {bash / ours:.2f} (target: at least 1.00)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
