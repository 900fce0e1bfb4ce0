"""TAB at a real terminal: the words that orvctl's completion offers, and that it
never runs text from a device's scripts."""

import os
import pathlib
import pty
import re
import select
import subprocess
import time

import pytest

from conftest import SECONDS
from test_orvctl import ORVCTL

COMPLETION = pathlib.Path(__file__).resolve().parents[2] / "packaging/orvctl.bash-completion"
HOSTILE = ["$(>owned)", "`>owned`", "sa$(>owned)", "*", "sa;>owned", "sa'ne",
           "sa<(>owned)", "a[$(>owned)]", "sa\x1b]0;x\x07", "~", "säne"]


class Terminal:
    """An interactive bash behind a pseudo-terminal."""

    def __init__(self, folder):
        ours, theirs = pty.openpty()
        env = {"PATH": f"{pathlib.Path(ORVCTL).parent}:{os.environ['PATH']}", "HISTFILE": "",
               "TERM": "dumb", "INPUTRC": "/dev/null", "HOME": str(folder)}
        self.bash = subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], cwd=folder, env=env,
                                     stdin=theirs, stdout=theirs, stderr=theirs,
                                     start_new_session=True)
        os.close(theirs)
        self.fd, self.seen = ours, b""
        self.keys(f"PS1='>'; bind 'set enable-bracketed-paste off'; . {COMPLETION}; echo rea''dy\n")
        self.wait(b"ready")

    def keys(self, text):
        os.write(self.fd, text.encode())

    def wait(self, pattern):
        """Waits until the terminal shows a match, and returns it."""
        end = time.monotonic() + SECONDS
        while True:
            found = re.search(pattern, self.seen, re.S)
            if found:
                self.seen = self.seen[found.end():]
                return found
            assert select.select([self.fd], [], [], end - time.monotonic())[0], self.seen
            self.seen += os.read(self.fd, 65536)

    def complete(self, typed):
        """The command line after TAB.  Home makes it an argument, which bash expands:
        words offered without quotes would run."""
        self.keys(f"{typed}\t\x01printf '{{%s}}' \x05 END\n")
        shown = self.wait(rb"\r\n(\{[^\r]*\{END\})").group(1).decode()
        return re.findall("{(.*?)}", shown)[:-1]

    def close(self):
        self.bash.kill()
        self.bash.wait()
        os.close(self.fd)


@pytest.fixture
def terminal(site):
    opened = Terminal(site.folder)
    yield opened
    opened.close()


def hostile_device(site):
    """Every name and value from a script, except one, is a trap."""
    names = [*HOSTILE, "sane-1"]
    quoted = [n.replace("'", "'\\''") for n in names]
    choices = [f"choice {n} X" for n in names]
    site.template("f", "iselect s", "checkbox box", "field host", "field when", "if $V:host$",
                  "field behind", "endif", "imenu more more", "table tab 2 3", "field tcol",
                  "select tsel", *choices, "if $X$", "field rare", "table xtab 1", "field xcol", "endif",
                  header=["expert_mode"])
    site.form_script("f", read="\n".join(
        f"printf '%s\\n' 'select_{item}{i}=\"{n} text\"'" for item in ("s", "more")
        for i, n in enumerate(quoted)) + "\nprintf '%s=x\\n' tcol0 tcol1 xcol0")
    site.template("orvmenu", "fmenu", *choices, "choice f Form")


def test_tab_runs_nothing_and_offers_only_plain_words(site, terminal):
    hostile_device(site)
    for name in ("sane-file", "sa$(>owned)", "sane`>owned`", "sane;>owned"):
        (site.folder / name).touch()
    for typed, made in (
            ("get sa", "get sane-1"), ("get more/sa", "get more/sane-1"), ("dump more/sa", "dump more/sane-1"),
            ("set f s=", "set f s=sane-1"), ("set f s=sa", "set f s=sane-1"),
            ("set f box=T", "set f box=True"), ("set f ho", "set f host="),
            ("set f host= whe", "set f host= when="),
            ("set f beh", "set f beh"), ("set f host=x beh", "set f host=x behind="),
            ("--json --dry-run set f s=sa", "--json --dry-run set f s=sane-1"),
            ("get f ra", "get f rare"), ("set f ra", "set f rare="), ("rows f xt", "rows f xtab"),
            ("rows f xtab delete ", "rows f xtab delete 1"), ("rows f xtab change ", "rows f xtab change 1"),
            ("rows f xtab change 1 x", "rows f xtab change 1 xcol="),
            ("rows f ta", "rows f tab"), ("rows f tab ch", "rows f tab change"),
            ("rows f tab add tc", "rows f tab add tcol="),
            ("rows f tab add tcol=x tsel=sa", "rows f tab add tcol=x tsel=sane-1"),
            ("rows f tab change 2 tsel=", "rows f tab change 2 tsel=sane-1"),
            ("rows f tab change 3 tsel=", "rows f tab change 3 tsel="),
            ("get f tsel1", "get f tsel1"), ("--js", "--json"),
            ("apply sa", "apply sane-file"), ("--json apply sane-f", "--json apply sane-file"),
            ("set nosuch s=sa", "set nosuch s=sa"), ("ap", "apply")):
        shown = terminal.complete(f"orvctl {typed}")
        assert shown == ["orvctl", *made.split()], (typed, shown)
        assert not (site.folder / "owned").exists(), typed
    # All words, as TAB TAB lists them; also when `=` does not separate words.
    terminal.keys("orvctl set f s=sa\t\t\x15COMP_WORDBREAKS=${COMP_WORDBREAKS//=}\n")
    assert terminal.complete("orvctl set f s=")[-1] == "s=sane-1"
    assert not (site.folder / "owned").exists()
