"""One table of requests for each web server, with the configuration that we ship.

The servers run side by side from the start, so that tests of a time limit wait
at the same time.
"""

import concurrent.futures
import gzip
import os
import re
import signal
import socket
import ssl
import subprocess
import time
import urllib.parse

import pytest
from conftest import SECONDS
from orv_test.page import Page
from served import HOSTS, PASSWORD, PICTURES, PROGRAMS, URL, USER, Server

NAMES = os.environ.get("SERVERS", "").split() or list(PROGRAMS)
CLIENTS, TIMES = 8, 25
SHARED = "abcdefgh"  # a field for each client
CSS = "/css/orv.css"
FORM = "application/x-www-form-urlencoded"
# What the environment of a form's script must and must not contain.
SEEN = ("ORV_POLICY", "ORV_HOSTS", "ORV_LANG", "HTTP_PROXY", "HTTP_AUTHORIZATION",
        "REMOTE_USER", "REMOTE_ADDR", "SCRIPT_NAME", "REQUEST_METHOD", "PATH_INFO")


def make_forms(site):
    for form in ("discard_or_return", "no_changes", "changes_saved"):
        site.template(form, f"text This is {form}.", title=form)
    site.template("orvmenu", "fmenu", "choice note Note", title="Menu")
    for form in ("shared", "note", "half", "after", *(f"c{i}" for i in range(CLIENTS))):
        site.template(form, "error $E$", "field text", title="Note")
        (site.scripts / f"{form}.sh").unlink()
        (site.scripts / f"{form}.sh").symlink_to("orv-store")
    site.template("shared", "error $E$", *(f"field {name}" for name in SHARED), title="Shared")
    site.template("look", *[f"field {name.lower()}" for name in SEEN], title="Look")
    site.form_script("look", "\n".join(f'echo "{n.lower()}=${n}"' for n in SEEN))
    site.template("stuck", "field text", title="Stuck")
    site.form_script("stuck", 'echo $$ >"$ORV_STATE/stuck"; exec sleep 600')
    site.template("slow", "field text", title="Slow")
    site.form_script("slow", write="""cat >"$ORV_STATE/new"; : >"$ORV_STATE/begun"
        for i in {1..1200}; do [[ -e $ORV_STATE/go ]] && break; sleep 0.05; done
        mv "$ORV_STATE/new" "$ORV_STATE/done" """)
    # The script's input does not matter here, and the folder belongs to root.
    for script in site.scripts.glob("*.sh"):
        if not script.is_symlink():
            script.write_text(re.sub(r"cat >\S+\.(check|write);|echo \"\$\*\" >>runs",
                                     "", script.read_text()))


def set_password(server):
    server.etc.mkdir(parents=True)
    stored = subprocess.run(["openssl", "passwd", "-6", "-stdin"], input=PASSWORD,
                            capture_output=True, text=True, check=True).stdout
    login = server.etc / "login"
    login.write_text(f"{USER}:{stored}second:{stored}")
    login.chmod(0o640)
    if os.getuid() == 0:
        subprocess.run(["chgrp", "www-data", login], check=True)


@pytest.fixture(scope="module", name="servers")
def all_servers():
    """All servers by name, each with its own device."""
    made = {}
    try:
        for name in NAMES:
            made[name] = server = Server(name)
            make_forms(server.site)
            set_password(server)
            server.start()
            server.slow = SlowClients(server)
        yield made
    finally:
        for server in made.values():
            server.close()


@pytest.fixture(params=NAMES)
def server(request, servers):
    return servers[request.param]


def fields_of(answer):
    """The fields that the untouched page posts."""
    return dict(Page(answer.status, answer.body).posted())


def press(server, answer, label, **changes):
    body = urllib.parse.urlencode(fields_of(answer) | changes | {"action": label})
    return server.ask(method="POST", body=body.encode(), Origin=server.origin())


def title(answer):
    return "".join(re.findall("<title>(.*?)</title>", answer.text)[:1])


