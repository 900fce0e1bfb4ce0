"""A server ends a request, or a terminal goes away: what happens to the script
that is running."""

import os
import pty
import select
import signal
import subprocess
import urllib.parse

import conftest
import pytest

# It stops itself when it is ready, and says when it gets SIGTERM; it and its
# command hold `alive` as long as they live.
STUBBORN = """exec 9>alive; trap 'echo told >&9; exit' TERM
{ until [[ $(</proc/$$/stat) == *") T "* ]]; do :; done; echo up >&9; HOLD sleep 40; } &
disown; kill -STOP $$; sleep 40"""
# Waits for a line and says whether its output still has a reader.
WRITER = """exec 9>alive 7<go 2>/dev/null; echo up >&9; read -u 7
[[ $(</proc/$PPID/stat) == *") "[DRS]" "* ]] && echo heard >&9; echo saved >&9"""
# The same, before it reads its input, which may all be in the pipe.
LISTENER = ("[[ $1 = --write ]] || exec cat >f.check",
            WRITER.replace("[[", "cat >f.write; [[", 1))
SAVE = {"form": "f", "cgi_vars_loaded": "1", "x": "1", "action": "Submit"}


def start(site, fields):
    """Sends a request, from a server that blocks SIGTERM."""
    body = urllib.parse.urlencode(fields).encode()
    orv = subprocess.Popen(
        [conftest.ORV], cwd=site.folder, stdout=subprocess.DEVNULL, stdin=subprocess.PIPE,
        env=conftest.ENVIRONMENT | {"SYSLOG_FILE": os.devnull, "REQUEST_METHOD": "POST",
                                    "CONTENT_LENGTH": str(len(body))},
        preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM]))
    orv.stdin.write(body)
    orv.stdin.close()
    return orv


def heard(alive):
    """The script's next output; b"" when all its processes have ended."""
    assert select.select([alive], [], [], conftest.SECONDS)[0], "goes on"
    return alive.readline()


def open_pipes(site):
    """The script's output, and the pipe on which it waits for a line."""
    os.mkfifo(site.folder / "alive")
    os.mkfifo(site.folder / "go")
    return (open(os.open(site.folder / "alive", os.O_NONBLOCK), "rb", buffering=0),
            open(site.folder / "go", "r+b", buffering=0))


@pytest.mark.parametrize("sig", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("task", ["read", "check", "navbar", "write"])
def test_a_script_ends_with_its_request_unless_it_writes(site, task, sig):
    alive, go = open_pipes(site)
    site.template("f", "field x")
    # If the request is killed, only the script's own process dies with it.
    stubborn = STUBBORN.replace("HOLD", "exec 9>&-;" if sig == signal.SIGKILL else "")
    site.form_script("f", **{task: WRITER if task == "write" else stubborn})
    orv = start(site, {"form": "f"} if task in ("read", "navbar") else SAVE)
    assert heard(alive) == b"up\n"
    orv.send_signal(sig)
    if sig == signal.SIGKILL:
        assert orv.wait(conftest.SECONDS) == -sig
    go.write(b"\n")
    told = b"told\n" if task != "write" else b"heard\n"
    assert sig == signal.SIGKILL or heard(alive) == told
    assert task != "write" or heard(alive) == b"saved\n"
    assert heard(alive) == b""
    assert orv.wait(conftest.SECONDS) == -sig


# A pipe's size, also enlarged; beyond that, a request that gets only SIGTERM
# still passes all of the input to the script.
@pytest.mark.parametrize("size, sig", [
    (65535, signal.SIGKILL), (65536, signal.SIGKILL), (65537, signal.SIGKILL),
    (1048575, signal.SIGKILL), (1048576, signal.SIGKILL), (1048577, signal.SIGTERM),
    (3000000, signal.SIGTERM)])
def test_a_write_script_takes_its_whole_input_whatever_becomes_of_the_request(
        site, size, sig):
    alive, go = open_pipes(site)
    site.template("f", "field x")
    site.script("f.sh", *LISTENER)
    orv = start(site, SAVE | {"x": "1" * (size - len('new_x=""\n'))})
    assert heard(alive) == b"up\n"
    orv.send_signal(sig)
    if sig == signal.SIGKILL:
        assert orv.wait(conftest.SECONDS) == -sig
    go.write(b"\n")
    assert heard(alive) == (b"heard\n" if sig == signal.SIGTERM else b"saved\n")
    assert sig == signal.SIGKILL or heard(alive) == b"saved\n"
    assert (site.folder / "f.write").stat().st_size == size
    assert orv.wait(conftest.SECONDS) == -sig


# The ways a terminal ends its program: it goes away, or a key is pressed.
@pytest.mark.parametrize("end, sig", [
    (None, signal.SIGHUP), (b"\x03", signal.SIGINT), (signal.SIGTERM, signal.SIGTERM)])
@pytest.mark.parametrize("task", ["read", "check", "write"])
def test_a_save_from_a_terminal_is_finished_without_it(site, task, end, sig):
    alive, go = open_pipes(site)
    site.template("f", "field x")
    site.form_script("f", **{task: WRITER if task == "write" else
                             "exec 9>alive; echo up >&9; sleep 40"})
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(site.folder)
        os.execv(os.environ["ORVCTL"], ["orvctl", "set", "f", "x=1"])
    assert heard(alive) == b"up\n"
    if end is None:
        os.close(terminal)
    elif isinstance(end, bytes):
        os.write(terminal, end)
        while b"^C" not in os.read(terminal, 99):  # shown once it has been sent
            pass
    else:
        os.kill(child, end)
    go.write(b"\n")
    assert task != "write" or (heard(alive), heard(alive)) == (b"heard\n", b"saved\n")
    assert heard(alive) == b""
    assert os.waitpid(child, 0)[1] == sig
    assert task != "write" or site.given("f", "write") == ['new_x="1"']
    if end is not None:
        os.close(terminal)
