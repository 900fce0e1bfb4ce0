"""The settings of a device with Larkspur, over any connection with a shell.

A task takes one or two commands: the wanted settings go to "orvctl --json apply
-" as a dump on standard input, so that no value appears in a process list.
orvctl checks them, stores all or nothing, and reports the changes.  The device
needs no Python, and no file is left there.
"""
import json
import os
import time

from ansible.errors import AnsibleActionFail, AnsibleConnectionFailure
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

SHELL = "/bin/sh"
KEEP_PAUSE = 2  # seconds between attempts to keep a change
ACTIONS = ("forms", "apply", "dump", "restore", "reset")
OPTIONS = {*ACTIONS, "keep", "keep_host", "secrets", "pages", "command"}
SIGNS = {"\\x": "\\x5cx", "\r": "\\x0d", "\n": "\\x0a"}


def line(name, value):
    """One line of a dump.  A line end is passed on as a code: the device refuses it
    and names the value."""
    if isinstance(value, bool):
        value = "True" if value else "False"
    text = "" if value is None else str(value)
    for sign, code in SIGNS.items():
        text = text.replace(sign, code)
    if "=" in name or "\n" in name or not name:
        raise AnsibleActionFail(f"{name!r} is not a valid name of a field")
    return f"{name}={text}\n"


def table(name, rows):
    """The lines that give the table exactly these rows."""
    text = f"table {name} {len(rows)}\n"
    for number, row in enumerate(rows):
        if not isinstance(row, dict):
            raise AnsibleActionFail(f"a row of {name} is not a dictionary")
        text += "".join(line(f"{column}{number}", value)
                        for column, value in row.items())
    return text


def dump_text(forms):
    """The dump with the wanted settings of each form."""
    if not isinstance(forms, dict):
        raise AnsibleActionFail("forms is not a dictionary of forms")
    text = ""
    for form, fields in forms.items():
        if not isinstance(fields, dict):
            raise AnsibleActionFail(f"the form {form} is not a dictionary")
        text += f"form {form}\n"
        # The fields first: one of them may make a table appear.
        for name, value in fields.items():
            if not isinstance(value, list):
                text += line(name, value)
        for name, rows in fields.items():
            if isinstance(rows, list):
                text += table(name, rows)
    return text


def told(result):
    """orvctl's messages about a form, in one line."""
    parts = [result.get("message", "")]
    parts += [f"{name}: {text}" for name, text in
              result.get("errors", {}).items()]
    where = f" line {result['line']}" if result.get("line") else ""
    return f"{result.get('form', '?')}{where}: " + "; ".join(
        part for part in parts if part)


