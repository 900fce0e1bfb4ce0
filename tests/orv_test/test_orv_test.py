"""orv-test on a small device: every line can pass and fail, faults are reported
with their place, and recorded tests pass."""

import os
import pathlib
import re
import subprocess
import sys
import urllib.error
import urllib.parse
import urllib.request

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOLS = ROOT / "tools"
sys.path.insert(0, str(TOOLS))
from orv_test import main, script  # noqa: E402  pylint: disable=wrong-import-position
from orv_test.page import Page  # noqa: E402  pylint: disable=wrong-import-position

COMMAND = [TOOLS / "orv-test", "--orv", os.environ["ORV"]]
FORMS = {
    "net": "title Net $S$\nhelp_mode\nexpert_mode\nbody\nerror $E$\nfmenu\n"
           "choice net/b The other\ntext Hello $B$$V:kind$$R$.\nfield mtu\n"
           "label Packet size\ncheck decimal 1 99\nhelp Of one packet\nfixed kind\ncheckbox on\n"
           "select mode\nchoice a Automatic\nchoice b By hand\nif $V:on$\n"
           "field extra\nendif\ntable acl 2\nfield src\ncheckbox off",
    "orvmenu": "title Menu\nbody\ntext Start\nfmenu\nchoice net/eth0 Network",
    "changes_saved": "title Saved\nbody\ntext Saved.",
    "no_changes": "title Same\nbody\ntext Same.",
    "discard_or_return": "title Leave\nbody\ntext Leave?"}
# Stores each value as a line; the input is read in two ways, and the noted
# input must not show.
SCRIPT = r"""#!/bin/bash
cd "${BASH_SOURCE%/*}/.." || exit
case $1/$2 in
  --read/net) cat state/net 2>/dev/null || cat defaults/net ;;
  --check/net) ! grep -x 'new_mtu="13"' || echo error_mtu=Unlucky ;;
  --write/net)
    read -r first
    { echo "$first"; cat; } | sed s/new_// >state/net
    echo "${BASH_ENV-none}" >state/env ;;
esac
"""
SETTINGS = ("mtu=40\nkind=small\non=False\nmode=a\nextra=\nsecret=hush\n"
            "src0=one\noff0=True\nsrc1=two\noff1=False\n")


@pytest.fixture
def device(tmp_path):
    """The device's folder, in which only a test's own files change."""
    for name in ("templates", "scripts", "defaults", "state", "tests"):
        (tmp_path / name).mkdir()
    for name, text in FORMS.items():
        (tmp_path / f"templates/{name}.tpl").write_text(text + "\n")
        script = tmp_path / f"scripts/{name}.sh"
        script.write_text(SCRIPT)
        script.chmod(0o755)
    (tmp_path / "defaults/net").write_text(SETTINGS)
    (tmp_path / "state/old").write_text("kept=1\n")
    before = contents(tmp_path)
    yield tmp_path
    assert contents(tmp_path) == before


def contents(folder):
    return {path: path.read_bytes() for path in folder.rglob("*")
            if path.is_file() and "tests" not in path.parts}


def run(device, text, status):
    """The command's output for a test file with that text."""
    file = device / "tests/x.test"
    file.write_text(text)
    done = subprocess.run([*COMMAND, "tests/x.test"], capture_output=True,
                          text=True, cwd=device, check=False)
    assert done.returncode == status, done.stdout + done.stderr
    return (done.stdout if status < 2 else done.stderr).splitlines()


