"""A device in a folder of its own, served by a web server with the configuration
that we ship; only its paths and ports are changed to that folder and free ones."""

import base64
import http.client
import os
import pathlib
import pwd
import re
import shutil
import socket
import ssl
import subprocess
import tempfile
import threading
import time

from conftest import ORV, SECONDS, Site

ROOT = pathlib.Path(__file__).resolve().parents[2]
WEB = pathlib.Path(os.environ.get("WEB", ROOT / "build/test/web"))
PROGRAMS = {"lighttpd": "lighttpd", "nginx": "nginx", "apache": "apache2",
            "busybox": "busybox"}
# The placeholders for a device's paths in our configurations; README.md lists them.
PLACES = re.compile(r"(?<![\w./])/((usr/share|etc|etc/default|run|var/lib)/larkspur"
                    r"|usr/lib/cgi-bin|dev/log)\b")
PICTURES = {"logo.svg": "image/svg+xml", "icon.png": "image/png",
            "icon.ico": "image/x-icon", "photo.webp": "image/webp"}
# The system log, which no test reads.
LOGS = {"server.errorlog-use-syslog = \"enable\"": "",
        "accesslog.use-syslog = \"enable\"": "accesslog.filename = \"{}\"",
        "syslog:daemon:apache": "{}",
        "/usr/bin/logger -t apache -p daemon.info": "/usr/bin/tee -a {}"}
# What limits the number of running programs where `limited` does not.
ONE_PROGRAM = re.compile(r"(server.max-connections =|ServerLimit|ThreadsPerChild"
                         r"|MaxRequestWorkers|MaxSpareThreads|MinSpareThreads) \d+")
URL = "/cgi-bin/orv"
USER, PASSWORD = "admin", "right:horse"
HOSTS = "pages.example.com"


def web_user():
    """The server's user; root drops its rights."""
    return "www-data" if os.getuid() == 0 else pwd.getpwuid(os.getuid()).pw_name


def free_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


class Answer:
    def __init__(self, answer, body):
        self.status, self.headers, self.body = answer.status, answer.headers, body
        self.text = body.decode("utf-8", "replace")

    def __getitem__(self, name):
        return self.headers.get(name, "")


