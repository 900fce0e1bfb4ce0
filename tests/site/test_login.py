"""The example forms for a device's owner: the password, and the reset to the
settings as shipped."""

import os
import pathlib
import stat
import subprocess

import pytest
from conftest import CHANGED
from orv_test.device import copy_part
from test_acts import Acts, until
from test_orvctl import ORVCTL

FORMS = pathlib.Path(__file__).parents[2] / "examples/forms"
STORE = os.environ["ORV_STORE"]
OLD, NEW = "correct horse battery", "staple:~!x y'#"
TOOLS = {"openssl": {}, "busybox": {"BASH_FUNC_openssl%%": "() { return 127; }"}}


def hash_of(password, salt="abcdefgh"):
    return subprocess.run(["openssl", "passwd", "-6", "-salt", salt, "-stdin"], input=password + "\n", text=True,
                          capture_output=True, check=True).stdout.strip()


class Owned:
    """A device with a login, and its privileged side."""

    def __init__(self, site, acts):
        self.site, self.acts, self.state = site, acts, site.folder / "data/state"
        for part in FORMS.iterdir():
            copy_part(part, site.folder / "data" / part.name, STORE)
        self.state.mkdir(exist_ok=True)
        self.etc = site.folder / "etc"
        self.etc.mkdir()
        self.login, self.first = self.etc / "login", self.etc / "first-password"
        self.login.write_text(f"guest:{hash_of('of a guest', 'g')}\nadmin:{hash_of(OLD)}\n")
        self.login.chmod(0o640)
        self.first.write_text(OLD)
        for name in ("login", "reset_login"):
            (acts.actions / name).write_text((FORMS / "actions" / name).read_text())
            (acts.actions / name).chmod(0o755)
        acts.env |= {"ORV_LOGIN": str(self.login), "ORV_STATE": str(self.state),
                     "ORV_DEFAULTS": str(site.folder / "data/defaults")}
        acts.start()
        self.env = {"ORV_LOGIN": str(self.login), "ORV_ACTS": str(acts.acts), "ORV_STORE": STORE,
                    "ORV_ACTIONS": str(acts.actions)}
        site.env |= self.env | {"REMOTE_USER": "admin"}

    def change(self, old, new, again=None):
        return self.site.open("login").press(
            "Submit", old_password=old, new_password=new, again_password=new if again is None else again)

    def admits(self, user, password):
        """Whether a web server would let the user in, judging by the file alone."""
        held = dict(line.split(":") for line in self.login.read_text().splitlines())
        return user in held and held[user] == hash_of(password, held[user].split("$")[2])

    def ctl(self, *words, given=""):
        return subprocess.run([ORVCTL, *words], cwd=self.site.folder, env=os.environ | self.env, text=True,
                              input=given, capture_output=True, check=False)


@pytest.fixture
def owned(site, tmp_path):
    (tmp_path / "root").mkdir()
    acts = Acts(tmp_path / "root", ["dash"])
    yield Owned(site, acts)
    acts.stop()


@pytest.mark.parametrize("tool", TOOLS)
def test_a_new_password_takes_the_place_of_the_old(owned, tool):
    owned.site.env |= TOOLS[tool]
    refused = [  # old, new, again, the message
        ("wrong horse battery", NEW, None, "This is not the password in use"),
        ("", NEW, None, "This is not the password in use"),
        (OLD, "too short", None, "Enter 10 to 80 letters, digits and signs"),
        (OLD, "x" * 81, None, "Enter 10 to 80 letters, digits and signs"),
        (OLD, "pässwörter sind", None, "Enter 10 to 80 letters, digits and signs"),
        (OLD, "back`reboot`tick", None, "Enter 10 to 80 letters, digits and signs"),
        (OLD, "my-ADMIN-word", None, "It must not contain the name admin"),
        (OLD, NEW, NEW + "x", "The two passwords differ"), (OLD, NEW, "", "The two passwords differ"),
    ]
    before = owned.login.read_bytes()
    for old, new, again, said in refused:
        page = owned.change(old, new, again)
        assert page.title == "Password" and any(said in e for e in page.errors), (new, page.errors)
        assert owned.login.read_bytes() == before
    page = owned.change(OLD, NEW)
    assert page.title == "Saved" and f"Password of admin{CHANGED}" in page.body, page.errors
    assert owned.admits("admin", NEW) and not owned.admits("admin", OLD)
    assert owned.admits("guest", "of a guest")
    assert stat.S_IMODE(owned.login.stat().st_mode) == 0o640 and not owned.first.exists()
    assert sorted(os.listdir(owned.etc)) == ["login"]
    # Neither the typed nor the stored text is in a page, the log or the history.
    stored = (owned.state / "login").read_text()
    seen = page.body + owned.site.open("login").body + "".join(page.log) + (owned.state / ".history").read_text()
    assert "login_password=$6$" in stored and NEW not in stored + seen and "$6$" not in seen
    assert f"Password of admin{CHANGED}" in "".join(page.log)
    assert owned.change(OLD, "another long one").errors[1:] == ["This is not the password in use"]
    assert owned.change(NEW, OLD).title == "Saved" and owned.admits("admin", OLD)


