"""Ten devices, reached over ssh, with nothing but a shell and orvctl."""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "tools"))
from orv_test.device import copy_part  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
ANSIBLE = ROOT / "packaging/ansible"
DEVICES = 10
SHARING = 5  # the device whose commands share a connection
SSH_ARGS = "-o StrictHostKeyChecking=no -o UserKnownHostsFile={folder}/known"
SECRET = "correct horse battery"
# The programs that a device's scripts start, and a shell for Ansible; no
# Python.
PROGRAMS = ("sh", "bash", "env", "sleep", "cat", "rm")
SSHD = """\
ListenAddress 127.0.0.1
{ports}
HostKey {folder}/host
PidFile none
AuthorizedKeysFile {folder}/client.pub
StrictModes no
UsePAM no
PermitRootLogin yes
PasswordAuthentication no
KbdInteractiveAuthentication no
LogLevel INFO
"""
DEVICE = """\
Match LocalPort {port}
  SetEnv PATH={folder}/bin
"""


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def make_device(folder):
    """A folder with the forms of the examples, and its own PATH."""
    (folder / "data").mkdir()
    for part in (ROOT / "examples/forms").iterdir():
        copy_part(part, folder / "data" / part.name, os.environ["ORV_STORE"])
    for part in ("clock.tpl",):
        shutil.copy(ROOT / "examples/first/templates" / part, folder / "data/templates")
    (folder / "data/scripts/clock.sh").symlink_to(os.environ["ORV_STORE"])
    (folder / "bin").mkdir()
    for name in PROGRAMS:
        (folder / "bin" / name).symlink_to(shutil.which(name))
    orvctl = folder / "bin/orvctl"
    orvctl.write_text(f"#!/bin/sh\ncd {folder} && exec {os.environ['ORVCTL']} \"$@\"\n")
    orvctl.chmod(0o755)


@pytest.fixture(name="devices", scope="module")
def fixture_devices(tmp_path_factory):
    sbin = "/usr/sbin:/usr/local/sbin:" + os.environ["PATH"]
    for program, package in (("ansible-playbook", "ansible-core"), ("sshd", "openssh-server"),
                             ("ssh", "openssh-client")):
        assert shutil.which(program, path=sbin), f"missing: apt-get install {package}"
    folder = tmp_path_factory.mktemp("ansible")
    for key in ("host", "client"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                        folder / key], check=True)
    names = [f"gateway-{n}" for n in range(DEVICES)]
    ports = free_ports(DEVICES)
    config = SSHD.format(folder=folder, ports="\n".join(f"Port {p}" for p in ports))
    inventory = {}
    for name, port in zip(names, ports):
        (folder / name).mkdir()
        make_device(folder / name)
        config += DEVICE.format(port=port, folder=folder / name)
        inventory[name] = {"ansible_host": "127.0.0.1", "ansible_port": port}
    # One whose commands share a connection, as Ansible does by default.
    inventory[names[SHARING]] |= {
        "ansible_ssh_common_args": SSH_ARGS.format(folder=folder),
        "ansible_ssh_args": "-o ControlMaster=auto -o ControlPersist=15s"}
    (folder / "sshd_config").write_text(config)
    (folder / "hosts.json").write_text(json.dumps({"all": {
        "hosts": inventory, "vars": {
            "ansible_ssh_private_key_file": str(folder / "client"),
            "ansible_python_interpreter": "/none",
            "ansible_ssh_common_args":
            SSH_ARGS.format(folder=folder) + " -o ControlPath=none"}}}))
    made = not os.path.exists("/run/sshd") and os.geteuid() == 0
    if made:
        os.mkdir("/run/sshd")
    server = subprocess.Popen([shutil.which("sshd", path=sbin),
                               "-D", "-E", folder / "sshd.log", "-f", folder / "sshd_config"])
    for port in ports:
        wait_for(port, server)
    yield Devices(folder, names)
    server.terminate()
    server.wait()
    if made:
        os.rmdir("/run/sshd")


def wait_for(port, server):
    for _ in range(600):
        assert server.poll() is None, "sshd has ended"
        with socket.socket() as one:
            if one.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.1)
    raise AssertionError("sshd does not answer")


