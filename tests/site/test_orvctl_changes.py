"""How orvctl reports a change, and what a backup contains and restores."""

import json
import os
import pathlib
import resource
import subprocess

import pytest

from conftest import ADDED, CHANGED, DELETED, LIMITS, LONG, PRELOAD, SHIM, Site
from test_orvctl import ORVCTL, demo, run, stored

ROWS = LIMITS["ORV_STORED_ROWS_MAX"]

TOLD = f"""
rows forwards forwards delete 1 2
  {DELETED}8080, 192.168.1.50, 80, Camera, TCP
  {DELETED}51820, 192.168.1.60, Tunnel to the office, UDP, Paused
rows forwards forwards add fw_port=81 fw_address=192.168.1.7
  {ADDED}81, 192.168.1.7, TCP
rows forwards forwards change 2 fw_off=no fw_port=81 fw_proto=tcp
  Paused, row 2: on → off
  Protocol, row 2: UDP → TCP
  Outside port, row 2: 51820 → 81
rows forwards forwards delete 1
  {DELETED}8080, 192.168.1.50, 80, Camera, TCP
set wireless wl_on=True wl_name=Larch wl_passphrase=correct-horse wl_band=2 wl_hidden=yes
  Wireless: off → on
  Network name: Larkspur → Larch
  Hidden: off → on
  Passphrase{CHANGED}
  Band: Both → 2.4 GHz, longer range
set network ip6_mode=off dns1=9.9.9.9
  IPv6: Automatic → Off
  Name server: blank → 9.9.9.9
rows users users change 1 us_password=correct-horse
  New password, row 1{CHANGED}
"""


def test_changes_are_reported_in_the_words_of_the_page(site):
    for block in TOLD.strip().replace("\n  ", "\t").split("\n"):
        words, *lines = block.split("\t")
        words = words.split(" ")
        for way in (["--dry-run"], ["--dry-run", "--json"], ["--json"], []):
            if way != ["--dry-run", "--json"]:  # start with the same settings
                subprocess.run(["rm", "-rf", site.folder / "data"], check=True)
                demo(site)
            done = run(site, *way, *words, expect=0).stdout
            if "--json" in way:
                result = json.loads(done)
                assert result["changed"] is True and lines == [c["text"] for c in result["changes"]]
                assert "correct-horse" not in done
            else:
                assert done.split("\n")[1:-1] == lines, words
    run(site, *words, expect=0)
    assert json.loads(run(site, "--json", "set", "network", "dns1=").stdout)["changed"] is False
    rows = json.loads(run(site, "--json", "--dry-run", "rows", "forwards", "forwards", "change", "2",
                          "fw_off=no", "fw_proto=tcp").stdout)["changes"]
    assert [(c["kind"], c["name"], c["row"], c["from"], c["to"]) for c in rows] == [
        ("cell", "fw_off1", 2, True, False), ("cell", "fw_proto1", 2, "UDP", "TCP")]
    assert json.loads(run(site, "--json", "get", "port/lan1", "port_on").stdout) == {"port_on": True}
    assert {f["input"] for f in json.loads(run(site, "--json", "forms").stdout)} == {True, False}


def test_a_backup_holds_hashes_and_no_page_can_bring_one(site):
    demo(site)
    run(site, "rows", "users", "users", "change", "1", "us_password=correct-horse", expect=0)
    keys = site.folder / "data/state/users.keys"
    kept = keys.read_text().splitlines()[2:]
    dump = run(site, "--secrets", "dump", "users", expect=0).stdout
    assert all(f"secret stored_{line}\n" in dump for line in kept) and "not saved here" not in dump
    assert "stored_" not in run(site, "dump", "users", expect=0).stdout
    (site.folder / "dump").write_text(dump)
    assert run(site, "apply", "dump", expect=0).stdout == "users: unchanged\n"
    run(site, "rows", "users", "users", "change", "1", "us_password=other-horse", expect=0)
    assert keys.read_text().splitlines()[1:] != kept
    told = run(site, "apply", "dump", expect=0).stdout
    assert told.split("\n")[:2] == ["users: saved", f"hash_admin_password{CHANGED}"]
    assert keys.read_text().splitlines()[2:] == kept
    # A page's field of that name has no effect, whatever the environment says.
    fields = dict(site.open("users").fields()) | {
        "u_stored_hash_admin_password": kept[0].split("=")[1].replace("a", "b"), "us_off2": "True", "action": "Submit"}
    assert not any("stored" in name for name in dict(site.open("users").fields()))
    for more in ({}, {"ORV_SECRETS": "1"}):
        site.post(fields, **more)
        assert keys.read_text().splitlines()[2:] == kept
    assert "stored_" not in site.run({"QUERY_STRING": "form=users", "ORV_SECRETS": "1"}).body
    (site.folder / "dump").write_text(dump.replace("password=", "password=$(id)"))
    assert "cannot use a password" in run(site, "apply", "dump", expect=1).stderr
    (site.folder / "dump").write_text("form users\nsecret us_role0=x\n")
    assert "not the name of a secret" in run(site, "apply", "dump", expect=1).stderr
    # Of two lines the last counts, as for values; a name may be as long as any other, and not longer.
    site.template("f", "field a")
    site.form_script("f", read="echo a=1")
    (site.folder / "dump").write_text(f"form f\nsecret x_password=1\nsecret x_password=2\nsecret {'n' * 41}_password=3\n")
    run(site, "apply", "dump", expect=0)
    given = site.given("f", "write")
    assert 'new_x_password="2"' in given and 'new_x_password="1"' not in given, given
    assert f'new_{"n" * 41}_password="3"' in given, given
    (site.folder / "dump").write_text(f"form f\nsecret {'n' * 42}_password=3\n")
    assert "is too long" in run(site, "apply", "dump", expect=1).stderr


