"""The forms from a terminal: the same device, changed by a page and by orvctl.

Whatever a device's forms look like, both pass the same bytes to the scripts and
the same messages to the user.
"""

import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import urllib.parse

import orv_test.device
from conftest import ENVIRONMENT, LONG, ORV

ORVCTL = os.environ["ORVCTL"]
STORE = pathlib.Path(os.environ["ORV_STORE"])
DEMO = pathlib.Path(__file__).resolve().parents[2] / "demo"
DEVICES = 200 if LONG else 40
WORDS = ["a", "gate-1", "two words", "", "0", "True", "no", "  edge ", "$x", "é", "7", "200"]
CHECKS = ["check word", "check nullok word", "check nullok number 1 100", "", "check nullok text"]
KINDS = ["field", "field", "fixed", "checkbox", "select", "iselect"]


def run(site, *words, expect=None, given=""):
    """Runs orvctl in the device's folder: its output and its messages."""
    done = subprocess.run([ORVCTL, *words], cwd=site.folder, capture_output=True, input=given,
                          text=True, timeout=120, check=False, errors="replace")
    assert done.returncode in (0, 1, 2) and (expect is None or done.returncode == expect), done
    return done


def item(rng, kind, name):
    """The lines of one input item, and values that a user may enter."""
    lines, values = [f"{kind} {name}", f"label The {name}"], WORDS
    if kind == "field":
        lines.append(rng.choice(CHECKS))
    elif kind == "checkbox":
        values = ["True", "False"]
    elif kind in ("select", "iselect"):
        values = ["a", "b", "c"]
        lines += [f"choice {v} Choice {v}" for v in values if kind == "select"]
    return list(filter(None, lines)), values


def device(rng, site):
    """A random form; the values that may be entered in each of its fields."""
    lines, state, values, depth = ["error $E$"], [], {}, 0
    names = [f"v{i}" for i in range(rng.randint(2, 6))]
    for name in names:
        kind = rng.choice(KINDS)
        more, choices = item(rng, kind, name)
        lines += more
        if kind != "fixed":
            values[name] = choices
        if rng.random() < 0.8:
            prefix = rng.choice(["", "", "", "d_", "c_"])
            state.append(f'{prefix}{name}="{rng.choice(choices)}"')
        if kind == "iselect":
            state += [f'select_{name}{i}="{c} Choice {c}"' for i, c in enumerate("abc")]
        if rng.random() < 0.3:
            lines.append(rng.choice([f"if $V:{name}$", f"ifnot $V:{name}$", "if $X$", "ifnot $X$"]))
            depth += 1
    lines += ["endif"] * depth
    if rng.random() < 0.6:
        lines += ["table t 3", "field tn", "label Name", "check nullok word", "select tk",
                  "choice a A", "choice b B", "checkbox tb"]
        for row in range(rng.randint(0, 3)):
            state += [f'tn{row}="n{row}"', f'tk{row}="b"', f'tb{row}="{rng.choice(["True", "False"])}"']
        for row in range(4):
            values |= {f"tn{row}": WORDS, f"tk{row}": ["a", "b"], f"tb{row}": ["True", "False"]}
    rng.shuffle(state)
    refusal = f'grep -q new_{rng.choice(names)}=.a. f.check && echo "error_{names[0]}=No a here"; exit 0'
    site.template("f", *lines, header=["expert_mode"])
    site.form_script("f", read="\n".join(f"echo '{line}'" for line in state),
                     check=refusal if rng.random() < 0.3 else "",
                     write='echo "error_msg=Full"' if rng.random() < 0.1 else "")
    return values


def shown_on(page):
    """The names of the controls that a user sees."""
    return {e.get("name") for e in page.all("input") + page.all("select")
            if e.get("type") != "hidden"}


