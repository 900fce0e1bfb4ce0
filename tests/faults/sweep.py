"""Makes every call that can fail do so once in typical requests.

Each request is repeated with the first, second, ... call of a kind failing
(only that one, or it and all later ones) until a run meets no fault.  Every run
must end by itself, with a complete page or a clean error, and only a write
script that got all the values which passed every check may change the device.

    ORV=... ORV_SYSLOG_SHIM=fault_shim.so sweep.py [STRIDE [KIND...]]

With a stride of N it tries only every Nth allocation, since these are most of
the calls.
"""

import collections
import concurrent.futures
import functools
import itertools
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import urllib.parse

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "site"))
import conftest  # noqa: E402

STRIDE = int(sys.argv[1]) if len(sys.argv) > 1 else 1
KINDS = sys.argv[2:] or (
    "memory stream fork pipe open read write close poll wait".split())
CGI_ERRORS = (4, 6)  # a body that ended early, no memory
ENOUGH = 20  # stop a job after so many bad ends

# --- the device ---------------------------------------------------------------

READ = r"""printf '%s\n' host=gate mask=24 on=1 mode=b 'list=x 1' fast=1 \
  select_list0='x One' select_list1='y Two' \
  addr0=10.0.0.1 port0=80 addr1=10.0.0.2 port1=81"""
NAVBAR = "echo net Network; echo sub/item Item; echo - here"
# The only fault of a request can be in the last field, which is beyond the
# first read of the template.
NET = [
    "help Help.", "error $E$", "field host 20", "label Host", "check word",
    "checkbox on", "label On", "select mode", "choice a First",
    "choice b Second", "iselect list list", "if $V:fast$", "field speed",
    "check nullok regex [0-9]+", "endif", "table hosts 2 2", "field addr",
    "label Address", "check ipaddr ipv4", "field port",
    "check nullok ipservice", *["# " + "-" * 70] * 120, "field mask",
    "check decimal 0 32", "prompt Up to 32",
]
MENU = ["text On $V:host$.", "fmenu", "choice net Network", "imenu net list"]


def make_device(folder):
    site = conftest.Site(folder)
    site.env = {"ORV_POLICY": "strict", "HTTP_HOST": "gw",
                "HTTP_ORIGIN": "http://gw"}
    (site.folder / "data" / "system_type").write_text("SYSTEM_TYPE=T\n")
    site.template("orvmenu", *MENU, title="Menu")
    site.template("net", *NET, title="Network of $V:host$",
                  header=["help_mode", "expert_mode"])
    for form in ("broken", "changes_saved"):
        site.template(form, f"text This is {form}.", title=form)
    site.form_script("orvmenu", READ, navbar=NAVBAR)
    site.form_script("net", READ, "echo c_sum=3; : >net.passed", navbar=NAVBAR)
    site.form_script("broken", "echo no value")
    return site


REQUESTS = {  # the query, or what a user changes on the form's page
    "menu": "",
    "form": "form=net&subitem=eth0",
    "error page": "form=broken",
    "save": {"host": "other", "addr1": "10.1.1.1"},
    "errors": {"host": "other", "mask": "33"},
    "deletion": {"host": "other", "delete_hosts_0": "True"},
}


def make_request(site, request):
    """The function that sends the request."""
    if isinstance(request, str):
        return functools.partial(site.get, request)
    fields = dict(site.open("net", subitem="eth0").fields())
    body = urllib.parse.urlencode(fields | request | {"action": "Submit"})
    return functools.partial(site.post, body.encode())


# --- one run ------------------------------------------------------------------


def run(site, send, *fault):
    """The result of one request with one fault."""
    for task in ("check", "passed", "write"):
        (site.folder / f"net.{task}").unlink(missing_ok=True)
    report = site.folder / "report"
    report.write_bytes(bytes(struct.calcsize("4i")))
    page = send(FAULT="{} {} {:d}".format(*fault))
    page.faults, page.lost_output, *_ = struct.unpack("4i", report.read_bytes())
    for task in ("check", "passed", "write"):
        setattr(page, task, site.given("net", task))
    return page


def judge(page, clean):
    """How the run ended; an assertion fails if it ended badly."""
    if page.write is not None:
        assert page.passed is not None, "saved before the check was over"
        assert page.check == clean.check, "saved what was checked in part"
        assert page.write == clean.write, "saved a part"
    if page.exit in CGI_ERRORS:
        acted = page.raw != b"" or page.check is not None
        assert not acted, "cgiInit failed, but acted"
        return "cgiInit error"
    assert page.stderr == "", page.stderr
    assert page.exit in (0, 1)
    if page.lost_output > 0:
        return "output lost"
    assert page.raw.endswith(b"</body>\n</html>\n"), "the page ends early"
    assert page.raw.count(b"<html") == 1, "the page begins again"
    assert (page.exit == 0) == (page.status == "200 OK"), page.status
    if page.raw == clean.raw:
        assert page.write == clean.write, "nothing was saved"
        return "same page"
    if page.exit == 1:
        return "error page"
    hidden = dict(page.hidden())
    form = dict(clean.hidden()).get("form")
    if "cgi_vars_loaded" in hidden and hidden.get("form") == form:
        # The variables that the next request will carry.
        state, whole = ([pair for pair in one.hidden()
                         if pair[0][:2] in ("o_", "c_", "u_")]
                        for one in (page, clean))
        assert state == whole, "a page with a part of its state"
        posts = set(page.fields()) - set(clean.fields())
        assert not posts, f"a page that posts {posts}"
    return "other page"


def sweep(job):
    """All faults of one kind in one request: how each ended."""
    name, kind, onward = job
    ends = collections.Counter()
    bad = []
    with tempfile.TemporaryDirectory() as folder:
        site = make_device(folder)
        send = make_request(site, REQUESTS[name])
        clean = run(site, send, kind, 0, False)
        number = 1
        while len(bad) < ENOUGH:
            try:
                page = run(site, send, kind, number, onward)
                end = judge(page, clean)
                if page.faults == 0 and end == "same page":
                    break
                assert page.faults > 0, f"no fault, but {end}"
            except (AssertionError, subprocess.TimeoutExpired) as fault:
                end = "badly"
                at = f"{name}, {kind} {number}{' and on' if onward else ''}"
                bad.append(f"{at}: {fault}")
            ends[end] += 1
            number += STRIDE if kind == "memory" else 1
    return kind, ends, bad


def main():
    table = {kind: collections.Counter() for kind in KINDS}
    failed = []
    jobs = itertools.product(REQUESTS, KINDS, (False, True))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for kind, ends, bad in pool.map(sweep, jobs):
            table[kind] += ends
            failed += bad
    for kind, ends in table.items():
        print(f"{kind:8}{ends.total():6} faults: {dict(ends)}")
    print(*failed, f"{len(failed)} ended badly", sep="\n")
    return 1 if failed or not all(table.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