OPEN = "open net/eth0"
BAD = f"{OPEN};set mtu 200;press Submit"
NEW = f'{OPEN};set mtu 50;set src2 " a b";press Submit'
TRUE = [  # the steps, and what must hold after them
    (OPEN, "form net", "form net/eth0", "title Net eth0", "text Hello small.",
     "text He...all", "status 200", "field mtu", "value mtu 40", "value mode a",
     "value mode Automatic", "value src2", "ticked off0", "choice mode By hand",
     "rows acl 2", "button Submit", "link The other", "anywhere hush"),
    ("open ../net", "status 403", "errors"),
    ("open;follow Network;press Expert", "form net/eth0", "button Simple"),
    (BAD, "errors", "error mtu", "error mtu Number out ...", "value mtu 200",
     "message 1 errors found", "error mtu ...of range...", "error ...of range...",
     "error ...errors found"),
    (f"{OPEN};set mtu 7;delete acl 0;tick on;redraw", "field extra", "value mtu 7",
     "ticked delete_acl_0", "ticked on", "rows acl 2", "form net/eth0"),
    (f"{OPEN};press Help;tick on;redraw", "field extra", "text Of one packet"),
    (f"{BAD};tick on;redraw;set extra 1;redraw", "error mtu Number out ...",
     "message 1 errors found", "value extra 1"),
    (f"{OPEN};follow The other;tick on;redraw;back", "form net/eth0"),
    (f"{OPEN};set mtu 13;press Submit", 'sent new_mtu="13"', "error mtu Unlucky"),
    (NEW, "form changes_saved", "sent", 'sent new_src2="a b"', "stored net",
     'stored net mtu="50"', "stored env none", 'stored net off0="True"'),
    (f"{OPEN};press Submit", "form no_changes"),
    (f"{OPEN};tick on;untick off0;choose mode By hand;press Help", "field extra",
     "ticked on", "value mode b"),
    (f"{OPEN};delete acl 0;press Submit", "message Table rows ...", "value src0 two",
     "rows acl 1"),
    (f"{NEW};{OPEN}", "value mtu 50", "rows acl 3"),
    (f"{OPEN};set mtu 5;follow The other;back;press Home", "form discard_or_return"),
]
FALSE = [
    (OPEN, "field extra", "ticked on", "errors", "message ...", "error mtu",
     "error src", "button Simple", "text 40", "text hush", "anywhere x9", "sent",
     "value mtu", "stored old"),
    (NEW, 'sent new_extra="x"', "sent new_mtu", "stored net mtu",
     "stored net mtu=40", "link Network"),
    (f"{NEW};reset;{OPEN}", "value mtu 50", "stored net"),
    (BAD, "error mtu of range", "error ...under..."),
    (f"{BAD};set mtu 9;tick on;redraw", "errors", "sent", "value mtu 200"),
    (f"{OPEN};tick on;redraw", "text Of one packet", "errors"),
]


def test_each_expectation_holds_and_its_contrary_does_not(device):
    for table, right, wrong in (TRUE, "expect", "expect no"), (
            FALSE, "expect not", "expect"):
        for word, status in (right, 0), (wrong, 1):
            lines = [line for did, *expected in table for line in (
                f"test {did}", *did.split(";"), *(f"{word} {so}" for so in expected))]
            said = run(device, "\n".join(lines), status)
            assert said[0] == f"1..{len(table)}"
            failed = [line.partition(": ")[2] for line in said if "x.test:" in line]
            assert failed == status * [n for n in lines if n.startswith("expect")]


FAILS = """\
# done at the start of each
open net/eth0

test A name is misspelt
set mtuu 1
expect field mtu
test A field is not drawn
set extra 1
expect field mtu
test Labels and links are named
expect value "Packet size" 40
follow the othr
expect field mtu
test Nothing that is expected came
set mtu 50
press Submit
expect sent new_mtu="60"
expect stored nett
expect form net
press Nothing
"""
REPORT = """\
# tests/x.test:5: set mtuu 1
#   the page has no field "mtuu"; did you mean "mtu"?
# tests/x.test:8: set extra 1
#   the page has no field "extra"; a condition of the template hides it (perhaps \
the view: press Expert)
# tests/x.test:11: expect value "Packet size" 40
#   the page has no field ""Packet"; there is mtu, kind, on, mode, src0, off0, \
delete_acl_0, src1, off1, delete_acl_1, src2, off2
# tests/x.test:17: expect sent new_mtu="60"
#   wanted  new_mtu="60"
#   found   new_mtu="50"
#                    ^
# tests/x.test:18: expect stored nett
#   found   no file of that name; did you mean "net"?
# tests/x.test:19: expect form net
#   wanted  net
#   found   changes_saved/eth0""".splitlines()