def test_no_password_is_in_the_list_of_processes(owned):
    run = subprocess.run(
        ["strace", "-f", "-qq", "-e", "trace=execve", "-s", "9999", "-o", owned.site.folder / "calls", "bash",
         owned.site.scripts / "login.sh", "--write", "login"], text=True, capture_output=True, check=True,
        input=f'new_old_password="{OLD}"\nnew_new_password="{NEW}"\nnew_again_password="{NEW}"\n',
        env=os.environ | owned.env | {"REQUEST_METHOD": "POST", "REMOTE_USER": "admin"})
    calls = (owned.site.folder / "calls").read_text()
    assert "error_" not in run.stdout and owned.login.exists() and owned.admits("admin", NEW)
    assert "openssl" in calls and not any(word in calls for word in (OLD, NEW, "$6$abcdefgh$"))


HOSTILE = [  # what an attacker may store: user, hash
    ("admin", "$6$x$short"), ("admin", ""), ("admin", NEW), ("admin", f"$1$x${'a' * 22}"), ("nobody", hash_of(NEW)),
    ("root", hash_of(NEW)), ("", hash_of(NEW)), ("admin:x", hash_of(NEW)), ("*", hash_of(NEW)),
    ("admin", hash_of(NEW) + " "), ("admin", hash_of(NEW) + ":0:0"), (".*", hash_of(NEW)), ("adm", hash_of(NEW)),
]


def test_root_accepts_only_a_hash_for_an_existing_user(owned):
    before = owned.login.read_bytes()
    for user, value in HOSTILE:
        order = f"@secret login_password\n> login\nlogin_user={user}\nlogin_password={value}\n"
        done = subprocess.run([STORE, "store", "-", "login"], input=order, text=True, capture_output=True,
                              env=os.environ | owned.acts.env, check=True)
        assert done.stdout.startswith("ok\n")
        assert owned.acts.run("login").startswith("fault Saved, but not in use: login failed"), (user, value)
        assert owned.login.read_bytes() == before and sorted(os.listdir(owned.etc)) == ["first-password", "login"]


def test_orvctl_needs_no_old_password_and_a_backup_has_the_hash(owned):
    kept = owned.ctl("--secrets", "dump", "login")
    assert hash_of(OLD) not in owned.ctl("dump", "login").stdout  # guest, the first in the file
    assert "secret stored_login_password=$6$g$" in kept.stdout, kept
    done = owned.ctl("set", "login", "new_password=-", "again_password=-", given="nobody is one\n" * 2)
    assert done.returncode == 0 and owned.admits("guest", "nobody is one"), done
    done = owned.ctl("apply", "-", given=kept.stdout)
    assert done.returncode == 0, done
    until(lambda: owned.admits("guest", "of a guest"))


def test_all_settings_are_reset_and_the_login_on_request(owned):
    for login in (False, True):
        assert owned.site.open("fields").press("Submit", name="Hall").title == "Saved"
        page = owned.site.open("reset").press("Submit", **({"reset_login": "True"} if login else {}))
        assert page.errors[1:] == ["Tick this box to confirm"] and (owned.state / "fields").exists()
        page = owned.site.open("reset").press(
            "Submit", reset_sure="True", **({"reset_login": "True"} if login else {}))
        assert page.title == "Saved", page.errors
        assert "Hall" not in owned.site.open("fields").body and owned.login.exists() != login
        assert "Settings as shipped (admin)" in "".join(page.log)
    assert os.listdir(owned.etc) == []  # the next start makes a login with a first password
    owned.login.write_text(f"admin:{hash_of(OLD)}\n")
    assert owned.ctl("set", "reset", "reset_login=True").returncode == 1 and owned.login.exists()
    assert owned.ctl("set", "reset", "reset_sure=True", "reset_login=True").returncode == 0
    assert not owned.login.exists()
