"""The systems compared, and how a web server starts each of them.

A peer has a folder beside this file.  Its files are copied to a folder of their
own: cgi-bin/, where the server starts it, and state/ beside it, where it stores
its settings.
"""
import contextlib
import ctypes
import dataclasses
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
HOST = "device.local"
ENVIRONMENT = {
    "GATEWAY_INTERFACE": "CGI/1.1", "SERVER_PROTOCOL": "HTTP/1.1",
    "SERVER_SOFTWARE": "bench", "SERVER_NAME": HOST, "SERVER_PORT": "80",
    "REQUEST_SCHEME": "http", "REMOTE_ADDR": "192.0.2.7",
    "REMOTE_PORT": "49152", "REDIRECT_STATUS": "200", "HTTP_HOST": HOST,
    "HTTP_USER_AGENT": "bench", "HTTP_ACCEPT": "text/html",
    "HTTP_REFERER": f"http://{HOST}/",
}


def store_of(orv):
    """The program that stores, beside the executable or in the folder above."""
    for folder in pathlib.Path(orv).resolve().parents[:2]:
        if (folder / "orv-store").is_file():
            return folder / "orv-store"
    raise Failure(f"{orv}: orv-store is not beside it")


class Failure(Exception):
    """An error that ends a run, with a message for the user."""


@dataclasses.dataclass(frozen=True)
class Peer:
    name: str
    title: str
    packages: tuple   # Debian packages that it needs
    program: tuple    # the arguments in front of the script
    script: str = "gateway.cgi"
    folder: str = ""  # of its files, if it has another name
    kind: str = "cgi"  # "orv", "cgi" or "fpm"
    has_script: bool = True  # without one, only single fields are checked


# Ours: with a script for rules between fields, without one, and with one that
# also reads and stores.  Then the others, as they are usually started on a small
# device.
PEERS = (
    Peer("larkspur", "Larkspur", (), (), "orv", kind="orv"),
    Peer("larkspur-plain", "Larkspur, no script", (), (), "orv", kind="orv",
         has_script=False),
    Peer("larkspur-script", "Larkspur, full script", (), (), "orv",
         kind="orv"),
    Peer("haserl", "haserl (dash)", ("haserl",), ("/usr/bin/haserl",)),
    Peer("bash", "bash", ("bash", "coreutils"), ("/bin/bash",)),
    Peer("lua", "Lua", ("lua5.4",), ("/usr/bin/lua5.4",)),
    Peer("perl", "Perl", ("perl-base",), ("/usr/bin/perl", "-T")),
    Peer("php-cgi", "PHP, CGI", ("php-cgi",), ("/usr/bin/php-cgi",),
         "gateway.php", "php"),
    Peer("php-fpm", "PHP, FPM", ("php-fpm",), (), "gateway.php", "php", "fpm"),
    Peer("python", "Python", ("python3",), ("/usr/bin/python3", "-I")),
)


@dataclasses.dataclass
class Request:
    body: bytes | None = None
    headers: dict = dataclasses.field(default_factory=dict)


@dataclasses.dataclass
class Answer:
    text: bytes   # header and body
    wall: float   # seconds
    cpu: float    # seconds of its processes, 0 if unknown

    @property
    def status(self):
        return int(self.text.partition(b"Status: ")[2][:3] or b"200")

    @property
    def page(self):
        head, _, body = self.text.replace(b"\r\n", b"\n").partition(b"\n\n")
        return body.decode("latin-1")


def usable(peer):
    """Whether the peer exists and its programs are installed."""
    programs = peer.program[:1]
    if peer.kind == "fpm":
        programs = (fpm_program(),)
    return (HERE / (peer.folder or peer.name)).is_dir() and all(
        p and os.access(p, os.X_OK) for p in programs)


def fpm_program():
    found = sorted(pathlib.Path("/usr/sbin").glob("php-fpm*"))
    return str(found[-1]) if found else None


SERVERS = set()  # our children that no request has started
PR_SET_CHILD_SUBREAPER = 36


