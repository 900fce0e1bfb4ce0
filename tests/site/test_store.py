"""The settings folder: what readers, savers and administrators see while others
write, and which content its files may have.
"""

import contextlib
import os
import pathlib
import random
import re
import shutil
import subprocess
import tempfile
import threading

import pytest
from conftest import CHANGED, LIMITS, LONG, PRELOAD, SHIM

ROWS = LIMITS["ORV_STORED_ROWS_MAX"]
LONGEST = "x" * (LIMITS["ORV_REPORTED_MAX"] - 1)  # behind a name of one letter
LIBRARY = pathlib.Path(__file__).parents[2] / "lib"
STORE, HASTY = os.environ["ORV_STORE"], os.environ["ORV_STORE_HASTY"]
ORV = os.environ["ORV"]
SECONDS = 60
ROUNDS = 700 if LONG else 200  # of each reader, beside a writer
NOBODY = 65534


class Device:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.state, self.defaults = self.folder / "state", self.folder / "defaults"
        for path in (self.state, self.defaults):
            path.mkdir()
        self.env = {"PATH": os.environ["PATH"], "ORV_STATE": str(self.state),
                    "ORV_DEFAULTS": str(self.defaults), "ORV_STORE": STORE,
                    "ORV_TEMPLATES": str(self.folder)}

    def start(self, *words, **more):
        return subprocess.Popen(
            words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            stderr=subprocess.STDOUT, env=self.env | more.pop("env", {}), **more)

    def run(self, *words, given="", **more):
        with self.start(*words, **more) as process:
            text, _ = process.communicate(given, timeout=SECONDS)
            return process.returncode, text

    def store(self, *words, **more):
        return self.run(STORE, *words, **more)

    def save(self, order, program=STORE, **more):
        return self.run(program, "store", "-", "form", given=order, **more)

    def script(self, text, **more):
        text = f". {LIBRARY}/orv.bash; {text}"
        return self.run("bash", "-c", text, "script", "--task", "form", **more)

    def load(self, *files):
        """The values or the fault that both readers find; they must agree."""
        status, text = self.store("load", *files)
        found = sorted(text.split("\n")[1:-1]) if status == 0 else "fault"
        _, told = self.script(f"""orv_load {' '.join(files)}
            for n in "${{!orv[@]}}"; do printf '%s\n' "$n=${{orv[$n]}}"; done""")
        bash = "fault" if "error_fatal" in told else sorted(told.split("\n")[:-1])
        assert bash == found, (text, told)
        return found

    def names(self):
        return sorted(path.name for path in self.state.iterdir())


@pytest.fixture
def device(tmp_path):
    return Device(tmp_path)


@contextlib.contextmanager
def locked(device, form="net", **env):
    """Holds the lock as another process meanwhile."""
    with device.start("sleep", "999") as script:
        status, text = device.store("input", str(script.pid), form, env=env)
        assert status == 0 and text.startswith("ok\nholder "), text
        try:
            yield script
        finally:
            script.kill()


# --- readers ------------------------------------------------------------------

READERS = {
    "at once": "orv_load a b",
    "one by one": "orv_load a; orv_load b",
    "program": f"mapfile -t l < <({STORE} load a b); orv[a]=${{l[1]#a=}} orv[b]=${{l[2]#b=}}",
}


def test_readers_never_see_half_of_a_save(device):
    """While saves, a reverted change and a reset are committed, every reader finds
    two equal counters."""
    for name in "ab":
        (device.defaults / name).write_text(f"{name}=0\n")
    over = threading.Event()

    def write():
        number = 0
        while not over.is_set():
            number += 1
            guard = "@guard 60\n" if number % 3 == 0 else ""
            status, text = device.save(f"{guard}> a\na={number}\n> b\nb={number}\n")
            assert status == 0, text
            device.store(["confirm", "boot", "arm"][number % 3],
                         *(["none"] if number % 3 == 2 else []))
            if number % 7 == 0:
                assert device.store("reset") == (0, "ok\n")
        return number

    readers = {name: device.start("bash", "-c", f""". {LIBRARY}/orv.bash
        for ((i = 0; i < {ROUNDS}; i++)); do
          (for u in {{1..3}}; do {read}; done
          [[ ${{orv[a]}} && ${{orv[a]}} == "${{orv[b]}}" ]] || echo "${{orv[*]}}")
        done""", "script", "--read", "form") for name, read in READERS.items()}
    writer = threading.Thread(target=write)
    writer.start()
    seen = {name: reader.communicate(timeout=600)[0]
            for name, reader in readers.items()}
    over.set()
    writer.join()
    assert seen == dict.fromkeys(READERS, "")


