"""What every button does: the next page, the values that it carries, and which
scripts run with which input."""

import pytest


def set_script(site, check="", write="", more=":"):
    site.form_script("net", f"echo host=gate; echo port=80; {more}", check, write,
                     "echo net Network")


@pytest.fixture
def device(site):
    site.template("net", "error $E$", "help Read this.", "if $X$",
                  "text For experts.", "endif", "field host", "check word",
                  "field port", header=["help_mode", "expert_mode"])
    set_script(site)
    return site


def open_net(device):
    page = device.open("net", "eth0")
    assert device.ran() == ["--read net eth0", *NET_BAR]
    return page


def state(page):
    """Form, sub-item, return and continue, and the variables, as the page
    carries them."""
    fields = dict(page.hidden())
    names = ("form", "subitem", "return", "continue")
    return ([fields.get(name) for name in names],
            {name: fields[name] for name in fields if name[1] == "_"})


URL = "/cgi-bin/orv"
AS_READ = {"o_host": "gate", "o_port": "80"}
AS_SENT = {**AS_READ, "u_host": "new"}
NET_BAR = ["--navbar net eth0"]
NET_SENT = (["net", "eth0", None, None], AS_SENT)
MENU = (["orvmenu", "eth0", None, None], {})
MENU_READ = ["--read orvmenu eth0", "--navbar orvmenu eth0"]


def assert_confirmation(page, form, *buttons):
    """The page asks only this, runs no scripts and shows the bar of net."""
    assert (page.title, page.buttons()) == (form, [*buttons])
    assert "<script" not in page.body and "onclick" not in page.body
    assert [a.get("href") for a in page.all("a")][:2] == [URL, URL + "?form=net"]


def test_views_and_unknown_buttons_show_the_form_with_the_values_sent(device):
    page = open_net(device)
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
        page = device.post(fields | ({"action": button} if button else {}))
        assert page.texts("p") == texts, button
        assert page.control("host").get("value") == "new", button
        assert dict(page.hidden())["expert_mode"] == expert, button
        assert (state(page), device.ran()) == (NET_SENT, NET_BAR), button


def test_home_without_changes_reads_the_menu_again(device):
    page = open_net(device).press("Home")
    for _ in range(2):  # from the menu itself, too
        assert (state(page), device.ran()) == (MENU, MENU_READ)
        page = device.post(page.fields() + [("action", "Home")])


def test_home_with_changes_asks_and_both_answers_are_kept(device):
    asked = open_net(device).press("Home", host="new")
    assert state(asked) == (["discard_or_return", "eth0", "net", "orvmenu"], AS_SENT)
    assert asked.comments[0] == "Changed var host, gate -> new"
    assert_confirmation(
        asked, "discard_or_return", "Discard changes", "Return to changes")
    back = asked.press("Return to changes")
    assert (state(back), device.ran()) == (NET_SENT, 2 * NET_BAR)
    menu = back.press("Home").press("Discard changes")
    assert (state(menu), device.ran()) == (MENU, NET_BAR + MENU_READ)


def test_submit_without_changes_saves_nothing_unless_the_form_insists(device):
    # the read script's additional lines, the scripts that run, the next form
    table = [
        ("echo always_submit=off", ["navbar"], "no_changes"),
        ("echo d_always_submit=yes", ["navbar", "check", "write"], "changes_saved"),
    ]
    for more, tasks, form in table:
        set_script(device, more=more)
        page = open_net(device)
        done = page.press("Submit")
        assert state(done) == ([form, "eth0", None, "orvmenu"], state(page)[1])
        assert_confirmation(done, form, "Continue")
        assert device.ran() == [f"--{task} net eth0" for task in tasks]
        assert (state(done.press("Continue")), device.ran()) == (MENU, MENU_READ)


CHECKING = "Error running configuration check script"
SAVING = "Error saving configuration"
REFUSALS = [
    # host, check script, write script, messages on the page, last script
    ("a b", "", "", ["1 errors found", "Single word is required"], "navbar"),
    ("new", "echo error_host=Taken", "", [CHECKING, "Taken"], "check"),
    ("new", "exit 3", "", [CHECKING], "check"),
    ("new", "echo error_msg=Hot", "", ["Hot"], "check"),
    ("new", "", "echo error_port=Used", [SAVING, "Used"], "write"),
    ("new", "", "exit 1", [SAVING], "write"),
]


@pytest.mark.parametrize("host, check, write, messages, last", REFUSALS)
def test_a_refused_submit_keeps_the_values_for_the_next(
        device, host, check, write, messages, last):
    set_script(device, check, write)
    page = open_net(device).press("Submit", host=host)
    assert (page.errors, page.exit, page.log) == (messages, 0, [])
    assert state(page) == (NET_SENT[0], AS_SENT | {"u_host": host})
    assert device.ran()[-1] == f"--{last} net eth0"
    set_script(device)
    assert page.press("Submit", host="ok").title == "changes_saved"


def test_a_confirmation_leads_where_the_request_says(device):
    # button, return and continue fields, place after it, variables after it
    table = [
        ("Continue", "&return=x", ["orvmenu"], {}),
        ("Continue", "&continue=net&return=x", ["net", "eth0"], AS_READ),
        ("Return to changes", "&continue=x", ["orvmenu"], {"u_x": "1"}),
        ("Return to changes", "&return=net&continue=x", ["net", "eth0"], {"u_x": "1"}),
    ]
    for button, fields, place, variables in table:
        query = f"form=no_changes&subitem=eth0&cgi_vars_loaded=1&u_x=1{fields}"
        page = device.get(f"{query}&action={button.replace(' ', '+')}")
        rest = (4 - len(place)) * [None]
        assert state(page) == (place + rest, variables), (button, fields)
        tasks = ["--navbar"] if "Return" in button else ["--read", "--navbar"]
        assert device.ran() == [" ".join([t, *place]) for t in tasks]
