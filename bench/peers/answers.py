"""The answers that every peer must give before it is measured.

The form is the same for all: twelve fields, three of which are shown only with a
static address, and a table of eight rows and four columns.
"""
import html.parser
import urllib.parse

from peers import Failure, Request

VALUES = {
    "host_name": "gateway-1", "location": "Rack <attic> & 'cellar'",
    "contact": "admin@example.org", "addressing": "yes",
    "ip_address": "192.168.1.20", "prefix": "24", "gateway": "192.168.1.1",
    "dns1": "9.9.9.9", "dns2": "149.112.112.112", "ntp": "pool.ntp.org",
    "log_level": "notice", "ssh": "True",
}
STATIC = ("ip_address", "prefix", "gateway")
ROWS = 8
for row in range(ROWS):
    VALUES[f"fw_proto{row}"] = ("tcp", "udp", "both")[row % 3]
    VALUES[f"fw_port{row}"] = str(8000 + row)
    VALUES[f"fw_to{row}"] = f"192.168.1.{50 + row}"
    VALUES[f"fw_note{row}"] = f"Camera <{row}> & lamp"

SAVED = "Your changes are saved."
HOST_MESSAGE = "Use letters, digits and hyphens, 63 at most"
NASTY = "\"><script>'&"


class Page(html.parser.HTMLParser):
    """The controls of a page and the text after each of them."""

    def __init__(self, text):
        super().__init__()
        self.fields = []   # name, value: as a browser posts them
        self.shown = {}    # of the visible controls; None: a box not ticked
        self.marked = set()  # those marked as wrong
        self.behind = {}   # the text up to the next control
        self.text = ""
        self.control = ""
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        a = dict(attributes)
        kind = a.get("type", "text")
        if tag == "select":
            self.begin(a, "")
        elif tag == "option" and (
                "selected" in a or self.shown[self.control] == ""):
            self.shown[self.control] = a["value"]
        elif tag == "input" and kind == "hidden":
            self.fields.append((a["name"], a.get("value") or ""))
        elif tag == "input" and kind != "submit":
            ticked = kind != "checkbox" or "checked" in a
            self.begin(a, (a.get("value") or "") if ticked else None)
        elif tag == "input" and a.get("value") == "Submit" and "name" in a:
            self.fields.append((a["name"], "Submit"))

    def begin(self, attributes, value):
        self.control = attributes["name"]
        self.shown[self.control], self.behind[self.control] = value, ""
        if attributes.get("aria-invalid") == "true":
            self.marked.add(self.control)

    def handle_data(self, data):
        self.text += data
        if self.control:
            self.behind[self.control] += data

    def post(self, **changes):
        """A browser's request when Submit is pressed."""
        shown = {**self.shown, **changes}
        fields = self.fields + [
            (n, v) for n, v in shown.items() if v is not None]
        return Request(urllib.parse.urlencode(fields).encode())


class Talk:
    """Requests to one site, each with assertions about its answer."""

    def __init__(self, site):
        self.site = site

    def fail(self, what, page=""):
        raise Failure(f"{self.site.peer.title}: {what}\n{page[:4000]}")

    def ask(self, request=Request(), status=200):
        (answer,), _, _ = self.site.batch([request], 1)
        if answer.status != status:
            self.fail(f"status {answer.status}, not {status}", answer.page)
        return answer.page

    def page(self):
        return Page(self.ask())

    def stored(self):
        """The stored files with their inodes: a new inode is a new file, so a file
        written in place is noticed."""
        return {p.name: (p.stat().st_ino, p.read_bytes())
                for p in self.site.state.iterdir()
                if not p.name.startswith(".") and p.is_file()}

    def saves(self, request):
        before = self.stored()
        text = self.ask(request)
        if "Resubmit to confirm" in text:
            text = self.ask(Page(text).post())
        after = self.stored()
        if SAVED not in text:
            self.fail("nothing says that the changes are saved", text)
        if len(after) != 1:
            self.fail(f"a save leaves {sorted(after)}")
        if before == after or set(before.values()) & set(after.values()):
            self.fail("a save changes nothing")
        if {i for i, _ in before.values()} & {i for i, _ in after.values()}:
            self.fail("a save writes over the file in use")

    def refuses(self, request, status, says):
        before = self.stored()
        text = self.ask(request, status)
        if self.stored() != before:
            self.fail("a request that was refused changes what is stored")
        page = Page(text)
        if says not in page.text or SAVED in page.text:
            self.fail(f"nothing says \"{says}\"", text)
        return page, text

    def shows(self, wanted, text=None):
        text = text or self.ask()
        shown = Page(text).shown
        for name, value in wanted.items():
            if shown.get(name) != value:
                self.fail(f"{name} shows {shown.get(name)!r}, not {value!r}",
                          text)
        for raw in ("<attic>", "<0>", "<script>'"):
            if raw in text:
                self.fail(f"{raw} stands in the page as it is", text)