def random_file(rng, heads):
    names = ["a", "host", "port0", "port1", "port12", "ip0", "B", "x=1", "port", "a0b"]
    lines = [f"{rng.choice(names)}={rng.choice(['', '1', 'a b', '$x=0=', chr(233), '*'])}"
             for _ in range(rng.randrange(9))]
    lines += rng.choices(["# a=b", "", "no line", " a=1", "1a=2"], k=rng.randrange(3))
    rng.shuffle(lines)
    # Later lines like that are not heads.
    more = rng.choices(["", "#orv 3 1 -", "#table B"]) if heads + lines else []
    return "\n".join([*heads, *lines, *more]) + rng.choice(["", "\n"])


def test_program_and_library_read_files_alike(device):
    rng = random.Random(19)
    for _ in range(120):
        tables = rng.choice(["", " port", " port ip", " *", " host", "none"])
        heads = rng.choice([
            [], ["#orv 1764090000.12.7 1764090000.12.9"],
            ["#orv 2 7 1.2", f"#table{tables}"], ["#orv 2 7 -"]])
        stored, known = rng.choices([1, 2, 11], [3, 1, 1], k=2)
        stored = 1 if len(heads) == 1 else stored
        for folder, some, version in ((device.state, heads, stored), (device.defaults, [], known)):
            (folder / "f").write_text(random_file(rng, some + [f"#version {version}"] * (version > 1)))
        if rng.random() < 0.2:
            (device.state / "f").unlink()
        assert device.load("f") != "fault" or stored > known
    (device.defaults / "linked").symlink_to("f")
    (device.defaults / "f").write_text("v=1\n")
    assert device.load("linked") == ["v=1"]  # by the maker; the settings are no link
    # Deleted rows stay deleted; new values of an upgrade exist.
    (device.defaults / "f").write_text("new=1\nport0=80\nport1=81\nvia0=x\nold=2\n")
    for head, rows in ((["#orv 2 7 -", "#table port via"], []),
                       (["#orv 1764090000.12.7 1.2"], []), ([], []),
                       (["#orv 2 7 -", "#table port"], ["via0=x"]),
                       (["#orv 2 7 -", "#table *"], [])):
        (device.state / "f").write_text("\n".join([*head, "old=3", ""]))
        assert device.load("f") == sorted(["new=1", "old=3", *rows]), head
    for head in ("#orv 3 7 -", "#orv 3", "#orv 12 7 -", "#orv 1 7 -"):
        (device.state / "f").write_text(f"{head}\nold=3\n")
        assert device.load("f") == "fault", head
        assert re.search("The settings f are of a newer version",
                         device.store("load", "f")[1])
        assert device.save("> f\nold=4\n")[0] == 1  # it is not replaced either


@pytest.mark.parametrize("order, text", [
    ("v=2\n", "order is not understood"), ("> f", "order is not understood"),
    ("@nope x\n> f\nv=2\n", "order is not understood"),
    ("> f\nv=2\n@secret v\n", "order is not understood"),
    ("> f\nv=2\n@label v=V\n> g\nw=2\n", "order is not understood"),
    ("> f\nv=2\nw\n", "order is not understood"),
    ("> f\nv=2\n> ../g\nw=2\n", "not a valid name of a settings file"),
    ("> f\nv=$HOME\n", "no value may contain"), ("> f\nv=a\tb\n", "no value may contain"),
    (f"> f\nv={LONGEST}x\n", "a value is too long"),
    ("> f\nv=2\n" + "".join(f"> f{i}\nv=2\n" for i in range(64)), "too many files"),
    ("@secret s\n" * 257 + "> f\nv=2\n", "too many values"), ("", "cannot be read"),
])
def test_an_order_is_stored_unchanged_or_refused(device, order, text):
    assert device.save("> f\nv=1\n\n")[0] == 0
    status, told = device.save(order)
    assert status == 1 and told.startswith("fault ") and text in told
    assert device.load("f") == ["v=1"] and "f0" not in device.names()


def test_nothing_is_stored_for_a_form_that_cannot_be_read(device):
    """The rows of its tables could not be told from other values."""
    path = device.folder / "form.tpl"
    for text in ("title T\nbody\nfield\n", "body\n", "title T\nbody\ntable t 3\nfield a\n"):
        path.write_text(text)
        status, told = device.save("> f\nv=1\n")
        assert status == 1 and told.startswith("fault The form form cannot be read: "), (text, told)
        assert device.load("f") == [], text
    path.unlink()
    path.mkdir()
    assert device.save("> f\nv=1\n")[1].startswith("fault The form form cannot be read: ")
    path.rmdir()
    assert device.save("> f\nv=1\n")[0] == 0  # without a template it has no tables


