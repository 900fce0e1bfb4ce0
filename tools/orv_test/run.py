"""Executes the steps of a test."""

import difflib
import functools
import os
import re
import urllib.parse

from .device import CannotRun
from .page import DIGITS
from .script import near

MOST_FOUND = 6  # lines found that are shown with a failure
CLOSE = 0.6  # similarity from which a line is suggested for another
ITEMS = {"field", "fixed", "checkbox", "select", "iselect"}
SAFE = "/:,@=~"  # not encoded in an address's sub-item
# The commands for a field of each kind: to fill it in, to check it.
WAYS = {"text": "set {} VALUE", "checkbox": "tick {}", "select": "choose {} VALUE"}
LOOKS = {"text": "expect value {} VALUE", "checkbox": "expect ticked {}",
         "select": "expect value {} VALUE"}


class Failed(Exception):
    """A line that failed: lines for the report."""

    def __init__(self, *lines):
        super().__init__(*lines)
        self.lines = lines


# Kept, since one text is compared with every line of a page.
@functools.lru_cache(None)
def pattern(text):
    """`...` in a text matches anything."""
    return re.compile(".*".join(map(re.escape, text.split("..."))), re.S)


def where(address):
    """The argument of `open` for a link's form."""
    fields = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(address).query))
    return "/".join(fields[name] for name in ("form", "subitem") if name in fields)


def is_like(wanted, found):
    return wanted is None or pattern(wanted).fullmatch(found) is not None


