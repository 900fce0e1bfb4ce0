"""How a form is drawn, and what its page posts back, including table rows."""

import re

import pytest
from conftest import HTML

# Stores the read script's output.
WRITE = 'while IFS== read -r k v; do echo "${k#new_}=$v"; done <f.write >f.vars'


@pytest.fixture
def form(site):
    """Makes the form f from its body's lines and its read script's output, both
    separated by ";"."""

    def make(body, read="", **more):
        site.template("f", *body.split(";"), **more)
        site.form_script("f", read="cat f.vars", write=WRITE)
        (site.folder / "f.vars").write_text(read.replace(";", "\n"))
        return site

    return make


RICH = """\
text Price $B$high$R$ now$L$ok $$$5;field host 8;label Host name;rlabel km/h
prompt Any $V:kind$ name;checkbox dhcp;label DHCP
select mode;label Mode;choice auto Automatic;choice man By hand
fmenu;choice net/eth0 LAN;ftable rules 2;field src 5;label From;checkbox act"""

RICH_READ = """\
host=gate;error_host=  No such host;kind=short;dhcp=on;mode=man
src0=any;u_note=hi;mtu=9;d_mtu=8;u_mtu=7;c_mtu=6"""

RICH_PAGE = """\
<main>
<!-- Line 3 --><h1>Test form</h1><p class="plain">Price <em class="plain">high</em>
 now<br class="plain">ok $5</p>
<!-- Line 4 --><form action="/cgi-bin/orv" method="post" name="f1"><table
 class="twocol"><tr><td class="formleft" valign="top"><label for="i4">Host
 name</label></td><td class="form"><input type="text" name="host" value="gate" id="i4"
 aria-invalid="true" aria-describedby="e4" autofocus="autofocus" size="8">
 km/h<br><span class="prompt">Any short name</span></td></tr><tr><td colspan="2"><p
 class="error" id="e4">No such host</p></td></tr>
<!-- Line 8 --><tr><td class="formleft" valign="top"><label
 for="i8">DHCP</label></td><td class="form"><input type="checkbox" name="dhcp"
 value="True" checked="" id="i8"></td></tr>
<!-- Line 10 --><tr><td class="formleft" valign="top"><label
 for="i10">Mode</label></td><td class="form"><input type="hidden" name="d_mode"
 value="man"><select name="mode" id="i10"><option
 value="auto">Automatic</option><option value="man" selected="">By
 hand</option></select></td></tr>
<!-- Line 14 --></table><ul class="formsmenu"><li class="formsmenu"><a
 href="/cgi-bin/orv?form=net&amp;subitem=eth0" class="formsmenu">LAN</a></li></ul>
<!-- Line 16 --><table class="multicol"><thead class="multicol"><tr
 class="multicol"><th class="multicol">From</th><th
 class="multicol">&nbsp;</th></tr></thead><tr class="multicol"><td
 class="multicol" data-label="From"><input type="text" name="src0" value="any" aria-label="From, row 1"
 size="5"></td><td class="multicol"><input type="checkbox" name="act0" value="True"
 aria-label="act, row 1"></td></tr></table>"""

RICH_HIDDEN = """\
d_mode=man d_mtu=8 c_mtu=6 o_mtu=9 u_mtu=7 u_note=hi o_src0=any o_mode=man o_dhcp=on
u_dhcp=False o_kind=short o_host=gate form=f subitem=s return=r continue=c
expert_mode=True cgi_vars_loaded=True scroll_y=12 anchor_target=a"""


def main_of(page):
    """The text of the page after its bar, without line ends between tags."""
    return re.sub("> <", "><", " ".join(page.body[page.body.index("<main>"):].split()))


def test_a_page_holds_every_element_and_hidden_field_in_its_place(form):
    page = form(RICH, RICH_READ).get(
        "form=f&subitem=s&return=r&continue=c&expert_mode=on&scroll_y=12"
        "&anchor_target=a")
    shown = main_of(page).partition('<div class="bottombar">')[0]
    assert shown == re.sub("> <", "><", " ".join(RICH_PAGE.split()))
    hidden = [f"{n}={v}".replace(" ", "_") for n, v in page.hidden()]
    assert hidden == RICH_HIDDEN.split()