def test_the_largest_order_is_stored(device):
    """As many names and files as an order may have, and a value as long as may be; no
    file stays open behind the next."""
    order = "@secret s\n" * 256 + "".join(f"> f{i}\nv=2\n" for i in range(63)) + f"> f63\nv={LONGEST}\n"
    few = ("bash", "-c", 'ulimit -n 24; exec "$@"', "few", STORE)
    for _ in range(2):
        status, text = device.run(*few, "store", "-", "form", given=order)
        assert status == 0, text
    found = device.run(*few, "load", *(f"f{i}" for i in range(64)))[1].split()
    assert found == ["ok", *["v=2"] * 63, f"v={LONGEST}"]
    blanks = "#" * (3 * 1024 * 1024 + 1)
    assert "order is too long" in device.save(blanks)[1] and "not understood" in device.save(blanks[1:])[1]


def test_an_answer_lists_the_changes_and_names_no_guard_without_one(device):
    """A dollar in a label stays text on the page, in a line that a page accepts."""
    order = "@label v=A$B\n@secret key\n> f\nkey=a$b\nv={}\n"
    assert device.save(order.format(1)) == (
        0, f"ok\npage key{CHANGED}$L$\nline key{CHANGED}\n"
           "page A$$$B: blank \u2192 1$L$\nline A$B: blank -> 1\n")
    assert device.save(order.format(1)) == (0, "ok\n")
    told = device.save(f"@label v={'$' * 60}\n> f\nv={LONGEST}\n")[1]
    line = re.search(r"^page ((?:\${3}){50}: 1 \u2192 x+)\$L\$\n", told, re.M)[1]
    assert 205 < len(line.encode()) <= 210
    told = device.save(f"> f\nv={'y' * 200}\n")[1]
    assert len(set(re.findall("(x+)[^xy]*(y+)", told))) == 1 and re.search("(?m)^line v: x{57}... -> y{57}...$", told), told
    for owner, kept in (("1", "1"), ("1" * 40, "1" * 40), ("1" * 41, "-"), ("", "-"), ("1.2 3", "-")):
        assert device.save(f"@owner {owner}\n> f\nv=2\n")[0] == 0
        assert (device.state / "f").read_text().split("\n")[0].split(" ", 3)[3] == kept


@pytest.mark.parametrize("lines, values", [
    ('new_Port_9="1"', "port_9=1"), ('new_a=" \t"', "a="), ('new_a=" b "', "a= b "), ('new_a=""', "a="),
    ('new_a="b"c="d"', 'a=b"c="d'), (f'new_{"n" * 52}="1"', f"{'n' * 52}=1"), (f'new_{"n" * 53}="1"', ""),
    (f'new_a="{"x" * 1000}"', f"a={'x' * 999}"), ('new_="1"', ""), ("new_a", ""), ('new_a="', ""), ('new_a=1"', ""), ('new_a="1', ""),
    ('new_a-b="1"', ""), ('a="1"', ""), ('new_b="1"\nnew_a="2"', "a=2\nb=1"), ('new_a="1\0"\nnew_b="2"', "")])
def test_lines_of_a_page_s_values_are_printed_by_name_and_others_skipped(device, lines, values):
    assert device.store("input", "-", "form", given=f"{lines}\n") == (0, f"ok\nholder 0\n{values}\n".replace("\n\n", "\n"))
    assert device.store("input", "-", "form", given='new_a="1"\nnew_c=""\nnew_A="2"\n') == (
        1, "fault The request contains a name twice.\n")


@pytest.mark.parametrize("command, least, most", [
    ("load", 1, 64), ("reset", 0, 64), ("input", 2, 2), ("store", 2, 3), ("serve", 2, 3), ("arm", 1, 1), ("confirm", 0, 1),
    ("watch", 1, 2), ("wait", 1, 1), ("act", 1, 3), *((name, 0, 0) for name in
    ("pending", "boot", "expire", "migrate", "history", "log"))])
def test_a_command_with_too_few_or_too_many_words_does_nothing(device, command, least, most):
    for count in {least - 1, most + 1} - {-1}:
        status, text = device.store(command, *["none"] * count)
        assert status == 2 and text.startswith(f"orv-store: wrong number of arguments for: {command} "), text
    assert device.names() == []
    for count in (least, most):
        assert device.store(command, *["none"] * count)[0] < 2


def test_a_lock_is_held_for_a_living_process_alone(device):
    (device.defaults / "f").write_text("v=1\n")
    for pid in ("", "x", "1", "-2", f"{2 ** 22 + 1}x", f"{1 << 30}"):
        assert "fault serve needs the id of the script's process" in device.store("serve", pid, "form")[1]
        assert device.store("input", pid, "form") == (0, "ok\nholder 0\n")
    lost = (1, "fault Nothing was saved: the lock was lost. Please try again\n")
    assert device.run(STORE, "store", str(os.getpid()), "form", given="> f\nv=2\n") == lost
    with locked(device):
        assert device.run(STORE, "store", str(2 ** 22 + 1), "form", given="> f\nv=2\n") == lost
        assert device.run(STORE, "store", str(os.getpid()), "form", given="> f\nv=3\n")[0] == 0
    assert device.load("f") == ["v=3"]


