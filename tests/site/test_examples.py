"""What the guides show is what the examples' files hold, and it works."""

import pathlib
import re
import shutil
import socket
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "docs/examples"
GUIDES = [ROOT / "README.md", *(ROOT / "docs").glob("*.md")]
FENCE = re.compile(r"^```\w+ (\S+)\n(.*?)^```$", re.M | re.S)
CHECK_ROW = re.compile(r"^\| `(.+?)` \| `(.+?)` \| `(.+?)` \| (.+) \|$", re.M)
STATIC = dict(static_ip="yes", address="10.0.0.2/8", gateway="10.0.0.1")
ROWS = dict(route_to0="10.1.0.0/16", route_via0="10.0.0.1",
            route_to1="10.2.0.0/16", route_via1="10.0.0.1", route_use1="no")


@pytest.fixture
def device(site):
    shutil.copytree(EXAMPLES, site.folder / "data", dirs_exist_ok=True)
    (site.folder / "data/state").mkdir()
    return site


@pytest.mark.parametrize("form, changes, error", [  # "": all is kept
    ("clock", dict(server="time.example.org"), ""),
    ("address", STATIC, ""),
    ("address", dict(static_ip="yes"), "Empty input"),
    ("address", dict(u_gateway="x"), "Invalid address"),  # not drawn
    ("address", STATIC | dict(gateway="10.0.0.2"), "The gateway must be"),
    ("wireless", dict(enabled="True", ssid="home", channel="6"), ""),
    ("wireless", dict(channel="7"), "Choose a channel from the list"),
    ("routes", ROWS, ""),
    ("routes", dict(route_to1="x"), "Row 2: enter"),  # behind a blank row
    ("port", dict(note="Printer", speed="100"), ""),
])
def test_an_example_keeps_what_it_takes(device, form, changes, error):
    page = device.open(form, "lan1").press("Submit", **changes)
    assert (page.title == "Saved") == (error == "")
    assert [e[:len(error)] for e in page.errors[1:]] == [error] * bool(error)
    shown = dict(device.open(form, "lan1").fields())
    assert (changes.items() <= shown.items()) == (error == "")


def test_every_example_is_drawn_and_every_link_leads_to_one(device):
    queries = [f"form={t.stem}&subitem=wan" for t in EXAMPLES.glob("*/*.tpl")]
    links = device.get().all("a") + device.open("ports").all("a")
    for query in queries + [a.get("href").partition("?")[2] for a in links]:
        page = device.get(query)
        assert (page.exit, page.errors) == (0, []), query
        assert not re.search("<!-- (navbar:|orv_body)", page.body), query
    assert device.open("port", "../x").inputs("text") == []


def test_a_stored_passphrase_is_kept_and_never_shown(device):
    page = device.open("wireless").press("Submit", passphrase="a long one")
    assert "a long one" not in page.body + device.open("wireless").body
    page = device.open("wireless").press("Submit", ssid="a", passphrase="  ")
    assert page.texts("p")[0].endswith("back in a few seconds.")
    stored = (device.folder / "data/state/wireless").read_text()
    assert "passphrase=a long one\n" in stored


def test_the_guides_quote_the_files_and_the_scripts_are_clean():
    quotes = [(g, *m) for g in GUIDES for m in FENCE.findall(g.read_text())]
    assert len(quotes) >= 20
    for guide, name, text in quotes:
        assert text in (EXAMPLES / name).read_text(), (guide.name, text)
    subprocess.run(["shellcheck", "-xPSCRIPTDIR", ROOT / "docs/screenshots",
                    *EXAMPLES.glob("scripts/*")], check=True)


def test_every_check_passes_and_fails_as_the_guide_says(device):
    rows = CHECK_ROW.findall((ROOT / "docs/checks.md").read_text())
    source = (ROOT / "src/orv/orv_check.cpp").read_text()
    assert {row[0].removeprefix("nullok ").split()[0] for row in rows} == set(
        re.findall(r'CHECK_ROW\("(\w+)"', source))
    names = [f"x{i}_" for i in range(len(rows))]
    device.template("f", *(f"field {name}\ncheck {row[0]}"
                           for name, row in zip(names, rows)))
    device.form_script("f", read=f"printf '%s=old\\n' {' '.join(names)}")
    # No system has a socket for sure; the bound name outlives its maker.
    socket.socket(socket.AF_UNIX).bind(str(device.folder / "app.sock"))
    real = {"/run/app.sock": "app.sock", "(blank)": ""}
    for column, errors in (1, []), (2, [row[3] for row in rows]):
        values = [real.get(row[column], row[column]) for row in rows]
        page = device.open("f").press("Submit", **dict(zip(names, values)))
        assert (page.title == "Saved", page.errors) == (not errors, errors)
