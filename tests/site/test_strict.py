"""What the strict policy refuses, and that nothing it accepts forges a script's
input or runs as a command."""

import os
import pathlib
import re
import shutil
import subprocess
import urllib.parse

import conftest
import orv_test.device
import pytest

STORE = pathlib.Path(os.environ["ORV_STORE"])
DEMO = pathlib.Path(__file__).resolve().parents[2] / "demo"
SUBMIT = [("form", "f"), ("cgi_vars_loaded", "1"), ("action", "Submit")]
OWN = {"HTTP_HOST": "gw", "HTTP_ORIGIN": "http://gw"}


@pytest.fixture
def strict(site):
    site.env["ORV_POLICY"] = "strict"
    site.template("f", "field x")
    return site


def assert_refused(page, fault):
    assert (page.exit, page.status, page.stderr) == (1, "403 Forbidden", "")
    assert page.title == "Configuration system error"
    assert page.texts("p", "error") == ["The request was refused."]
    assert page.log == [f"3 Request refused: {fault}"]
    assert page.site.ran() == []


NAME_MAX = conftest.LIMITS["ORV_LINE_MAX"] + 6
CONTROL = "a field name holds a control character"
EQUALS = 'a field name holds "="'
LINE_END = "a field value holds a line end"
FOREIGN = "a page's state came from another site"
HOST = "the host asked is not in ORV_HOSTS"
LINK = {"REQUEST_METHOD": "GET"}
FORM = [("form", "f")]
REQUESTS = [
    # fields, changes to a post without headers, the fault
    (FORM, LINK, None),
    ([*FORM, ("action", "Submit")], {"HTTP_ORIGIN": "null"}, None),
    (SUBMIT, {}, None),
    (SUBMIT, OWN, None),
    (SUBMIT, {"HTTP_SEC_FETCH_SITE": "same-origin"}, None),
    ([("form", "..")], LINK, '"form" is not a form name'),
    ([*SUBMIT, ("continue", "-a")], {}, '"continue" is not a form name'),
    ([*FORM, ("subitem", "a/../b")], {}, '"subitem" is not a sub-item name'),
    ([*SUBMIT, ("o_a\x1fb", "")], {}, CONTROL),
    ([*SUBMIT, ("O_x", "a\r\n\n")], {}, LINE_END),
    ([*SUBMIT, ("scroll_y", "\n")], {}, LINE_END),
    (SUBMIT, LINK, "a page's state was not posted"),
    (SUBMIT, OWN | {"HTTP_HOST": "gate"}, FOREIGN),
    (SUBMIT, OWN | {"HTTP_SEC_FETCH_SITE": "cross-site"}, FOREIGN),
    # a page served by another program on the machine
    (SUBMIT, OWN | {"HTTP_ORIGIN": "http://gw:81", "SERVER_PORT": "80"}, FOREIGN),
    (SUBMIT, OWN | {"HTTP_ORIGIN": "http://gw:81", "SERVER_PORT": "81"}, None),
    # an attacker's name that now resolves to the device
    (FORM, LINK | {"HTTP_HOST": "evil.com:80"}, HOST),
    (SUBMIT, {"HTTP_HOST": "evil.com", "HTTP_ORIGIN": "http://evil.com"}, HOST),
    (FORM, LINK | {"HTTP_HOST": "my.com", "ORV_HOSTS": "evil.org my.com"}, None),
    # links that put their own text and deletions into a page
    ([*FORM, ("error_x", "$N:HTTP_AUTHORIZATION$")], LINK, "a field is a message"),
    ([*SUBMIT, ("error_u_x", "")], OWN, "a field is a message"),
    ([*FORM, ("delete_t_0", "True")], LINK, "a deletion came without a page's state"),
    ([("delete_t_0", "True"), *SUBMIT], OWN, None),
    ([*SUBMIT, ('u_x="1" y', "")], OWN, EQUALS),
    ([*SUBMIT, ("n" * NAME_MAX, "v\r\n" * 32768)], OWN, None),
    ([*SUBMIT, ("n" * (NAME_MAX + 1), "")], OWN, "a field name is too long"),
    ([*SUBMIT, ("x", "v" * 65537)], OWN, "a field value is too long"),
]