class ActionModule(ActionBase):
    TRANSFERS_FILES = False
    _supports_check_mode = True
    _supports_async = False

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        args = self._task.args
        unknown = sorted(set(args) - OPTIONS)
        if unknown:
            raise AnsibleActionFail(f"unknown option: {', '.join(unknown)}")
        wanted = [action for action in ACTIONS if action in args]
        if len(wanted) != 1:
            raise AnsibleActionFail(f"give one of {', '.join(ACTIONS)}")
        self.command = args.get("command") or (task_vars or {}).get(
            "orvctl_command", "orvctl")
        self.command = self._templar.template(self.command)
        result.update(getattr(self, f"do_{wanted[0]}")(args[wanted[0]]))
        return result

    # --- the device -----------------------------------------------------------

    def orvctl(self, *words, text=None):
        """Runs orvctl; returns its status, output and messages."""
        shell = self._connection._shell
        command = " ".join([self.command, *map(shell.quote, words)])
        # With a shell named, Ansible does not need "sleep" on the device; the
        # input is never empty, or ssh would give the command a terminal.
        done = self._low_level_execute_command(
            command, executable=SHELL,
            in_data=(text or "\n").encode("utf-8", "replace"))
        return done["rc"], done["stdout"], done["stderr"].strip()

    def ask(self, *words, text=None):
        """The answer of "orvctl --json"."""
        status, output, messages = self.orvctl("--json", *words, text=text)
        try:
            return status, json.loads(output), messages
        except ValueError:
            raise AnsibleActionFail(
                messages or output.strip() or
                f"{self.command} ended with status {status}") from None

    def check_words(self):
        return ["--dry-run"] if self._play_context.check_mode else []

    def outcome(self, status, results, messages):
        """The task's result, from that of a save."""
        results = results if isinstance(results, list) else [results]
        forms = [r for r in results if "form" in r]
        lines = {r["form"]: [c["text"] for c in r.get("changes", [])]
                 for r in forms if r.get("changed")}
        found = {"changed": any(r.get("changed") for r in forms),
                 "changes": lines, "results": forms}
        skipped = sorted({n for r in forms for n in r.get("skipped", [])})
        if skipped:
            found["skipped_secrets"] = skipped
        if self._play_context.diff:
            found["diff"] = [{"header": form, "prepared": "".join(
                f"{text}\n" for text in texts)} for form, texts in lines.items()]
        if status != 0:
            refused = [told(r) for r in forms
                       if r.get("result") in ("refused", "failed")]
            found |= {"failed": True, "changed": False,
                      "msg": "\n".join(refused) or messages or "refused"}
            return found
        pending = [r["pending"] for r in results if "pending" in r]
        if pending:
            found["pending"] = pending[-1]
            found |= self.keep(pending[-1])
        return found

    # --- a change that goes back ----------------------------------------------

    def keep(self, pending):
        """Keeps the change through a new connection, which proves that the device
        can still be reached."""
        if not boolean(self._task.args.get("keep", False)):
            return {"warnings": [
                f"this goes back in {pending['seconds']} seconds unless"
                " somebody keeps it (keep: true, or orvctl confirm)"]}
        host = self._task.args.get("keep_host")
        if host:
            self._connection.set_option("host", host)
        end = time.monotonic() + pending["seconds"]
        why = ""
        while time.monotonic() < end:
            try:
                self._connection.reset()
                status, answer, messages = self.ask("confirm")
                if status == 0:
                    return {"kept": True}
                why = messages or answer.get("message", "")
            except (AnsibleConnectionFailure, AnsibleActionFail) as fault:
                why = str(fault)
            time.sleep(KEEP_PAUSE)
        return {"failed": True, "kept": False,
                "msg": f"the change was not kept and goes back: {why}"}

    # --- the actions ----------------------------------------------------------

    def do_forms(self, forms):
        return self.outcome(*self.ask(*self.check_words(), "apply", "-",
                                      text=dump_text(forms)))

    def do_apply(self, path):
        path = self._find_needle("files", path)
        with open(self._loader.get_real_file(path), encoding="utf-8") as file:
            text = file.read()
        return self.outcome(*self.ask(*self.check_words(), "apply", "-",
                                      text=text))

    def do_restore(self, number):
        return self.outcome(*self.ask(*self.check_words(), "restore",
                                      str(number)))

    def do_reset(self, form):
        words = [] if form is True or form == "all" else [str(form)]
        sure = self.check_words() or ["--yes"]
        return self.outcome(*self.ask(*sure, "reset", *words))

    def do_dump(self, path):
        args = self._task.args
        words = ["--secrets"] if boolean(args.get("secrets", False)) else []
        status, text, messages = self.orvctl(*words, "dump",
                                             *args.get("pages", []))
        if status != 0:
            return {"failed": True, "msg": messages or "the dump failed"}
        path = self._loader.path_dwim(path)
        try:
            with open(path, encoding="utf-8") as file:
                before = file.read()
        except FileNotFoundError:
            before = None
        if before != text and not self._play_context.check_mode:
            replace(path, text)
        return {"changed": before != text, "dest": path}


def replace(path, text):
    """Completely or not at all, and readable only by its owner: it may contain
    secrets."""
    folder = os.path.dirname(path)
    os.makedirs(folder, exist_ok=True)
    new = f"{path}.new"
    with open(os.open(new, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w",
              encoding="utf-8") as file:
        file.write(text)
    os.replace(new, path)