def test_a_signal_to_the_script_s_group_leaves_the_lock(device):
    """A page that is ended signals its script's group; what the script started may
    still be saving."""
    with device.start("sh", "-c", "trap '' TERM; echo; sleep 999", start_new_session=True) as script:
        try:
            script.stdout.readline()
            take = f'{STORE} input {script.pid} form'
            with device.start("bash", "-c", f"trap : TERM; {take} </dev/null; kill -TERM 0; echo end", start_new_session=True) as page:
                told = page.communicate(timeout=SECONDS)[0]
            assert told.startswith("ok\nholder ") and told.endswith("\nend\n"), told
            assert "in use by form" in device.save("> f\nv=1\n", HASTY)[1]
        finally:
            os.killpg(script.pid, 9)
    assert device.save("> f\nv=1\n", HASTY)[0] == 0


def test_output_that_nobody_takes_is_a_failure(device):
    device.save("> f\nv=1\n")
    ours, theirs = os.pipe()
    os.close(ours)
    with open("/dev/full", "wb") as full:
        for words in (["load", "f"], ["history"], ["reset", "f"]):
            for out in (theirs, full):
                assert subprocess.run([STORE, *words], stdout=out, env=device.env, check=False).returncode == 1, words
    os.close(theirs)


def test_each_line_is_logged_with_who_caused_it(device):
    log = device.folder / "log"
    env = {PRELOAD: SHIM, "SYSLOG_FILE": str(log), "ASAN_OPTIONS": "verify_asan_link_order=0"}
    assert device.store("log", given="one\n\n two", env=env | {"REMOTE_USER": "eve", "REMOTE_ADDR": "::1"}) == (0, "")
    assert device.store("reset", env=env) == (0, "ok\n") and device.save("> f\nv=1\n")[0] == 0
    assert device.store("reset", "f", env=env | {"REMOTE_USER": "a b%s\n"}) == (0, "ok\n")
    assert log.read_text().splitlines() == [
        "5 one (eve at ::1)", "5  (eve at ::1)", "5  two (eve at ::1)", "5 Settings as shipped (somebody)",
        "5 Settings as shipped, of some files (a_b_s_)"]


# --- the lock -----------------------------------------------------------------

def test_nobody_waits_for_a_request_that_is_still_coming(device):
    with device.start(STORE, "input", str(os.getpid()), "form") as slow:
        slow.stdin.write('new_a="1"\n' * 900)
        slow.stdin.flush()
        assert device.save("> f\nv=1\n", HASTY)[0] == 0
        slow.kill()


def test_fields_that_no_form_has_never_cost_the_lock(device):
    """Such a request is refused even while another process holds the lock."""
    (device.folder / "form.tpl").write_text(
        "title T\nbody\ntable t 2\nfield port 9\nlabel Port\nfield via 9\nlabel Via\n")
    with locked(device):
        for name in ("x{}", "port{}", "port1x{}"):
            lines = "".join(f'new_{name.format(i)}="1"\n' for i in range(99000))
            assert device.run(HASTY, "input", str(os.getpid()), "form", given=lines) == (
                1, "fault The request has more fields than any page of this device\n")
    # The page may have all its rows, and a thousand values that scripts report.
    (device.folder / "form.tpl").write_text("title T\nbody\ntable t 12\n" + "".join(
        f"field {column} 9\nlabel L\n" for column in "abcdefghijkl"))
    names = [f"{column}{row}" for column in "abcdefghijkl" for row in range(ROWS)]
    lines = "".join(f'new_{name}="1"\n' for name in [*names, *(f"x{n}" for n in range(1000))])
    assert device.store("input", "-", "form", given=lines)[0] == 0
    assert "more fields than any page" in device.store("input", "-", "form", given=lines + 'new_z="1"\n')[1]


def test_waiting_too_long_names_the_holder(device):
    with locked(device, "net", REMOTE_USER="eve", REMOTE_ADDR="192.0.2.7"):
        for words, planted, holder in (
                (["store", "-", "form"], None, "net by eve at 192.0.2.7"), (["reset"], None, "net by eve at 192.0.2.7"),
                (["boot"], "x" * 300, "x" * 99), (["migrate"], "", "another save")):
            if planted is not None:  # by the web server's user, without an end
                (device.state / ".lock").write_text(planted)
            assert device.run(HASTY, *words, given="> f\nv=1\n") == (
                1, f"fault The settings have been in use by {holder} for more than 1 seconds. Please try again\n")
    assert device.save("> f\nv=1\n", HASTY)[0] == 0  # the lock ends with its script