def wait_for(what, seconds=SECONDS):
    until = time.monotonic() + seconds
    while not (found := what()) and time.monotonic() < until:
        time.sleep(0.05)
    return found


# --- slow clients -----------------------------------------------------------------

class SlowClients:
    """Connections that are opened at the start and then stay silent, or send a
    little from time to time."""

    def __init__(self, server):
        head = b"GET / HTTP/1.1\r\nHost: x\r\n"
        post = (f"POST {URL} HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: {FORM}\r\n"
                f"Authorization: Basic {server.basic()}\r\n"
                "Content-Length: 1000\r\n\r\nform=note&").encode()
        self.silent = [server.connect() for _ in range(2)]
        self.slow = [server.connect() for _ in range(2)]
        self.silent += [server.connect(), server.connect()]
        for to, text in zip(self.silent + self.slow, [b"", b"", head, post, head, head]):
            to.sendall(text)
            to.setblocking(False)

    @staticmethod
    def is_open(to, text):
        """Sends a little more; whether the server still listens."""
        try:
            to.send(text)
            while to.recv(4096):
                pass
        except (BlockingIOError, ssl.SSLWantReadError):
            return True
        except OSError:
            pass
        return False

    @staticmethod
    def leave(connections):
        for to in connections:
            to.close()
        connections.clear()

    def are_gone(self):
        self.silent = [to for to in self.silent if self.is_open(to, b"")]
        self.slow = [to for to in self.slow if self.is_open(to, b"X: y\r\n")]
        return not self.silent and not self.slow


# --- the table --------------------------------------------------------------------
# The reason, the request, and the answer: a status (or several), and a text of
# the page or a header.