def test_a_failure_names_its_line_and_the_value_found(device):
    said = run(device, FAILS, 1)
    assert said[-1] == "# 4 of 4 tests failed"
    told = [line for line in said if line[0] == "#" and "#   page " not in line]
    assert told[:-1] == REPORT


@pytest.mark.parametrize("text, line, told", [
    ("test a\nopne net\nexpect sent", 2, 'unknown command "opne"; did you mean "open"?'),
    ("test a\nexpect no fild a", 2, 'unknown expectation "fild"; did you mean "field"?'),
    ("test a\nopen x\nset", 3, "usage: set NAME [VALUE]"),
    ("test a\ndelete acl one\n", 2, 'ROW is a number, not "one"'),
    ("test a\nopen net", 1, "expects nothing; end it with a line such as "),
    ("test\nexpect form net", 1, "write: test SENTENCE"),
    ("test a\x1b[31m\nopne net\x9b\nexpect sent", 2, "opne net\\xc2\\x9b\n"),
])
def test_a_file_with_a_faulty_line_is_not_run(device, text, line, told):
    said = "\n".join(run(device, text, 2))
    assert f"x.test:{line}: " in said and told in said


REFUSALS = [  # steps that are impossible, and the line to write instead
    ("set mtu 1", 'no page is open; begin with a line "open FORM"'),
    (f"{OPEN};set on 1", "write: tick on"), (f"{OPEN};tick mode", "write: choose mode VALUE"),
    (f"{OPEN};choose mtu 1", "write: set mtu VALUE"),
    (f"{OPEN};set kind 1", "write: expect value kind VALUE"),
    (f"{OPEN};expect value on", "write: expect ticked on"),
    (f"{OPEN};expect ticked mtu", "write: expect value mtu VALUE"),
    (f"{OPEN};choose mode c", 'there is a, Automatic, b, By hand'),
    (f"{OPEN};delete acl 2", "rows 0, 1 can be deleted"),
    (f"{OPEN};delete acls 2", 'did you mean "acl"?'), (f"{OPEN};back", '"follow TEXT" or'),
    ("open;set mtu 1", 'open the form first, with "open FORM"'),
    ("open;redraw;press Submit", 'expect no button Submit'),
    ("open nosuch;redraw", "open FORM"),
    (f"{BAD};expect error mtu of range", "(for a part write ...of range...)"),
    (f"{OPEN};expect stored net", "nothing was stored"),
]


def test_every_refusal_says_what_to_write(device):
    said = run(device, "\n".join(line for did, _ in REFUSALS for line in (
        f"test {did}", *did.split(";"), "expect field mtu")), 1)
    parts = "\n".join(said).split("\nnot ok ")[1:]
    assert len(parts) == len(REFUSALS)
    for (did, told), part in zip(REFUSALS, parts):
        assert told in part, (did, part)
    assert "".join(run(device, "test a\x1b\nexpect text b\x1b", 1)).count("\\x1b") == 2


class Recording:
    """A recording in progress: it sends a browser's requests and shows the file."""

    def __init__(self, device, recorder):
        self.device, self.recorder = device, recorder
        self.base = re.search("http://[0-9.:]+", recorder.stderr.readline())[0]

    def ask(self, query="", fields=None, **headers):
        data = None if fields is None else urllib.parse.urlencode(fields).encode()
        headers = ({"Origin": self.base} if data else {}) | headers
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        url = f"{self.base}/cgi-bin/orv" + f"?{query}" * bool(query)
        request = urllib.request.Request(url, data, headers)
        try:
            with urllib.request.urlopen(request) as answer:
                return Page(answer.status, answer.read())
        except urllib.error.HTTPError as error:
            return Page(error.code, error.read())

    def press(self, page, label, **changes):
        (button,) = [b for b in page.controls_of("submit")
                     if b.value == label] or [None]
        for name, value in changes.items():
            control = page.fields[name]
            control.value, control.is_ticked = value, value == "True"
        return self.ask(fields=page.posted(button))

    def end(self):
        self.recorder.terminate()
        self.recorder.wait(60)
        return (self.device / "tests/new.test").read_text()


