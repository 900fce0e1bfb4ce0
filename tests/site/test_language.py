"""One tree of templates per language: which one is shown, and the German one."""

import os
import pathlib
import shutil
import subprocess

import pytest
from orv_test.device import copy_part

ROOT = pathlib.Path(__file__).resolve().parents[2]
STORE = os.environ["ORV_STORE"]
TOOL = ROOT / "packaging/boot/larkspur-language"

NAMES = [  # the environment's language, the page's lang attribute
    (None, "en"), ("", "en"), ("d", "en"), ("de", "de"), ("pt-BR", "pt-BR"), ("x" * 20, "x" * 20),
    ("x" * 21, "en"), ('de"><script>', "en"), ("de_DE", "en"), ("de DE", "en"), ("d\xe9", "en"), ("../de", "en"),
]


def test_a_page_says_its_language_and_nothing_else_of_the_environment(site):
    for named, shown in NAMES:
        for page in (site.get(ORV_LANG=named), site.get("form=nosuch", ORV_LANG=named)):
            assert f'<!DOCTYPE html>\n<html lang="{shown}">\n<head>' in page.body, named


class Spoken:
    """A device with two languages, on a file system of its own."""

    def __init__(self, site, shell):
        self.site, self.shell, self.share = site, shell, site.folder / "data"
        shutil.rmtree(self.share)
        self.share.mkdir()
        for name in ("scripts", "defaults", "system_type"):
            copy_part(ROOT / "examples/first" / name, self.share / name, STORE)
        for name, example in (("en", "first"), ("de", "german")):
            shutil.copytree(ROOT / "examples" / example / "templates", self.share / name / "templates")
        self.etc, self.run, self.default = (site.folder / n for n in ("etc", "run", "default"))
        self.env = {"PATH": os.environ["PATH"], "LARKSPUR_SHARE": str(self.share), "LARKSPUR_ETC": str(self.etc),
                    "LARKSPUR_RUN": str(self.run), "LARKSPUR_DEFAULT": str(self.default)}

    def choose(self, *words, **env):
        run = subprocess.run([*self.shell, TOOL, *words], env=self.env | env, text=True,
                             capture_output=True, check=False)
        return run.returncode, run.stdout + run.stderr

    def boot(self, **env):
        """Empties /run, as a power cut does."""
        shutil.rmtree(self.run, ignore_errors=True)
        assert self.choose(**env)[0] == 0
        return (self.share / "templates").resolve().parent.name


@pytest.fixture(params=["dash", "busybox sh"])
def spoken(request, site):
    return Spoken(site, request.param.split())


def test_a_language_is_chosen_once_and_survives_a_boot(spoken):
    assert spoken.choose("--list") == (0, "de\nen\n")
    assert spoken.boot() == "en"
    spoken.default.write_text("ORV_STATE=/x\nORV_LANG=de\n")
    assert spoken.boot() == "de" and spoken.boot(ORV_LANG="en") == "en"
    assert spoken.choose("en") == (0, "") and spoken.boot() == "en" and spoken.boot(ORV_LANG="de") == "en"
    before = {p.name for p in spoken.run.iterdir()} | {p.name for p in spoken.etc.iterdir()}
    for name in ("fr", "", "d", "../de", "de/templates", "-x", "x" * 21, "de\n", "scripts", "."):
        status, said = spoken.choose(name)
        assert (status > 0 and "lang" in said) or name == "", name
    assert spoken.boot() == "en" and before == {"templates", "language"}
    # A firmware that no longer has the chosen language.
    assert spoken.choose("de")[0] == 0
    shutil.rmtree(spoken.share / "de")
    assert spoken.boot() == "en" and "no language \"de\"" in spoken.choose()[1]


def test_templates_installed_without_a_language_are_left_alone(spoken):
    (spoken.share / "templates").mkdir()
    (spoken.share / "templates/orvmenu.tpl").write_text("title Mine\nbody\n")
    status, said = spoken.choose("de")
    assert status == 1 and "is not empty: move the templates" in said and not spoken.etc.exists()
    for name in ("en", "de"):
        shutil.rmtree(spoken.share / name)
    assert spoken.choose() == (0, "")  # a device without languages
    assert (spoken.share / "templates/orvmenu.tpl").read_text().startswith("title Mine")


def test_the_german_pages_show_and_store_what_the_english_ones_do(spoken):
    spoken.choose("en")
    site = spoken.site
    site.env |= {"ORV_STORE": STORE}
    assert site.open("clock").press("Submit", server="ntp.example").title == "Saved"
    assert site.open("clock").texts("a") == ["Start", "Clock"]
    assert spoken.choose("de") == (0, "")
    page = site.open("clock")
    assert page.title == "Uhr" and page.control("server").get("value") == "ntp.example"
    assert page.texts("a") == ["Start", "Uhr"]
    refused = page.press("Submit", server="-gate")
    assert "Das ist weder ein Rechnername noch eine Adresse" in refused.errors
    assert page.press("Submit", server="zeit.example").title == "Gespeichert"
    assert "server=zeit.example\n" in (spoken.share / "state/clock").read_text()
    assert site.open("clock").press("Submit").title == "Nichts zu speichern"
    # The link to a waiting change, in the bar's own words, and only then.
    env = os.environ | {f"ORV_{n.upper()}": str(spoken.share / n) for n in ("state", "defaults", "templates")}
    subprocess.run([STORE, "store", "-", "clock"], input="@guard 900\n> clock\nserver=a.example\n", text=True, env=env,
                   check=True, capture_output=True)
    for form, title in (("orvmenu", "My device"), ("confirm", "Änderung behalten?")):
        page = site.open(form)
        assert page.title == title and page.texts("a")[:3] == ["Änderung behalten?", "Start", "Uhr"], page.texts("a")
    assert "Submit behält es." in page.body
    spoken.choose("en")
    assert site.open("confirm").texts("a") == ["Keep the change?", "Start", "Clock"]


def test_a_form_chooses_and_an_attacker_s_value_is_no_language(spoken):
    programs, state = spoken.site.folder / "sbin", spoken.share / "state"
    programs.mkdir()
    (programs / "larkspur-language").symlink_to(TOOL)
    state.mkdir()
    env = spoken.env | {"PATH": f"{programs}:{os.environ['PATH']}", "ORV_STORE": STORE, "ORV_STATE": str(state),
                        "ORV_DEFAULTS": str(spoken.share / "defaults")}
    assert spoken.choose("en") == (0, "")
    for stored in ("de", "fr", "", "-h", "--list", "../de", "de/templates", "$(id)", "de en", ".", "scripts", "en"):
        before = (spoken.etc / "language").read_text()
        (state / "language").write_text(f"language={stored}\n")
        run = subprocess.run([*spoken.shell, ROOT / "examples/forms/actions/language"], env=env, text=True,
                             capture_output=True, check=False)
        fine = stored in ("de", "en")
        assert (run.returncode == 0) == fine, (stored, run)
        assert (spoken.etc / "language").read_text() == (f"{stored}\n" if fine else before)


def test_the_tree_is_a_complete_translation():
    lint = subprocess.run([os.environ["ORV_LINT"], ROOT / "examples/first", ROOT / "examples/german"], text=True,
                          capture_output=True, check=False)
    assert (lint.returncode, lint.stdout) == (0, ""), lint.stdout
    for path in (ROOT / "examples/german/templates").iterdir():
        other = ROOT / "examples/first/templates" / path.name
        assert not other.exists() or path.read_text() != other.read_text(), path
    subprocess.run(["shellcheck", TOOL], check=True)
