"""Settings over upgrades: a firmware with another version of a form, the maker's
program that migrates them, and the ways back."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest
from conftest import LIMITS, PRELOAD, SHIM
from orv_test.device import copy_part
from test_store import HASTY, SECONDS, STORE, Device, open_folder, owned_device

EXAMPLES = pathlib.Path(__file__).parents[2] / "examples"
OLD = "older version"
NEW = "newer version"


class Firmware(Device):
    """A device whose maker ships new versions of forms and programs to migrate them."""

    def __init__(self, folder):
        super().__init__(folder)
        self.migrate = self.folder / "migrate"
        self.migrate.mkdir()
        self.log = self.folder / "syslog"
        self.env |= {"ORV_MIGRATE": str(self.migrate)}

    def ship(self, name, text, *program):
        (self.defaults / name).write_text(text)
        if program:
            path = self.migrate / name
            path.write_text("\n".join(["#!/bin/sh", *program, ""]))
            path.chmod(0o755)

    def stored(self, name):
        return (self.state / name).read_text()

    def upgrade(self, program=STORE):
        """The output that the boot script gets."""
        self.log.write_text("")
        return self.run(program, "migrate", env={
            PRELOAD: SHIM, "SYSLOG_FILE": str(self.log),
            "ASAN_OPTIONS": "verify_asan_link_order=0"})


@pytest.fixture
def firmware(tmp_path):
    return Firmware(tmp_path)


VERSIONS = [  # stored, shipped, whether there is a program, the values of a page
    ("#orv 2 7 -\n#table\nv=1\n", "new=1\n", True, None),
    ("#orv 2 7 -\n#table\nv=1\n", "#version 1\nnew=1\n", True, None),
    ("#orv 2 7 -\n#table\n#version 3\nv=1\n", "#version 3\nnew=1\n", True, None),
    ("#orv 2 7 -\n#table\n#version 03\nv=1\n", "#version 3\nnew=1\n", True, None),
    ("#orv 2 7 -\n#table\n#version 2\nv=1\n", "#version 3\nnew=1\n", False, None),
    ("#orv 2 7 -\n#table\n#version 2\nv=1\n", "#version 3\nnew=1\n", True, OLD),
    ("#orv 2 7 -\n#table\nv=1\n", "#version 3\nnew=1\n", True, OLD),
    ("#orv 2 7 -\n#table\n#version 9\nv=1\n", "#version 10\nnew=1\n", True, OLD),
    ("#orv 2 7 -\n#table\n#version 10\nv=1\n", "#version 9\nnew=1\n", False, NEW),
    ("#orv 2 7 -\n#table\n#version 2\nv=1\n", "new=1\n", True, NEW),
    ("#orv 2 7 -\n#table\n#version 2\nv=1\n", None, False, NEW),
    ("#orv 1764090000.12.7 1.2\nv=1\n", "#version 2\nnew=1\n", True, OLD),
    ("v=1\n", "#version 2\nnew=1\n", True, OLD),
    ("#version 2\nv=1\n", "#version 2\nnew=1\n", True, None),
    ("#version 3\nv=1\n", "#version 2\nnew=1\n", True, NEW),
    ("#orv 2 7 -\nv=#version 9\n", "new=1\n", True, None),
    ("#orv 2 7 -\n#table\n#version 999999999\nv=1\n", "new=1\n", True, NEW),
    ("#orv 2 7 -\n#table\n#version 1000000000\nv=1\n", "new=1\n", True, None),
    ("#orv 2 7 -\n#table\n#version 0\nv=1\n", "new=1\n", True, None),
    ("#orv 2 7 -\n", "#version 2\nnew=1\n", True, None),  # as shipped
]


def test_settings_of_another_version_are_never_used(firmware):
    """Program, library and page agree, and none of them writes."""
    for stored, shipped, program, fault in VERSIONS:
        why = (stored, shipped)
        (firmware.state / "f").write_text(stored)
        firmware.ship("f", shipped or "", "cat")
        if shipped is None:
            (firmware.defaults / "f").unlink()
        if not program:
            (firmware.migrate / "f").unlink()
        assert (firmware.load("f") == "fault") == (fault is not None), why
        for told in (firmware.store("load", "f")[1], firmware.script("orv_load f")[1]):
            assert fault is None or f"settings f are of a{'n' * (fault == OLD)} {fault} (" in told, why
        if fault:
            assert fault in firmware.save("> f\nv=2\n")[1] and firmware.stored("f") == stored
            assert firmware.store("reset", "f") == (0, "ok\n")  # the only cure
            assert firmware.load("f") == (["new=1"] if shipped else [])
        else:
            assert firmware.save("> f\nv=2\n")[0] == 0 and "v=2" in firmware.load("f")
            told = (re.findall(r"#version 0*([1-9]\d*)", shipped) + ["1"])[0]
            assert f"\n#version {told}\n" in firmware.stored("f") or told == "1", why


def test_the_maker_s_program_s_output_replaces_the_old_values(firmware):
    """One save of all, reported in log and history, done once."""
    firmware.ship("net", "host=gw\n")
    firmware.ship("keys", "#version 2\nb=1\n")
    assert firmware.save("@table port\n@secret psk\n> net\nhost=a b\nport0=80\npsk=$6$x\n> keys\nk=1\n"
                         "> plain\nv=1\n")[0] == 0
    firmware.ship("net", "#version 12\nname=gw\nnew=1\nnumber0=1\nnumber1=2\n",
                  f'echo "$*" >{firmware.folder}/given; tee -a {firmware.folder}/given | sed '
                  '"s/^port/number/; s/^host=/name=/; /^#table/s/port/number/"; echo x >&2',
                  # Both signals end a program again that does not expect them.
                  'ignored=$(sed -n "s/^SigIgn:.//p" /proc/self/status)',
                  f"echo ignored=$((0x$ignored & {1 << signal.SIGPIPE - 1 | 1 << signal.SIGXFSZ - 1}))")
    firmware.ship("keys", "#version 2\nb=1\n", "exit 9")  # already of that version
    firmware.ship("none", "#version 2\nb=1\n", "exit 9")  # never stored
    assert firmware.load("net") == "fault"
    status, told = firmware.upgrade()
    assert (status, sorted(told.splitlines())) == (0, ["line net: version 1 -> 12", "ok", "x"])
    assert (firmware.folder / "given").read_text().splitlines() == [
        "net 1 12", "#table port", "#secret psk", "host=a b", "port0=80", "psk=$6$x"]
    assert firmware.load("net") == ["ignored=0", "name=a b", "new=1", "number0=80", "psk=$6$x"]
    assert firmware.stored("net").startswith("#orv 2 2 -\n#table number\n#version 12\n#secret psk\n")
    assert "Settings brought to a new version: net: version 1 -> 12\n" in firmware.log.read_text()
    assert re.match(r"@ 2 \d+ - - - migrated\n= net: version 1 -> 12\n@ 1 ", firmware.stored(".history"))
    before = {p.name: p.read_bytes() for p in firmware.state.iterdir() if p.name != ".lock"}
    assert firmware.upgrade() == (1, "")
    assert before == {p.name: p.read_bytes() for p in firmware.state.iterdir() if p.name != ".lock"}


FAULTS = [  # the program, the message about it
    ("cat; exit 3", "it exited with status 3"), ("kill -9 $$", "it was killed by signal 9"),
    ("echo 'sed: no such file'", "a line that is not NAME=VALUE"), ("echo 1a=2", "not NAME=VALUE"),
    (":", "it printed no values"), ("echo '#table x'", "it printed no values"),
    ("echo 'v=$(reboot)'", "a value of v that cannot be stored"), ("printf 'v=a\\tb\\n'", "of v that cannot"),
    ("printf 'v=1\\0\\n'", "a NUL byte"), (f"echo v={'x' * LIMITS['ORV_LINE_MAX']}", "of v that cannot"),
    ("cat; yes v=1", "it printed too much"), ("cat; sleep 999 & echo v=2", "longer than 1 seconds"),
    ("trap '' TERM; sleep 999", "longer than 1 seconds"), ("while :; do echo v=1; sleep 0.1; done", "longer than 1 seconds"), ("exec /nowhere", "it exited with status 127"),
]


def test_a_program_that_fails_leaves_the_old_settings_and_says_so(firmware):
    """In the log and in every page of the form; other forms do not wait for it."""
    old = "#orv 2 7 -\n#table\nv=1\n"
    for program, fault in FAULTS:
        for name in "fg":
            (firmware.state / name).write_text(old)
        firmware.ship("f", "#version 2\n", program)
        firmware.ship("g", "#version 2\n", "cat")
        status, told = firmware.upgrade(HASTY)
        word = f"The settings f stay at version 1: {firmware.migrate}/f should convert them to 2, but "
        assert status == 1 and word in told and fault in told, (program, told)
        assert word in firmware.log.read_text() and "g: version 1 -> 2" in firmware.log.read_text()
        assert firmware.stored("f") == old and firmware.load("g") == ["v=1"], program
        assert OLD in firmware.script("orv_load f")[1]
        assert [n for n in firmware.names() if n.startswith((".new", ".stage", ".commit"))] == []
    # A file that cannot be written, here because it would be too large.
    firmware.ship("f", "#version 2\n", "i=0; while [ $((i += 1)) -lt 99 ]; do echo v$i=aaaaaaaaaaaaaaaa; done")
    told = firmware.run("bash", "-c", 'ulimit -f 1; exec "$@"', "small", STORE, "migrate")[1]
    assert "stay at version 1: " in told and "could not be stored: File too large" in told, told
    assert firmware.stored("f") == old and not [n for n in firmware.names() if n.startswith(".new")]
    (firmware.migrate / "f").chmod(0o644)  # a package without its modes
    assert "status 127" in firmware.upgrade()[1]
    firmware.ship("f", "#version 2\n", "cat")
    (firmware.migrate / "f").chmod(0o755)
    assert firmware.upgrade() == (0, "ok\nline f: version 1 -> 2\n")
    # A downgrade is reported at the boot, and no program runs.
    firmware.ship("f", "v=0\n", f"touch {firmware.folder}/ran")
    status, told = firmware.upgrade()
    assert (status, NEW in told, NEW in firmware.log.read_text()) == (1, True, True)
    assert not (firmware.folder / "ran").exists() and firmware.store("reset") == (0, "ok\n")


def test_a_program_converts_all_files_of_its_form_at_its_own_pace(firmware):
    """Also those of sub-items; here each byte waits until the one before is read."""
    slow = ("import fcntl, os, sys, time", "for byte in b'v=' + sys.argv[1].encode() + b'\\nw=1\\n':",
            "  os.write(1, bytes([byte]))", "  while any(fcntl.ioctl(1, 0x541B, bytes(4))): time.sleep(0.001)")
    firmware.ship("f", "#version 2\n", "cat")
    (firmware.migrate / "f").write_text("\n".join(["#!/usr/bin/python3", *slow, ""]))
    for name in ("f@lan1", "g@lan1"):
        firmware.ship(name, "#version 2\n")
        (firmware.state / name).write_text("v=1\n")
    assert firmware.store("load", "g@lan1") == (0, "ok\nv=1\n")  # there is no program for it
    assert "older version" in firmware.store("load", "f@lan1")[1]
    assert firmware.upgrade() == (0, "ok\nline f@lan1: version 1 -> 2\n")
    assert firmware.store("load", "f@lan1") == (0, "ok\nv=f@lan1\nw=1\n")
    # The first of several faults is printed, all are logged.
    for name in ("a", "b", "c"):
        firmware.ship(name, "#version 2\n", f"exit {ord(name)}")
        (firmware.state / name).write_text("v=1\n")
    status, told = firmware.upgrade()
    logged = re.findall("(?m)^3 (.* with status \\d+)$", firmware.log.read_text())
    assert status == 1 and len(logged) == 3 and told == f"fault {logged[0]}\n", (told, logged)
    firmware.env["ORV_MIGRATE"] = str(firmware.defaults / "a")  # no folder
    assert firmware.load("a") == ["v=1"]


def test_who_may_not_look_for_the_program_does_not_use_the_values(open_folder):
    device, user = owned_device(open_folder)
    hidden = open_folder / "hidden"
    hidden.mkdir(mode=0 if not user else 0o700)
    device.env["ORV_MIGRATE"] = str(hidden / "migrate")
    (device.state / "f").write_text("v=1\n")
    if user:
        os.chown(device.state / "f", user["user"], user["group"])
    (device.defaults / "f").write_text("#version 2\n")
    program = shutil.copy(STORE, open_folder)
    status, text = device.run(program, "load", "f", **user)
    assert status == 1 and "cannot be converted to their version: Permission denied" in text, text
    hidden.chmod(0o755)
    assert device.run(program, "load", "f", **user) == (0, "ok\nv=1\n")


def test_an_upgrade_that_is_killed_has_not_begun(firmware):
    """While a program runs nothing is stored, and the next boot starts over."""
    here = firmware.folder / "here"
    firmware.ship("a", "#version 2\n", "cat")
    firmware.ship("b", "#version 2\n", f"cat; echo $$ >{firmware.folder}/here; exec sleep 999")
    for name in "ab":
        (firmware.state / name).write_text("#orv 2 7 -\n#table\nv=1\n")
    with firmware.start(STORE, "migrate") as upgrade:
        end = time.monotonic() + SECONDS
        while not (here.exists() and here.read_text()):
            assert time.monotonic() < end
            time.sleep(0.02)
        upgrade.kill()
        upgrade.wait()
        os.killpg(int(here.read_text()), signal.SIGKILL)
    assert [firmware.load(n) for n in "ab"] == ["fault", "fault"]
    firmware.ship("b", "#version 2\n", "cat")
    assert firmware.upgrade()[0] == 0 and [firmware.load(n) for n in "ab"] == [["v=1"], ["v=1"]]
    assert sorted(firmware.names()) == [".generation", ".history", ".lock", "a", "b"]


def test_a_pending_change_goes_back_before_the_upgrade(firmware):
    firmware.ship("f", "v=0\n", "sed s/v=/w=/")
    assert firmware.save("> f\nv=1\n")[0] == 0 and firmware.save("@guard 900\n> f\nv=2\n")[0] == 0
    firmware.ship("f", "#version 2\nw=0\n")
    assert "a change waits to be kept or to go back" in firmware.upgrade()[1]
    assert firmware.store("boot")[0] == 0 and firmware.upgrade()[0] == 0
    assert firmware.load("f") == ["w=1"]


def test_a_device_is_upgraded_and_no_restore_goes_back_beyond_it(site):
    """The shipped example, with settings saved by pages of its older firmware."""
    for part in (EXAMPLES / "forms").iterdir():
        copy_part(part, site.folder / "data" / part.name, STORE)
    state, defaults = site.folder / "data/state", site.folder / "data/defaults/upgrade"
    for form, changes in (("fields", {"name": "Hall"}), ("table", {"host0": "printer", "address0": "192.0.2.7"})):
        assert site.open(form).press("Submit", **changes).title == "Saved", form
    before = {p.name: p.read_bytes() for p in state.iterdir() if p.is_file()}
    (state / "upgrade").write_text("#orv 2 1 -\n#table\nseconds=3601\nwarn=False\n")
    page = site.open("upgrade")
    assert "of an older version (1)" in page.errors[0] and not page.buttons()
    env = os.environ | {f"ORV_{n.upper()}": str(site.folder / "data" / n) for n in ("state", "defaults", "migrate")}
    done = subprocess.run([STORE, "migrate"], env=env, text=True, capture_output=True, check=True)
    assert done.stdout == "ok\nline upgrade: version 1 -> 2\n"
    page = site.open("upgrade")
    assert page.errors == [] and page.control("minutes").get("value") == "61"
    for name in ("fields", "table"):  # unchanged in the new firmware
        assert (state / name).read_bytes() == before[name]
    defaults.write_text("#version 2\nminutes=10\nwarn=True\nadded=1\n")
    assert site.open("upgrade").press("Submit", minutes="5").title == "Saved"
    assert "device migrated" in " ".join(site.open("history").tree.itertext())
    ctl = [os.environ["ORVCTL"], "restore"]
    numbers = re.findall(r"^@ (\d+) .* (\w+)$", (state / ".history").read_text(), re.M)
    (migrated,) = [n for n, kind in numbers if kind == "migrated"]
    run = {"cwd": site.folder, "env": os.environ | {"ORV_STORE": STORE}, "text": True, "capture_output": True}
    done = subprocess.run([*ctl, migrated], check=False, **run)
    assert done.returncode == 1 and f"Save {migrated} brought the settings to a new version" in done.stderr
    assert subprocess.run([*ctl, numbers[0][0]], check=False, **run).returncode == 0
    assert "minutes=61\n" in (state / "upgrade").read_text() and "#version 2\n" in (state / "upgrade").read_text()
    # An older firmware again: a clear message, and nothing is written.
    kept = (state / "upgrade").read_bytes()
    defaults.write_text("seconds=600\n")
    shown = " ".join(site.open("upgrade").tree.itertext())
    assert "of a newer version (2) than this device knows (1)" in shown and "Submit" not in shown
    site.post({"cgi_vars_loaded": "1", "form": "upgrade", "action": "Submit", "minutes": "7", "u_minutes": "7"})
    assert (state / "upgrade").read_bytes() == kept
