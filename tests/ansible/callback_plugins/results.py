"""Writes each host's result of a task as a line of JSON into $RESULTS."""
import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "aggregate"
    CALLBACK_NAME = "results"

    def note(self, result, failed=False):
        with open(os.environ["RESULTS"], "a", encoding="utf-8") as file:
            file.write(json.dumps(
                [result._host.get_name(), result._result | {"failed": failed}]) + "\n")

    v2_runner_on_ok = note

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.note(result, True)

    def v2_runner_on_unreachable(self, result):
        self.note(result, True)
