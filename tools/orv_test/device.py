"""Runs the executable on a copy of a device's folder.

The copy is in a temporary folder; the executable is started in its `cgi-bin`, as
by a web server, so that a build with the data folder ".." (the demo's) or "data"
(the tests') finds templates and scripts.

The input of check and write scripts is recorded by a file that bash reads before
it runs a script's command line (BASH_ENV): it stores the input, passes it on and
removes itself from the environment, so the script runs as usual.
"""

import os
import pathlib
import shutil
import subprocess
import tempfile
import urllib.parse

from .page import Page

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What a device is shipped with.  Its state is no part of it, so what somebody
# has stored in the folder changes no test.
PARTS = ("templates", "scripts", "defaults", "actions", "migrate", "system_type")
STORE = "orv-store"
URL = "/cgi-bin/orv"
HOST = "device.local"
SECONDS = 60  # timeout of one page
REPORT = 99  # the exit status of a sanitizer's report; refusals have lower ones

# Only check and write scripts have a pipe as input.  The check script runs
# first, so a second note is the write script's.
NOTE_INPUT = """\
unset BASH_ENV
if [[ -p /dev/stdin && ! -e ../.sent/check ]]; then
  /bin/cat >../.sent/check
  exec <../.sent/check
elif [[ -p /dev/stdin ]]; then
  /bin/cat >../.sent/write
  exec <../.sent/write
fi
"""


class CannotRun(Exception):
    """Nothing can be tested; the text is the reason."""


def is_device(folder):
    return all((folder / part).is_dir() for part in ("templates", "scripts"))


def device_of(file):
    """The folder of the device that a test file belongs to."""
    for folder in pathlib.Path(file).resolve().parents:
        if is_device(folder):
            return folder
    raise CannotRun(f"{file}: no folder above it has templates/ and scripts/;"
                    " name the device's folder with --device")


def build():
    """The demo's executable, built if necessary."""
    folder = ROOT / "build/demo"
    if not (ROOT / "CMakeLists.txt").exists() or not shutil.which("cmake"):
        raise CannotRun("name the executable with --orv")
    cache = folder / "CMakeCache.txt"
    if cache.exists() and f"HOME_DIRECTORY:INTERNAL={ROOT}\n" not in cache.read_text():
        shutil.rmtree(folder)  # built from a checkout in another folder
    for command in (
            ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Release", "-DORV_DATA_DIR=..",
             "-DORV_SYSTEM_TYPE_FILE=../system_type", "-DORV_POLICY=strict"],
            ["cmake", "--build", folder, "--target", "orv", "orv-store"]):
        run = subprocess.run(command, capture_output=True, text=True,
                             check=False)
        if run.returncode != 0:
            raise CannotRun(f"{run.stdout}{run.stderr}the build failed")
    return folder / "orv"


def executable(path):
    """The executable to test, from --orv or our own build."""
    installed = ROOT.parents[1] / "libexec/larkspur/orv"  # beside share/larkspur
    if not path and installed.is_file():
        path = installed
    path = pathlib.Path(path).resolve() if path else build()
    if not path.is_file() or not os.access(path, os.X_OK):
        raise CannotRun(f"{path} is not executable; name one with --orv, or leave "
                        "--orv away: then it is built")
    # A build with another data folder would show, and change, the settings of
    # this machine.
    with Device(None, path) as probe:
        (probe.root / "templates/probe.tpl").write_text(
            "title found\nread_script s.sh\nnavbar_script s.sh\n"
            "body\ntext here\n")
        script = probe.root / "scripts/s.sh"
        script.write_text("#!/bin/bash\n")
        script.chmod(0o755)
        if probe.request("form=probe").title != "found":
            raise CannotRun(
                f"{path} does not use the copy of the device's folder: "
                "build it with -DORV_DATA_DIR=.. "
                "-DORV_SYSTEM_TYPE_FILE=../system_type")
    return path


def leads_to_store(path):
    """Whether it is the link that makes orv-store a form's script, or the link to
    the program itself."""
    return path.is_symlink() and (
        path.name == STORE or os.path.basename(os.readlink(path)) == STORE)


def copy_part(source, target, store):
    """Copies a file or folder of a device; where a form's script is a link to
    orv-store, the program `store` runs in its place."""
    if source.is_file():
        shutil.copy(source, target)
        return
    shutil.copytree(source, target, dirs_exist_ok=True, ignore=lambda folder, names: [
        name for name in names if leads_to_store(pathlib.Path(folder, name))])
    # The device's own link may lead to a build other than the one under test.
    # Where nothing leads to orv-store, none is added.
    links = {p.name: STORE for p in source.iterdir() if leads_to_store(p)}
    for name, program in links and {**links, STORE: store}.items():
        (target / name).unlink(missing_ok=True)
        (target / name).symlink_to(program)