def test_a_lock_ends_with_its_script_and_is_never_taken_for_held(device):
    # A daemon left behind inherits all descriptors.
    status, pid = device.script("orv_lock; sleep 60 >/dev/null 2>&1 & echo $!")
    assert status == 0 and device.save("> f\nv=1\n", HASTY)[0] == 0
    os.kill(int(pid), 9)
    # The holder was killed: others may have saved since.
    status, text = device.script(
        'orv_lock; orv_load f; kill -9 "$orv__lock"; tail --pid="$orv__lock" -f '
        '/dev/null; orv[v]=2; orv_store f v')
    assert status == 1 and "the lock was lost" in text
    assert device.load("f") == ["v=1"]
    assert device.save("> f\nv=3\n", HASTY)[0] == 0


def test_one_program_serves_a_script_for_its_life(device):
    given = "".join(f'new_{n}="{n}"\n' for n in ("a", "b", "Port7", f"port{ROWS}"))
    store = "orv_store f a; echo $?"
    for text, said, stored in (
            ("orv_lock; sleep 0 & wait; orv_read a; " + store, "0", "a"),
            ("trap : INT; orv_lock; kill -INT 0; orv_read a; " + store, "0", "a"),  # all of its group
            ("orv_lock; orv_unlock; orv_read a; " + store, "0", "a"),
            ("orv_lock; orv_read a; (" + store + "); orv[a]=2; " + store, "0\n0", "2"),
            ("orv_read a; orv_lock; orv_read b; orv[a]+=${orv[b]}; " + store, "0", "ab"),
            ("orv_lock; LC_ALL=C.UTF-8; orv[a]='\u00e4 \u2192'; " + store, "0", "\u00e4 \u2192"),
            ("orv_lock; orv_read PORT#; orv[a]=${orv[PORT7]}${orv__beyond// }; " + store, "0", "Port7PORT"),
            # None of its saves leaves a file open.
            ("ulimit -n 40; for i in {1..40}; do orv[a]=$i; orv_lock; orv_store f a; orv_unlock; done; echo 0", "0", "40"),
            # Nothing of one save is left for the next, whether it was guarded or refused.
            ("orv_guard 900; orv[a]=1; orv_store f a >/dev/null; orv_store g a >/dev/null; echo $?; ls $ORV_STATE/.pending; "
             "orv_unlock; $ORV_STORE confirm", "0\nf\nok", "1"),
            ("orv_lock; echo '#orv 3 1 -' >$ORV_STATE/f; orv_msg() { echo $1; }; orv[a]=2; " + store + "; orv_store g a; "
             "rm $ORV_STATE/f; tail -n +2 $ORV_STATE/g", "The settings f are of a newer version (format 3)\n1\n#table\na=2", None),
            ("orv_lock; kill -9 $orv__server; orv_msg() { echo msg; }; " + store, "msg\n1", None),
            # It dies after the library has checked and before the request.
            ("orv_lock; kill -9 $orv__server; sleep 0.1; orv__is_served() { true; }; "
             "orv_msg() { echo msg; }; " + store, "msg\n1", None)):
        device.store("reset")
        status, told = device.script(text, given=given, start_new_session=True)
        assert (status, told) == (0, f"{said}\n"), text
        assert device.load("f") == ([f"a={stored}"] if stored else []), text
    # It may continue as another program, which has the lock until it ends.
    with device.start("bash", "-c", f". {LIBRARY}/orv.bash; orv_lock </dev/null; echo; exec sleep 999") as script:
        assert script.stdout.readline() == "\n"
        assert "in use by" in device.save("> f\nv=1\n", HASTY)[1]
        script.kill()
    assert device.save("> f\nv=1\n", HASTY)[0] == 0


def test_many_fields_cost_the_lock_at_most_two_ordinary_saves(device):
    """As many unknown fields as any page may have, measured while the lock is held;
    only the best runs count, for a busy machine."""
    names = [f"field{i}" for i in range(12)]
    cells = [f"{c}{i}" for c in ("port", "to", "note", "proto") for i in range(8)]
    (device.folder / "form.tpl").write_text("title T\nbody\n" + "".join(
        f"field {name} 9\nlabel L\n" for name in names))
    text = f"""orv_lock; from=$EPOCHREALTIME; orv_load f
        orv_read {' '.join(names)} port# to# note# proto#; orv_rows port
        orv_pack port to note proto; orv_store f {' '.join(names)} "${{cells[@]}}"
        to=$EPOCHREALTIME; echo $((${{to/./}} - ${{from/./}}))"""
    ordinary = "".join(f'new_{n}="value"\n' for n in [*names, *cells])
    # The largest request accepted: values as long as a page's line.
    many = ordinary + "".join(f'new_other{i}x="{"y" * 200}"\n' for i in range(950))
    best = {ordinary: 1e9, many: 1e9}
    for _ in range(40):
        for given in best:
            status, told = device.script(text, given=given)
            assert status == 0, told
            best[given] = min(best[given], int(told))
        if best[many] <= 2 * best[ordinary]:
            return
    raise AssertionError(best.values())


