"""What is wrong in templates, scripts and requests gets its message, its error
page or a clean refusal: nothing crashes, hangs or is saved by it."""

import os
import re

import conftest
import pytest

NOT_FOUND = "404 Not Found"
SERVER_ERROR = "500 Internal Server Error"
MB = 1_000_000
SUBMIT = "form=f&cgi_vars_loaded=1&x=1&action=Submit"


def assert_error_page(page, status, text, log, title="Configuration system error"):
    assert (page.exit, page.status, page.stderr) == (1, status, "")
    assert page.title == title and page.texts("h1", "error") == [title]
    assert page.texts("p") == page.errors == [text]
    assert page.all("body")[0].get("class") == "error"
    assert not page.all("form") + page.all("nav") + page.all("script")
    assert page.body.rstrip().endswith("</html>")
    # a message may hold a line end, as the log's text then does
    assert page.log == "".join(f"3 {message}\n" for message in log).splitlines()


FULL = b"title T\nbody\ntext x\n"
PARSE = "orv_parse_header: "
BODY = "orv_parse_body: "
EMPTY = "The form is empty."
ALL_BYTES = bytes(range(256))
TEMPLATES = [
    # form, its template, the error (FILE: of one that cannot be opened)
    ("<b>&", None, "FILE"),
    ("f" * 300, None, "FILE"),
    ("f", "a folder", "FILE"),
    ("f", "a pipe", "FILE"),
    ("/dev/zero", None, "Cannot find/read file /dev/zero"),
    ("f", b"", PARSE + "no body keyword found"),
    ("f", b"#\n <b>\n<b>\n", PARSE + 'unknown keyword line 3 "<b>\n"'),
    ("f", ALL_BYTES, PARSE + 'unknown keyword line 1 ""'),
    ("f", b"title " + MB * b"x", PARSE + 'unknown keyword line 2 "' + 249 * "x"),
    ("f", b"title T\nbody\n\n# x\n", EMPTY),
    ("f", FULL + ALL_BYTES, BODY + 'unknown keyword line 4 ""'),
    ("f", FULL + MB * b"x", BODY + 'unknown keyword line 4 "' + 249 * "x"),
]


@pytest.mark.parametrize("form, template, message", TEMPLATES)
def test_a_template_that_cannot_be_used_is_an_error_page(
        site, form, template, message):
    path = site.templates / f"{form}.tpl"
    file = f"Cannot find/read file data/templates/{path.name}"
    message = message.replace("FILE", file)[:249]
    site.form_script("f")
    if template == "a folder":
        path.mkdir()
    elif template == "a pipe":
        os.mkfifo(path)
    elif template is not None:
        path.write_bytes(template)
    log = [] if message == EMPTY else [message]
    in_body = message == EMPTY or message.startswith(BODY)
    page = site.open(form)
    assert_error_page(page, SERVER_ERROR if in_body else NOT_FOUND, message, log)

    # a message of the action is found before the body is looked at; a header
    # without one is parsed, and reported, once more
    page = site.open(form, cgi_vars_loaded=1, x=1, action="Submit")
    log += [] if in_body else log
    assert_error_page(page, NOT_FOUND if log else SERVER_ERROR, message, log)
    assert site.given("f", "check") is site.given("f", "write") is None


FAULTS = {
    "gone": 'Script "data/scripts/gone" does not exist',
    "plain.sh": 'Cannot execute script "data/scripts/plain.sh"',
    "killed.sh": "orv_script_wait: script terminated by signal 9",
}


@pytest.mark.parametrize("script, message", FAULTS.items())
@pytest.mark.parametrize("task", ["read", "check", "write", "navbar"])
def test_a_script_that_cannot_run_is_reported(site, task, script, message):
    site.script("plain.sh", mode=0o644)
    site.script("killed.sh", "kill -9 $$")
    site.template("f", "field x", header=[f"{task}_script {script} a b"])
    site.form_script("f")
    page = site.open("f")
    if task == "read":
        assert_error_page(page, NOT_FOUND, message, [message])
        return
    # a page without its bar is still a page
    assert (page.exit, page.status) == (0, "200 OK")
    assert page.log == (["3 " + message] if task == "navbar" else [])
    bars = 0 if task == "navbar" and script != "killed.sh" else 1
    assert len(page.all("nav", "navbar")) == bars
    # on Submit it is not, though a bar's script does not hold up the save
    assert_error_page(site.get(SUBMIT), NOT_FOUND, message, [message])
    assert (site.given("f", "check") is None) == (task == "check")
    assert (site.given("f", "write") is None) == (task != "navbar")


