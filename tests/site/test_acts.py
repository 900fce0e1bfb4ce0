"""Actions: how a form requests them, how they are run, and what an attacker can do
at the FIFO or in the folders around it."""

import fcntl
import os
import pathlib
import re
import shutil
import signal
import socket
import stat
import subprocess
import time

import orv_test.device
import pytest
from conftest import sleeps

ROOT = pathlib.Path(__file__).resolve().parents[2]
STORE = os.environ["ORV_STORE"]
READER = ROOT / "packaging/act/larkspur-acts"
PATIENCE = 60  # seconds, for a slow machine
NOBODY = "Saved, but not in use: the service larkspur-acts does not run"


def until(found):
    """The first true result of `found`; the machine may be slow."""
    end = time.monotonic() + PATIENCE
    while not (result := found()):
        assert time.monotonic() < end
        time.sleep(0.02)
    return result


class Acts:
    """A folder of actions, the service that runs them, and a client."""

    def __init__(self, folder, shell):
        self.folder, self.shell, self.process = folder, shell, None
        self.acts, self.actions = folder / "acts", folder / "actions"
        self.ask, self.done = self.acts / "ask", self.acts / "done"
        self.env = {"PATH": os.environ["PATH"], "ORV_ACTS": str(self.acts),
                    "ORV_ACTIONS": str(self.actions), "ORV_STORE": STORE,
                    "ORV_STATE": str(folder / "state"), "STRANGE": "x"}
        self.actions.mkdir(exist_ok=True)
        self.actions.chmod(0o755)
        self.action("count", "echo x >>$D/counted")

    def action(self, name, *lines, mode=0o755):
        path = self.actions / name
        path.write_text("\n".join(["#!/bin/sh", f"D='{self.folder}'", *lines, ""]))
        path.chmod(mode)

    def start(self, *options):
        self.ask.unlink(missing_ok=True)  # left by a reader that was killed
        self.process = subprocess.Popen(
            [*self.shell, READER, *options], env=self.env, pass_fds=(),
            stdin=subprocess.DEVNULL, stderr=(self.folder / "log").open("a"))
        until(lambda: self.ask.exists() and stat.S_IMODE(self.ask.stat().st_mode)
              == 0o620)

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        self.process.wait(PATIENCE)

    def store(self, *words, **env):
        run = subprocess.run([STORE, *words], env=self.env | env, text=True,
                             stdout=subprocess.PIPE, check=False, timeout=PATIENCE)
        return run.stdout.removesuffix("\n")

    def run(self, name):
        """Requests the action and waits; returns its output, or the fault."""
        return self.store("act", name, "--wait", str(PATIENCE - 1))

    def counted(self):
        path = self.folder / "counted"
        return len(path.read_text().split()) if path.exists() else 0

    def state(self, name):
        path = self.done / name
        return path.read_text().split()[1] if path.exists() else None

    def write(self, data):
        with self.ask.open("wb", buffering=0) as pipe:
            while data:
                data = data[pipe.write(data):]


@pytest.fixture(params=["dash", "busybox sh"])
def acts(request, tmp_path):
    made = Acts(tmp_path, request.param.split())
    yield made
    if made.process and made.process.poll() is None:
        made.stop()