class Server:
    """`name` serves `root`; `start` and `stop` may be called repeatedly."""

    def __init__(self, name):
        self.name, self.tls = name, name != "busybox"
        self.root = pathlib.Path(tempfile.mkdtemp(prefix=f"servers-{name}-"))
        self.root.chmod(0o755)
        self.process, self.errors = None, self.root / "errors"
        self.log = self.root / "log" # in place of the system log
        self.log.touch()
        self.log.chmod(0o666)
        self.etc = self.root / "etc/larkspur"
        self.state = self.root / "var/lib/larkspur/state"
        self.page_seconds, self.slots = 60, 8
        self.lay_out()
        if name == "nginx":
            self.listen_to_log()

    def listen_to_log(self):
        """Receives its system log messages on a socket."""
        to = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        to.bind(str(self.root / "dev/log"))
        (self.root / "dev/log").chmod(0o666)

        def listen():
            with self.log.open("ab", 0) as log:
                while True:
                    log.write(to.recv(8192) + b"\n")
        threading.Thread(target=listen, daemon=True).start()

    def said(self):
        """All its output: the log, and standard error."""
        return self.log.read_bytes() + self.errors.read_bytes()

    # --- the device -----------------------------------------------------------

    def lay_out(self):
        for folder in ("usr/share/larkspur/boot", "usr/lib/cgi-bin", "etc/default", "dev"):
            (self.root / folder).mkdir(parents=True)
        shutil.copytree(WEB, self.root / "usr/share/larkspur/www")
        for name in PICTURES:
            (self.root / "usr/share/larkspur/www/css" / name).write_text(
                "<svg xmlns='http://www.w3.org/2000/svg'/>")
        shutil.copy(ORV, self.root / "usr/lib/cgi-bin/orv")
        self.site = Site(self.root / "usr/lib/cgi-bin")
        shutil.copy(os.environ["ORV_STORE"], self.site.scripts / "orv-store")
        group = "www-data" if os.getuid() == 0 else ""
        (self.root / "etc/default/larkspur").write_text(
            f"ORV_STATE={self.state}\nORV_HOSTS='{HOSTS} other.example'\nORV_LANG=nl\n"
            f"WEB_USER={web_user()}\nGROUP={group or os.getgid()}\n")

    def move(self):
        """Copies our configuration, changed to this folder and to free ports."""
        self.port, self.plain_port = free_port(), free_port()
        ports = {"443": self.port, "80": self.port if not self.tls else self.plain_port}
        to = self.root / "usr/share/larkspur"
        shutil.rmtree(to / "servers", ignore_errors=True)
        shutil.copytree(ROOT / "packaging/servers", to / "servers")
        shutil.copy(ROOT / "packaging/boot/larkspur-first-start", to / "boot")
        for file in [*to.glob("servers/*"), *to.glob("boot/*")]:
            if file.is_file():
                text = PLACES.sub(lambda m: f"{self.root}{m[0]}", file.read_text())
                text = text.replace("0.0.0.0", "127.0.0.1")
                text = re.sub(r"\b(443|80)\b", lambda m: str(ports[m[0]]), text)
                for shipped, ours in LOGS.items():
                    text = text.replace(shipped, ours.format(self.log))
                text = re.sub("(page_seconds(?: =)?) 60", rf"\1 {self.page_seconds}", text)
                if self.slots == 1:
                    text = ONE_PROGRAM.sub(r"\1 1", text)
                file.write_text(text)

    # --- the server -----------------------------------------------------------

    def start(self):
        """Starts it, on other ports if another process took one."""
        assert shutil.which(PROGRAMS[self.name], path=os.environ["PATH"] + ":/usr/sbin"), \
            f"{PROGRAMS[self.name]} is not installed"
        for _ in range(5):
            self.move()
            if self.try_start():
                return self
            text = self.said().decode("utf-8", "replace")
            assert re.search("[Aa]ddress already in use", text), text
        raise AssertionError(f"{self.name} finds no free port")

    def try_start(self):
        """Starts it once; False if it has ended without an answer."""
        self.process = subprocess.Popen(
            [self.root / "usr/share/larkspur/servers/start", self.name],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=self.errors.open("wb"), cwd="/", env=self.environment())
        until = time.monotonic() + 60
        while time.monotonic() < until and self.process.poll() is None:
            try:
                return self.ask("/css/orv.css", login=None).status == 200
            except (OSError, http.client.HTTPException):
                pass  # not yet; or it opens its port again
            time.sleep(0.02)
        return False

    def environment(self):
        return {"PATH": os.environ["PATH"], "LARKSPUR_SECONDS": str(self.page_seconds),
                "LARKSPUR_SLOTS": str(self.slots), "LARKSPUR_PATIENCE": "1",
                "LARKSPUR_CONSOLE": str(self.root / "console")}

    def stop(self):
        """Stops it; nothing that it has started may be left."""
        if self.process is not None:
            self.process.terminate()
            self.process.wait(SECONDS)
            self.process = None
            until = time.monotonic() + SECONDS
            while self.running() and time.monotonic() < until:
                time.sleep(0.05)
            assert self.running() == []

    def running(self):
        """The command lines of processes that mention this folder or run in it."""
        found, root = [], os.fsencode(self.root)
        for path in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                line = (path / "cmdline").read_bytes()
                if root in line or root in os.readlink(os.fsencode(path / "cwd")):
                    found.append(line)
            except OSError:
                pass  # it has ended, or belongs to another user
        return found

    def close(self):
        try:
            self.stop()
        finally:
            shutil.rmtree(self.root)

    # --- a client ---------------------------------------------------------------

    def connect(self, plain=False):
        """A connection to the pages, or to the port without TLS."""
        port = self.plain_port if plain else self.port
        to = socket.create_connection(("127.0.0.1", port), SECONDS)
        if plain or not self.tls:
            return to
        context = ssl.create_default_context(cafile=self.etc / "tls.pem")
        context.check_hostname = False
        return context.wrap_socket(to)

    def ask(self, path=URL, method="GET", body=None, login=(USER, PASSWORD), host=None,
            plain=False, **headers):
        """Returns the answer; the argument Sec_Fetch_Site is the header Sec-Fetch-Site."""
        to = http.client.HTTPConnection("127.0.0.1", self.port)
        to.sock = self.connect(plain)
        to.putrequest(method, path, skip_host=True, skip_accept_encoding=True)
        to.putheader("Host", host or f"127.0.0.1:{self.port}")
        to.putheader("Connection", "close")
        if login:
            to.putheader("Authorization", f"Basic {self.basic(login)}")
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        if body is not None:
            headers = {"Content-Type": "application/x-www-form-urlencoded",
                       "Content-Length": str(len(body))} | headers
        for name, value in headers.items():
            to.putheader(name, value)
        try:
            to.endheaders()
            if body is not None:
                to.send(body)
        except (BrokenPipeError, ConnectionResetError, ssl.SSLError):
            pass  # the server reads no more; its answer may have arrived all the same
        answer = to.getresponse()
        body = answer.read()
        to.close()
        return Answer(answer, body)

    @staticmethod
    def basic(login=(USER, PASSWORD)):
        return base64.b64encode(":".join(login).encode()).decode()

    def origin(self):
        return f"{'https' if self.tls else 'http'}://127.0.0.1:{self.port}"