def by_page(site, changes):
    """The same as a user does it: a field not shown yet appears with a redraw."""
    page, wanted = site.open("f"), dict(changes)
    while True:
        fields = {}
        for name, value in page.fields():
            fields.setdefault(name, value)  # the first of two counts
        found = [name for name in wanted if name in shown_on(page)]
        for name in found:
            fields[name] = wanted.pop(name)
            if page.control(name).get("type") == "checkbox" and fields[name] == "False":
                del fields[name]
        place = {}  # where a browser posts a ticked box
        for element in page.tree.iter():
            place.setdefault(element.get("name"), len(place))
        fields = dict(sorted(fields.items(), key=lambda pair: place[pair[0]]))
        if not wanted:
            return site.post(fields | {"action": "Submit"})
        if not found and "Expert" not in page.buttons():
            return None
        page = site.post(fields | ({} if found else {"action": "Expert"}))


def both_ways(site, changes):
    """The scripts' input and the user's messages, from a page and from a terminal;
    that page, and that run."""
    results = []
    for way in ("page", "terminal"):
        for task in ("check", "write"):
            (site.folder / f"f.{task}").unlink(missing_ok=True)
        if way == "page":
            page = by_page(site, changes)
            said = None if page is None else sorted(page.errors)
        else:
            done = run(site, "set", "f", *(f"{n}={v}" for n, v in changes.items()))
            lines = re.findall(r"^(?:orvctl: )?(\w+): (.*)$", done.stderr, re.M)
            # A field hidden by every condition has no place for its message.
            said = sorted(text for name, text in lines if page is None or name in
                          {"f"} | {re.sub(r"(?<=t[nkb])\d$", "", n) for n in shown_on(page)})
        results.append(([site.given("f", t) for t in ("check", "write")], said))
    return results, page, done


def test_a_change_from_a_terminal_reaches_the_scripts_as_that_of_a_page(site):
    outcomes = {}
    for seed in range(DEVICES):
        rng = random.Random(seed)
        (site.scripts / "f.sh").unlink(missing_ok=True)
        values = device(rng, site)
        names = rng.sample(sorted(values), min(len(values), rng.randint(1, 4)))
        changes = {name: rng.choice(values[name]) for name in names}
        results, page, done = both_ways(site, changes)
        if page is None:  # neither has such a field
            assert done.returncode == 1 and "is not a field" in done.stderr, (seed, changes)
        else:
            assert results[0] == results[1], (seed, changes, page.title, done)
        outcome = page and page.title
        outcomes[outcome] = outcomes.get(outcome, 0) + 1
    assert min(outcomes.get(t, 0) for t in ("changes_saved", "Test form")) >= DEVICES // 10, outcomes


def test_a_blank_field_of_the_expert_view_runs_the_same_scripts(site):
    """A Submit's checks do not depend on the view: no $X$, $N$."""
    site.template("f", "error $E$", "field a", "check word", "if $X$", "field b", "check word", "endif", "if $N$",
                  "field c", "check word", "endif", "if $X$", "table t 2 1", "field tn", "check nullok word",
                  "checkbox tb", "endif", "field d", header=["expert_mode"])
    site.form_script("f", read="printf '%s\n' a=1 b=2 d=3 d_b=4 tn0=x tb0=True tn1=y")
    for changes in ({"b": ""}, {"a": "", "b": ""}, {"a": "7", "b": "", "tn1": "$", "tb0": "False"},
                    {"tn2": "", "b": "4"}, {"d": "", "tb1": "True"}, {"a": "1", "b": "2"}):
        results, page, done = both_ways(site, changes)
        assert results[0] == results[1], (changes, page.title, done)
        assert (page.title == "changes_saved") == done.stdout.startswith("f: saved"), (changes, done)


