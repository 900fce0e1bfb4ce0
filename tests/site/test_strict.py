"""What the strict policy refuses, and that nothing it lets through forges a
script's input or is run by one."""

import os
import pathlib
import re
import shutil
import urllib.parse

import conftest
import pytest

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


CONTROL = "a field name holds a control character"
EQUALS = 'a field name holds "="'
LINE_END = "a field value holds a line end"
FOREIGN = "a page's state came from another site"
HOST = "the host asked is not in ORV_HOSTS"
LINK = {"REQUEST_METHOD": "GET"}
FORM = [("form", "f")]
REQUESTS = [
    # fields, what differs from a post without headers, the fault
    (FORM, LINK, None),
    ([*FORM, ("action", "Submit")], {"HTTP_ORIGIN": "null"}, None),
    (SUBMIT, {}, None),
    (SUBMIT, OWN, None),
    (SUBMIT, {"HTTP_SEC_FETCH_SITE": "same-origin"}, None),
    ([("form", "..")], LINK, '"form" is no name of a form'),
    ([*SUBMIT, ("continue", "-a")], {}, '"continue" is no name of a form'),
    ([*FORM, ("subitem", "a/../b")], {}, '"subitem" is no name of a sub-item'),
    ([*SUBMIT, ("o_a\x1fb", "")], {}, CONTROL),
    ([*SUBMIT, ("O_x", "a\r\n\n")], {}, LINE_END),
    ([*SUBMIT, ("scroll_y", "\n")], {}, LINE_END),
    (SUBMIT, LINK, "a page's state was not posted"),
    (SUBMIT, OWN | {"HTTP_HOST": "gate"}, FOREIGN),
    (SUBMIT, OWN | {"HTTP_SEC_FETCH_SITE": "cross-site"}, FOREIGN),
    # a page that another program of the machine serves
    (SUBMIT, OWN | {"HTTP_ORIGIN": "http://gw:81", "SERVER_PORT": "80"}, FOREIGN),
    (SUBMIT, OWN | {"HTTP_ORIGIN": "http://gw:81", "SERVER_PORT": "81"}, None),
    # somebody's name that means the device's address by now
    (FORM, LINK | {"HTTP_HOST": "evil.com:80"}, HOST),
    (SUBMIT, {"HTTP_HOST": "evil.com", "HTTP_ORIGIN": "http://evil.com"}, HOST),
    (FORM, LINK | {"HTTP_HOST": "my.com", "ORV_HOSTS": "evil.org my.com"}, None),
    # links that put text and deletions of their own into a page
    ([*FORM, ("error_x", "$N:HTTP_AUTHORIZATION$")], LINK, "a field is a message"),
    ([*SUBMIT, ("error_u_x", "")], OWN, "a field is a message"),
    ([*FORM, ("delete_t_0", "True")], LINK, "a deletion came without a page's state"),
    ([("delete_t_0", "True"), *SUBMIT], OWN, None),
    ([*SUBMIT, ('u_x="1" y', "")], OWN, EQUALS),
    ([*SUBMIT, ("n" * 255, "v\r\n" * 32768)], OWN, None),
    ([*SUBMIT, ("n" * 256, "")], OWN, "a field name is too long"),
    ([*SUBMIT, ("x", "v" * 65537)], OWN, "a field value is too long"),
]


def test_a_refusal_is_a_page_of_its_own_before_anything_runs(strict):
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
    # whether the build is strict, the environment, whether the policy is
    table = [(0, None, 0), (0, "strict", 1), (0, "Strict", 0), (0, "", 0),
             (1, None, 1), (1, "open", 1), (1, "", 1)]
    for build, policy, expected in table:
        monkeypatch.setattr(conftest, "ORV", builds[build])
        strict.env = {"ORV_POLICY": policy, "HTTP_PROXY": "evil"}
        assert (strict.open("f", "..").exit == 1) == expected, (build, policy)
        proxy = "none" if expected else "evil"
        assert strict.open("f").control("x").get("value") == proxy


def test_no_form_opens_what_is_outside_the_templates(strict):
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


FORMS = ["network", "system", "services", "forwards", "firewall", "dhcp", "wireless",
         "port/lan1", "users", "errors", "log", "reboot", "status", "orvmenu"]
HOSTILE = ["a[$(>R)]", "; >R;", "$(>R)", "`>R`", "'; >R; '", '"; >R; "', "*",
           "a\r\n>R\r\n", "a\n>R", "\x1b[0m\\\udcff"]
KEPT = {"form", "subitem", "cgi_vars_loaded"}


def hostile_posts(page, ran):
    """The page's fields with hostile values in all of them, and in one after
    another, so that the scripts run on what no check looks at."""
    fields = page.fields()
    names = {name for name, _ in fields} - KEPT
    posts = [(s, names) for s in HOSTILE]
    posts += [(s, {n}) for s in HOSTILE[:2] for n in sorted(names)]
    for s, changed in posts:
        s = s.replace("R", str(ran)).encode("utf-8", "surrogateescape")
        yield [(n, s if n in changed else v) for n, v in fields]


def test_nothing_that_is_posted_runs_or_escapes_its_check_in_the_demo(
        site, monkeypatch):
    monkeypatch.setattr(conftest, "ORV", os.environ["ORV_STRICT"])
    data, ran = site.folder / "data", site.folder / "ran"
    for part in ("templates", "scripts"):
        shutil.copytree(DEMO / part, data / part, dirs_exist_ok=True)
    state = shutil.copytree(DEMO / "defaults", data / "state")
    for form in FORMS:
        for fields in hostile_posts(site.open(*form.split("/")), ran):
            page = site.post(fields + [("action", "Submit")])
            assert page.exit == (page.status == "403 Forbidden"), page.errors
            assert not ran.exists(), fields
        for text in (file.read_text() for file in state.iterdir()):
            assert re.fullmatch(r'(#orv [0-9. ]+\n)?([a-z0-9_]+=[^"$\\`]*\n)*',
                                text, re.A), text
