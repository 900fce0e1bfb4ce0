"""The last saves, undoing them, and keeping a change, at a terminal."""

import json
import os
import pty
import re
import subprocess
import urllib.parse

import pytest
from conftest import CHANGED, ENVIRONMENT, SECONDS
from test_orvctl import ORVCTL, demo, stored
from test_transaction import STORE, WHO, all_of, device, dump, end_all, form, leftovers, run, settle, values

@pytest.fixture(name="site")
def fixture_site(site):
    """A guarded change has a watcher, and its command may run for long."""
    yield site
    end_all(site)


SECRETS = ["correct-horse", "battery-staple", "tr0ub4dor-and-3", "k3y-of-a-script"]


def saves(site):
    """The history as programs read it, the newest first."""
    done = run(site, "--json", "history")
    assert done.returncode == 0 and done.stderr == "", done
    return json.loads(done.stdout)


def store(site, form_name, order, *more, **env):
    """Stores an order as a script of that form would."""
    folders = {"ORV_STATE": str(site.folder / "data/state"), "ORV_DEFAULTS": str(site.folder / "data/defaults"),
               "ORV_TEMPLATES": str(site.folder / "data/templates")}
    done = subprocess.run([STORE, "store", "-", form_name, *more], input=order, text=True, capture_output=True,
                          timeout=SECONDS, check=False, env=os.environ | folders | env)
    assert done.stdout.startswith("ok\n"), done
    return done.stdout


def test_the_last_ten_saves_are_listed(site):
    """User, address, form and changes, for a page and for a terminal alike; a step of
    several forms is one save."""
    device(site)
    assert saves(site) == [] and run(site, "history").stdout == ""
    site.post({"cgi_vars_loaded": "1", "form": "a", "action": "Submit", "x": "$L$<b>\x1b[31m", "y": "é"},
              REMOTE_USER="web user", REMOTE_ADDR="192.0.2.7")
    assert not saves(site)  # a value that cannot be stored is no save
    site.post({"cgi_vars_loaded": "1", "form": "a", "action": "Submit", "x": "<b>", "y": ""},
              REMOTE_USER="web user", REMOTE_ADDR="192.0.2.7")
    run(site, "set", "port/lan3", "port_use=Desk")
    store(site, "other", "> other\nt=1\n", "a b\x1b/\n@ 9 9 x x x x")
    told = run(site, "history", TZ="UTC-2").stdout
    assert re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "WHEN", told).splitlines() == [
        r"3  WHEN  -  other/a_b_/_@_9_9_x_x_x_x saved", "    t: blank -> 1",
        "2  WHEN  ann at 192.0.2.9  port/lan3 saved", "    Used for: blank -> Desk",
        "1  WHEN  web_user at 192.0.2.7  a saved", "    Text: blank -> <b>"]
    newest = saves(site)[1]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4}", newest.pop("time"))
    assert newest == {"number": 2, "user": "ann", "address": "192.0.2.9", "form": "port/lan3", "kind": "saved",
                      "changes": ["Used for: blank -> Desk"]}
    for i in range(12):  # each is one save of three forms
        dump(site, f"v{i}")
        assert run(site, "apply", "dump").returncode == 0
    assert [s["number"] for s in saves(site)] == [n for n in range(15, 5, -1) for _ in "abc"]
    assert run(site, "complete", "restore", "1").stdout.split() == ["15", "14", "13", "12", "11", "10"]


def test_no_secret_is_in_the_history(site):
    """Whether its name or a script makes it secret, and neither the old value nor the
    new."""
    device(site)
    folder = site.folder / "data/state"
    for value in SECRETS[:2]:
        run(site, "set", "wireless", "wl_on=True", "wl_name=L", f"wl_passphrase={value}")
    for value in SECRETS:
        store(site, "k", f"@guard 900\n@secret code\n> k\ncode={value}\ncode_hint=x{len(value)}\nadmin_pin={value}\n")
    store(site, "k", "@secret code\n> k\nplain=1\n")  # removed, and still a secret
    kept = "".join(p.read_text() for p in [folder / ".history", folder / ".pending/.info", *folder.glob("wireless")])
    told = run(site, "history").stdout + run(site, "--json", "history").stdout
    assert "code" + CHANGED in kept and "Passphrase" + CHANGED in told and "code_hint=x" in kept
    for value in SECRETS:
        assert value not in kept + told, value


