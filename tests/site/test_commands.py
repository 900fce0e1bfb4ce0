"""orv-store where no page starts it: on a device without a folder of settings or
with one that cannot be reached, with closed streams, with few open files."""

import os
import re
import shutil
import subprocess

import pytest
from conftest import PRELOAD, SECONDS, SHIM
from test_store import NOBODY, STORE, device, locked, open_folder, owned_device

# What looks at the settings, and says nothing where there are none.
LOOKS = {"load f": (0, "ok\n"), "history": (0, ""), "confirm": (1, (
    "fault No change waits to be kept: somebody kept it, or the old settings are back.\n"))} | dict.fromkeys(
    ("pending", "watch token", "arm token", "boot", "expire", "migrate"), (1, ""))


def test_only_what_stores_makes_the_folder(device):
    device.env["ORV_STATE"] = str(device.folder / "new/state")
    for words, expected in LOOKS.items():
        assert device.store(*words.split()) == expected, words
    assert not (device.folder / "new").exists()
    device.state.joinpath("file").touch()
    device.env["ORV_STATE"] = str(device.state / "file/state")
    fault = "fault The settings cannot be reached: Not a directory (folder "
    for words in (*LOOKS, "reset", "reset f", "store - f", f"input {os.getpid()} f", f"serve {os.getpid()} f", "act name"):
        status, text = device.store(*words.split(), given="> f\nv=1\n", env={"ORV_TRANSACTION": "x"})
        assert status == 1 and fault in text and text.count("\n") == 1 + words.startswith("serve"), words
    log = {PRELOAD: SHIM, "SYSLOG_FILE": str(device.folder / "log"), "ASAN_OPTIONS": "verify_asan_link_order=0"}
    assert device.store("log", given="kept", env=log) == (0, "")  # all the same
    assert (device.folder / "log").read_text() == "5 kept (somebody)\n"


def test_places_that_are_not_given_are_those_of_the_device(device):
    """A blank place is none.  The maker's program gets the folder in its environment."""
    device.env = {"PATH": os.environ["PATH"]}
    data = device.folder / "data"
    for name in ("templates", "defaults", "migrate", "actions"):
        (data / name).mkdir(parents=True)
    (data / "templates/f.tpl").write_text("title T\nbody\nfield v\nlabel Value\n")
    (data / "actions/f").touch()
    blank = dict.fromkeys(("ORV_STATE", "ORV_DEFAULTS", "ORV_TEMPLATES", "ORV_MIGRATE", "ORV_ACTIONS"), "")
    for env in ({}, blank):
        (data / "defaults/f").write_text("other=1\n")
        (data / "migrate/f").unlink(missing_ok=True)
        here = {"env": env, "cwd": device.folder}
        assert device.store("reset", **here) == (0, "ok\n")
        assert "line Value: blank -> 1\n" in device.store("store", "-", "f", given="> f\nv=1\n", **here)[1]
        assert device.store("load", "f", **here) == (0, "ok\nother=1\nv=1\n")
        assert "larkspur-acts does not run" in device.store("act", "f", **here)[1]
        (data / "defaults/f").write_text("#version 2\n")
        (data / "migrate/f").write_text("#!/bin/sh\necho place=$ORV_STATE\n")
        (data / "migrate/f").chmod(0o755)
        assert device.store("migrate", **here) == (0, "ok\nline f: version 1 -> 2\n")
        assert device.store("load", "f", **here) == (0, "ok\nplace=data/state\n")
        here["env"] = env | {"ORV_MIGRATE": "/nowhere", "ORV_DEFAULTS": str(device.defaults)}
        assert device.store("load", "f", **here)[0] == 1  # of a newer version than without its defaults


