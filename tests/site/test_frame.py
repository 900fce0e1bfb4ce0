"""The frame of a page: header lines, head, bars, and what a request may say."""

import base64
import hashlib

import pytest
from conftest import HTML

URL = "/cgi-bin/orv"
TAIL = "&expert_mode=False&cgi_vars_loaded=True&scroll_y=0"


def source(text):
    """The entry of a security policy that lets this script text run."""
    digest = hashlib.sha256(text.encode()).digest()
    return f"'sha256-{base64.b64encode(digest).decode()}'"


def children(element):
    return " ".join(e.tag.removeprefix(HTML) for e in element if isinstance(e.tag, str))


def hidden(page):
    return "&".join(f"{name}={value}" for name, value in page.hidden())


def bar(page):
    """The buttons of the button bar, a disabled one behind "-"."""
    (div,) = page.all("div", "bottombar")
    for button in div:  # a disabled one keeps its handler
        assert (button.get("type"), button.get("name")) == ("submit", "action")
        assert button.get("class") == "bottombar" and button.get("onclick")
    return " ".join("-" * ("disabled" in b.keys()) + b.get("value") for b in div)


def test_the_start_page_has_every_line_and_element_in_its_place(site):
    page = site.get()
    assert (page.exit, page.stderr, page.log) == (0, "", [])
    (onclick,) = {b.get("onclick") for b in page.inputs("submit")}
    assert onclick == "saveScrollCoordinates(document.f1);"
    inline = page.texts("script")[2]
    assert inline.strip() == "window.onload = scrollToCoordinates;"
    assert page.header_lines == [
        "Status: 200 OK",
        "Content-Type: text/html; charset=utf-8",
        "Cache-Control: private, no-cache",
        "X-Content-Type-Options: nosniff",
        "Referrer-Policy: same-origin",
        "X-Frame-Options: SAMEORIGIN",
        "Content-Security-Policy: default-src 'none'; style-src 'self'; "
        "img-src 'self'; connect-src 'self'; script-src 'self' "
        f"'unsafe-hashes' {source(inline)} {source(onclick)}; "
        "form-action 'self'; frame-ancestors 'self'; base-uri 'none'",
    ]
    assert page.body.startswith("<!DOCTYPE html>")
    assert page.all("html")[0].get("lang") == "en"
    metas = {m.get("name"): m.get("content") for m in page.all("meta")}
    assert metas == {
        None: None, "viewport": "width=device-width, initial-scale=1",
        "generator": "ORV 1.1.8", "author": "Marovi Systems Limited"}
    head = children(page.all("head")[0]).replace("meta ", "")
    assert head == "title link script script script"
    assert page.all("link")[0].get("href") == "/css/orv.css"
    scripts = [s.get("src") for s in page.all("script")]
    assert scripts == ["/js/position.js", "/js/kwt_scroller.js", None]
    assert children(page.all("body")[0]) == "nav main"
    assert children(page.all("main")[0]) == "h1 ul form"
    (form,) = page.all("form")
    assert (form.get("name"), form.get("action")) == ("f1", URL)
    assert [d.get("class") for d in form] == ["bottombar", "hidden"]
    assert bar(page) == "-Home -Help -Expert -Submit"
    assert hidden(page) == "form=orvmenu" + TAIL


def test_buttons_are_disabled_by_form_flags_and_state(site):
    fatal = "echo error_fatal=1"
    helped = "&cgi_vars_loaded=True&action=Help"
    # header, bodies, read script, query, buttons
    table = [
        ("#", "text,fmenu,imenu x", "", "", "Home -Help -Expert -Submit"),
        ("#", "field x,fixed x,select x", "", "", "Home -Help -Expert Submit"),
        ("#", "iselect x,checkbox x", "", "", "Home -Help -Expert Submit"),
        ("#", "text", "", "&expert_mode=1", "Home -Help -Expert -Submit"),
        ("help_mode", "text", "", "", "Home Help -Expert -Submit"),
        ("help_mode", "text", "", helped, "Home -Help -Expert -Submit"),
        ("expert_mode", "text", "", "", "Home -Help Expert -Submit"),
        ("expert_mode", "text", "", "&expert_mode=1", "Home -Help Simple -Submit"),
        ("help_mode", "field x", fatal, "", "Home -Help -Expert Submit"),
        ("expert_mode", "field x", fatal, "", "Home -Help -Expert Submit"),
        ("expert_mode", "text", fatal, "&expert_mode=y", "Home -Help -Simple -Submit"),
        ("help_mode", "text", "echo error_msg=1", "", "Home Help -Expert -Submit"),
    ]
    for header, bodies, read, query, expected in table:
        site.form_script("f", read=read)
        for body in bodies.split(","):
            site.template("f", body, header=[header])
            page = site.get("form=f" + query)
            assert bar(page) == expected, (header, body, read, query)


def test_the_title_is_expanded_and_heads_the_page_unless_forbidden(site):
    bad = "Bad format variable subs. Unknown type"
    # title, header, page title, headings, how often the log says bad
    table = [
        ("Host $V:host$ <&>", "#", "Host gate <&>", ["Host gate <&>"], 0),
        ("", "#", "", [""], 0),
        # the walk's own tags have no value before the walk
        ("a$X$b", "#", "ab", ["aFalseb"], 0),
        ("a$v:x$b", "#", "a$v:x$b", ["a$v:x$b"], 2),
    ]
    site.form_script("f", read="echo host=gate")
    for title, header, shown, headings, bads in table:
        site.template("f", "text x", title=title, header=[header])
        page = site.open("f")
        assert (page.title, page.texts("h1")) == (shown, headings), title
        assert (page.exit, page.log) == (0, bads * ["6 " + bad]), title
        assert page.comments.count(bad) == bads, title


