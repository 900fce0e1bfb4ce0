"""A change that goes back unless a deliberate act keeps it: which acts count, and
that nothing stops it from going back."""

import concurrent.futures
import contextlib
import fcntl
import http.client
import os
import pathlib
import pty
import re
import shutil
import signal
import socket
import subprocess
import time
import types
import urllib.parse

import conftest
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
STORE, ORVCTL, LINT = (os.environ[name] for name in ("ORV_STORE", "ORVCTL", "ORV_LINT"))
OWN = {"HTTP_HOST": "gw", "HTTP_ORIGIN": "http://gw"}
NOT_KEPT = "Nobody kept the last change in time: the old settings are back."
FORM = """\
. "${BASH_SOURCE%%/*}/orv.bash"
[[ $1 != --write ]] || orv_lock
orv_load "$2"
[[ $1 != --read ]] || { orv_stamp; orv_show host; exit; }
orv_read host
orv_stamp
[[ $1 != --write ]] || { orv_guard %s; orv_store "$2" host && orv_changes; }
"""


def equip(site, guard="900"):
    """A device that stores settings: the guarded form `net` and one like it, the
    form that keeps a change, and a bar that leads to it."""
    for file in (ROOT / "lib").iterdir():
        (site.scripts / file.name).symlink_to(file)
    (site.scripts / "orv-store").symlink_to(STORE)
    (site.scripts / "confirm.sh").symlink_to("orv-store")
    for name in ("confirm.tpl", "changes_saved.tpl"):
        shutil.copy(ROOT / "examples/forms/templates" / name, site.templates)
    shutil.copy(ROOT / "examples/forms/scripts/navbar.sh", site.scripts)
    for form in ("net", "lan"):
        site.template(form, "field host", header=["navbar_script navbar.sh"])
        site.script(f"{form}.sh", FORM % guard)
    site.state = site.folder / "data/state"
    site.env |= {"ORV_POLICY": "strict", "ORV_STORE": None, "REMOTE_ADDR": "10.0.0.9"}
    for form in ("net", "lan"):
        run(site, STORE, "store", "-", form, text=f"> {form}\nhost=old\n")
    return site


def run(site, *command, text="", **env):
    """Runs a command on the device; returns its output."""
    env = os.environ | {
        "ORV_STATE": str(site.state), "ORV_DEFAULTS": "/nowhere", "ORV_POLICY": "strict",
        "ORV_TEMPLATES": str(site.templates), "ORVCTL_ORV": conftest.ORV} | env
    return subprocess.run(command, env=env, input=text, capture_output=True, text=True,
                          timeout=conftest.SECONDS, check=False).stdout


def host(site, form="net"):
    return re.search("^host=(.*)", (site.state / form).read_text(), re.M)[1]


def save(site, value, form="net"):
    fields = dict(site.open(form).fields()) | {"host": value, "action": "Submit"}
    page = site.post(fields, **OWN)
    assert (page.title, host(site, form)) == ("Saved", value), page.errors
    return page


def pending(site):
    """The change that waits to be kept, {} for none."""
    lines = run(site, STORE, "pending").splitlines()[1:]
    return dict(line.split("=", 1) for line in lines)


def until(condition, seconds=120):
    """Waits for an event that must come, however slow the machine is."""
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "it never came"
        time.sleep(0.05)


def bar_leads_there(page):
    """Whether the first entry of the page's bar links to the waiting change."""
    (bar,) = page.all("nav")
    return next(bar.iter(f"{conftest.HTML}a")).get("href").endswith("?form=confirm")


def submit(site):
    """The fields of a Submit of the form that keeps the pending change."""
    return dict(site.open("confirm").fields()) | {"action": "Submit"}


@pytest.fixture(name="device")
def fixture_device(site, monkeypatch):
    monkeypatch.setattr(conftest, "ORV", os.environ["ORV_STRICT"])
    yield equip(site)
    run(site, STORE, "reset")  # ends the watchers