NOISE = "for i in {1..9999}; do echo c_noise=$i lot of it; done; "
OOPS = 'Bad format script output "oops"'


def test_a_read_script_s_output_is_judged(site):
    site.template("f", "text x")
    # read script, error on the page, reports before it
    table = [
        ("exit 3", "The form's read script failed.", []),
        ("echo oops >&2; echo no", OOPS.replace("oops", "no"), [OOPS]),
        ("printf 'x=1\\noops\\0=\\n'", OOPS, []),
        ("yes x=" + 99 * "x", "Script output too long", []),
        (NOISE, None, []),
        ("head -c 100000 /dev/zero | tr '\\0' '\\n'", None, []),
    ]
    for read, message, before in table:
        site.form_script("f", read=read)
        page = site.open("f")
        if message is None:
            assert (page.exit, page.log) == (0, []), read
        else:
            log = before + [message] * ("failed" not in message)
            assert_error_page(page, NOT_FOUND, message, log)


def test_silent_and_noisy_scripts_do_not_hold_a_save(site):
    # beginning of the check and write scripts, size of a value, page, log
    table = [
        ("exec </dev/null;", 1000, "changes_saved", []),
        ("exec </dev/null;", MB, "Test form", []),  # more than a pipe holds
        (NOISE, MB, "changes_saved", []),
        ("echo oops >&2;", MB, "Configuration system error", 2 * ["3 " + OOPS]),
    ]
    site.template("f", "error $E$")
    written = site.folder / "--write"
    for text, size, title, log in table:
        written.write_text("")
        site.script("f.sh", f"[[ $1 = --navbar ]] || {{ {text} cat >$1; }} 2>&1")
        page = site.post(SUBMIT.replace("x=1", "x=" + size * "y").encode())
        assert (page.title, page.log) == (title, log), text
        saved = f'new_x="{size * "y"}"\n' in written.read_text()
        assert saved == ("/dev/null" not in text), text


def test_a_crash_becomes_an_error_page_behind_what_was_written(site):
    site.template("f", "text x")
    crash = re.compile(r"SegV\(11\): addr \S+ locn 0x[0-9a-f]+")
    title = "Configuration System Error SegV"
    site.form_script("f", read="kill -SEGV $PPID")
    page = site.open("f")
    (text,) = page.errors
    assert crash.fullmatch(text)
    assert_error_page(page, SERVER_ERROR, text, [], title)

    site.form_script("f", navbar="kill -SEGV $PPID")
    page = site.open("f")
    assert (page.exit, page.status, page.title) == (1, "200 OK", "Test form")
    assert page.body.count("<title>") == 2 and title in page.texts("h1")
    assert crash.fullmatch(page.errors[-1])

    # Without the catcher a request acts and then fails.
    site.env["SHIM_NO_SEGV_HANDLER"] = "1"
    site.form_script("f")
    message = "Problem setting the segv catcher."
    assert_error_page(site.get(SUBMIT), NOT_FOUND, message, [])
    assert site.given("f", "write") == ['new_x="1"']


LIMIT = 4 * 1024 * 1024
REQUESTS = [
    # body, what differs in the environment, exit status (0: a page)
    (b"form=f&form=gone", {"CONTENT_LENGTH": "0006"}, 0),
    (b"form=gone", {"REQUEST_METHOD": "post", "QUERY_STRING": "form=f"}, 0),
    (b"form=f&x=" + (LIMIT - 9) * b"y", {}, 0),
    (b"&&=&%=%4&u_x=%zz%0&form=f&%00=1&\xff=%ff%fe", {}, 0),
    (b"form=f", {"CONTENT_TYPE": "multipart/form-data; boundary=x"}, 1),
    (b"form=f", {"CONTENT_LENGTH": None}, 2),
    (b"form=f", {"CONTENT_LENGTH": 30 * "9"}, 3),
    (b"form=f", {"CONTENT_LENGTH": "7"}, 4),
    (b"form=f" + 100_000 * b"&", {}, 5),
]


