"""A device of templates and scripts in a folder of its own, and a browser.

`site` writes templates and scripts and sends requests to the real executable;
a `Page` is what came back, and posts its own fields again as a browser would:

    site.template("net", "field host 20", "check word")
    saved = site.open("net").press("Submit", host="gate")
"""

import functools
import os
import pathlib
import re
import signal
import subprocess
import sys
import urllib.parse

import html5lib
import pytest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tools"))
import orv_test.page  # noqa: E402  # pylint: disable=wrong-import-position

ROOT = pathlib.Path(__file__).resolve().parents[2]
ORV = os.environ["ORV"]
SHIM = os.environ.get("ORV_SYSLOG_SHIM", "")
PRELOAD = os.environ.get("ORV_PRELOAD", "LD_PRELOAD")  # an emulator has its own
HTML = "{http://www.w3.org/1999/xhtml}"
SECONDS = 120  # the limit for a test's request, even on a busy machine
LONG = "LARKSPUR_LONG" in os.environ  # run all cases, and measure times
EVERY = 1 if LONG else int(os.environ.get("EVERY", 1))  # run every fourth case, say
# The environment of each request; 99 is the exit status of a sanitizer's report.
ENVIRONMENT = {
    "PATH": os.environ["PATH"], PRELOAD: SHIM, "SCRIPT_NAME": "/cgi-bin/orv",
    "ORV_STORE": os.environ.get("ORV_STORE", ""),
    "ASAN_OPTIONS": "verify_asan_link_order=0:exitcode=99",
    "LSAN_OPTIONS": "exitcode=99", "UBSAN_OPTIONS": "print_stacktrace=1",
}
# In the background or under nohup these are ignored, and every child would inherit that.
signal.signal(signal.SIGHUP, signal.SIG_DFL)
signal.signal(signal.SIGINT, signal.default_int_handler)


def limits():
    """What orv_limits.h sets, by name."""
    text = (ROOT / "src/orv/orv_limits.h").read_text()
    found = {}
    for name, value in re.findall(r"^constexpr int (\w+) = ([^;()]+);", text, re.M):
        for known, number in found.items():
            value = re.sub(rf"\b{known}\b", str(number), value)
        found[name] = sum(int(part) for part in re.findall(r"[+-]?\d+", value.replace(" ", "")))
    return found


LIMITS = limits()


def sleeps(pid):
    """How often a process has stopped running by itself: one that does not wait
    between two looks never does."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M)[1])


# The words of a change, in a log line, a report and on a page.
ADDED, DELETED, CHANGED = "Row added: ", "Row deleted: ", ": changed"


class Page:
    """The answer to one request."""

    def __init__(self, site, run, log):
        self.site, self.exit, self.log, self.raw = site, run.returncode, log, run.stdout
        self.stderr = run.stderr.decode("utf-8", "replace")
        head, _, self.bytes = run.stdout.partition(b"\r\n\r\n")
        self.header_lines = head.decode("latin-1").split("\r\n")
        self.status = self.header_lines[0].removeprefix("Status: ")
        self.body = self.bytes.decode("utf-8", "replace")

    @functools.cached_property
    def tree(self):
        return html5lib.parse(self.bytes, treebuilder="etree")

    def all(self, tag, css_class=None):
        """All elements of that name (and class), in document order."""
        return [e for e in self.tree.iter(HTML + tag)
                if css_class is None or css_class in e.get("class", "").split()]

    def texts(self, tag, css_class=None):
        return ["".join(e.itertext()) for e in self.all(tag, css_class)]

    title = property(lambda self: self.texts("title")[0])
    errors = property(lambda self: self.texts("p", "error"))

    @property
    def comments(self):
        return [c.strip() for c in re.findall("<!--(.*?)-->", self.body, re.S)]

    def inputs(self, kind):
        return [e for e in self.all("input") if e.get("type") == kind]

    def control(self, name):
        """The visible control of that name."""
        (found,) = [e for e in self.all("input") + self.all("select")
                    if e.get("name") == name and e.get("type") != "hidden"]
        return found

    def hidden(self):
        return [(e.get("name"), e.get("value")) for e in self.inputs("hidden")]

    def buttons(self):
        """The labels of the enabled buttons."""
        return [e.get("value") for e in self.inputs("submit")
                if e.get("disabled") is None]

    def fields(self):
        """The fields that the untouched page posts, in document order."""
        return orv_test.page.Page(200, self.bytes).posted()

    def press(self, label, **changes):
        """Posts the page's fields with some changed and a button pressed."""
        assert label in self.buttons()
        return self.site.post(dict(self.fields()) | changes | {"action": label})