def test_savers_never_hold_the_lock_together(device):
    savers = [device.start("bash", "-c", f"""for i in {{1..10}}; do
        bash -c '. {LIBRARY}/orv.bash; orv_lock; orv_load f
          orv[n]=$((orv[n] + 1)); orv_store f n' </dev/null; done""")
        for _ in range(4)]
    told = [saver.communicate(timeout=300)[0] for saver in savers]
    assert told == [""] * 4 and device.load("f") == ["n=40"]


def test_a_page_of_thirty_files_is_current_until_one_of_them_is_saved(device):
    files = " ".join(f"f{i}" for i in range(30))
    for i in range(30):
        device.save(f"> f{i}\nv{i}=1\n")
    _, opened = device.script(f"orv_load {files}; orv_stamp")
    judge = f"orv_load {files}; orv_read v3; orv_stamp; orv_end; echo $orv_failed"
    assert device.script(judge, given=f"new_{opened}") == (0, "0\n")
    device.save("> f17\nv17=2\n")
    assert "older than the last save" in device.script(judge, given=f"new_{opened}")[1]


def test_a_table_keeps_only_so_many_rows(device):
    save = ("orv_read 'port#'; orv_rows port; orv_pack port; orv_end; "
            'orv_store f "${cells[@]}"')
    lines = "".join(f'new_port{i}="{i}"\n' for i in range(ROWS))
    assert device.script(save, given=lines) == (0, "")
    assert len(device.load("f")) == ROWS
    status, text = device.script(save, given=lines + f'new_port{ROWS}="x"\n')
    assert status == 1 and f"a table keeps {ROWS} rows" in text
    assert f"port{ROWS - 1}={ROWS - 1}" in device.load("f")


def test_an_order_of_any_size_is_never_written_to_a_file_others_can_read(device):
    """It may contain secrets, so it goes through a pipe."""
    program = device.folder / "program"
    program.write_text(f"""#!/bin/bash
        [[ $1 != store || -p /dev/stdin ]] || {{ echo 'fault a file'; exit 1; }}
        exec {STORE} "$@" """)
    program.chmod(0o755)
    script = """for i in {0..999}; do
            printf -v "orv[n$i]" '%0200d' "$i"; names+=("n$i"); done
        orv_store f "${names[@]}" """
    assert device.script(script, env={"ORV_STORE": str(program)}) == (0, "")
    assert len(device.load("f")) == 1000


PLANTED = f"""boot={pathlib.Path('/proc/sys/kernel/random/boot_id').read_text()}
form=f
seconds=9
until={{0}}
clock={{0}}
"""


@pytest.mark.parametrize("number, left", [(-2**63, 0), (-1, 0), ("x", 0), (10**30, None)])
def test_planted_numbers_do_no_harm(device, number, left):
    pending = device.state / ".pending"
    pending.mkdir()
    for name, text in ((".token", "t"), (".armed", ""), (".info", PLANTED.format(number))):
        (pending / name).write_text(text)
    status, text = device.store("pending")
    assert "\ntoken=t\narmed=True\n" in text
    found = int(re.search(r"^left=(\d+)$", text, re.M)[1])
    assert status == 0 and (found == 0 if left == 0 else found > 2**62)
    assert device.store("expire") == ((0, "ok\nact=\n") if left == 0 else (1, ""))


@pytest.mark.parametrize("path", [".generation", ".pending/.new", ".lock", ".history", "f"])
def test_nobody_waits_for_something_that_is_not_a_file(device, path):
    (device.state / ".pending").mkdir()
    (device.state / ".pending/.token").write_text("t")
    os.mkfifo(device.state / path)
    for words in (("load", "f"), ("arm", "t"), ("expire",), ("boot",), ("history",)):
        status, text = device.store(*words)
        assert status in (0, 1) and "runtime error" not in text
    if path in (".generation", ".history", "f"):
        status, text = device.save("> f\nv=1\n")
        assert status == 1 and text.startswith("fault The settings c")
        assert not [name for name in device.names() if name.startswith(".new")]


# --- whose files they are -----------------------------------------------------

def test_a_folder_that_cannot_be_written_is_named(device):
    script = f"""printf '> a\nv=old\n' | {STORE} store - form >/dev/null
        mount --bind "$ORV_STATE" "$ORV_STATE" && mount -o remount,bind,ro "$ORV_STATE"
        printf '> a\nv=new\n' | {STORE} store - form; {STORE} reset a
        {STORE} input $$ form </dev/null; {STORE} load a; ls -A "$ORV_STATE" """
    status, text = device.run("unshare", "-rm", "bash", "-c", script)
    assert status == 0, text
    fault = r"fault The settings could not be stored: Read-only file system [^\n]+\n"
    assert re.fullmatch(
        f"({fault}){{3}}ok\nv=old\n\\.generation\n\\.history\n\\.lock\na\n", text), text


