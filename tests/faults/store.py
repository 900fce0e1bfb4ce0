"""Kills orv-store at each system call that others can notice, and makes each
call that can fail do so once, in everything it does to the settings folder.

Whatever happens, readers find all files unchanged or all files new, the next
holder of the lock leaves no remains, and the answer says which of the two it is.

    ORV_STORE=... ORV_TAKE_PART=... ORV_SYSLOG_SHIM=fault_shim.so \
      store.py [STRIDE [STEP [KIND...]]]

With a stride of N it tries only every Nth allocation, since these are most of
the calls, and with a step of N only every Nth of the others (with
LARKSPUR_LONG, each of these).
"""

import collections
import concurrent.futures
import itertools
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile

STORE, PART = os.environ["ORV_STORE"], os.environ["ORV_TAKE_PART"]
LIBRARY = pathlib.Path(__file__).parents[2] / "lib" / "orv.bash"
STRIDE = int(sys.argv[1]) if len(sys.argv) > 1 else 1
STEP = int(sys.argv[2]) if len(sys.argv) > 2 else 1
if "LARKSPUR_LONG" in os.environ:
    STEP = 1
KINDS = sys.argv[3:] or ("kill memory stream fork open read write close look mark"
                         " sync name mkdir list lock unlink random").split()
ENOUGH = 20  # stop a job after so many bad ends
SECONDS = 60
GUARD = "@guard 3000"  # no change goes back by itself while the sweep lasts
FILES = ["a", "b", "c"]
# More than one read returns, and than the first buffer of any stream holds.
LONG = "".join(f"long{i}={'x' * 190}\n" for i in range(60))
NOBODY = 2 ** 22 + 1  # no process has that id

# --- the folder before --------------------------------------------------------


def order(word, *lines):
    return "".join(f"{line}\n" for line in lines) + "".join(
        f"> {name}\n{name}={word}\nt{name}0={word}\n{LONG if name == 'c' else ''}"
        for name in FILES)