class Site:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.templates = self.folder / "data" / "templates"
        self.scripts = self.folder / "data" / "scripts"
        self.templates.mkdir(parents=True)
        self.scripts.mkdir()
        self.env = {}
        self.ends = range(99)  # the exit statuses that pass

    def template(self, name, *lines, title="Test form", header=()):
        """Makes a form with these body lines, and a script that does nothing."""
        text = "\n".join([f"title {title}", *header, "body", *lines, ""])
        (self.templates / f"{name}.tpl").write_text(text)
        if not (self.scripts / f"{name}.sh").exists():
            self.form_script(name)

    def script(self, name, *lines, mode=0o755):
        path = self.scripts / name
        path.write_text("#!/bin/bash\n" + "\n".join(lines) + "\n")
        path.chmod(mode)

    def form_script(self, name, read="", check="", write="", navbar=""):
        """One script for a form: shell text for each of its four tasks.  The input of
        check and write is kept in NAME.check and NAME.write, the arguments in
        `runs`."""
        self.script(
            f"{name}.sh", 'echo "$*" >>runs', "case $1 in",
            f"--read) {read or ':'} ;;",
            f"--check) cat >{name}.check; {check or ':'} ;;",
            f"--write) cat >{name}.write; {write or ':'} ;;",
            f"--navbar) {navbar or ':'} ;;", "esac")

    def given(self, form, task):
        """The input lines of the form's check or write script, or None if it was not
        run."""
        path = self.folder / f"{form}.{task}"
        return path.read_text(errors="replace").splitlines() if path.exists() else None

    def ran(self):
        """The arguments of the forms' scripts since the last call."""
        runs = self.folder / "runs"
        lines = runs.read_text().splitlines() if runs.exists() else []
        runs.unlink(missing_ok=True)
        return lines

    def run(self, env, body=b""):
        """Runs the executable once with that CGI environment."""
        log = self.folder / "syslog"
        log.write_text("")
        env = ENVIRONMENT | {"SYSLOG_FILE": str(log)} | self.env | env
        run = subprocess.run(
            [ORV], cwd=self.folder, input=body, capture_output=True, timeout=SECONDS,
            env={k: v for k, v in env.items() if v is not None}, check=False)
        assert run.returncode in self.ends, run.stderr.decode("utf-8", "replace")
        return Page(self, run, log.read_text("utf-8", "replace").splitlines())

    def get(self, query="", **env):
        return self.run({"REQUEST_METHOD": "GET", "QUERY_STRING": query, **env})

    def open(self, form, subitem=None, **more):
        """Follows a plain link to a form."""
        more |= {} if subitem is None else {"subitem": subitem}
        return self.get(urllib.parse.urlencode({"form": form, **more}))

    def post(self, fields, **env):
        """Posts fields, given as pairs, a dict or encoded bytes."""
        body = (fields if isinstance(fields, bytes)
                else urllib.parse.urlencode(fields).encode())
        return self.run(
            {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": str(len(body)),
             "CONTENT_TYPE": "application/x-www-form-urlencoded", **env}, body)


@pytest.fixture
def site(tmp_path):
    """A new device with a menu and the confirmation forms."""
    device = Site(tmp_path)
    device.template("orvmenu", "fmenu", "choice net Network", title="Menu")
    for form in ("discard_or_return", "no_changes", "changes_saved"):
        device.template(form, f"text This is {form}.", title=form)
    return device