def lines_of(path):
    """The lines as scripts read them: only LF ends a line."""
    return path.read_bytes().decode("utf-8", "replace").removesuffix("\n").split("\n")


class Device:
    """A copy of the device's folder (none: an empty device), removed at the
    end of a `with`."""

    def __init__(self, folder, orv):
        self.folder, self.orv = folder, orv
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="orv-test-"))
        self._lay_out()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root, ignore_errors=True)

    def _lay_out(self):
        for part in ("cgi-bin", ".sent"):
            (self.root / part).mkdir()
        (self.root / "cgi-bin/data").symlink_to("..")
        (self.root / ".note").write_text(NOTE_INPUT)
        for part in PARTS:
            if self.folder and (self.folder / part).exists():
                copy_part(self.folder / part, self.root / part, self._store())
        for part in PARTS[:2] + ("state", "acts"):
            (self.root / part).mkdir(exist_ok=True)
        # Actions can be requested, but none is run.  The FIFO is open for reading
        # and writing: without a reader, each request for an action would fail.
        os.mkfifo(self.root / "acts/ask")
        self.asked = open(self.root / "acts/ask", "r+b", buffering=0)
        os.set_blocking(self.asked.fileno(), False)

    def _store(self):
        """The program orv-store beside the executable."""
        return self.orv.parent / STORE

    def reset(self):
        """Restores the settings as shipped, as if nothing was ever stored."""
        shutil.rmtree(self.root / "state")
        # As orv-store makes it.
        (self.root / "state").mkdir(mode=0o700)

    def request(self, query="", fields=None, **headers):
        """The page for a link's query or, with fields (pairs or the bytes of a body),
        for a post."""
        # What the request before has left: sent() is about this one, and a FIFO
        # that is never emptied would be full some day.
        for noted in (self.root / ".sent").iterdir():
            noted.unlink()
        self.asked.read(65536)
        # What a web server sets, and nothing of the environment of whoever runs
        # the tests: it could change what scripts do.
        env = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "ORV_POLICY": "strict",
               "BASH_ENV": "../.note", "ORV_ACTS": "../acts", "SCRIPT_NAME": URL, "HTTP_HOST": HOST,
               "REQUEST_METHOD": "GET", "QUERY_STRING": query,
               "REMOTE_ADDR": "127.0.0.1", "UBSAN_OPTIONS": f"exitcode={REPORT}",
               "ASAN_OPTIONS": f"exitcode={REPORT}",
               "LSAN_OPTIONS": f"exitcode={REPORT}"}
        if self._store().is_file():
            env["ORV_STORE"] = str(self._store())
        body = fields or b""
        if fields is not None:
            # The bytes of a value that is no UTF-8 go back as they came.
            if not isinstance(fields, bytes):
                body = urllib.parse.urlencode(fields, errors="surrogateescape").encode()
            env |= {"REQUEST_METHOD": "POST", "HTTP_ORIGIN": f"http://{HOST}",
                    "CONTENT_TYPE": "application/x-www-form-urlencoded",
                    "CONTENT_LENGTH": str(len(body))}
        env |= headers  # None: the browser has not sent it
        return self._run({n: v for n, v in env.items() if v is not None}, body)

    def _run(self, env, body):
        try:
            run = subprocess.run([self.orv], cwd=self.root / "cgi-bin", env=env,
                                 input=body, capture_output=True,
                                 timeout=SECONDS, check=False)
        except subprocess.TimeoutExpired:
            raise CannotRun(f"no page after {SECONDS} seconds") from None
        # Below 0 it was killed by a signal: a crash is no page to test.
        head, _, page = run.stdout.partition(b"\r\n\r\n")
        if not 0 <= run.returncode < REPORT:
            raise CannotRun(f"orv exited with status {run.returncode}: "
                            + run.stderr.decode("utf-8", "replace"))
        if not head.startswith(b"Status: "):  # a web server would send an error page
            return Page(500, run.stderr)
        found = Page(int(head[8:11]), page)
        found.head = head
        return found

    def sent(self):
        """The last request's input lines for the write script or, if that did not
        run, for the check script; None if neither ran."""
        for script in ("write", "check"):
            path = self.root / ".sent" / script
            if path.exists():
                return lines_of(path)
        return None

    def stored(self, name):
        """The values of a file of the state folder, one per line; None without such a
        file: then the settings are as shipped."""
        path = self.root / "state" / name
        if not path.is_file():
            return None
        # A file that is only a head stands for settings as shipped.
        return [line for line in lines_of(path) if not line.startswith("#")] or None

    def stored_names(self):
        state = self.root / "state"
        return [str(p.relative_to(state)) for p in state.rglob("*") if p.is_file()]