class Browser:
    """The pages visited; the last one is open."""

    def __init__(self, device):
        self.device, self.pages = device, []

    @property
    def page(self):
        if not self.pages:
            raise Failed("no page is open; begin with a line \"open FORM\"")
        return self.pages[-1]

    def _field(self, name, *kinds, is_look=False):
        """The field of that name.  Each failure names the line to write instead: a
        label, a hidden field and a wrong command are the usual mistakes."""
        fields = self.page.fields
        if name not in fields:
            labelled = [c.name for c in fields.values() if c.label == name]
            hint = (f"; the field with that label is \"{labelled[0]}\""
                    if labelled else
                    "; a condition of the template hides it (perhaps the view: "
                    "press Expert)" if self._is_hidden(name) else
                    near(name, fields) or
                    "; it has none: open the form first, with \"open FORM\"")
            raise Failed(f"the page has no field \"{name}\"{hint}")
        field = fields[name]
        if kinds and field.kind not in kinds:
            line = (LOOKS if is_look else WAYS)[field.kind].format(name)
            raise Failed(f"\"{name}\" is a {field.kind} field, not a "
                         + " or ".join(kinds) + f"; write: {line}")
        return field

    def _is_hidden(self, name):
        """Whether the template has the field, or a column of it."""
        form = self.page.form.partition("/")[0]
        path = self.device.root / f"templates/{form}.tpl"
        words = [line.split() for line in path.read_text(
            "utf-8", "replace").splitlines()] if path.is_file() else []
        names = {w[1] for w in words if len(w) > 1 and w[0] in ITEMS}
        return name in names or name.rstrip(DIGITS) in names

    def _change(self, name, kind):
        """The field, unless it is grey: no user could change it."""
        field = self._field(name, kind)
        if field.is_disabled:
            raise Failed(f"\"{name}\" is read-only; write: "
                         + LOOKS[kind].format(name))
        return field

    # --- the user's actions ---------------------------------------------------

    def open(self, form):
        query = ""
        if form:
            name, _, item = form.partition("/")
            query = "form=" + urllib.parse.quote(name, SAFE)
            if item:
                query += "&subitem=" + urllib.parse.quote(item, SAFE)
        self.pages.append(self.device.request(query))

    def follow(self, text):
        links = {address for shown, address in self.page.links
                 if is_like(text, shown)}
        if len(links) != 1:
            names = [shown for shown, _ in self.page.links]
            if links:
                raise Failed(f"the page has more than one link \"{text}\"; write "
                             + " or ".join(f'"open {where(a)}"' for a in sorted(links)))
            raise Failed(f"the page has no link \"{text}\"" + (
                near(text, names) or "; it has none: write \"open FORM\""))
        query = urllib.parse.urlsplit(links.pop()).query
        self.pages.append(self.device.request(query))

    def set(self, name, value):
        self._change(name, "text").value = value or ""

    def tick(self, name):
        self._change(name, "checkbox").is_ticked = True

    def untick(self, name):
        self._change(name, "checkbox").is_ticked = False

    def choose(self, name, value):
        field = self._change(name, "select")
        field.value = self._choice(field, value)

    @staticmethod
    def _choice(field, value):
        """The entry's value, from that or from the text that a user sees."""
        values = [v for v, shown in field.options if value in (v, shown)]
        if not values:
            known = [v for option in field.options for v in option]
            raise Failed(f"the list \"{field.name}\" has no entry \"{value}\""
                         + (near(value, known) or "; it is empty, so write: expect "
                            f"not choice {field.name} {value}"))
        return values[0]

    def delete(self, table, row):
        rows = self.page.rows(table)
        if int(row) not in rows:
            tables = [name.split("_", 1)[1].rpartition("_")[0]
                      for name in self.page.fields if name.startswith("delete_")]
            hint = (f"; rows {', '.join(map(str, rows))} can be deleted" if rows
                    else near(table, tables) or
                    "; no row of this page can be deleted, so fill one in first")
            raise Failed(f"the page has no row {row} of a table \"{table}\""
                         + hint)
        self.tick(f"delete_{table}_{int(row)}")

    def press(self, label):
        buttons = self.page.controls_of("submit")
        found = [b for b in buttons if b.value == label]
        if not found:
            raise Failed(f"the page has no button \"{label}\""
                         + near(label, [b.value for b in buttons]))
        if found[0].is_disabled:
            raise Failed(f"the button \"{label}\" is grey on this page; write: "
                         f"expect no button {label}")
        fields = self.page.posted(found[0])
        self.pages.append(self.device.request(fields=fields))

    def back(self):
        """No request: browsers show the page as it was left, entries included."""
        if len(self.pages) < 2:
            raise Failed("there is no page to go back to; \"open FORM\", "
                         "\"follow TEXT\" or \"press LABEL\" makes one")
        self.pages.pop()

    def redraw(self):
        """Marked rows stay marked, but are not sent; help stays."""
        page = self.page
        fields = [(name, value) for name, value in page.posted()
                  if not re.fullmatch(r"delete_.+_\d+", name)]
        if page.shows_help:
            fields.append(("action", "Help"))
        fresh = self.device.request(fields=fields)
        if not page.form or fresh.form != page.form:
            raise Failed("no form came back that a browser would put in this "
                         "one's place; write \"press LABEL\" or \"open FORM\"",
                         *place_of(fresh))
        fresh.take_over(page)
        self.pages[-1] = fresh

    def reset(self):
        """No page stays open: each would show settings that are gone."""
        self.device.reset()
        self.pages.clear()

    # --- expectations: whether each is met, and what was found -----------------

    def expect_form(self, form):
        """Without a sub-item in `form`, any will do."""
        found = self.page.form
        return form in (found, found.partition("/")[0]), [found or "no form"]

    def expect_title(self, text):
        return is_like(text, self.page.title), [self.page.title]

    def expect_text(self, text):
        """Across lines, as a user does not see where the page breaks a text."""
        lines = self.page.lines
        return pattern(text).search(" ".join(lines)) is not None, lines

    def expect_anywhere(self, text):
        """In the page's source as well: that a secret is nowhere can only be tested
        there."""
        body = self.page.body.decode("utf-8", "replace")
        values = [c.value for c in self.page.controls]
        found = [t for t in (body, *values) if pattern(text).search(t)]
        return bool(found), ["the page holds it" if found else
                             "the page holds it nowhere"]

    def expect_status(self, number):
        return self.page.status == int(number), [str(self.page.status)]

    def expect_message(self, text):
        told = [t for name, t in self.page.errors if name == "page"]
        return any(is_like(text, t) for t in told), told

    def expect_error(self, name, text):
        if not name:
            told = [t for _, t in self.page.errors]
            return any(is_like(text, t) for t in told), told
        # Of a cell, its column or the field itself: a message for a whole column
        # counts for each of its cells, and those of cells for the column.
        told = [t for n, t in self.page.errors
                if n in (name, f"{name}#", f"{name.rstrip(DIGITS)}#")
                or re.fullmatch(re.escape(name) + r"\d+", n)]
        # A name that the page does not have is a mistake in the test.
        if not told and name not in {n.rstrip(DIGITS) for n in self.page.fields}:
            self._field(name)
        return any(is_like(text, t) for t in told), told

    def expect_errors(self):
        told = [f"{name}: {t}" if name else t for name, t in self.page.errors]
        return bool(told), told

    def expect_field(self, name):
        fields = list(self.page.fields)
        return name in fields, fields

    def expect_value(self, name, value):
        field = self._field(name, "text", "select", is_look=True)
        shown = field.shown_value()
        return any(is_like(value or "", v) for v in shown), shown

    def expect_ticked(self, name):
        is_ticked = self._field(name, "checkbox", is_look=True).is_ticked
        return is_ticked, ["ticked" if is_ticked else "not ticked"]

    def expect_choice(self, name, value):
        options = self._field(name, "select", is_look=True).options
        return (any(value in option for option in options),
                [f"{v} ({shown})" for v, shown in options])

    def expect_rows(self, table, number):
        rows = self.page.rows(table)
        return len(rows) == int(number), [str(len(rows))]

    def expect_button(self, label):
        labels = [b.value for b in self.page.controls_of("submit")
                  if not b.is_disabled]
        return label in labels, labels

    def expect_link(self, text):
        shown = [shown for shown, _ in self.page.links]
        return any(is_like(text, s) for s in shown), shown

    def expect_sent(self, line):
        lines = self.device.sent()
        if lines is None:
            return False, ["nothing: no check or write script ran"]
        return any(is_like(line, found) for found in lines), lines

    def expect_stored(self, name, line):
        lines = self.device.stored(name)
        if lines is None:
            return False, ["no file of that name" + (
                near(name, self.device.stored_names()) or "; nothing was stored")]
        return any(is_like(line, found) for found in lines), lines