def rows(server):
    other = {"Origin": "https://elsewhere.example", "method": "POST"}
    saved = b"form=note&cgi_vars_loaded=True&action=Submit&text=a&o_text=b"
    post = {"method": "POST", "body": saved}
    big = urllib.parse.urlencode(
        [(f"o_v{i}", "x" * 1000) for i in range(3000)]
        + [("form", "note"), ("cgi_vars_loaded", "True")]).encode()
    own = server.origin()
    return [
        ("a page", {}, 200, "<title>Menu"),
        ("another login", {"login": ("second", PASSWORD)}, 200, "<title>Menu"),
        ("no login", {"login": None}, 401, "Please log in"),
        ("a wrong password", {"login": (USER, "wrong")}, 401, "Please log in"),
        ("a part of it", {"login": (USER, PASSWORD[:-1])}, 401, "Please log in"),
        ("no password", {"login": (USER, "")}, 401, "Please log in"),
        ("nobody", {"login": ("", "")}, 401, "Please log in"),
        ("an unknown name", {"login": ("root", PASSWORD)}, 401, "Please log in"),
        ("a login that is none", {"login": None, "Authorization": "Basic ="}, (400, 401), ""),
        ("a post without login", {"login": None, **post}, 401, "Please log in"),
        ("a form that is not there", {"path": URL + "?form=nosuch"}, 404, "Cannot find"),
        ("a form's name that is none", {"path": URL + "?form=../x"}, 403, "was refused"),
        ("3 MB", {"method": "POST", "body": big}, 200, 'name="o_v2999"'),
        ("5 MiB", {"method": "POST", "body": b"x=" + b"y" * (5 << 20)}, 413, "Too large"),
        ("too much, it says", {"method": "POST", "body": b"x", "Content_Length": "99999999999"},
         (400, 413), "Not "if server.name == "busybox" else "Too large"),
        ("no form", {**post, "Content_Type": "text/plain"}, (500, 502), "Something went wrong"),
        ("a head", {"method": "HEAD"}, 200, ""),
        ("another method", {"method": "DELETE"}, (403, 405), ""),
        ("a trace", {"method": "TRACE"}, (403, 405), ""),
        ("a method in small letters", {**post, "method": "post"},
         200 if server.name == "busybox" else (400, 405, 501), ""),
        ("a long address", {"path": f"{URL}?x={'y' * 9000}"}, (400, 404, 414, 431), ""),
        ("a long header", {"X": "y" * 9000}, 200 if server.name == "busybox" else (400, 431), ""),
        # Another site's page, as browsers describe it.
        ("a post of this site", {**post, "Origin": own}, 200, "changes_saved"),
        ("that says nothing", post, 200, ""),
        ("to a host without a port", {**post, "Origin": own, "host": "127.0.0.1"},
         403 if server.name == "busybox" else 200, ""),
        ("of another site", {**post, **other}, 403, "was refused"),
        ("of none", {**post, "Origin": "null"}, 403, "was refused"),
        ("that says so", {**post, "Origin": own, "Sec_Fetch_Site": "cross-site"}, 403, "refused"),
        ("of another port", {**post, "Origin": "https://127.0.0.1:1"}, 403, "was refused"),
        ("a link", {"path": URL + "?" + saved.decode()}, 403, "was refused"),
        ("a name that others have", {"host": "elsewhere.example"}, 403, "was refused"),
        ("a name of the device's", {"host": HOSTS}, 200, "<title>Menu"),
        ("a name without a dot", {"host": "gateway"}, 200, "<title>Menu"),
        # Static files.
        ("a style sheet", {"path": CSS, "login": None}, 200, "font:"),
        ("a logo", {"path": "/css/logo.svg", "login": None}, 200, "<svg"),
        ("a script", {"path": "/js/position.js"}, 200, "let "),
        ("a script without login", {"path": "/js/position.js", "login": None}, 401, ""),
        ("a file that is not there", {"path": "/css/nosuch.css"}, 404, "Not found"),
        ("what came with the server", {"path": "/index.html"},
         200 if server.name == "busybox" else 404, "Configuration" * (server.name == "busybox")),
        ("a folder", {"path": "/css/"}, (403, 404), ""),
        ("another", {"path": "/cgi-bin/"}, (403, 404), ""),
        ("something behind a file", {"path": CSS + "/x"}, 404, "Not found"),
        ("what starts programs", {"path": "/cgi-bin/limited"}, 404, "Not found"),
        ("a template", {"path": "/templates/note.tpl"}, 404, "Not found"),
        ("a key", {"path": "/../etc/larkspur/tls.pem"}, (400, 404), ""),
        ("an error's page", {"path": "/errors/404.html", "login": None},
         (401, 403, 404), ""),
        # No path may follow the program's name.
        ("something behind the program", {"path": URL + "/x"}, 404, "Not found"),
        ("a slash behind it", {"path": URL + "/"}, 404, "Not found"),
        ("an encoded one", {"path": URL + "%2fx"}, (400, 404), "Not "),
        ("a NUL", {"path": URL + "%00"}, (400, 404), ""),
        ("a NUL in a file's name", {"path": CSS + "%00.js"}, (400, 404), ""),
        ("capital letters", {"path": "/CGI-BIN/ORV"}, 404, "Not found"),
    ]


def test_each_row_of_the_table_is_answered(server):
    bad = []
    for why, ask, status, text in rows(server):
        answer = server.ask(**ask)
        statuses = status if isinstance(status, tuple) else (status,)
        if answer.status not in statuses or text not in answer.text:
            bad.append((why, answer.status, title(answer), answer.text[:80]))
        if answer["Content-Encoding"] or (ask.get("method") == "HEAD" and answer.body):
            bad.append((why, "has a body that it should not have"))
        elif answer.status >= 400 and ('class="error"' not in answer.text or
                                       answer.text.count("<!DOCTYPE") != 1):
            bad.append((why, answer.status, "is no page of the device", answer.text[:80]))
        if re.search(r"\d", answer["Server"]):
            bad.append((why, "tells the server's version", answer["Server"]))
    assert not bad


@pytest.mark.parametrize("server", [n for n in NAMES if n == "nginx"], indirect=True)
def test_passwords_are_guessed_slowly(server):
    """Twenty per second for all clients; a busy machine takes longer anyway."""
    guess = (f"GET {URL} HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Basic "
             f"{server.basic((USER, 'wrong'))}\r\n")
    began = time.monotonic()
    with server.connect() as to:
        to.sendall((30 * f"{guess}\r\n" + f"{guess}Connection: close\r\n\r\n").encode())
        said = b"".join(iter(lambda: to.recv(1 << 16), b""))
    assert said.count(b"HTTP/1.1 401") == 31
    assert time.monotonic() - began > 1


