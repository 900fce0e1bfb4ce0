"""Tables whose rows are added, edited and deleted across requests."""

import pytest
from conftest import HTML

RULES = ["error $E$", "table rules 2", "field src 12", "label From",
         "select act", "choice allow Allow", "choice deny Deny"]
DELETED = "Table rows have been deleted. Resubmit to confirm"
# Keeps the table that the read script reads.
WRITE = 'while IFS== read -r k v; do echo "${k#new_}=$v"; done <f.write >f.vars'


@pytest.fixture
def device(site):
    def form(body, *rows):
        site.template("f", *body)
        site.form_script("f", read="cat f.vars", write=WRITE)
        (site.folder / "f.vars").write_text("\n".join(rows))
        return site

    return form


def rows(page, table=0):
    """The body rows: what each cell posts, the name of a deletion box, None
    for a cell without a control."""
    posted = dict(page.fields())
    found = page.all("table", "multicol")[table].iter(HTML + "tr")
    return [[cell(td, posted) for td in tr] for tr in found
            if tr[0].tag == HTML + "td"]


def cell(td, posted):
    for e in td.iter(HTML + "input"):
        if e.get("type") != "hidden":
            return posted.get(e.get("name"), e.get("name"))
    return next((posted[e.get("name")] for e in td.iter(HTML + "select")), None)


def test_rows_are_added_edited_and_deleted_and_what_is_shown_is_saved(device):
    site = device(RULES, "src0=a", "act0=deny", "src1=b", "src2=c", "act2=deny")
    page = site.open("f")
    a, b, c = ["a", "deny"], ["b", "allow"], ["c", "deny"]
    blank = ["", "allow", None]
    box = [f"delete_rules_{n}" for n in range(3)]
    assert rows(page) == [[*a, box[0]], [*b, box[1]], [*c, box[2]], blank]

    # Two rows go, one is added and one edited at the same time.
    page = page.press("Submit", delete_rules_0="True", delete_rules_2="True",
                      src3="d", src1="bb", act1="deny")
    assert page.errors == [DELETED]
    assert site.given("f", "check") is None
    bb, d = ["bb", "deny"], ["d", "allow"]
    assert rows(page) == [[*bb, box[0]], [*d, box[1]], blank]
    assert "DEBUG: in_row 5 out_row 3" in page.comments
    assert not [n for n, _ in page.hidden() if n.startswith("delete_")]

    # Without a Submit in between, rows go on being closed up.
    page = site.post([*page.fields(), ("src9", "far")])
    page = site.post([(n, "e" if n == "src2" else v) for n, v in page.fields()]
                     + [("delete_rules_0", "True")])
    assert rows(page) == [[*d, box[0]], ["e", "allow", box[1]], blank]
    saved = page.press("Submit")
    assert saved.title == "changes_saved"
    written = site.given("f", "write")
    assert written == site.given("f", "check")
    cells = [line for line in written if 'src' in line]
    assert sorted(cells) == ['new_src0="d"', 'new_src1="e"', 'new_src2=""',
                             'new_src3=""', 'new_src4=""', 'new_src9="far"']
    assert rows(site.open("f")) == [[*d, box[0]], ["e", "allow", box[1]], blank]


def test_faults_in_cells_are_told_below_the_table_by_column(device):
    body = ["table t 3", "field port", "label Port", "check number 1 9",
            "field name", "check word", "check_msg name One word, please",
            "checkbox on", "label On", "text After", "ftable u 1 2",
            "field must", "label Must", "check word"]
    site = device(body, "port0=1", "name0=a", "must0=x", "must1=y")
    page = site.open("f").press("Submit", port0="10", name0="b c", port1="x",
                                on0="maybe", must1="")
    assert page.texts("p") == [
        "Port: Badly formed number", "One word, please",
        "On: Checkbox must be True or False", "After",
        "Must: Empty input where parameter is required"]
    assert not [e for td in page.all("td") for e in td.iter(HTML + "p")]
    assert site.given("f", "check") is None
    assert page.press("Submit", port0="9", name0="b", port1="0x9", name1="c",
                      on0="True", must1="z").title == "changes_saved"
