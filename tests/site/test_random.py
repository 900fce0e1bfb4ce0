"""Random requests: the write script runs when it must and never else.

`Model` follows a request by the plain rules of the form below, without any of
the executable's own means, and says what becomes of it.
"""

import collections
import random
import re

REQUESTS = 2200
OUTCOMES = {"no state", "no submit", "rows deleted", "no such form",
            "no changes", "checks failed", "script refused", "saved"}
FORM = """\
error $E$;field name 20;check word;field port;check nullok number 1 100;checkbox on
select mode;choice a A;choice b B;if $V:on$;field extra;check word;endif"""
# The check script refuses one name and one port in its own ways; the write
# script keeps what it is given.
SCRIPT = r"""case $1 in
--check) echo c_stamp=7
  while IFS= read -r line; do case $line in
    'new_name="refuse"') echo error_name=No ;;
    'new_port="13"') bad=1 ;;
  esac; done; exit "${bad:-0}" ;;
--write) cat >f.write ;;
esac"""


def true(value):
    return (value or b"") not in (b"", b"0") and value.lower() not in (
        b"no", b"false", b"off")


class Model:
    """The variables of one request: {lower-case name: [name, {origin: value}]}
    in the order made."""

    def __init__(self, posted):
        self.lists = {b"": {}, b"error_": {}, b"delete_": {}}
        fields = {}
        for pair in posted:
            name, value = (text.partition(b"\0")[0] for text in pair)
            if name:
                fields.setdefault(name, value)
        self.navigation = {n: v for n, v in fields.items() if n in NAVIGATION}
        for of_user in (False, True):  # what the page was made of comes first
            for name, value in fields.items():
                if name not in NAVIGATION and of_user != bool(self.origin(name)):
                    self.store(name, value, b"v" if of_user else b"")

    @staticmethod
    def origin(name):
        return name[:1].lower() if re.match(rb"[ducoDUCO]_", name) else b""

    def store(self, name, value, origin):
        which = next(p for p in (b"error_", b"delete_", b"") if name.startswith(p))
        name = name[len(which):]
        tagged = self.origin(name)
        if tagged and origin:
            return  # a plain field must not choose an origin
        origin, name = tagged or origin or b"o", name[2 * bool(tagged):]
        name = name[2 * bool(self.origin(name)):]  # and once for the look-up
        var = self.lists[which].setdefault(name.lower(), [name, {}])[1]
        if origin != b"v":
            var[origin] = value
        elif self.best(var) != value:
            var[b"u"] = value

    @staticmethod
    def best(var):
        return next((var[o] for o in BY_RANK if o in var), None)

    def value(self, name):
        return self.best(self.lists[b""].get(name, ["", {}])[1])

    def changed(self):
        return any(b"u" in var and (
            var[b"u"] != var[b"o"] if b"o" in var
            else var[b"u"] not in (b"", var.get(b"d")))
            for _, var in self.lists[b""].values())

    def text_passes(self, name, rule, nullok=False, displayed=True):
        value = self.value(name)
        if value is None or not value.strip(b" \t"):
            return nullok or not displayed
        if re.search(rb'["$\\`\0-\x08\x0a-\x1f\x7f-\xff]', value):
            return False
        var = self.lists[b""][name][1]
        value = value.replace(b"\t", b" ").strip(b" ")
        var[next(o for o in BY_RANK if o in var)] = value
        return rule(value)

    def checks_pass(self):
        on = self.value(b"on") or b""
        return all([
            self.text_passes(b"name", WORD.fullmatch),
            self.text_passes(b"port", is_port, nullok=True),
            on.lower() in (b"", b"true", b"false", b"1", b"0"),
            self.value(b"mode") in (b"a", b"b"),
            self.text_passes(b"extra", WORD.fullmatch, displayed=true(on))])

    def script_input(self):
        return b"".join(
            b'new_%s="%s"\n' % (name, self.best(var))
            for name, var in reversed(self.lists[b""].values())
            if self.best(var) is not None)

    def outcome(self):
        nav = self.navigation
        if b"cgi_vars_loaded" not in nav or b"form" not in nav:
            return "no state"
        if nav.get(b"action") != b"Submit":
            return "no submit"
        if self.lists[b"delete_"]:
            return "rows deleted"
        if nav[b"form"] != b"f":
            return "no such form"
        if not self.changed() and not true(self.value(b"always_submit")):
            return "no changes"
        if not self.checks_pass():
            return "checks failed"
        lines = self.script_input().split(b"\n")
        self.store(b"c_stamp", b"7", b"")
        refused = {b'new_name="refuse"', b'new_port="13"'} & {*lines}
        return "script refused" if refused else "saved"


