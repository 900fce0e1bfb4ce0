"""A form without a script: orv-store, called under a form's name, stores the
template's values, checks them again and stores nothing else."""

import os
import re
import subprocess

import pytest
from conftest import DELETED, ENVIRONMENT, LIMITS, SECONDS

STORE = os.environ["ORV_STORE"]
ITEMS = ("error $E$", "field name 20", "label Name", "check nullok word",
         "field port", "label Port", "check decimal 1 65535", "checkbox on", "label On",
         "select mode", "label Mode", "choice a Automatic", "choice b By hand",
         "iselect zone zones", "label Zone", "fixed model", "label Model")
SHIPPED = ("name=gate", "port=80", "on=True", "mode=a", "zone=utc", "model=X1",
           "select_zones0=utc Universal", "select_zones1=cet Central Europe")
TABLE = ("error $E$", "{}", "field to", "label To", "check nullok ipaddr ipv4",
         "checkbox use", "label Use")
ROWS = LIMITS["ORV_STORED_ROWS_MAX"]
MORE = f"Nothing was saved: a table keeps {ROWS} rows, and this one has more."
LOOK = "Nothing was saved yet. Please look at the marked fields."


def keep(site, form, *lines, shipped=None, files=()):
    """A form whose script is a link; `files` are empty files of defaults."""
    for name, target in (("orv-store", STORE), (f"{form}.sh", "orv-store")):
        if not (site.scripts / name).is_symlink():
            (site.scripts / name).symlink_to(target)
    site.template(form, *lines)
    defaults = site.folder / "data/defaults"
    defaults.mkdir(exist_ok=True)
    for name in files:
        (defaults / name).write_text("")
    if shipped is not None:
        (defaults / form).write_text("".join(f"{line}\n" for line in shipped))


def stored(site, name="f", folder="data/state"):
    """The lines of the settings, None if they were never saved."""
    path = site.folder / folder / name
    return path.exists() and [line for line in path.read_bytes().decode().splitlines()
                              if line[0] != "#"] or None


def task(site, *words, script="data/scripts/f.sh", given=(), **env):
    """The values that the form's script prints for a task; `given` is its input."""
    run = subprocess.run(
        [script, *words], cwd=site.folder, capture_output=True, timeout=SECONDS, check=False,
        input="".join(f'new_{n}="{v}"\n' for n, v in dict(given).items()).encode(),
        env=ENVIRONMENT | {"SYSLOG_FILE": str(site.folder / "syslog")} | site.env | env)
    assert run.returncode == (b"error_fatal" in run.stdout), run.stderr
    return dict(re.findall(r'^(\w+)="?(.*?)"?$', run.stdout.decode(), re.M))


@pytest.fixture(params=["open", "strict"])
def device(site, request):
    site.env["ORV_POLICY"] = request.param
    return site


def test_the_template_s_values_are_stored_and_nothing_else(device):
    keep(device, "f", *ITEMS, shipped=SHIPPED)
    forged = {"model": "X9", "extra": "1", "select_zones2": "mars Mars", "total": "7"}
    page = device.open("f").press("Submit", name="wan", on="", mode="b", zone="cet", **forged)
    assert page.title == "changes_saved", page.errors
    kept = ["mode=b", "name=wan", "on=False", "port=80", "zone=cet"]
    assert sorted(stored(device)) == kept
    said = task(device, "--write", "f", given={"name": "lan", "c_name": "x", **forged})
    assert "error_msg" not in said
    assert sorted(stored(device)) == [k.replace("wan", "lan") for k in kept]
    again = device.open("f")
    assert again.control("name").get("value") == "lan" and "X1" in again.body
    # Entries that the device has stored stay; values of read-only items go.
    with (device.folder / "data/state/f").open("a") as file:
        file.write("select_zones2=est Eastern\nmodel=X2\n")
    assert device.open("f").press("Submit", zone="est").title == "changes_saved"
    assert sorted(stored(device)) == ["mode=b", "name=lan", "on=False", "port=80",
                                      "select_zones2=est Eastern", "zone=est"]