def test_a_change_is_kept_by_a_submit_of_its_page_and_by_no_other(device):
    page = device.open("confirm")
    assert "No change waits to be kept." in page.texts("p", "plain")
    assert device.post(submit(device), **OWN).title == "no_changes"
    assert not bar_leads_there(device.open("net"))
    saved = save(device, "new")
    assert bar_leads_there(saved)
    sentence = "A change by somebody at 10.0.0.9 waits to be kept. If nobody kept it by "
    assert sentence in saved.body and "form=confirm" in saved.body
    bar = [a.get("href") for a in device.open("net").all("a")]
    assert bar[0].endswith("?form=confirm") and len(bar) > 1
    first = submit(device)
    page = " ".join(device.open("confirm").texts("p", "plain"))
    assert "by somebody at 10.0.0.9, and" in page and "host: old -> new" in page
    save(device, "newer", "lan")
    refused = device.post(first, **OWN)  # that page shows another change
    assert refused.errors[0].startswith("Another change was made meanwhile.")
    kept = device.post(submit(device), **OWN)
    assert "The change is kept." in kept.texts("p", "plain") and not pending(device)
    assert not bar_leads_there(kept)
    assert (host(device), host(device, "lan")) == ("new", "newer")
    assert "Keep the change?" not in device.open("net").body
    again = device.post(first, **OWN)
    assert again.errors[0].startswith("No change waits to be kept")


def test_the_bar_links_to_the_change_first_wherever_its_entry_is(device):
    device.script("other.sh", '. "${0%/*}/orv_navbar.sh"', 'echo "net Net $1"')
    (device.scripts / "own.sh").symlink_to("orv-store")
    bars = {"navbar.sh": "--", "other.sh": "", "own.sh": "--"}
    (device.scripts / "navbar").write_text("--\nnet Net\n")
    def printed():
        # Settings are found beside the script, and in the folder ORV_STATE.
        command = [["sh", "-c", f"{device.scripts}/{name} --navbar x"] for name in bars]
        return [subprocess.run(c, capture_output=True, text=True, check=True).stdout
                for c in command]
    way = "confirm Keep the change?\n"
    before = printed()
    save(device, "new")
    for old, new, start in zip(before, printed(), bars.values()):
        start += "\n" if start else ""
        assert way not in old and new == start + way + old.removeprefix(start)
    for place, there in ((".commit/.settled", False), (".commit/.pending/x", True)):
        file = device.state / place
        file.parent.mkdir(parents=True, exist_ok=True)
        file.touch()
        assert [way in bar for bar in printed()][0] == there
        (device.state / ".commit/.settled").touch()
    shutil.rmtree(device.state / ".commit")


def test_only_such_an_act_keeps_a_change(device, monkeypatch):
    device.template("facts", "fixed host", "if $V:x$", "field x", "endif")
    device.script("facts.sh", FORM % 1)
    save(device, "new")
    fields = submit(device)
    token = pending(device)["token"]
    assert fields["o_confirm_token"] == token
    query = urllib.parse.urlencode(fields)
    device.get(query, HTTP_SEC_FETCH_SITE="cross-site", HTTP_SEC_FETCH_DEST="image")
    device.get(query)
    device.get("form=confirm", HTTP_SEC_PURPOSE="prefetch")
    device.get("form=confirm", HTTP_SEC_FETCH_DEST="iframe", HTTP_SEC_FETCH_SITE="cross-site")
    device.run({"REQUEST_METHOD": "HEAD", "QUERY_STRING": query})
    device.run({"REQUEST_METHOD": "HEAD", "QUERY_STRING": "form=confirm"})
    device.post(fields, HTTP_HOST="gw", HTTP_ORIGIN="http://evil")
    device.post(fields, HTTP_HOST="gw", HTTP_SEC_FETCH_SITE="cross-site")
    for lacking in ({"form": "confirm", "action": "Submit"},
                    {"form": "confirm", "action": "Submit", "always_submit": "1"},
                    {"form": "confirm", "action": "Submit", "confirm_token": token}):
        device.post(lacking, **OWN)
        device.post(lacking, HTTP_HOST="gw", HTTP_ORIGIN="http://evil")
    for token in ("", "0" * 32, token[:-1], token + "0"):
        page = device.post(fields | {"o_confirm_token": token}, **OWN)
        assert page.title != "Saved"
    for form in ("orvmenu", "net", "lan", "confirm", "facts", "changes_saved"):
        device.open(form)  # from a second browser
    device.post(dict(device.open("confirm").fields()) | {"action": "Home"}, **OWN)
    for words in (["get", "net"], ["get", "confirm"], ["dump"]):
        run(device, ORVCTL, "--data", str(device.folder / "data"), *words)
    run(device, LINT, "--run", str(device.folder / "data"))
    monkeypatch.setattr(conftest, "ORV", os.environ["ORV"])
    device.env |= {"ORV_POLICY": None}  # under which a link can submit
    for page in (device.get(query), device.post(fields), device.post(fields, **OWN)):
        assert page.errors[0].startswith("A page cannot keep a change here: use")
    assert pending(device)["armed"] == "True" and host(device) == "new"
    assert run(device, STORE, "confirm", pending(device)["token"]) == "ok\n"
    assert not pending(device) and host(device) == "new"