@pytest.fixture
def recording(device):
    with subprocess.Popen([*COMMAND, "--record", "tests/new.test"], cwd=device,
                          stderr=subprocess.PIPE, text=True) as recorder:
        yield Recording(device, recorder)
        recorder.terminate()


def test_clicks_are_recorded_and_the_test_passes(device, recording):
    recording.ask()
    form = recording.ask("form=net&subitem=eth0")
    recording.press(form, "Submit", mtu="200")
    recording.press(form, "", on="True", mtu="60")  # the browser draws it again
    again = recording.press(form, "Submit", delete_acl_0="True", on="True", mode="b",
                            mtu="50", src2=" c ")
    recording.press(again, "Submit")
    text = recording.end()
    for line in ("follow Network", "set mtu 200", "expect error mtu Number out of ",
                 "back", "tick on\nredraw", "delete acl 0", "choose mode b",
                 'set src2 " c "', "expect form changes_saved",
                 'expect sent new_mtu="50"'):
        assert f"\n{line}" in text, text
    assert text.count("\nback\n") == 1 and "press \n" not in text
    run(device, text, 0)


def test_requests_from_other_sites_are_not_recorded(recording):
    form = recording.ask("form=net&subitem=eth0")
    fields = dict(form.posted())
    for headers in (dict(Sec_Fetch_Site="cross-site"), dict(Sec_Fetch_Site="same-site"),
                    dict(Origin="null"), dict(Origin="http://evil.example"),
                    dict(Origin="", Referer="http://evil.example/"), dict(Host="evil.example")):
        recording.ask("form=evil", **headers)
        recording.ask(fields=fields | {"action": "Evil"}, **headers)
    recording.ask("form=net&cgi_vars_loaded=True&action=Evil&mtu=5")
    recording.ask("form=evil%0Aopen+evil")
    recording.ask("form=net&subitem=eth0&mtu=evil&form=evil", Sec_Fetch_Mode="cors")
    # Values with line ends, which no text field sends.
    recording.ask("form=net&subitem=eth0&subitem=eth0%0Aopen+evil")
    recording.ask(fields=fields | {"action": "Submit", "src2": "a\ropen evil\r"})
    recording.ask(fields=fields | {
        "action": "Submit", "mtu": "50", "u_secret": "a\r\nopen evil"})
    recording.ask(fields=fields | {"action": "Help\r\nopen evil"})
    lines = recording.end().splitlines()
    assert "Evil" not in "".join(lines) and not [
        line for line in lines if line.startswith("open") and line != "open net/eth0"]
    assert [line for line in lines if "evil" in line] == [
        'set src2 "a open evil "', 'expect sent new_secret="a...open evil"',
        "press Help open evil"], lines


def test_a_recording_that_cannot_start_leaves_no_file(device):
    for port in "1000000", "-1":
        done = subprocess.run([*COMMAND, "--record", "tests/new.test", "--port", port],
                              capture_output=True, text=True, cwd=device, check=False)
        assert done.returncode == 2 and "choose another --port" in done.stderr
        assert not (device / "tests/new.test").exists()


def test_manual_and_help_name_every_line_and_show_a_test_of_the_demo():
    manual = (ROOT / "docs/man/orv-test.1").read_text()
    for name in [*script.ACTIONS, *script.EXPECTATIONS]:
        assert re.search(rf"^\.It .*\bIc {name}\b", manual, re.M), name
    example = (ROOT / "demo/tests/port.test").read_text().split("\n\n")[1]
    assert example in manual and example in main.HELP.replace("\n  ", "\n")
