#!/usr/bin/env python3
"""udump round trips. Two users who share dictionaries, with values only
quoting carries (quotes, a trailing backslash, "; shell touch INJECTED", "-?",
a leading "#", "!", "@", "-" or "/*"), dumped together and replayed into a
fresh lexsim under --errexit equal the originals but for the DIDs, and run
nothing but the scripts' commands. A hostile server (a relay rewriting
lexsim's replies) that puts a line break, "{{x}}", quotes, a trailing
backslash or "; shell" into any field a dump writes gets the user refused,
with the run's error status and no script written.

Usage: udump_roundtrip.py LEXCTL3 LEXSIM LAYER"""
import glob
import os
import re
import sys
import tempfile

from harness import LOGIN, Checks, Lexsim, Relay, read, write
from harness import run as run_lines


def run(lexctl3, cwd, server, layer, body, errexit=False, status=None):
    # Binary data travel inline on one layer and as DIME attachments on the other.
    done = run_lines(lexctl3, cwd, [f"setopt server {server}", f"setopt commslayer {layer}",
                                    f"setopt dime {'true' if layer == 'windows' else 'false'}", *LOGIN, body],
                     errexit=errexit)
    if status is not None:
        status.append(done.returncode)
    return done.stdout


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
    data = read(cwd, found[0], "rb")
    os.remove(os.path.join(cwd, found[0]))
    return data


# The user id, the user name, the property keys and values and the dictionaries'
# texts hold what only quoting carries; the first's files are named q_u_o_te_*.
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
        f" -userFeat \"ECHO SOAP TEXT GENG UGTS\" -userApi 0x3fffff -userFrom 2020-01-01Z"
        f" -userTo \"2099-12-31 12:00:00Z\" -userLimit sessions=4 -userLimit max.day.chars=50000"
        f" -userIp 10.0.0.0/8 -userIp [::1] -userPropAdd \"colour=deep blue\""
        f" -userPropAdd {word(v['propkey1'] + '=' + v['propval1'])}"
        f" -userPropAdd {word(v['propkey2'] + '=' + v['propval2'])}"
        f" -userPropAdd {word('!' + v['rokey'] + '=' + v['roval'])}",
        f"uupdate {q} -engAdd QZ-EK -engSupport TRANSLATE -engSupport LOOKUP -engMaxUser 3 -engTo 2098-01-01Z"
        " -engType HIDDEN",
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
        f"uupdate {q} -engSet QZ-EJ -engDicAdd \"LAST-2 101 LAST-3 LAST 102\" -engMaxTech 4 -engSet QZ-TM -engDicAdd LAST-1",
        f"uupdate {BOB} -engSet QZ-EJ -engDicAdd \"LAST-3 LAST-2\"",
    ]
    return "\n".join(lines) + "\n"