def test_paragraphs_and_markup_codes_become_elements(form):
    cases = [
        ("$x$y and $ and $$", "$x$y and $ and $$"),
        ("$x$B$y", "$x<em>y</em>"),  # its end opens the next code
        ("$<$I$b", "$&lt;&nbsp;&nbsp;&nbsp;&nbsp;b"),
        ("open $B$to the end", "open <em>to the end</em>"),
        ("shut $R$twice $R$$B$again", "shut </em>twice </em><em>again</em>"),
        ("one\n\n\n\n two\n more", "one", "two more"),
        ("$V:none$\n\n one", "", "one"),
    ]
    page = form(";".join(f"text {text}" for text, *_ in cases)).open("f")
    expected = [p for _, *paragraphs in cases for p in paragraphs]
    text = main_of(page).replace(' class="plain"', "")
    assert re.findall("<p>(.*?)</p>", text) == expected


def test_the_page_heading_is_first_and_unique_or_left_out(form):
    title = "<h1>Port 7</h1>"
    cases = [
        ("table a 1;field a", [title]), ("if 0;heading X;endif", [title]),
        ("text a;heading B;heading2 C", [title, "<h1>B</h1>", "<h2>C</h2>"]),
        ("center $V:n$;field a", ['<h1 class="center">7</h1>']),
        ("text a;field b", []),  # no_header
    ]
    for body, expected in cases:
        header = ["no_header"] if not expected else []
        page = form(body, "n=7", header=header, title="Port $V:n$").open("f")
        text = re.sub("<!--.*?-->", "", main_of(page))
        assert re.findall("<h[12].*?</h[12]>", text) == expected, body
        assert text.startswith("<main>" + "".join(expected[:1])), body
        assert page.title == "Port 7"


def test_lists_show_a_choice_and_record_it_as_their_default(form):
    choices = "choice a A of $F$;choice b B"
    page = form(
        f"select x;{choices};select y;{choices};select none;iselect i;iselect j gap",
        "x=b;y=weird;i=eth1;select_i0=eth0 First $F$;d_select_gap0=dflt Dflt;"
        'select_i1=  eth1 \t Second  port;select_i2="  ";select_i4=far'
    ).open("f")
    shown = [[e.get("name")] + [("*" if "selected" in o.keys() else "")
                                + f"{o.get('value')}:{o.text}" for o in e]
             for e in page.all("select")]
    assert shown == [
        ["x", "a:A of f", "*b:B"], ["y", "a:A of f", "b:B"], ["none"],
        ["i", "eth0:First f", "*eth1:Second  port", ":None"], ["j", "dflt:Dflt"]]
    defaults = [("d_x", "b"), ("d_y", "a"), ("d_i", "eth1"), ("d_j", "dflt")]
    assert page.hidden()[:4] == defaults


def test_links_sizes_names_and_labels_are_cut_at_their_buffers(form):
    long, head = "n" * 120, "/cgi-bin/orv?form="
    lengths = (99, 100, 101)
    cells = ";".join(f"field c{n};label {n * 'l'}" for n in lengths)
    page = form(f"field a 12345;heading X;fmenu;choice {long} One;"
                f"choice f/{long} Two;imenu {long} m;table {long} 3;{cells}",
                f"o_{long}=x;select_m0=s S;c990=x").open("f")
    assert page.control("a").get("size") == "123"
    for n in lengths:
        label = page.control(f"c{n}0").get("aria-label")
        assert label == min(n, 100) * "l" + ", row 1"
    links = [e.get("href") for e in page.all("main")[0].iter(HTML + "a")]
    assert links == [(head + long)[:99], (head + f"f&subitem={long}")[:99],
                     (head + long)[:99]]
    assert page.inputs("checkbox")[0].get("name") == ("delete_" + long)[:67]
    assert page.hidden()[2] == ("o_" + long[:50], "x")


def test_links_of_menus_arrive_as_they_were_written(form):
    subitems = ["a+b", "x&delete_rules_0=True", "%41", "50%", "a=b?/c", "#1", "a+%2b"]
    site = form("imenu f m;fmenu" + "".join(
                    f";choice f/{s.replace('#', '$#$')} L" for s in subitems)
                + "".join(f";choice {n * 'n'}%/s L" for n in (78, 79, 80, 81)),
                "".join(f"select_m{k}={s.replace('/', '_')} L;"
                        for k, s in enumerate(subitems)))
    links = [e.get("href") for e in site.open("f").all("main")[0].iter(HTML + "a")]
    arrived = [dict(site.get(link.partition("?")[2]).hidden()) for link in links[:14]]
    assert [state["subitem"] for state in arrived] == [
        *(s.replace("/", "_") for s in subitems), *subitems]
    assert {state["form"] for state in arrived} == {"f"}
    assert [link[18:] for link in links[14:]] == [
        78 * "n" + "%25", 79 * "n", 80 * "n", 81 * "n"]


