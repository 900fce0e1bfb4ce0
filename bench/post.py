#!/usr/bin/env python3
"""Posts a page back as a browser would: page in, request body out.

    post.py [NAME=VALUE]... <page >body

Every NAME is a pattern (shell wildcards) of visible controls that get the
VALUE, check boxes included; the others keep what the page shows.  Submit is
the button pressed.
"""
import fnmatch
import html.parser
import re
import sys
import urllib.parse

changes = [arg.partition("=")[::2] for arg in sys.argv[1:]]
changes = [(re.compile(fnmatch.translate(n)), v) for n, v in changes]
fields = []
chosen = {}


def add(name, value, hidden=False):
    for pattern, new_value in changes:
        if not hidden and pattern.match(name):
            value = new_value
    if value is not None:
        fields.append((name, value))


class Page(html.parser.HTMLParser):
    def handle_starttag(self, tag, attributes):
        a = dict(attributes)
        kind = a.get("type", "text")
        if tag == "select":
            chosen.clear()
            chosen["name"] = a["name"]
        elif tag == "option":
            if "selected" in a or "value" not in chosen:
                chosen["value"] = a["value"]
        elif tag != "input" or "disabled" in a or kind == "submit":
            pass
        elif kind == "checkbox" and "checked" not in a:
            add(a["name"], None)
        else:
            add(a["name"], a.get("value") or "", kind == "hidden")

    def handle_endtag(self, tag):
        if tag == "select":
            add(chosen["name"], chosen.get("value"))


Page().feed(sys.stdin.buffer.read().decode("latin-1"))
if ("cgi_vars_loaded", "True") not in fields:
    sys.exit("post.py: this is no form page")
fields.append(("action", "Submit"))
print(urllib.parse.urlencode(fields, encoding="latin-1"), end="")
