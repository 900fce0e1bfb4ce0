"""Kills orvctl at each of its system calls that others can notice while it
undoes a save: all forms are unchanged or all are restored, the next holder of
the lock leaves no remains, and the history is consistent.
"""

import json
import os
import shutil

from conftest import site  # noqa: F401  # pylint: disable=unused-import
from test_transaction import all_of, device, dump, leftovers, run, settle, values

SHIM = os.environ["ORV_FAULT_SHIM"]


def numbers(site):
    return sorted({save["number"] for save in json.loads(run(site, "--json", "history").stdout)})


def test_a_killed_restore_has_done_nothing_or_everything(site):
    device(site)
    for value in ("old", "new"):
        dump(site, value)
        assert run(site, "apply", "dump").returncode == 0
    settle(site)
    state, kept, report = site.folder / "data/state", site.folder / "kept", site.folder / "report"
    state.rename(kept)
    for words in (["restore", "2"], ["--yes", "reset", "b"]):
        back = all_of("old") if words[0] == "restore" else all_of("new") | {"b": ("x=", "y=")}
        ends, at, killed = {True: 0, False: 0}, 0, True
        while killed:
            at += 1
            shutil.copytree(kept, state)
            report.write_bytes(bytes(16))
            done = run(site, *words, LD_PRELOAD=SHIM, FAULT=f"kill {at} 0")
            killed = done.returncode == -9
            assert killed or done.returncode == 0, (words, at, done)
            settle(site)
            found = values(site)
            assert found in (all_of("new"), back), (words, at, found)
            assert run(site, "--dry-run", "restore", "1").returncode == 0  # it holds the lock
            assert values(site) == found and not leftovers(site), (words, at)
            assert numbers(site) == [1, 2] + [3] * (found == back), (words, at)
            ends[found == back] += 1
            shutil.rmtree(state)
        assert min(ends.values()) > 1, ends  # one restored end is the run that nobody killed