BACK = [  # the changes since the device was shipped, in this order
    ["set", "network", "host_name=gw-2", "ip6_mode=off", "dns_search=lan.example"],
    ["set", "wireless", "wl_on=True", "wl_name=Larch", "wl_passphrase=correct-horse", "wl_band=2", "wl_channel=6"],
    ["rows", "firewall", "rules", "delete", "1"],
    ["rows", "firewall", "rules", "add", "fr_pos=15", "fr_do=allow", "fr_from=wan", "fr_proto=tcp", "fr_port=443"],
    ["rows", "users", "users", "delete", "2"],
    ["set", "port/lan1", "port_on=False"],
    ["set", "port/lan3", "port_use=Printer", "port_mtu=9000"],
    ["--yes", "reset", "firewall"],
]


def test_every_save_can_be_undone_by_its_number(site):
    """Undoing the saves from the last to the first brings back the state before each;
    undoing is a save itself, and can be undone."""
    demo(site)
    states = []
    for words in BACK:
        states.append(run(site, "dump").stdout)
        assert run(site, *words).returncode == 0, words
    states.append(run(site, "dump").stdout)
    last = len(BACK)
    for number in (8, 7, 5, 3, 1):
        before = stored(site)
        tried = run(site, "--dry-run", "restore", str(number))
        assert tried.returncode == 0 and ": would be saved" in tried.stdout and stored(site) == before
        done = run(site, "restore", str(number))
        assert done.returncode == 0 and done.stdout == tried.stdout.replace("would be saved", "saved"), done
        assert run(site, "dump").stdout == states[number - 1], number
        assert ("wireless: secrets stay as they are: wl_passphrase" in done.stderr) == (number < 3), done
        assert "correct-horse" in stored(site)["wireless.key"]
        last += 1
        if number == 1:
            break
        assert run(site, "restore", str(last)).returncode == 0  # undoes the restore
        assert run(site, "dump").stdout == states[-1]
        last += 1
        if len({s["number"] for s in saves(site)}) == 10:  # room for the older ones
            run(site, "restore", "1")
            break
    run(site, "confirm")
    settle(site)
    assert not leftovers(site)


def test_a_restore_is_checked_like_a_save(site):
    """If a script now refuses a value, nothing is saved; a form's computed values are
    computed again; unknown numbers are reported."""
    device(site, a={"before": "echo a >>wrote"}, c={"judge": "[[ ${orv[x]} != old || ! -e strict ]] || orv_msg 'No longer'",
                                                    "before": "orv[y]=${orv[x]}-made"})
    for value in ("old", "new"):
        dump(site, value)
        assert run(site, "apply", "dump").returncode == 0
    (site.folder / "strict").touch()
    before, wrote = stored(site), (site.folder / "wrote").read_text()
    for words in (["restore", "2"], ["--dry-run", "restore", "2"], ["--json", "restore", "2"]):
        done = run(site, *words)
        assert done.returncode == 1 and "No longer" in done.stderr + done.stdout, done
        assert stored(site) == before and (site.folder / "wrote").read_text() == wrote
    assert "orvctl: nothing was saved" in done.stderr
    assert [(r["form"], r["result"]) for r in json.loads(done.stdout)] == [("c", "refused")]
    (site.folder / "strict").unlink()
    assert json.loads(run(site, "--json", "restore", "2").stdout)[0]["changes"][0]["to"] == "old"
    assert values(site) == all_of("old") | {"c": ("x=old", "y=old-made")}
    for word, status, text in (("99", 1, "There is no save 99 in the history"), ("0", 1, "no save 0"),
                               ("x", 2, "not the number of a save: x"), ("-1", 2, "-1"), ("", 2, "wrong|not the")):
        done = run(site, "restore", word)
        assert done.returncode == status and re.search(text, done.stderr), done
    (site.folder / "data/templates/b.tpl").unlink()
    before = stored(site)
    done = run(site, "restore", "3")
    assert done.returncode == 1 and "orvctl: b: " in done.stderr and stored(site) == before


