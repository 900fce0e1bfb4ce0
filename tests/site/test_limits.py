"""Limits and secret names in texts and in the script library agree with the code."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
TEMPLATE, SCRIPT = "docs/man/larkspur-template.5", "docs/man/larkspur-script.7"
RULE = "tools/lint/rules/{}.txt"
WORDS = {"Six": 6}
# limit, the text that gives it (the number in brackets), where
SAID = (
    ("ORV_LINE_MAX", r"a line Ta (\d+) bytes", TEMPLATE),
    ("ORV_LINE_MAX", r"A line ends at (\d+) bytes", SCRIPT),
    ("ORV_LINE_MAX", r"more than (\d+) bytes", RULE.format("run-long")),
    ("ORV_LINE_MAX", r"piece of (\d+) characters", RULE.format("long-line")),
    ("ORV_REPORTED_MAX", r"more than (\d+) bytes of name and value", SCRIPT),
    ("ORV_REPORTED_MAX", r"more than (\d+) bytes of name and value", "docs/man/orv-store.8"),
    ("ORV_REPORTED_MAX", r"it has (\d+) bytes at most", TEMPLATE),
    ("ORV_REPORTED_MAX", r'\$\(\((\d+) - \$\{#1\}\)\)', "lib/orv_input.bash"),
    ("ORV_REPORTED_MAX", r"\$\{#2\} <= (\d+)", "lib/orv.bash"),
    ("ORV_NAME_MAX", r"\$\{#1\} -le (5\d) ", "lib/orv.bash"),
    ("ORV_STORED_ROWS_MAX", r"a table keeps (\d+) rows", "lib/orv_table.bash"),
    ("ORV_COLUMNS_MAX", r"columns of a table Ta (\d+) Ta", TEMPLATE),
    ("ORV_CONDITIONS_MAX", r"conditions inside each other Ta (\d+) Ta", TEMPLATE),
    ("ORV_ROWS_MAX", r"rows of a table, entries of a list Ta ([\d,]+) Ta", TEMPLATE),
    ("ORV_ADDRESS_MAX", r"address of a menu's entry Ta (\d+) bytes", TEMPLATE),
    ("ORV_ADDRESS_MAX", r"addresses at (\d+)\.", SCRIPT),
    ("ORV_ADDRESS_MAX", r"end at (\d+) characters", RULE.format("link-long")),
    ("ORV_LABELLED_MAX", r"a message with a column's label Ta (\d+) bytes", TEMPLATE),
    ("ORV_BAR_MAX", r"(\w+) entries fit", SCRIPT),
    ("ORV_BAR_LABEL_MAX", r"labels are cut at (\d+) bytes", SCRIPT),
    ("ORV_BAR_LABEL_MAX", r"Labels end at (\d+) characters", RULE.format("nav-label")),
)


def limits():
    text = (ROOT / "src/orv/orv_limits.h").read_text()
    found = {}
    for name, value in re.findall(r"^constexpr int (\w+) = ([^;]+);", text, re.M):
        for known, number in found.items():
            value = re.sub(rf"\b{known}\b", str(number), value)
        found[name] = sum(int(part) for part in re.findall(r"[+-]?\d+", value.replace(" ", "")))
    return found


def test_every_text_gives_the_actual_limit():
    held, wrong = limits(), []
    for name, pattern, path in SAID:
        said = re.findall(pattern, (ROOT / path).read_text())
        numbers = {WORDS.get(s) or int(s.replace(",", "")) for s in said}
        if numbers != {held[name]}:
            wrong.append(f"{path}: {name} is {held[name]}, said: {said}")
    assert not wrong, "\n".join(wrong)


def test_every_ending_of_secret_names_is_in_the_manual_and_the_rule():
    endings = re.search(r"endings\[\] = \{([^}]+)\}", (ROOT / "src/orv/orv_secret.cpp").read_text())
    words = re.findall(r'"_?(\w+)"', endings[1])
    assert len(words) >= 7
    for path, begin in ((TEMPLATE, "A field is a secret when"), (RULE.format("secret"), "is that of a secret when"),
                        ("src/orv/orv_secret.h", "ends in")):
        said = (ROOT / path).read_text().partition(begin)[2].partition("\n.It")[0]
        missing = [word for word in words if not re.search(rf"\b{word}\b", said[:400])]
        assert not missing, f"{path} lacks {missing}"
