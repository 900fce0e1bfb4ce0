"""Writes a test while a user clicks: a small web server on loopback serves a copy
of the device, and records each request as lines of a test.

A post is compared with the page that it came from, which is found by its hidden
fields, so that Back in the browser works.  Requests by the page itself (a form
drawn again, fresh values) are distinguished from the user's.  Any page in the
browser can send requests here: those from another site, and refused ones, are
answered as on the device and leave no line.
"""

import http.server
import re
import threading
import time
import urllib.parse

from .device import ROOT, URL, CannotRun
from .script import quoted

# Nothing else of the disk is served, whatever a request names.
FILES = {"/css/orv.css": "text/css; charset=utf-8",
         "/js/position.js": "text/javascript; charset=utf-8",
         "/js/kwt_scroller.js": "text/javascript; charset=utf-8"}
MOVED = {"/": URL, "/favicon.ico": "/css/orv.css"}  # browsers request an icon
ENDS = re.compile("[\r\n]+")  # of lines; no text field contains one
MOVING = {"scroll_y", "anchor_target"}  # hidden fields that scripts set
# Without these, the policy could not refuse here what it refuses on a device.
PASSED_ON = {"Host": "HTTP_HOST", "Origin": "HTTP_ORIGIN",
             "Sec-Fetch-Site": "HTTP_SEC_FETCH_SITE",
             "Content-Type": "CONTENT_TYPE", "User-Agent": "HTTP_USER_AGENT"}
LARGEST = 4 << 20  # more than this no device takes
REFUSED = 403  # by the policy; no page of the device sends such a request


class Recorder:
    """The session: its pages, and the file for its lines."""

    def __init__(self, device, out):
        self.device, self.out, self.pages = device, out, []
        self.redrawn = []  # pages that have replaced another one
        # There is one copy of the device, and one list of pages.
        self.one_at_a_time = threading.Lock()
        self.write("# Recorded; name the test, and remove what does not matter.",
                   "", time.strftime("test Recorded on %Y-%m-%d at %H:%M"))

    def write(self, *lines):
        """Adds lines, at once, so that whoever stops the recording keeps them.  A
        line end in a value would make a line of the test of what follows it."""
        self.out.write("".join(ENDS.sub(" ", line) + "\n" for line in lines))
        self.out.flush()

    def show(self, page):
        """Notes the answer to the last line written, with expectations about it."""
        self.pages.append(page)
        lines = ([f"expect form {page.form.partition('/')[0]}"] if page.form
                 else [f"expect status {page.status}"])
        for name, text in page.errors:
            lines.append(f"expect message {quoted(text)}" if name == "page" else
                         f"expect error {name.rstrip('#')} {quoted(text)}" if name else
                         f"expect text {quoted(text)}")
        self.write(*lines)

    def get(self, query, environment, headers):
        """A link was followed, or an address typed."""
        page = self.device.request(query, **environment)
        if is_from_elsewhere(headers) or page.status == REFUSED:
            return page
        if not is_navigation(headers):  # fresh values, which replace a page
            self.replace(page)
            return page
        # By its text, as long as that leads to one place; else by the form.
        links = self.pages[-1].links if self.pages else []
        shown = [text for text, address in links
                 if urllib.parse.urlsplit(address).query == query]
        fields = first_fields(query)
        if shown and len({a for t, a in links if t == shown[0]}) == 1:
            self.write("", f"follow {quoted(shown[0])}")
        else:
            place = "/".join(fields[n] for n in ("form", "subitem")
                             if n in fields)
            self.write("", f"open {place}".rstrip())
        self.show(page)
        return page

    def replace(self, page):
        """Notes a page that replaces the last one: Back does not return to that."""
        self.redrawn.append(page)
        self.pages.append(page)

    def post(self, body, environment, headers):
        """A button was pressed, or the page requests itself drawn again."""
        fields = first_fields(body.decode("ascii", "replace"))
        page = self.device.request(fields=body, **environment)
        if is_from_elsewhere(headers) or page.status == REFUSED:
            return page
        # Before the answer counts as a page: entries() looks for the one that the
        # user has filled in.
        entries = self.entries(fields)
        if asks_for_redraw(fields, headers):
            self.write("", *entries, "redraw")
            self.replace(page)
            return page
        self.write("", *entries, f"press {fields.get('action', '')}")
        self.show(page)
        if page.form.startswith("changes_saved"):
            self.write(*(f"expect sent {ENDS.sub('...', line)}"
                         for line in reversed(self.device.sent() or [])
                         if is_changed(line, fields)))
        return page

    def entries(self, fields):
        """The lines for the user's input since the page arrived."""
        state = {n: v for n, v in fields.items() if n not in MOVING}

        # Every hidden field comes back, with line ends as browsers send them.
        def is_origin(page):
            hidden = {n: re.sub("\r\n?|\n", "\r\n", v)
                      for n, v in page.hidden.items() if n not in MOVING}
            return hidden.items() <= state.items()

        lines = []
        origin = next((p for p in reversed(self.pages) if is_origin(p)), None)
        if origin is None:
            return ["# This came from a page of before the recording."]
        # Pages behind it have been left by Back, but a redrawn page is no stop on
        # the way.
        while self.pages[-1] is not origin:
            if self.pages.pop() not in self.redrawn:
                lines.append("back")
        for control in origin.fields.values():
            line = entry(control, fields.get(control.name))
            if line is not None:
                lines.append(line)
        return lines


