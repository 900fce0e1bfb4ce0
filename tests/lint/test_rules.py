"""Every rule's own examples: the bad one is reported at its marked lines and no
others, the good one is not reported."""
import json
import os
import pathlib
import re
import subprocess

import pytest

LINT = os.environ["ORV_LINT"]
EVERY = 1 if "LARKSPUR_LONG" in os.environ else int(os.environ.get("EVERY", 1))
ROOT = pathlib.Path(__file__).resolve().parents[2]
RULES = {p.stem: p.read_text() for p in sorted((ROOT / "tools/lint/rules").glob("*.txt"))}
HEADER = "title T\nread_script port.sh --read\nnavbar_script navbar.sh\nbody\nerror $E$\n"
BASE = {f"templates/{name}.tpl": f"title T\nread_script empty.sh\nnavbar_script navbar.sh\nbody\n{more}"
        for name, more in [("orvmenu", "fmenu\nchoice port Port\n"), ("no_changes", "text A\n"),
                           ("changes_saved", "text A\n"), ("discard_or_return", "text A\n")]}
BASE |= {"templates/port.tpl": HEADER + "text A\n", "scripts/empty.sh": "#!/bin/bash\n",
         "scripts/port.sh": "#!/bin/bash\n", "scripts/navbar.sh": "#!/bin/bash\n"}


def examples(text, kind):
    """The files of a rule's bad or good example: name, lines, marked lines."""
    for block in text.split("\n\n"):
        lines = block.rstrip("\n").split("\n")
        starts = [i for i, line in enumerate(lines) if line.startswith(("bad ", "good "))]
        for start, end in zip(starts, starts[1:] + [len(lines)]):
            if lines[start].startswith(kind):
                body = lines[start + 1:end]
                yield lines[start].split(" ", 1)[1], [line[2:] for line in body], {
                    i for i, line in enumerate(body, 1) if line.startswith("> ")}


def spelled(line):
    """Replaces an example's codes for invisible characters."""
    line = re.sub(r"\{(\d{2,})\}", lambda m: "x" * int(m[1]), line)
    return line.replace("\\r", "\r").replace("\\0", "\0").replace("\\b", "\ufeff").replace("\\xdf", "\udcdf")


def lay_out(tmp_path, files):
    for name, text in files.items():
        path = tmp_path / name
        path.parent.mkdir(parents=True, exist_ok=True)
        link = re.search(r"\(link to (.*)\)", text or "")
        if link:
            path.symlink_to(link[1])
        elif text is not None:
            path.write_bytes(text.encode(errors="surrogateescape"))
            path.chmod(0o644 if "(not executable)" in text else 0o755)


def lint(folder, *options):
    other = [folder / "other"] if (folder / "other").exists() else []
    run = subprocess.run([LINT, "--format=json", *options, folder, *other], capture_output=True, text=True)
    found = json.loads(run.stdout)
    assert run.returncode == (1 if found else 0), run.stderr
    return [(os.path.relpath(f["file"], folder), f["line"], f["rule"]) for f in found]


@pytest.mark.parametrize("kind, rule", [(k, r) for k in ("bad", "good") for r in RULES][::EVERY])
def test_an_example_is_reported_exactly(kind, rule, tmp_path):
    files, expected = dict(BASE), set()
    found_any = False
    for name, lines, marked in examples(RULES[rule], kind):
        found_any = True
        text = "\n".join(map(spelled, lines)) + "\n"
        wrapped = ""
        if text == "(absent)\n":
            text = None
        elif name.endswith(".tpl") and not text.startswith("title"):
            wrapped = HEADER
        elif name.endswith(".sh"):
            wrapped = "" if "#!" in text else "#!/bin/bash\n"
        files[name] = None if text is None else (wrapped + text).replace("\\c\n", "")
        in_script = rule.startswith("run-") and name.endswith(".sh")
        first = wrapped.count("\n")
        expected |= {(name, 1 if in_script or rule in ("script-mode", "no-file") else first + i, rule) for i in marked}
    assert found_any
    if any(name.startswith("other/") for name in files):
        files = {f"other/{name}": text for name, text in BASE.items()} | files
    lay_out(tmp_path, files)
    run = ["--run"] if rule.startswith("run-") else []
    told = lint(tmp_path, *run, *([] if rule == "shellcheck" else ["--no-shellcheck"]))
    assert {f for f in told if f[2] == rule} == expected, told
