"""The same requests through a real web server."""

import shutil
import socket
import subprocess
import time
import types
import urllib.error
import urllib.parse
import urllib.request

import pytest
from conftest import ORV, Page, Site

CONFIG = """\
server.modules = ("mod_cgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "{folder}"
cgi.assign = ("/cgi-bin/orv" => "")
"""


class ServedSite(Site):
    """A device whose requests go to a web server at `url`."""

    def run(self, env, body=b""):
        method = env["REQUEST_METHOD"]
        request = urllib.request.Request(
            f"{self.url}?{env.get('QUERY_STRING', '')}", method=method,
            data=body if method == "POST" else None)
        try:
            answer = urllib.request.urlopen(request, timeout=30)
        except urllib.error.HTTPError as error:
            answer = error
        with answer:
            head = f"Status: {answer.status} {answer.reason}\r\n"
            head += "".join(f"{n}: {v}\r\n" for n, v in answer.headers.items())
            raw = head.encode() + b"\r\n" + answer.read()
        return Page(self, types.SimpleNamespace(
            returncode=0, stderr=b"", stdout=raw), [])


def start(folder):
    """lighttpd on a port that the kernel chose, once it listens."""
    for _ in range(10):  # another program may take the port in between
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        config = folder / "lighttpd.conf"
        config.write_text(CONFIG.format(port=port, folder=folder))
        with open(folder / "errors", "wb") as errors:
            server = subprocess.Popen(["/usr/sbin/lighttpd", "-D", "-f", config],
                                      env={}, stdin=subprocess.DEVNULL, stderr=errors)
        while server.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port), 30).close()
                return server, port
            except ConnectionRefusedError:
                time.sleep(0.01)
    raise AssertionError((folder / "errors").read_text())


@pytest.fixture
def served(tmp_path):
    """The device, its executable in cgi-bin/ and the server in front of it."""
    device = ServedSite(tmp_path / "cgi-bin")
    shutil.copy(ORV, device.folder / "orv")
    device.template("changes_saved", "text a", title="changes_saved")
    device.template("orvmenu", "fmenu", "choice net/eth0 Port 0", title="Menu")
    server, port = start(tmp_path)
    device.url = f"http://127.0.0.1:{port}/cgi-bin/orv"
    yield device
    server.terminate()
    server.wait(30)
    log = (tmp_path / "errors").read_text()
    assert "Sanitizer" not in log and "runtime error" not in log, log


def test_a_value_is_saved_on_the_way_from_the_menu_to_the_confirmation(served):
    served.template("net", "field host", "check word", "fixed environment",
                    title="Net $S$")
    served.form_script(
        "net", read="cat host; mapfile -d '' -t all </proc/$$/environ; "
        "[[ \" ${all[*]}\" == *\" PATH=\"* ]]; echo environment=$?",
        write="echo 'host=dmz' >host")
    (served.folder / "host").write_text("host=gate\n")
    menu = served.get()
    assert (menu.title, menu.status) == ("Menu", "200 OK")
    link = urllib.parse.urlsplit(menu.all("a", "formsmenu")[0].get("href"))
    assert link.path == "/cgi-bin/orv"
    page = served.get(link.query)
    assert page.title == "Net eth0"
    assert page.control("host").get("value") == "gate"
    assert page.control("environment").get("value") == "1"  # no PATH there
    refused = page.press("Submit", host="not one word")
    assert refused.title == "Net eth0" and served.given("net", "write") is None
    saved = refused.press("Submit", host="dmz")
    assert (saved.title, saved.status) == ("changes_saved", "200 OK")
    assert 'new_host="dmz"' in served.given("net", "write")
    assert saved.press("Continue").title == "Menu"
    assert served.get(link.query).control("host").get("value") == "dmz"


def test_statuses_head_and_large_posts_pass_through_the_server(served):
    served.template("big", "field a", title="Big")
    missing = served.open("nosuch")
    assert missing.status == "404 Not Found"
    assert missing.errors == ["Cannot find/read file data/templates/nosuch.tpl"]

    page = served.open("big")
    head = served.get("form=big", REQUEST_METHOD="HEAD")
    assert head.bytes == b""
    skip = {"Date", "Content-Length", "Transfer-Encoding"}
    assert all(head.headers[n] == page.headers[n] for n in set(page.headers) - skip)

    values = [(f"o_v{i}", "x" * 1000) for i in range(1024)]
    answer = served.post([*values, ("form", "big"), ("cgi_vars_loaded", "1")])
    assert answer.status == "200 OK"
    assert [p for p in answer.hidden() if p[0] != "a"][:1024] == values[::-1]
    assert served.post(b"x=" + b"y" * (5 << 20)).status.startswith("500")
