#!/usr/bin/env python3
"""udump round trip: a rich user is dumped with -target, the script is run
with read, and the copy must equal the original in everything but its id,
its password and the DIDs of its dictionaries.

Usage: udump_roundtrip.py LEXCTL3 LEXSIM LAYER"""
import os
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from harness import report, stop_process  # noqa: E402

SETUP = """\
ucreate other -userPass pw
ucreate rich -userPass pw -userName "Rich User" -userZone +09:00 -userFeat "ECHO SOAP TEXT GENG UGTS" -userApi 0x3fffff -userFrom 2020-01-01Z -userTo "2099-12-31 12:00:00Z" -userLimit sessions=4 -userLimit max.day.chars=50000 -userIp 127.0.0.1 -userIp 10.0.0.0/8 -userIp [::1] -userPropAdd !quota=10 -userPropAdd "colour=deep blue"
uupdate rich -engAdd QZ-EK -engSupport TRANSLATE -engSupport LOOKUP -engMaxUser 3 -engTo 2098-01-01Z -engType HIDDEN
dcreate -runas rich -eid QZ-EJ -type USER_SHARED -subject Law -languages en-ja -display "en=Law terms" -display ja=法律
dupdate LAST -runas rich -add other
dadd LAST -runas rich "apple = 林檎" "contract = 契約"
dcreate -runas rich -eid QZ-TM -type USER -subject Memo -display en=Memo -comment "kept notes" -vendor Acme -userdata ud.bin
daddtm LAST -runas rich -sentence en=Hello -sentence ja=こんにちは -weight 3 -author ann
dcreate -runas other -eid QZ-EJ -type USER_SHARED -subject Theirs
dupdate LAST -runas other -add rich
uupdate rich -engSet QZ-EJ -engDicAdd "LAST-2 101 LAST" -engMaxTech 4 -engSet QZ-TM -engDicAdd LAST-1
"""


class Sim:
    def __init__(self, binary, cwd):
        self.proc = subprocess.Popen([binary, "--host", "127.0.0.1", "--port", "0"], cwd=cwd,
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.url = self.proc.stdout.readline().strip()

    def stop(self):
        stop_process(self.proc)


def run(lexctl3, cwd, server, layer, body):
    script = os.path.join(cwd, "run.txt")
    # Binary data travel inline on one layer and as DIME attachments on the other.
    dime = "true" if layer == "windows" else "false"
    with open(script, "w", encoding="utf-8") as f:
        f.write(f"setopt server {server}\nsetopt commslayer {layer}\nsetopt dime {dime}\n"
                "setopt userid admin\nsetopt passwd admin\n" + body)
    done = subprocess.run([lexctl3, "--script", script], cwd=cwd, capture_output=True,
                          text=True, timeout=120)
    return done.stdout


def dictionaries(text):
    """DID -> subject from einfo -suserdic rows."""
    rows = {}
    for line in text.splitlines():
        m = re.match(r"^(QZ-\w+)\s+(\d{5,})\s+(\S+)\s+(\S+)\s+(\S+)", line)
        if m:
            rows[m.group(2)] = (m.group(1), m.group(5))
    return rows


def read_export(cwd, name):
    """The file dexport wrote for the name (it adds the format's extension)."""
    found = [f for f in os.listdir(cwd) if f.startswith(name + ".")]
    if len(found) != 1:
        return b""
    with open(os.path.join(cwd, found[0]), "rb") as f:
        data = f.read()
    os.remove(os.path.join(cwd, found[0]))
    return data


def main():
    lexctl3, lexsim = (os.path.abspath(p) for p in sys.argv[1:3])
    layer = sys.argv[3]
    failures = []
    checks = 0
    with tempfile.TemporaryDirectory() as cwd:
        with open(os.path.join(cwd, "ud.bin"), "wb") as f:
            f.write(bytes(range(256)) * 3)
        sim = Sim(lexsim, cwd)
        try:
            out = run(lexctl3, cwd, sim.url, layer, SETUP)
            if "SOAP EXCEPTION" in out or "FAILED" in out:
                failures.append("set-up failed:\n" + out)
            out = run(lexctl3, cwd, sim.url, layer, "udump rich -target bill\nread rich_udump.txt\n"
                      "read rich_udump_dicshares.txt\n")
            checks += 1
            if "Errors occurred" in out or "Done." not in out:
                failures.append("udump failed:\n" + out)
            views, lists = {}, {}
            for who in ("rich", "bill"):
                views[who] = run(lexctl3, cwd, sim.url, layer, f"uget {who} -all -sessions\n")
                lists[who] = run(lexctl3, cwd, sim.url, layer, f"einfo -runas {who} -suserdic\n")
            old, new = dictionaries(lists["rich"]), dictionaries(lists["bill"])
            checks += 1
            if sorted(v for v in old.values()) != sorted(v for v in new.values()) or len(old) != 3:
                failures.append(f"dictionaries differ: {old} against {new}")
            # The dictionaries pair up by engine and subject; the one shared in keeps its DID.
            pairs = {}
            for did, key in old.items():
                for nd, nkey in new.items():
                    if nkey == key:
                        pairs[did] = nd
            checks += 1
            # The engines list the dictionaries in priority order; einfo lists them by DID.
            expected, listed = views["rich"].replace("rich", "bill"), lists["rich"].replace("rich", "bill")
            for did, nd in pairs.items():
                expected, listed = expected.replace(did, nd), listed.replace(did, nd)
            if expected != views["bill"] or sorted(listed.splitlines()) != sorted(lists["bill"].splitlines()):
                failures.append("uget or einfo differ:\n--- rich, renamed\n" + expected + listed +
                                "\n--- bill\n" + views["bill"] + lists["bill"])
            # Details (shares, memory details, counts) and the exported data match too.
            for did, nd in pairs.items():
                if did == nd:
                    continue
                checks += 1
                a = run(lexctl3, cwd, sim.url, layer, f"dupdate {did} -details\ndexport {did} a\n")
                b = run(lexctl3, cwd, sim.url, layer, f"dupdate {nd} -details\ndexport {nd} b\n")
                a = a.replace(did, nd).replace("rich", "bill").replace("to a.", "to b.")
                a = a.replace(f"dexport {nd} a", f"dexport {nd} b")
                data_a, data_b = (read_export(cwd, name) for name in ("a", "b"))
                # The export's comment line names the DID.
                data_a = data_a.replace(did.encode(), nd.encode())
                if a != b or data_a != data_b or not data_a:
                    failures.append(f"dictionary {did} against {nd}:\n{a}\n---\n{b}")
        finally:
            sim.stop()
    return report(f"udump_roundtrip.{layer}", failures, checks)


if __name__ == "__main__":
    sys.exit(main())