def test_a_page_that_its_read_script_refuses_is_refused(site):
    site.template("f", "if $V:x$", "field x", "table t 1", "field n", "endif")
    site.template("orvmenu", "fmenu", "choice f Form")
    (site.folder / "file").write_text("form f\nx=1\n")
    for said, message in (("echo 'error_msg=No $B$such$R$ port, $$$5 $V:y$'; echo 'y=é'", "No such port, $5 é"),
                          ("echo 'error_msg=No such port'; echo error_fatal=yes", "No such port"),
                          ("echo error_fatal=yes", "no such page")):
        site.form_script("f", read=f"{said}; echo x=5")
        for words in (["get", "f"], ["get", "f", "x"], ["set", "f/nope", "x=1"], ["rows", "f", "t"],
                      ["dump"], ["dump", "f"], ["apply", "file"]):
            done = run(site, *words, expect=1)
            assert re.search(f"^orvctl: {words[1] if len(words) > 1 and words[0] != 'apply' else 'f'}: "
                             f".*{re.escape(message)}$", done.stderr, re.M), (words, done)
            assert "x=" not in done.stdout
        assert message in json.loads(run(site, "--json", "get", "f", expect=1).stdout)["message"]
        assert "--write" not in " ".join(site.ran())
    # A message beside a field is not a refusal.
    site.form_script("f", read="echo error_x=Odd; echo x=5")
    assert run(site, "get", "f", "x", expect=0).stdout == "x=5\n"


# Set a title, request a reply, clear the screen; C1 in UTF-8 and as a byte; DEL.
# "é" and the dollar sign are harmless.
TRAPS = "\x1b]0;x\x07\x1b[c\x1b[2J\x9b2J\x7fé"
SEEN = r"\x1b]0;x\x07\x1b[c\x1b[2J\xc2\x9b2J\x7fé"
RAW = TRAPS.encode() + b"\x9b\\x41"


def test_no_control_character_reaches_a_terminal(site):
    site.template("f", "field v", f"label La{TRAPS}", "select s", f"choice {TRAPS} X", "choice b X", "field w",
                  f"check_msg w Bad{TRAPS}", "check word", f"field n{TRAPS}", "iselect i", "table t 1 1", "fixed tn",
                  title=f"Ti{TRAPS}")
    site.template("orvmenu", "fmenu", "choice f X", f"choice no{TRAPS} X")
    (site.folder / "raw").write_bytes(RAW)
    site.form_script("f", read='v=$(<raw); printf "%s\\n" "v=$v" "tn0=$v" "i=$v" "select_i0=$v X" w=1',
                     check=f"grep -q new_w=.7 f.check && echo 'error_v=No{TRAPS}'; exit 0")
    (site.folder / "bad").write_text(f"form f\ns{TRAPS}=1\n")
    for words, shown in ((["forms"], f"Ti{SEEN}"), (["get", "f"], rf"v={SEEN}\x9b\x41"), (["rows", "f", "t"], SEEN),
                         (["set", "f", "v=a"], f"La{SEEN}: {SEEN}"), (["set", "f", "v=a", "w=$"], f"Bad{SEEN}"),
                         (["set", "f", "v=a", "w=7"], f"No{SEEN}"), (["set", "f", f"s{TRAPS}="], SEEN),
                         (["set", "f", "s=c"], SEEN), (["dump", "f"], rf"v={SEEN}\x9b\x5cx41"), (["apply", "bad"], SEEN),
                         ([f"x{TRAPS}"], f"x{SEEN}"), (["get", f"x/{TRAPS}"], ""), (["get", "f", TRAPS], SEEN)):
        for option in ((), ("--json",)):
            done = subprocess.run([ORVCTL, *option, *words], cwd=site.folder, capture_output=True, check=False)
            said = (done.stdout + done.stderr).decode("utf-8")
            assert not re.search("[\0-\x08\x0b-\x1f\x7f-\x9f]", said), (words, said)
            assert option or shown in said, (words, said)
    # The old values are restored, except those that no check accepts.
    dump = re.sub(r"(?m)^n.*\n|(?<=^v=).*", "", run(site, "dump", "f").stdout)
    (site.folder / "dump").write_text(dump)
    run(site, "apply", "dump", expect=0)
    assert b'new_i="' + RAW + b'"\n' in (site.folder / "f.write").read_bytes()