# --- reports -----------------------------------------------------------------

def shortened(lines, more):
    """The first lines; `more` is the number of findings in the others."""
    return lines if more <= 0 else [*lines, f"        ... and {more} more"]


def listed(found):
    """The lines found."""
    return shortened([f"found   {line}" for line in found[:MOST_FOUND]]
                     or ["found   nothing"], len(found) - MOST_FOUND)


def difference(wanted, found):
    """The wanted line above those found: lines of the same name, or similar ones,
    with the first difference marked, or else all of them."""
    name, equals, _ = wanted.partition("=")
    close = [line for line in found if equals and line.startswith(name + equals)]
    if not close:
        # Without autojunk, which ignores the frequent letters of a long line.
        matcher = difflib.SequenceMatcher(b=wanted, autojunk=False)
        ratios = {}
        for line in found:
            matcher.set_seq1(line)
            ratios[line] = matcher.ratio()
        close = sorted((line for line in ratios if ratios[line] >= CLOSE),
                       key=lambda line: -ratios[line])
    lines = [f"wanted  {wanted}"]
    if "..." not in wanted and any(wanted in line for line in found):
        lines.append(f"        (for a part write ...{wanted}...)")
    if not close:
        return lines + listed(found)
    for line in close[:MOST_FOUND]:
        lines.append(f"found   {line}")
        if "..." not in wanted:
            same = len(os.path.commonprefix([wanted, line]))
            lines.append(" " * (len("found   ") + same) + "^")
    return shortened(lines, len(close) - MOST_FOUND)


def check(step, browser):
    """Checks an expectation."""
    find = getattr(browser, step.command.replace(" ", "_"))
    is_so, found = find(*step.arguments)
    if is_so == step.is_wanted:
        return
    wanted = step.arguments[-1] if step.arguments else None
    if not step.is_wanted:
        same = [line for line in found if wanted is None or wanted in line]
        raise Failed(*listed(same or found))
    if wanted is None:
        raise Failed(*listed(found))
    raise Failed(*difference(wanted, found))


def place(browser):
    """The open page, for the end of a failure's report."""
    return place_of(browser.page) if browser.pages else []


def place_of(page):
    shown = page.form or f"error page {page.status}"
    told = [f"        {name}: {text}" if name else f"        {text}"
            for name, text in page.errors]
    return [f"page    {shown}, \"{page.title}\"", *told]


def run(case, device):
    """The report of a case: no lines if all expectations are met.  After a failure,
    the other expectations about the same page are still checked."""
    browser, report = Browser(device), []
    for step in case.steps:
        is_check = step.command.startswith("expect")
        # What a user does next makes no sense on another page than the expected.
        if report and not is_check:
            break
        try:
            if is_check:
                check(step, browser)
            else:
                getattr(browser, step.command)(*step.arguments)
        except (Failed, CannotRun) as failure:
            lines = failure.lines if isinstance(failure, Failed) else failure.args
            report += [f"{step.where}: {step.text}", *(f"  {x}" for x in lines)]
            if not is_check or isinstance(failure, CannotRun):
                break
    if report:
        report += [f"  {line}" for line in place(browser)]
    return report