def ssh(site, command, given=""):
    """A remote shell, as a server starts it; the command's output and its log messages."""
    log = site.folder / "log"
    log.write_text("")
    done = subprocess.run(
        ["env", "-i", "HOME=/", f"PATH={pathlib.Path(ORVCTL).parent}:{os.environ['PATH']}", "USER=root",
         "SSH_CONNECTION=192.0.2.9 50022 192.0.2.1 22", f"{PRELOAD}={SHIM}", f"SYSLOG_FILE={log}",
         "ASAN_OPTIONS=verify_asan_link_order=0", "sh", "-c", command],
        cwd=site.folder, input=given, text=True, capture_output=True, timeout=120, check=False)
    return done, log.read_text()


def test_a_device_is_replaced_by_two_command_lines(site, tmp_path):
    """ssh root@device orvctl --secrets dump >file; ssh root@other orvctl apply - <file"""
    demo(site)
    for words in (["set", "network", "host_name=gw-2", "ip6_mode=off"], ["rows", "firewall", "rules", "delete", "1"],
                  ["set", "wireless", "wl_on=True", "wl_name=Larch", "wl_passphrase=correct-horse"],
                  ["rows", "users", "users", "change", "1", "us_password=correct-horse"]):
        run(site, *words, expect=0)
    other = demo(Site(tmp_path / "other"))
    backup, log = ssh(site, "orvctl --secrets dump")
    assert (backup.returncode, backup.stderr) == (0, "") and "at 192.0.2.9)" in log
    assert "Settings dumped, with secrets (" in log and "correct-horse" not in log
    before = stored(other)
    done, log = ssh(other, "orvctl apply -", backup.stdout.replace("ip6_mode=off", "ip6_mode=maybe"))
    assert done.returncode == 1 and stored(other) == before and "Settings of a dump refused (" in log
    done, log = ssh(other, "orvctl apply -", backup.stdout)
    assert done.returncode == 0 and "network: saved\n" in done.stdout, done
    assert "unless it is kept by" in done.stderr and ssh(other, "orvctl confirm")[0].returncode == 0
    assert "Settings of a dump applied (" in log and "Device name: larkspur -> gw-2 (root at 192.0.2.9)" in log
    assert ssh(other, "orvctl --secrets dump")[0].stdout == backup.stdout
    assert "Settings dumped, without secrets (" in ssh(other, "orvctl dump")[1]


def test_values_that_a_script_does_not_report_are_named_and_skipped(site):
    site.template("f", "field a", "field a_password", "field b_password")
    site.form_script("f", read="echo a=1; [[ -z $ORV_SECRETS ]] || echo 'b_password=$6$x'")
    dump = run(site, "--secrets", "dump", "f", expect=0).stdout
    assert "\n# not saved here: a_password\n" in dump and "\nb_password=$6$x\n" in dump
    (site.folder / "dump").write_text(dump)
    done = run(site, "apply", "dump", expect=0)
    assert done.stdout == "f: unchanged\n" and "skipped" in done.stderr and "a_password" in done.stderr
    assert json.loads(run(site, "--json", "apply", "dump", expect=0).stdout) == [
        {"form": "f", "result": "unchanged", "changed": False, "skipped": ["a_password"]}]


LIMITED = """. "${BASH_SOURCE%/*}/orv.bash"
orv_load t
if [[ $1 == --read ]]; then orv_rows n; orv_pack n k; orv_show "${cells[@]}"; exit; fi
orv_read n# k#; orv_rows n; orv_pack n k; orv_end
[[ $1 != --write ]] || orv_store t "${cells[@]}" """


def test_one_row_too_many_gives_a_message(site):
    demo(site)
    site.template("t", "table t 2 3", "field n", "check nullok text", "select k", "choice a A")
    script = site.scripts / "t.sh"
    script.write_text("#!/bin/bash\n" + LIMITED)
    script.chmod(0o755)
    lines = [f"n{i}=x{i}\nk{i}=a\n" for i in range(ROWS + 1)]
    (site.folder / "dump").write_text("form t\n" + "".join(lines[:ROWS]))
    assert run(site, "apply", "dump", expect=0).stdout.count(ADDED) == ROWS
    assert f"{ROWS} rows" in run(site, "rows", "t", "t", "add", "n=one-more", expect=1).stderr
    (site.folder / "dump").write_text("form t\n" + "".join(lines))
    assert f"{ROWS} rows" in run(site, "apply", "dump", expect=1).stderr
    run(site, "rows", "t", "t", "change", str(ROWS), "n=last", expect=0)


@pytest.mark.skipif(not LONG, reason="measures time")
def test_time_grows_with_the_number_of_rows(site):
    """As a factor of the CPU time: twice the rows, and half of them deleted again."""
    site.template("f", "table t 2", "field n", "field m")
    site.form_script("f", read="cat state 2>/dev/null; exit 0")

    def seconds(*words):
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
        run(site, *words, expect=0)
        return resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before

    least = {}
    for count in (300, 600) * 3:
        cells = [f"n{i}=n{i}\nm{i}=m{i}\n" for i in range(count)]
        (site.folder / "state").write_text("")
        (site.folder / "dump").write_text("form f\n" + "".join(cells))
        time = seconds("apply", "dump")
        (site.folder / "state").write_text("".join(cells))
        (site.folder / "dump").write_text(f"form f\ntable t {count // 2}\n" + "".join(cells[:count // 2]))
        time += seconds("apply", "dump") + seconds("rows", "f", "t") + seconds("dump", "f")
        least[count] = min(time, least.get(count, time))
    assert least[600] < 3 * least[300], least
