"""How a form is drawn, and what comes back when its page is posted again."""

import pytest
from conftest import HTML

# Of an outline; what assists a user is told apart below.
SHOWN = ("checked", "colspan", "disabled", "href", "method", "name",
         "selected", "size", "type", "valign", "value")


def outline(element):
    """An element and all in it but the buttons and the hidden fields."""
    css_class = element.get("class")
    head = element.tag.removeprefix(HTML) + (f".{css_class}" if css_class else "")
    for key in sorted(set(element.keys()) & set(SHOWN)):
        head += f" {key}={element.get(key)}"
    if css_class in ("bottombar", "hidden"):
        return head
    parts = [element.text or ""]
    for e in element:
        if isinstance(e.tag, str):
            parts += [e, e.tail or ""]
        else:  # a comment
            parts[-1] += e.tail or ""
    parts = [p.strip("\n") if isinstance(p, str) else outline(p) for p in parts]
    parts = [repr(p) if i % 2 == 0 else p for i, p in enumerate(parts) if p != ""]
    return f"{head}({' '.join(parts)})" if parts else head


@pytest.fixture
def form(site):
    """Makes the form f: the lines of its body and what its read script says,
    joined by ";"."""

    def make(body, read="", header=(), title="Test form", **scripts):
        site.template("f", *body.split(";"), header=header, title=title)
        site.form_script("f", read="cat f.vars", **scripts)
        (site.folder / "f.vars").write_text(read.replace(";", "\n"))
        return site

    return make


RICH = """\
text Price $B$high$R$ now$L$ok $$$5;field host 8;label Host name;rlabel km/h
prompt Any $V:kind$ name;text Inside;fixed serial;checkbox dhcp;label DHCP
select mode;label Mode;choice auto Automatic;choice man By hand;center Menus
imenu net nets;fmenu;choice net/eth0 LAN;choice status Status
iselect port ports;label Port;ftable rules 2;field src 5;label From
select act;choice allow Allow"""

RICH_READ = """\
host=gate;error_host=  No such host;kind=short;serial=42;dhcp=on;mode=man
select_nets0=eth/lan LAN port;select_nets1=wifi Wireless
select_ports0=p0 First;src0=any;u_note=hi;mtu=9;d_mtu=8;u_mtu=7;c_mtu=6"""

RICH_PAGE = """\
main(h1('Test form') p.plain('Price ' em.plain('high') ' now' br.plain 'ok $5')
 form method=post name=f1(
 table.twocol(tbody(
  tr(td.formleft valign=top(label('Host name'))
     td.form(input name=host size=8 type=text value=gate ' km/h' br
             span.prompt('Any short name')))
  tr(td colspan=2(p.error('No such host'))) tr(td colspan=2(p.plain('Inside')))
  tr(td.formleft valign=top('\\xa0')
     td.form(input disabled=disabled name=serial size=20 type=text value=42))
  tr(td.formleft valign=top(label('DHCP'))
     td.form(input checked= name=dhcp type=checkbox value=True))
  tr(td.formleft valign=top(label('Mode'))
     td.form(input name=d_mode type=hidden value=man select name=mode(
             option value=auto('Automatic') option selected= value=man('By hand'))))))
 h1.center('Menus')
 ul(li.form(a href=/cgi-bin/orv?form=eth&subitem=lan('LAN port'))
    li.form(a href=/cgi-bin/orv?form=net&subitem=wifi('Wireless')))
 ul.formsmenu(
  li.formsmenu(a.formsmenu href=/cgi-bin/orv?form=net&subitem=eth0('LAN'))
  li.formsmenu(a.formsmenu href=/cgi-bin/orv?form=status('Status')))
 table.twocol(tbody(tr(td.formleft valign=top(label('Port'))
  td.form(input name=d_port type=hidden value=p0
          select name=port(option value=p0('First'))))))
 table.multicol(thead.multicol(tr.multicol(th.multicol('From') th.multicol('\\xa0')))
  tbody(tr.multicol(td.multicol(input name=src0 size=5 type=text value=any)
   td.multicol(input name=d_act0 type=hidden value=allow
               select name=act0(option value=allow('Allow'))))))
 div.bottombar div.hidden))"""