def test_a_change_is_not_kept_before_the_device_uses_it(device):
    used = device.folder / "used"
    device.script("net.sh", FORM % f"900 bash -c 'until [[ -e {used} ]]; do sleep 0.05; done'")
    assert "If nobody kept it by 900 seconds from now," in save(device, "new").body
    page = device.open("confirm")
    assert "The device does not use the change yet." in page.body
    refused = device.post(submit(device), **OWN)
    assert refused.errors[0].startswith("The device does not use the change yet.")
    assert run(device, STORE, "confirm").startswith("fault The device does not")
    used.touch()
    until(lambda: pending(device)["armed"] == "True")
    assert device.post(submit(device), **OWN).title == "Saved" and not pending(device)


def test_the_page_that_keeps_a_change_has_its_end_and_twelve_changes(device):
    def read(task="read", given=""):
        said = run(device, device.scripts / "confirm.sh", f"--{task}", "confirm", text=given, REMOTE_USER="other")
        return dict(re.findall(r'^(\w+)="(.*)"$', said, re.M))
    assert read() == {"confirm_token": ""}
    values = "".join(f"{name}=a\n" for name in ("host", *"abcdefghijkl"))
    run(device, STORE, "store", "-", "net", "sub", text=f"@label b=$A$\n@label c={'$' * 50}\n@secret a\n@guard 900 x\n> net\n{values}c={'x' * 60}\n",
        REMOTE_USER="eve", REMOTE_ADDR="10.0.0.1")
    said = read()
    token = said.pop("confirm_token")
    assert token == pending(device)["token"] and pending(device)["form"] == "net/sub"
    line = said["confirm_change3"].removesuffix("$L$")  # as long as a page accepts
    assert re.fullmatch("(?:[$]{3}){50}: blank -> x+", line) and 210 < len(line) <= 215
    lines = ["host: old -> a", f"a{conftest.CHANGED}", "$$$A$$$: blank -> a", line, *(f"{name}: blank -> a" for name in "defghijk")]
    changes = {f"confirm_change{i}": f"{line}$L$" for i, line in enumerate(lines)}
    assert said == {"always_submit": "True", "confirm_who": "eve at 10.0.0.1", "confirm_left": "",
                    "confirm_clock": ""} | changes
    run(device, STORE, "arm", token)
    said = read()
    clock = time.localtime(int(pending(device)["clock"]))
    assert said["confirm_clock"] == time.strftime("%H:%M:%S", clock) and 0 < int(said["confirm_left"]) <= 900
    refused = read("write", 'new_confirm_token="other"\n')  # its page goes on counting
    assert refused["confirm_clock"] == said["confirm_clock"] and 0 < int(refused["confirm_left"]) <= 900
    assert refused["error_msg"].startswith("Another change was made meanwhile.") and pending(device)
    kept = read("write", f'new_confirm_token="{token}"\n')
    assert (kept["u_saved_note"], kept["u_saved_navbar"], pending(device)) == ("The change is kept.", "True", {})


def test_only_the_latest_save_tells_that_a_change_went_back(device):
    def read():
        return run(device, device.scripts / "confirm.sh", "--read", "confirm")
    history = device.state / ".history"
    for text, back in (("@ 2 0 - - net back\n@ 1 0 - - net saved\n", True), ("@ 2 0 - - net saved\n@ 1 0 - - net back\n", False),
                       ("@ 2 0 - - net back", True), ("@ 2 0 - - netback\n", False), ("back\n", False), ("", False),
                       ("@ 2 0 - - back saved\n= back\n", False), ("@ 2 0 - - net back up\n", False)):
        history.write_text(text)
        assert read() == 'confirm_token=""\n' + 'confirm_back="True"\n' * back, text
    history.unlink()
    assert read() == 'confirm_token=""\n'
    for path in (".history", ".pending/.token"):
        (device.state / path).mkdir(parents=True)
        said = read()
        assert "The settings cannot be read: " in said and "error_fatal=yes" in said, said
        (device.state / path).rmdir()