def test_every_control_has_a_name_of_its_own_and_its_error(form):
    page = form(
        "error $E$;fixed a;label A $V:n$;checkbox b;label B;select c;label C;"
        "choice x X;iselect i;label I;field d;rlabel D;prompt X;field e;prompt E;"
        "checkbox f;field g;label;field h;label $V:none$;table t 2;field p;label P;"
        "checkbox q;ftable u 1 2;select s;label S $US$",
        "n=7;p0=1;error_msg=M;error_a=No A;error_b= No B;error_c=No C;error_p=No P"
    ).open("f")
    alert, *rest = page.all("p", "error")
    assert (alert.get("role"), alert.text) == ("alert", "M")
    told = {e.get("id"): e.text for e in rest}
    labels = {e.get("for"): "".join(e.itertext()) for e in page.all("label")}
    # its name, its error, whether the value is known to be wrong, the focus
    expected = dict(
        a=["A 7", "No A", "true", None], b=["B", "No B", "true", "autofocus"],
        c=["C", "No C", "true", None], i=["I"], d=["D"], e=["E"], f=["f"], g=["g"],
        h=["h"], p0=["P, row 1", "No P", None, None], q0=["q, row 1"],
        delete_t_0=["Delete row 1"], p1=["P, row 2", "No P", None, None],
        s0=["S $US$, row 1"], s1=["S $US$, row 2"])
    for name, (label, *error) in expected.items():
        control = page.control(name)
        found = [told.get(control.get("aria-describedby")),
                 control.get("aria-invalid"), control.get("autofocus")]
        assert found == (error or 3 * [None]), name
        assert labels.get(control.get("id"), control.get("aria-label")) == label
    ids = [e.get("id") for e in page.tree.iter() if e.get("id") is not None]
    assert len(set(ids)) == len(ids)


def test_a_script_marks_cells_by_their_rows_or_a_whole_column(form):
    site = form("table t 2;field p;label P;check email;field q",
                "p0=a@x;p1=b@x;p2=c@x;q0=x;q1=y;q2=z")
    both = ["p1 described invalid focus", "p2 described invalid"]
    # the check script's output, messages shown, marked cells
    table = [
        ("p1=No", ["No"], both[:1]),
        ("p2=Two;p1=One", ["One"], both),
        ("p2=Two;p1=One;p=All", ["All"], both),
        ("p=All;q2=Two", ["All", "Two"],
         ["p0 described focus", "p1 described", "p2 described", "q2 described invalid"]),
        ("p77=Far", ["Far"], []),
    ]
    for said, messages, marks in table:
        site.form_script("f", read="cat f.vars", check="".join(
            f"echo error_{line};" for line in said.split(";")))
        page = site.open("f").press("Submit", q0="new")
        ids = {e.get("id"): e.text for e in page.all("p", "error")}
        assert list(ids.values()) == messages, said
        found = []
        for row in range(3):
            for name in (f"p{row}", f"q{row}"):
                cell = page.control(name)
                words = [word for word, at in (("described", "aria-describedby"),
                         ("invalid", "aria-invalid"), ("focus", "autofocus"))
                         if cell.get(at) is not None]
                assert cell.get("aria-describedby") in ids | {None: ""}
                found += [" ".join([name, *words])] * bool(words)
        assert found == marks, said
        if said == "p1=No":  # a control with every possible attribute
            assert list(page.control("p1").attrib) == [
                "type", "name", "value", "aria-label", "aria-invalid",
                "aria-describedby", "autofocus", "inputmode", "autocomplete",
                "autocapitalize", "spellcheck", "size"]


def test_a_page_with_an_unsaved_secret_is_not_stored_by_the_browser(form):
    site = form("field a_psk;fixed n;checkbox ask_pin;field host;check word;table t 2;"
                "field b_token;field c;imenu m",
                "host=x;b_token0=k;b_token1=l;n=a;a_psk=s")
    page = site.open("f")
    assert (page.control("a_psk").get("type"), page.header_lines[2]) == (
        "password", "Cache-Control: private, no-cache")
    # the changes, the button, whether browsers may store the page
    table = [
        ({"a_psk": "typed"}, "Submit", False),  # the confirmation page
        ({"a_psk": "typed", "host": "a b"}, "Submit", False),
        ({"a_psk": "typed"}, "Home", False),
        ({"b_token2": "typed"}, "Home", False),
        ({"delete_t_0": "True"}, "Submit", False),  # row 2 moves, as the user's value
        ({"a_psk": "", "host": "y"}, "Submit", True),
        ({"ask_pin": "True", "host": "a b"}, "Submit", True),
        ({"c0": "typed"}, "Home", True),
    ]
    for changes, button, stored in table:
        answer = page.press(button, **changes)
        assert answer.header_lines[2] == (
            f"Cache-Control: private, no-{'cache' if stored else 'store'}"), changes


