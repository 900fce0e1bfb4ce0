"""Remote backup and restore over ssh, with the commands of orv(8)."""

import os
import pathlib
import re
import shutil
import socket
import subprocess
import time

import pytest
from conftest import SECONDS
from orv_test.device import copy_part

ROOT = pathlib.Path(__file__).resolve().parents[2]
SBIN = os.environ["PATH"] + ":/usr/sbin:/usr/local/sbin"
SSHD = """\
ListenAddress 127.0.0.1
Port {port}
HostKey {folder}/host
PidFile none
AuthorizedKeysFile {folder}/client.pub
StrictModes no
UsePAM no
PermitRootLogin yes
PasswordAuthentication no
KbdInteractiveAuthentication no
LogLevel ERROR
SetEnv PATH={folder}/bin:/usr/bin:/bin
"""


def sshd():
    """As root it needs its own folder, in a /run that no other process sees."""
    serve = [shutil.which("sshd", path=SBIN), "-D", "-e"]
    if os.geteuid() != 0:
        return serve
    return ["unshare", "-m", "sh", "-c",
            'mount -t tmpfs run /run && mkdir /run/sshd && exec "$@"', "sh", *serve]


class Device:
    """The first form on a device with its own ssh server."""

    def __init__(self, folder):
        self.folder, self.data, self.server = folder, folder / "data", None
        self.data.mkdir(parents=True)
        (folder / "bin").mkdir()
        for part in (ROOT / "examples/first").iterdir():
            copy_part(part, self.data / part.name, os.environ["ORV_STORE"])
        orvctl = folder / "bin/orvctl"
        orvctl.write_text(f"#!/bin/sh\ncd {folder} && exec {os.environ['ORVCTL']} \"$@\"\n")
        orvctl.chmod(0o755)
        for key in ("host", "client"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / key],
                           check=True)

    def start(self):
        """Uses another port if the first is taken."""
        until = time.monotonic() + SECONDS
        while time.monotonic() < until:
            with socket.socket() as one:
                one.bind(("127.0.0.1", 0))
                self.port = one.getsockname()[1]
            (self.folder / "sshd_config").write_text(SSHD.format(folder=self.folder, port=self.port))
            self.server = subprocess.Popen([*sshd(), "-f", self.folder / "sshd_config"])
            while self.server.poll() is None and time.monotonic() < until:
                if self.run("ssh root@device true").returncode == 0:
                    return
                time.sleep(0.1)
        raise AssertionError("sshd does not answer")

    def run(self, command, **given):
        """Runs a command of the manual, where the device is root@device."""
        options = (f"-p {self.port} -i {self.folder}/client -o BatchMode=yes -o LogLevel=ERROR"
                   f" -F none -o StrictHostKeyChecking=no -o UserKnownHostsFile={self.folder}/known"
                   " 127.0.0.1")
        return subprocess.run(["sh", "-c", command.replace("root@device", options)], text=True,
                              capture_output=True, check=False, timeout=SECONDS, **given)

    def stored(self):
        """All values, without the numbers of the saves."""
        return {p.name: re.sub("^#orv .*\n", "", p.read_text())
                for p in (self.data / "state").glob("[a-z]*")}


@pytest.fixture(name="devices")
def fixture_devices(tmp_path):
    devices = [Device(tmp_path / name) for name in ("old", "new")]
    try:
        for device in devices:
            device.start()
        yield devices
    finally:
        for device in devices:
            if device.server is not None:
                device.server.terminate()
                device.server.wait()


def test_a_device_takes_the_place_of_another_by_the_commands_of_the_manual(devices, tmp_path):
    old, new = devices
    manual = (ROOT / "docs/man/orv.8").read_text()
    backup, restore = re.findall("^ssh root@device .*(?:dump|apply).*$", manual, re.M)
    assert old.run("ssh root@device orvctl set clock server=hall.example").returncode == 0
    assert old.run(backup, cwd=tmp_path).returncode == 0
    assert not (new.data / "state/clock").exists()
    assert new.run(restore, cwd=tmp_path).returncode == 0
    assert new.stored() == old.stored() == {"clock": "#table\nserver=hall.example\n"}
    # Half a backup, as after a lost connection, changes nothing.
    text = (tmp_path / "device.txt").read_text()
    (tmp_path / "device.txt").write_text(text.replace("hall", "other") + "form nosuch\nx=1\n")
    assert new.run(restore, cwd=tmp_path).returncode == 1 and new.stored() == old.stored()
