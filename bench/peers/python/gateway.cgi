#!/usr/bin/python3 -I
"""The form of the gateway's settings, stored as JSON."""
import html
import json
import os
import re
import sys

STORE = "../state/gateway.json"
MAX_BODY = 65536
MAX_ROWS = 32

IP = r"(?:(?:25[0-5]|2[0-4]\d|1\d\d|[1-9]?\d)(?:\.(?!$)|$)){4}$"
LABEL = r"[A-Za-z0-9](?:[A-Za-z0-9-]{0,61}[A-Za-z0-9])?"
CHOOSE = "Choose one of the entries"
NUMBER = "Enter a number from 1 to 30"

# name, label, size of a text or its choices, its pattern, may it be blank, the
# message otherwise, a hint
FIELDS = (
    ("host_name", "Device name", 24, LABEL + "$", False,
     "Use letters, digits and hyphens, 63 at most", "For example gateway-1"),
    ("location", "Location", 30, r"[ -~]{1,60}$", True,
     "Use 60 characters at most", ""),
    ("contact", "Contact", 30, r"[\w.+-]{1,60}@[A-Za-z0-9.-]{1,60}$", True,
     "Enter a mail address", "A mail address"),
    ("addressing", "Addressing", {"no": "Automatic", "yes": "Static"}, "",
     False, CHOOSE, ""),
    ("ip_address", "Address", 15, IP, False,
     "Enter an address such as 192.168.1.20", "For example 192.168.1.20"),
    ("prefix", "Network size", 2, r"(?:[1-9]|[12]\d|30)$", False, NUMBER,
     "1 to 30, usually 24"),
    ("gateway", "Gateway", 15, IP, True,
     "Enter an address such as 192.168.1.1", ""),
    ("dns1", "Name server", 15, IP, True, "Enter an address such as 9.9.9.9",
     ""),
    ("dns2", "Second name server", 15, IP, True,
     "Enter an address such as 9.9.9.9", ""),
    ("ntp", "Time server", 30,
     rf"(?:{IP}|(?=.{{1,253}}$){LABEL}(?:\.{LABEL})*$)", True,
     "Enter a host name or an address", "A host name or an address"),
    ("log_level", "Log",
     {"error": "Errors", "notice": "Events", "debug": "Everything"}, "", False,
     CHOOSE, ""),
    ("ssh", "Remote login", None, "", True, "", ""),
)
COLUMNS = (
    ("fw_proto", "Protocol", {"tcp": "TCP", "udp": "UDP", "both": "Both"}, "",
     False, CHOOSE, ""),
    ("fw_port", "Outside port", 5, r"\d{1,5}$", False,
     "Enter a port, 1 to 65535", ""),
    ("fw_to", "Device", 15, IP, False,
     "Enter an address such as 192.168.1.50", ""),
    ("fw_note", "Note", 20, r"[ -~]{1,40}$", True,
     "Use 40 characters at most", ""),
)
STATIC = ("ip_address", "prefix", "gateway")
PAGES = ("gateway", "status", "users", "log", "system")
esc = html.escape


def send(page, status="200 OK"):
    sys.stdout.write(
        f"Status: {status}\r\nContent-Type: text/html; charset=utf-8\r\n"
        "Cache-Control: private, no-cache\r\n"
        "X-Content-Type-Options: nosniff\r\nX-Frame-Options: SAMEORIGIN\r\n"
        "Content-Security-Policy: default-src 'none'; style-src 'self'; "
        "form-action 'self'; frame-ancestors 'self'; base-uri 'none'\r\n\r\n")
    links = "".join(f'<li><a href="{p}.cgi">{p.capitalize()}</a></li>\n'
                    for p in PAGES)
    sys.stdout.write(
        '<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n'
        '<meta name="viewport" content="width=device-width">\n'
        '<title>Gateway</title>\n<link rel="stylesheet" href="/style.css">\n'
        f"</head>\n<body>\n<nav><ul>\n{links}</ul></nav>\n<main>\n"
        f"<h1>Gateway</h1>\n{page}</main>\n</body>\n</html>\n")


def control(field, key, value, error, aria=""):
    """A control and its message; `aria` names it where no label does."""
    name, size = esc(key), field[2]
    more = f' id="{name}"' + (f' aria-label="{aria}"' if aria else "")
    if error:
        more += f' aria-invalid="true" aria-describedby="{name}-error"'
    if size is None:
        more += " checked" if value == "True" else ""
        text = f'<input type="checkbox" name="{name}" value="True"{more}>'
    elif isinstance(size, dict):
        options = "".join(
            f'<option value="{choice}"{" selected" * (choice == value)}>'
            f"{shown}</option>\n" for choice, shown in size.items())
        text = f'<select name="{name}"{more}>\n{options}</select>'
    else:
        text = (f'<input name="{name}" value="{esc(value)}" size="{size}"'
                f"{more}>")
    if field[6]:
        text += f" <small>{field[6]}</small>"
    if error:
        text += f'<br><em id="{name}-error">{esc(error)}</em>'
    return text