def first_fields(text):
    """The fields of a query or a body; the first of each name counts."""
    fields = {}
    for name, value in urllib.parse.parse_qsl(text, keep_blank_values=True):
        fields.setdefault(name, value)
    return fields


def asks_for_redraw(fields, headers):
    """A page with help requests it again with its form; only the browser's headers
    show then that nobody has pressed the button."""
    action = fields.get("action")
    return action is None or (action == "Help" and not is_navigation(headers))


def is_navigation(headers):
    """Whether the browser itself opens the page, rather than a script."""
    return headers.get("Sec-Fetch-Mode", "navigate") == "navigate"


def is_from_elsewhere(headers):
    """Whether another site's page has caused this request.  Older browsers send no
    Sec-Fetch-Site; Origin and Referer name the page as well."""
    site = headers.get("Sec-Fetch-Site")
    source = headers.get("Origin") or headers.get("Referer")
    if site:
        return site not in ("same-origin", "none")
    return bool(source) and urllib.parse.urlsplit(source).netloc != headers.get("Host")


def is_changed(line, fields):
    """Whether a line of the write script's input differs from the value that the
    read script had reported, which the page's fields remember."""
    name, _, value = line.removeprefix("new_").partition("=")
    old = (fields[mark + name] for mark in ("o_", "d_") if mark + name in fields)
    return value[1:-1] != next(old, "")


def entry(control, posted):
    """The line that makes the control post that value (None: nothing), or None if
    it would anyway."""
    row = re.fullmatch(r"delete_(.+)_(\d+)", control.name)
    if control.is_disabled or (control.kind == "select" and not control.options):
        return None
    if control.kind == "checkbox":
        if (posted is not None) == control.is_ticked:
            return None
        if row and posted is not None:
            return f"delete {row[1]} {row[2]}"
        return f"{'un' if posted is None else ''}tick {control.name}"
    if posted is None or posted == control.value:
        return None
    verb = "choose" if control.kind == "select" else "set"
    return f"{verb} {control.name} {quoted(posted)}"


class Handler(http.server.BaseHTTPRequestHandler):
    """The web server's handler; `serve` sets `recorder`."""

    recorder = None

    def log_message(self, *_):
        """Silent: the terminal is for what the recorder has to say."""

    def answer(self, status, headers, body):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def answer_page(self, page):
        head = getattr(page, "head", b"").decode("latin-1").split("\r\n")[1:]
        self.answer(page.status, [line.split(": ", 1) for line in head],
                    page.body)

    def passed_on(self):
        port = str(self.server.server_address[1])
        return {variable: self.headers.get(name)
                for name, variable in PASSED_ON.items()} | {"SERVER_PORT": port}

    def do_GET(self):  # pylint: disable=invalid-name
        path, _, query = self.path.partition("?")
        file = ROOT / f"web{path}"
        if path == URL:
            with self.recorder.one_at_a_time:
                self.answer_page(
                    self.recorder.get(query, self.passed_on(), self.headers))
        elif path in FILES and file.is_file():
            self.answer(200, [("Content-Type", FILES[path])], file.read_bytes())
        elif path in MOVED:
            self.answer(302, [("Location", MOVED[path])], b"")
        else:
            self.answer(404, [], b"")

    def do_POST(self):  # pylint: disable=invalid-name
        length = self.headers.get("Content-Length", "")
        if self.path != URL or not length.isdecimal() or int(length) > LARGEST:
            self.answer(400, [], b"")
            return
        body = self.rfile.read(int(length))
        with self.recorder.one_at_a_time:
            self.answer_page(
                self.recorder.post(body, self.passed_on(), self.headers))


def serve(device, out, port, say):
    """Serves and records until Ctrl-C or a signal ends it."""
    # Only on loopback, as it serves without a login.  In threads, since browsers
    # keep connections open on which they ask for nothing.
    Handler.recorder = Recorder(device, out)
    try:
        server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
    except (OSError, OverflowError) as error:
        raise CannotRun(f"port {port}: {error}; choose another --port, or leave it "
                        "away") from None
    with server:
        say(f"Recording into {out.name}; open "
            f"http://127.0.0.1:{server.server_address[1]}/ and press Ctrl-C "
            "when you are done.")
        server.serve_forever()