def test_a_reset_makes_no_file_of_a_name_by_mistake(device):
    (device.defaults / "shipped").write_text("v=1\n")
    (device.folder / "form.tpl").write_text("title T\nbody\nfield v 9\nlabel V\n")
    device.save("> stored\nv=2\n")
    for name in ("shipped", "form", "stored"):
        assert device.store("reset", name) == (0, "ok\n")
    before = device.names()
    for names in (["typo"], ["stored", "typo"]):
        assert device.store("reset", *names) == (
            1, 'fault There are no settings "typo"\n')
    assert device.names() == before


def test_no_terminal_control_sequence_is_printed(device):
    (device.state / ".history").write_text(
        "@ 1 0 a - f saved\n= a\x1b[2Jb\tc\x7f\u009bd\u00e4\n")
    (device.state / ".pending").mkdir()
    (device.state / ".pending" / ".info").write_text("user=a\x1b[2Jb\n")
    shown = device.store("history")[1] + device.store("pending")[1]
    assert "= a?[2Jb?c???d\u00e4\n" in shown and "user=a?[2Jb\n" in shown


def test_a_full_disk_leaves_the_old_settings_and_nothing_else(device):
    script = f"""mount -t tmpfs -o size=64k none "$ORV_STATE" && chmod 700 "$ORV_STATE"
        printf '> a\nv=old\n' | {STORE} store - form >/dev/null
        head -c 1m /dev/zero >"$ORV_STATE/zero" 2>/dev/null
        printf '> a\nv=new\n> b\nv=new\n' | {STORE} store - form
        {STORE} load a b; ls -A "$ORV_STATE"
        rm "$ORV_STATE/zero"; printf '> a\nv=new\n' | {STORE} store - form >/dev/null
        {STORE} load a"""
    status, text = device.run("unshare", "-rm", "bash", "-c", script)
    assert status == 0, text
    assert re.fullmatch(
        r"fault The settings could not be stored: No space left on device [^\n]+\n"
        r"ok\nv=old\n\.generation\n\.history\n\.lock\na\nzero\nok\nv=new\n", text), text


def test_a_save_is_on_the_disk_before_it_counts(device):
    """Files and folders are written out before the step that commits them, and that
    step before the next: a power cut leaves the old settings or the new ones."""
    assert device.save("> f\nv=1\n")[0] == 0
    status, text = device.run(
        "strace", "-qqyo", "calls", "-e", "signal=none", "-e", "trace=fsync,/rename,/unlink", STORE, "store", "-", "form",
        given="@guard 900\n> f\nv=2\n", cwd=device.folder, env={"ASAN_OPTIONS": "detect_leaks=0"})
    assert status == 0, text
    calls = []
    for line in (device.folder / "calls").read_text().splitlines():
        line = re.sub(r"\.new\.\w+", "NEW", line.replace(f"{device.state.resolve()}", "STATE"))
        name, at = re.match(r"(\w+?)(?:at2?)?\(\d+<STATE/?([^>]*)>", line).groups()
        calls.append(" ".join([name, at or ".", *re.findall('"([^"]*)"', line)]))
    commit, first, last = (calls.index(call) for call in (
        "rename . NEW .commit", "rename .commit f f", "unlink . .commit"))
    written = {f"fsync NEW{path}" for path in (
        "", "/f", "/.history", "/.pending", "/.pending/f", "/.pending/.info", "/.pending/.armed", "/.pending/.token")}
    assert set(calls[:commit]) >= written and calls[commit - 1] == "fsync NEW", calls
    assert calls[commit + 1:first] == ["fsync ."] and calls[last - 1] == "fsync .", calls


def owned_device(folder):
    """A device of the web server's user, if root can make one, and the function that
    switches a process to that user."""
    device = Device(folder)
    user = {}
    if os.geteuid() == 0:
        os.chown(device.state, NOBODY, NOBODY)
        user = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
    device.state.chmod(0o700)
    return device, user


