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


@pytest.fixture
def device(site):
    shutil.copytree(EXAMPLES, site.folder / "data", dirs_exist_ok=True)
    (site.folder / "data/state").mkdir()
    return site


def test_what_no_page_sends_is_refused_with_a_message(device):
    for form, changes, error in (
            ("address", dict(u_gateway="x"), "Invalid address"),  # not drawn
            ("wireless", dict(channel="7"), "Choose a channel from the list")):
        page = device.open(form).press("Submit", **changes)
        assert page.errors[1:] == [error] and not (
            device.folder / "data/state" / form).exists()


def test_every_example_is_drawn_and_every_link_leads_to_one(device):
    queries = [f"form={t.stem}&subitem=wan" for t in EXAMPLES.glob("*/*.tpl")]
    links = device.get().all("a") + device.open("ports").all("a")
    for query in queries + [a.get("href").partition("?")[2] for a in links]:
        page = device.get(query)
        assert (page.exit, page.errors) == (0, []), query
        assert not re.search("<!-- (navbar:|orv_body)", page.body), query
    assert device.open("port", "../x").inputs("text") == []


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
