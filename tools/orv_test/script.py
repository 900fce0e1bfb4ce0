"""The lines of a test file: what they may say, and the cases that they make.

A file is judged as a whole before anything runs; its faults are told together,
each with its line and what may have been meant.
"""

import dataclasses
import difflib

# The last word stands for the rest of the line; [] may be left away.
ACTIONS = {
    "open": ("[FORM]", "follow a plain link to FORM or FORM/SUB-ITEM; without "
                       "one, to the start page"),
    "follow": ("TEXT", "click the link that shows TEXT"),
    "set": ("NAME [VALUE]", "type VALUE into a text field, or empty it"),
    "tick": ("NAME", "tick a check box"),
    "untick": ("NAME", "take its tick away"),
    "choose": ("NAME VALUE", "choose the entry of a list that has, or shows, "
                             "VALUE"),
    "delete": ("TABLE ROW", "tick Delete in a table's row; ROW is the number "
                            "in the names of its cells"),
    "press": ("LABEL", "press a button: Submit, Home, Help, Expert, ..."),
    "back": ("", "go back a page, as the browser's button does"),
    "redraw": ("", "draw the form again, as a browser does when a list or box "
                   "changes that a condition asks for"),
    "reset": ("", "put back the settings as shipped (nothing was ever stored)"),
}
EXPECTATIONS = {
    "form": ("FORM", "the page shows FORM (with /SUB-ITEM: that one)"),
    "title": ("TEXT", "the page's title"),
    "text": ("TEXT", "the page shows TEXT somewhere"),
    "anywhere": ("TEXT", "the page holds TEXT, its hidden fields included"),
    "status": ("NUMBER", "the answer's status: 200, 403, 404, ..."),
    "message": ("TEXT", "what the whole page is told"),
    "error": ("NAME [TEXT]", "what is told at a field or a table's column; "
                             "...PART... in place of both: what is told anywhere"),
    "errors": ("", "the page tells that something is wrong"),
    "field": ("NAME", "the page draws the field"),
    "value": ("NAME [VALUE]", "what a field holds, or a list has chosen"),
    "ticked": ("NAME", "a check box is ticked"),
    "choice": ("NAME VALUE", "a list has, or shows, an entry VALUE"),
    "rows": ("TABLE NUMBER", "how many rows of a table are in use"),
    "button": ("LABEL", "the button can be pressed"),
    "link": ("TEXT", "the page has a link that shows TEXT"),
    "sent": ("[LINE]", "the line, e.g. new_mtu=\"1500\", was given to the write "
                       "script (or to the check script that refused it)"),
    "stored": ("FILE [LINE]", "the file of the state folder has the line, or "
                              "is there"),
}
FREE = {"LINE", "VALUE", "TEXT", "LABEL"}  # may hold blanks
NOT = ("no", "not")


@dataclasses.dataclass
class Step:
    """A line of a test."""

    where: str  # FILE:LINE
    text: str
    command: str
    is_wanted: bool  # False behind `expect no`
    arguments: list


@dataclasses.dataclass
class Case:
    name: str
    where: str
    steps: list


class Fault(Exception):
    """A line that no test can hold."""


def near(word, known):
    """Asks whether one of these was meant, or says what there is; for the end
    of a message."""
    known = [name for name in dict.fromkeys(known) if name]
    best = difflib.get_close_matches(word, known, 3, 0.55)
    if best:
        return "; did you mean " + " or ".join(f'"{n}"' for n in best) + "?"
    if not known:
        return ""
    some = ", ".join(known[:12]) + (", ..." if len(known) > 12 else "")
    return f"; there is {some}"


def unquoted(text):
    """A text in double quotes keeps the blanks at its ends."""
    if len(text) >= 2 and text[0] == text[-1] == '"':
        return text[1:-1]
    return text


def quoted(text):
    """The text as a line of a test holds it."""
    if not text or text != text.strip() or text[0] == '"':
        return f'"{text}"'
    return text


def arguments(usage, what, text):
    """The words behind a command; None where one was left away."""
    found, names = [], usage.split()
    for index, name in enumerate(names):
        plain = name.strip("[]")
        word, _, rest = text.partition(" ")
        if index == len(names) - 1:
            word, rest = text, ""
        if not word and name == plain or plain not in FREE and " " in word:
            raise Fault(f"it is: {what} {usage}")
        if plain in ("ROW", "NUMBER") and not word.isdecimal():
            raise Fault(f"{plain} is a number, not \"{word}\"; "
                        f"it is: {what} {usage}")
        found.append(unquoted(word) if word else None)
        text = rest.strip()
    if text:
        raise Fault(f"it is: {what} {usage}".rstrip())
    return found


def step_of(where, text):
    """One line that is neither blank nor a comment."""
    word, _, rest = text.partition(" ")
    rest, what, known, is_wanted = rest.strip(), word, ACTIONS, True
    if word == "expect":
        word, _, rest = rest.partition(" ")
        if word in NOT:
            is_wanted, what = False, f"{what} {word}"
            word, _, rest = rest.strip().partition(" ")
        rest, what, known = rest.strip(), f"{what} {word}", EXPECTATIONS
    if word not in known:
        more = [] if known is EXPECTATIONS else ["test", "expect"]
        kind = "expectation" if known is EXPECTATIONS else "command"
        raise Fault(f"unknown {kind} \"{word}\"" + near(word, [*known, *more]))
    if what.endswith(" error") and rest.startswith("..."):
        found = ["", rest]  # of no field
    else:
        found = arguments(known[word][0], what, rest)
    name = word if known is ACTIONS else f"expect {word}"
    return Step(where, text, name, is_wanted, found)


def parse(path, lines, faults):
    """The cases of a file.  What stands before the first one is done at the
    start of each.  Faults are added to the list."""
    cases, first = [], []
    for number, line in enumerate(lines, 1):
        where, text = f"{path}:{number}", line.strip()
        if not text or text.startswith("#"):
            continue
        word, _, rest = text.partition(" ")
        try:
            if word != "test":
                steps = cases[-1].steps if cases else first
                steps.append(step_of(where, text))
            elif not rest.strip():
                raise Fault("a test needs a sentence that says what is so; "
                            "write: test SENTENCE")
            else:
                cases.append(Case(rest.strip(), where, list(first)))
        except Fault as fault:
            faults.append(f"{where}: {text}\n  {fault}")
    if not cases:
        faults.append(f"{path}: it has no line \"test SENTENCE\"; "
                      "begin each test with one")
    for case in cases:
        if not any(s.command.startswith("expect") for s in case.steps):
            faults.append(f"{case.where}: the test expects nothing; end it with "
                          "a line such as \"expect form changes_saved\"")
    return cases