def test_a_box_takes_the_words_for_truth_and_no_others(site):
    """Any other would clear it without a word."""
    site.template("f", "checkbox box", "table t 1 1", "checkbox tb")
    for word, ticked in (*((w, True) for w in ("1", "true", "True", "YES", "on")),
                         *((w, False) for w in ("0", "", "false", "no", "OFF"))):
        site.form_script("f", read=f"echo box={not ticked}; echo tb0={not ticked}")
        run(site, "set", "f", f"box={word}", f"tb0={word}", expect=0)
        told = dict(line.split("=", 1) for line in site.given("f", "write"))
        assert told["new_box"] == told["new_tb0"] == f'"{ticked}"', (word, told)
    site.ran()
    for word in ("2", "tru", "yes ", " 1", "y", "-", "Truee"):
        done = run(site, "set", "f", f"box={word}", expect=1)
        assert done.stderr == 'orvctl: f: "box" is a check box: True or False\n', word
    assert "--write" not in " ".join(site.ran())


def test_a_command_with_too_few_or_too_many_words_does_nothing(site):
    site.template("f", "field a")
    for command, least, most in (("forms", 0, 0), ("get", 1, None), ("set", 2, None), ("rows", 2, None), ("apply", 1, 1),
                                 ("confirm", 0, 0), ("history", 0, 0), ("restore", 1, 1), ("reset", 0, 1)):
        for count in {least - 1, (most or least) + 1} - ({-1} if most is not None else {-1, least + 1}):
            for option in ((), ("--json",), ("--yes", "--dry-run")):
                done = run(site, *option, command, *["f"] * count, expect=2)
                assert done.stderr == f"orvctl: wrong number of arguments for: {command} (see orvctl --help)\n", done
                assert done.stdout == ""
    assert site.ran() == [] and not (site.folder / "data/state").exists()
    done = run(site, expect=2)
    usage = done.stderr
    assert done.stdout == "" and usage.startswith("Usage: orvctl ")
    for words in (["--help"], ["-h"], ["set", "--help"], ["--json", "get", "f", "-h"]):
        assert run(site, *words, expect=0).stdout == usage
    for words, message in ((["nosuch"], "unknown command: nosuch"), (["--jso", "forms"], "unknown option: --jso"),
                           (["--json", "dump"], "dump does not support: --json"), (["restore", "1x"], "not the number of a save: 1x"),
                           (["--dry-run", "confirm"], "confirm does not support: --dry-run"), (["apply", "none"], "cannot read: none"),
                           (["set", "f", "a"], "not NAME=VALUE: a"), (["reset"], "reset asks at a terminal; elsewhere it requires: --yes")):
        done = run(site, *words, expect=2)
        assert (done.stdout, done.stderr) == ("", f"orvctl: {message} (see orvctl --help)\n"), words


def test_a_value_may_come_from_standard_input(site):
    site.template("f", "field a_secret", "field b", "checkbox box", "select s", "choice - None", "choice x X",
                  "table t 2 2", "field tn", "checkbox tb")
    site.form_script("f", read="echo a_secret=1; echo b=2; echo s=x; echo tn0=1")
    for words, given, new in (
            ("set f a_secret=- b=-", "corr ect\n-\nrest", {'new_a_secret="corr ect"', 'new_b="-"'}),
            ("set f b=- a_secret=-", "one\ntwo", {'new_a_secret="two"', 'new_b="one"'}),
            ("set f A_Secret=- s=-", "\n", {'new_a_secret=""', 'new_s="-"'}),
            ("rows f t add tn=-", "x y\n", {'new_tn1="x y"'}), ("rows f t change 1 tn=- tb=1", "z", {'new_tn0="z"'}),
            ("set f tn0=-", "-x", {'new_tn0="-x"'}), ("set f a_secret=--", "", {'new_a_secret="--"'})):
        run(site, *words.split(), expect=0, given=given)
        assert new <= set(site.given("f", "write")), words
    (site.folder / "file").write_text("form f\nb=-\n")
    run(site, "apply", "file", expect=0)
    assert 'new_b="-"' in site.given("f", "write")
    site.ran()
    for words, given in (("set f b=-", ""), ("set f b=- a_secret=-", "1\n"), ("set f b=-", "a\0b\n"),
                         ("set f b=-", "a\rb\n"), ("set f box=-", "True\n"), ("set f zz=-", "1\n")):
        done = run(site, *words.split(), expect=1, given=given)
        assert re.match('orvctl: f: "(b|a_secret|box|zz)" ', done.stderr), done
    assert "--write" not in " ".join(site.ran())