def test_closed_streams_change_neither_answers_nor_files(device):
    """The first file that is opened then gets the number 0, or that of the output."""
    (device.folder / "f.sh").symlink_to(STORE)
    (device.defaults / "old").write_text("#version 2\n")
    device.env |= {"ORV_MIGRATE": str(device.folder), "ORV_ACTS": str(device.folder)}
    (device.folder / "old").write_text("#!/bin/sh\necho v=2\n")
    (device.folder / "old").chmod(0o755)
    (device.folder / "f.tpl").write_text("title T\nbody\nfield v 9\n")
    (device.state / "old").write_text("#orv 2 1 -\n#table\nv=1\n")
    assert device.save("> f\nv=1\n> g\nw=1\n")[0] == 0
    kept = shutil.copytree(device.state, device.folder / "kept")
    answer = device.save("@guard 900 run\n> f\nv=2\n")[1]
    (token,) = re.findall("^guard (.*)$", answer, re.M)
    pending = shutil.copytree(device.state, device.folder / "waits")
    info = pending / ".pending/.info"
    overdue = shutil.copytree(pending, device.folder / "overdue")
    (overdue / ".pending/.info").write_text(re.sub("(?m)^until=.*", "until=1", info.read_text()))

    def run(state, words, closed):
        shutil.rmtree(device.state)
        shutil.copytree(state, device.state)
        program = str(device.folder / "f.sh") if words.startswith("--") else STORE
        status, text = device.run("bash", "-c", f'exec "$@" {closed}', "closed", program, *words.split())
        files = {str(p.relative_to(device.state)): re.sub(r"(?m)^(@ \d+ |until=|clock=).*", r"\1", p.read_text())
                 for p in device.state.rglob("*") if p.is_file() and p.name != ".lock"}
        return status, re.sub(r'(?m)^(left=|orv_stamp="\d+).*|\(folder.*', r"\1", text), files
    for state, words in ((kept, "load f g"), (kept, "history"), (kept, "migrate"), (kept, "reset"), (kept, "reset f"),
                         (kept, "--read f"), (kept, "--navbar"), (kept, "act f"), (kept, "confirm"), (pending, "pending"),
                         (pending, f"arm {token}"), (pending, "confirm"), (pending, "boot"), (pending, "--navbar"),
                         (overdue, "expire"), (overdue, f"watch {token}")):
        status, text, files = run(state, words, "")
        assert run(state, words, "<&-") == (status, text, files), words
        assert run(state, words, "2>&-") == (status, text, files), words
        for closed in (">&-", "<&- >&- 2>&-"):
            assert run(state, words, closed)[1:] == ("", files), (words, closed)


def test_no_file_stays_open_behind_each_form(device):
    """However many forms are migrated, reset or put back at once."""
    device.env["ORV_MIGRATE"] = str(device.folder / "migrate")
    (device.folder / "migrate").mkdir()
    few = ("bash", "-c", 'ulimit -n 20; exec "$@"', "few", STORE)
    names = [f"f{i}" for i in range(40)]
    for name in names:
        (device.state / name).write_text("v=1\n")
        (device.defaults / name).write_text("#version 2\n")
        program = device.folder / "migrate" / name
        program.write_text("#!/bin/sh\nexec cat\n")
        program.chmod(0o755)
    status, text = device.run(*few, "migrate")
    assert (status, sorted(text.splitlines())) == (0, sorted([*(f"line {n}: version 1 -> 2" for n in names), "ok"]))
    order = "@guard 900\n" + "".join(f"> {n}\nv=2\n" for n in names)
    assert device.run(*few, "store", "-", "f", given=order)[0] == 0
    assert device.run(*few, "boot")[0] == 0
    assert device.run(*few, "load", *names)[1].count("v=1\n") == len(names)
    assert device.run(*few, "reset") == (0, "ok\n")
    assert device.run(*few, "load", *names) == (0, "ok\n")