class Devices:
    def __init__(self, folder, names):
        self.folder, self.names, self.runs = folder, names, 0

    def logins(self):
        return (self.folder / "sshd.log").read_text().count("Accepted publickey")

    def play(self, *tasks, options=(), hosts="all"):
        """Runs tasks; returns each host's result of the last one."""
        playbook = self.folder / "play.json"
        playbook.write_text(json.dumps([{
            "hosts": hosts, "gather_facts": False,
            "tasks": [{"orvctl": task, "ignore_errors": True} for task in tasks]}]))
        return self.run(playbook, *options)

    def run(self, playbook, *options):
        results = self.folder / "results"
        results.write_text("")
        self.runs += 1
        done = subprocess.run(
            ["ansible-playbook", "-i", self.folder / "hosts.json", playbook, *options],
            env=os.environ | {
                "ANSIBLE_ACTION_PLUGINS": str(ANSIBLE / "action_plugins"),
                "ANSIBLE_LIBRARY": str(ANSIBLE / "library"),
                "ANSIBLE_CALLBACK_PLUGINS": str(HERE / "callback_plugins"),
                "ANSIBLE_CALLBACKS_ENABLED": "results", "RESULTS": str(results),
                "ANSIBLE_FORKS": str(DEVICES),
                # No run shares a connection with an earlier one.
                "ANSIBLE_SSH_CONTROL_PATH_DIR": str(self.folder / f"ssh{self.runs}"),
                "ANSIBLE_SSH_RETRIES": "3", "ANSIBLE_HOME": str(self.folder / "home"),
                "HOME": str(self.folder), "LC_ALL": "C.UTF-8"},
            stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        found = results.read_text()
        assert SECRET not in done.stdout + done.stderr + found
        assert found, done.stdout + done.stderr
        return dict(map(json.loads, found.splitlines()))

    def all(self, results, **members):
        """Asserts that every device answered with these members."""
        assert sorted(results) == sorted(self.names)
        for name, result in results.items():
            for member, value in members.items():
                assert result.get(member, False) == value, (name, result)
        return results[self.names[0]]

    def settings(self, name, form):
        path = self.folder / name / "data/state" / form
        return path.read_text() if path.exists() else ""


WANTED = {"forms": {
    "clock": {"server": "ntp.example"},
    "secret": {"ssid": "Hall", "wifi_passphrase": SECRET},
    "table": {"routes": [{"route_use": "yes", "route_to": "10.0.0.0/8", "route_via": "192.0.2.1"},
                         {"route_use": "no", "route_to": "10.1.0.0/16", "route_via": "192.0.2.2"}]},
}}


def test_one_run_reaches_the_wanted_state_and_the_second_changes_nothing(devices):
    judged = devices.all(devices.play(WANTED, options=("--check", "--diff")), changed=True)
    assert judged["changes"]["clock"] and judged["diff"]
    assert devices.settings(devices.names[0], "clock") == "", "--check stores nothing"

    first = devices.all(devices.play(WANTED), changed=True, failed=False)
    assert any(line.startswith("New passphrase: ") for line in first["changes"]["secret"])
    for name in devices.names:
        assert "server=ntp.example\n" in devices.settings(name, "clock")
        assert f"wifi_passphrase={SECRET}\n" in devices.settings(name, "secret")
        assert "route_to1=10.1.0.0/16\n" in devices.settings(name, "table")
    assert devices.all(devices.play(WANTED), changed=False, failed=False)["changes"] == {}

    fewer = {"forms": {"table": {"routes": WANTED["forms"]["table"]["routes"][1:]}}}
    shown = devices.all(devices.play(fewer), changed=True)
    (line,) = shown["changes"]["table"]
    assert line.endswith(": 10.0.0.0/8, 192.0.2.1, On")


@pytest.mark.parametrize("task, message", [
    ({"forms": {"clock": {"server": "not a host"}}}, "server: Invalid address"),
    ({"forms": {"clock": {"serve": "a"}}}, "serve"),
    ({"forms": {"nothing": {"a": "b"}}}, "nothing"),
    ({"forms": {"clock": {"server": "a\nform secret\nssid=x"}}}, "must be one line of text"),
    ({"forms": {"clock": {"server": "a\\x41"}}}, "not allowed"),  # no "aA"
    ({"forms": {"clock": {"a=b": "x"}}}, "not a valid name of a field"),
    ({"forms": ["clock"]}, "not a dictionary"),
    ({"froms": {}}, "unknown option"),
    ({"forms": {}, "reset": "all"}, "give one of"),
    ({"restore": 999}, "999"),
    ({"forms": {"clock": {}}, "command": "orvctl-is-not-here"}, "not found"),
])
def test_a_refusal_gives_the_reason_and_stores_nothing(devices, task, message):
    name = devices.names[0]
    before = devices.settings(name, "clock")
    # A valid form beside the invalid one is not stored either.
    if "forms" in task and isinstance(task["forms"], dict):
        task["forms"] = {"fields": {"name": "other"}, **task["forms"]}
    result = devices.play(task, hosts=name)[name]
    assert result.get("failed") and not result.get("changed"), result
    assert message in result["msg"], result["msg"]
    assert devices.settings(name, "clock") == before
    assert "other" not in devices.settings(name, "fields")


def test_a_backup_makes_another_device_the_same(devices):
    old, new = devices.names[1:3]
    devices.play(WANTED, hosts=old)
    devices.play({"reset": "all"}, hosts=new)
    folder = devices.folder / "backup"
    run = ["-vvv", "-e", f"folder={folder}", "-l"]  # prints what no task hides
    assert devices.run(ANSIBLE / "playbooks/backup.yml", *run, old)[old]["changed"]
    assert not devices.run(ANSIBLE / "playbooks/backup.yml", *run, old)[old]["changed"]
    backup = folder / f"{old}.txt"
    assert SECRET in backup.read_text() and backup.stat().st_mode & 0o777 == 0o600
    backup.rename(folder / f"{new}.txt")
    assert devices.run(ANSIBLE / "playbooks/replace.yml", *run, new)[new]["changed"]
    for form in ("clock", "secret", "table"):
        lines = [text.splitlines() for text in (
            devices.settings(old, form), devices.settings(new, form))]
        assert [n for n in lines[0] if n[0] != "#"] == [n for n in lines[1] if n[0] != "#"]


def test_one_setting_everywhere_and_back(devices):
    playbook = ANSIBLE / "playbooks/time-server.yml"
    devices.all(devices.run(playbook, "-e", "server=time.example"), changed=True)
    devices.all(devices.run(playbook, "-e", "server=time.example"), changed=False)
    name = devices.names[4]
    listed = subprocess.run([devices.folder / name / "bin/orvctl", "--json", "history"],
                            capture_output=True, check=True, text=True).stdout
    number = json.loads(listed)[0]["number"]
    back = devices.play({"restore": number}, hosts=name)[name]
    assert back["changed"] and "server=time.example" not in devices.settings(name, "clock")


def test_a_guarded_change_is_kept_by_a_second_connection_or_goes_back(devices):
    name = devices.names[SHARING]
    task = {"forms": {"guard": {"address": "192.0.2.7/24"}}}
    left = devices.play(task, hosts=name)[name]
    assert left["changed"] and "goes back" in left["warnings"][0], left
    confirm = devices.folder / name / "data/state/.pending"
    assert confirm.is_dir(), "nobody has kept it"
    before = devices.logins()
    kept = devices.play({"forms": {"guard": {"address": "192.0.2.8/24"}}, "keep": True},
                        hosts=name)[name]
    assert kept["changed"] and kept["kept"], kept
    assert not confirm.exists()
    assert devices.logins() - before >= 2, "kept through the connection that made the change"
    assert "address=192.0.2.8/24\n" in devices.settings(name, "guard")


def test_a_device_that_became_unreachable_goes_back(devices):
    name = devices.names[6]
    script = devices.folder / name / "data/scripts/guard.sh"
    script.write_text(script.read_text().replace("orv_guard 120 apply", "orv_guard 5 apply"))
    before = devices.settings(name, "guard")
    lost = devices.play({"forms": {"guard": {"address": "192.0.2.9/24"}}, "keep": True,
                         "keep_host": "127.0.0.99"}, hosts=name)[name]
    assert lost["failed"] and "goes back" in lost["msg"], lost
    for _ in range(600):
        if "192.0.2.9" not in devices.settings(name, "guard"):
            break
        time.sleep(0.1)
    assert [line for line in devices.settings(name, "guard").splitlines()
            if line[0] != "#"] == [line for line in before.splitlines() if line[0] != "#"]