def test_scripts_learn_where_the_settings_are(site, monkeypatch):
    site.template("f", "fixed v")
    site.form_script("f", 'echo "v=$ORV_STATE"')
    for place, told in ((None, "data/state"), ("", "data/state"), ("else/where", "else/where")):
        if place is None:
            monkeypatch.delenv("ORV_STATE", raising=False)
        else:
            monkeypatch.setenv("ORV_STATE", place)
        assert run(site, "get", "f", "v", expect=0).stdout == f"v={told}\n"


def test_unknown_names_are_answered_with_existing_ones(site):
    site.template("network", "field host_name", "fixed note", "select s", "choice both B", "choice 2 B", "if $V:s$",
                  "field behind", "endif", "table leases 2 1", "field ls_name", "checkbox ls_on")
    site.template("f", *(f"field n{i}x" for i in range(210)), title="F")
    site.template("orvmenu", "fmenu", "choice network N", "choice gone G", "choice f F", title="Menu")
    (site.folder / "dump").write_text("form network\ntable lease 1\n")
    for words, message in (
            ("get netwrok", 'netwrok: .* \\(did you mean "network"\\?\\); there are: orvmenu network f$'),
            ("set Network/x a=b", 'Network/x: .*; there are: orvmenu network f$'),
            ("dump nettwork", 'nettwork: .*"network"'), ("get gone", r"gone: [^;]*gone\.tpl$"),
            ("get zz", "zz: [^(]*; there are: orvmenu network f$"),
            ("get ../f", r"\.\./f: This is not a valid name of a form"), ("get f/../x", "f/../x: This is not a valid name of a sub-item"),
            ("get network hostname", 'network: has no field "hostname" \\(did you mean "host_name"\\?\\); '
                                     "there are: host_name note s ls_name0 ls_on0$"),
            ("set network ohst_name=1", 'network: "ohst_name" is not a field .*"host_name"\\?'),
            ("get network behind", 'network: has no field "behind"$'),
            ("set network ls_nam0=1", 'mean "ls_name0"'),
            ("set network s=bth", '"s" has no such choice .* "both"\\?\\); it takes one of: both 2$'),
            ("set network s=9", '"s" has no such choice; it takes one of: both 2$'),
            ("rows network lease", 'has no such table "lease" \\(did you mean "leases"\\?\\); there are: leases$'),
            ("rows f leases", 'has no such table "leases"; there are: none$'),
            ("apply dump", 'has no such table "lease" .*"leases"'),
            ("rows network leases add name=1", 'has no column "name"; there are: ls_name ls_on$'),
            ("rows network leases add lsname=1", 'has no column "lsname" .*"ls_name"'),
            ("get f n7", r"n199x \.\.\.$")):
        done = run(site, *words.split(), expect=1)
        assert re.search(f"(?m)^orvctl: .*{message}", done.stderr), (words, done.stderr)
    assert "did you mean" in json.loads(run(site, "--json", "get", "netwrok", expect=1).stdout)["message"]


