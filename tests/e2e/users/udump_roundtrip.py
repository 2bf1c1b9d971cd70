#!/usr/bin/env python3
"""udump round trips.

1. A rich user is dumped with -target, the script is run with read, and the
   copy must equal the original in everything but its id, its password and
   the DIDs of its dictionaries.
2. Two users who share dictionaries with each other, with values that only
   quoting carries (quotes, a trailing backslash, "; shell touch INJECTED",
   "-?", leading "#", "!", "@", "-", "/*"), are dumped together and replayed
   into a fresh lexsim in one run under --errexit: main scripts first, then
   the shares files. Nothing may run but the scripts' commands, and uget,
   einfo -suserdic, the dictionaries' details and their exports must equal
   the originals but for the DIDs.
3. Replies of a hostile server (a relay that rewrites lexsim's replies) put a
   line break, "{{x}}", quotes, a trailing backslash and "; shell" into each
   field a dump writes, one at a time and all at once: udump must refuse the
   user with its message and the run's error status, and write no script.

Usage: udump_roundtrip.py LEXCTL3 LEXSIM LAYER"""
import glob
import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from harness import read_message, report  # noqa: E402
from run_case import Lexsim  # noqa: E402

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


def Sim(binary, cwd):
    """A lexsim whose url is the address setopt server takes."""
    sim = Lexsim(binary, [], cwd)
    sim.url = sim.server
    return sim


def run(lexctl3, cwd, server, layer, body, errexit=False, status=None):
    script = os.path.join(cwd, "run.txt")
    # Binary data travel inline on one layer and as DIME attachments on the other.
    dime = "true" if layer == "windows" else "false"
    with open(script, "w", encoding="utf-8") as f:
        f.write(f"setopt server {server}\nsetopt commslayer {layer}\nsetopt dime {dime}\n"
                "setopt userid admin\nsetopt passwd admin\n" + body)
    done = subprocess.run([lexctl3] + (["--errexit"] if errexit else []) + ["--script", script],
                          cwd=cwd, capture_output=True, timeout=120)
    if status is not None:
        status.append(done.returncode)
    return done.stdout.decode("utf-8", "replace")


def without_setup(out):
    """The output after the lines that pick the server and log in."""
    marker = "> setopt passwd admin\n"
    return out[out.index(marker) + len(marker):] if marker in out else out


def word(text):
    """A value as one word of a script line (the tokenizer's quoting rules)."""
    if text and not any(c in text for c in ' \t"') and not text.endswith("\\"):
        return text
    out, slashes = '"', 0
    for c in text:
        if c == "\\":
            slashes += 1
            continue
        out += "\\" * (slashes * 2 + 1 if c == '"' else slashes) + c
        slashes = 0
    return out + "\\" * (slashes * 2) + '"'


def renumber(text, mapping):
    """DIDs replaced in one pass (a swap must not be undone)."""
    return re.sub(r"\b\d{5}\b", lambda m: mapping.get(m.group(0), m.group(0)), text)


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


def rich_copy(lexctl3, lexsim, layer, failures):
    """1: rich dumped with -target bill and replayed on the same server."""
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
            expected = renumber(views["rich"].replace("rich", "bill"), pairs)
            listed = renumber(lists["rich"].replace("rich", "bill"), pairs)
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
    return checks


# Two users who share dictionaries with each other. The user id, the user
# name, the property keys and values and the dictionaries' texts hold what
# only quoting carries; the files of the first are named q_u_o_te_*.
QUOTE_USER = 'q"u\\o;te'
BOB = "bob"
VALUES = {
    "username": 'say "hi" ; shell touch INJECTED #x \\',
    "propkey1": '#c', "propval1": '@x\\',
    "propkey2": ';k"e\\y', "propval2": '-?',
    "rokey": 'ro', "roval": '! shell touch INJECTED',
    "subject1": '-?', "languages1": '; shell touch INJECTED',
    "displaylang1": '-x', "displaytext1": '"}}y\\',
    "subject2": '/*', "comment2": '*/ "v\\"', "vendor2": '-userName x',
    "subject3": 'Unlisted',
}