# --- other spellings of addresses -------------------------------------------------

TRICKS = (
    "//cgi-bin/orv", "/cgi-bin//orv", "///cgi-bin/orv", "/./cgi-bin/orv", "/CGI-BIN/orv",
    "/cgi-bin/../cgi-bin/orv", "/css/../cgi-bin/orv", "/css/%2e%2e/cgi-bin/orv",
    "/css/..%2fcgi-bin/orv", "/css%2f..%2fcgi-bin/orv", "/css/..%5ccgi-bin%5corv",
    "/%63gi-bin/orv", "/cgi-bin/%6frv", "/cgi-bin/orv/", "/cgi-bin/orv/css/x",
    "/cgi-bin/orv%2f..%2fcss", "/cgi-bin/orv;/css/x", "/cgi-bin/orv%3f/css/x",
    "/cgi-bin/orv%23", "/cgi-bin/orv/../orv", "/css/x/../../cgi-bin/orv",
    "/css/%2e%2e/js/position.js", "//js/position.js",
    "/css/..%2fjs/position.js", "/JS/position.js", "/css\\..\\js\\position.js",
    "/css/../../../../../../../../../etc/passwd", "/css/%2e%2e/%2e%2e/%2e%2e/etc/passwd",
    "/css/..%2f..%2f..%2f..%2f..%2f..%2fetc/passwd", "/css/%252e%252e/js/position.js",
    "/css/../servers/start", "/css/../../templates/note.tpl", "/httpd.conf",
    "/css/orv.css/../../js/position.js", "/errors/../js/position.js",
    "http://127.0.0.1/cgi-bin/orv", "*", "/cgi-bin/orv%ff",
    "/cgi-bin/orv%0d%0aX:%20y")


def test_no_spelling_of_an_address_bypasses_the_login(server):
    bad = []
    for path in TRICKS:
        for login in (None, (USER, PASSWORD)):
            answer = server.ask(urllib.parse.quote(path, "/%;:*?"), login=login)
            actions = re.findall('<form action="(.*?)"', answer.text)
            good = (answer.status in (400, 401, 403, 404) if login is None or not actions
                    else actions == [URL])
            if login and "function" in answer.text:
                good = True  # the script itself, under another name
            if not good or re.search("root:|#!/bin|Index of|choice note", answer.text):
                bad.append((path, login, answer.status, answer.text[:80]))
    assert not bad


# --- the program's environment ----------------------------------------------------

def test_the_program_s_environment_comes_from_the_device_and_not_from_headers(server):
    answer = server.ask(URL + "?form=look", Proxy="http://elsewhere.example",
                        ORV_POLICY="open", Orv_Hosts="elsewhere.example")
    seen = {name: fields_of(answer).get(name.lower(), "") for name in SEEN}
    assert seen == {
        "ORV_POLICY": "strict", "ORV_HOSTS": f"{HOSTS} other.example", "ORV_LANG": "nl",
        "HTTP_PROXY": "", "HTTP_AUTHORIZATION": "", "REMOTE_USER": USER, "PATH_INFO": "",
        "REMOTE_ADDR": "127.0.0.1", "SCRIPT_NAME": URL, "REQUEST_METHOD": "GET"}


# --- static files -----------------------------------------------------------------

STATIC_HEADERS = {
    "X-Content-Type-Options": "nosniff", "X-Frame-Options": "SAMEORIGIN",
    "Referrer-Policy": "same-origin", "Cross-Origin-Resource-Policy": "same-origin"}