def adopt():
    """From now on, processes that outlive their request become our children."""
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def children_of_all_threads():
    pids = set()
    for task in pathlib.Path("/proc/self/task").iterdir():
        # A client's thread may end a little after it is joined.
        with contextlib.suppress(FileNotFoundError):
            pids |= set(map(int, (task / "children").read_text().split()))
    return pids


def outlived():
    """The CPU seconds of processes that outlived their request, such as one that
    holds the lock for a script; waits for them."""
    seconds = 0
    while True:
        pids = children_of_all_threads() - SERVERS
        if not pids:
            return seconds
        for pid in pids:
            _, _, usage = os.wait4(pid, 0)
            seconds += usage.ru_utime + usage.ru_stime


class Site:
    """A peer laid out in a folder, ready to answer."""

    def __init__(self, peer, folder, orv, data):
        self.peer = peer
        self.folder = pathlib.Path(folder) / peer.name
        self.cgi_bin = self.folder / "cgi-bin"
        self.state = self.folder / "state"
        self.cgi_bin.mkdir(parents=True)
        source = HERE / (peer.folder or peer.name)
        script = self.cgi_bin / peer.script
        self.arguments = [*peer.program, str(script)]
        self.query = ""
        if peer.kind == "orv":
            device = self.cgi_bin / data
            # A form without a script is a link to the program installed there.
            shutil.copytree(source, device, dirs_exist_ok=True, symlinks=True)
            for library in (ROOT / "lib").iterdir():
                if (device / "scripts" / library.name).is_symlink():
                    (device / "scripts" / library.name).unlink()
                    shutil.copy(library, device / "scripts")
            (device / "system_type").touch()
            shutil.copy(orv, script)
            shutil.copy(store_of(orv), device / "scripts/orv-store")
            self.state, self.query = device / "state", "form=gateway"
        else:
            shutil.copy(source / peer.script, script)
        self.state.mkdir(mode=0o700)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        pass

    def environment(self, request):
        script = self.peer.script
        env = {**ENVIRONMENT, "REQUEST_METHOD": "GET",
               "QUERY_STRING": self.query, "SCRIPT_NAME": f"/cgi-bin/{script}",
               "SCRIPT_FILENAME": str(self.cgi_bin / script),
               "DOCUMENT_ROOT": str(self.folder),
               "REQUEST_URI": f"/cgi-bin/{script}?{self.query}"}
        if request.body is not None:
            env.update(REQUEST_METHOD="POST", QUERY_STRING="",
                       CONTENT_TYPE="application/x-www-form-urlencoded",
                       CONTENT_LENGTH=str(len(request.body)),
                       HTTP_ORIGIN=f"http://{HOST}")
        env.update(request.headers)
        return env

    def answer(self, request, wrapper=()):
        """Starts the program as a server does, and waits for its end."""
        env = self.environment(request)
        arguments = [*wrapper, *self.arguments]
        body, body_end = os.pipe()
        out, out_end = os.pipe()
        os.write(body_end, request.body or b"")  # small enough for the pipe
        os.close(body_end)
        start = time.perf_counter()
        pid = os.posix_spawn(arguments[0], arguments, env, file_actions=[
            (os.POSIX_SPAWN_DUP2, body, 0), (os.POSIX_SPAWN_DUP2, out_end, 1)])
        os.close(body)
        os.close(out_end)
        with open(out, "rb") as file:
            text = file.read()
        _, status, usage = os.wait4(pid, 0)
        wall = time.perf_counter() - start
        if os.WIFSIGNALED(status):
            raise Failure(f"{self.peer.title} died of a signal")
        return Answer(text, wall, usage.ru_utime + usage.ru_stime)

    def batch(self, requests, clients):
        """The answers to that many clients, each sending every request in turn; the
        seconds of wall-clock time and of CPU time for all."""
        os.chdir(self.cgi_bin)
        answers, faults = [], []

        def client():
            try:
                for request in requests:
                    answers.append(self.answer(request))
            except (Failure, OSError) as fault:
                faults.append(fault)

        before, start = self.cpu(), time.perf_counter()
        threads = [threading.Thread(target=client) for _ in range(clients - 1)]
        for thread in threads:
            thread.start()
        client()
        for thread in threads:
            thread.join()
        wall = time.perf_counter() - start
        if faults:
            raise faults[0]
        return answers, wall, (self.cpu() - before + outlived()
                               + sum(a.cpu for a in answers))

    def cpu(self):
        """CPU seconds used so far by processes that outlive a request."""
        return 0