@pytest.mark.parametrize("given, field, message", [
    ({"name": "a b"}, "name", "Single word is required"),
    ({"port": "0"}, "port", None), ({"port": ""}, "port", None),
    ({"mode": "c"}, "mode", "Select value failed to match choices"),
    ({"zone": "mars", "select_zones2": "mars Mars"}, "zone", "Choose one of the entries"),
    ({"zone": "ut"}, "zone", "Choose one of the entries"),
    ({"zone": "utc Universal"}, "zone", "Choose one of the entries"),
])
def test_values_that_no_page_sends_are_checked_when_stored(site, given, field, message):
    keep(site, "f", *ITEMS, shipped=SHIPPED)
    for name in ("--check", "--write"):
        said = task(site, name, "f", given=given)
        assert said["error_msg"] == LOOK and said[f"error_{field}"] == (
            message or said[f"error_{field}"]) and len(said[f"error_{field}"]) > 5
        assert not stored(site)
    assert "error_msg" not in task(site, "--check", "f", given={"name": "ok"})
    assert not stored(site)


def test_a_form_that_was_never_saved_has_all_its_fields(site):
    keep(site, "f", *ITEMS, *(s.format("table rules 2") for s in TABLE), shipped=("on=True", "zone=gone", "port=1"))
    said = task(site, "--read", "f")
    assert re.fullmatch(r"0 \d+\.\d+\.\d+", said.pop("orv_stamp"))
    assert said == {"name": "", "port": "1", "on": "True", "mode": "", "zone": "gone"}
    assert "error_msg" not in task(site, "--check", "f", given={"name": "a", "zone": "gone", "mode": "a"})
    assert not (site.folder / "data/state").exists()  # a device that stores nothing needs no folder
    assert "error_zone" in task(site, "--write", "f", given={"zone": "other", "mode": "a"})
    said = task(site, "--write", "f", given={"mode": "b", "orv_stamp": ""})
    assert "error_msg" not in said, said
    assert sorted(stored(site)) == ["mode=b", "on=True", "port=1", "zone=gone"]
    assert task(site, "--read", "f")["orv_stamp"].startswith("1 ")


@pytest.mark.parametrize("folder", ["defaults", "state"])
def test_a_box_is_read_in_many_spellings_and_stored_in_one(site, folder):
    """Another spelling is no change: the first Submit reports none."""
    spelled = {"True": ("yes", "On", "1", "TRUE"), "False": ("no", "Off", "0", "")}
    boxes = {f"box{kind}{i}": (kind, text) for kind, texts in spelled.items() for i, text in enumerate(texts)}
    keep(site, "f", "field name", "check word", *(f"checkbox {box}" for box in boxes), shipped=("name=a",))
    path = site.folder / "data" / folder / "f"
    path.parent.mkdir(exist_ok=True)
    path.write_text("".join(f"{name}={text}\n" for name, (_, text) in boxes.items()))
    said = task(site, "--read", "f")
    assert {name: said[name] for name in boxes} == {name: kind for name, (kind, _) in boxes.items()}
    said = task(site, "--write", "f", given={"name": "b", **{n: k for n, (k, _) in boxes.items()}})
    assert "name" in said["u_saved_change0"] and said["u_saved_change1"] == "", said
    assert sorted(stored(site)) == sorted(["name=b", *(f"{name}={kind}" for name, (kind, _) in boxes.items())])


def rows(*values, first=0):
    return {f"{name}{i}": v for i, to in enumerate(values, first)
            for name, v in (("to", to), ("use", "True" if to else ""))}


def test_rows_close_up_and_deleted_ones_stay_deleted(site):
    keep(site, "f", *(s.format("table rules 2") for s in TABLE), shipped=("to0=10.0.0.1", "use0=True"))
    assert site.open("f").control("to0").get("value") == "10.0.0.1"
    said = task(site, "--write", "f", given=rows("", ""))
    assert said["u_saved_change0"].startswith(DELETED + "10.0.0.1") and not stored(site)
    task(site, "--write", "f", given=rows("10.0.0.5", "", "10.0.0.7"))
    assert stored(site) == ["to0=10.0.0.5", "to1=10.0.0.7", "use0=True", "use1=True"]
    said = task(site, "--write", "f", given=rows("10.0.0.5", "", "10.0.0.7", "10.0.0"))
    assert said["error_to"] and len(stored(site)) == 4
    task(site, "--write", "f", given={"x": 1})  # no table was drawn
    assert len(stored(site)) == 4
    many = [f"10.0.1.{i}" for i in range(ROWS + 1)]
    assert "error_msg" not in task(site, "--write", "f", given=rows(*many[:ROWS - 1], "", many[ROWS - 1]))
    assert len(stored(site)) == 2 * ROWS
    assert task(site, "--write", "f", given=rows(*many))["error_msg"] == MORE
    task(site, "--write", "f", given=rows(*[""] * 5))
    assert not stored(site) and site.open("f").control("to0").get("value") is None


