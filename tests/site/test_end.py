"""A server ends a request: what becomes of the script that runs meanwhile."""

import os
import resource
import select
import signal
import subprocess
import urllib.parse

import conftest
import pytest

# Is up when it has stopped, and says when it is told to end; it and its command
# hold `alive` for as long as they live.
STUBBORN = """exec 9>alive; trap 'echo told >&9; exit' TERM
until [[ $(</proc/$$/stat) == *") T "* ]]; do :; done && echo up >&9 && sleep 40 &
disown; kill -STOP $$; sleep 40"""
# Waits for a word and says whether there is still somebody to answer.
WRITER = """exec 9>alive 7<go 2>/dev/null; echo up >&9; read -u 7
[[ $(</proc/$PPID/stat) == *") "[DRS]" "* ]] && echo heard >&9; echo saved >&9"""
# The same, before it has taken its input, of which a pipe holds a part.
LISTENER = ("[[ $1 = --write ]] || exec cat >f.check",
            WRITER.replace("[[", "cat >f.write; [["))
SAVE = {"form": "f", "cgi_vars_loaded": "1", "x": "1", "action": "Submit"}


def start(site, fields, descriptors):
    """Sends a request, from a server that blocks SIGTERM and limits descriptors."""
    def prepare():
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
        resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors))
    query = urllib.parse.urlencode(fields)
    return subprocess.Popen(
        [conftest.ORV], cwd=site.folder, stdout=subprocess.DEVNULL,
        env=conftest.ENVIRONMENT | {"SYSLOG_FILE": os.devnull, "QUERY_STRING": query},
        preexec_fn=prepare)


def heard(alive):
    """The next that the script says; b"" when all of it has ended."""
    assert select.select([alive], [], [], conftest.SECONDS)[0], "goes on"
    return alive.readline()


@pytest.mark.parametrize("sig", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("task", ["read", "check", "navbar", "write", "listen"])
def test_a_script_ends_with_its_request_unless_it_writes_all(site, task, sig):
    os.mkfifo(site.folder / "alive")
    os.mkfifo(site.folder / "go")
    alive = open(os.open(site.folder / "alive", os.O_NONBLOCK), "rb", buffering=0)
    go = open(site.folder / "go", "r+b", buffering=0)
    site.template("f", "field x")
    if task == "listen":
        site.script("f.sh", *LISTENER)
    else:
        site.form_script("f", **{task: WRITER if task == "write" else STUBBORN})
    size = 100_000 if task == "listen" else 1
    orv = start(site, {"form": "f"} if task in ("read", "navbar") else SAVE | {"x": "1" * size},
                64 if task == "navbar" else 1024)
    assert heard(alive) == b"up\n"
    orv.send_signal(sig)
    if sig == signal.SIGKILL:
        assert orv.wait(conftest.SECONDS) == -sig
    go.write(b"\n")
    told = b"told\n" if task in ("read", "check", "navbar") else b"heard\n"
    assert sig == signal.SIGKILL or heard(alive) == told
    saves = task == "write" or (task == "listen" and sig == signal.SIGTERM)
    assert not saves or heard(alive) == b"saved\n"
    assert heard(alive) == b""
    assert orv.wait(conftest.SECONDS) == -sig