def test_a_refusal_is_a_separate_page_before_anything_runs(strict):
    for fields, env, fault in REQUESTS:
        if env.get("REQUEST_METHOD") == "GET":
            env = env | {"QUERY_STRING": urllib.parse.urlencode(fields)}
        page = strict.post(fields, **env)
        if fault is None:
            assert (page.exit, page.log) == (0, []), (fields, env)
        else:
            assert_refused(page, fault)
            page = strict.post(fields, ORV_POLICY="open", **env)
            assert page.status != "403 Forbidden"
        strict.ran()


def test_the_build_decides_and_the_environment_can_only_be_stricter(
        strict, monkeypatch):
    strict.form_script("f", read='echo "x=${HTTP_PROXY-none}"')
    builds = [conftest.ORV, os.environ["ORV_STRICT"]]
    # whether the build is strict, the environment, whether the policy is strict
    table = [(0, None, 0), (0, "strict", 1), (0, "Strict", 0), (0, "", 0),
             (1, None, 1), (1, "open", 1), (1, "", 1)]
    for build, policy, expected in table:
        monkeypatch.setattr(conftest, "ORV", builds[build])
        strict.env = {"ORV_POLICY": policy, "HTTP_PROXY": "evil"}
        assert (strict.open("f", "..").exit == 1) == expected, (build, policy)
        proxy = "none" if expected else "evil"
        assert strict.open("f").control("x").get("value") == proxy


def test_no_form_opens_a_file_outside_the_templates(strict):
    secret = strict.folder / "secret"
    secret.write_text("root:x\n")
    (strict.templates / "own.tpl").symlink_to(secret)
    assert "root:x" in strict.open("own").body  # the author's own link
    leave = {"cgi_vars_loaded": 1, "form": "f"}
    for name in (str(secret), "../secret"):
        for fields in ({"form": name},
                       leave | {"continue": name, "action": "Continue"},
                       leave | {"return": name, "action": "Return to changes"}):
            seen = "root:x" in strict.post(fields, ORV_POLICY="open").body
            assert seen == (name[0] == "/")
            assert "root:x" not in strict.post(fields).body


def test_a_field_makes_one_line_of_script_input_whatever_bytes_it_holds(strict):
    sent = []
    for byte in (bytes([n]) for n in range(1, 256)):
        name, value = b"n%d" % ord(byte), byte
        if byte < b" " or byte in b"=\x7f":
            fault = EQUALS if byte == b"=" else CONTROL
            assert_refused(strict.post([*SUBMIT, (name + byte + b"n", "v")]), fault)
        else:
            name += byte + b"n"
        if byte == b"\n":
            assert_refused(strict.post([*SUBMIT, (name, byte)]), LINE_END)
            value = b"\r\r\n"
        sent.append((name, b'v"' + value + b'"v'))
    assert strict.post([*SUBMIT, *sent]).title == "changes_saved"
    text = b"".join(b'new_%b="%b"\n' % field for field in reversed(sent))
    written = (strict.folder / "f.write").read_bytes()
    assert written == text.replace(b"\r\n", b"\r")


def test_what_a_browser_posts_of_an_untouched_page_is_no_change(strict):
    strict.form_script("f", read=r"printf 'y=a\rb\r\n'")
    fields = strict.open("f").fields()
    assert ("o_y", "a\r\nb\r\n") in fields
    page = strict.post([*fields, ("action", "Submit")], **OWN)
    assert page.title == "no_changes"


HOSTILE = ["a[$(>R)]", "; >R;$(>R)`>R`'; >R; '", '"; >R; "', "*", "../R", "x" * conftest.LIMITS["ORV_LINE_MAX"],
           "\u00e9" * 120, "\x1b[0m\\\udcff", "a\r>R", "a\r\n>R\r\n", "a\n>R"]
KEPT = {"form", "subitem", "cgi_vars_loaded"}
INPUT = re.compile("^(?:field|i?select|checkbox) ([^ ]+)", re.M)
STATE = re.compile(rb'(#orv [0-9. -]+\n(#table[a-z0-9_ *]*\n)?)?(#version \d+\n)?'  # a secret, which no page shows
                   rb'([a-z0-9_]+=[^"$\\`]*\n|\w+_pass(word|phrase)=[^"\n]*\n)*')