def test_an_action_runs_by_its_name_in_a_clean_environment(acts):
    acts.action("show", 'echo "$# $(cat) $PWD $(umask)"; env | sort; exec '
                "/usr/bin/python3 -c 'import os; print(os.listdir(\"/proc/self/fd\"))'")
    acts.action("fail", "echo no luck; echo at all; exit 3")
    acts.action("long", f"echo {'a' * 120}b; exit 1")
    acts.action("lines", r"printf '\na\tb\n\nc'")
    acts.action("quiet", ":")
    acts.start("-l", str(PATIENCE))
    words = acts.run("show").split("\nline ")
    assert words[:2] == ["ok", "0  / 0022"]
    assert words[2:-1] == [
        "HOME=/", "LC_ALL=C", f"ORV_STATE={acts.folder}/state", f"ORV_STORE={STORE}",
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "PWD=/"]
    assert words[-1] == "['0', '1', '2', '3']"  # 3: the list itself
    assert acts.run("quiet") == "ok"
    assert acts.run("fail") == ("fault Saved, but not in use: fail failed (status 3): "
                                "no luck")
    assert acts.run("other") == ("fault Saved, but not in use: this device has no "
                                 "action other")
    assert acts.store("act", "../count").startswith("fault ../count is not a valid name")
    assert acts.run("long") == f"fault Saved, but not in use: long failed (status 1): {'a' * 120}"
    assert acts.run("lines") == "ok\nline \nline a\tb\nline \nline c"
    for words in (["--wait", "0"], ["--wait", "601"], ["--wait", "5s"], ["--wait", ""], ["--wait"], ["wait", "5"]):
        assert acts.store("act", "count", *words) == "fault act accepts --wait and 1 to 600 seconds", words
    assert acts.counted() == 0 and "has no action" in acts.store("act", "other", "--wait", "600")
    assert acts.state("quiet") == "0" and acts.state("fail") == "3"


# Texts written into the FIFO, each alone; a line end follows later.
HOSTILE = [
    b"other\n", b"../actions/count\n", b"/bin/sh\n", b"count now\n", b" count\n",
    b"count \n", b"count;count\n", b"$(count)\n", b"`count`\n", b"count\0\n",
    b"\0count\n", b"\0" * 500 + b"\n", b"COUNT\n", b"count\r\n", b"\tcount\n", b".\n",
    b"..\n", b".new\n", b"*\n", b"?????\n", b"coun[t]\n", b"-n\n", b"!\n", b"=count\n",
    b"!count\n", b"\xff\xfecount\n", b"co\xc3\xbcnt\n", b"'count'\n", b"\\count\n",
    b"c" * 41 + b"\n", b"count" * 9 + b"\n", b"count" * 40_000 + b"\n", b"xcount",
    b"\n" * 3000, b"a\nb\n" * 30_000, b"n\n" * 4000, b"co", b"unt:\n", b"count\x1b[2J",
    b"\ncount=1\n", b"c" * 300_000,
]


def test_only_names_pass_through_the_fifo(acts):
    acts.action("n0", "echo x >>$D/counted")
    acts.start()
    keeper = acts.ask.open("wb", buffering=0)  # stays open, without a line end
    for line in HOSTILE:
        acts.write(line)
    acts.write(b"\nn0\n")
    until(lambda: acts.state("n0") == "0")
    assert acts.counted() == 1 and os.listdir(acts.done) == ["n0"]
    assert acts.run("count") == "ok" and acts.counted() == 2
    keeper.write(b"cou")  # half a line does not become part of another writer's
    assert acts.run("count") == "ok" and acts.counted() == 3
    os.set_blocking(keeper.fileno(), False)
    while keeper.write(4096 * b"x"):
        pass
    assert acts.run("count") == "ok" and acts.counted() == 4  # waits for room
    log = (acts.folder / "log").read_text()
    assert log.count("dropped") <= 5 and acts.process.poll() is None