def test_the_largest_table_is_stored_and_other_fields_are_refused(site):
    columns = [f"c{c}_" for c in range(LIMITS["ORV_COLUMNS_MAX"])]
    keep(site, "f", "error $E$", f"table t {len(columns)}",
         *(line for c in columns for line in (f"field {c}", f"label {c}", "check nullok word")))
    given = {f"{c}{row}": f"{c}{row}" for c in columns for row in range(ROWS)}
    assert "error_msg" not in task(site, "--write", "f", given=given)
    assert sorted(stored(site)) == sorted(f"{name}={name}" for name in given)
    said = task(site, "--write", "f", given={f"x{i}y": "1" for i in range(1001)})
    assert "more fields than any page" in said["error_msg"] and len(stored(site)) == len(given)


def test_fixed_rows_and_rows_of_boxes_only_are_kept(site):
    keep(site, "f", *(s.format("ftable rules 2 3") for s in TABLE))
    task(site, "--write", "f", given=rows("", "10.0.0.7", "") | {"to3": "10.0.0.9"})
    assert stored(site) == ["to0=", "to1=10.0.0.7", "to2=",
                            "use0=False", "use1=True", "use2=False"]
    keep(site, "h", "table t 3", "field n", "label N", "fixed seen", "label Seen", "checkbox h_psk_clear", "label C",
         shipped=("n0=1", "seen0=x", "n1=2", "seen1=y"))
    task(site, "--write", "h", script="data/scripts/h.sh", given={"n0": "", "n1": "7", "seen1": "z", "h_psk_clear1": "True"})
    assert stored(site, "h") == ["h_psk_clear0=True", "n0=7"]
    keep(site, "g", "table boxes 2", "checkbox in", "label In", "checkbox out", "label Out")
    given = {"in0": "True", "out0": "", "in1": "", "out1": "", "in2": "", "out2": "True"}
    task(site, "--write", "g", script="data/scripts/g.sh", given=given)
    assert stored(site, "g") == ["in0=True", "in1=False", "out0=False", "out1=True"]


def test_only_shipped_sub_items_exist(device):
    keep(device, "f", "error $E$", "if $S$ = lan1", "field extra", "check word", "endif",
         "field name", "check word", files=("f@lan1", "f@lan2", "g"))
    (device.folder / "data/defaults/f@lan2").unlink()
    (device.folder / "data/defaults/f@lan2").symlink_to("f@lan1")  # by the maker
    (device.folder / "data/defaults/f@lan4").mkdir()
    for name in ("lan1", "lan2"):
        page = device.open("f", name).press("Submit", name=name, extra="e")
        assert page.title == "changes_saved", page.errors
        assert f"name={name}" in stored(device, f"f@{name}")
    assert not stored(device)
    for name in ("lan3", "lan4", "x/../f", ".", "..", "lan1@x", "l" * 98):
        page = device.open("f", name)
        assert page.status != "200 OK" and not page.all("form"), name
        assert page.errors[-1] in ("There is no such page here.", "The request was refused."), name
        said = task(device, "--write", "f", name, given={"name": "x"})
        assert said["error_msg"] == "There is no such page here.", name
    # A template of such a name never uses another form's file.
    keep(device, "f@lan1", "field name")
    said = task(device, "--write", "f@lan1", script="data/scripts/f@lan1.sh", given={"name": "x"})
    assert said["error_msg"] == "There is no such page."
    assert {p.name for p in (device.folder / "data/state").iterdir()
            if p.name[0] != "."} == {"f@lan1", "f@lan2"}
    assert stored(device, "f@lan1") == ["extra=e", "name=lan1"]


def test_fields_not_drawn_may_be_blank_in_every_check(device):
    hidden = ("field port", "check decimal 1 99", "select m", "choice a A", "iselect z zs", "endif")
    for condition, title in (("if $X$", "changes_saved"), ("if $V:on$", "changes_saved"),
                             ("ifnot $X$", "Test form")):
        keep(device, "f", "error $E$", "field name", "check word", "checkbox on", condition, *hidden,
             shipped=("name=a",))
        for mode in ("False", "True"):
            page = device.open("f", expert_mode=mode).press("Submit", name=f"{mode}{condition.encode().hex()}")
            assert page.title == title, (condition, mode, page.errors)
        said = task(device, "--check", "f", given={"name": "b", "port": "", "m": "", "z": ""})
        assert ("error_msg" in said) == (title == "Test form"), (condition, said)


