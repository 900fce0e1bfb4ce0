"""The same requests through a real web server."""

import email.policy
import http.client
import shutil
import socket
import subprocess
import time
import types
import urllib.parse

import pytest
from conftest import ORV, SECONDS, Page, Site

URL = "/cgi-bin/orv"
CONFIG = """\
server.modules = ("mod_cgi")
server.bind = "{0}/socket"
server.document-root = "{0}"
cgi.assign = ("/cgi-bin/orv" => "")
"""


class ServedSite(Site):
    """A device whose requests go to a web server on the socket `server`."""

    def run(self, env, body=b""):
        to = http.client.HTTPConnection("device")
        to.sock = socket.socket(socket.AF_UNIX)
        to.sock.settimeout(SECONDS)
        to.sock.connect(self.server)
        headers = {"Content-Type": env["CONTENT_TYPE"]} if body else {}
        to.request(env["REQUEST_METHOD"], f"{URL}?{env.get('QUERY_STRING', '')}",
                   body or None, headers)
        answer = to.getresponse()
        head = f"Status: {answer.status} {answer.reason}\r\n".encode()
        head += answer.headers.as_bytes(policy=email.policy.HTTP)
        return Page(self, types.SimpleNamespace(
            returncode=0, stderr=b"", stdout=head + answer.read()), [])


@pytest.fixture
def served(tmp_path):
    """The device, its executable in cgi-bin/ and lighttpd in front of it."""
    device = ServedSite(tmp_path / "cgi-bin")
    shutil.copy(ORV, device.folder / "orv")
    device.template("changes_saved", "text a", title="changes_saved")
    device.template("orvmenu", "fmenu", "choice net/eth0 Port 0", title="Menu")
    config, errors = tmp_path / "lighttpd.conf", tmp_path / "errors"
    config.write_text(CONFIG.format(tmp_path))
    device.server = str(tmp_path / "socket")
    server = subprocess.Popen(
        ["/usr/sbin/lighttpd", "-D", "-f", config], env={},
        stdin=subprocess.DEVNULL, stderr=errors.open("wb"))
    while socket.socket(socket.AF_UNIX).connect_ex(device.server) != 0:
        assert server.poll() is None, errors.read_text()
        time.sleep(0.01)
    yield device
    server.terminate()
    server.wait(SECONDS)
    log = errors.read_text()
    assert "Sanitizer" not in log and "runtime error" not in log, log


def test_a_value_is_saved_on_the_way_from_the_menu_to_the_confirmation(served):
    served.template("net", "field host", "check word", title="Net $S$")
    served.form_script("net", "cat host", write="echo 'host=dmz' >host")
    (served.folder / "host").write_text("host=gate\n")
    menu = served.get()
    assert (menu.title, menu.status) == ("Menu", "200 OK")
    link = urllib.parse.urlsplit(menu.all("a", "formsmenu")[0].get("href"))
    page = served.get(link.query)
    assert (link.path, page.title) == (URL, "Net eth0")
    assert page.control("host").get("value") == "gate"
    refused = page.press("Submit", host="not one word")
    assert refused.title == "Net eth0" and served.given("net", "write") is None
    saved = refused.press("Submit", host="dmz")
    assert (saved.title, saved.status) == ("changes_saved", "200 OK")
    assert saved.press("Continue").title == "Menu"
    assert served.get(link.query).control("host").get("value") == "dmz"


def test_statuses_and_large_posts_pass_through_the_server(served):
    served.template("big", "field a", title="Big")
    assert served.open("nosuch").status == "404 Not Found"
    values = [(f"o_v{i}", "x" * 1000) for i in range(1024)]
    answer = served.post([*values, ("form", "big"), ("cgi_vars_loaded", "1")])
    assert answer.hidden()[:1024] == values[::-1]
    assert served.post(b"x=" + b"y" * (5 << 20)).status.startswith("500")
