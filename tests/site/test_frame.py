"""The frame of a page: header lines, head, bars, and a request's part in them."""

import base64
import hashlib
import re

import pytest
from conftest import LIMITS

URL = "/cgi-bin/orv"
TAIL = "&expert_mode=False&cgi_vars_loaded=True&scroll_y=0"


HEAD = """\
<!DOCTYPE html> <html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Menu</title><meta name="generator" content="ORV 1.1.8">
<meta name="author" content="Marovi Systems Limited">
<link rel="stylesheet" href="/css/orv.css"><script src="/js/position.js"></script>
<script src="/js/kwt_scroller.js"></script>
<script>window.onload = scrollToCoordinates; </script></head>
<body><nav class="navbar" aria-label="Navigation"><ul>
<li><a href="/cgi-bin/orv">Configuration</a></li></ul></nav><main>"""


def source(text):
    """The entry of a security policy that lets this script text run."""
    digest = base64.b64encode(hashlib.sha256(text.encode()).digest())
    return f"'sha256-{digest.decode()}'"


def hidden(page):
    return "&".join(f"{name}={value}" for name, value in page.hidden())


def bar(page):
    """The buttons of the button bar, disabled ones with a "-" in front."""
    (div,) = page.all("div", "bottombar")
    for button in div:  # a disabled one keeps its handler
        assert (button.get("name"), bool(button.get("onclick"))) == ("action", True)
    return " ".join("-" * ("disabled" in b.keys()) + b.get("value") for b in div)


def test_the_start_page_has_every_line_and_element_in_its_place(site):
    page = site.get()
    assert (page.exit, page.stderr, page.log) == (0, "", [])
    (onclick,) = {b.get("onclick") for b in page.inputs("submit")}
    assert onclick == "saveScrollCoordinates(document.f1);"
    inline = page.texts("script")[2]
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
    text = re.sub("> <", "><", " ".join(page.body.split()))
    assert text.partition("<!-- Line")[0] == " ".join(HEAD.split()).replace("> <", "><")
    assert bar(page) == "-Home -Help -Expert -Submit"
    assert hidden(page) == "form=orvmenu" + TAIL


def test_buttons_are_disabled_by_form_flags_and_state(site):
    simple = "&expert_mode=1"
    # header, body, error that the read script reports, query, buttons
    table = [
        ("#", "text", "", "", "Home -Help -Expert -Submit"),
        ("#", "field x", "", "", "Home -Help -Expert Submit"),
        ("help_mode", "text", "msg", "", "Home Help -Expert -Submit"),
        ("expert_mode", "text", "", "", "Home -Help Expert -Submit"),
        ("expert_mode", "text", "", simple, "Home -Help Simple -Submit"),
        ("expert_mode", "text", "fatal", simple, "Home -Help -Simple -Submit"),
    ]
    for header, body, error, query, expected in table:
        site.form_script("f", read=f"echo error_{error}=1")
        site.template("f", body, header=[header])
        assert bar(site.get("form=f" + query)) == expected, (header, error, query)


def test_a_request_s_fields_go_where_their_names_say(site):
    site.template("net", "field host")
    site.form_script("net", read="echo host=gate")
    loaded = "form=net&cgi_vars_loaded=True"
    # query, the next page's hidden fields
    table = [
        ("subitem=eth0", "form=orvmenu"),
        ("cgi_vars_loaded=&subitem=a&u_x=1", "u_x=1&form=orvmenu"),
        # only a page's own state takes effect or is kept
        ("form=net&action=Submit&host=new&u_y=1", "o_host=gate&form=net"),
        (loaded + "&FORM=y&Action=z", "u_Action=z&u_FORM=y&form=net"),
        # the page's own state takes precedence, wherever it is
        (loaded + "&host=b&o_host=a", "o_host=a&u_host=b&form=net"),
        (loaded + "&c_x=1&d_x=2&x=1", "d_x=2&c_x=1&form=net"),
        (loaded + "&v_x=1&delete_t_0=1", "u_v_x=1&form=net"),
    ]
    for query, expected in table:
        page = site.get(query)
        assert hidden(page) == expected + TAIL, query
        assert ("--read" in str(site.ran())) == ("loaded" not in query), query
        assert (page.exit, page.log) == (0, []), query
    assert site.given("net", "check") is site.given("net", "write") is None


def test_scripts_and_texts_get_the_device(site):
    site.template("f", "text $N:SYSTEM_TYPE$ $V:seen$")
    seen = "$SYSTEM_TYPE,${HW_VERSION-unset},${SW_VERSION-unset}"
    site.form_script("f", read=f'echo "seen={seen}"')
    assert site.open("f").texts("p") == ["KMX KMX,0,0"]
    file = site.folder / "data" / "system_type"
    file.write_text("SYSTEM_TYPE=L\nHW_VERSION 3\nSW_VERSION='1 b'\n")
    assert site.open("f").texts("p") == ["L L,3,1 b"]
    # only the server's variables exist, and PATH may be missing
    site.env = {"SYSTEM_TYPE": "", "PATH": None}
    assert site.open("f").texts("p") == [" ,unset,unset"]


HOME = f"Configuration={URL}"
ROOM = LIMITS["ORV_BAR_MAX"]
MORE = "".join(f"{n} A\n" for n in range(ROOM + 1))
NAVBARS = [
    # lines of the script, entries (with the address behind "?form=", if there
    # is one), number of lines dropped
    ("\n \t\n a\tOne \nb  Two  A\n- Here\n", [HOME, "One=a", " Two  A=b", "Here"], 0),
    ("n/e0 If\n/t/x/y X\n", [HOME, "If=n&subitem=e0", "X=/t&subitem=x/y"], 0),
    ("--\n-- A\nb B", ["A=--", "B=b"], 0),
    ("--\n--\na A\n", ["A=a"], 1),
    ("a A\n--\nword\n-\n", [HOME, "A=a"], 3),
    # more than a pipe holds, and everything read after the last entry
    ("--\n" + MORE + 16_380 * "6 A\n", [f"A={n}" for n in range(ROOM)], 0),
    (f"a {30 * 'm'}\n{82 * 'g'} B\n", [HOME, 29 * "m" + "=a", "B=" + 81 * "g"], 0),
    # lines that fit, that just fit, and that do not: the last one's end is a line
    ("".join(f"a {n * 'm'}\n" for n in range(LIMITS["ORV_LINE_MAX"] - 3, LIMITS["ORV_LINE_MAX"])),
     [HOME, *3 * [29 * "m" + "=a"]], 1),
]


@pytest.mark.parametrize("lines, entries, dropped", NAVBARS, ids=range(len(NAVBARS)))
def test_a_navigation_script_s_lines_become_links(site, lines, entries, dropped):
    site.template("f", "text x")
    site.form_script("f", navbar="exec cat bar >&2")  # errors count as output
    (site.folder / "bar").write_text(lines)
    page = site.open("f")
    shown = ["".join(a.itertext()) + f"={a.get('href', '')}".replace(
        URL + "?form=", "").removesuffix("=") for li in page.all("li") for a in li]
    assert shown == entries
    assert page.comments.count("navbar: Premature end of line") == dropped
    assert (page.exit, page.log) == (0, [])
