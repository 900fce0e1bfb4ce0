"""A device of templates and scripts in a folder of its own, and a browser.

`site` writes templates and scripts and sends requests to the real executable;
a `Page` is what came back, and posts its own fields again as a browser would:

    site.template("net", "field host 20", "check word")
    page = site.open("net")
    saved = page.press("Submit", host="gate")
"""

import functools
import os
import pathlib
import subprocess
import urllib.parse

import html5lib
import pytest

ORV = os.environ["ORV"]
SHIM = os.environ.get("ORV_SYSLOG_SHIM", "")
HTML = "{http://www.w3.org/1999/xhtml}"
SECONDS = 30  # no request of a test may take longer


class Page:
    """The answer to one request."""

    def __init__(self, site, run, log, form_url="/cgi-bin/orv"):
        self.site = site
        self.exit = run.returncode
        self.stderr = run.stderr.decode("utf-8", "replace")
        self.log = log
        self.raw = run.stdout
        head, _, body = run.stdout.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        self.header_lines = lines
        self.headers = dict(
            line.split(": ", 1) for line in lines if ": " in line
        )
        self.status = self.headers.get("Status")
        self.body = body.decode("utf-8", "replace")

    # --- looking --------------------------------------------------------------

    @functools.cached_property
    def tree(self):
        body = self.raw.partition(b"\r\n\r\n")[2]
        return html5lib.parse(body, treebuilder="etree")

    def all(self, tag, css_class=None):
        """Every element of that name (and class), in document order."""
        return [
            e
            for e in self.tree.iter(HTML + tag)
            if css_class is None or css_class in e.get("class", "").split()
        ]

    def texts(self, tag, css_class=None):
        return ["".join(e.itertext()) for e in self.all(tag, css_class)]

    @property
    def title(self):
        return self.texts("title")[0]

    @property
    def errors(self):
        """The texts of all error paragraphs."""
        return self.texts("p", "error")

    @property
    def comments(self):
        """The texts of the page's comments."""
        found = []
        rest = self.body
        while "<!--" in rest:
            text, _, rest = rest.partition("<!--")[2].partition("-->")
            found.append(text.strip())
        return found

    def inputs(self, kind=None):
        return [
            e
            for e in self.all("input")
            if kind is None or e.get("type", "text") == kind
        ]

    def control(self, name):
        """The visible control of that name."""
        found = [
            e
            for e in self.all("input") + self.all("select")
            if e.get("name") == name and e.get("type") != "hidden"
        ]
        assert len(found) == 1, f"{len(found)} controls named {name}"
        return found[0]

    def hidden(self):
        """The hidden fields as (name, value), in order."""
        return [(e.get("name"), e.get("value")) for e in self.inputs("hidden")]

    def buttons(self):
        """The labels of the buttons that can be pressed."""
        return [
            e.get("value")
            for e in self.inputs("submit")
            if e.get("disabled") is None
        ]

    def fields(self):
        """What the page posts when nothing was touched, in document order."""
        posted = []
        for e in self.tree.iter():
            name = e.get("name")
            if name is None or e.get("disabled") is not None:
                continue
            if e.tag == HTML + "select":
                options = [o for o in e.iter(HTML + "option")]
                chosen = [o for o in options if o.get("selected") is not None]
                for o in (chosen or options)[:1]:
                    posted.append((name, o.get("value")))
            elif e.tag == HTML + "input":
                kind = e.get("type", "text")
                if kind == "checkbox" and e.get("checked") is None:
                    continue
                if kind != "submit":
                    posted.append((name, e.get("value", "")))
        return posted

    # --- acting ---------------------------------------------------------------

    def press(self, label, _untick=(), **changes):
        """Posts the page's fields with some changed and a button pressed."""
        assert label in self.buttons(), f"no button {label}: {self.buttons()}"
        names = [name for name, _ in self.fields()]
        posted = [
            (name, changes.get(name, value))
            for name, value in self.fields()
            if name not in _untick
        ]
        posted += [(n, v) for n, v in changes.items() if n not in names]
        return self.site.post(posted + [("action", label)])