def test_a_request_that_cannot_be_decoded_gives_no_page(site):
    site.template("f", "text shown")
    for body, environment, status in REQUESTS:
        page = site.post(body, **environment)
        case = (body[:20], environment)
        assert page.exit == status, case
        if status == 0:
            assert (page.texts("p"), page.log) == (["shown"], []), case
        else:
            assert page.raw == b"", case
            assert page.stderr == f"cgiInit() failed! error {status}\n", case
            assert len(page.log) == 1 and page.log[0].startswith("3 "), case


def test_every_byte_comes_back_and_reaches_the_script_unchanged(site):
    site.template("f", "text x $V:x$", "field host")
    site.form_script("f")
    state = {"form": "f", "cgi_vars_loaded": 1}
    ascii_bytes = ALL_BYTES[1:128].decode()
    value = ascii_bytes + 'é€😀\r"\n\r\n"><script>--></p>$V:x$`x`\t '
    page = site.post(state | {"o_x": value})
    for _ in range(3):
        assert dict(page.hidden())["o_x"] == value
        counts = [len(page.all(tag)) for tag in ("script", "form", "p", "main")]
        assert (page.exit, counts) == (0, [3, 1, 1, 1])
        page = site.post(page.fields())
    assert page.press("Submit").title == "no_changes"
    page = site.post(state | {"u_x": ALL_BYTES[1:], "action": "Submit"})
    assert ALL_BYTES[128:] in page.raw
    written = (site.folder / "f.write").read_bytes()
    assert (page.title, written) == ("changes_saved", b'new_x="%b"\n' % ALL_BYTES[1:])


def test_long_names_are_cut_only_where_the_page_carries_them(site):
    for length in (50, 51, 52, 53, 1000):
        name = length * "n"
        site.template("f", f"field {name[:200]}", "text x")
        site.form_script("f")
        query = f"form=f&cgi_vars_loaded=1&o_{name}=a&{name}=b"
        carried = [("o_" + name[:50], "a"), ("u_" + name[:50], "b")]
        assert site.get(query).hidden()[:2] == carried, length
        assert site.get(query + "&action=Submit").exit == 0, length
        assert site.given("f", "write") == [f'new_{name}="b"'], length


def test_head_gives_the_header_lines_alone(site):
    for query, status in (("", 0), ("form=gone", 1)):
        page, head = site.get(query), site.get(query, REQUEST_METHOD="HEAD")
        assert head.raw == page.raw.partition(b"\r\n\r\n")[0] + b"\r\n\r\n"
        assert head.exit == page.exit == status


CLOSED = [
    # what the web server left of the descriptors, whether the page can be seen
    ("<&-", True), (">&-", False), ("2>&-", True), (">&- 2>&-", False),
    (">/dev/full", False), (">&9 2>&9", False),  # 9: a pipe that nobody reads
]


@pytest.mark.parametrize("redirections, seen", CLOSED)
def test_closed_descriptors_end_neither_page_nor_save(
        site, monkeypatch, redirections, seen):
    site.script("wrapper", "mkfifo p; exec 8<>p 9>p 8>&-; rm p",
                f"exec '{conftest.ORV}' {redirections}")
    monkeypatch.setattr(conftest, "ORV", site.scripts / "wrapper")
    site.template("f", *(f"field x{n}" for n in range(2000)))  # many buffers long
    site.form_script("f", read="cat; echo x0=1")
    assert site.open("gone").exit == 1
    page = site.open("f")
    assert (page.exit, page.log, "</html>" in page.body) == (0, [], seen)
    page = site.post(SUBMIT.encode())
    assert page.exit == (4 if redirections == "<&-" else 0)  # its body is gone
    expected = None if page.exit else ['new_x="1"']
    assert site.given("f", "write") == expected