RICH_HIDDEN = """\
d_mode=man d_port=p0 d_act0=allow d_mtu=8 c_mtu=6 o_mtu=9 u_mtu=7 u_note=hi o_src0=any
o_select_ports0=p0_First o_select_nets1=wifi_Wireless o_select_nets0=eth/lan_LAN_port
o_mode=man o_dhcp=on u_dhcp=False o_serial=42 o_kind=short o_host=gate form=f subitem=s
return=r continue=c expert_mode=True cgi_vars_loaded=True scroll_y=12 anchor_target=a"""


def test_a_page_holds_every_element_and_hidden_field_in_its_place(form):
    site = form(RICH, RICH_READ)
    page = site.get("form=f&subitem=s&return=r&continue=c&expert_mode=on"
                    "&scroll_y=12&anchor_target=a")
    expected = " ".join(RICH_PAGE.split()).replace("( ", "(")
    assert outline(page.all("main")[0]) == expected
    assert page.all("form")[0].get("action") == "/cgi-bin/orv"
    hidden = [f"{n}={v}".replace(" ", "_") for n, v in page.hidden()]
    assert hidden == RICH_HIDDEN.split()
    lines = [3, 4, 8, 9, 10, 12, 16, 17, 18, 21, 23]
    assert page.comments == [f"Line {n}" for n in lines]
    plain = dict(site.open("f").hidden())
    assert plain["expert_mode"] == "False" and plain["scroll_y"] == "0"
    assert not {"subitem", "return", "continue", "anchor_target"} & set(plain)


def test_paragraphs_and_markup_codes_become_elements(form):
    cases = [
        ("$B$up$R$ now$L$ok $$$5", "em.plain('up') ' now' br.plain 'ok $5'"),
        ("$x$y and $ and $$", "'$x$y and $ and $$'"),
        ("$x$B$y", "'$x' em.plain('y')"),  # its end opens the next code
        ("$<$I$b", "'$<\\xa0\\xa0\\xa0\\xa0b'"),
        ("open $B$to the end", "'open ' em.plain('to the end')"),
        ("shut $R$twice $R$$B$again", "'shut twice ' em.plain('again')"),
        ("plain\n again", "'plain\\nagain'"),
        ("one\n\n\n\n two", "'one'", "'two'"),
        ("$V:none$\n\n one", "", "'one'"),
        ("one\n\n", "'one'"),
    ]
    page = form(";".join(f"text {text}" for text, *_ in cases)).open("f")
    expected = [f"p.plain({p})" if p else "p.plain"
                for _, *paragraphs in cases for p in paragraphs]
    assert [outline(p) for p in page.all("p")] == expected


def test_the_page_heading_stands_once_above_everything_or_gives_way(form):
    title = "h1('Port 7')"
    cases = [
        ("text a", [title]), ("field a", [title]), ("table a 1;field a", [title]),
        ("imenu a", [title]), ("if 0;heading X;endif", [title]),
        ("text a;heading B;heading2 C", [title, "h1('B')", "h2('C')"]),
        ("heading $V:n$;text a", ["h1('7')"]),
        ("center B;field a", ["h1.center('B')"]), ("heading2 B;text a", ["h2('B')"]),
        ("text a;field b", []),  # with no_header
    ]
    for body, expected in cases:
        header = ["no_header"] if not expected else []
        page = form(body, "n=7", header, title="Port $V:n$").open("f")
        found = [outline(e) for e in page.all("h1") + page.all("h2")]
        assert (found, page.title) == (expected, "Port 7"), body
        shown = [e for e in page.all("main")[0] if isinstance(e.tag, str)]
        assert expected[:1] in ([], [outline(shown[0])]), body


def test_lists_show_a_choice_and_record_it_as_their_default(form):
    choices = "choice a A of $F$;choice b B"
    page = form(
        f"select x;{choices};select y;{choices};select z;{choices};"
        "select none;iselect i;iselect j gap",
        "x=b;y=weird;i=eth1;select_i0=eth0 First $F$;d_select_gap0=dflt Dflt;"
        'select_i1=  eth1 \t Second  port;select_i2="  ";select_i4=far'
    ).open("f")
    shown = {e.get("name"): [(o.get("value"), o.text,
                              o.get("selected") is not None) for o in e]
             for e in page.all("select")}
    plain = [("a", "A of f", False), ("b", "B", False)]
    assert shown == {
        "x": [plain[0], ("b", "B", True)], "y": plain, "z": plain, "none": [],
        "i": [("eth0", "First f", False), ("eth1", "Second  port", True),
              ("", None, False)],
        "j": [("dflt", "Dflt", False)]}
    assert [f"{n}={v}" for n, v in page.hidden()][:5] == [
        "d_x=b", "d_y=a", "d_z=a", "d_i=eth1", "d_j=dflt"]


