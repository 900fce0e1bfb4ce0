"""The manual's examples are the files' content, and they work."""

import os
import pathlib
import re
import socket
import subprocess

import pytest
from orv_test.device import copy_part

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "examples"
FENCE = re.compile(r"^```\w+ (\S+)\n(.*?)^```$", re.M | re.S)
LITERAL = re.compile(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", re.M | re.S)
CHECK = re.compile(r"^(\S+(?: \S+)*)  +(\S+(?: \S+)*)  +(\S.*)\n    (.+)$", re.M)
LINK = re.compile(r"\]\(([^)#:]*)(?:#([^)]*))?\)")


@pytest.fixture
def device(site, request):
    name = getattr(request, "param", "forms")
    for part in (EXAMPLES / name).iterdir():
        copy_part(part, site.folder / "data" / part.name, os.environ["ORV_STORE"])
    return site


def test_what_no_page_sends_is_refused_with_a_message(device):
    for form, changes, error in (
            ("conditions", dict(u_gateway="x"), "Invalid address"),  # not drawn
            ("iselect", dict(zone="x"), "Choose a time zone from the list")):
        page = device.open(form).press("Submit", **changes)
        assert page.errors[1:] == [error] and not (
            device.folder / "data/state" / form).exists()


def test_the_history_shows_what_users_typed_as_text(device):
    assert device.open("fields").press("Submit", name="<b>Hall", lease="48").title == "Saved"
    shown = " ".join(device.open("history").tree.itertext())
    for text in ("fields saved", "Name: Example -> <b>Hall", "Address lease: 24 -> 48"):
        assert text in shown


@pytest.mark.parametrize("device", ["first", "forms", "german"], indirect=True)
def test_every_example_is_drawn_and_every_link_leads_to_one(device):
    more = "&subitem=wan" if (device.templates / "port.tpl").exists() else ""
    queries = [f"form={t.stem}{more}" for t in device.templates.glob("*.tpl")]
    links = [a for q in queries for a in device.get(q).all("a")]
    for query in queries + [a.get("href").partition("?")[2] for a in links]:
        page = device.get(query)
        assert (page.exit, page.errors, page.log) == (0, [], []), query
        assert not re.search("<!-- (navbar:|orv_body)", page.body), query


def test_the_manual_quotes_the_files_and_its_links_lead_somewhere():
    guides = [ROOT / "README.md", *(ROOT / "docs").glob("*.md")]
    quotes = [m for g in guides for m in FENCE.findall(g.read_text())]
    assert len(quotes) >= 10
    for name, text in quotes:
        assert text in (EXAMPLES / name).read_text(), (name, text)
    files = [p.read_text() for p in EXAMPLES.glob("*/*/*.*") if p.exists()]
    shown = [t.replace("\\&", "") for p in ("template.5", "script.7")
             for t in LITERAL.findall((ROOT / f"docs/man/larkspur-{p}").read_text())
             if t.startswith(("title", "\\&."))]
    assert len(shown) == 2 and all(any(s in f for f in files) for s in shown)
    for guide in guides:
        for file, anchor in LINK.findall(guide.read_text()):
            target = guide.parent / file if file else guide
            titles = re.findall("^#+ (.*)$", target.read_text(), re.M) if anchor else []
            assert target.exists() and (not anchor or anchor in [
                t.lower().replace(" ", "-").replace(",", "") for t in titles]), anchor


def test_manual_pages_are_clean_and_scripts_too():
    pages = sorted((ROOT / "docs/man").iterdir())
    lint = subprocess.run(["mandoc", "-T", "lint", *pages], text=True, capture_output=True)
    told = lint.stdout + lint.stderr  # one after the other: lines stay whole
    known = "operating system|referenced manual not found|mandoc.db"
    assert [s for s in told.splitlines() if not re.search(known, s)] == []
    subprocess.run(["shellcheck", "-xPSCRIPTDIR", ROOT / "docs/screenshots",
                    ROOT / "tools/larkspur-new"], check=True)


def test_every_check_passes_and_fails_as_the_manual_says(device):
    text = (ROOT / "docs/man/larkspur-template.5").read_text().replace("\\('e", "é")
    (rows,) = filter(None, map(CHECK.findall, LITERAL.findall(text)))
    source = (ROOT / "src/orv/orv_check.h").read_text()
    assert {row[0].removeprefix("nullok ").split()[0] for row in rows} == set(
        re.findall(r"^  check\((\w+),", source, re.M)), "the manual lists all of them"
    names = [f"x{i}_" for i in range(len(rows))]
    device.template("f", *(f"field {name}\ncheck {row[0]}"
                           for name, row in zip(names, rows)))
    device.form_script("f", read=f"printf '%s=old\\n' {' '.join(names)}")
    # No system is sure to have a socket; the bound name outlives its process.
    socket.socket(socket.AF_UNIX).bind(str(device.folder / "app.sock"))
    real = {"/run/app.sock": "app.sock", "(blank)": ""}
    for column, errors in (1, []), (2, [row[3] for row in rows]):
        values = [real.get(row[column], row[column]) for row in rows]
        page = device.open("f").press("Submit", **dict(zip(names, values)))
        assert (page.title == "Saved", page.errors) == (not errors, errors)
