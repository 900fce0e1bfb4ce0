"""orvctl applies a dump as one step, and the files belong to the web server's user."""

import contextlib
import json
import os
import pathlib
import pwd
import re
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.parse

from conftest import CHANGED, DELETED, ENVIRONMENT, LONG, ORV, PRELOAD, SECONDS, Site
from test_orvctl import ORVCTL, demo, stored

RACES = 200 if LONG else 20
STORE = os.environ["ORV_STORE"]
WHO = {"SUDO_USER": "ann", "SSH_CONNECTION": "192.0.2.9 1234 192.0.2.1 22"}
# A form with two files; each test replaces `JUDGE`, and `BEFORE` and `AFTER` its save.
SCRIPT = """#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
[[ $1 != --write ]] || orv_lock
orv_load FORM FORM.more
if [[ $1 == --read ]]; then orv_show x y; exit; fi
orv_read x y
judge() { JUDGE
}
judge
orv_end
if [[ $1 == --write ]]; then
  BEFORE
  orv_store FORM x -- FORM.more y
  orv_log_changes
  orv_background eval 'echo FORM >>ran'
  AFTER
fi
exit 0
"""


def form(site, name, judge=":", before=":", after=":"):
    site.template(name, "field x", "label Text", "check nullok text", "field y", "check nullok text")
    text = SCRIPT.replace("FORM", name).replace("JUDGE", judge).replace("BEFORE", before)
    site.script(f"{name}.sh", *text.replace("AFTER", after).splitlines()[1:])


def device(site, **forms):
    """The library and three forms, with the test's replacements."""
    demo(site)
    for name in "abc":
        form(site, name, **forms.get(name, {}))
    return site


def dump(site, value, forms="abc"):
    text = "".join(f"form {name}\nx={value}\ny={value}\n" for name in forms)
    (site.folder / "dump").write_text(text)


def run(site, *words, **env):
    log = site.folder / "log"
    env = os.environ | WHO | {PRELOAD: ENVIRONMENT[PRELOAD], "SYSLOG_FILE": str(log)} | env
    env |= {key: ENVIRONMENT[key] for key in ENVIRONMENT if key.endswith("SAN_OPTIONS")}
    return subprocess.run([ORVCTL, *words], cwd=site.folder, capture_output=True, text=True,
                          timeout=SECONDS, check=False, env=env)


def values(site):
    """The values of each form, as a script loads them."""
    return {name: tuple(run(site, "get", name).stdout.split()) for name in "abc"}


def all_of(value):
    return {name: (f"x={value}", f"y={value}") for name in "abc"}


def running(site):
    """The processes started in the site's folder."""
    def runs(process):
        try:
            return os.readlink(process / "cwd") == str(site.folder)
        except OSError:
            return False
    return [int(p.name) for p in pathlib.Path("/proc").glob("[0-9]*") if runs(p)]


def settle(site):
    """Waits until none of them is left."""
    end = time.monotonic() + SECONDS
    while running(site):
        assert time.monotonic() < end
        time.sleep(0.02)


def end_all(site):
    """Kills them, until none is left that could start another."""
    for pid in iter(lambda: next(iter(running(site)), None), None):
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGKILL)
        time.sleep(0.02)


def lines(site, name):
    path = site.folder / name
    return path.read_text().splitlines() if path.exists() else []


def leftovers(site):
    return [f.name for f in (site.folder / "data/state").glob(".[!ghl]*")]


