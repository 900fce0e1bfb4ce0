"""larkspur-new: a new form can start from any of the examples, and no existing file
is overwritten."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = sorted(p.stem for p in (ROOT / "examples/forms/tests").glob("*.test"))


def new(*arguments):
    """The status, and the text on standard output or error."""
    run = subprocess.run([ROOT / "tools/larkspur-new", *arguments], text=True,
                         capture_output=True, check=False)
    assert not (run.stdout and run.stderr)
    return run.returncode, run.stdout or run.stderr


def contents(folder):
    return {str(p.relative_to(folder)): (p.read_bytes(), p.stat().st_mode)
            for p in folder.rglob("*") if p.is_file()}


def test_every_example_works_under_a_name_of_its_own(tmp_path):
    device = tmp_path / "my device"
    made = set()
    for example in EXAMPLES:
        before = contents(device)
        assert new("--form", f"my-{example}.1", "--like", example, device)[0] == 0
        after = contents(device)
        made = {name for name in after if name not in before}
        changed = {n for n in before if after.get(n) != before[n]}
        assert changed == ({"templates/orvmenu.tpl"} if before else set())
        if before:
            assert {name for name in made if f"my-{example}" not in name} <= {
                f"actions/{example}", f"actions/{example}_login"
            } and f"scripts/my-{example}.1.sh" in made
    # The old name is left nowhere where it means a form, a script or a file.
    names = "|".join(EXAMPLES)
    left = re.compile(rf"^(choice|open|imenu|expect (not )?(form|stored)) ({names})s?\b"
                      rf"|\b({names})\.sh|orv_(load|store) \"?({names})\b", re.M)
    assert not [p for p in device.rglob("my-*") if left.search(p.read_text())]
    lint = subprocess.run([os.environ["ORV_LINT"], "--run", device], text=True,
                          capture_output=True, check=False)
    assert (lint.returncode, lint.stdout) == (0, ""), lint.stdout
    (device / "tests/bar.test").write_text("".join(
        f"test {e}\nopen my-{e}.1\nexpect link Start\n" for e in EXAMPLES if e != "port"))
    tests = sorted((device / "tests").glob("*.test"))
    assert len(tests) == len(EXAMPLES) + 2
    run = subprocess.run([ROOT / "tools/orv-test", "--orv", os.environ["ORV"], *tests],
                         text=True, capture_output=True, check=False)
    assert run.returncode == 0, run.stdout + run.stderr


@pytest.mark.parametrize("arguments, status, told", [
    (("--form", "clock", "--like", "fields"), 1, "\" exists already; choose"),
    (("--form", "x", "--like", "fields"), 1, "state/x\" exists already"),
    (("--form", "../x", "--like", "fields"), 1, "is not a valid name of a form"),
    (("--form", "-x", "--like", "fields"), 1, "is not a valid name of a form"),
    (("--form", "a/b", "--like", "fields"), 1, "is not a valid name of a form"),
    (("--form", "y", "--like", "feilds"), 1, "available: conditions fields "),
    (("--form", "y", "--like", "../first/clock"), 1, "no example"),
    (("--form", "y"), 2, "needs --like EXAMPLE"), (("--like", "fields"), 2, "--form NAME"),
    (("--form",), 2, "Usage"), (("--from", "y"), 2, "unknown option"), ((), 1, "already"),
    (("other",), 2, "one folder"),
])
def test_what_cannot_be_created_is_reported_and_changes_nothing(
        arguments, status, told, tmp_path):
    device = tmp_path / "device"
    assert new(device)[0] == 0
    (device / "state").mkdir()
    (device / "state/x").write_text("a=1\n")
    before = contents(tmp_path)
    code, said = new(*arguments, device)
    assert code == status and told in said and contents(tmp_path) == before
    (tmp_path / "empty").mkdir()
    code, said = new("--form", "y", "--like", "fields", tmp_path / "empty")
    assert code == 1 and "is not a folder of forms" in said


def test_the_menu_gets_its_entry_wherever_it_can_stand(tmp_path):
    assert new(tmp_path / "d")[0] == 0
    menu = tmp_path / "d/templates/orvmenu.tpl"
    for text, entry in (
            ("body\nfmenu\nchoice a A\n# note\n\ntext End.\n", "choice a A\nchoice {}"),
            ("body\ntext Start.", "Start.\nfmenu\nchoice {}"),
            ("body\nfmenu\nchoice a A\nselect b\nchoice b B\n", "choice a A\nchoice {}")):
        menu.write_text(text)
        name = f"f{len(text)}"
        assert new("--form", name, "--like", "status", tmp_path / "d")[0] == 0
        assert entry.format(name) in menu.read_text()
        assert menu.read_text().replace(f"choice {name} A status page\n", "").replace(
            "fmenu\n", "") == text.replace("fmenu\n", "").rstrip("\n") + "\n"
