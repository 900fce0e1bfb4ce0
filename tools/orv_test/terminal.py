"""Foreign text on a terminal, which obeys control characters: what files,
scripts and pages say is shown through here."""

import re

OBEYED = re.compile("[\0-\x1f\x7f-\x9f\udc80-\udcff]")  # the last: no UTF-8


def shown(text):
    """The text as one line; each byte of a control character as \\x1b."""
    return OBEYED.sub(lambda found: "".join(
        f"\\x{byte:02x}" for byte in found[0].encode("utf-8", "surrogateescape")),
        str(text))