def start_post(site, name, value, orv=ORV, env=(), **more):
    body = urllib.parse.urlencode({"cgi_vars_loaded": "1", "form": name, "action": "Submit",
                                   "x": value, "y": value}).encode()
    env = ENVIRONMENT | {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": str(len(body)),
                         "SYSLOG_FILE": "/dev/null"} | dict(env)
    post = subprocess.Popen([orv], cwd=site.folder, env=env, **more, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    post.stdin.write(body)
    post.stdin.close()
    return post


def test_a_dump_is_stored_completely_or_not_at_all_while_pages_save(site):
    """The last form refuses a dump if the page's save came first."""
    device(site, c={"judge": '[[ ${orv[x]} != file* || ${orv_was[x]} != "page${orv[x]#file}" ]] || orv_msg Kept',
                    "before": 'echo "${orv_was[x]} ${orv[x]}" >>saves'})
    state, ends = site.folder / "data/state", set()
    for i in range(RACES):
        new, page = f"file{i}", f"page{i}"
        dump(site, new)
        (site.folder / "saves").unlink(missing_ok=True)
        with subprocess.Popen([ORVCTL, "apply", "dump"], cwd=site.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as apply:
            while i % 2 and apply.poll() is None and not list(state.glob(".stage.*")):
                time.sleep(0.001)  # half of the pages come during the dump
            posts = [start_post(site, name, page) for name in "cab"]
            told, said = apply.communicate(timeout=SECONDS)
        for post in posts:
            with post:
                assert b"changes_saved" in post.stdout.read(), (i, said)
        kept = stored(site)
        for name in "abc":
            values_kept = {line[2:] for file in (name, name + ".more") for line in kept[file].splitlines()
                           if line[0] in "xy"}
            assert values_kept in ({page}, {new}) if apply.returncode == 0 else {page} == values_kept, (i, kept, said)
        headers = [line for line in told.splitlines() if line.endswith(": saved")]
        assert headers == (["a: saved", "b: saved", "c: saved"] if apply.returncode == 0 else []), (i, told, said)
        assert (f"{new} {page}" in lines(site, "saves")) == (apply.returncode == 0), (i, lines(site, "saves"))
        assert apply.returncode == 0 or "nothing was saved" in said, (i, said)
        ends.add(apply.returncode)
    settle(site)
    assert ends == {0, 1} and not leftovers(site)


LATE = {"c": {"judge": """orv_load b
  [[ ${orv[x]} != bad* ]] || orv_msg 'Not beside what b has'
  orv_read x y"""}}


def test_a_form_made_invalid_by_another_undoes_everything(site):
    """The check of c reads the value that the same dump has set in b; d has no script."""
    device(site, **LATE)
    form(site, "d")
    (site.scripts / "d.sh").unlink()
    (site.scripts / "d.sh").symlink_to(STORE)
    dump(site, "good", "abdc")
    assert run(site, "apply", "dump").stdout.startswith("a: saved\nText: blank → good\n")
    settle(site)
    assert sorted(lines(site, "ran")) == ["a", "b", "c"]  # after it was stored
    log = lines(site, "log")
    assert log.pop() == "5 Settings of a dump applied (ann at 192.0.2.9)"
    assert len(log) == 8 and all(line.endswith("(ann at 192.0.2.9)") for line in log), log
    assert sum("Text: blank -> good" in line for line in log) == 4
    before = stored(site)
    assert "x=good" in before["d"]
    dump(site, "bad", "abdc")
    for way in ([], ["--json"]):
        done = run(site, *way, "apply", "dump")
        assert done.returncode == 1 and "nothing was saved" in done.stderr
        refused = [(r["form"], r["result"], r["message"]) for r in json.loads(done.stdout)] if way else done.stderr
        assert refused == [("c", "refused", "Not beside what b has")] if way else "Not beside" in refused
        assert way or done.stdout == ""
    settle(site)
    assert stored(site) == before and not leftovers(site)
    refusals = ["5 Settings of a dump refused (ann at 192.0.2.9)"] * 2
    assert len(lines(site, "ran")) == 3 and lines(site, "log")[9:] == refusals


def test_ending_an_apply_ends_all_of_it(site):
    device(site)
    dump(site, "old")
    run(site, "apply", "dump")
    settle(site)
    ran = lines(site, "ran")
    dump(site, "new")
    # The script continues, perhaps after another process has cleaned up.
    other = f"env -u ORV_TRANSACTION {ORVCTL} set b x=older >/dev/null"
    for place, more in (("before", ":"), ("after", ":"), ("before", other)):
        form(site, "c", **{place: f"kill -9 $PPID; {more}"})
        assert run(site, "apply", "dump").returncode == -9
        settle(site)
        form(site, "c")
        assert [name[:7] for name in leftovers(site)] == [".stage."] * (more == ":")
        run(site, "set", "b", "x=older")
        assert values(site) == all_of("old") | {"b": ("x=older", "y=old")} and not leftovers(site)
        settle(site)
        ran.append("b")
        assert lines(site, "ran") == ran
        run(site, "set", "b", "x=old")
        settle(site)
        ran.append("b")


def test_scripts_of_any_kind_may_take_part(site):
    """One form is saved by another's script, two share a file, one ignores a failure,
    one stores by itself, and one is guarded."""
    device(site, a={"before": f"{ORVCTL} set other x=${{orv[x]}}-too y=1 >/dev/null"}, **LATE)
    form(site, "other")
    dump(site, "bad")
    assert run(site, "apply", "dump").returncode == 1 and run(site, "get", "other").stdout == "x=\ny=\n"
    dump(site, "yes")
    assert run(site, "apply", "dump").returncode == 0 and run(site, "get", "other").stdout == "x=yes-too\ny=1\n"
    # A failed save counts as failed, whatever its script does then.
    device(site)
    form(site, "b", before="(ulimit -f 0; orv_store b x y) >/dev/null; exit 0")
    dump(site, "half")
    done = run(site, "apply", "dump")
    assert done.returncode == 1 and done.stdout == "" and "could not be stored\norvctl: nothing was" in done.stderr
    settle(site)
    assert values(site) == all_of("yes") and not leftovers(site)
    # Two forms with one file: the second sees the values of the first.
    for name, own in (("b", "x"), ("c", "y")):
        script = site.scripts / f"{name}.sh"
        script.write_text(f"""#!/bin/bash
            . "${{BASH_SOURCE%/*}}/orv.bash"
            orv_load both
            [[ $1 != --read ]] || {{ orv_show {own}; exit; }}
            orv_read {own}
            [[ $1 != --write ]] || orv_store both x y\n""")
    (site.folder / "dump").write_text("form b\nx=1\nform c\ny=2\n")
    assert run(site, "apply", "dump").returncode == 0
    assert sorted(stored(site)["both"].split()[-2:]) == ["x=1", "y=2"]
    # Values that a script stores by itself are stored and reported.
    site.template("own", "field z")
    site.form_script("own", write="cp own.write kept")
    form(site, "c", before="orv_msg Full; exit 0")
    (site.folder / "dump").write_text("form a\nx=9\nform own\nz=1\nform c\nx=9\n")
    done = run(site, "apply", "dump")
    assert (done.returncode, done.stdout) == (1, "own: saved\nz: blank → 1\n")
    assert "line 5: Full\n" in done.stderr and "nothing else was saved" in done.stderr and lines(site, "kept")
    # A guarded change goes back to the settings before the whole transaction.
    form(site, "c", before='orv_guard 900; [[ ${orv[x]} != 7* ]] || orv_msg Full')
    for value, status in (("70", 1), ("8", 0)):
        dump(site, value, "ac")
        (site.folder / "dump").open("a").write("form c\nx=9\n")
        assert run(site, "apply", "dump").returncode == status
        pending = site.folder / "data/state/.pending/c"
        assert "x=yes" in pending.read_text() if status == 0 else not pending.exists()
    assert run(site, "get", "c", "x").stdout == "x=9\n"
    subprocess.run([STORE, "confirm"], env={"ORV_STATE": str(site.folder / "data/state")}, check=True)
    settle(site)


def test_a_script_that_saves_often_keeps_no_file_open(site):
    device(site, a={"before": "for i in {1..60}; do orv[y]=$i; orv_store a x -- a.more y || exit; done"})
    dump(site, "1", "ab")
    done = subprocess.run(["bash", "-c", 'ulimit -n 40; exec "$@"', "few", ORVCTL, "apply", "dump"], cwd=site.folder,
                          capture_output=True, text=True, timeout=SECONDS, check=False)
    assert done.returncode == 0 and run(site, "get", "a").stdout == "x=1\ny=60\n", done
    settle(site)


def test_no_request_and_no_latecomer_joins(site):
    """A transaction's staged values appear in no page, and its token is useless afterwards."""
    seen = f"REQUEST_METHOD=GET QUERY_STRING=form=a SCRIPT_NAME=/ SYSLOG_FILE=/dev/null {ORV} >seen"
    looks = [f'{by} {STORE} load a >>looks' for by in ("", "REQUEST_METHOD=GET", "GATEWAY_INTERFACE=CGI/1.1")]
    device(site, c={"before": "; ".join(["echo $ORV_TRANSACTION >>names", seen, *looks])})
    shutil.rmtree(site.folder / "data/state", ignore_errors=True)  # the first save of a device
    dump(site, "1st")
    assert run(site, "apply", "dump").returncode == 0 and values(site) == all_of("1st")
    (site.folder / "looks").unlink()
    dump(site, "2nd")
    assert run(site, "apply", "dump").returncode == 0
    assert lines(site, "looks") == ["ok", "x=2nd", "ok", "x=1st", "ok", "x=1st"]
    assert 'value="1st"' in (site.folder / "seen").read_text()
    names = lines(site, "names")
    assert len(set(names)) == 2
    site.template("f", "text $V:seen$")
    site.form_script("f", read="echo seen=x${ORV_TRANSACTION}x")
    assert "xx" in site.run({"QUERY_STRING": "form=f", "ORV_TRANSACTION": names[1]}).body
    settle(site)
    for state, status in (("data/state", 1), ("data/elsewhere", 0)):
        env = {"ORV_STATE": str(site.folder / state), "ORV_TRANSACTION": names[1]}
        done = subprocess.run([STORE, "store", "-", "a"], cwd=site.folder, env=env, input="> a\nx=late\n",
                              text=True, capture_output=True, check=False)
        assert (done.returncode, "has ended" in done.stdout) == (status, status == 1), done
    assert values(site) == all_of("2nd")
    # A device without a settings folder has scripts that need none.
    site.form_script("f", write="cp f.write kept")
    site.template("f", "field z")
    (site.folder / "dump").write_text("form f\nz=1\n")
    assert run(site, "apply", "dump", ORV_STATE="/proc/none/state").stdout == "f: saved\nz: blank → 1\n"


def test_the_log_says_who_changed_what_from_where(site):
    device(site)
    page = site.post({"cgi_vars_loaded": "1", "form": "a", "action": "Submit", "x": "1", "y": "", "u_y": ""},
                     REMOTE_USER="eve", REMOTE_ADDR="192.0.2.5")
    assert [line.split(" ", 1)[1] for line in page.log] == ["Text: blank -> 1 (eve at 192.0.2.5)"]
    for words, told in ((["set", "a", "x=2"], "Text: 1 -> 2"),
                        (["set", "wireless", "wl_on=True", "wl_passphrase=correct-horse"], "Passphrase" + CHANGED),
                        (["rows", "forwards", "forwards", "delete", "1"],
                         DELETED + "8080, 192.168.1.50, 80, Camera, TCP")):
        (site.folder / "log").unlink(missing_ok=True)
        assert run(site, *words).returncode == 0
        log = [line.split(" ", 1)[1] for line in lines(site, "log")]
        assert f"{told} (ann at 192.0.2.9)" in log and "correct-horse" not in str(log), log
        settle(site)


def test_root_switches_to_the_owner_of_the_settings():
    """The web server can change an administrator's settings; no file or folder of its
    user misleads root."""
    web, root = 65534, os.geteuid() == 0
    with tempfile.TemporaryDirectory() as folder:
        site = demo(Site(folder))
        for program in (ORVCTL, STORE, ORV):
            shutil.copy(program, folder)
        data, state = site.folder / "data", site.folder / "data/state"
        form(site, "a", after="orv_changes")
        site.template("f", "field who", "field z")
        site.script("f.sh", '[[ $1 != --read ]] || echo who="\\"$(id -u) $(id -G) $HOME\\""',
                    "[[ $1 != --write ]] || id -u >data/state/by", "exit 0")
        subprocess.run(["chmod", "-R", "a+rX", folder], check=True)
        (site.folder / "log").touch(mode=0o666)

        def call(*words):
            return subprocess.run([f"{folder}/orvctl", *words], cwd=folder, capture_output=True, text=True, check=False,
                                  env={"PATH": os.environ["PATH"], "ORV_STORE": f"{folder}/orv-store", "HOME": "/root"})
        # Without such a folder nothing changes.
        assert call("get", "f", "who").stdout.split()[0] == f"who={os.geteuid()}"
        if not root:
            return
        state.mkdir(mode=0o700)
        os.chown(state, web, web)
        seen = call("get", "f", "who")
        assert seen.stdout == f"who={web} {web} {pwd.getpwuid(web).pw_dir}\n", seen
        assert call("set", "a", "x=gw-2").returncode == 0
        assert call("set", "f", "z=1").returncode == 0 and (state / "by").read_text() == f"{web}\n"
        (site.folder / "dump").write_text("form system\nplace=Cellar\n")
        (site.folder / "dump").chmod(0o600)  # only root can read it
        assert call("apply", "dump").stdout.startswith("system: saved\n")
        assert {(f.lstat().st_uid, f.lstat().st_gid) for f in state.rglob("*")} == {(web, web)}
        env = {PRELOAD: "", "ORV_STORE": f"{folder}/orv-store"}
        with start_post(site, "a", "gw-3", orv=f"{folder}/orv", env=env, user=web, group=web, extra_groups=[]) as post:
            page = post.stdout.read().decode()
        assert "Text: gw-2 → gw-3" in page, page
        assert call("get", "a", "x").stdout == "x=gw-3\n"
        for user in ({}, {"user": web, "group": web, "extra_groups": []}):  # a closed stream changes nothing
            told = [subprocess.run(["sh", "-c", f'exec "$@" {closed}', "sh", f"{folder}/orvctl", "history"], cwd=folder,
                                   env={"PATH": os.environ["PATH"]}, capture_output=True, text=True, check=True, **user).stdout
                    for closed in ("", "<&-", "<&- 2>&-")]
            assert len(set(told)) == 1 and "Text: gw-2 -> gw-3" in told[0], told
        (data / "scripts/orv.bash").chmod(0o600)
        assert "data/scripts/orv.bash cannot be read by user " in call("get", "a").stderr
        (data / "scripts/orv.bash").chmod(0o644)
        # Files that the web server's user cannot read, or could have put there.
        for change, message in ((lambda: (data / "scripts").chmod(0o700), "data/scripts cannot be read by user "),
                                (lambda: data.chmod(0o777), "others could replace"),
                                (lambda: os.chown(data, web, web), "others could replace"),
                                (lambda: state.rename(data / "real") and state.symlink_to("real"), "others could")):
            change()
            for words in (["get", "f"], ["set", "f", "z=2"], ["apply", "dump"], ["forms"], ["complete", "get", ""]):
                done = call(*words)
                assert done.returncode == 1 and done.stdout == "" and message in done.stderr, (message, done)
            data.chmod(0o755)
            (data / "scripts").chmod(0o755)
            os.chown(data, 0, 0)
        assert "z=2" not in (state / "by").read_text()


def turns(site):
    node = (site.folder / "data/state/.generation").stat().st_ino
    return sum("OFDLCK" in lock and f":{node} " in lock
               for lock in pathlib.Path("/proc/locks").read_text().splitlines())


def test_forms_saved_as_one_step_go_back_each_with_its_own_command(site):
    device(site, **{name: {"before": f"orv_guard 900 eval 'echo {name} >>applied'"} for name in "ab"})
    dump(site, "new", "ab")
    done = run(site, "apply", "dump")
    assert done.returncode == 0 and "this goes back 900 seconds after" in done.stderr, done
    info = site.folder / "data/state/.pending/.info"
    end = time.monotonic() + SECONDS
    # Each watcher has its turn, so the order does not depend on who starts first.
    while not info.with_name(".armed").exists() or turns(site) < 2:
        assert time.monotonic() < end
        time.sleep(0.02)
    assert sorted(lines(site, "applied")) == ["a", "b"]
    text = info.read_text()
    assert text.count("change=Text: blank -> new") == 2
    whole = site.folder / "whole"
    whole.write_text(re.sub("(?m)^until=.*", "until=1", text))
    whole.replace(info)
    settle(site)
    assert lines(site, "applied")[2:] == ["a", "b"]
    assert values(site) == all_of("")