def two_user_setup():
    q, v = word(QUOTE_USER), VALUES
    lines = [
        f"ucreate {q} -userPass pw -userName {word(v['username'])} -userZone +09:00"
        f" -userFeat \"ECHO SOAP TEXT\" -userFrom 2020-01-01Z -userTo \"2099-12-31 12:00:00Z\""
        f" -userLimit sessions=4 -userIp 10.0.0.0/8"
        f" -userPropAdd {word(v['propkey1'] + '=' + v['propval1'])}"
        f" -userPropAdd {word(v['propkey2'] + '=' + v['propval2'])}"
        f" -userPropAdd {word('!' + v['rokey'] + '=' + v['roval'])}",
        f"ucreate {BOB} -userPass pw -userName Bob",
        # Bob's dictionary first, so that the DIDs differ on the fresh server.
        f"dcreate -runas {BOB} -eid QZ-EJ -type USER_SHARED -subject Bobs",
        f"dadd LAST -runas {BOB} \"pear = 梨\"",
        f"dupdate LAST -runas {BOB} -add {q}",
        f"dcreate -runas {q} -eid QZ-EJ -type USER_SHARED -subject={v['subject1']}"
        f" -languages {word(v['languages1'])} -display {word(v['displaylang1'] + '=' + v['displaytext1'])}",
        f"dadd LAST -runas {q} \"apple = 林檎\" \"contract = 契約\"",
        f"dupdate LAST -runas {q} -add {BOB}",
        f"dcreate -runas {q} -eid QZ-TM -type USER -subject {word(v['subject2'])}"
        f" -comment {word(v['comment2'])} -vendor {word(v['vendor2'])} -userdata ud.bin",
        f"daddtm LAST -runas {q} -sentence en=Hello -sentence ja=こんにちは -weight 3 -author ann",
        f"dcreate -runas {q} -eid QZ-EJ -type USER_SHARED -subject {v['subject3']}",
        f"dupdate LAST -runas {q} -add {BOB}",
        # The engines list other users' dictionaries between their own and the technical ones.
        f"uupdate {q} -engSet QZ-EJ -engDicAdd \"LAST-2 101 LAST-3 LAST 102\" -engSet QZ-TM -engDicAdd LAST-1",
        f"uupdate {BOB} -engSet QZ-EJ -engDicAdd \"LAST-3 LAST-2\"",
    ]
    return "\n".join(lines) + "\n"


def two_users(lexctl3, lexsim, layer, failures):
    """2: both users dumped together and replayed into a fresh server."""
    checks = 0
    q = word(QUOTE_USER)
    with tempfile.TemporaryDirectory() as cwd:
        with open(os.path.join(cwd, "ud.bin"), "wb") as f:
            f.write(bytes(range(256)) * 3)
        old_sim = Sim(lexsim, cwd)
        new_sim = None
        try:
            out = run(lexctl3, cwd, old_sim.url, layer, two_user_setup())
            if "SOAP EXCEPTION" in out or "FAILED" in out or "Invalid" in out:
                failures.append("two-user set-up failed:\n" + out)
            out = run(lexctl3, cwd, old_sim.url, layer, f"udump {q} {BOB}\n")
            checks += 1
            names = ["q_u_o_te_udump.txt", "bob_udump.txt", "q_u_o_te_udump_dicshares.txt",
                     "bob_udump_dicshares.txt"]
            missing = [n for n in names if not os.path.exists(os.path.join(cwd, n))]
            if "Errors occurred" in out or "Done." not in out or missing:
                failures.append(f"two-user udump failed (missing {missing}):\n" + out)
                return checks
            new_sim = Sim(lexsim, cwd)
            status = []
            out = run(lexctl3, cwd, new_sim.url, layer, "".join(f"read {n}\n" for n in names),
                      errexit=True, status=status)
            checks += 1
            if status != [0] or "SOAP EXCEPTION" in out or "FAILED" in out or "Warnings" in out:
                failures.append(f"replay into a fresh lexsim ended with {status}:\n" + out)
            checks += 1
            if os.path.exists(os.path.join(cwd, "INJECTED")):
                failures.append("replaying the dumps ran a shell command")
            views, lists = {}, {}
            for name, sim in (("old", old_sim), ("new", new_sim)):
                for who in (q, BOB):
                    views[name, who] = without_setup(run(lexctl3, cwd, sim.url, layer, f"uget {who} -all -sessions\n"))
                    lists[name, who] = without_setup(run(lexctl3, cwd, sim.url, layer, f"einfo -runas {who} -suserdic\n"))
            old = {**dictionaries(lists["old", q]), **dictionaries(lists["old", BOB])}
            new = {**dictionaries(lists["new", q]), **dictionaries(lists["new", BOB])}
            pairs = {did: nd for did, key in old.items() for nd, nkey in new.items() if nkey == key}
            checks += 1
            if len(old) != 4 or len(pairs) != 4 or sorted(old.values()) != sorted(new.values()):
                failures.append(f"dictionaries differ: {old} against {new}")
            for who in (q, BOB):
                checks += 1
                expected = renumber(views["old", who], pairs)
                listed = renumber(lists["old", who], pairs)
                if expected != views["new", who] or sorted(listed.splitlines()) != sorted(lists["new", who].splitlines()):
                    failures.append(f"uget or einfo of {who} differ:\n--- original, renumbered\n" + expected +
                                    listed + "\n--- replayed\n" + views["new", who] + lists["new", who])
            for did, nd in pairs.items():
                checks += 1
                a = without_setup(run(lexctl3, cwd, old_sim.url, layer, f"dupdate {did} -details\ndexport {did} a\n"))
                data_a = read_export(cwd, "a")
                b = without_setup(run(lexctl3, cwd, new_sim.url, layer, f"dupdate {nd} -details\ndexport {nd} a\n"))
                data_b = read_export(cwd, "a")
                a = renumber(a, pairs)
                # The export's comment line names the DID.
                if (not data_a or a != b or
                        renumber(data_a.decode("utf-8", "replace"), pairs) != data_b.decode("utf-8", "replace")):
                    failures.append(f"dictionary {did} against {nd}:\n{a}\n---\n{b}")
            # The values were there to begin with.
            checks += 1
            shown = views["new", q] + "".join(
                run(lexctl3, cwd, new_sim.url, layer, f"dupdate {nd} -details\n") for nd in pairs.values())
            for key, value in VALUES.items():
                if value not in shown:
                    failures.append(f"{key} {value!r} is not in the replayed user:\n{shown}")
                    break
        finally:
            old_sim.stop()
            if new_sim:
                new_sim.stop()
    return checks