REPORT = re.compile(rb'((?=.{0,%d}\n)[a-z][a-z0-9_]*=(".*"|[^"\']*)\n)*' % conftest.LIMITS["ORV_LINE_MAX"])
JUNK = b'new_x=x="1"\nnew_="\nnew_PATH=""\nnew_orv="1"\nnew_%s="1"\nnew_a[$(>R)]="1"\n' % (
    b"a" * 100000)


def files(folder):
    return {p: p.read_bytes() for p in folder.rglob("*") if p.is_file()}


def script(site, form, task, lines=b""):
    """The output of the form's script for lines that no page would pass on."""
    command = [site.scripts / f"{form}.sh", f"--{task}", form, "lan1"]
    if "--write \"$S$" in (site.templates / f"{form}.tpl").read_text():
        del command[2]
    said = subprocess.run(command, cwd=site.folder, input=lines,
                          stdout=subprocess.PIPE, check=False).stdout
    assert not lines or REPORT.fullmatch(said), (form, said)
    return said


def saves(site, form, columns, hostile):
    """Hostile values in all fields of the page; then without the page, in cells after
    a gap, too, and in one field after another.  Yields the page's values before."""
    fields = site.open(form, "lan1").fields()
    yield {value.encode("utf-8", "surrogateescape") for _, value in fields}
    names = {name for name, _ in fields} - KEPT
    for s in hostile:
        page = site.post([(n, s if n in names else v) for n, v in fields] +
                         [("action", "Submit")])
        assert page.exit == (page.status == "403 Forbidden"), page.errors
        yield set()
    own = script(site, form, "read").replace(b"\n", b"\nnew_").removesuffix(b"new_")
    cells = [f"{c}{n}".encode() for c in columns for n in ("", 0, 9)]
    for s in (s.replace(b"\n", b"") for s in hostile):
        lines = JUNK + b"".join(b'new_%s="%s"\n' % (c, s) for c in cells)
        script(site, form, "check", lines)
        script(site, form, "write", lines)
        yield set()
        for c in cells[::conftest.EVERY] if s is hostile[0] else ():
            line = b'new_%s="%s"\n' % (c, s)
            script(site, form, "write", re.sub(b"new_%s=.*\n" % c, b"",
                                               b"new_" + own) + line)
            yield set()


@pytest.mark.parametrize("folder", ["demo", "examples/first", "examples/forms"])
def test_nothing_that_is_posted_runs_or_escapes_its_check(site, monkeypatch, folder):
    monkeypatch.setattr(conftest, "ORV", os.environ["ORV_STRICT"])
    data, ran = site.folder / "data", site.folder / "R"
    for part in (p for p in orv_test.device.PARTS if (DEMO.parent / folder / p).exists()):
        orv_test.device.copy_part(DEMO.parent / folder / part, data / part, STORE)
    for name in ("network", "guard"):  # without changes that go back
        if (file := site.scripts / f"{name}.sh").exists():
            file.write_text(file.read_text().replace("orv_guard", ":"))
    state = data / "state"
    shutil.copytree(data / "defaults", state) if folder != "examples/first" else ...
    hostile = [s.replace("R", str(ran)).encode("utf-8", "surrogateescape")
               for s in HOSTILE]
    known = set(hostile) | {s.replace(b"\n", b"") for s in hostile}
    known.update(*(re.findall(b"=(.*)", text) for text in files(state).values()))
    device = files(data)
    for template in sorted(site.templates.iterdir()):
        columns = INPUT.findall(template.read_text())
        for own in saves(site, template.stem, columns, hostile) if columns else ():
            known |= own
            assert not ran.exists()
            for file, text in files(state).items():
                if file.name.startswith("."):  # the store's own files
                    continue
                assert STATE.fullmatch(text), text
                assert file.name in ("log", "users.keys") or known.issuperset(
                    s for s in re.findall(b"=(.*)", text)
                    if not re.fullmatch(rb"[0-9]*|True|False|\$6\$[./\w$]*", s)), text
    (data / "log").unlink(missing_ok=True)  # the demo logs saves there
    assert {p: t for p, t in files(data).items() if state not in p.parents} == {
        p: t for p, t in device.items() if state not in p.parents}