def test_a_static_file_is_cached_revalidated_and_compressed(server):
    plain = server.ask(CSS, login=None)
    assert plain["ETag"] and plain["Content-Type"].startswith("text/css")
    for encoding in ("", "gzip"):
        first = server.ask(CSS, login=None, Accept_Encoding=encoding)
        again = server.ask(CSS, login=None, Accept_Encoding=encoding,
                           If_None_Match=first["ETag"])
        assert (again.status, again.body) == (304, b"")
        assert first["Content-Encoding"] == encoding
        body = gzip.decompress(first.body) if encoding else first.body
        assert body == plain.body
    assert server.ask("/js/position.js", Accept_Encoding="gzip")["Content-Encoding"] == "gzip"
    other = server.ask(CSS, login=None, If_None_Match='"other"')
    assert (other.status, other.body) == (200, plain.body)
    # Pages never: they show values entered next to secrets.
    assert server.ask(Accept_Encoding="gzip, deflate, br")["Content-Encoding"] == ""
    for name, kind in PICTURES.items():
        assert server.ask(f"/css/{name}", login=None)["Content-Type"] == kind
    if server.name != "busybox":  # it sets no headers
        for path, login in ((CSS, None), ("/js/position.js", (USER, PASSWORD)),
                            ("/nosuch", (USER, PASSWORD))):
            answer = server.ask(path, login=login)
            assert (answer["Cache-Control"] == "max-age=3600") == (answer.status == 200)
            assert {name: answer[name] for name in STATIC_HEADERS} == STATIC_HEADERS, path
            assert "default-src 'none'" in answer["Content-Security-Policy"]
    page = server.ask()
    assert len(page.headers.get_all("Content-Security-Policy")) == 1
    assert page["Cache-Control"] == "private, no-cache"


@pytest.mark.filterwarnings("ignore:ssl.TLSVersion")
def test_clients_without_tls_are_redirected_to_it(server):
    if not server.tls:
        assert "url=/cgi-bin/orv" in server.ask("/", login=None).text
        return
    answer = server.ask(f"{URL}?form=note", plain=True)
    assert answer.status == 302 and "Menu" not in answer.text
    assert answer["Location"] == f"{server.origin()}{URL}?form=note"
    assert server.ask("/")["Location"].removeprefix(server.origin()) == URL
    old = ssl.create_default_context(cafile=server.etc / "tls.pem")
    old.check_hostname = False
    old.maximum_version = ssl.TLSVersion.TLSv1_1
    old.set_ciphers("DEFAULT@SECLEVEL=0")
    with pytest.raises(OSError):
        old.wrap_socket(socket.create_connection(("127.0.0.1", server.port), SECONDS))


# --- saving -----------------------------------------------------------------------

def save(server, form, text):
    """A user's round trip; returns the value that the form shows afterwards."""
    path = f"{URL}?form={form}"
    saved = press(server, server.ask(path), "Submit", text=text)
    assert title(saved) == "changes_saved", (saved.status, saved.text)
    return fields_of(server.ask(path))["text"]


def stored(server, form):
    return (server.state / form).read_text().split("text=")[1].strip()


def save_shared(server, name, text):
    """Tries again when the page says that somebody else has saved meanwhile."""
    for _ in range(100):
        page = server.ask(f"{URL}?form=shared")
        saved = press(server, page, "Submit", **{name: text})
        if title(saved) == "changes_saved":
            return
        assert "older than the last save" in saved.text, saved.text
    raise AssertionError(f"{name} was never saved")


def test_saves_of_one_form_at_once_never_undo_each_other(server):
    def client(name):
        for i in range(2):
            save_shared(server, name, f"{name}.{i}")

    with concurrent.futures.ThreadPoolExecutor(CLIENTS) as pool:
        list(pool.map(client, SHARED))
    shown = fields_of(server.ask(f"{URL}?form=shared"))
    assert [shown[name] for name in SHARED] == [f"{name}.1" for name in SHARED]


