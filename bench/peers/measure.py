"""The cost of a request: time, memory, programs, files."""
import os
import pathlib
import re
import shutil
import statistics
import subprocess

import answers
from peers import HERE, Failure

KINDS = ("page", "save", "refused")
CLIENTS = (1, 8)
# Loaded by every program, or not part of a system.
COMMON = re.compile(r"/(ld-linux|libc\.so|libc-|locale|gconv)"
                    r"|^/(etc|proc|sys|dev|run)/")
FIRST = re.compile(r'(?:execve|openat)\((?:AT_FDCWD, )?"([^"]+)"')
LIBRARY = pathlib.Path(__file__).resolve().parents[2] / "lib"
OURS = ("orv", "orv-store", *(file.name for file in LIBRARY.glob("*.bash")))
WARM_UP = 2  # rounds that do not count


def times(sites, rounds, say):
    """For each (peer, kind, clients), the median seconds of a request: CPU time and
    wall-clock time.  All peers take turns, forwards and backwards, so that other
    load on the machine affects all of them equally."""
    requests = {s.peer.name: answers.measured(s) for s in sites}
    samples = {}
    for turn in range(-WARM_UP, rounds):
        say(f"round {turn + 1} of {rounds}")
        # The first request after another peer's finds the caches cold.
        first = turn % len(KINDS)
        for site in sites:
            for clients in CLIENTS:
                for kind in KINDS[first:] + KINDS[:first]:
                    turns = requests[site.peer.name][kind]
                    if clients == 1:
                        turns = [turns[turn % len(turns)]]
                    got, wall, cpu = site.batch(turns, clients)
                    for answer in got:
                        if not answers.right(kind, answer):
                            raise Failure(f"{site.peer.title}: a wrong answer"
                                          f" to {kind}:\n{answer.page[:2000]}")
                    if turn >= 0:
                        samples.setdefault(
                            (site.peer.name, kind, clients), []).append(
                                (cpu / len(got), wall / len(got)))
        sites = sites[::-1]
    return {key: tuple(map(statistics.median, zip(*pairs)))
            for key, pairs in samples.items()}


def weigh(site, tree):
    """For each kind: KiB of private memory, programs and processes started, bytes of
    the answer without its header."""
    found = {}
    report = site.folder / "report"
    for kind, requests in answers.measured(site).items():
        os.chdir(site.cgi_bin)
        answer = site.answer(requests[0], (str(tree), str(report)))
        if not answers.right(kind, answer):
            raise Failure(f"{site.peer.title}: {kind} fails when traced")
        counts = ((resident(site), 0, 0) if site.peer.kind == "fpm"
                  else map(int, report.read_text().split()))
        found[kind] = (*counts, len(answer.page))
    return found


def resident(site):
    """KiB of the server's first process and of one that serves requests."""
    def private(pid):
        text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
        return int(re.search(r"Private_Dirty:\s*(\d+)", text)[1])
    first, *workers = site.processes()
    return private(first) + max(map(private, workers))


def files(site):
    """KiB of the files that the three requests read, except libc and the form
    author's own files."""
    trace = site.folder / "trace"
    wrapper = (shutil.which("strace"), "-f", "-qq", "-s", "4096",
               "-e", "trace=execve,openat", "-o", str(trace))
    requests = [r[0] for r in answers.measured(site).values()]
    os.chdir(site.cgi_bin)
    text = ""
    if site.peer.kind == "fpm":
        site.stop()
        site.start(wrapper)
        for request in requests:
            site.answer(request)
        subprocess.run(["kill", str(site.processes()[1])], check=True)
        site.stop()
        site.start(())
        text = trace.read_text()
    else:
        for request in requests:
            site.answer(request, wrapper)
            text += trace.read_text()
    return sum(f.stat().st_size for f in opened(site, text)) // 1024


def opened(site, trace):
    names = [n[1] for n in map(FIRST.search, trace.splitlines())
             if n and "ENOENT" not in n.string]
    return {path for path in map(site.cgi_bin.joinpath, names)
            for path in (path.resolve(), interpreter(path))
            if path.is_file() and is_system(site, path)}


def interpreter(script):
    """The interpreter in its "#!" line, which a trace does not name."""
    if not script.is_file():
        return script
    with script.open("rb") as file:
        line = file.readline()
    return (pathlib.Path(line[2:].split()[0].decode()).resolve()
            if line.startswith(b"#!") else script.resolve())


def is_system(site, path):
    """Neither part of the form nor loaded by every program."""
    if site.folder in path.parents:
        return path.name in OURS
    return not COMMON.search(str(path))


def lines(peer):
    """Of the files that the form's author writes."""
    folder = HERE / (peer.folder or peer.name)
    return sum(len(f.read_text().splitlines()) for f in folder.rglob("*")
               if f.is_file() and not f.is_symlink())