def check(site):
    """Fills the site with VALUES and tests everything that it must do."""
    talk = Talk(site)
    talk.saves(talk.page().post(**VALUES))
    talk.shows(VALUES)

    talk.saves(talk.page().post(host_name="gateway-2", ssh=None))
    talk.shows({**VALUES, "host_name": "gateway-2", "ssh": None})

    # A refused value comes back as typed, with the reason beside it.
    page, text = talk.refuses(talk.page().post(host_name=NASTY), 200,
                              HOST_MESSAGE)
    talk.shows({"host_name": NASTY}, text)
    if HOST_MESSAGE not in page.behind["host_name"]:
        talk.fail("the message does not stand beside its field", text)
    alone = (
        ({"fw_port3": "99999"}, "Enter a port, 1 to 65535"),
        ({"fw_to0": "192.168.1.256"}, "Enter an address such as 192.168.1.50"),
        ({"prefix": "31"}, "Enter a number from 1 to 30"),
        ({"contact": "nobody"}, "Enter a mail address"),
        ({"ntp": "-x"}, "Enter a host name or an address"),
        ({"location": "x" * 61}, "Use 60 characters at most"),
        ({"log_level": "nothing"}, ""))
    # Rules between fields need a script.
    together = (
        ({"fw_port5": "8002", "fw_proto5": "tcp"}, "has this port already"),
        ({"gateway": "192.168.1.20"}, "must be another device"),
        ({"dns1": ""}, "Fill in the first name server"))
    for changes, message in alone + together * site.peer.has_script:
        page, text = talk.refuses(talk.page().post(**changes), 200, message)
        if not changes.keys() & page.marked:
            talk.fail(f"{next(iter(changes))} is not marked", text)

    # Another site's page may not save.
    for headers in ({"HTTP_ORIGIN": "http://evil.example"},
                    {"HTTP_ORIGIN": "null"},
                    {"HTTP_SEC_FETCH_SITE": "cross-site"}):
        request = talk.page().post(host_name="stolen")
        request.headers = headers
        talk.refuses(request, 403, "The request was refused.")

    # The static address is shown only with its choice.
    talk.saves(talk.page().post(addressing="no"))
    if set(STATIC) & set(talk.page().shown):
        talk.fail("an automatic address shows the fields of a static one")
    talk.saves(talk.page().post(**{"addressing": "yes", **{
        n: VALUES[n] for n in STATIC}}))
    # An emptied row is removed, and the others move up.
    talk.saves(talk.page().post(
        fw_port2="", fw_to2="", fw_note2="", fw_proto2="tcp"))
    shown = talk.page().shown
    if shown["fw_port2"] != "8003" or f"fw_port{ROWS}" in shown:
        talk.fail("an emptied row does not go")
    talk.saves(talk.page().post(**VALUES))
    talk.shows(VALUES)


def measured(site):
    """The measured requests: for each name, those that take turns."""
    page = Talk(site).page()
    # Both differ from the page's values, and each changes the other's.
    names = {"gateway-1", "gateway-2", "gateway-3"} - {page.shown["host_name"]}
    return {
        "page": [Request()],
        "save": [page.post(host_name=name) for name in sorted(names)],
        "refused": [page.post(host_name="gateway 1")],
    }


def right(kind, answer):
    """Whether an answer of that kind is as it should be."""
    expected = {"page": "gateway-", "save": SAVED, "refused": HOST_MESSAGE}
    return answer.status == 200 and expected[kind] in answer.page
