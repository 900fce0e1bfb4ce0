"""Charts of the CPU time of a page, a save and a refused save."""
from xml.sax.saxutils import escape

KINDS = {"page": "a page", "save": "a save", "refused": "a refused save"}
# Background, text, muted text, our bars, the others' bars.
COLOURS = {"light": ("#ffffff", "#1f2328", "#59636e", "#1a7f37", "#9aa4b0"),
           "dark": ("#0d1117", "#e6edf3", "#9198a1", "#3fb950", "#59636e")}
NAMES, COLUMN, GAP = 150, 200, 24  # widths
LINE, BAR, TOP = 26, 14, 62        # heights
NUMBER = 40                        # kept free for the longest bar's number


def text(x, y, words, colour, size=13, weight="normal"):
    return (f'<text x="{x:.0f}" y="{y:.0f}" fill="{colour}" font-size="{size}"'
            f' font-weight="{weight}">{escape(words)}</text>\n')


def bars(peer, y, longest, colours):
    _, ink, quiet, ours, theirs = colours
    is_ours = peer["name"].startswith("larkspur")
    weight = "bold" if is_ours else "normal"
    out = text(0, y + BAR - 2, peer["title"], ink, weight=weight)
    for column, kind in enumerate(KINDS):
        value = peer["cpu"]["1"][kind]
        width = max(1, value / longest * (COLUMN - NUMBER))
        x = NAMES + column * (COLUMN + GAP)
        out += (f'<rect x="{x}" y="{y}" width="{width:.1f}" height="{BAR}"'
                f' rx="2" fill="{ours if is_ours else theirs}"/>\n')
        out += text(x + width + 5, y + BAR - 3, f"{value:.1f}", quiet, 12,
                    weight)
    return out


def draw(results, colours):
    background, ink, quiet, _, _ = colours
    peers = results["peers"]
    longest = max(v for p in peers for v in p["cpu"]["1"].values())
    width = NAMES + 3 * COLUMN + 2 * GAP
    height = TOP + len(peers) * LINE
    out = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}"'
           f' height="{height}" viewBox="0 0 {width} {height}" role="img"'
           ' font-family="system-ui, sans-serif">\n'
           "<title>Processor time of one request</title>\n"
           f'<rect width="{width}" height="{height}" fill="{background}"/>\n')
    out += text(0, 18, "Processor time of one request, ms", ink, 15, "bold")
    for column, words in enumerate(KINDS.values()):
        out += text(NAMES + column * (COLUMN + GAP), TOP - 14, words, quiet)
    for line, peer in enumerate(peers):
        out += bars(peer, TOP + line * LINE, longest, colours)
    return out + "</svg>\n"


def pictures(results, folder):
    """Writes peers-light.svg and peers-dark.svg."""
    for name, colours in COLOURS.items():
        (folder / f"peers-{name}.svg").write_text(draw(results, colours))
