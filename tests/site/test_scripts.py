"""What scripts say, are given and leave behind, seen from a page."""

import itertools
import re
import signal


def stored(page):
    """The variables of a page as `name=value`, in the order stored."""
    state = page.hidden()[: [n for n, _ in page.hidden()].index("form")]
    return [f"{n}={v}" for n, v in reversed(state)]


def test_all_that_a_script_says_reaches_the_page(site):
    site.template("f", "field x", "table t 1", "field a")
    site.form_script("f", read="echo x=1; echo a0=2 >&2; echo a1=3; "
                     "echo delete_t_0=1; echo error_x=Bad; echo c_x=4")
    page = site.open("f")
    assert (page.control("x").get("value"), page.errors) == ("4", ["Bad"])
    assert page.control("a0").get("value") == "3"  # the first row is gone
    assert sorted(stored(page)) == ["c_x=4", "o_a0=2", "o_a1=3", "o_x=1",
                                    "u_a0=3", "u_a1=", "u_a2="]

    # A filter in the background still talks when the script has ended.
    for filter in ["cat"] * 4 + ["sleep 0.1; cat"]:
        site.form_script("f", read=f"exec > >({filter}); "
                                   "for i in {1..3000}; do echo v$i=$i; done")
        spoken = [f"o_v{i}={i}" for i in range(1, 3001)]
        assert stored(site.open("f"))[:3000] == spoken


def test_a_script_starts_with_clean_descriptors_and_signals(site):
    site.template("f", "text a")
    site.form_script(
        "f", read="echo in=$(readlink /proc/self/fd/0); "
        "set -- $(ls /proc/self/fd); echo fds=$*; "
        "[[ /proc/$$/fd/1 -ef /proc/$$/fd/2 ]]; echo same=$?; "
        "while read -r k v; do [[ $k == SigIgn: ]] && echo ignored=$v; done "
        "</proc/$BASHPID/status; :")
    *found, ignored = stored(site.open("f"))
    assert found == ["o_in=/dev/null", "o_fds=0 1 2 3", "o_same=0"]
    pipe = 1 << signal.SIGPIPE - 1
    assert not int(ignored.removeprefix("o_ignored="), 16) & pipe


VALUES = ["plain", "-n", "a'b $(touch pwned)", "a\n`touch pwned`\n\"\t;touch pwned;",
          "|&<>(){}[]*?~!#^", "\\'\"$x", "'; touch pwned; 'é€"]


def test_a_value_reaches_a_script_as_one_argument_or_not_at_all(site):
    site.script("args.sh", 'printf "%s\\0" "$@" >args')
    for value, place, tag in itertools.product(VALUES, ["x@", "a'b @'\"@\""], "SFT"):
        form, subitem = (value, "s") if tag == "F" else ("f", value)
        inserted = f"Item {value}" if tag == "T" else value
        script = f"args.sh {place.replace('@', f'${tag}$')} end"
        site.template("f", "text a", header=[f"read_script {script}"],
                      title="Item $S$" if tag == "T" else "Item")
        (site.templates / "f.tpl").rename(site.templates / f"{form}.tpl")
        page = site.open(form, subitem)
        assert page.exit == 0, (page.errors, value, place)
        argument = re.sub("['\"]", "", place).replace("@", inserted)
        given = (site.folder / "args").read_bytes().decode()
        assert given == f"{argument}\0end\0", place

    line = "args.sh $(echo $S$)"
    message = f'Cannot quote a value in script command "{line}"'
    site.template("f", "text a", header=[f"read_script {line}"])
    assert site.open("f", "a;touch pwned").errors == [message]
    assert message not in site.open("f", "plain").errors
    assert not (site.folder / "pwned").exists()
