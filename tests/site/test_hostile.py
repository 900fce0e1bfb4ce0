"""No text breaks out of its place: whatever a template, a script or a request
contains, a page has the same elements and attributes as with plain words, every
text survives a parser unchanged, and a script gets it as one argument."""

import itertools
import re
import urllib.parse

# At most 29 bytes, the limit of a bar's labels; "#" would begin a template's
# comment, and a second "$" may end a code.
HOSTILE = [
    b"!\"%&'()*+,-./:;<=>?@", b"[\\]^_`{|}~", b"</title></textarea></form>", b"$",
    b"\"><img/src='x'/onerror=\"x", b"'><b/c='", b"--><!-->", b"--!><script>",
    b"->-", b"<![CDATA[]]>-", b"<?x?><!x>&lt;&quot&amp;lt", b"\r<\r\r",
    b"\x01\x08\x0b\x0c\x0e\x1b\x1f\x7f<\x7f", b"\xff\xfe<\xc3\xe2\x82<\x80",
    "é€😀\u2028\u202e".encode()]
# A word between "@" is a placeholder.
TEMPLATE = b"""\
title @title@
help_mode
navbar_script bar.sh
body
error @error@
error $E$
center @center@
heading2 @heading@
text @text@
 @more@
help @help@
field n@field@
label @label@
rlabel @rlabel@
prompt @prompt@
fixed value
select s@select@
choice @choice@ @chosen@
checkbox b@checkbox@
iselect i@iselect@ list
imenu m list
imenu m@imenu@ menu
fmenu
choice f/@link@ @linked@
table t@table@ 2
field c@cell@
label @column@
field k
select d@cells@
choice @cellchoice@ @cellchosen@
"""
STATE = {
    "form": "f", "cgi_vars_loaded": "1", "o_value": "@value@",
    "c@cell@0": "@typed@", "o_k0": "@told@", "d_i@iselect@": "@default@",
    "error_msg": "@message@", "error_value": "@failure@",
    "error_n@field@": "@fault@", "o_select_list0": "f/@target@ @entry@",
    "o_select_menu0": "x @item@", "o_other": "@other@", "u_other": "@changed@",
    "u_h@hidden@": "1", "subitem": "@subitem@", "return": "@return@",
    "continue": "@continue@", "scroll_y": "@scroll@", "anchor_target": "@anchor@"}
NAVBAR = b"g/@barlink@ @barlabel@\n- @barhere@\n"
PLACES = set(re.findall(r"@(\w+)@", f"{TEMPLATE} {STATE} {NAVBAR} @gone@"))


def pages(site, text_of):
    """A form with help, a form left with changes, and an error page, with the
    text of each place in it."""

    def fill(text):
        return re.sub(rb"@(\w+)@", lambda place: text_of(place[1]), text)

    def post(**more):
        return site.post([tuple(fill(part.encode()) for part in pair)
                          for pair in (STATE | more).items()])

    (site.templates / "f.tpl").write_bytes(fill(TEMPLATE))
    (site.folder / "bar").write_bytes(fill(NAVBAR))
    site.script("bar.sh", "cat bar")
    return [post(action="Help"), post(action="Home"), post(form="g@gone@")]


def structure(page):
    """The parsed page: elements, comments and attributes."""
    return [(e.tag, sorted(e.keys())) for e in page.tree.iter()]


def texts(page, change=lambda text: text):
    """Every text and attribute value.  Comments have their dashes separated, and a
    parser turns every CR into a line end, except in attributes."""
    found = []
    for e in page.tree.iter():
        own = change(e.text or "")
        if not isinstance(e.tag, str):
            own = re.sub("-(?=-)", "- ", own)
        found += [own, change(e.tail or ""),
                  *(change(urllib.parse.unquote(value) if name == "href" else value)
                    for name, value in e.attrib.items())]
    return [re.sub("\r\n?", "\n", text) for text in found]


def test_hostile_text_stays_in_its_place_on_every_page(site):
    plain = pages(site, lambda place: b"Q" + place + b"Q")
    assert [p.exit for p in plain] == [0, 0, 1]
    assert PLACES == set(re.findall("Q([a-z]+)Q", "".join(p.body for p in plain)))
    for s in HOSTILE:
        word = s.decode("utf-8", "replace")
        for page, pattern in zip(pages(site, lambda _: s), plain):
            assert structure(page) == structure(pattern), s
            if s != b"$":  # a column label that contains one is used for no cell
                assert texts(page) == texts(pattern, lambda text: re.sub(
                    "Q[a-z]+Q", lambda _: word, text)), s


def test_markup_in_values_changes_nothing_but_its_paragraph(site):
    site.template("f", "text a $V:x$", "text b $V:x$", "field x", "error c $V:x$")

    def around(page):
        inside = {e for p in page.all("p") for e in p.iter()}
        return [e.tag for e in page.tree.iter() if e not in inside]

    plain = site.get("form=f&cgi_vars_loaded=1&x=w")
    for value in ("$B$", "$R$$R$</p>", "$L$$L$$I$", "a\n\n\nb", "\n\n", "$",
                  "$B$\n\n$R$", "$B$$B$<b>\r\n\r\n$V:x$$E$"):
        page = site.open("f", cgi_vars_loaded=1, x=value)
        assert around(page) == around(plain), value
        assert page.control("x").get("value") == value


VALUES = ["plain", "-n", "a'b $(touch pwned)", "a\n`touch pwned`\n\"\t;touch pwned;",
          "|&<>(){}[]*?~!#^", "\\'\"$x", "'; touch pwned; 'é€"]


def test_a_value_reaches_a_script_as_one_argument_or_not_at_all(site):
    site.script("args.sh", 'printf "%s\\0" "$@" >args')
    for value, place, tag in itertools.product(VALUES, ["x@", "a'b @'\"@\""], "SFT"):
        form, subitem = (value, "s") if tag == "F" else ("f", value)
        script = f"args.sh {place.replace('@', f'${tag}$')} end"
        site.template("f", "text a", header=[f"read_script {script}"], title="Item $S$")
        (site.templates / "f.tpl").rename(site.templates / f"{form}.tpl")
        assert site.open(form, subitem).exit == 0, (value, place)
        inserted = f"Item {value}" if tag == "T" else value
        argument = re.sub("['\"]", "", place).replace("@", inserted)
        given = (site.folder / "args").read_bytes().decode()
        assert given == f"{argument}\0end\0", place

    line = "args.sh $(echo $S$)"
    message = f'Cannot quote a value in script command "{line}"'
    site.template("f", "text a", header=[f"read_script {line}"])
    assert site.open("f", "a;touch pwned").errors == [message]
    assert message not in site.open("f", "plain").errors
    assert not (site.folder / "pwned").exists()