def test_names_ignore_letter_case(site):
    keep(site, "f", "error $E$", "field code", "check word", "field My_Pin", "check nullok word",
         "checkbox my_PIN_clear", *(s.format("table t 2") for s in TABLE[1:]),
         shipped=("Code=old", "MY_PIN=1234", "TO0=10.0.0.1", "To1=10.0.0.2", "USE0=True"))
    page = site.open("f")
    assert page.control("code").get("value") == "old" and "1234" not in page.body
    page = page.press("Submit", code="new", to1="")
    assert page.title == "changes_saved", page.errors
    kept = ["My_Pin=1234", "code=new", "to0=10.0.0.1", "use0=True"]
    assert sorted(stored(site)) == kept and [line for line in page.log if "old -> new" in line]
    assert site.open("f").control("to1").get("value") is None  # no row comes back
    page = site.open("f")
    assert page.control("code").get("value") == "new"
    assert page.press("Submit", my_PIN_clear="True").title == "changes_saved"
    assert sorted(stored(site)) == ["My_Pin=", *kept[1:]]


def test_a_secret_is_never_shown_and_cleared_only_by_its_box(device):
    keep(device, "f", "error $E$", "field wifi_passphrase", "check nullok text",
         "checkbox wifi_passphrase_clear", "field name", "check nullok text",
         "checkbox tidy_clear", shipped=("name=a",))
    typed = "it's 5 & more"
    page = device.open("f").press("Submit", wifi_passphrase=typed)
    assert page.title == "changes_saved" and f"wifi_passphrase={typed}" in stored(device)
    assert typed not in page.bytes.decode() and "it&#" not in page.body
    log = (device.folder / "syslog").read_text()
    assert "wifi_passphrase" in log and "more" not in log
    assert "more" not in (device.folder / "data/state/.history").read_text()
    page = device.open("f")
    assert page.control("wifi_passphrase").get("value") in (None, "")
    assert page.press("Submit", name="b", tidy_clear="True").title == "changes_saved"
    assert sorted(stored(device)) == ["name=b", "tidy_clear=True", f"wifi_passphrase={typed}"]
    assert task(device, "--read", "f")["wifi_passphrase"] == ""
    assert task(device, "--read", "f", ORV_SECRETS="1")["wifi_passphrase"] == typed
    assert task(device, "--read", "f", ORV_SECRETS="1",
                REQUEST_METHOD="GET")["wifi_passphrase"] == ""
    page = device.open("f").press("Submit", wifi_passphrase="filled in", wifi_passphrase_clear="1")
    assert page.title == "changes_saved" and "wifi_passphrase=" in stored(device)
    carried = dict(page.hidden())  # or the next save would clear it again
    assert carried["u_wifi_passphrase_clear"] == "False" and "filled in" not in carried.values()
    keep(device, "g", "table keys 1", "field key_psk", "check text")
    assert "needs a script" in task(device, "--read", "g", script="data/scripts/g.sh")["error_msg"]


@pytest.mark.parametrize("place", ["state", "defaults"])
def test_a_script_s_secret_stays_secret_without_the_script(device, place):
    keep(device, "f", "error $E$", "field code 20", "check nullok text",
         "field name 20", "check word", shipped=("name=x",))
    path = device.folder / "data" / place / "f"
    path.parent.mkdir(exist_ok=True)
    path.write_text("#orv 2 1 -\n#table\n#secret code seed\n"
                    "code=hid-1den\nseed=hid$2den\nname=y\nold_psk=hid$5den\n")  # the last by its name
    said = task(device, "--read", "f")
    assert (said["code"], said["seed"], said["name"], said["old_psk"]) == ("", "", "y", "")
    page = device.open("f")
    assert "hid" not in page.body.replace("hidden", "")
    assert page.press("Submit", name="z").title == "changes_saved"
    said = task(device, "--read", "f", ORV_SECRETS="1")
    assert (said["code"], said["seed"], said["name"], said["old_psk"]) == ("hid-1den", "hid$2den", "z", "hid$5den")
    page = device.open("f").press("Submit", code="hid-3den")
    assert page.title == "changes_saved" and "hid-3den" not in page.body
    kept = (device.folder / "data/state/f").read_text()
    assert "\n#secret code" in kept and "code=hid-3den" in kept
    assert task(device, "--read", "f")["seed"] == ""
    for file in ("data/state/.history", "syslog"):
        text = (device.folder / file).read_text()
        assert "code" in text and "hid" not in text
    keep(device, "t", "table keys 1", "field key", "check text",
         shipped=("#orv 2 1 -", "#table key", "#secret key0", "key0=hid$4den"))
    said = task(device, "--read", "t", script="data/scripts/t.sh")
    assert "needs a script" in said["error_msg"] and "key0" not in said