def test_each_fault_of_a_dump_names_its_line(site):
    site.template("f", "error $E$", "field a", "check word", "field b", "select s", "choice x X", "table t 2 2",
                  "field tn", "check nullok number 1 9", "checkbox tb")
    site.form_script("f", read='[[ $3 ]] && echo "error_msg=No $3"; echo a=1; echo tn0=1; echo tn1=2; echo tn2=3',
                     check="grep -q new_b f.check && echo error_b=Bad && echo error_zz=Odd; exit 0")
    site.template("orvmenu", "fmenu", "choice f X")
    for text, faults in (
            ("form f\n\na=$\n", {"f": 1, "a": 3}), ("# x\nform f\nb=2\n", {"f": 2, "b": 3, "zz": 2}),
            ("form f\na=2\ntn0=7\ntn1=99\n", {"f": 1, "tn": 4}), ("form f\na=7\ns=y\n", {"f": 3}),
            ("form f\nzz=1\na=3\n", {"f": 2}), ("form f\na=4\ntn9=1\n", {"f": 3}),
            ("form f\n#\ntable u 1\n", {"f": 3}), ("form g\nform f\na=$", {"g": 1, "f": 2, "a": 3}),
            ("\n\nform f/x\na=1\n", {"f/x": 3}), ("form f\nsecret a=1\n", {"f": 2}), ("form f\na=\x01\n", {"f": 1, "a": 2})):
        (site.folder / "dump").write_text(text)
        said = run(site, "apply", "dump", expect=1).stderr
        found = dict(re.findall(r"(?m)^(?:orvctl: )?([\w/]+): dump: line (\d+): .", said))
        assert {name: int(line) for name, line in found.items()} == faults, (text, said)
        assert len(said.splitlines()) == len(faults) + 1 and "nothing was saved" in said
        with open(site.folder / "dump", encoding="utf-8") as file:  # as standard input has no name
            done = subprocess.run([ORVCTL, "--json", "apply", "-"], cwd=site.folder, stdin=file, capture_output=True,
                                  check=False)
        told = [(e["form"], e["line"], e["file"]) for e in json.loads(done.stdout)]
        assert told == [(name, line, "standard input") for name, line in faults.items() if name in "fg f/x"], text
        lines = {name: line for e in json.loads(done.stdout) for name, line in e.get("lines", {}).items()}
        assert lines == {name: line for name, line in faults.items() if name not in "fg f/x"}, text
    assert "line" not in run(site, "set", "f", "a=$", expect=1).stderr


