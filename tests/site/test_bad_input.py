"""Mistakes in templates, scripts and requests get a message, an error page or a
clean refusal: nothing crashes, hangs or is saved."""

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
    # a message may contain a line end, and so does the log's text then
    assert page.log == "".join(f"3 {message}\n" for message in log).splitlines()


FULL = b"title T\nbody\ntext x\n"
FILE = "Cannot find/read file "
BODY = "orv_parse_body: unknown keyword line 4 "
EMPTY = "The form is empty."
TEMPLATES = [
    # form, its template or the function that makes it, the error
    ("f" * 300, None, (FILE + "data/templates/" + "f" * 300)[:249]),
    ("f", os.mkdir, FILE + "data/templates/f.tpl"),
    ("f", os.mkfifo, FILE + "data/templates/f.tpl"),
    ("/dev/zero", None, FILE + "/dev/zero"),
    ("f", b"#\n <b>\n<b>\n", 'orv_parse_header: unknown keyword line 3 "<b>\n"'),
    ("f", b"title T\nbody\n\n# x\n", EMPTY),
    ("f", FULL + bytes(range(256)), BODY + '""'),
    ("f", FULL + MB * b"x", (BODY + '"' + 249 * "x")[:249]),
]


@pytest.mark.parametrize("form, template, message", TEMPLATES)
def test_an_unusable_template_gives_an_error_page(
        site, form, template, message):
    path = site.templates / f"{form}.tpl"
    site.form_script("f")
    if callable(template):
        template(path)
    elif template is not None:
        path.write_bytes(template)
    in_body = message == EMPTY or message.startswith(BODY)
    log = [message] * (message != EMPTY)
    page = site.open(form)
    assert_error_page(page, SERVER_ERROR if in_body else NOT_FOUND, message, log)

    page = site.open(form, cgi_vars_loaded=1, x=1, action="Submit")
    assert page.errors == [message]
    assert site.given("f", "check") is site.given("f", "write") is None


@pytest.mark.parametrize("script, message", [
    ("gone", 'Script "data/scripts/gone" does not exist'),
    ("plain.sh", 'Cannot execute script "data/scripts/plain.sh"'),
    ("killed.sh", "orv_script_wait: script terminated by signal 9"),
])
@pytest.mark.parametrize("task", ["read", "check", "write", "navbar"])
def test_a_script_that_cannot_run_is_reported(site, task, script, message):
    site.script("plain.sh", mode=0o644)
    site.script("killed.sh", "kill -9 $$")
    site.template("f", "field x", header=[f"{task}_script {script} a b"])
    page = site.open("f")
    if task == "read":
        assert_error_page(page, NOT_FOUND, message, [message])
        return
    # a page without its bar is still a page
    assert (page.exit, page.status) == (0, "200 OK")
    assert page.log == (["3 " + message] if task == "navbar" else [])
    assert bool(page.all("nav")) == (task != "navbar" or script == "killed.sh")
    # on Submit it is an error, but a bar's script does not block the save
    assert_error_page(site.get(SUBMIT), NOT_FOUND, message, [message])
    assert (site.given("f", "check") is None) == (task == "check")
    assert (site.given("f", "write") is None) == (task != "navbar")


NOISE = "for i in {1..9999}; do echo c_noise=$i lot of it; done"
OOPS = 'Bad format script output "oops"'
LONG = "Script output too long"


def test_faults_of_a_read_script_are_reported(site):
    site.template("f", "text x")
    for read, message, log in (("exit 3", "The form's read script failed.", []),
                               ("echo error_msg=; exit 3", "The form's read script failed.", []),
                               ("echo 'error_msg=Gone for $$$3 <x>'; exit 3", "Gone for $3 <x>", []),
                               ("echo oops >&2; echo x=1", OOPS, [OOPS]),
                               ("yes x=" + 99 * "x", LONG, [LONG])):
        site.form_script("f", read=read)
        assert_error_page(site.open("f"), NOT_FOUND, message, log)