def test_a_save_too_large_for_the_history_is_listed_and_not_undone(site):
    """The history stays small after a large save, which cannot be undone rather than
    undone by half."""
    device(site)
    history = site.folder / "data/state/.history"
    run(site, "set", "a", "x=1")
    for word in "pq":
        store(site, "big", "> big\n" + "".join(f"{word}{i}={word * 200}\n" for i in range(900)))
    assert history.stat().st_size < 40_000
    assert any(re.fullmatch(r"and \d+ more", line) for line in saves(site)[0]["changes"])
    run(site, "set", "b", "x=1")
    assert run(site, "restore", "4").returncode == 0 and values(site)["b"][0] == "x="
    for number in "321":
        before = stored(site)
        done = run(site, "restore", number)
        assert done.returncode == 1 and "has changed too much to be undone" in done.stderr and stored(site) == before
    for i in range(15):  # the old values of each nearly fill the history
        store(site, "big", "> big\n" + "".join(f"p{n}={i}{'v' * 200}\n" for n in range(90)))
    assert history.stat().st_size < 66_000 and 2 <= len(saves(site)) < 10
    # A step is not undone by half either when its first saves are gone.
    for name in ("f", "g", "h", "i"):
        form(site, name, before=f"for n in {{0..99}}; do orv[{name}$n]=$RANDOM${{orv[x]}}{'w' * 200}; done",
             after=f"orv_store big{name} {name}{{0..99}}")
    for value in ("1", "2"):
        dump(site, value, "fghi")
        assert run(site, "apply", "dump").returncode == 0
    number = saves(site)[0]["number"]
    done = run(site, "restore", str(number))
    assert done.returncode == 1 and "has changed too much" in done.stderr, done


def test_no_more_files_are_undone_at_once_than_can_be(site):
    device(site)
    store(site, "a", "".join(f"> f{i}\nv=2\n" for i in range(64)))
    number = saves(site)[0]["number"]
    assert run(site, "--dry-run", "restore", str(number)).returncode == 0
    store(site, "a", "> f64\nv=2\n")
    before = stored(site)
    done = run(site, "restore", str(number))
    assert done.returncode == 1 and stored(site) == before, done
    assert done.stderr == "orvctl: restore: Too many settings have changed\norvctl: nothing was saved\n", done


def test_a_reset_is_the_form_over_nothing(site):
    """It saves the form as shown when nothing was ever stored, with its checks; it asks
    first, and secrets stay."""
    demo(site)
    shipped = run(site, "dump").stdout
    for words in BACK[:7]:
        assert run(site, *words).returncode == 0
    changed = stored(site)
    for words, status in ((["reset"], 2), (["reset", "firewall"], 2), (["--dry-run", "reset"], 0)):
        done = run(site, *words)
        assert done.returncode == status and stored(site) == changed, done
    assert "--yes" in run(site, "reset").stderr
    done = run(site, "--json", "--yes", "reset", "port/lan3")
    assert [(r["form"], r["result"]) for r in json.loads(done.stdout)] == [("port/lan3", "saved")]
    assert saves(site)[0]["form"] == "port/lan3" and stored(site).keys() == changed.keys()
    done = run(site, "--yes", "reset")
    assert done.returncode == 0 and run(site, "dump").stdout == shipped, done
    assert "wireless: secrets stay as they are: wl_passphrase" in done.stderr
    assert "correct-horse" in stored(site)["wireless.key"]
    assert ": saved" not in run(site, "--yes", "reset").stdout
    assert run(site, "--yes", "reset", "nope").returncode == 1


