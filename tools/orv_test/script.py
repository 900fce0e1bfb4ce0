"""The syntax of test files, and the cases that they contain.

A file is checked completely before anything runs; its errors are reported
together, each with its line and a suggestion.
"""

import dataclasses
import difflib

# The last argument is the rest of the line; [] is optional.
ACTIONS = {
    "open": ("[FORM]", "follow a plain link to FORM or FORM/SUB-ITEM; without "
                       "one, to the start page"),
    "follow": ("TEXT", "click the link TEXT"),
    "set": ("NAME [VALUE]", "type VALUE into a text field, or empty it"),
    "tick": ("NAME", "tick a check box"),
    "untick": ("NAME", "clear a check box"),
    "choose": ("NAME VALUE", "choose the entry of a list with that value or "
                             "text"),
    "delete": ("TABLE ROW", "tick Delete in a table's row, numbered as in the "
                            "names of its cells"),
    "press": ("LABEL", "press a button: Submit, Home, Help, Expert, ..."),
    "back": ("", "go back one page, as with the browser's button"),
    "redraw": ("", "redraw the form, as a browser does when a list or check "
                   "box in a condition changes"),
    "reset": ("", "restore the settings as shipped"),
}
EXPECTATIONS = {
    "form": ("FORM", "the page shows FORM (with /SUB-ITEM: that one)"),
    "title": ("TEXT", "the page's title"),
    "text": ("TEXT", "the page shows TEXT somewhere"),
    "anywhere": ("TEXT", "the page contains TEXT, possibly in a hidden field"),
    "status": ("NUMBER", "the HTTP status: 200, 403, 404, ..."),
    "message": ("TEXT", "the page's own message"),
    "error": ("NAME [TEXT]", "the message at a field or a table's column; "
                             "...PART... in place of both: any message"),
    "errors": ("", "the page reports an error"),
    "field": ("NAME", "the page draws the field"),
    "value": ("NAME [VALUE]", "the value of a field, or of a list's choice"),
    "ticked": ("NAME", "a check box is ticked"),
    "choice": ("NAME VALUE", "a list has an entry with that value or text"),
    "rows": ("TABLE NUMBER", "how many rows of a table are in use"),
    "button": ("LABEL", "the button can be pressed"),
    "link": ("TEXT", "the page has a link TEXT"),
    "sent": ("[LINE]", "the line, e.g. new_mtu=\"1500\", was passed to the write "
                       "script (or to the check script that refused it)"),
    "stored": ("FILE [LINE]", "the file in the folder state contains the line, "
                              "or exists"),
}
FREE = {"LINE", "VALUE", "TEXT", "LABEL"}  # may contain blanks
NOT = ("no", "not")


@dataclasses.dataclass
class Step:
    """A line of a test."""

    where: str  # FILE:LINE
    text: str
    command: str
    is_wanted: bool  # False after `expect no`
    arguments: list


@dataclasses.dataclass
class Case:
    name: str
    where: str
    steps: list


class Fault(Exception):
    """An invalid line."""


def near(word, known):
    """The end of a message: suggests similar names, or lists the known ones."""
    # Each once and in the page's order, which a set would not keep.
    known = [name for name in dict.fromkeys(known) if name]
    best = difflib.get_close_matches(word, known, 3, 0.55)
    if best:
        return "; did you mean " + " or ".join(f'"{n}"' for n in best) + "?"
    if not known:
        return ""
    some = ", ".join(known[:12]) + (", ..." if len(known) > 12 else "")
    return f"; there is {some}"


def unquoted(text):
    """A text in double quotes keeps the blanks at its ends, and can be empty."""
    if len(text) >= 2 and text[0] == text[-1] == '"':
        return text[1:-1]
    return text


def quoted(text):
    """The text as it is written in a line of a test."""
    if not text or text != text.strip() or text[0] == '"':
        return f'"{text}"'
    return text


def arguments(usage, what, text):
    """The arguments of a command; None for one that is omitted."""
    found, names = [], usage.split()
    for index, name in enumerate(names):
        plain = name.strip("[]")
        word, _, rest = text.partition(" ")
        if index == len(names) - 1:
            word, rest = text, ""
        if not word and name == plain or plain not in FREE and " " in word:
            raise Fault(f"usage: {what} {usage}")
        if plain in ("ROW", "NUMBER") and not word.isdecimal():
            raise Fault(f"{plain} is a number, not \"{word}\"; "
                        f"usage: {what} {usage}")
        found.append(unquoted(word) if word else None)
        text = rest.strip()
    if text:
        raise Fault(f"usage: {what} {usage}".rstrip())
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
    # No field's name has dots, so this is a message of any field.
    if what.endswith(" error") and rest.startswith("..."):
        found = ["", rest]  # without a field
    else:
        found = arguments(known[word][0], what, rest)
    name = word if known is ACTIONS else f"expect {word}"
    return Step(where, text, name, is_wanted, found)


def parse(path, lines, faults):
    """The cases of a file.  Steps before the first one are run at the start of
    each.  Errors are added to the list."""
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
                raise Fault("a test needs a sentence that describes it; "
                            "write: test SENTENCE")
            else:
                cases.append(Case(rest.strip(), where, list(first)))
        except Fault as fault:
            faults.append(f"{where}: {text}\n  {fault}")
    # A file or a test that checks nothing would pass for ever.
    if not cases:
        faults.append(f"{path}: it has no line \"test SENTENCE\"; "
                      "begin each test with one")
    for case in cases:
        if not any(s.command.startswith("expect") for s in case.steps):
            faults.append(f"{case.where}: the test expects nothing; end it with "
                          "a line such as \"expect form changes_saved\"")
    return cases
