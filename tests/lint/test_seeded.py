"""Mistakes that an author can make, each alone in a folder without others."""
import json
import os
import pathlib
import shutil
import subprocess

import pytest

LINT = os.environ["ORV_LINT"]
EVERY = 1 if "LARKSPUR_LONG" in os.environ else int(os.environ.get("EVERY", 1))
SEEDED = pathlib.Path(__file__).parent / "seeded"


def lint(folder, *options):
    run = subprocess.run([LINT, "--format=json", "--no-shellcheck", *options, folder], capture_output=True, text=True)
    return [(os.path.relpath(f["file"], folder), f["line"], f["rule"], f["text"]) for f in json.loads(run.stdout)]


def mistakes(table):
    """For each line of the table: its number, the file, the text before and after,
    and another place where the finding is right as well."""
    for number, line in enumerate((SEEDED / table).read_text().splitlines(), 1):
        if line and line[0] != "#" and number % EVERY == 0:
            name, _, change = line.replace("\\n", "\n").partition(": ")
            old, _, new = change.partition(" ==> ")
            new, _, elsewhere = new.rpartition(" @ ") if " @ " in new else (new, "", "")
            yield number, name, old, new, elsewhere.partition(": ")[::2]


def places(device, name, old, new, elsewhere):
    """Makes the mistake; returns the places where it may be reported."""
    path = device / name
    text = path.read_text()
    assert text.count(old) == 1, (name, old)
    changed = text.replace(old, new)
    path.write_text(changed)
    first = text.count("\n", 0, text.index(old)) + 1
    due = {(name, first + i) for i in range(new.rstrip("\n").count("\n") + 1)} if new else set()
    if elsewhere[0]:
        lines = (device / elsewhere[0]).read_text().splitlines()
        due |= {(elsewhere[0], i) for i, line in enumerate(lines, 1) if elsewhere[1] in line}
    return text, due


def told_of(device, name, old, new, elsewhere):
    """The findings of that mistake alone, and the places where it may be reported."""
    text, due = places(device, name, old, new, elsewhere)
    told = lint(device)
    (device / name).write_text(text)
    return told, due


@pytest.fixture
def device(tmp_path):
    shutil.copytree(SEEDED / "base", tmp_path, symlinks=True, dirs_exist_ok=True)
    return tmp_path


def test_nine_mistakes_in_ten_are_reported_with_their_place(device):
    assert lint(device) == []
    missed, count = [], 0
    for number, *change in mistakes("mistakes.txt"):
        told, due = told_of(device, *change)
        if not due & {(file, line) for file, line, *_ in told}:
            missed.append((number, change, told))
        count += 1
    assert len(missed) * 20 <= count, "\n".join(map(str, missed))


def test_correct_forms_are_not_reported(device):
    alarms = []
    for number, *change in mistakes("fine.txt"):
        told, _ = told_of(device, *change)
        if told:
            alarms.append((number, change, told))
    assert not alarms, "\n".join(map(str, alarms))


@pytest.mark.parametrize("rule, changes", [
    ("column-row", [("scripts/routes.sh", '  check_row "$row"\n',
                     '  check_row "$row"\n  ((orv[route_to] < 5)) && orv_msg Few\n')]),
    ("number-test", [("templates/lan.tpl", "check nullok decimal 1 4094", "check real 1 4094"),
                     ("scripts/lan.sh", "orv_read \"${NAMES[@]}\"\n",
                      "orv_read \"${NAMES[@]}\"\n[[ \"${orv[vlan]}\" -gt 5 ]] && orv_msg Many\n")]),
    ("number-text", [("scripts/lan.sh", "orv_read \"${NAMES[@]}\"\n",
                      "orv_read \"${NAMES[@]}\"\n[ \"${orv[mtu]}\" > \"${orv[vlan]}\" ] && orv_msg Many\n")]),
])
def test_a_wrong_comparison_is_one_mistake(device, rule, changes):
    *before, last = changes
    for change in before:
        places(device, *change, ("", ""))
    told, _ = told_of(device, *last, ("", ""))
    assert [found for *_, found, _ in told] == [rule]