def test_a_fault_names_the_user_and_stays_one_line(open_folder):
    device, user = owned_device(open_folder)
    device.state.chmod(0)
    program = shutil.copy(STORE, open_folder)
    if not user:
        pytest.skip("only root can become other users")
    for number, name in ((NOBODY, "nobody"), (54321, "number 54321")):
        status, text = device.run(program, "load", "f", user=number, group=number, extra_groups=[])
        assert status == 1 and text.endswith(f": Permission denied (folder {device.state}, user {name})\n"), text
    name = "a\x1b[2J\x7f\n" + "x" * 200
    for place in (device.state / name, device.state / "file/state"):
        device.env["ORV_STATE"] = str(place)
        status, text = device.run(program, "load", "f", user=NOBODY, group=NOBODY, extra_groups=[])
        assert status == 1 and re.fullmatch("fault [ -~]+\n", text) and len(text) <= 246, text
    # Root itself cannot become a user that it has no rights over.
    device.env["ORV_STATE"] = str(device.state)
    status, text = device.run("unshare", "-r", program, "load", "f")
    assert status == 1 and text.startswith("fault Root cannot switch to the owner of the settings: "), text


def test_who_may_not_look_for_an_action_leaves_it_to_the_service(open_folder):
    device, user = owned_device(open_folder)
    actions = open_folder / "above/actions"
    actions.mkdir(parents=True)
    device.env |= {"ORV_ACTIONS": str(actions), "ORV_ACTS": "/nowhere"}
    program = shutil.copy(STORE, open_folder)
    for closed in (actions, actions.parent):
        assert "this device has no action name" in device.run(program, "act", "name", **user)[1]
        closed.chmod(0o700 if user else 0)
        assert "larkspur-acts does not run" in device.run(program, "act", "name", **user)[1], closed
        assert "is not a valid name" in device.run(program, "act", "NAME", **user)[1]
        closed.chmod(0o755)


def test_who_waits_learns_who_holds_the_lock(device):
    """Whatever user and form say, it is one line; of a holder without a name, too."""
    hasty = os.environ["ORV_STORE_HASTY"]
    words = "Please try again\n"
    for form, env, holder in (
            ("net", {}, "net by somebody"), ("f" * 40, {"REMOTE_USER": "eve"}, f"{'f' * 30} by eve"),
            ("n\nx", {"REMOTE_USER": "a b\n$(x)", "REMOTE_ADDR": "fe80::1%eth0"}, "n?x by a_b___x_ at fe80::1_eth0"),
            ("net", {"REMOTE_USER": "Ann.Z_9@x-y", "REMOTE_ADDR": "10.0.0.9"}, "net by Ann.Z_9@x-y at 10.0.0.9"),
            ("net", {"REMOTE_USER": "a/:[`{z", "REMOTE_ADDR": "a/@[`{z"}, "net by a_____z at a_____z"),
            ("net", {"REMOTE_USER": "u" * 70, "REMOTE_ADDR": "a" * 70}, None)):
        with locked(device, form, **env):
            status, text = device.save("> f\nv=1\n", hasty)
            assert (status, text.count("\n"), text[-len(words):]) == (1, 1, words)
            found = re.search("have been in use by (.*) for more than 1 seconds", text)[1]
            assert found == holder or holder is None and re.fullmatch("net by u{10,} at a{10,}", found), found
    lock = device.state / ".lock"
    lock.write_text("")
    with subprocess.Popen(["flock", lock, "-c", "echo; exec sleep 999"], stdout=subprocess.PIPE) as holder:
        holder.stdout.readline()
        assert "have been in use by another save for more" in device.save("> f\nv=1\n", hasty)[1]
        holder.kill()


class Server:
    """A conversation with orv-store as a script has it, without the library."""

    def __init__(self, device, given=""):
        self.script = device.start("sleep", "999")
        self.process = device.start(STORE, "serve", str(self.script.pid), "f")
        self.process.stdin.write(given)
        self.process.stdin.close()
        ok, numbers = self.answer().splitlines()
        self.pid, out, holder = numbers.split()
        assert (ok, holder) == ("ok", "1")
        self.requests = open(f"/proc/{self.pid}/fd/{out}", "w", encoding="utf-8")

    def answer(self):
        length = self.process.stdout.buffer.readline()
        return self.process.stdout.buffer.read(int(length)).decode() if length else "over"

    def ask(self, request):
        self.requests.write(request)
        self.requests.flush()
        return self.answer()

    def end(self):
        self.requests.close()
        self.script.kill()
        self.script.wait()
        said = self.process.stdout.buffer.read().decode()  # the server holds it until it ends
        self.process.wait(SECONDS)
        return said