# Types of FastCGI records.
BEGIN, END, PARAMS, STDIN, STDOUT = 1, 3, 4, 5, 6


def record(kind, content):
    return struct.pack("!BBHHBx", 1, kind, 1, len(content), 0) + content


def pairs(env):
    def length(text):
        size = len(text)
        return (bytes([size]) if size < 128
                else struct.pack("!I", size | 1 << 31))
    encoded = [(n.encode(), v.encode()) for n, v in env.items()]
    return b"".join(length(n) + length(v) + n + v for n, v in encoded)


class FpmSite(Site):
    """The same behind a FastCGI server with a process per client."""
    WORKERS = 8
    PATIENCE = 60

    def __enter__(self):
        self.socket = f"{tempfile.mkdtemp(dir=self.folder.parent)}/fpm"
        config = self.folder / "fpm.conf"
        config.write_text(
            f"[global]\nerror_log = {self.folder}/fpm.log\ndaemonize = no\n"
            f"[gateway]\nlisten = {self.socket}\npm = static\n"
            f"pm.max_children = {self.WORKERS}\n"
            + ("user = root\ngroup = root\n" if os.geteuid() == 0 else ""))
        self.command = [fpm_program(), "-F", "-y", str(config),
                        *(["-R"] if os.geteuid() == 0 else [])]
        self.start(())
        return self

    def start(self, wrapper):
        self.server = subprocess.Popen([*wrapper, *self.command],
                                       stderr=subprocess.DEVNULL)
        SERVERS.add(self.server.pid)
        until = time.monotonic() + self.PATIENCE
        while not os.path.exists(self.socket):
            if self.server.poll() is not None or time.monotonic() > until:
                raise Failure(f"PHP-FPM did not start: {self.folder}/fpm.log")
            time.sleep(0.02)

    def stop(self):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait()
        pathlib.Path(self.socket).unlink(missing_ok=True)

    def __exit__(self, *_):
        self.stop()

    def answer(self, request, wrapper=()):
        start = time.perf_counter()
        with socket.socket(socket.AF_UNIX) as server:
            server.connect(self.socket)
            body = request.body or b""
            server.sendall(
                record(BEGIN, struct.pack("!HB5x", 1, 0))
                + record(PARAMS, pairs(self.environment(request)))
                + record(PARAMS, b"") + (record(STDIN, body) if body else b"")
                + record(STDIN, b""))
            text = self.receive(server.makefile("rb"))
        return Answer(text, time.perf_counter() - start, 0)

    @staticmethod
    def receive(stream):
        text = b""
        while True:
            head = stream.read(8)
            if len(head) < 8:
                raise Failure("PHP-FPM broke off")
            _, kind, _, length, padding = struct.unpack("!BBHHBx", head)
            content = stream.read(length + padding)[:length]
            if kind == STDOUT:
                text += content
            elif kind == END:
                return text

    def processes(self):
        pid = self.server.pid
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text()
        return [pid, *map(int, children.split())]

    def cpu(self):
        """Work that a process does after its answer counts, too."""
        last = None
        while True:
            now = sum(int(pathlib.Path(f"/proc/{p}/schedstat").read_text()
                          .split()[0]) for p in self.processes())
            if now == last:
                return now / 1e9
            last = now
            time.sleep(0.001)


def site(peer, folder, orv, data):
    return (FpmSite if peer.kind == "fpm" else Site)(peer, folder, orv, data)