def test_a_reset_asks_at_a_terminal(site):
    device(site)
    run(site, "set", "a", "x=1")
    for answer, status, value in ((b"n\n", 1, "x=1"), (b"\n", 1, "x=1"), (b"\x04", 1, "x=1"), (b"yes\n", 1, "x=1"),
                                  (b"Y\n", 0, "x=")):
        ours, theirs = pty.openpty()
        with subprocess.Popen([ORVCTL, "reset", "a"], cwd=site.folder, env=os.environ | WHO, stdin=theirs,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as reset:
            os.write(ours, answer)
            said, asked = reset.communicate(timeout=SECONDS)
        os.close(ours)
        os.close(theirs)
        assert reset.returncode == status and asked.startswith("Reset a to the settings as shipped? [y/N] ")
        assert values(site)["a"][0] == value and ("nothing was saved" in asked) == (status == 1), (said, asked)


def test_orvctl_says_how_to_keep_a_change(site):
    """set, rows, apply, restore and reset say when it goes back, and how to keep it;
    confirm keeps it, once, and describes it."""
    device(site, a={"before": "orv_guard 900"}, b={"before": "orv_guard 900 sleep 1000"})
    line = r"orvctl: this goes back at \d\d:\d\d:\d\d, in (900|89\d) seconds, unless it is kept by then: orvctl confirm\n"
    none = run(site, "confirm")
    assert none.returncode == 1 and none.stderr == "orvctl: confirm: No change waits to be kept.\n"
    dump(site, "d", "a")
    for words in (["set", "a", "x=s"], ["apply", "dump"], ["restore", "1"], ["--yes", "reset", "a"]):
        if "reset" in words:
            run(site, "set", "a", "x=again")
        done = run(site, *words)
        assert done.returncode == 0 and len(re.findall(line, done.stderr)) == 1, (words, done)
        assert "goes back" not in run(site, *words).stderr  # no change, or a dry run
        kept = run(site, "confirm")
        assert kept.returncode == 0 and kept.stdout.startswith("The change is kept.\nText: "), (words, kept)
        assert run(site, "confirm").returncode == 1
    told = json.loads(run(site, "--json", "set", "a", "x=j").stdout)["pending"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4}", told.pop("until")) and 890 < told.pop("left") <= 900
    assert told == {"seconds": 900, "in_use": True, "keep": "orvctl confirm"}
    assert "goes back" not in run(site, "set", "c", "x=1").stderr  # another form's change
    assert json.loads(run(site, "--json", "confirm").stdout) == {"result": "kept", "changes": ["Text: blank -> j"]}
    dump(site, "k", "a")
    assert json.loads(run(site, "--json", "apply", "dump").stdout)[-1]["pending"]["keep"] == "orvctl confirm"
    assert run(site, "--dry-run", "confirm").returncode == 2 and run(site, "confirm").returncode == 0
    # A change that the device does not use yet cannot be kept.
    done = run(site, "set", "b", "x=1")
    assert "orvctl: this goes back 900 seconds after the device uses it, unless it is kept by then" in done.stderr, done
    done = run(site, "confirm")
    assert done.returncode == 1 and "does not use the change yet" in done.stderr, done


def test_a_page_shows_the_history_as_text(site):
    """Whatever it contains, it adds no value, line end or element."""
    demo(site)
    run(site, "set", "system", "place=Cellar")
    page = site.open("history")
    assert any(re.fullmatch(r"[-0-9]{10} [:0-9]{8} ann at 192\.0\.2\.9, system saved.*Place: .* -> Cellar", text, re.S)
               for text in page.texts("p")), page.texts("p")
    assert site.open("system").press("Submit", place="Attic").title == "Saved"
    text = "".join(site.open("history").texts("p"))
    assert re.findall(r"\d\d:\d\d:\d\d ([^,]*), system saved", text) == ["somebody", "ann at 192.0.2.9"], text
    hostile = "$V:history1$$L$$E$<b>x</b>\"'`$(touch owned)\\ *"
    entry = f"@ 2 0 $R$ann $B$ net$L$ back\n= {hostile}\n= {'$' * 300}\n= {'é' * 150}\n- x\n& other\n< f x=secret\n"
    (site.folder / "data/state/.history").write_text(entry)
    page = site.open("history")
    shown = "".join(page.texts("p"))
    assert hostile in shown and "$R$ann at $B$, net$L$ went back" in shown and "é" * 90 in shown, shown
    assert page.errors == [] and "secret" not in shown and not (site.folder / "owned").exists() and "\ufffd" not in shown
    (site.folder / "data/state/.history").write_text("")
    assert "Nothing has been changed so far." in site.open("history").texts("p")