def test_a_boot_reverts_an_unkept_change_and_reports_it(device):
    save(device, "new")
    info = device.state / ".pending/.info"
    text, count = re.subn("(?m)^boot=.*", "boot=of-another-boot", info.read_text())
    assert count == 1
    whole = device.folder / "info"  # its watcher never sees a part of it
    whole.write_text(text)
    whole.replace(info)
    run(device, STORE, "boot")
    assert host(device) == "old" and not pending(device)
    assert NOT_KEPT in device.open("confirm").texts("p", "plain")
    assert re.search("(?m)^@ .* net back$", run(device, STORE, "history"))
    run(device, STORE, "boot")  # once
    save(device, "new")
    assert device.post(submit(device), **OWN).title == "Saved"
    run(device, STORE, "boot")
    assert host(device) == "new"


def watchers(site, pids=False):
    """This device's watchers, with the arguments that they were started with."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            words = (process / "cmdline").read_bytes().split(b"\0")
            env = (process / "environ").read_bytes()
        except OSError:  # it has ended
            continue
        if b"watch" in words and os.fsencode(site.folder) in env:
            found.append((int(process.name), words) if pids else words)
    return found


@pytest.mark.parametrize("guard", ["900", "900 true"])
def test_many_changes_in_a_row_leave_one_watcher(device, guard):
    device.script("net.sh", FORM % guard)
    for i in range(15):
        save(device, f"new{i}")
    token = pending(device)["token"]
    until(lambda: [os.fsencode(token) in words for words in watchers(device)] == [True])
    ((pid, _),) = watchers(device, pids=True)
    before = conftest.sleeps(pid)
    until(lambda: conftest.sleeps(pid) > before + 2)  # between two looks
    until(lambda: run(device, STORE, "confirm") == "ok\n")
    until(lambda: not watchers(device))
    assert host(device) == "new14"


def make_overdue(site, by=None):
    """Lets the time of the pending change run out, that many seconds ago."""
    until(lambda: pending(site)["armed"] == "True")
    info = site.state / ".pending/.info"
    end = 1 if by is None else int(time.clock_gettime(time.CLOCK_BOOTTIME)) - by
    text, count = re.subn("(?m)^until=.*", f"until={end}", info.read_text())
    whole = site.folder / "info"  # its watcher never sees a part of it
    whole.write_text(text)
    whole.replace(info)
    assert count


def test_each_change_s_command_runs_once_and_in_order_when_all_go_back(device):
    ran = device.folder / "ran"
    def guard(form, word, before=""):
        line = f"900 bash -c '{before} echo {word} $(grep host= {device.state}/{form}) >>{ran}'"
        device.script(f"{form}.sh", FORM % line)
        before = ran.read_text().count("\n") if ran.exists() else 0
        save(device, f"{word}{before}", form)
        until(lambda: ran.exists() and ran.read_text().count("\n") > before)
    guard("net", "first", "sleep 0.5;")
    guard("lan", "second")
    guard("net", "third")
    guard("lan", "second")  # the same as before: its watcher takes this one's turn
    until(lambda: len(watchers(device)) == 3)
    make_overdue(device)
    until(lambda: ran.read_text().count("\n") >= 7 and not watchers(device))
    assert ran.read_text().splitlines()[4:] == [
        "first host=old", "third host=old", "second host=old"]
    # A watcher that has died delays nobody.
    ran.unlink()
    guard("net", "first")
    guard("lan", "second")
    until(lambda: len(watchers(device)) == 2)
    pid, _ = min(watchers(device, pids=True))
    os.kill(pid, signal.SIGKILL)
    until(lambda: len(watchers(device)) == 1)
    make_overdue(device)
    until(lambda: not watchers(device))
    assert host(device) == host(device, "lan") == "old"
    until(lambda: ran.read_text().count("\n") >= 3)


def test_a_watcher_tries_until_it_has_the_lock_and_ends_with_the_folder(device):
    save(device, "new")
    for pid, _ in watchers(device, pids=True):
        os.kill(pid, signal.SIGKILL)
    make_overdue(device)
    with (device.state / ".lock").open() as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        watcher = subprocess.Popen([os.environ["ORV_STORE_HASTY"], "watch", pending(device)["token"]],
                                   env=os.environ | {"ORV_STATE": str(device.state)}, stdout=subprocess.DEVNULL)
        def waits():
            return re.search(f"-> FLOCK .* {watcher.pid} ", pathlib.Path("/proc/locks").read_text())
        until(waits)
        until(lambda: not waits())  # others have had the lock for too long
        assert host(device) == "new"
    assert watcher.wait(conftest.SECONDS) == 0 and host(device) == "old"
    save(device, "newer")
    until(lambda: len(watchers(device)) == 1)
    until(lambda: shutil.rmtree(device.state, ignore_errors=True) or not device.state.exists())
    until(lambda: not watchers(device))


def test_a_watcher_requests_the_actions_of_dead_ones_and_not_its_own(device):
    """What started a live one carries out its step when it ends."""
    acts, actions = device.folder / "acts", device.folder / "data/actions"
    for folder in (acts, actions):
        folder.mkdir()
    for name in ("tell", "show"):
        (actions / name).touch()
    os.mkfifo(acts / "ask")
    fifo = os.open(acts / "ask", os.O_RDWR | os.O_NONBLOCK)
    env = {"ORV_ACTS": str(acts), "ORV_ACTIONS": str(actions)}
    for live, asked in (({"tell"}, ["show"]), ({"show"}, ["tell"]), ({"run"}, ["tell", "show"]),
                        ({"tell", "show"}, []), ({"tell", "run"}, ["show"])):
        tokens = {}
        for form, name, command in (("net", "tell", "act tell"), ("lan", "run", "run"), ("lan", "show", "act show")):
            said = run(device, STORE, "store", "-", form, text=f"@guard 900 {command}\n> {form}\nhost=new\n")
            (tokens[name],) = re.findall("^guard (.*)$", said, re.M)
            run(device, STORE, "arm", tokens[name])
        turn = f"OFDLCK .*:{(device.state / '.generation').stat().st_ino} "
        started = [subprocess.Popen([STORE, "watch", tokens[name]], stdout=subprocess.DEVNULL, env=os.environ | env | {
            "ORV_STATE": str(device.state), "ORV_DEFAULTS": "/nowhere", "ORV_TEMPLATES": "/nowhere"}) for name in live]
        until(lambda: len(re.findall(turn, pathlib.Path("/proc/locks").read_text())) == len(live))
        make_overdue(device)
        assert [watcher.wait(conftest.SECONDS) for watcher in started] == [0] * len(live), live
        assert (host(device), host(device, "lan")) == ("old", "old")
        with contextlib.suppress(BlockingIOError):
            asked = asked == os.read(fifo, 100).decode().split() and []
        assert asked == [], live
    os.close(fifo)


def test_expire_leaves_a_change_to_its_watcher_for_a_moment_only(device):
    said, number, took = None, 0, 9
    while took > 2:  # or the moment may have passed
        number += 1
        save(device, f"new{number}")
        turn = f"OFDLCK .*:{(device.state / '.generation').stat().st_ino} "
        until(lambda: re.search(turn, pathlib.Path("/proc/locks").read_text()))
        ((pid, _),) = watchers(device, pids=True)
        os.kill(pid, signal.SIGSTOP)
        make_overdue(device, 0)
        begun = time.monotonic()
        said = run(device, STORE, "expire")
        took = time.monotonic() - begun
        if took > 2:
            os.kill(pid, signal.SIGKILL)
            until(lambda: not watchers(device))
    assert (said, host(device)) == ("", f"new{number}")
    make_overdue(device, 60)
    assert (run(device, STORE, "expire"), host(device)) == ("ok\nact=\n", "old")
    os.kill(pid, signal.SIGKILL)
    save(device, "newer")
    until(lambda: len(watchers(device)) == 1)
    os.kill(watchers(device, pids=True)[0][0], signal.SIGKILL)
    until(lambda: not watchers(device))
    make_overdue(device, 0)
    assert (run(device, STORE, "expire"), host(device)) == ("ok\nact=\n", "old")


class Served(conftest.Site):
    """A device behind the demo's web server; all its processes can be killed."""

    def __init__(self, folder):
        super().__init__(folder / "cgi-bin")
        shutil.copy(os.environ["ORV_STRICT"], self.folder / "orv")
        (folder / "web").mkdir()
        self.server = None

    def start(self):
        while self.server is None:  # another process may take the port first
            with socket.socket() as free:
                free.bind(("127.0.0.1", 0))
                self.port = free.getsockname()[1]
            env = {"LARKSPUR_PORT": str(self.port), "LARKSPUR_DATA": str(self.folder.parent),
                   "LARKSPUR_WEB": str(self.folder.parent / "web"),
                   "LARKSPUR_ACCESS_LOG": "/dev/null", "LARKSPUR_STORE": STORE}
            self.server = subprocess.Popen(
                ["/usr/sbin/lighttpd", "-D", "-f", ROOT / "demo/lighttpd.conf"], env=env,
                stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
            while socket.socket().connect_ex(("127.0.0.1", self.port)) != 0:
                if self.server.poll() is not None:
                    self.server = None
                    break
                time.sleep(0.01)

    def kill(self):
        with contextlib.suppress(ProcessLookupError):  # it may have ended already
            os.killpg(self.server.pid, signal.SIGKILL)
        self.server.wait(conftest.SECONDS)
        self.server = None

    def run(self, env, body=b""):
        to = http.client.HTTPConnection("127.0.0.1", self.port, timeout=conftest.SECONDS)
        to.request(env["REQUEST_METHOD"], f"/cgi-bin/orv?{env.get('QUERY_STRING', '')}",
                   body or None, {"Content-Type": env["CONTENT_TYPE"],
                                  "Origin": f"http://127.0.0.1:{self.port}"} if body else {})
        answer = to.getresponse()
        head = f"Status: {answer.status} {answer.reason}\r\n\r\n".encode()
        return conftest.Page(self, types.SimpleNamespace(
            returncode=0, stderr=b"", stdout=head + answer.read()), [])


def kill_all(folder, spare=0):
    """Kills all processes of the device, as a reboot does; or all except those of
    the session `spare`, as a service restart may do."""
    mark, found = os.fsencode(f"{folder}/"), True
    while found:
        found = False
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                pid = int(process.name)
                is_ours = pid != os.getpid() and os.getsid(pid) != spare and (process / "exe").exists()
                if is_ours and mark in (process / "environ").read_bytes():
                    os.kill(pid, signal.SIGKILL)
                    found = True
            except OSError:  # it has ended
                pass


def restart(folder):
    """A guarded save whose web server is killed and started again: alone, or with
    all its processes; then the privileged side takes over."""
    device = equip(Served(folder), "3 true")
    (folder / "actions").mkdir()
    reader = subprocess.Popen(
        ["sh", ROOT / "packaging/act/larkspur-acts", "-a", folder / "actions"],
        env=os.environ | {"ORV_STATE": str(device.state), "ORV_ACTS": str(folder / "acts"),
                          "ORV_STORE": STORE}, start_new_session=True)
    device.start()
    save(device, "new")
    if int(folder.name) % 2:
        until(lambda: pending(device).get("armed") != "False")  # until then it has a minute more
        kill_all(folder, spare=reader.pid)
    device.kill()
    device.start()
    until(lambda: host(device) == "old")
    until(lambda: NOT_KEPT in device.open("confirm").texts("p", "plain"))
    device.kill()
    os.killpg(reader.pid, signal.SIGKILL)
    reader.wait(conftest.SECONDS)


def hang_up(folder):
    """The same with a command whose terminal hangs up at its first output."""
    device = equip(conftest.Site(folder), "1 true")
    pid, terminal = pty.fork()
    if pid == 0:
        os.environ["TEXT"] = 'new_host="new"'
        os.execl("/bin/bash", "bash", "-c",
                 f"{device.scripts}/net.sh --write net <<<$TEXT")
    said = b""
    while b"u_saved_pending" not in said:
        said += os.read(terminal, 999)
    os.close(terminal)
    os.waitpid(pid, 0)
    until(lambda: re.search("(?m) net back$", run(device, STORE, "history")))
    assert host(device) == "old"


def reboot(folder):
    """A device that reboots during a save, while its command runs, or while the
    change waits to be kept."""
    used = folder / "used"
    device = equip(Served(folder), f"900 touch {used}")
    state = device.state
    moments = [lambda: host(device) == "new", (state / ".pending/.armed").exists, used.exists,
               lambda: any(state.glob(".new.*")) or (state / ".pending").exists(),
               (state / ".pending").exists]
    device.start()
    fields = dict(device.open("net").fields()) | {"host": "new", "action": "Submit"}
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        save_under_way = pool.submit(device.post, fields)
        until(moments[int(folder.name) % len(moments)])
        kill_all(folder)
        save_under_way.exception()  # the server is gone, or has already answered
    device.kill()
    run(device, STORE, "boot")
    assert host(device) == "old" and not pending(device)
    device.start()
    assert "Keep the change?" not in device.open("net").body
    device.kill()


@pytest.mark.parametrize("what", [restart, hang_up, reboot])
def test_it_goes_back_in_time_ten_times(tmp_path, what):
    folders = [tmp_path / str(i) for i in range(10)]
    for folder in folders:
        folder.mkdir()
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        list(pool.map(what, folders))