class Device:
    """The folders of a device, and programs that run on them."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.state = self.folder / "state"
        self.env = {
            "PATH": os.environ["PATH"], "ORV_STATE": str(self.state),
            "ORV_DEFAULTS": str(self.folder / "defaults"),
            "ORV_MIGRATE": str(self.folder / "migrate"),
            "ORV_TEMPLATES": str(self.folder), "ORV_STORE": STORE,
            "ASAN_OPTIONS": "verify_asan_link_order=0:exitcode=99",
            "LSAN_OPTIONS": "exitcode=99"}

    def run(self, *words, given="", **env):
        return subprocess.run(
            words, input=given, text=True, capture_output=True, timeout=SECONDS,
            cwd=self.folder, env=self.env | env, check=False)

    def values(self, both=True):
        """The values that readers find; program and library must agree."""
        if (self.folder / "migrate").exists():  # each of them is old or new
            return [self.run(STORE, "load", name).stdout for name in FILES]
        read = self.run(STORE, "load", *FILES)
        assert read.stdout.startswith("ok\n"), read.stdout
        lines = sorted(read.stdout.splitlines()[1:])
        if not both:
            return lines
        bash = self.run("bash", "-c", f""". {LIBRARY}; orv_load {' '.join(FILES)}
            for n in "${{!orv[@]}}"; do printf '%s\n' "$n=${{orv[$n]}}"; done""")
        assert sorted(bash.stdout.splitlines()) == lines, bash.stdout[:300]
        return lines

    def names(self):
        """Every file and folder, except those that always exist."""
        return sorted(str(p.relative_to(self.state))
                      for p in self.state.rglob("*")
                      if p.name not in (".generation", ".lock"))


def shipped(device):
    (device.folder / "defaults").mkdir()
    for name in FILES:
        (device.folder / "defaults" / name).write_text(
            f"{name}=shipped\nnew{name}=1\nt{name}0=1\nt{name}1=2\n")
    (device.folder / "confirm.sh").symlink_to(STORE)
    device.folder.joinpath("form.tpl").write_text(
        "title T\nbody\nfield a 20\nlabel A\ntable t 1\nfield ta\nlabel T\n")


def saved(device, *lines):
    shipped(device)
    device.state.mkdir()
    done = device.run(STORE, "store", "-", "form", given=order("old", *lines))
    assert done.stdout.startswith("ok\n"), done


def pending(device):
    saved(device)
    done = device.run(STORE, "store", "-", "form",
                      given=order("tried", GUARD))
    assert "guard " in done.stdout, done


def waiting(device):
    """The same, with a command that has not run yet, after one whose command has."""
    saved(device, f"{GUARD} first")
    done = device.run(STORE, "store", "-", "form",
                      given=order("tried", f"{GUARD} second"))
    assert "guard " in done.stdout, done
    first = re.search("step=([0-9a-f]+) .* wait ", info(device).read_text())[1]
    assert device.run(STORE, "arm", first).returncode == 0


def overdue(device):
    pending(device)
    text = info(device).read_text()
    info(device).write_text(re.sub("(?m)^until=.*", "until=1", text))


def info(device):
    return device.state / ".pending/.info"


def left_by_older(device):
    """A guarded save by a library older than orv-store, interrupted while it
    moved its files, beside one that was never committed."""
    shipped(device)
    for folder in (".commit/.pending", ".pending", ".new.1764090000.7.1"):
        (device.state / folder).mkdir(parents=True)
    head = "#orv 1764090000.4242.17 1764090000.4243.99\n"
    for path, text in {
            ".commit/b": f"{head}b=new\ntb0=1\n", "a": f"{head}a=new\n", "c": "c=hand\n",
            "b": f"{head}b=old\n", ".commit/.pending/a": f"{head}a=old\nta1=7\n",
            ".commit/.pending/.token": "1764090000.4242.17",
            ".commit/.pending/b": "b=old\n", ".commit/.pending/.armed": "",
            ".pending/.token": "1", ".pending/c": "c=older\n",
            ".new.1764090000.7.1/a": f"{head}a=never\n"}.items():
        (device.state / path).write_text(text)


def of_older_firmware(device):
    saved(device)
    (device.folder / "migrate").mkdir()
    for name in "ac":
        path = device.folder / "defaults" / name
        path.write_text(f"#version 2\n{path.read_text()}")
        program = device.folder / "migrate" / name
        program.write_text("#!/bin/sh\nexec sed s/old/new/\n")
        program.chmod(0o755)


CASES = {  # what exists already, the command, its input
    "first save": (shipped, [STORE, "store", "-", "form"], order("new")),
    "save": (saved, [STORE, "store", "-", "form"], order("new")),
    "guarded": (saved, [STORE, "store", "-", "form"], order("new", GUARD)),
    "guarded again": (pending, [STORE, "store", "-", "form"],
                      order("new", f"{GUARD} command", "@owner 1.2")),
    "put back": (pending, [STORE, "boot"], ""),
    "confirm": (pending, [STORE, "confirm"], ""),
    "confirm, by its page": (pending, ["./confirm.sh", "--write", "confirm"],
                             'new_confirm_token="TOKEN"\n'),
    "arm": (waiting, [STORE, "arm", "TOKEN"], ""),
    "expire": (overdue, [STORE, "expire"], ""),
    "reset": (saved, [STORE, "reset"], ""),
    "upgrade": (of_older_firmware, [STORE, "migrate"], ""),
    "left by older": (left_by_older, [STORE, "arm", "none"], ""),
    "put back older": (left_by_older, [STORE, "boot"], ""),
    "transaction": (saved, [PART, STORE], order("new")),
    "input": (saved, [STORE, "input", str(NOBODY), "form"],
              "".join(f'new_long{i}="{"y" * 190}"\n' for i in range(60))),
    "load": (saved, [STORE, "load", *FILES], ""),
}

# Of these, only the cases that the others do not cover.
FEW = {name: "kill open write sync name".split()
       for name in ("confirm, by its page", "arm", "expire")}

# --- one run ------------------------------------------------------------------


class Clean:
    """The result of a run without a fault."""

    def __init__(self, name, folder):
        self.name = name
        folder = pathlib.Path(folder) / re.sub("[^a-z]", "-", name)
        folder.mkdir()
        build, words, given = CASES[name]
        self.before = Device(folder / "before")
        self.before.folder.mkdir()
        build(self.before)
        token = self.before.state / ".pending/.token"
        token = token.read_text() if token.exists() else ""
        self.words = [word.replace("TOKEN", token) for word in words]
        self.given = given.replace("TOKEN", token)
        self.old = self.before.values()
        device = self.copy(folder / "back")
        device.run(STORE, "boot")
        self.back = device.values()
        device = self.copy(folder / "clean")
        done = device.run(*self.words, given=self.given)
        self.answer = answer(done.stdout)
        self.exit = done.returncode
        self.new, self.names = device.values(), device.names()

    def copy(self, folder):
        shutil.copytree(self.before.folder, folder, symlinks=True)
        return Device(folder)


def answer(text):
    """The text without parts that differ each time, and without reports about a
    change that is not in place yet."""
    text = re.sub("(?m)^(pending|confirm_).*\n", "", text)
    return re.sub(r"(?m)^(guard|holder) .*", r"\1", text)


def judge(clean, device, done, killed, lost_output):
    """How the run ended; an assertion fails if it ended badly."""
    assert done.stderr == "", done.stderr
    device.state.mkdir(exist_ok=True)
    found = device.values(killed)
    text = done.stdout
    # A file that cannot be migrated does not stop the others.
    halves = zip(found, clean.old, clean.new)
    assert found in (clean.old, clean.new) or (
        "migrate" in clean.words and text.startswith("fault ") and
        all(one in (old, new) for one, old, new in halves)), "half of it is stored"
    if killed:
        end = "killed"
    elif re.search("(?m)^error_msg=", text):  # of a page
        end = "fault"
    elif done.returncode == clean.exit and answer(text) == clean.answer:
        assert found == clean.new, "says that it is done, and is not"
        end = "done"
    else:
        assert done.returncode == 1, f"status {done.returncode}, {text[:200]}"
        fault = re.fullmatch("fault [^\n]+\n", text)
        assert fault or lost_output, f"no message: {text[:200]!r}"
        end = "fault" if fault else "output lost"
    after = device.run(STORE, "arm", "none")
    assert (after.returncode, after.stdout) == (1, ""), after.stdout
    assert device.values(False) == found, "the next save changes something"
    names = device.names()
    left = [name for name in names
            if re.search(r"(^|/)\.(new|stage|commit|settled|outcome)", name)
            and name != ".pending/.new"]  # it goes with its folder
    assert not left, f"left over: {left}"
    if ".pending/.new" in names:
        names.remove(".pending/.new")
    if found == clean.new != clean.old:
        assert names == clean.names, f"lacks {set(clean.names) ^ set(names)}"
    if "@guard" in clean.given or "arm" in clean.words:
        device.run(STORE, "boot")
        assert device.values(False) == clean.back, "cannot be put back"
    return end


def sweep(clean, kind, onward):
    ends = collections.Counter()
    bad = []
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        number = 1
        while len(bad) < ENOUGH:
            device = clean.copy(folder / "run")
            report = device.folder / "report"
            report.write_bytes(bytes(struct.calcsize("4i")))
            try:
                done = device.run(
                    *clean.words, given=clean.given,
                    LD_PRELOAD=os.environ["ORV_SYSLOG_SHIM"],
                    FAULT=f"{kind} {number} {onward:d}")
                faults, lost, *_ = struct.unpack("4i", report.read_bytes())
                end = judge(clean, device, done, done.returncode == -9, lost)
                if faults == 0 and end == "done":
                    break
                assert faults > 0, f"no fault, but {end}"
            except (AssertionError, subprocess.TimeoutExpired) as fault:
                end = "badly"
                at = f"{clean.name}, {kind} {number}{' and on' if onward else ''}"
                bad.append(f"{at}: {fault}")
            finally:
                shutil.rmtree(device.folder)
            ends[end] += 1
            number += STRIDE if kind in ("memory", "stream") else STEP
    return kind, ends, bad


def main():
    table = {kind: collections.Counter() for kind in KINDS}
    failed = []
    # A call that fails once has more different ends than one that keeps
    # failing.
    jobs = [job for job in itertools.product(CASES, KINDS, (False, True))
            if (not job[2] or job[1] in ("open", "write", "mark"))
            and job[1] in FEW.get(job[0], KINDS)]
    with tempfile.TemporaryDirectory() as folder, \
            concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        cleans = dict(zip(CASES, pool.map(lambda name: Clean(name, folder), CASES)))
        for kind, ends, bad in pool.map(
                lambda job: sweep(cleans[job[0]], *job[1:]), jobs):
            table[kind] += ends
            failed += bad
    for kind, ends in table.items():
        print(f"{kind:8}{ends.total():6} faults: {dict(ends)}")
    print(*failed, f"{len(failed)} ended badly", sep="\n")
    return 1 if failed or not all(table.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
