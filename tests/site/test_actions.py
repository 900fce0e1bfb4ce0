"""Every button's way: the page that follows, the values that it carries, and
which scripts ran with which input."""

import pytest

LOGGED = 'echo "$*" >>runs; '
CONFIRMATIONS = ("discard_or_return", "no_changes", "changes_saved")


class Device:
    """A site whose scripts keep a record of their runs."""

    def __init__(self, site):
        self.site, self.runs = site, site.folder / "runs"
        for form in ("orvmenu", *CONFIRMATIONS):
            site.form_script(form, *4 * [LOGGED])
        site.template("net", "error $E$", "help Read this.",
                      "if $X$", "text For experts.", "endif",
                      "field host", "check word", "field port",
                      header=["help_mode", "expert_mode"])
        self.scripts()

    def scripts(self, check=":", write=":", more=":"):
        read = f"{LOGGED} echo host=gate; echo port=80; {more}"
        navbar = LOGGED + "echo net Network; echo word"
        self.site.form_script("net", read, LOGGED + check, LOGGED + write, navbar)

    def open(self):
        page = self.site.open("net", "eth0")
        assert self.ran() == ["--read net eth0", "--navbar net eth0"]
        return page

    def ran(self):
        """The scripts' arguments since the last call."""
        runs = self.runs.read_text().splitlines()
        self.runs.unlink()
        return runs


@pytest.fixture
def device(site):
    return Device(site)


def values(page):
    """The variables that the page carries."""
    return {n: v for n, v in page.hidden() if n[1] == "_"}


def place(page):
    """Form, sub-item, return and continue of the page, as it carries them."""
    names = ("form", "subitem", "return", "continue")
    return [dict(page.hidden()).get(name) for name in names]


def assert_net_bar(page):
    """The page shows the navigation bar of the form net and its diagnostics."""
    assert page.comments.count("navbar: Premature end of line") == 1
    addresses = [a.get("href") for a in page.all("a")][:2]
    assert addresses == ["/cgi-bin/orv", "/cgi-bin/orv?form=net"]


AS_READ = {"o_host": "gate", "o_port": "80"}
AS_SENT = {**AS_READ, "u_host": "new"}
NET = ["net", "eth0", None, None]
NET_BAR = ["--navbar net eth0"]
MENU = ["orvmenu", "eth0", None, None]
MENU_READ = ["--read orvmenu eth0", "--navbar orvmenu eth0"]


def test_views_and_unknown_buttons_show_the_form_with_the_values_sent(device):
    page = device.open()
    # button, texts shown by it, expert mode after it
    table = [
        ("Expert", ["For experts."], "True"),
        ("Help", ["Read this.", "For experts."], "True"),
        (None, ["For experts."], "True"),  # help lasts one request
        ("Simple", [], "False"),
        ("Submit ", [], "False"),
        ("Help", ["Read this."], "False"),
    ]
    for button, texts, expert in table:
        fields = dict(page.fields()) | {"host": "new"}
        page = device.site.post(fields | ({"action": button} if button else {}))
        assert page.texts("p") == texts, button
        assert page.control("host").get("value") == "new", button
        assert dict(page.hidden())["expert_mode"] == expert, button
        assert (place(page), values(page)) == (NET, AS_SENT), button
        assert (device.ran(), page.exit, page.log) == (NET_BAR, 0, []), button


def test_home_without_changes_is_the_menu_read_afresh(device):
    page = device.open().press("Home")
    for _ in range(2):  # from the menu itself, too
        assert (place(page), values(page), device.ran()) == (MENU, {}, MENU_READ)
        page = device.site.post(page.fields() + [("action", "Home")])


def test_home_with_changes_asks_and_both_answers_are_kept(device):
    asked = device.open().press("Home", host="new")
    assert place(asked) == ["discard_or_return", "eth0", "net", "orvmenu"]
    assert values(asked) == AS_SENT
    assert asked.comments[0] == "Changed var host, gate -> new"
    assert asked.body.index("Changed var") < asked.body.index("<nav")
    assert asked.buttons() == ["Discard changes", "Return to changes"]
    assert [b.get("class") for b in asked.inputs("submit")] == 2 * ["discardbar"]
    assert len(asked.all("div", "discardbar")) == 1
    assert_net_bar(asked)
    assert device.ran() == NET_BAR

    back = asked.press("Return to changes")
    assert (place(back), values(back), device.ran()) == (NET, AS_SENT, NET_BAR)
    menu = back.press("Home").press("Discard changes")
    assert (place(menu), values(menu)) == (MENU, {})
    assert device.ran() == NET_BAR + MENU_READ


