"""Limits, secret names, commands and functions: manuals, rules and the script
library agree with the code."""

import re
import subprocess

import orv_test.run
import pytest
from conftest import ADDED, CHANGED, DELETED, LIMITS, ROOT

TEMPLATE, SCRIPT = "docs/man/larkspur-template.5", "docs/man/larkspur-script.7"
RULE = "tools/lint/rules/{}.txt"
WORDS = "zero one two three four five six seven eight nine ten eleven twelve".split()
# limit, the text that gives it (the number in brackets), where
SAID = (
    ("ORV_LINE_MAX", r"a line Ta (\d+) bytes", TEMPLATE),
    ("ORV_LINE_MAX", r"A line ends at (\d+) bytes", SCRIPT),
    ("ORV_LINE_MAX", r"more than (\d+) bytes", RULE.format("run-long")),
    ("ORV_LINE_MAX", r"piece of (\d+) characters", RULE.format("long-line")),
    ("ORV_REPORTED_MAX", r"more than (\d+) bytes of name and value", SCRIPT),
    ("ORV_REPORTED_MAX", r"more than (\d+) bytes of name and value", "docs/man/orv-store.8"),
    ("ORV_REPORTED_MAX", r"it has (\d+) bytes at most", TEMPLATE),
    ("ORV_REPORTED_MAX", r"orv__bytes=(\d+) ", "lib/orv.bash"),
    ("ORV_NAME_MAX", r"\$\{#1\} -le (5\d) ", "lib/orv.bash"),
    ("ORV_STORED_ROWS_MAX", r"orv__rows=(\d+) ", "lib/orv.bash"),
    ("ORV_STORED_ROWS_MAX - 1", r"rows 0 to (\d+)", SCRIPT),
    ("ORV_COLUMNS_MAX", r"columns of a table Ta (\d+) Ta", TEMPLATE),
    ("ORV_CONDITIONS_MAX", r"conditions inside each other Ta (\d+) Ta", TEMPLATE),
    ("ORV_ROWS_MAX", r"rows of a table, entries of a list Ta ([\d,]+) Ta", TEMPLATE),
    ("ORV_ADDRESS_MAX", r"address of a menu's entry Ta (\d+) bytes", TEMPLATE),
    ("ORV_ADDRESS_MAX", r"addresses at (\d+)\.", SCRIPT),
    ("ORV_ADDRESS_MAX", r"end at (\d+) characters", RULE.format("link-long")),
    ("ORV_LABELLED_MAX", r"a message with a column's label Ta (\d+) bytes", TEMPLATE),
    ("ORV_BAR_MAX", r"(\w+) entries fit", SCRIPT),
    ("ORV_BAR_MAX", r"(\w+) fit,", RULE.format("nav-full")),
    ("ORV_BAR_LABEL_MAX", r"labels are cut at (\d+) bytes", SCRIPT),
    ("ORV_BAR_LABEL_MAX", r"Labels end at (\d+) characters", RULE.format("nav-label")),
)


def number(said):
    return WORDS.index(said.lower()) if said.lower() in WORDS else int(said.replace(",", ""))


def test_every_text_gives_the_actual_limit():
    wrong = []
    for name, pattern, path in SAID:
        name, _, less = name.partition(" - ")
        limit = LIMITS[name] - int(less or 0)
        said = re.findall(pattern, (ROOT / path).read_text())
        if {number(s) for s in said} != {limit}:
            wrong.append(f"{path}: {name} makes it {limit}, said: {said}")
    assert not wrong, "\n".join(wrong)


def test_the_library_keeps_as_many_rows_as_the_store(tmp_path):
    last = LIMITS["ORV_STORED_ROWS_MAX"] - 1
    def kept(row):
        return subprocess.run(
            ["bash", "-c", '. "$0"; orv_read a#; orv_rows a; echo ${rows[*]}', ROOT / "lib/orv.bash"],
            input=f'new_a0="x"\nnew_a{row}="x"\n', text=True, capture_output=True, cwd=tmp_path).stdout
    assert kept(last) == f"0 {last}\n", "the rows of orv__read_taken and orv_rows"
    assert "a table keeps" in kept(last + 1), "the rows of orv__read_taken"


def test_every_ending_of_secret_names_is_in_the_manual_and_the_rule():
    endings = re.search(r"endings\[\] = \{([^}]+)\}", (ROOT / "src/orv/orv_secret.cpp").read_text())
    words = re.findall(r'"_?(\w+)"', endings[1])
    assert len(words) >= 7
    wrong = []
    for path, begin in ((TEMPLATE, "A field is a secret when"), (RULE.format("secret"), "is that of a secret when")):
        said = (ROOT / path).read_text().partition(begin)[2].partition("\n.It")[0]
        wrong += [f"{path} lacks {word}" for word in words if not re.search(rf"\b{word}\b", said[:400])]
    assert not wrong, "\n".join(wrong)


def test_the_manual_shows_changes_in_the_words_of_the_tests():
    manual = (ROOT / "docs/man/orvctl.8").read_text()
    assert [words for words in (ADDED, DELETED, CHANGED) if words not in manual] == []


# what has a name, how the source names it, the manual, how that names it
NAMED = (
    ("src/orv/orv_parser.cpp", r'^  \{"(\w+)",  *PT_', TEMPLATE, "Ic {}"),
    ("src/orv/cgi_main.cpp", r'^ *\{"([\w ]+)", +action_', "docs/man/orv.8", r"It (?:[\w ]+ , )?{}"),
    ("tools/orvctl/orvctl.cpp", r'^ *\{"(\w+)", +\w+, +\d', "docs/man/orvctl.8", "It Cm {}"),
    ("src/store/orv_store.cpp", r'^  \{"(\w+)", +\w+, +\d', "docs/man/orv-store.8", "It Cm {}"),
    ("lib/*", r"^(orv_[a-z]\w*)\(\)", SCRIPT, "Ic {}"),
)


def test_orv_test_fills_in_every_item_that_is_submitted():
    rows = re.findall(r'^  \{"(\w+)",  *PT_\w+,  *\w+,  *\w+,  *(\w+),',
                      (ROOT / "src/orv/orv_parser.cpp").read_text(), re.M)
    assert {name for name, submitted in rows if submitted == "true"} == orv_test.run.ITEMS


def test_a_script_that_has_read_orv_bash_has_every_function():
    public = {name for p in ROOT.glob("lib/*.bash")
              for name in re.findall(r"^(orv_[a-z]\w*)\(\)", p.read_text(), re.M)}
    run = subprocess.run(["bash", "-c", '. "$0"; declare -F', ROOT / "lib/orv.bash"],
                         text=True, capture_output=True, check=True)
    missing = public - set(re.findall(r"declare -f (\w+)", run.stdout))
    assert not missing, f"the last lines of lib/orv.bash lack {missing}"


@pytest.mark.parametrize("source, pattern, manual, form", NAMED, ids=[n[0] for n in NAMED])
def test_the_manual_has_every_name(source, pattern, manual, form):
    code = "".join(p.read_text() for p in sorted(ROOT.glob(source)))
    names = re.findall(pattern, code, re.M)
    text = (ROOT / manual).read_text()
    missing = [n for n in names if not re.search(rf"\b{form.format(n)}\b", text)]
    assert len(names) > 7 and not missing, f"{manual} lacks {missing}"