class RewritingRelay:
    """Relays HTTP to lexsim and rewrites each reply body: every key of the
    JSON object in the map file is replaced by its value (XML text)."""

    def __init__(self, target_url, map_path):
        host, port = target_url[len("http://"):].split(":")
        self.target = (host, int(port))
        self.map_path = map_path
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(16)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                conn, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(conn,), daemon=True).start()

    def serve(self, client):
        upstream = socket.create_connection(self.target, timeout=30)
        pending = b""
        try:
            while True:
                message, pending = read_message(client, pending)
                if not message:
                    return
                upstream.sendall(message[0] + b"\r\n\r\n" + message[1])
                reply, _ = read_message(upstream, b"")
                if not reply:
                    return
                head, body = reply
                with open(self.map_path, encoding="utf-8") as f:
                    for old, new in json.load(f).items():
                        body = body.replace(old.encode(), new.encode())
                head = re.sub(rb"(?im)^content-length:.*$", b"Content-Length: %d" % len(body), head)
                client.sendall(head + b"\r\n\r\n" + body)
        except OSError:
            pass
        finally:
            client.close()
            upstream.close()

    def stop(self):
        self.listener.close()


HOSTILE_SETUP = """\
ucreate hmuser -userPass pw -userName MkName -userZone +09:00 -userFeat "ECHO SOAP GENG UGTS" -userFrom 2021-02-03Z -userTo 2097-01-01Z -userLimit max.day.chars=50000 -userIp 10.9.8.7 -userPropAdd mkkey=mkval
ucreate mkshare -userPass pw
ucreate mkowner -userPass pw
uupdate hmuser -engAdd QZ-EK -engMaxUser 3 -engFrom 2022-03-04Z -engTo 2098-01-01Z
dcreate -runas hmuser -eid QZ-EJ -type USER_SHARED -subject MkSubj -languages mk-lang -display "en=MkDisp"
dupdate LAST -runas hmuser -add mkshare
dcreate -runas hmuser -eid QZ-TM -type USER -subject Memo -comment MkComm -vendor MkVend
dcreate -runas mkowner -eid QZ-EJ -type USER_SHARED -subject Theirs
dupdate LAST -runas mkowner -add hmuser
uupdate hmuser -engSet QZ-EJ -engDicAdd "LAST-2 LAST"
"""

# A value for every field: a line break, "{{x}}", quotes, "; shell" and a
# trailing backslash (as XML text).
HOSTILE = 'v"q" &#10;; shell touch INJECTED&#10;{{x}} #\\'
# Where each field's text stands in lexsim's replies: the text itself, or
# the element around it.
FIELDS = {
    "user id": "hmuser",
    "user name": "MkName",
    "time zone": "+09:00",
    "valid from": "2021-02-03T00:00:00Z",
    "valid to": "2097-01-01T23:59:59Z",
    "address": "10.9.8.7",
    "limit": "<type>max.day.chars</type>",
    "property key": "mkkey",
    "property value": "mkval",
    "features": "<features>ECHO GENG UGTS SOAP</features>",
    "engine id": "QZ-EK",
    "engine from": "2022-03-04T00:00:00Z",
    "engine to": "2098-01-01T23:59:59Z",
    "subject": "MkSubj",
    "languages": "mk-lang",
    "display language": "<lang>en</lang>",
    "display text": "MkDisp",
    "comment": "MkComm",
    "vendor": "MkVend",
    "share": "<item>mkshare</item>",
    "owner": "mkowner",
}