def test_json_rows_and_usage_errors(site):
    site.template("f", "field a_password", "label Key", "fixed note", "table t 2 2", "field n", "checkbox b",
                  "if $X$", "table x 1", "field xn", "endif", "ftable u 1 3", "field un", title="Table $B$bold$R$",
                  header=["expert_mode"])
    site.form_script("f", read="printf '%s\\n' un0=u n0=one b0=True n2=two xn0=x a_password=s $'note=t\"w\\xff'")
    site.template("orvmenu", "fmenu", "choice f Table", "choice nosuch Gone", title="Menu")
    forms = json.loads(run(site, "--json", "forms", expect=0).stdout)
    assert [f["form"] for f in forms] == ["orvmenu", "f", "nosuch"] and forms[1]["title"] == "Table bold"
    shown = json.loads(run(site, "--json", "get", "f", expect=0).stdout)
    assert shown["a_password"] == "" and shown["note"] == 't"w\ufffd'
    assert run(site, "--secrets", "get", "f", "A_PASSWORD", expect=0).stdout == "a_password=s\n"
    assert json.loads(run(site, "--json", "rows", "f", "t", expect=0).stdout) == [
        {"n": "one", "b": True}, {"n": "", "b": False}, {"n": "two", "b": False}]
    assert json.loads(run(site, "--json", "rows", "f", "u", expect=0).stdout) == [
        {"un": "u"}, {"un": ""}, {"un": ""}]  # a fixed table always has all its rows
    run(site, "rows", "f", "t", "delete", "1", expect=0)
    assert 'new_n1="two"' in site.given("f", "write") and 'new_n2=""' in site.given("f", "write")
    for table, cell in (("t", "n"), ("x", "xn")):  # after a gap, and in the expert view
        run(site, "rows", "f", table, "add", f"{cell}=three", expect=0)
        assert f'new_{cell}1="three"' in site.given("f", "write")
    assert 'new_xn0="x"' in site.given("f", "write")
    (site.folder / "less").write_text("form f\ntable t 1\nn0=x\ntable x 0\n")
    assert json.loads(run(site, "--json", "apply", "less", expect=0).stdout)[0]["result"] == "saved"
    assert {'new_n0="x"', 'new_n2=""', 'new_xn0=""'} <= set(site.given("f", "write"))
    assert json.loads(run(site, "--json", "get", "f", "zz", expect=1).stdout)["result"] == "failed"
    for text in ("form f\nzz", "form f\nn0=x\0"):
        (site.folder / "bad").write_text(text)
        assert json.loads(run(site, "--json", "apply", "bad", expect=1).stdout)["form"] == "bad"
    assert json.loads(run(site, "--json", "set", "f", "n0=bad$", expect=1).stdout)["errors"]["n"]
    dumped = run(site, "dump", expect=1).stdout  # one page is missing
    assert "table t 3\nn0=one\n" in dumped and "password" not in dumped
    assert dumped.count("table t ") == 1  # one line per table, not per cell
    assert "a_password=s" in run(site, "--secrets", "dump", "f", expect=0).stdout
    for words in (["nosuch"], ["get"], ["set", "f"], ["set", "f", "n0"], ["--x", "forms"],
                  ["rows", "f", "t", "delete", "9"], ["rows", "f", "t", "turn", "1"], ["apply", "nosuch"]):
        assert "--help" in run(site, *words, expect=2).stderr
    for words in (["set", "../f", "n0=x"], ["set", "f/..", "n0=x"], ["set", "f", "n0=a\nb"],
                  ["set", "f", "zz=1"], ["get", "f", "zz"], ["rows", "f", "zz"], ["get", "nosuch"]):
        assert run(site, *words, expect=1).stderr.startswith("orvctl: ")
    site.template("f", "select s", *(f"choice {str(i) * 50} Long" for i in range(9)))
    assert "one of: 0" in run(site, "set", "f", "s=9", expect=1).stderr


def demo(site):
    """The demo device in the test's folder."""
    for name in ("templates", "scripts", "defaults"):
        orv_test.device.copy_part(DEMO / name, site.folder / "data" / name, STORE)
    return site


def stored(site):
    """The stored settings; a first line only says when they were saved."""
    files = (site.folder / "data/state").glob("*")
    return {f.name: re.sub("^#orv .*\n", "", f.read_text())
            for f in files if f.is_file() and f.name[0] != "."}


CHANGES = """
set network host_name=gw-2 static_ip=yes ip_address=10.0.0.5/24 gateway=10.0.0.1 ip6_mode=off dns_search=lan.example
set wireless wl_on=True wl_name=Larch wl_passphrase=correct-horse wl_band=2 wl_channel=6
set dhcp dh_lease=24h dh_domain=lan
rows dhcp leases delete 1
rows dhcp leases add ls_name=nas ls_mac=52:54:00:12:ab:09 ls_address=192.168.1.77
rows firewall rules add fr_pos=15 fr_do=allow fr_from=wan fr_proto=tcp fr_port=443
rows firewall rules delete 1
rows forwards forwards delete 1 2
set services ssh_on=True log_level=debug
rows users users change 2 us_role=viewer
set system place=Cellar ntp_on=False
set port/lan1 port_on=False
set port/lan3 port_use=Printer port_mtu=9000
"""