def test_two_hundred_requests_by_eight_clients_at_once_lose_nothing(server):
    """Each client saves its own form; the store admits one at a time."""
    def client(number):
        shown = []
        for i in range(TIMES // 3 - 1):
            shown.append(save(server, f"c{number}", f"{number}.{i}"))
        shown += [title(server.ask()) for _ in range(TIMES - 3 * len(shown))]
        return shown

    with concurrent.futures.ThreadPoolExecutor(CLIENTS) as pool:
        shown = list(pool.map(client, range(CLIENTS)))
    saves = TIMES // 3 - 1
    for number, texts in enumerate(shown):
        assert texts == ([f"{number}.{i}" for i in range(saves)]
                         + ["Menu"] * (TIMES - 3 * saves))
        assert stored(server, f"c{number}") == f"{number}.{saves - 1}"
    left = {p.name for p in server.state.iterdir() if p.name.startswith((".stage", ".commit"))}
    assert not left and oct(server.state.stat().st_mode & 0o777) == "0o700"


def broken_requests(server):
    save = b"form=note&cgi_vars_loaded=True&action=Submit&text=broken&o_text="
    head = (f"POST {URL} HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
            f"Authorization: Basic {server.basic()}\r\nContent-Type: {FORM}\r\n").encode()
    length = b"Content-Length: %d\r\n" % len(save)
    broken = [
        b"\0" * 100 + b"\r\n\r\n", b"GET\r\n\r\n",
        head + b"Content-Length: -1\r\n\r\n" + save,
        head + b"Content-Length: 1x\r\n\r\n" + save,
        head.replace(b"/orv", b"/orv?" + b"x" * (1 << 17)) + length + b"\r\n" + save]
    if server.name == "busybox":
        return broken  # it cuts a long header, and uses the last of two lengths
    return broken + [head + b"Content-Length: 3\r\n" + length + b"\r\n" + save,
                     head + length + b"X: " + b"x" * (1 << 17) + b"\r\n\r\n" + save]


def test_a_broken_request_is_refused_and_saves_nothing(server):
    save(server, "note", "whole")
    for request in broken_requests(server):
        with server.connect() as to:
            try:
                to.sendall(request)
                answer = to.recv(1 << 16)
            except OSError:
                answer = b""
        assert not re.match(rb"HTTP/\S+ [23]", answer), (request[:300], answer[:300])
    if server.tls:  # a client without TLS gets an error or is disconnected
        with socket.create_connection(("127.0.0.1", server.port), SECONDS) as to:
            to.sendall(b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            assert not re.match(rb"HTTP/\S+ 2", to.recv(4096))
    assert stored(server, "note") == "whole"


def test_half_a_request_saves_nothing(server):
    save(server, "half", "whole")
    fields = fields_of(server.ask(f"{URL}?form=half"))
    body = urllib.parse.urlencode(fields | {"text": "half", "action": "Submit"})
    for sent in (body, body[:-1], body[:len(body) // 2], ""):
        to = server.connect()
        to.sendall((f"POST {URL} HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                    f"Authorization: Basic {server.basic()}\r\nContent-Type: {FORM}\r\n"
                    f"Content-Length: {len(body) + 1}\r\n\r\n{sent}").encode())
        to.close()
    assert save(server, "after", "it") == "it"
    assert stored(server, "half") == "whole"


def test_a_save_is_finished_when_its_client_has_gone(server):
    fields = fields_of(server.ask(f"{URL}?form=slow"))
    body = urllib.parse.urlencode(fields | {"text": "new", "action": "Submit"})
    to = server.connect()
    to.sendall((f"POST {URL} HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                f"Authorization: Basic {server.basic()}\r\nContent-Type: {FORM}\r\n"
                f"Content-Length: {len(body)}\r\n\r\n{body}").encode())
    assert wait_for((server.state / "begun").exists)
    to.close()
    assert title(server.ask()) == "Menu"
    (server.state / "go").touch()
    assert wait_for((server.state / "done").exists)
    assert 'new_text="new"' in (server.state / "done").read_text()


# --- failures -----------------------------------------------------------------------

def test_slow_clients_are_closed_and_hold_nobody_up(server):
    assert title(server.ask()) == "Menu"
    if server.name in ("lighttpd", "busybox"):
        server.slow.leave(server.slow.slow)  # these limit only silence
    if server.name == "busybox":
        server.slow.leave(server.slow.silent)  # a fixed limit of a minute
    assert wait_for(server.slow.are_gone, 120)


def test_the_log_has_requests_and_no_password(server):
    words = [b"127.0.0.1", b"response:401"] if server.name == "busybox" else [
        f'127.0.0.1 {USER} "POST {URL} HTTP/1.1" 200'.encode(), b'HTTP/1.1" 401']
    assert wait_for(lambda: all(word in server.said() for word in words))
    for secret in (server.basic(), PASSWORD, "Sanitizer", "runtime error"):
        assert secret.encode() not in server.said()


@pytest.fixture
def restarted(server):
    """A server that the test stops and changes."""
    login = (server.etc / "login").read_bytes()
    server.stop()
    yield server
    server.stop()
    server.page_seconds, server.slots = 60, 8
    (server.etc / "login").write_bytes(login)
    server.start()


def test_a_page_that_takes_too_long_is_ended(restarted):
    stuck, answers = restarted.state / "stuck", []
    stuck.unlink(missing_ok=True)
    restarted.page_seconds = 2
    restarted.start()
    # On a busy machine the time may be over before the page's script has begun.
    assert wait_for(lambda: answers.append(restarted.ask(f"{URL}?form=stuck")) or
                    stuck.exists() and stuck.read_text().strip())
    for answer in answers:
        assert answer.status in (500, 502, 504) and 'class="error"' in answer.text
    script = stuck.read_text().strip()
    assert wait_for(lambda: not os.path.exists(f"/proc/{script}"))


def test_no_more_programs_run_than_configured(restarted):
    stuck = restarted.state / "stuck"
    stuck.unlink(missing_ok=True)
    restarted.slots = 1
    restarted.start()
    with concurrent.futures.ThreadPoolExecutor(32) as pool:
        pool.submit(restarted.ask, f"{URL}?form=stuck")
        assert wait_for(lambda: stuck.exists() and stuck.read_text().strip())
        second = pool.submit(restarted.ask)
        if restarted.name == "busybox":
            assert (second.result().status, title(second.result())) == (503, "Busy")
        else:
            assert not concurrent.futures.wait([second], timeout=1).done
        # nginx limits the connections of one address.
        more = [pool.submit(restarted.ask) for _ in range(30 * (restarted.name == "nginx"))]
        assert not more or wait_for(lambda: any(one.done() for one in more))
        os.kill(int(stuck.read_text()), signal.SIGKILL)
        if restarted.name != "busybox":
            assert title(second.result()) == "Menu"
        answers = {title(one.result()) for one in more}
        assert answers == ({"Busy", "Menu"} if more else set())
    assert title(restarted.ask()) == "Menu"


def test_a_missing_program_gives_a_page_of_the_device(server):
    program = server.root / "usr/lib/cgi-bin/orv"
    program.rename(f"{program}.away")
    answer = server.ask()
    assert answer.status in (404, 500) and 'class="error"' in answer.text
    program.with_suffix(".away").rename(program)
    assert title(server.ask()) == "Menu"


def test_without_a_valid_login_nothing_is_served(restarted):
    """Some server would take a line without a hash for a password."""
    (restarted.root / "usr/share/larkspur/boot/larkspur-first-start").write_text(
        "#!/bin/sh\n")
    for login in ("", "admin\n", "admin:\n", "admin:right:horse\n", "*:*\n",
                  "admin:$1$aa$bbbbbbbbbbbbbbbbbbbbbb\n"):
        (restarted.etc / "login").write_text(login)
        assert not restarted.try_start(), login
        assert b"etc/larkspur/login" in restarted.said(), login


def test_a_removed_login_lets_nobody_in(server):
    if server.name == "busybox":
        return  # it reads them only at its start
    login = server.etc / "login"
    login.rename(f"{login}.away")
    assert wait_for(lambda: server.ask().status in (401, 403, 500), 60)
    login.with_suffix(".away").rename(login)
    assert wait_for(lambda: server.ask().status == 200)
