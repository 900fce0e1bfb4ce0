"""The version number is in one file, and every program reports it."""

import os
import pathlib
import subprocess

from test_orvctl import ORVCTL

ROOT = pathlib.Path(__file__).resolve().parents[2]


def test_every_program_reports_the_version_of_the_page(site):
    site.template("orvmenu", "text Hello")
    (generator,) = [e for e in site.get().all("meta") if e.get("name") == "generator"]
    number = generator.get("content").removeprefix("ORV ")
    assert number == (ROOT / "VERSION").read_text().strip() != ""
    built = (ORVCTL, os.environ["ORV_STORE"], os.environ["ORV_LINT"])
    scripts = ("tools/orv-test", "tools/larkspur-new", "tools/memcheck", "tools/mutate", "demo/run", "packaging/servers/start",
               "packaging/act/larkspur-acts", "packaging/brand/larkspur-brand", "packaging/boot/larkspur-language", "packaging/boot/larkspur-first-start",
               "packaging/boot/larkspur-setup")
    for program in (*built, *(ROOT / script for script in scripts)):
        name = "demo/run" if str(program).endswith("demo/run") else pathlib.Path(program).name
        done = subprocess.run([program, "--version"], cwd=site.folder, capture_output=True, text=True, check=True)
        assert (done.stdout, done.stderr) == (f"{name} {number}\n", "")
    # A server may turn a query into arguments: the result is a page all the same.
    asked = subprocess.run([os.environ["ORV"], "--version"], cwd=site.folder, capture_output=True,
                           env={"REQUEST_METHOD": "GET"}, check=True)
    assert asked.stdout.startswith(b"Status: 200 OK")