def test_of_two_pages_the_older_one_saves_nothing(site):
    keep(site, "f", "error $E$", "field name", "check word", shipped=("name=a",))
    first, second = site.open("f"), site.open("f")
    assert second.press("Submit", name="b").title == "changes_saved"
    assert first.press("Submit", name="c").errors[:1] == [
        "This page is older than the last save. Please open it again."]
    assert second.press("Submit", name="d").title == "changes_saved"  # after Back
    for stamp in ("1", "0 none", "x y", "-1 x"):
        task(site, "--write", "f", given={"name": "e", "orv_stamp": stamp})
    assert stored(site) == ["name=d"]


@pytest.mark.parametrize("value, kept", [
    ("it's fine", True), ("Grüße, 設定", False), ("a=b", True), ("x  y", True), ("#x", True),
    ("> g", True), ("@secret name", True), ("x" * 240, True), ("x" * 65536, False),
    ('a"b', False), ("a$b", False), ("$(id)", False), ("`id`", False), ("a\\b", False),
    ("a\tb", False), ("a\x01b", False), ("a\x7fb", False), ("a\rb", False)])
@pytest.mark.parametrize("policy", ["open", "strict"])
def test_a_hostile_value_is_text_or_is_refused(site, value, kept, policy):
    site.env["ORV_POLICY"] = policy
    keep(site, "f", "error $E$", "field name 300", "check nullok text", shipped=("name=a",))
    page = site.open("f").press("Submit", name=value)
    lines = stored(site)
    assert (page.title == "changes_saved") == (lines is not None)
    if kept:
        assert lines == [f"name={value}"] and site.open("f").control("name").get("value") == value
    elif lines is not None:  # cut by the page, or replaced by a blank
        assert len(lines) == 1 and not re.search(r'["$\\`\x00-\x1f\x7f]', lines[0])
    assert not os.path.exists(site.folder / "data/state/g")


@pytest.mark.parametrize("lines", [
    b'new_name="b"\nnew_name="c"\n', b'new_name="b\0c"\n', b'new_name="b\n> g\nx=1"\n',
    b"new_name=b\n", b'name="b"\n', b'new_na me="b"\n', b'new_name="b"', b"\xff\xfe\n\n",
    b'new_@owner="1"\nnew_f@x="b"\n', b'new_' + b"n" * 99 + b'="b"\n', b'new_name=""\n' * 9,
    b'new_orv_stamp="0 b\r@secret name"\n', b'new_name="b"\n' + b'new_x="1"\n' * 5000,
    b"n" * 9_000_000], ids=range(14))
def test_a_line_that_no_page_sends_changes_no_other_value(site, lines):
    keep(site, "f", "field name", "check word", "field kept", "check word")
    task(site, "--write", "f", given={"name": "a", "kept": "1"})
    run = subprocess.run(["data/scripts/f.sh", "--write", "f"], cwd=site.folder, input=lines,
                         env=ENVIRONMENT | {"SYSLOG_FILE": str(site.folder / "syslog")},
                         capture_output=True, timeout=SECONDS, check=False)
    assert run.returncode == 0 and not run.stderr
    name, = {"name=a", "name=b", "name=c"} & set(stored(site))
    assert stored(site) == ["kept=1", name]
    assert {p.name for p in (site.folder / "data/state").iterdir() if p.name[0] != "."} == {"f"}


def test_places_are_beside_the_folder_of_the_link(site):
    keep(site, "f", "field name", "check word")
    other = site.folder / "bin"
    other.mkdir()
    (other / "store").symlink_to(STORE)
    (site.scripts / "f.sh").unlink()
    (site.scripts / "f.sh").symlink_to(other / "store")
    task(site, "--write", "f", given={"name": "a"})
    assert stored(site) == ["name=a"] and not (site.folder / "state").exists()
    task(site, "--write", "f", given={"name": "c"}, ORV_STATE=str(site.folder / "else"))
    assert stored(site, folder="else") == ["name=c"] and stored(site) == ["name=a"]
    task(site, "--write", "f", given={"name": "d"}, ORV_STATE="")
    assert stored(site) == ["name=d"]
    said = task(site, "--read", "f", ORV_TEMPLATES=str(site.folder / "else"))
    assert said["error_msg"] == "There is no such page." and said["error_fatal"] == "yes"
    for words in ((), ("f",), ("--reset", "f"), ("load", "f"), ("--read",),
                  ("--read", "f", "a", "b")):
        run = subprocess.run(["data/scripts/f.sh", *words], cwd=site.folder, input=b"",
                             capture_output=True, env=ENVIRONMENT, check=False)
        assert run.returncode == 1 and b"usage: " in run.stderr and run.stdout == b""


