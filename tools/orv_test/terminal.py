"""Untrusted text on a terminal, which obeys control characters: texts of files,
scripts and pages are shown through this."""

import re

OBEYED = re.compile("[\0-\x1f\x7f-\x9f\udc80-\udcff]")  # the last: not UTF-8


def shown(text):
    """The text as one line; each byte of a control character as \\x1b."""
    return OBEYED.sub(lambda found: "".join(
        f"\\x{byte:02x}" for byte in found[0].encode("utf-8", "surrogateescape")),
        str(text))
