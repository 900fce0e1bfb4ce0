"""The device's own certificate and login, made before its pages are served."""

import json
import os
import pathlib
import re
import shutil
import stat
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FIRST_START = ROOT / "packaging/boot/larkspur-first-start"
PLACES = "/usr/sbin:/usr/bin:/sbin:/bin"
TOOLS = ("id", "chmod", "chown", "sync", "mv", "mkdir", "find", "uname", "date", "tr",
         "cut", "sed", "head", "cat", "rm", "busybox")


def fits(password, stored):
    """Whether the hash belongs to the password."""
    _, kind, salt, _ = stored.split("$")
    made = subprocess.run(["openssl", "passwd", f"-{kind}", "-salt", salt, "-stdin"],
                          input=password, capture_output=True, text=True, check=True)
    return made.stdout.strip() == stored


class Device:
    def __init__(self, folder):
        self.folder, self.etc = folder, folder / "etc" / "larkspur"
        self.state = folder / "lib" / "larkspur" / "state"
        self.console = folder / "console"
        self.console.touch()
        (folder / "default").write_text(f"ORV_STATE={self.state}\n")

    def start(self, shell="sh", script=FIRST_START, path=PLACES):
        """Runs it; returns its output on standard error."""
        run = subprocess.run(
            [*shell.split(), script], capture_output=True, text=True, check=False,
            stdin=subprocess.DEVNULL,
            env={"PATH": str(path), "LARKSPUR_ETC": str(self.etc),
                 "LARKSPUR_DEFAULT": str(self.folder / "default"),
                 "LARKSPUR_CONSOLE": str(self.console)})
        assert (run.returncode, run.stdout) == (0, ""), run.stderr
        return run.stderr

    def modes(self):
        return {p.name: oct(stat.S_IMODE(p.stat().st_mode))[2:]
                for p in [*self.etc.iterdir(), self.state]}

    def password(self):
        """The first password, after checking that it logs in."""
        password = (self.etc / "first-password").read_text().strip()
        name, stored = (self.etc / "login").read_text().strip().split(":")
        assert name == "admin" and fits(password, stored)
        return password


@pytest.fixture
def device(tmp_path):
    return Device(tmp_path)


@pytest.mark.parametrize("shell", ["dash", "busybox sh"])
def test_a_device_gets_a_certificate_and_a_password_of_its_own_once(device, shell):
    assert device.start(shell) == ""
    assert device.modes() == {"tls.pem": "600", "login": "640", "state": "700",
                              "first-password": "600"}
    assert device.console.read_text().count(device.password()) == 1
    if os.getuid() == 0:
        assert (device.etc / "login").group() == device.state.owner() == "www-data"
    subprocess.run(["openssl", "x509", "-noout", "-checkend", str(15 * 365 * 86400),
                    "-in", device.etc / "tls.pem"], check=True, capture_output=True)
    before = {p: p.read_bytes() for p in device.etc.iterdir()}
    device.start(shell)
    assert {p: p.read_bytes() for p in device.etc.iterdir()} == before
    (device.folder / "other").mkdir()
    other = Device(device.folder / "other")
    other.start(shell)
    assert other.password() != device.password()
    assert (other.etc / "tls.pem").read_bytes() != before[device.etc / "tls.pem"]


@pytest.mark.parametrize("left", ["first-password", "first-password.new login.new",
                                  "first-password tls.pem.new"])
def test_remains_of_a_power_cut_are_replaced(device, left):
    device.etc.mkdir(parents=True)
    for name in left.split():
        (device.etc / name).write_text("x\n")
    device.start()
    assert device.password() != "x"
    assert b"PRIVATE KEY" in (device.etc / "tls.pem").read_bytes()
    assert not list(device.etc.glob("*.new"))


def test_without_openssl_there_is_a_login_and_no_certificate(device):
    tools = device.folder / "bin"
    tools.mkdir()
    for tool in TOOLS:
        (tools / tool).symlink_to(shutil.which(tool))
    copy = device.folder / "first-start"
    copy.write_text(FIRST_START.read_text().replace(PLACES, ""))
    assert "no openssl" in device.start("/bin/sh", copy, tools)
    assert device.password() and not (device.etc / "tls.pem").exists()


def test_pages_terminal_and_actions_keep_settings_in_one_folder():
    """With different folders, a backup would be empty, and a reset would reset nothing."""
    presets = json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]
    (built,) = [p["cacheVariables"]["ORV_STATE_DIR"] for p in presets if p["name"] == "release"]
    for file in ("boot/larkspur.default", "boot/larkspur-first-start", "servers/start",
                 "act/larkspur-acts"):
        text = (ROOT / "packaging" / file).read_text()
        assert set(re.findall(r"ORV_STATE(?:=|:-|:=)(/[a-z/]+)", text)) == {built}, file