class Site:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.templates = self.folder / "data" / "templates"
        self.scripts = self.folder / "data" / "scripts"
        self.logfile = self.folder / "syslog"
        self.templates.mkdir(parents=True)
        self.scripts.mkdir()
        self.env = {}

    # --- the device -----------------------------------------------------------

    def template(self, name, *lines, title="Test form", header=()):
        """A form with the body lines given; scripts that it does not name in
        the header are made as ones that do nothing."""
        text = [f"title {title}", *header, "body", *lines]
        (self.templates / f"{name}.tpl").write_bytes(
            b"".join(
                (t if isinstance(t, bytes) else t.encode()) + b"\n"
                for t in text
            )
        )
        script = self.scripts / f"{name}.sh"
        if not script.exists():
            self.script(f"{name}.sh", "cat >/dev/null")

    def script(self, name, *lines, mode=0o755):
        path = self.scripts / name
        path.write_text("#!/bin/bash\n" + "\n".join(lines) + "\n")
        path.chmod(mode)
        return path

    def form_script(self, name, read="", check="", write="", navbar=""):
        """One script for a form: shell text for each of its four tasks.  What
        check and write are given is kept in NAME.check and NAME.write."""
        self.script(
            f"{name}.sh",
            "case $1 in",
            f"--read) {read or ':'} ;;",
            f"--check) cat >{name}.check; {check or ':'} ;;",
            f"--write) cat >{name}.write; {write or ':'} ;;",
            f"--navbar) {navbar or ':'} ;;",
            "esac",
        )

    def given(self, form, task):
        """The lines that the form's check or write script was given, or None
        when it was not run."""
        path = self.folder / f"{form}.{task}"
        return path.read_text().splitlines() if path.exists() else None

    # --- requests -------------------------------------------------------------

    def run(self, env, body=b""):
        """Runs the executable once with that CGI environment."""
        self.logfile.unlink(missing_ok=True)
        environment = {
            "PATH": os.environ["PATH"],
            "GATEWAY_INTERFACE": "CGI/1.1",
            "SCRIPT_NAME": "/cgi-bin/orv",
            "SYSLOG_FILE": str(self.logfile),
            "ASAN_OPTIONS": "verify_asan_link_order=0:exitcode=99",
            "UBSAN_OPTIONS": "print_stacktrace=1",
            "LSAN_OPTIONS": "exitcode=99",
            **self.env,
            **env,
        }
        if SHIM:
            environment["LD_PRELOAD"] = SHIM
        run = subprocess.run(
            [ORV],
            cwd=self.folder,
            env={k: v for k, v in environment.items() if v is not None},
            input=body,
            capture_output=True,
            timeout=SECONDS,
            check=False,
        )
        assert run.returncode != 99, run.stderr.decode("utf-8", "replace")
        assert run.returncode >= 0, f"killed by signal {-run.returncode}"
        log = []
        if self.logfile.exists():
            text = self.logfile.read_text("utf-8", "replace")
            log = text.splitlines()
        return Page(self, run, log)

    def get(self, query="", **env):
        return self.run(
            {"REQUEST_METHOD": "GET", "QUERY_STRING": query, **env}
        )

    def open(self, form, subitem=None, **more):
        """Follows a plain link to a form."""
        pairs = {"form": form, **more}
        if subitem is not None:
            pairs["subitem"] = subitem
        return self.get(urllib.parse.urlencode(pairs))

    def post(self, fields, **env):
        """Posts fields, given as pairs, a dict or encoded bytes."""
        body = fields
        if not isinstance(body, bytes):
            body = urllib.parse.urlencode(fields).encode()
        return self.run(
            {
                "REQUEST_METHOD": "POST",
                "CONTENT_TYPE": "application/x-www-form-urlencoded",
                "CONTENT_LENGTH": str(len(body)),
                **env,
            },
            body,
        )


@pytest.fixture
def site(tmp_path):
    """A fresh device with a menu and the confirmation forms."""
    device = Site(tmp_path)
    device.template("orvmenu", "fmenu", "choice net Network", title="Menu")
    for form in ("discard_or_return", "no_changes", "changes_saved"):
        device.template(form, f"text This is {form}.", title=form)
    return device