@pytest.fixture
def open_folder():
    """A folder that every user can reach."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        yield pathlib.Path(folder)


def test_an_administrator_does_not_lock_the_web_server_out(open_folder):
    device, user = owned_device(open_folder)
    assert device.save("> f\nv=1\n")[0] == 0
    assert device.script("orv[v]=2; orv_store f v") == (0, "")
    owner = device.state.stat().st_uid
    assert {p.lstat().st_uid for p in device.state.rglob("*")} == {owner}
    program = shutil.copy(STORE, open_folder)  # the sources may be where only root can read
    assert device.run(program, "load", "f", **user) == (0, "ok\nv=2\n")
    device.state.chmod(0o500)
    status, text = device.save("> f\nv=3\n")
    assert status == 1 and "could not be stored: Permission denied" in text
    device.state.chmod(0o700)
    if not user:
        return
    # Nothing that others can replace is trusted: a link, another user's folder.
    (open_folder / "link").symlink_to(device.state)
    above = open_folder / "defaults"
    shutil.copytree(device.state, above / "state")
    for path, mode, owner in (("link", 0o755, 0), ("defaults/state", 0o777, 0), ("defaults/state", 0o775, 0),
                              ("defaults/state", 0o757, 0), ("defaults/state", 0o755, NOBODY)):
        above.chmod(mode)
        os.chown(above, owner, owner)
        for name in (path, open_folder / path):
            status, text = device.save("> f\nv=3\n", env={"ORV_STATE": str(name)}, cwd=open_folder)
            assert status == 1 and "Root does not use the folder" in text, (name, mode, owner)
    assert device.store("load", "f") == (0, "ok\nv=2\n")
    # A folder that does not exist yet belongs to the owner of the one above it.
    new = above / "new"
    assert device.save("> f\nv=3\n", env={"ORV_STATE": str(new / "state")})[0] == 0
    assert {(p.stat().st_uid, p.stat().st_mode & 0o777) for p in (new, new / "state")} == {(NOBODY, 0o700)}
    os.chown(above, 0, 0)
    above.chmod(0o1777)  # others can add files there, but replace none
    for path in (above / "state", *(above / "state").iterdir()):
        os.chown(path, NOBODY, NOBODY)
    assert device.save("> f\nv=4\n", env={"ORV_STATE": "defaults/state"}, cwd=open_folder)[0] == 0


def put_link(path):
    path.symlink_to("/etc/passwd")


def put_unreadable(path):
    path.write_text("v=secret\n")
    path.chmod(0)


FAULTY = {
    "link": put_link, "loose link": lambda path: path.symlink_to("/nowhere"),
    "pipe": os.mkfifo, "folder": os.mkdir, "unreadable": put_unreadable,
    "newer": lambda path: path.write_text("#orv 3 1 -\nv=1\n"),
}


@pytest.mark.parametrize("where", ["file", "folder", "above", "defaults",
                                   "all defaults"])
@pytest.mark.parametrize("with_script", [True, False])
def test_an_unreadable_file_gives_an_error_page(open_folder, where, with_script):
    """Never the shipped value, nor a form without values that could be saved."""
    device, user = owned_device(open_folder)
    data = open_folder / "data"
    for name in ("templates", "scripts"):
        (data / name).mkdir(parents=True)
    (data / "templates" / "net.tpl").write_text(
        "title Network\nbody\nerror $E$\nfield v 20\nlabel Value\n")
    script = data / "scripts" / "net.sh"
    if with_script:
        script.write_text(f'#!/bin/bash\n. {open_folder}/lib/orv.bash\norv_load net\norv_show v\n')
        script.chmod(0o755)
    else:
        script.symlink_to(open_folder / "orv-store")
    shutil.copytree(LIBRARY, open_folder / "lib")
    for program in (ORV, STORE):
        shutil.copy(program, open_folder)
    env = {"REQUEST_METHOD": "GET", "QUERY_STRING": "form=net",
           "ORV_STORE": str(open_folder / "orv-store"),
           "ORV_TEMPLATES": str(data / "templates")}

    def page():
        return device.run(str(open_folder / pathlib.Path(ORV).name), env=env,
                          cwd=open_folder, **user)[1]

    def assert_says(text, kind):
        shown = page()
        assert text in shown and "Status: 404" in shown, kind
        for other in ("shipped", "secret", "Submit", "<input"):
            assert other not in shown, (kind, other)

    (device.defaults / "net").write_text("v=shipped\n")
    assert 'value="shipped"' in page()
    if where == "file":
        for kind, put in FAULTY.items():
            path = device.state / "net"
            put(path)
            if user:
                os.chown(path, 0 if kind == "unreadable" else NOBODY, -1,
                         follow_symlinks=False)
            assert_says("of a newer version (format 3)" if kind == "newer"
                        else "The settings cannot be read: ", kind)
            path.rmdir() if kind == "folder" else path.unlink()
        return
    path = {"folder": device.state, "above": device.folder / "up",
            "defaults": device.defaults / "net", "all defaults": device.defaults}[where]
    if where == "above":
        path.mkdir()
        device.env["ORV_STATE"] = str(path / "state")
    if user:
        os.chown(path, 0, 0)
    path.chmod(0)
    assert_says("cannot be rea", where)
    path.chmod(0o755)