def hostile(marker, value=HOSTILE):
    """The marker with its text replaced by value."""
    if marker.startswith("<"):
        return marker[: marker.index(">") + 1] + value + marker[marker.rindex("<"):]
    return value


def hostile_replies(lexctl3, lexsim, layer, failures):
    """3: every field of a hostile reply, one at a time and all at once."""
    checks = 0
    with tempfile.TemporaryDirectory() as cwd:
        sim = Sim(lexsim, cwd)
        map_path = os.path.join(cwd, "map.json")
        with open(map_path, "w") as f:
            json.dump({}, f)
        relay = RewritingRelay(sim.url, map_path)
        try:
            out = run(lexctl3, cwd, sim.url, layer, HOSTILE_SETUP)
            if "SOAP EXCEPTION" in out or "FAILED" in out:
                failures.append("hostile set-up failed:\n" + out)
            cases = [(field, {marker: hostile(marker)}) for field, marker in FIELDS.items()]
            cases.append(("every field", {marker: hostile(marker) for marker in FIELDS.values()}))
            cases.append(("user name with an escape character", {"MkName": "a&#27;b"}))
            cases.append(("user name with a carriage return", {"MkName": "a&#13;shell touch INJECTED"}))
            cases.append(("user name with {{x}}", {"MkName": "{{x}}"}))
            # Ids that would read as an option or a pattern.
            cases.append(("user id -lead", {"hmuser": "-lead"}))
            cases.append(("user id with a blank", {"hmuser": "hm user"}))
            cases.append(("user id *", {"hmuser": "h*"}))
            cases.append(("owner with a blank", {"mkowner": "mk owner"}))
            for field, mapping in cases:
                with open(map_path, "w") as f:
                    json.dump(mapping, f)
                status = []
                target = '"hmu*"' if field.startswith("user id") or field == "every field" else "hmuser"
                out = run(lexctl3, cwd, relay.url, layer, f"udump {target}\n", errexit=True, status=status)
                checks += 1
                written = glob.glob(os.path.join(cwd, "*udump*")) + glob.glob(os.path.join(cwd, "*_100*"))
                if ("Cannot dump user" not in out or "Errors occurred during processing." not in out
                        or status != [2] or written):
                    failures.append(f"{field}: not refused (status {status}, files {written}):\n{out}")
                for path in written:
                    os.remove(path)
            # Ids that would read as an option or a pattern, from the server or given.
            with open(map_path, "w") as f:
                json.dump({}, f)
            for what, line in (("target with a blank", 'udump hmuser -target "a b"'),
                               ("target -x", "udump hmuser -target -x"), ("target *", 'udump hmuser -target "h*"')):
                status = []
                out = run(lexctl3, cwd, relay.url, layer, line + "\n", errexit=True, status=status)
                checks += 1
                written = glob.glob(os.path.join(cwd, "*udump*"))
                if "Cannot dump user" not in out or status != [2] or written:
                    failures.append(f"{what}: not refused (status {status}, files {written}):\n{out}")
            # A user id that names a folder gives a file name in the current one.
            out = run(lexctl3, cwd, relay.url, layer, "ucreate ../up -userPass pw\nudump ../up\n")
            checks += 1
            if (not os.path.exists(os.path.join(cwd, ".._up_udump.txt")) or
                    glob.glob(os.path.join(os.path.dirname(cwd), "up_udump*"))):
                failures.append("the dump of ../up is not .._up_udump.txt in the current folder:\n" + out)
            checks += 1
            if os.path.exists(os.path.join(cwd, "INJECTED")):
                failures.append("a hostile reply ran a shell command")
        finally:
            relay.stop()
            sim.stop()
    return checks


def main():
    lexctl3, lexsim = (os.path.abspath(p) for p in sys.argv[1:3])
    layer = sys.argv[3]
    failures = []
    checks = rich_copy(lexctl3, lexsim, layer, failures)
    checks += two_users(lexctl3, lexsim, layer, failures)
    checks += hostile_replies(lexctl3, lexsim, layer, failures)
    return report(f"udump_roundtrip.{layer}", failures, checks)


if __name__ == "__main__":
    sys.exit(main())