def form(values, rows, errors, note):
    out = [f'<p role="status">{note}</p>\n' if note else "",
           '<form method="post" action="gateway.cgi">\n<table>\n']
    for field in FIELDS:
        key = field[0]
        if key in STATIC and values.get("addressing") != "yes":
            continue
        cell = control(field, key, values.get(key, ""), errors.get(key))
        out.append(f'<tr><th><label for="{key}">{field[1]}</label></th>'
                   f"<td>{cell}</td></tr>\n")
    out.append("</table>\n<h2>Port forwards</h2>\n<table>\n<tr>")
    out += [f"<th>{field[1]}</th>" for field in COLUMNS]
    out.append("</tr>\n")
    for i, row in enumerate([*rows, {}]):
        out.append("<tr>")
        for field in COLUMNS:
            key = f"{field[0]}{i}"
            cell = control(field, key, row.get(field[0], ""), errors.get(key),
                           f"{field[1]}, row {i + 1}")
            out.append(f"<td>{cell}</td>")
        out.append("</tr>\n")
    out.append('</table>\n<p><input type="submit" value="Submit"></p>\n'
               "</form>\n")
    return "".join(out)


def from_here(env=os.environ):
    site = env.get("HTTP_SEC_FETCH_SITE")
    if site:
        return site in ("same-origin", "none")
    origin = env.get("HTTP_ORIGIN")
    host = env.get("HTTP_HOST")
    return not origin or origin in (f"http://{host}", f"https://{host}")


def posted():
    """The values and the rows in use of the request."""
    from urllib.parse import parse_qsl  # here, since a page does not need it
    body = sys.stdin.buffer.read(int(os.environ["CONTENT_LENGTH"]))
    got = dict(parse_qsl(body.decode("ascii"), keep_blank_values=True))
    values = {f[0]: got.get(f[0], "").strip() for f in FIELDS}
    values["ssh"] = "True" if values["ssh"] else "False"
    rows = []
    for i in range(MAX_ROWS + 1):
        row = {f[0]: got.get(f"{f[0]}{i}", "").strip() for f in COLUMNS}
        if row["fw_port"] or row["fw_to"] or row["fw_note"]:
            rows.append(row)
    return values, rows


def judge(field, key, value, errors):
    _, _, size, pattern, blank, message, _ = field
    good = (value in size if isinstance(size, dict)
            else re.match(pattern, value, re.ASCII) if value else blank)
    if not good:
        errors[key] = message


def check(values, rows):
    errors, seen = {}, {}
    for field in FIELDS:
        if field[0] not in STATIC or values["addressing"] == "yes":
            judge(field, field[0], values[field[0]], errors)
    if (values["addressing"] == "yes" and values["gateway"]
            and values["gateway"] == values["ip_address"]):
        errors["gateway"] = "The gateway must be another device than this one"
    if values["dns2"] and not values["dns1"]:
        errors["dns1"] = "Fill in the first name server before the second"
    for i, row in enumerate(rows):
        for field in COLUMNS:
            judge(field, f"{field[0]}{i}", row[field[0]], errors)
        key = f"fw_port{i}"
        if key in errors:
            continue
        port = int(row["fw_port"])
        if not 1 <= port <= 65535:
            errors[key] = COLUMNS[1][5]
        for proto in ("tcp", "udp"):
            if row["fw_proto"] in (proto, "both"):
                other = seen.setdefault((proto, port), i + 1)
                if other != i + 1:
                    errors[key] = f"Row {other} has this port already"
    if len(rows) > MAX_ROWS:
        errors["rows"] = ""
    return errors


def store(values, rows):
    """Replaces the whole file: a reader sees the old one or the new."""
    new = f"{STORE}.{os.getpid()}"
    try:
        fd = os.open(new, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        with open(fd, "w", encoding="ascii") as file:
            json.dump({"values": values, "rows": rows}, file)
            file.flush()
            os.fsync(fd)
        os.replace(new, STORE)
    except OSError:
        if os.path.exists(new):
            os.unlink(new)
        raise


def main():
    try:
        with open(STORE, encoding="ascii") as file:
            stored = json.load(file)
    except FileNotFoundError:
        stored = {"values": {}, "rows": []}
    values, rows, errors, note = stored["values"], stored["rows"], {}, ""
    if os.environ["REQUEST_METHOD"] == "POST":
        if not from_here():
            return send("<p>The request was refused.</p>\n", "403 Forbidden")
        if not 0 <= int(os.environ.get("CONTENT_LENGTH") or 0) <= MAX_BODY:
            return send("<p>The request is too long.</p>\n",
                        "413 Content Too Large")
        values, rows = posted()
        errors = check(values, rows)
        if errors:
            note = "Nothing was saved yet. Please look at the marked fields."
        else:
            if values["addressing"] != "yes":  # not drawn: it stays
                values.update({k: stored["values"].get(k, "") for k in STATIC})
            try:
                store(values, rows)
                note = "Your changes are saved."
            except OSError:
                note = "The settings could not be stored. Is the storage full?"
    send(form(values, rows, errors, note))


main()