def is_port(value):
    base = 16 if value[:2].lower() == b"0x" else 10
    return NUMBER.fullmatch(value) is not None and 1 <= int(value, base) <= 100


WORD = re.compile(rb"[-\w]+")
NUMBER = re.compile(rb"\d+|0[xX][0-9a-fA-F]+")
BY_RANK = (b"u", b"c", b"o", b"d")
NAVIGATION = (b"form subitem action return continue scroll_y anchor_target "
              b"expert_mode cgi_vars_loaded").split()
VALUES = [*b"a b gate refuse 13 0x1f 101 -1 True False 1 no <b>&amp;".split(), b"",
          b" dmz\t", b"two words", b"a\r\nb", b'"$`\\', b"\xff\xfe", "é€".encode(),
          b"x" * 300, b'"\nnew_name="refuse"', bytes(range(1, 256)), b"y\0z"]
NAMES = [*b"name port on mode extra other stamp always_submit NAME error_name "
         b"error_u_x error_msg delete_rules_0 delete_ delete_d_x d_error_x u_d_other "
         b"u_u_u_x u_ v_x FORM [x]".split(), b"n" * 53, b"q" * 1000, b"", b" ",
         b"\xff\0x", b"a\nb", *NAVIGATION]
STATE = {b"name": b"gate", b"port": b"7", b"mode": b"a", b"other": b"s"}
SECTIONS = [{b"on": b"True", b"extra": b"e"}, {b"on": b"False", b"extra": b""}]
SUBMIT = [(b"form", b"f"), (b"cgi_vars_loaded", b"True"), (b"action", b"Submit")]
FIRST = [(b"name", b"refuse"), (b"port", b"13"), (b"form", b"nosuch"),
         (b"action", b"Home"), (b"action", b"Continue"), (b"action", b"submit"),
         (b"delete_rules_0", b"True"), (b"delete_rules_2", b""), (b"x", b"")]


def request(rng):
    """A page's fields, some of them changed or broken."""
    fields = [field for field in SUBMIT if rng.random() < 0.98]
    for name, value in (STATE | rng.choice(SECTIONS)).items():
        if rng.random() < 0.97:
            fields.append((b"o_" + name, value))
        new = rng.random() < 0.12
        fields.append((name, rng.choice(VALUES) if new else value))
    if rng.random() < 0.3:  # counts before a later field of its name
        fields.insert(0, rng.choice(FIRST))
    for _ in range(rng.choice([0, 0, 0, 1, 1, 2, 5])):
        name = rng.choice([b"", b"", b"d_", b"u_", b"c_", b"O_"]) + rng.choice(NAMES)
        fields.insert(rng.randrange(3, len(fields)), (name, rng.choice(VALUES)))
    if rng.random() < 0.3:
        rng.shuffle(fields)
    return fields


def test_the_write_script_runs_exactly_when_the_model_says(site):
    site.template("f", FORM.replace(";", "\n"), title="Random form")
    site.script("f.sh", SCRIPT)
    written = site.folder / "f.write"
    reached = collections.Counter()
    titles = {"saved": b"changes_saved", "no changes": b"no_changes"}
    rng = random.Random(20240229)
    for number in range(REQUESTS):
        fields = request(rng)
        model = Model(fields)
        outcome = model.outcome()
        reached[outcome] += 1
        written.unlink(missing_ok=True)
        page = site.post(fields)
        case = (number, outcome, fields)
        assert page.exit in (0, 1) and page.raw.endswith(b"</html>\n"), case
        assert written.exists() == (outcome == "saved"), case
        if outcome == "saved":
            assert written.read_bytes() == model.script_input(), case
        if page.exit == 0 and outcome not in ("no state", "no submit"):
            title = titles.get(outcome, b"Random form")
            assert b"<title>%b</title>" % title in page.raw, case
    assert set(reached) == OUTCOMES and min(reached.values()) >= 20, reached