def test_a_script_that_reads_nothing_or_prints_much_does_not_block_a_save(site):
    site.template("f", "error $E$")
    value = 2 * MB * "y"  # more than a pipe holds
    for check, title in (("exec </dev/null", "Test form"), (NOISE, "changes_saved")):
        site.script("f.sh", f"[[ $1 = --navbar ]] || {{ {check}; cat >$1; }}")
        page = site.post(SUBMIT.replace("x=1", f"x={value}").encode())
        assert (page.title, page.log) == (title, []), check
    assert (site.folder / "--write").read_text().endswith(f'new_x="{value}"\n')
    site.form_script("f", check="echo oops >&2")
    assert_error_page(site.get(SUBMIT), NOT_FOUND, OOPS, [OOPS])


def test_a_crash_becomes_an_error_page_after_the_text_already_written(site):
    site.template("f", "text x")
    crash = re.compile(r"SegV\(11\): addr \S+ locn 0x[0-9a-f]+")
    title = "Configuration System Error SegV"
    site.form_script("f", read="kill -SEGV $PPID")
    page = site.open("f")
    assert_error_page(page, SERVER_ERROR, page.errors[0], [], title)
    assert crash.fullmatch(page.errors[0])

    site.form_script("f", navbar="kill -SEGV $PPID")
    page = site.open("f")
    assert (page.exit, page.status, page.title) == (1, "200 OK", "Test form")
    assert page.body.count("<title>") == 2 and title in page.texts("h1")
    assert crash.fullmatch(page.errors[-1])


REQUESTS = [
    # body, changes of the environment, exit status (0: a page)
    (b"form=f&form=gone", {"CONTENT_LENGTH": "0006"}, 0),
    (b"form=gone", {"REQUEST_METHOD": "post", "QUERY_STRING": "form=f"}, 0),
    (b"&&=&%=%4&u_x=%zz%0&form=f&%00=1&\xff=%ff%fe", {}, 0),
    (b"form=f", {"CONTENT_LENGTH": "7"}, 4),
    (b"form=f" + 100_000 * b"&", {}, 5),
]


def test_a_request_that_cannot_be_decoded_gives_no_page(site):
    site.template("f", "text shown")
    for body, environment, status in REQUESTS:
        page = site.post(body, **environment)
        if status == 0:
            assert (page.exit, page.texts("p"), page.log) == (0, ["shown"], [])
        else:
            assert (page.exit, page.raw, len(page.log)) == (status, b"", 1)
            assert page.stderr == f"cgiInit() failed! error {status}\n"


def test_head_gives_the_header_lines_alone(site):
    for query in "", "form=gone":
        page, head = site.get(query), site.get(query, REQUEST_METHOD="HEAD")
        assert (head.exit, head.raw) == (page.exit, page.raw.partition(page.bytes)[0])


@pytest.mark.parametrize("redirections, seen", [
    # descriptors as the web server left them, whether the page can be seen
    ("<&-", True), (">&-", False), ("2>&-", True), (">&- 2>&-", False),
    (">/dev/full", False), (">&9 2>&9", False),  # 9: a pipe without a reader
])
def test_closed_descriptors_end_neither_page_nor_save(
        site, monkeypatch, redirections, seen):
    site.script("wrapper", "mkfifo p; exec 8<>p 9>p 8>&-; rm p",
                f"exec '{conftest.ORV}' {redirections}")
    monkeypatch.setattr(conftest, "ORV", site.scripts / "wrapper")
    site.template("f", *(f"field x{n}" for n in range(2000)))  # fills many buffers
    site.form_script("f", read="cat; echo x0=1")
    assert site.open("gone").exit == 1
    page = site.open("f")
    assert (page.exit, page.log, "</html>" in page.body) == (0, [], seen)
    page = site.post(SUBMIT.encode())
    assert page.exit == (4 if redirections == "<&-" else 0)  # without its body
    assert site.given("f", "write") == (None if page.exit else ['new_x="1"'])
