"""After a crash the process ends, with an error page where possible."""

import os
import signal

from conftest import PRELOAD


def test_a_crash_of_any_kind_ends(site):
    site.template("f", "text x")
    site.env[PRELOAD] = os.environ["ORV_CRASH_SHIM"]
    for way, end in ("overflow", 1), ("locked", -signal.SIGALRM):
        site.env["SHIM_CRASH"] = way
        site.ends = [end]
        page = site.open("f")
        assert page.stderr == "", way
        for shown in "SegV(11): addr 0x", "</body>\n</html>\n":
            assert (shown in page.body) == (way == "overflow"), way
