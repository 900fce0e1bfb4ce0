"""The comparison of bench/peers: it notices a peer that does not do what is
measured, counts what exists, and finishes with the peers that are installed."""
import json
import os
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree

import pytest

PEERS = pathlib.Path(__file__).resolve().parents[2] / "bench" / "peers"
sys.path.insert(0, str(PEERS))
import answers  # noqa: E402
import peers  # noqa: E402

ORV = os.environ["ORV"]
TREE = os.environ.get("BENCH_TREE")  # not under the sanitizers, which it disturbs
PYTHON = next(p for p in peers.PEERS if p.name == "python")


def run(*arguments):
    return subprocess.run(
        [PEERS / "run", "--no-install", "--orv", ORV, "--data", "data",
         *arguments], capture_output=True, text=True, check=True)


def test_every_installed_peer_answers_correctly():
    done = run("--check")
    titles = re.findall(r"^(.*): answers correctly$", done.stdout, re.M)
    assert {"Larkspur", "bash", "Perl", "Python"} <= set(titles)
    for peer in peers.PEERS:
        if peer.kind != "orv" and peer.title not in titles:
            assert peer.title in done.stderr.partition("left out")[2]


@pytest.mark.parametrize("text, fault, says", [
    ("esc = html.escape", "esc = str", "stands in the page as it is"),
    ("esc(value)", "esc(value, False)", "host_name shows"),
    ("        os.replace(new, STORE)",
     "        open(STORE, 'wb').write(open(new, 'rb').read())\n"
     "        os.unlink(new)", "writes over the file"),
    ("        os.replace(new, STORE)",
     "        __import__('shutil').copy(new, STORE)", "a save leaves"),
    ("return site in", "return site not in", "status 200, not 403"),
    ("return not origin or", "return True or", "status 200, not 403"),
    ("                store(values, rows)\n", "", "a save leaves []"),
    ("        if errors:\n", "        if 'contact' in errors:\n",
     "changes what is stored"),
    ("if not 1 <= port <= 65535", "if port < 1", "changes what is stored"),
    ("if other != i + 1", "if False", "changes what is stored"),
    ("{esc(error)}", "", "nothing says"),
    ("if row[\"fw_port\"] or", "if i < 8 or",
     "nothing says that the changes are saved"),
    ("rows.append(row)", "rows.insert(0, row)", "fw_proto0 shows"),
    ("more += f' aria-invalid", "f' aria-invalid", "is not marked"),
])
def test_a_faulty_peer_is_not_measured(tmp_path, monkeypatch, text, fault,
                                       says):
    source = (PEERS / "python" / PYTHON.script).read_text()
    (tmp_path / "python").mkdir()
    (tmp_path / "python" / PYTHON.script).write_text(
        source.replace(text, fault))
    assert text in source
    monkeypatch.setattr(peers, "HERE", tmp_path)
    with peers.site(PYTHON, tmp_path / "site", ORV, "data") as site:
        with pytest.raises(peers.Failure, match=re.escape(says)):
            answers.check(site)


if TREE:
    def test_programs_and_processes_are_counted(tmp_path):
        report = tmp_path / "report"
        subprocess.run([TREE, report, "/bin/sh", "-c",
                        "/bin/true; (:); exec /bin/true"], check=True)
        memory, programs, processes = map(int, report.read_text().split())
        assert (programs, processes) == (3, 3) and memory > 0

    def test_a_round_gives_a_table_and_pictures(tmp_path):
        found = tmp_path / "results.json"
        done = run("--rounds", "1", "--tree", TREE, "--json", found,
                   "--only", "bash", "perl")
        results = json.loads(found.read_text())
        ours, plain, script, bash, perl = results["peers"]
        assert ours["programs"] == {"page": 2, "save": 3, "refused": 1}
        assert ours["cpu"]["1"]["save"] < script["cpu"]["1"]["save"]
        assert bash["programs"] == {"page": 1, "save": 2, "refused": 1}
        assert bash["processes"] == bash["programs"]
        assert perl["programs"]["save"] == 1 < ours["programs"]["save"]
        assert max(plain["programs"].values()) <= 6
        assert min(ours["files"], bash["files"], ours["bytes"]["page"]) > 1000
        for peer in results["peers"]:
            assert all(c > 0 for c in peer["cpu"]["8"].values())
            assert f"| {peer['title']} | " in done.stdout
        assert "| 1.00 / 1.00 / 1.00 |" in done.stdout
        (tmp_path / "docs" / "img").mkdir(parents=True)
        readme = tmp_path / "README.md"
        readme.write_text("before\n<!-- bench/peers/run --publish -->\nold\n"
                          "<!-- to here -->\nafter\n")
        shown = subprocess.run(
            [PEERS / "run", "--show", found, "--publish", tmp_path],
            capture_output=True, text=True, check=True)
        assert shown.stdout == done.stdout
        published = readme.read_text()
        assert re.fullmatch(r"before\n<!.*\n(\|.*\n){7}<!.*\nafter\n",
                            published)
        for name in ("light", "dark"):
            svg = (tmp_path / f"docs/img/peers-{name}.svg").read_text()
            assert xml.etree.ElementTree.fromstring(svg) is not None
            assert svg.count('rx="2"') == 15