def test_a_flood_of_anything_is_read_slowly(acts):
    for flood in b"\n", b"x", b"none\n":
        acts.start()
        pipe = os.open(acts.ask, os.O_WRONLY | os.O_NONBLOCK)
        sent, start = 0, time.monotonic()
        while time.monotonic() < start + 1:
            try:
                sent += os.write(pipe, flood * (4000 // len(flood)))
            except BlockingIOError:
                time.sleep(0.01)
        seconds = time.monotonic() - start
        os.close(pipe)
        assert sent <= 65536 * (seconds + 3), flood
        acts.stop()


def test_requests_during_a_run_are_merged_and_one_runs_at_a_time(acts):
    acts.action("block", "echo x >>$D/blocked",
                "while [ ! -e $D/go ]; do sleep 0.05; done; rm $D/go")
    acts.start()
    acts.store("act", "block")
    until(lambda: acts.state("block") == "running")
    for _ in range(50):
        assert acts.store("act", "count") == "ok"
    # A run in progress may have read the old settings, so its end is not enough.
    waiter = subprocess.Popen([STORE, "act", "block", "--wait", str(PATIENCE)],
                              env=acts.env, stdout=subprocess.PIPE)
    first = (acts.done / "block").read_text()
    until(lambda: "--wait" in pathlib.Path(
        f"/proc/{waiter.pid}/cmdline").read_text() and acts_pending(acts) > 50 * 6)
    assert acts.counted() == 0
    (acts.folder / "go").touch()
    until(lambda: acts.state("count") == "0")
    until(lambda: (acts.done / "block").read_text() != first
          and acts.state("block") == "running")
    assert waiter.poll() is None and acts.counted() == 1
    before = sleeps(waiter.pid)
    until(lambda: sleeps(waiter.pid) > before + 9)
    (acts.folder / "go").touch()
    assert waiter.communicate(timeout=PATIENCE)[0] == b"ok\n"
    assert (acts.folder / "blocked").read_text() == "x\nx\n"


def acts_pending(acts):
    """The bytes in the FIFO that nobody has read."""
    with acts.ask.open("r+b", buffering=0) as pipe:
        return int.from_bytes(fcntl.ioctl(pipe, 0x541B, bytes(4)), "little")


def test_a_run_that_takes_too_long_is_killed_with_its_children(acts):
    hold = "exec 9>$D/lock; flock 9; trap '' TERM; echo begun; touch $D/held"
    acts.action("slow", f"({hold}; sleep 300; sleep 300) &",
                "sleep 300")
    acts.action("daemon", "sleep 4 & echo started")
    acts.start("-l", "3")
    assert acts.run("slow") == ("fault Saved, but not in use: slow took too long and "
                                "was killed")
    assert acts.state("slow") == "late"
    with (acts.folder / "lock").open("a") as lock:
        until(lambda: can_lock(lock))
    # A process left behind on purpose delays nobody, and is not killed.
    assert acts.run("daemon") == "ok\nline started"
    assert acts.run("count") == "ok"


def can_lock(file):
    try:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return False
    return True


def test_4096_bytes_of_output_are_kept_and_the_action_continues(acts):
    acts.action("talk", "head -c 300000 /dev/zero | tr '\\0' y || exit",
                "echo x >>$D/counted")
    acts.action("odd", r"printf 'a\033[2J\001\n\377b\0c'")
    acts.start()
    assert acts.run("talk") == "ok\nline " + 4096 * "y" and acts.counted() == 1
    head, _, output = (acts.done / "talk").read_bytes().partition(b"\n")
    assert head.endswith(b" 0") and output == 4096 * b"y"
    answer = subprocess.run([STORE, "act", "odd", "--wait", "50"], env=acts.env,
                            stdout=subprocess.PIPE, check=True).stdout
    assert answer == b"ok\nline a?[2J?\nline \xffb?c\n"


def test_no_action_is_run_that_others_could_have_made_or_changed(acts):
    acts.action("group", "echo x >>$D/counted", mode=0o775)
    acts.action("all", "echo x >>$D/counted", mode=0o757)
    acts.action("plain", "echo x >>$D/counted", mode=0o644)
    (acts.actions / "link").symlink_to("count")
    (acts.actions / "nowhere").symlink_to("none")
    (acts.actions / "folder").mkdir()
    os.mkfifo(acts.actions / "fifo")
    socket.socket(socket.AF_UNIX).bind(str(acts.actions / "socket"))
    names = ["group", "all", "plain", "link", "nowhere", "folder", "fifo", "socket"]
    if os.geteuid() == 0:
        acts.action("foreign", "echo x >>$D/counted")
        os.chown(acts.actions / "foreign", 65534, 0)
        names.append("foreign")
    acts.start()
    acts.write("".join(f"{name}\n" for name in names).encode())
    until(lambda: acts.state(names[-1]))
    for name in names:
        assert acts.state(name) == "refused", name
    assert acts.run("link") == ("fault Saved, but not in use: link is not run: users "
                                "other than root can change it")
    for folder, mode in (acts.actions, 0o775), (acts.actions, 0o757), (acts.folder, 0o777):
        old = stat.S_IMODE(folder.stat().st_mode)
        folder.chmod(mode)
        assert "is not run" in acts.run("count"), (folder, mode)
        folder.chmod(old)
    assert acts.counted() == 0 and acts.run("count") == "ok"


def test_the_group_may_ask_and_read_and_nothing_else(acts):
    acts.start("-g", str(os.getegid()))
    acts.run("count")
    for path, mode in ((acts.acts, 0o750), (acts.ask, 0o620), (acts.done, 0o2750),
                       (acts.acts / ".work", 0o700), (acts.done / "count", 0o640)):
        found = path.stat()
        assert (oct(stat.S_IMODE(found.st_mode)), found.st_gid) == (
            oct(mode), os.getegid()), path


def test_the_reader_uses_no_folder_that_others_could_change(acts):
    elsewhere = acts.folder / "elsewhere"
    elsewhere.mkdir()
    for make in (lambda: acts.acts.symlink_to(elsewhere), acts.acts.touch,
                 lambda: (acts.acts.mkdir(), acts.acts.chmod(0o770)),
                 lambda: (acts.acts.mkdir(), acts.folder.chmod(0o777))):
        make()
        run = subprocess.run([*acts.shell, READER], env=acts.env, check=False,
                             capture_output=True, timeout=PATIENCE)
        assert run.returncode == 1 and b"larkspur-acts: " in run.stderr
        assert not list(elsewhere.iterdir())
        acts.folder.chmod(0o700)
        if acts.acts.is_dir() and not acts.acts.is_symlink():
            acts.acts.rmdir()
        else:
            acts.acts.unlink()


def test_a_file_in_place_of_the_fifo_is_not_written(acts):
    victim = acts.folder / "victim"
    victim.touch()
    acts.acts.mkdir()
    cases = [
        (lambda: None, NOBODY),
        (lambda: os.mkfifo(acts.ask), NOBODY),
        (lambda: acts.ask.symlink_to(victim), "not supported"),
        (lambda: acts.ask.symlink_to("nowhere"), "not supported"),
        (acts.ask.touch, "not supported"),
        (acts.ask.mkdir, "not supported"),
        (lambda: socket.socket(socket.AF_UNIX).bind(str(acts.ask)), "not supported"),
    ]
    for make, fault in cases:
        make()
        assert fault in acts.store("act", "count"), fault
        if acts.ask.is_dir():
            acts.ask.rmdir()
        else:
            acts.ask.unlink(missing_ok=True)
    assert victim.read_bytes() == b""
    os.mkfifo(acts.ask)
    with acts.ask.open("r+b", buffering=0) as full:
        os.set_blocking(full.fileno(), False)
        while full.write(4096 * b"x"):
            pass
        assert acts.store("act", "count") == (
            "fault Saved, but not in use: too many actions are waiting")


def test_only_the_reader_writes_results(acts):
    acts.done.mkdir(parents=True)
    os.mkfifo(acts.ask)
    result, victim = acts.done / "count", acts.folder / "victim"
    victim.write_text("run 0\n")
    with acts.ask.open("r+b", buffering=0):
        for make in (lambda: result.symlink_to(victim), lambda: os.mkfifo(result),
                     result.mkdir, lambda: result.write_text(""),
                     lambda: result.write_text("run 0"),
                     lambda: result.write_text("run running\n"),
                     lambda: result.write_bytes(9000 * b"\0")):
            make()
            assert acts.store("act", "count", "--wait", "1") == (
                "fault Saved, but not in use yet: count was not done within 1 seconds")
            if result.is_dir():
                result.rmdir()
            else:
                result.unlink()


def test_the_reader_restarts_and_requests_meanwhile_get_a_fault(acts):
    acts.start()
    acts.process.send_signal(signal.SIGSTOP)  # or it could already make a new FIFO
    acts.ask.unlink()
    assert acts.store("act", "count") == f"fault {NOBODY}"
    acts.process.send_signal(signal.SIGCONT)
    until(lambda: acts.run("count") == "ok")  # first made, later opened
    acts.stop()
    assert acts.store("act", "count") == f"fault {NOBODY}"
    for _ in range(2):  # the remains of a killed reader do no harm
        acts.start()
        assert acts.run("count") == "ok"
        acts.stop(signal.SIGKILL)
        until(lambda: acts.store("act", "count") == f"fault {NOBODY}")
    assert acts.process.returncode == -signal.SIGKILL


def test_a_page_says_that_it_is_saved_but_not_in_use(acts, site):
    for part in orv_test.device.PARTS:
        orv_test.device.copy_part(ROOT / "examples/forms" / part, site.folder / "data" / part,
                                  pathlib.Path(STORE))
    acts.actions = site.folder / "data/actions"
    acts.env |= {"ORV_ACTIONS": str(acts.actions), "ORV_STATE": str(
        site.folder / "data/state")}
    site.env = {"ORV_ACTS": str(acts.acts)}
    page = site.open("hostname").press("Submit", hostname="gate-1")
    assert page.errors == [NOBODY]
    acts.start()
    page = page.press("Submit", hostname="gate-2")
    assert page.title == "Saved" and page.errors == []
    until(lambda: acts.state("hostname") == "0")
    assert (acts.done / "hostname").read_text().endswith("The host name is gate-2\n")
    script = site.scripts / "hostname.sh"
    script.write_text(script.read_text().replace("orv_act hostname", (
        "orv_act hostname 50 && orv_put u_after_save \"${orv_acted[*]}.\"")))
    page = site.open("hostname").press("Submit", hostname="gate-3")
    assert "The host name is gate-3." in page.texts("p")[0]
    # The action does not trust the stored values.
    stored = site.folder / "data/state/hostname"
    stored.write_text(re.sub("gate-3", "-x;reboot", stored.read_text()))
    assert acts.run("hostname").endswith("(status 1): This is no host name.")


def test_an_unkept_change_goes_back_without_its_watchers(acts):
    for name in ("show", "tell"):
        acts.action(name, f"echo {name} >>$D/order", "${ORV_STORE:-orv-store} load net")
    state = acts.folder / "state"

    def guard(name):
        order = f"@guard 2 act {name}\n> net\nv={name}\n"
        run = subprocess.run([STORE, "store", "-", "net"], env=acts.env, input=order,
                             text=True, stdout=subprocess.PIPE, check=True)
        (token,) = re.findall("^guard (.*)$", run.stdout, re.M)
        acts.store("arm", token)

    for name in ("tell", "show", "tell", "count"):  # the third replaces the first
        guard(name)
    assert "v=count" in acts.store("load", "net")
    acts.start()
    until(lambda: acts.state("count") == "0")
    assert (acts.folder / "order").read_text() == "show\ntell\n" and acts.counted() == 1
    assert not re.search("^v=", (acts.done / "show").read_text(), re.M)
    assert not (state / ".pending").exists()
    acts.ask.unlink()  # so do requests through a new FIFO
    until(lambda: acts.run("count") == "ok")
    guard("show")
    until(lambda: not (state / ".pending").exists())


def test_the_shell_programs_are_clean(tmp_path):
    programs = [p for p in [*ROOT.glob("packaging/*"), *ROOT.glob("packaging/*/*"), ROOT / "tests/packages/run"]
                if p.is_file() and re.match("#!/.*sh$", p.read_text().partition("\n")[0])]
    assert len(programs) > 8
    subprocess.run(["shellcheck", *programs], check=True)
    unit = (ROOT / "packaging/act/larkspur-acts.service").read_text()
    cmake = (ROOT / "CMakeLists.txt").read_text()
    assert re.search(r"^ExecStart=/usr/sbin/larkspur-acts ", unit, re.M)
    assert re.search(r"packaging/act/larkspur-acts\s[^)]*DESTINATION "
                     r"\$\{CMAKE_INSTALL_SBINDIR\}", cmake)