def test_links_sizes_and_the_names_of_boxes_are_cut_at_their_buffers(form):
    long, head = "n" * 120, "/cgi-bin/orv?form="
    page = form(f"field a 12345;heading X;fmenu;choice {long} One;"
                f"choice f/{long} Two;imenu {long} m;table {long} 1;field c",
                "select_m0=s S;c0=x").open("f")
    assert page.control("a").get("size") == "123"
    links = [e.get("href") for e in page.all("main")[0].iter(HTML + "a")]
    assert links == [(head + long)[:99], (head + f"f&subitem={long}")[:99],
                     (head + long)[:99]]
    boxes = [e.get("name") for e in page.inputs("checkbox")]
    assert boxes == [("delete_" + long)[:67]]


def test_every_control_has_a_name_of_its_own(form):
    page = form(
        "field a;label A $V:n$;checkbox b;label B;select c;label C;choice x X;"
        "iselect i;label I;field d;rlabel D;fixed e;prompt E;checkbox f;"
        "field g;label;field h;label $V:none$;table t 2;field p;label P;"
        "checkbox q;ftable u 1 2;select s;label S", "n=7;p0=1").open("f")
    labels = {e.get("for"): "".join(e.itertext()) for e in page.all("label")}
    names = [e.get("aria-label") or labels.get(e.get("id"))
             for e in page.tree.iter() if e.tag in (HTML + "input", HTML + "select")
             and e.get("type") not in ("hidden", "submit")]
    assert names == [
        "A 7", "B", "C", "I", "D", "E", "f", "g", "h", "P, row 1", "q, row 1",
        "Delete row 1", "P, row 2", "q, row 2", "S, row 1", "S, row 2"]
    ids = [e.get("id") for e in page.tree.iter() if e.get("id") is not None]
    assert len(set(ids)) == len(ids)


def test_errors_are_tied_to_their_controls(form):
    page = form("error $E$;field a;checkbox b;select c;choice x X;"
                "table t 1;field e;label E",
                "error_msg=M;error_b=B;error_c=C;error_e=E").open("f")
    alert, *rest = page.all("p", "error")
    assert (alert.get("role"), alert.text) == ("alert", "M")
    told = {e.get("id"): e.text for e in rest}
    # its error, whether the value is known to be wrong, and the cursor goes there
    for name, *expected in (("a", None, None, None), ("b", "B", "true", "autofocus"),
                            ("c", "C", "true", None), ("e0", "E", None, None)):
        attributes = page.control(name).attrib
        found = [told.get(attributes.get("aria-describedby")),
                 attributes.get("aria-invalid"), attributes.get("autofocus")]
        assert found == expected, name


def test_only_what_was_changed_is_saved_and_scripts_get_all_in_order(form):
    site = form(
        "field host;check word;checkbox dhcp;checkbox log;select mode;choice auto A;"
        "choice man M;fixed serial;field note;iselect port ports;field rate",
        "host=gate;dhcp=True;log=False;mode=man;serial=42;d_note=dflt;port=p1;"
        "select_ports0=p0 Zero;select_ports1=p1 One;rate=5;c_rate=7",
        check="echo c_sum=9; echo serial=43")
    page = site.open("f")
    assert page.press("Submit").title == "no_changes"
    assert page.press("Submit", host="bad host").title == "Test form"
    assert site.given("f", "check") is None

    saved = page.press("Submit", _untick=["dhcp"], host=" dmz ", log="True",
                       mode="auto", note="a\tb &<")
    assert saved.title == "changes_saved"
    # In the order of the variables, the one made last first.
    given = ['new_host="dmz"', 'new_dhcp="False"', 'new_log="True"',
             'new_serial="42"', 'new_note="a b &<"', 'new_select_ports0="p0 Zero"',
             'new_select_ports1="p1 One"', 'new_rate="7"', 'new_port="p1"',
             'new_mode="auto"']
    assert site.given("f", "check") == given
    given[3] = 'new_serial="43"'
    assert site.given("f", "write") == ['new_sum="9"', *given]
