"""A page as a browser sees it: its controls, links, messages and visible text,
and the fields that it posts when a button is pressed."""

import dataclasses
import re

import html5lib

HTML = "{http://www.w3.org/1999/xhtml}"
UNSEEN = {"head", "script", "style", "option"}
DIGITS = "0123456789"
# All other elements begin a line of their own.
INLINE = {"a", "em", "label", "span", "html"}


def squeeze(text):
    """The text with one blank between its words."""
    return " ".join(text.split())


@dataclasses.dataclass
class Control:
    """An input or a list of the page, with the user's changes."""

    name: str
    kind: str  # hidden, text, checkbox, select or submit
    value: str
    is_ticked: bool
    is_disabled: bool
    options: list  # of a list: values and the texts shown for them
    label: str
    error_ids: list  # of the paragraphs with its messages
    is_wrong: bool

    def shown_value(self):
        """The value, and a list's text for it."""
        return [self.value, *(t for v, t in self.options if v == self.value)]

    def entry(self):
        return self.value, self.is_ticked

    def enter(self, other):
        """Takes another control's entry; a list that lacks it keeps its own."""
        self.is_ticked = other.is_ticked
        if not self.options or other.value in dict(self.options):
            self.value = other.value

    def is_posted(self, pressed):
        """Whether a browser sends it (a "successful" control)."""
        # HTML, "constructing the entry list": a grey control is not sent, nor one
        # without a name, and of the buttons only the one that was pressed.
        if self.is_disabled or not self.name:
            return False
        if self.kind == "submit":
            return self is pressed
        if self.kind == "checkbox":
            return self.is_ticked
        return self.kind != "select" or bool(self.options)


def inner_text(element):
    """The visible text of an element, with one line per block."""
    if not isinstance(element.tag, str):
        return ""  # a comment
    tag = element.tag.removeprefix(HTML)
    if tag in UNSEEN:
        return ""
    text = re.sub(r"\s+", " ", element.text or "")
    for child in element:
        text += inner_text(child) + re.sub(r"\s+", " ", child.tail or "")
    return text if tag in INLINE else f"\n{text}\n"


class Page:
    """One answer; `status` is its number, `body` its bytes."""

    def __init__(self, status, body):
        self.status, self.body = status, body
        self.tree = html5lib.parse(body, treebuilder="etree",
                                   transport_encoding="utf-8")
        lines = map(squeeze, inner_text(self.tree).splitlines())
        self.lines = [line for line in lines if line]
        self.title = squeeze("".join(
            e.text or "" for e in self.tree.iter(HTML + "title")))
        self.links = [(squeeze("".join(e.itertext())), e.get("href"))
                      for e in self.tree.iter(HTML + "a")]
        # The text that a user sees beside a control, by the control's id.
        labels = {e.get("for"): squeeze("".join(e.itertext()))
                  for e in self.tree.iter(HTML + "label")}
        self.controls = [self._control(e, labels) for e in self.tree.iter()
                         if e.tag in (HTML + "input", HTML + "select")]
        self.wrong = {c.name for c in self.controls if c.is_wrong}
        self.told = list(self._told())

    @staticmethod
    def _control(e, labels):
        kind, value, options = e.get("type", "text"), e.get("value", ""), []
        if kind == "password":  # a text shown as dots
            kind = "text"
        if e.tag == HTML + "select":
            kind, entries = "select", list(e.iter(HTML + "option"))
            options = [(o.get("value", ""), squeeze(o.text or ""))
                       for o in entries]
            # Without a choice, browsers show and send the first entry.
            chosen = [o for o in entries if o.get("selected") is not None]
            value = (chosen or entries)[0].get("value", "") if entries else ""
        elif kind != "hidden":
            value = re.sub("[\r\n]", "", value)  # no text field contains them
        return Control(
            e.get("name", ""), kind, value, e.get("checked") is not None,
            e.get("disabled") is not None, options,
            labels.get(e.get("id")) or e.get("aria-label", ""),
            e.get("aria-describedby", "").split(),
            e.get("aria-invalid") is not None)

    def _told(self):
        """For each message: whether it is about the whole page, the names of its
        fields, and its text."""
        for e in self.tree.iter(HTML + "p"):
            text = squeeze("".join(e.itertext()))
            if text and "error" in e.get("class", "").split():
                yield (e.get("role") in ("alert", "status") or self.status != 200,
                       [c.name for c in self.controls
                        if e.get("id") in c.error_ids], text)

    def controls_of(self, *kinds):
        return [c for c in self.controls if c.kind in kinds]

    def by_name(self, *kinds):
        """The first control of that name, which is the one that counts: a request
        takes the first of several values, too."""
        found = {}
        for control in self.controls_of(*kinds):
            found.setdefault(control.name, control)
        return found

    @property
    def fields(self):
        """The controls that a user sees and fills in, by name."""
        return self.by_name("text", "checkbox", "select")

    @property
    def hidden(self):
        return {n: c.value for n, c in self.by_name("hidden").items()}

    @property
    def form(self):
        """The form shown, with its sub-item; "" for an error page."""
        state = self.hidden
        return "/".join(state[n] for n in ("form", "subitem") if n in state)

    @property
    def errors(self):
        """The page's error messages: pairs of a field's name and the text; in place of
        the name, a column followed by "#" for all its cells, "page" for the whole
        page, "" for a text without a field."""
        return [("page" if is_page else names[0].rstrip(DIGITS) + "#"
                 if len(names) > 1 else "".join(names), text)
                for is_page, names, text in self.told]

    @property
    def shows_help(self):
        """Whether the page was made by Help: a redraw has to ask for it again."""
        return any("help" in e.get("class", "").split()
                   for e in self.tree.iter(HTML + "p"))

    def take_over(self, before):
        """Replaces the page before, which is the same form: entered values stay, and so
        do the messages of values that are still as sent."""
        # Read once more, since the controls of `before` hold the user's entries
        # by now: a message stays only beside a value that was not changed.
        drawn, old, fields = Page(200, before.body).fields, before.fields, self.fields
        same = {name for name in old.keys() & fields.keys()
                if old[name].entry() == drawn[name].entry()}
        left = before.wrong & same
        for is_page, names, text in before.told:
            if not is_page and same & set(names):
                self.told.append((False, [n for n in names if n in fields], text))
            elif is_page and (left or not before.wrong):
                # The page's message begins with the number of marked fields.
                if len(left) < len(before.wrong):
                    text = re.sub(r"^\d+", str(len(left)), text)
                self.told.append((True, names, text))
        self.wrong |= left
        for name in old.keys() & fields.keys():
            # Nobody can have entered anything into a grey one.
            if not old[name].is_disabled:
                fields[name].enter(old[name])

    def rows(self, table):
        """The numbers of the table's rows in use, which have a Delete box."""
        found = (re.fullmatch(rf"delete_{re.escape(table)}_(\d+)", name)
                 for name in self.fields)
        return [int(match[1]) for match in found if match]

    def posted(self, button=None):
        """The fields that this button posts, in the page's order.  HTML sends line
        ends as CR LF, whatever the page has."""
        return [(c.name, "True" if c.kind == "checkbox" and not c.value
                 else re.sub("\r\n?|\n", "\r\n", c.value))
                for c in self.controls if c.is_posted(button)]