def test_a_script_reads_and_stores_by_requests_of_one_line(device):
    given = 'new_a="1"\nnew_b="say "it""\nnew_c="$x"\nnew_port0="80"\nnew_port1="8"0"\nnew_port100="x"\nnew_port007="x"\n'
    server = Server(device, given)
    for request, answer in (
            ("read a", "ok\n \n \na=1\n"), ("read  a   A c ", "ok\n \n \na=1\nA=1\nc=$x\n"),
            ("read a b none", "ok\n \n b \na=1\n"), ("read port#", "ok\n port \n port1 \nport0=80\n"),
            ("read #", "ok\n \n \n"), ("read ##", "ok\n \n \n"), ("read b PORT# b", "ok\n PORT \n b PORT1 b \nPORT0=80\n"),
            ("store 0", "fault Nothing was saved: the script's order is too long\n"),
            (f"store {3 * 1024 * 1024 + 1}", "fault Nothing was saved: the script's order is too long\n"),
            ("store 3\n> \n", "fault This is not a valid name of a settings file.\n"),
            ("store 8\n> f\nv=1\n", "ok\npage v: blank → 1$L$\nline v: blank -> 1\n"),
            ("store 8\n> f\nv=1\n", "ok\n"), ("unlock", "ok\n"), ("unlock", "ok\n"), ("lock", "ok\n"),
            ("store 12\n> f\nv=1\nw=2\n", "ok\npage w: blank → 2$L$\nline w: blank -> 2\n")):
        assert server.ask(request + "\n" * (not request.endswith("\n"))) == answer, request
    assert server.end() == "" and device.load("f") == ["v=1", "w=2"]
    for request in ("\n", "read\n", "lock \n", "stores 1\n", "STORE 8\n", "x" * 5000 + "\n"):
        server = Server(device)
        assert server.ask(request) == "over", request
        assert server.end() == "" and device.save("> g\nv=1\n")[0] == 0


def test_each_byte_of_a_large_request_counts(device):
    """Also where a read ends: with a line that is one byte longer or shorter."""
    path = device.folder / "request"
    for size in (0, 1, 2, 65535, 65536, 65537, 131072, 131073):
        blank = size - len('new_b="2"\n')
        path.write_text(("\n" * blank if blank > 0 else "") + 'new_b="2"\n'[-size:] * (size > 0))
        with path.open() as file:
            done = subprocess.run([STORE, "input", "-", "f"], stdin=file, env=device.env, text=True,
                                  stdout=subprocess.PIPE, check=False)
        assert done.stdout == "ok\nholder 0\n" + "b=2\n" * (blank >= 0), size
    limit = 8 * 1024 * 1024
    assert device.store("input", "-", "f", given="\n" * limit) == (0, "ok\nholder 0\n")
    fault = (1, "fault The request has more fields than any page of this device\n")
    assert device.store("input", "-", "f", given="\n" * (limit + 1)) == fault
    # Fields that the form does not have: so many, and not one more.
    (device.folder / "f.tpl").write_text("title T\nbody\nfield host\nfield host_name\n")
    others = [f'new_x{i}y="1"\n' for i in range(1001)]
    own = 'new_host="1"\nnew_host_name="2"\n'
    assert device.store("input", "-", "f", given=own + "".join(others[:1000]))[0] == 0
    assert device.store("input", "-", "f", given=own + "".join(others)) == fault
    assert device.store("input", "-", "none", given=own + "".join(others[:999])) == fault
    assert device.store("input", "-", "none", given="".join(others[:1000]))[0] == 0
