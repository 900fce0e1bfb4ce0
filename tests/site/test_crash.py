"""A crash ends in a page where that can be, and in an end in any case."""

import os
import signal
import subprocess

from conftest import ENVIRONMENT, ORV, SECONDS

SHIM = os.environ["ORV_CRASH_SHIM"]


def test_a_crash_of_any_kind_ends(site):
    site.template("f", "text x")
    request = {"REQUEST_METHOD": "GET", "QUERY_STRING": "form=f"}
    for way, end in [
        ("overflow", 1),
        ("locked", -signal.SIGALRM),
        ("twice", -signal.SIGSEGV),
    ]:
        crash = {"LD_PRELOAD": SHIM, "SHIM_CRASH": way}
        run = subprocess.run([ORV], cwd=site.folder, capture_output=True,
                             env=ENVIRONMENT | request | crash,
                             timeout=SECONDS, check=False)
        assert (run.returncode, run.stderr) == (end, b""), way
        page = run.stdout.decode()
        assert page.endswith("</body>\n</html>\n") == (way == "overflow"), way
        assert ("SegV(11): addr 0x" in page) == (way == "overflow"), way