def two_users(lexctl3, lexsim, layer, check):
    """Both users dumped together and replayed into a fresh server."""
    q = word(QUOTE_USER)
    with tempfile.TemporaryDirectory() as cwd, Lexsim(lexsim, cwd=cwd) as old_sim, Lexsim(lexsim, cwd=cwd) as new_sim:
        write(cwd, "ud.bin", bytes(range(256)) * 3)
        out = run(lexctl3, cwd, old_sim.server, layer, two_user_setup())
        check(not any(w in out for w in ("SOAP EXCEPTION", "FAILED", "Invalid")), "two-user set-up failed:\n" + out)
        out = run(lexctl3, cwd, old_sim.server, layer, f"udump {q} {BOB}")
        names = ["q_u_o_te_udump.txt", "bob_udump.txt", "q_u_o_te_udump_dicshares.txt", "bob_udump_dicshares.txt"]
        missing = [n for n in names if not os.path.exists(os.path.join(cwd, n))]
        if not check("Errors occurred" not in out and "Done." in out and not missing,
                     f"two-user udump failed (missing {missing}):\n" + out):
            return
        progress = [line.split("(")[0] for line in out.splitlines()
                    if line.startswith(("UpdateDictionaryInfo(", "DictionaryExport("))]
        check(len(progress) >= 6 and progress == ["UpdateDictionaryInfo", "DictionaryExport"] * (len(progress) // 2),
              "udump does not fetch and export one dictionary after the other:\n" + out)
        status = []
        out = run(lexctl3, cwd, new_sim.server, layer, "\n".join(f"read {n}" for n in names), errexit=True,
                  status=status)
        check(status == [0] and not any(w in out for w in ("SOAP EXCEPTION", "FAILED", "Warnings")),
              f"replay into a fresh lexsim ended with {status}:\n" + out)
        check(not os.path.exists(os.path.join(cwd, "INJECTED")), "replaying the dumps ran a shell command")
        views, lists = {}, {}
        for name, sim in (("old", old_sim), ("new", new_sim)):
            for who in (q, BOB):
                views[name, who] = without_setup(run(lexctl3, cwd, sim.server, layer, f"uget {who} -all -sessions"))
                lists[name, who] = without_setup(run(lexctl3, cwd, sim.server, layer, f"einfo -runas {who} -suserdic"))
        old = {**dictionaries(lists["old", q]), **dictionaries(lists["old", BOB])}
        new = {**dictionaries(lists["new", q]), **dictionaries(lists["new", BOB])}
        pairs = {did: nd for did, key in old.items() for nd, nkey in new.items() if nkey == key}
        check(len(old) == 4 and len(pairs) == 4 and sorted(old.values()) == sorted(new.values()),
              f"dictionaries differ: {old} against {new}")
        for who in (q, BOB):
            expected, listed = renumber(views["old", who], pairs), renumber(lists["old", who], pairs)
            check(expected == views["new", who] and sorted(listed.splitlines()) == sorted(lists["new", who].splitlines()),
                  f"uget or einfo of {who} differ:\n--- original, renumbered\n{expected}{listed}\n--- replayed\n"
                  f"{views['new', who]}{lists['new', who]}")
        for did, nd in pairs.items():
            a = without_setup(run(lexctl3, cwd, old_sim.server, layer, f"dupdate {did} -details\ndexport {did} a"))
            data_a = read_export(cwd, "a")
            b = without_setup(run(lexctl3, cwd, new_sim.server, layer, f"dupdate {nd} -details\ndexport {nd} a"))
            data_b = read_export(cwd, "a")
            # The export's comment line names the DID.
            check(data_a and renumber(a, pairs) == b and
                  renumber(data_a.decode("utf-8", "replace"), pairs) == data_b.decode("utf-8", "replace"),
                  f"dictionary {did} against {nd}:\n{a}\n---\n{b}")
        # The values were there to begin with.
        shown = views["new", q] + "".join(
            run(lexctl3, cwd, new_sim.server, layer, f"dupdate {nd} -details") for nd in pairs.values())
        missing = [(key, value) for key, value in VALUES.items() if value not in shown]
        check(not missing, f"{missing} not in the replayed user:\n{shown}")


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


def hostile_replies(lexctl3, lexsim, layer, check):
    """Every field of a hostile reply, one at a time and all at once; a
    GetUser reply naming someone else makes no address edit."""
    with tempfile.TemporaryDirectory() as cwd, Lexsim(lexsim, cwd=cwd) as sim:
        relay = Relay(sim.port)
        out = run(lexctl3, cwd, sim.server, layer, HOSTILE_SETUP)
        check("SOAP EXCEPTION" not in out and "FAILED" not in out, "hostile set-up failed:\n" + out)
        cases = [(field, {marker: hostile(marker)}) for field, marker in FIELDS.items()]
        cases += [("every field", {marker: hostile(marker) for marker in FIELDS.values()}),
                  ("user name with an escape character", {"MkName": "a&#27;b"}),
                  ("user name with a carriage return", {"MkName": "a&#13;shell touch INJECTED"}),
                  ("user name with {{x}}", {"MkName": "{{x}}"}),
                  # Ids that would read as an option or a pattern.
                  ("user id -lead", {"hmuser": "-lead"}), ("user id with a blank", {"hmuser": "hm user"}),
                  ("user id *", {"hmuser": "h*"}), ("owner with a blank", {"mkowner": "mk owner"})]
        target = lambda field: '"hmu*"' if field.startswith("user id") or field == "every field" else "hmuser"
        cases = [(field, mapping, f"udump {target(field)}") for field, mapping in cases]
        # Ids that would read as an option or a pattern, given on the line.
        cases += [(what, {}, line) for what, line in (("target with a blank", 'udump hmuser -target "a b"'),
                                                      ("target -x", "udump hmuser -target -x"),
                                                      ("target *", 'udump hmuser -target "h*"'))]
        for field, mapping, line in cases:
            relay.rewrite = mapping
            status = []
            out = run(lexctl3, cwd, relay.server, layer, line, errexit=True, status=status)
            written = glob.glob(os.path.join(cwd, "*udump*")) + glob.glob(os.path.join(cwd, "*_100*"))
            check("Cannot dump user" in out and "Errors occurred during processing." in out and status == [2]
                  and not written, f"{field}: not refused (status {status}, files {written}):\n{out}")
            for path in written:
                os.remove(path)
        # An address edit is sent only as an edit of that user's own list.
        relay.rewrite = {"<userid>hmuser<": "<userid>hmother<"}
        relay.records.clear()
        out = run(lexctl3, cwd, relay.server, layer, "uupdate hmuser -userIpAdd 9.9.9.9")
        sent = [record["operation"] for record in relay.records]
        check("FAILED: The server's reply does not hold user hmuser" in out and "UpdateUser" not in sent,
              f"-userIpAdd applied to another user's list (sent {sent}):\n{out}")
        # A user id that names a folder gives a file name in the current one.
        relay.rewrite = {}
        out = run(lexctl3, cwd, relay.server, layer, "ucreate ../up -userPass pw\nudump ../up")
        check(os.path.exists(os.path.join(cwd, ".._up_udump.txt")) and
              not glob.glob(os.path.join(os.path.dirname(cwd), "up_udump*")),
              "the dump of ../up is not .._up_udump.txt in the current folder:\n" + out)
        check(not os.path.exists(os.path.join(cwd, "INJECTED")), "a hostile reply ran a shell command")


def main():
    lexctl3, lexsim = (os.path.abspath(p) for p in sys.argv[1:3])
    check = Checks(f"udump_roundtrip.{sys.argv[3]}")
    two_users(lexctl3, lexsim, sys.argv[3], check)
    hostile_replies(lexctl3, lexsim, sys.argv[3], check)
    return check.report()


if __name__ == "__main__":
    sys.exit(main())