def hear_acts(site, monkeypatch):
    """Sends the forms' requests into a FIFO that this test keeps open."""
    shutil.copytree(DEMO / "actions", site.folder / "data/actions", dirs_exist_ok=True)
    (site.folder / "acts").mkdir()
    os.mkfifo(site.folder / "acts/ask")
    monkeypatch.setenv("ORV_ACTS", str(site.folder / "acts"))
    return os.open(site.folder / "acts/ask", os.O_RDWR | os.O_NONBLOCK)


def remove_state(site):
    """The watcher of a guarded change may still be writing there."""
    state = site.folder / "data/state"
    while state.exists():
        shutil.rmtree(state, ignore_errors=True)


def test_a_dump_puts_every_form_of_the_demo_back(site, monkeypatch):
    demo(site)
    acts = hear_acts(site, monkeypatch)
    for line in CHANGES.strip().splitlines():
        run(site, *line.split(), expect=0)
    dump = run(site, "--secrets", "dump", expect=0).stdout
    assert "wl_passphrase=correct-horse" in dump
    assert os.read(acts, 100).split() == [b"services"]
    assert "correct-horse" not in run(site, "dump", expect=0).stdout
    kept = stored(site)
    assert len(kept) >= 12
    for words, message in ((["get", "port/nope"], "port/nope: There is no such port"), (["dump", "port"], "port: There"),
                           (["set", "port/lan1", "port_mtu="], "port_mtu: Enter a number from 576 to 9000, usually")):
        assert message in run(site, *words, expect=1).stderr
    remove_state(site)
    (site.folder / "dump").write_text(dump.replace("host_name=gw-2", "host_name=gw 2"))
    assert "nothing was saved" in run(site, "apply", "dump", expect=1).stderr
    assert stored(site) == {}
    (site.folder / "dump").write_text(dump)
    run(site, "--dry-run", "apply", "dump", expect=0)
    assert stored(site) == {}
    assert "Device name: larkspur → gw-2" in run(site, "apply", "dump", expect=0).stdout
    assert stored(site) == kept
    again = run(site, "apply", "dump", expect=0).stdout
    assert again.count(": unchanged") == dump.count("\nform ")
    os.close(acts)


TOGETHER = 60


def test_two_saves_at_once_each_succeed_completely_or_say_why_not(site):
    demo(site)
    page = site.open("network")
    state = site.folder / "data/state"
    both = 0
    for i in range(TOGETHER):
        shutil.rmtree(state, ignore_errors=True)
        page = site.open("network")
        fields = dict(page.fields()) | {
            "host_name": f"page-{i}", "dns1": "192.0.2.1", "dns2": "192.0.2.2", "action": "Submit"}
        body = urllib.parse.urlencode(fields).encode()
        (site.folder / "dump").write_text(
            f"form network\nhost_name=file-{i}\ndns1=192.0.2.3\ndns2=192.0.2.4\n")
        env = ENVIRONMENT | {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": str(len(body)),
                             "CONTENT_TYPE": "application/x-www-form-urlencoded",
                             "SYSLOG_FILE": "/dev/null"}
        start = lambda words, **more: subprocess.Popen(
            words, cwd=site.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, **more)
        with start([ORV], env=env) as browser, start([ORVCTL, "apply", "dump"]) as terminal:
            (seen, _), (_, said) = browser.communicate(body, 60), terminal.communicate(b"", 60)
        saved = [b"<title>Saved" in seen, terminal.returncode == 0]
        kept = "".join(stored(site).values())
        found = [f"host_name=page-{i}" in kept and "dns1=192.0.2.1" in kept and "dns2=192.0.2.2" in kept,
                 f"host_name=file-{i}" in kept and "dns1=192.0.2.3" in kept and "dns2=192.0.2.4" in kept]
        assert sum(found) == 1 and saved[found.index(True)], (i, saved, kept, said)
        refused = b'class="error"' in seen, b"orvctl: network: " in said
        assert all(ok or told for ok, told in zip(saved, refused)), (i, saved, seen, said)
        both += all(saved)
    assert both < TOGETHER  # a page that is older than the last save is refused
