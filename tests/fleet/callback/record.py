"""Records the result of every task on every device, a line of JSON for each, for the tests to look at."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = """
name: record
type: aggregate
short_description: record results
description: Appends them to the file that KELT_TEST_RECORD names.
"""

import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "aggregate"
    CALLBACK_NAME = "record"

    def record(self, outcome, result):
        line = {
            "device": result._host.get_name(),
            "task": result._task.get_name(),
            "action": result._task.action.rsplit(".", 1)[-1],
            "outcome": outcome,
            "result": result._result,
        }
        with open(os.environ["KELT_TEST_RECORD"], "a") as file:
            file.write(json.dumps(line) + "\n")

    def v2_runner_on_ok(self, result):
        self.record("changed" if result._result.get("changed") else "ok", result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.record("failed", result)

    def v2_runner_on_unreachable(self, result):
        self.record("unreachable", result)