def test_a_request_s_fields_go_where_their_names_say(site):
    site.template("net", "field host")
    site.form_script("net", read="echo host=gate; >net.read")
    loaded = "form=net&cgi_vars_loaded=True"
    # query, the next page's hidden fields, whether the read script ran
    table = [
        ("", "form=orvmenu", False),
        ("form=net", "o_host=gate&form=net", True),
        # only a page's own state acts or is kept
        ("form=net&action=Submit&host=new", "o_host=gate&form=net", True),
        ("form=net&o_host=x&u_y=1", "o_host=gate&form=net", True),
        ("subitem=eth0", "form=orvmenu", False),
        ("form=net&subitem=eth0", "o_host=gate&form=net&subitem=eth0", True),
        ("cgi_vars_loaded=&subitem=a&u_x=1", "u_x=1&form=orvmenu", False),
        (loaded, "form=net", False),
        (loaded + "&FORM=y&Action=z", "u_Action=z&u_FORM=y&form=net", False),
        # what the page was made of counts first, wherever it stands
        (loaded + "&host=gate&o_host=gate", "o_host=gate&form=net", False),
        (loaded + "&host=gate&O_HOST=gate", "o_HOST=gate&form=net", False),
        (loaded + "&host=b&o_host=a", "o_host=a&u_host=b&form=net", False),
        (loaded + "&c_x=1&d_x=2&x=1", "d_x=2&c_x=1&form=net", False),
        (loaded + "&v_x=1&delete_t_0=1", "u_v_x=1&form=net", False),
        (loaded + "&return=a&continue=b", "form=net&return=a&continue=b", False),
    ]
    read = site.folder / "net.read"
    for query, expected, was_read in table:
        page = site.get(query)
        assert hidden(page) == expected + TAIL, query
        assert read.exists() == was_read, query
        assert (page.exit, page.log) == (0, []), query
        read.unlink(missing_ok=True)
    assert site.given("net", "check") is site.given("net", "write") is None
    assert children(page.all("form")[0]) == "table div div"
    page = site.get("form=net&anchor_target=row&scroll_y=12")
    assert hidden(page).endswith("&scroll_y=12&anchor_target=row")


def test_scripts_and_texts_know_the_device(site):
    site.template("f", "text $N:SYSTEM_TYPE$ $V:seen$")
    seen = "$SYSTEM_TYPE,${HW_VERSION-unset},${SW_VERSION-unset}"
    site.form_script("f", read=f'echo "seen={seen}"')
    # the device's file, the server's environment, what is seen
    table = [
        (None, {}, "KMX KMX,0,0"),
        ("SYSTEM_TYPE=L\nHW_VERSION 3\nSW_VERSION='1 b'\n", {}, "L L,3,1 b"),
        ("HW_VERSION=7\n", {}, "KMX KMX,7,0"),
        ("HW_VERSION=7\n", {"SYSTEM_TYPE": ""}, " ,unset,unset"),
        ("", {"SYSTEM_TYPE": "A", "SW_VERSION": "9"}, "A A,unset,9"),
    ]
    for text, environment, expected in table:
        if text is not None:
            (site.folder / "data" / "system_type").write_text(text)
        site.env = environment
        assert site.open("f").texts("p") == [expected], (text, environment)


HOME = f"Configuration={URL}"
FIVE = [f"A={n}" for n in range(5)]
NAVBARS = [
    # lines of the script, entries (with the address behind "?form=", if there
    # is one), number of lines dropped
    ("", [HOME], 0),
    ("\n \t\n a\tOne \nb  Two  A\n- Here\n", [HOME, "One=a", " Two  A=b", "Here"], 0),
    ("n/e0 If\n/t/x/y X\n", [HOME, "If=n&subitem=e0", "X=/t&subitem=x/y"], 0),
    ("--\n-- A\nb B", ["A=--", "B=b"], 0),
    ("--\n", [], 0),
    ("--\n--\na A\n", ["A=a"], 1),
    ("a A\n--\n", [HOME, "A=a"], 1),
    ("word\n-\na A\n", [HOME, "A=a"], 2),
    ("0 A\n1 A\n2 A\n3 A\n4 A\n5 A\n", [HOME] + FIVE, 0),
    ("--\n0 A\n1 A\n2 A\n3 A\n4 A\n5 A\n" + 25_000 * "6 A\n", FIVE + ["A=5"], 0),
    (f"a {29 * 'l'}\nb {30 * 'm'}\n", [HOME, 29 * "l" + "=a", 29 * "m" + "=b"], 0),
    (f"{81 * 'f'} A\n{82 * 'g'} B\n", [HOME, "A=" + 81 * "f", "B=" + 81 * "g"], 0),
    (f"{249 * ' '}a A\n", [HOME, "A=a"], 0),
    ('b"<b>&amp; <i>"&amp;\n', [HOME, '<i>"&amp;=b"<b>&amp;'], 0),
]


@pytest.mark.parametrize("lines, entries, dropped", NAVBARS)
def test_a_navigation_script_s_lines_become_links(site, lines, entries, dropped):
    site.template("f", "text x")
    site.form_script("f", navbar="exec cat bar >&2")  # errors count as output
    (site.folder / "bar").write_text(lines)
    page = site.open("f")
    (nav,) = page.all("nav")
    shown = []
    for li in nav.iter(HTML + "li"):
        href = li[0].get("href")
        address = "" if href is None else "=" + href.removeprefix(URL + "?form=")
        shown.append("".join(li.itertext()) + address)
    assert shown == entries
    assert page.comments.count("navbar: Premature end of line") == dropped
    assert (page.exit, page.log) == (0, [])
