"""The results as Markdown tables."""
KINDS = ("page", "save", "refused")


def three(function):
    return " / ".join(function(kind) for kind in KINDS)


def ratio(ours, theirs):
    return f"{ours / theirs:.2f}"


def row(peer, ours):
    cpu, wall = peer["cpu"], peer["wall"]

    def to_ours(clients):
        return three(lambda k: ratio(ours["cpu"][clients][k],
                                     cpu[clients][k]))

    return [
        peer["title"],
        three(lambda k: f"{cpu['1'][k]:.2f}"), to_ours("1"),
        three(lambda k: f"{wall['1'][k]:.2f}"),
        three(lambda k: f"{cpu['8'][k]:.2f}"), to_ours("8"),
        three(lambda k: f"{wall['8'][k]:.2f}"),
        three(lambda k: str(peer["memory"][k])),
        three(lambda k: str(peer["programs"][k])),
        three(lambda k: str(peer["processes"][k])),
        three(lambda k: str(peer["bytes"][k])),
        f"{peer['files']:,}", str(peer["lines"]),
    ]


HEADING = (
    "", "CPU, ms", "ours ÷ this", "time, ms", "CPU, 8 clients", "ours ÷ this",
    "time, 8 clients", "memory, KiB", "programs", "processes", "bytes",
    "size, KiB", "lines",
)


def markdown(heading, rows):
    lines = [heading, ["---"] + ["--:"] * (len(heading) - 1), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def whole(results):
    peers = results["peers"]
    return (
        "CPU and time of one request, each with its page / save / refused save;"
        f"\nmedians of {results['rounds']} rounds in turns, load average"
        f" {results['load'][0]:.2f} before and {results['load'][1]:.2f} after"
        f" (it counts our own 8 clients)\n\n"
        + markdown(HEADING, [row(p, peers[0]) for p in peers]))


def short(results):
    """The details, for choosing one of them."""
    peers = results["peers"]
    return markdown(
        ("a page / a save / a refused save", "CPU, ms", "Larkspur ÷ this system",
         "memory, KiB", "on the device, KiB"),
        [[p["title"], three(lambda k, p=p: f"{p['cpu']['1'][k]:.1f}"),
          three(lambda k, p=p: ratio(peers[0]["cpu"]["1"][k],
                                     p["cpu"]["1"][k])),
          str(max(p["memory"].values())), f"{p['files']:,}"] for p in peers])