def test_the_page_and_the_log_say_what_changed_and_by_whom(site):
    keep(site, "f", *ITEMS, shipped=SHIPPED)
    site.template("changes_saved", "text $V:saved_change0$$V:saved_change1$$V:saved_change2$",
                  "text Note: $V:saved_note$", title="changes_saved")
    page = site.open("f").press("Submit", name="wan", mode="b")
    assert "Name: gate → wan" in page.body and "Mode: Automatic → By hand" in page.body
    assert [line for line in page.log if "Name: gate -> wan (somebody)" in line]
    (site.scripts / "navbar").write_text("--\nf First\norvmenu Start\n")
    links = [a.get("href").partition("?")[2] for a in site.open("f").all("a")]
    assert links == ["form=f", "form=orvmenu"]
    assert task(site, "--navbar") == {}  # a bar needs no form
    names = "abcdefghijklm"
    keep(site, "g", *(line for name in names for line in (f"field {name}", f"label {name.upper()}")))
    for count, last in ((13, "and 2 more$L$"), (12, "L: 1 → 2$L$"), (11, "")):
        said = task(site, "--write", "g", script="data/scripts/g.sh", given=dict.fromkeys(names[:count], 14 - count))
        assert said["u_saved_change10"] == f"K: {13 - count or 'blank'} → {14 - count}$L$"
        assert said["u_saved_change11"] == last and "u_saved_change12" not in said


@pytest.mark.parametrize("bar", [
    "f First\norvmenu Start\n", "--\nf First\n--\nf Last\n", "f First\n--\n", "--\n", "",
    "confirm Keep it?\nconfirmed No\nf/confirm First\nconfirm\n", "f\n \n- Label\nf ",
    "f " + "x" * 600 + "\n", "f First\n" * 300])
@pytest.mark.parametrize("place", ["scripts", "templates"])
def test_a_page_shows_the_bar_that_the_form_prints(site, bar, place):
    keep(site, "f", "field name", shipped=["name=a"])
    (site.scripts / "navbar").write_text("--\nf Other\n")
    (site.folder / "data" / place / "navbar").write_text(bar)
    (site.scripts / "bar.sh").symlink_to("orv-store")
    site.script("told.sh", 'exec "${0%/*}/bar.sh" --navbar')
    shown = {}
    for pending in "", "state/.pending", "state/.commit/.pending":
        if pending:
            (site.folder / "data" / pending).mkdir(parents=True)
        for script in "bar.sh --navbar", "told.sh":
            site.template("f", "field name", header=[f"navbar_script {script}"])
            page = site.open("f")
            shown[script] = [page.body[page.body.find("<nav"):page.body.find("</nav>")],
                             sorted(page.comments)]
        assert shown["bar.sh --navbar"] == shown["told.sh"]
        assert ("confirm" in shown["told.sh"][0]) >= bool(pending and len(bar) < 600)
    site.env["ORV_STATE"] = str(site.folder)
    assert "Keep" not in site.open("f").body


def test_an_action_with_the_form_s_name_is_requested_after_the_save(site):
    keep(site, "f", "field name", "check word")
    site.template("changes_saved", "text Note: $V:saved_note$.", title="changes_saved")
    acts, actions = site.folder / "acts", site.folder / "data/actions"
    acts.mkdir()
    site.env["ORV_ACTS"] = str(acts)
    assert "Note: ." in site.open("f").press("Submit", name="a").body
    actions.mkdir()
    (actions / "f").write_text("#!/bin/sh\n")
    page = site.open("f").press("Submit", name="b")
    assert "Note: Saved, but not in use: " in page.body and stored(site) == ["name=b"]
    os.mkfifo(acts / "ask")
    reader = os.open(acts / "ask", os.O_RDWR | os.O_NONBLOCK)
    assert "Note: ." in site.open("f").press("Submit", name="c").body
    assert os.read(reader, 100).split() == [b"f"]
    site.open("f").press("Submit", name="a b")  # a refused save requests nothing
    with pytest.raises(BlockingIOError):
        os.read(reader, 100)
    os.close(reader)
