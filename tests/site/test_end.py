"""A server ends a request: what becomes of the script that runs meanwhile."""

import os
import select
import signal
import subprocess
import urllib.parse

import conftest
import pytest

# Says when it is up and when it is told to end; it and its command hold `alive`
# for as long as they live.
STUBBORN = """exec 9>alive; trap 'echo told >&9; exit' TERM; echo up >&9
sleep 40 & disown; sleep 40"""
# Waits for a word and says whether there is still somebody to answer.
WRITER = """exec 9>alive 7<go 2>/dev/null; echo up >&9; read -u 7
[[ $(</proc/$PPID/stat) == *") "[DRS]" "* ]] && echo heard >&9; echo saved >&9"""
SAVE = {"form": "f", "cgi_vars_loaded": "1", "x": "1", "action": "Submit"}


def start(site, fields):
    """Sends a request, from a server that blocks SIGTERM."""
    query = urllib.parse.urlencode(fields)
    return subprocess.Popen(
        [conftest.ORV], cwd=site.folder, stdout=subprocess.DEVNULL,
        env=conftest.ENVIRONMENT | {"SYSLOG_FILE": os.devnull, "QUERY_STRING": query},
        preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM]))


def heard(alive):
    """The next that the script says; b"" when all of it has ended."""
    assert select.select([alive], [], [], conftest.SECONDS)[0], "goes on"
    return alive.readline()


@pytest.mark.parametrize("sig", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("task", ["read", "check", "navbar", "write"])
def test_a_script_ends_with_its_request_unless_it_writes(site, task, sig):
    os.mkfifo(site.folder / "alive")
    os.mkfifo(site.folder / "go")
    alive = open(os.open(site.folder / "alive", os.O_NONBLOCK), "rb", buffering=0)
    go = open(site.folder / "go", "r+b", buffering=0)
    site.template("f", "field x")
    site.form_script("f", **{task: WRITER if task == "write" else STUBBORN})
    orv = start(site, SAVE if task in ("check", "write") else {"form": "f"})
    assert heard(alive) == b"up\n"
    orv.send_signal(sig)
    if sig == signal.SIGKILL:
        assert orv.wait(conftest.SECONDS) == -sig
    go.write(b"\n")
    told = {"write": b"heard\n"}.get(task, b"told\n")
    assert sig == signal.SIGKILL or heard(alive) == told
    assert task != "write" or heard(alive) == b"saved\n"
    assert heard(alive) == b""
    assert orv.wait(conftest.SECONDS) == -sig