def test_home_names_the_first_changed_variable_and_no_value_ends_the_comment(device):
    for fields, expected in (
        ("u_a=1&u_b=2", ["Changed var b, (null) -> 2"]),
        ("o_a=--><b>&u_a=", ["Changed var a, - -><b> ->"]),
        ("o_a=1&u_a=1", []),
    ):
        page = device.site.get(f"form=net&cgi_vars_loaded=1&action=Home&{fields}")
        assert [c for c in page.comments if "Changed" in c] == expected, fields
        assert not page.all("b"), fields


def test_submit_without_changes_saves_nothing_unless_the_form_insists(device):
    # what the read script adds, the scripts that run, the form that follows
    table = [
        ("echo always_submit=off", ["navbar"], "no_changes"),
        ("echo d_always_submit=yes", ["navbar", "check", "write"], "changes_saved"),
    ]
    for more, tasks, form in table:
        device.scripts(more=more)
        page = device.open()
        done = page.press("Submit")
        assert place(done) == [form, "eth0", None, "orvmenu"], more
        assert (values(done), done.title) == (values(page), form), more
        assert done.buttons() == ["Continue"], more
        assert len(done.all("div", "continuebar")) == 1, more
        assert_net_bar(done)
        assert device.ran() == [f"--{task} net eth0" for task in tasks], more
        menu = done.press("Continue")
        assert (place(menu), values(menu), device.ran()) == (MENU, {}, MENU_READ), more


CHECKING = "Error running configuration check script"
SAVING = "Error saving configuration"
REFUSALS = [
    # host, check script, write script, messages on the page, last script
    ("a b", ":", ":", ["1 errors found", "Single word is required"], "navbar"),
    ("new", "echo error_host=Taken", ":", [CHECKING, "Taken"], "check"),
    ("new", "exit 3", ":", [CHECKING], "check"),
    ("new", "echo error_msg=Hot", ":", ["Hot"], "check"),
    ("new", ":", "echo error_port=Used", [SAVING, "Used"], "write"),
    ("new", ":", "echo error_fatal=x; exit 1", [SAVING], "write"),
]


@pytest.mark.parametrize("host, check, write, messages, last", REFUSALS)
def test_a_refused_submit_keeps_the_values_for_the_next(
        device, host, check, write, messages, last):
    device.scripts(check, write)
    page = device.open().press("Submit", host=host)
    assert page.errors == messages
    assert (place(page), values(page)) == (NET, {**AS_SENT, "u_host": host})
    tasks = "navbar check write".partition(last)
    runs = [f"--{task} net eth0" for task in (tasks[0] + last).split()]
    assert (device.ran(), page.exit, page.log) == (runs, 0, [])
    assert ("Help" in page.buttons()) == ("fatal" not in write)
    device.scripts()
    assert place(page.press("Submit", host="ok"))[0] == "changes_saved"


def test_the_way_out_of_a_confirmation_is_what_the_request_says(device):
    start = ["orvmenu", None, None, None]
    # button, return and continue fields, place after it, whether it is read
    table = [
        ("Continue", "", start, True),
        ("Continue", "&return=x", start, True),
        ("Continue", "&continue=net&return=x", NET, True),
        ("Discard changes", "&continue=net", NET, True),
        ("Return to changes", "&continue=x", start, False),
        ("Return to changes", "&return=net&continue=x", NET, False),
    ]
    for button, fields, after, read in table:
        query = f"form=no_changes&subitem=eth0&cgi_vars_loaded=1&u_x=1{fields}"
        page = device.site.get(f"{query}&action={button.replace(' ', '+')}")
        assert place(page) == after, (button, fields)
        fresh = AS_READ if after == NET else {}
        assert values(page) == (fresh if read else {"u_x": "1"}), (button, fields)
        words = " ".join(word for word in after if word)
        runs = [f"--read {words}"] * read + [f"--navbar {words}"]
        assert device.ran() == runs, (button, fields)


def test_confirmations_run_no_scripts_in_the_browser(device):
    changed = device.open().press("Home", host="new")
    saved = changed.press("Return to changes").press("Submit")
    same = device.site.open("net").press("Submit")
    for page, form in zip((changed, same, saved), CONFIRMATIONS):
        assert page.title == form
        assert "<script" not in page.body and "onclick" not in page.body
    # opened by a link they are forms like any other
    plain = device.site.open("no_changes")
    assert len(plain.all("script")) == 3 and plain.all("div", "bottombar")
