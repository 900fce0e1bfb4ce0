"""A maker's colours and pictures: updates replace the pages' style sheet, but not
the maker's own folder."""

import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BRAND = ROOT / "packaging/brand/larkspur-brand"
PICTURES = ["icon.png", "logo.svg"]


class Face:
    def __init__(self, folder, shell):
        self.folder, self.shell = folder, shell
        self.css, self.brand = folder / "www/css", folder / "brand"
        self.css.mkdir(parents=True)
        self.brand.mkdir()
        self.script = folder / "www/js/kwt_scroller.js"
        shutil.copytree(ROOT / "web/js", self.script.parent)
        self.update()

    def update(self, more=b""):
        """Replaces the files as a package does."""
        style = subprocess.run([ROOT / "web/slim", ROOT / "web/css/orv.css"], stdout=subprocess.PIPE, check=True)
        (self.css / "orv.css").write_bytes(style.stdout + more)

    def wear(self, *options):
        run = subprocess.run([*self.shell, BRAND, *options, self.folder], text=True, capture_output=True, check=False)
        return run.returncode, run.stdout + run.stderr

    def style(self):
        return (self.css / "orv.css").read_text()

    def files(self):
        return {p.name: (p.read_bytes(), p.stat().st_mtime_ns, oct(p.stat().st_mode)) for p in self.css.iterdir()}


@pytest.fixture(params=["dash", "busybox sh"])
def face(request, tmp_path):
    return Face(tmp_path, request.param.split())


def test_a_brand_survives_updates_and_is_removed_without_a_trace(face):
    shipped, before_icon = face.style(), face.script.read_text()
    shutil.copytree(ROOT / "examples/brand", face.brand, dirs_exist_ok=True)
    assert face.wear() == (0, "")
    rules = (face.brand / "brand.css").read_text()
    assert face.style() == f"{shipped.strip()}\n/* brand */\n{rules}"  # later rules win
    assert 'ICON = "/css/icon.png";' in face.script.read_text() and before_icon != face.script.read_text()
    assert all((face.css / p).read_bytes() == (face.brand / p).read_bytes() for p in PICTURES)
    before = face.files()
    assert face.wear() == (0, "") and face.files() == before  # browser caches stay valid
    face.update(b"p{top:0}")
    assert face.wear() == (0, "") and face.style() == f"{shipped.strip()}p{{top:0}}\n/* brand */\n{rules}"
    (face.brand / "logo.svg").unlink()
    (face.brand / "brand.css").write_text(":root{--bar:#000}\n")
    assert face.wear() == (0, "") and sorted(face.files()) == [".brand", "icon.png", "orv.css"]
    assert face.style().endswith("p{top:0}\n/* brand */\n:root{--bar:#000}\n")
    for without in ("--remove", "the folder"):
        if without == "the folder":
            assert face.wear() == (0, "") and "icon.png" in face.files()
            shutil.rmtree(face.brand)
        assert face.wear(*[without] * (without == "--remove")) == (0, "")
        assert face.style().strip() == f"{shipped.strip()}p{{top:0}}"
        assert list(face.files()) == ["orv.css"] and face.script.read_text() == before_icon


@pytest.mark.parametrize("name, text, told", [
    ("brand.css", "p{background:url(https://example.org/x.png)}", "only pictures beside it can be used: 1:p{"),
    ("brand.css", "\n@import 'x.css';", "only pictures beside it can be used: 2:@import"),
    ("brand.css", "p{background:url( \"data:image/png;base64,AA==\")}", "only pictures beside it"),
    ("brand.css", "p{background:url('/etc/x.svg')}", "only pictures beside it"),
    ("brand.css", "/" * 65537, "has more than 65536 bytes"),
    ("shipped.svg", "<svg/>", "www/css/shipped.svg is used already"),
])
def test_an_unusable_brand_is_refused_and_the_old_one_stays(face, name, text, told):
    (face.css / "shipped.svg").write_text("<svg>ours</svg>")
    (face.brand / "brand.css").write_text(":root{--bar:#111}\n")
    assert face.wear()[0] == 0
    before = face.files()
    (face.brand / name).write_text(text)
    status, said = face.wear()
    assert status == 1 and told in said
    assert {n: f for n, f in face.files().items() if not n.endswith(".new")} == before
    (face.css / ".brand").unlink(missing_ok=True)  # as if the power failed before it was written
    (face.brand / name).unlink()
    (face.brand / "a.svg").write_text("<svg/>")
    (face.css / "a.svg").write_text("<svg/>")
    assert face.wear() == (0, "")
    shutil.rmtree(face.css)
    assert "there is no " in face.wear()[1]


def test_the_program_is_clean():
    subprocess.run(["shellcheck", BRAND], check=True)