def test_messages_and_facts_have_a_copy_for_narrow_screens(form):
    site = form("fixed fact;fixed none;table t 1;field p;label P;ftable u 1;fixed cell",
                'p0=a;p1=b;p2=c;cell0=<c>;fact=f&"')
    # the check script's output, copies of it in cells
    table = [
        ("p1=Two", ["Two"]),
        ("p2=$B$No$R$$L$$$$1$I$x;p1= ", ["No $1 x"]),
        ("p1=A;p2=B", ["A", "A"]),
        ("p=All", ["All"]),
        ("q=Else", []),
    ]
    for said, cells in table:
        site.form_script("f", read="cat f.vars", check="".join(
            f"echo 'error_{line}';" for line in said.split(";")))
        page = site.open("f").press("Submit", p0="new")
        copies = [(e.get("class"), e.get("data-text"))
                  for e in page.all("span") if e.get("data-text")]
        assert copies == [(None, 'f&"'), *[("wrong", text) for text in cells],
                          (None, "<c>")], said


def test_messages_in_cells_repeat_no_problem_and_end(form):
    long = 60_000 * "x"
    # the message, how it reads, copies in eight cells, comments on problems
    table = [
        ("Not $v:x", "Not $v:x", 8, 2),
        ("$V:p0$", long, 256 * 1024 // 60_000, 0),
    ]
    for said, message, copies, problems in table:
        site = form("table t 1;field p;check decimal;check_msg p " + said)
        page = site.open("f").press("Submit", **{f"p{row}": long for row in range(8)})
        texts = [e.text for e in page.all("p", "error") if e.get("id")]
        assert texts == [message]
        cells = [e.get("data-text") for e in page.all("span", "wrong")]
        assert cells == copies * [message]
        told = [c for c in page.comments if "Bad format" in c]
        assert len(told) == problems


def test_a_form_lists_each_name_in_its_conditions_once(form):
    # conditions, the names that the form lists
    table = [
        (["$V:mode$", "a $U:Lan$$V:wan$", "$V:MODE$"], "mode Lan wan "),
        (["$X$V:no$", "$E:a$V:no$", "$C:a$$D:a$$N:a$$O:a$", "$V:$V:no$",
          "$V:no", "$", "$V", "yes"], None),
        (["$v:a$V:b$"], "b "),
        (60 * ["$V:long_name$"] + ["$V:last$"], "long_name last "),
        ([f"$V:name{n}$" for n in range(100, 170)],  # as many as fit
         "".join(f"name{n} " for n in range(100, 162))),
    ]
    for conditions, names in table:
        body = "".join(f"if {c};endif;" for c in conditions)
        page = form("field x;" + body.rstrip(";"), "x=1").open("f")
        (drawn,) = page.all("form")
        assert drawn.get("data-conditions") == names, conditions


def rows(page):
    """The body rows: each cell's posted value, the name of a deletion box, None for
    a cell without a control."""
    posted = dict(page.fields())
    names = [[next((e.get("name") for e in td if e.get("type") != "hidden"), None)
              for td in tr] for tr in page.all("tr", "multicol")[1:]]
    return [[posted.get(name, name) for name in row] for row in names]


def test_rows_are_added_edited_and_deleted_and_what_is_shown_is_saved(form):
    site = form("error $E$;table acl 2;field src 12;select act;choice allow Allow;"
                "choice deny Deny", "src0=a;act0=deny;src1=b;src2=c;act2=deny")
    page = site.open("f")
    blank = ["", "allow", None]
    box = [f"delete_acl_{n}" for n in range(3)]
    assert rows(page) == [["a", "deny", box[0]], ["b", "allow", box[1]],
                          ["c", "deny", box[2]], blank]

    # Two rows go, one is added and one edited at the same time.
    page = page.press("Submit", delete_acl_0="True", delete_acl_2="True",
                      src3="d", src1="bb", act1="deny")
    assert rows(page) == [["bb", "deny", box[0]], ["d", "allow", box[1]], blank]
    assert not [n for n, _ in page.hidden() if n.startswith("delete_")]

    # Without a Submit in between, gaps are still closed.
    page = site.post([*page.fields(), ("src9", "far")])
    page = site.post(dict(page.fields()) | {"src2": "e", "delete_acl_0": "True"})
    left = [["d", "allow", box[0]], ["e", "allow", box[1]], blank]
    assert rows(page) == left
    page.press("Submit")
    assert sorted(line for line in site.given("f", "write") if "src" in line) == [
        'new_src0="d"', 'new_src1="e"', 'new_src2=""', 'new_src3=""',
        'new_src4=""', 'new_src9="far"']
    assert rows(site.open("f")) == left
