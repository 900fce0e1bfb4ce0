"""Random requests: whatever is sent, only a valid Submit reaches the scripts.

Nothing here depends on how the executable stores values: a request is judged by
the first value of each name, and by the scripts' input.
"""

import collections
import random
import re

from conftest import LONG

REQUESTS = 2200 if LONG else 330
FORM = """\
error $E$;field name 20;check word;field port;check nullok number 1 100;checkbox on
select mode;choice a A;choice b B;if $V:on$;field extra;check word;endif"""
# The check script refuses one name and one port, each in a different way.
CHECK = r"""! grep -qax 'new_name="refuse"' f.check || echo error_name=No
! grep -qax 'new_port="13"' f.check"""
REFUSED = re.compile(rb'^(new_name="refuse"|new_port="13")$', re.M)
FIELD = re.compile(rb'^new_(name|port|on|mode|extra)="(.*)"$', re.M | re.I)
WORD = re.compile(rb"[-\w]+")
NUMBER = re.compile(rb"\d+|0[xX][0-9a-fA-F]+")
TRUTH = {b"true": True, b"1": True, b"false": False, b"0": False, b"": False}


def assert_submit(fields):
    """The request asks for a save, judging by the page's own fields."""
    first = {}
    for name, value in fields:
        first.setdefault(name.partition(b"\0")[0], value.partition(b"\0")[0])
    assert (first[b"form"], first[b"action"]) == (b"f", b"Submit")
    assert b"cgi_vars_loaded" in first
    # names with the prefix of an origin are dropped
    assert not [name for name in first if re.match(rb"delete_(?![duco]_)", name)]


def assert_checked(given):
    """Every value passes the form's checks."""
    values = {name.lower(): value for name, value in FIELD.findall(given)}
    assert WORD.fullmatch(values[b"name"]) and values[b"mode"] in (b"a", b"b")
    port = values.get(b"port") or b"1"
    assert NUMBER.fullmatch(port)
    assert 1 <= int(port, 16 if port[:2].lower() == b"0x" else 10) <= 100
    shown = TRUTH[values.get(b"on", b"").lower()]
    extra = values.get(b"extra", b"")
    assert WORD.fullmatch(extra) or not shown and extra == b""


NAVIGATION = (b"form subitem action return continue scroll_y anchor_target "
              b"expert_mode cgi_vars_loaded").split()
VALUES = [*b"a b gate refuse 13 0x1f 101 -1 True False 1 no <b>&amp;".split(), b"",
          b" dmz\t", b"two words", b"a\r\nb", b'"$`\\', b"\xff\xfe", "é€".encode(),
          b"x" * 300, b'"\nname="refuse"', bytes(range(1, 256)), b"y\0z"]
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


def test_only_a_submit_that_passed_all_checks_is_saved(site):
    site.template("f", FORM.replace(";", "\n"), title="Random form")
    site.form_script("f", check=CHECK)
    reached = collections.Counter()
    rng = random.Random(20240229)
    given = [site.folder / f"f.{task}" for task in ("check", "write")]
    for _ in range(REQUESTS):
        for file in given:
            file.unlink(missing_ok=True)
        fields = request(rng)
        page = site.post(fields)
        assert page.exit in (0, 1) and page.raw.endswith(b"</html>\n"), fields
        checked, written = (f.read_bytes() if f.exists() else None for f in given)
        saved = written is not None
        shown = b"<title>changes_saved</title>" in page.raw
        assert shown == saved or page.exit == 1, fields
        if checked is not None:
            assert_submit(fields)
            assert_checked(checked)
            assert saved != bool(REFUSED.search(checked)), fields
        assert not saved or written == checked, fields
        reached[checked is not None, saved] += 1
    assert len(reached) == 3 and min(reached.values()) >= REQUESTS // 110, reached


SESSIONS = 200 if LONG else 30
TABLE = """\
table rules 3 2;field name;checkbox on;select mode;choice a A;choice b B;help Help."""


def rows_of(page):
    """Each row as the user sees it, and whether it can be deleted."""
    names = {e.get("name") for e in page.inputs("checkbox")}
    posted, rows = dict(page.fields()), []
    while f"on{len(rows)}" in names:
        k = len(rows)
        rows.append([posted[f"name{k}"], f"on{k}" in posted, posted[f"mode{k}"],
                     f"delete_rules_{k}" in names])
    return rows


def edit(rng, rows):
    """Marks some rows for deletion and changes some, as a user; returns the marks."""
    marks = [k for k, row in enumerate(rows) if row[3] and rng.random() < 0.2]
    for row in rng.sample(rows, rng.randint(0, len(rows))):
        place = rng.randrange(3)
        row[place] = [rng.choice("pqr"), not row[1], rng.choice("ab")][place]
        row[3] |= place < 2
    return marks


def press(page, label, rows, marks):
    """Posts the page as it is after the edit."""
    own = re.compile(r"(name|on|mode)\d+")
    fields = [field for field in page.fields() if not own.fullmatch(field[0])]
    for k, (name, ticked, mode, _) in enumerate(rows):
        fields += [(f"name{k}", name), (f"mode{k}", mode)]
        fields += [(f"on{k}", "True")] * ticked
    fields += [(f"delete_rules_{k}", "True") for k in marks]
    return page.site.post([*fields, ("action", label)])


def saved_rows(site, count):
    """The rows in the write script's input, and the entries after them."""
    given = dict(re.findall('new_(.+)="(.*)"', "\n".join(site.given("t", "write") or [])))
    rows = [[given.get(f"name{k}", ""), given.get(f"on{k}") not in (None, "", "False"),
             given.get(f"mode{k}")] for k in range(count)]
    behind = [n for n, v in given.items()
              if v and n[:2] in ("na", "on") and int(n.strip("nameo")) >= count]
    return rows, behind


def session(site, rng):
    """One user's edits of the table; False if the page or the saved rows differ from
    what the user saw and did."""
    device = [[rng.choice("xyz"), rng.choice(["True", "False", "", None]),
               rng.choice("ab")] for _ in range(rng.randrange(5))]
    (site.folder / "device").write_text("always_submit=1\n" + "".join(
        f"name{k}={n}\nmode{k}={m}\n" + (f"on{k}={on}\n" if on is not None else "")
        for k, (n, on, m) in enumerate(device)))
    (site.folder / "t.write").unlink(missing_ok=True)
    page = site.open("t")
    rows = [[n, on == "True", m, True] for n, on, m in device]
    label, marks = "", []
    while label != "Submit" or marks:
        while sum(not used for *_, used in rows) < 2:
            rows.append(["", False, "a", False])
        if rows_of(page) != rows:
            return False
        label = rng.choice(["Help", "Submit"])
        marks = edit(rng, rows)
        page = press(page, label, rows, marks)
        rows = [row for k, row in enumerate(rows) if k not in marks]
    return saved_rows(site, len(rows)) == ([row[:3] for row in rows], [])


def test_a_table_keeps_what_its_user_saw(site):
    site.template("t", *TABLE.split(";"), header=["navbar_script /bin/true"])
    site.form_script("t", read="cat device")
    rng = random.Random(20240228)
    assert [n for n in range(SESSIONS) if not session(site, rng)] == []
