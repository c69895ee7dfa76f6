"""Writes a report of all devices at the end of a run, however it ended."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
name: report
type: aggregate
short_description: a table of all devices after a run, as CSV and as an HTML page
version_added: 1.0.0
description:
  - Gathers what C(kelt.fleet.keltconfig), C(kelt.fleet.keltcheck) and C(kelt.fleet.keltconfig_package) found out about each
    device, and writes C(report.csv) and C(report.html) when the run ends, also when it was stopped for too many failures.
  - Devices that could not be reached, and those that no batch came to, are in it as well.
  - A run without such tasks writes nothing.
options:
  directory:
    description: Where the two files are written.
    type: path
    default: reports
    env:
      - name: KELT_REPORT_DIRECTORY
    ini:
      - section: callback_kelt_report
        key: directory
requirements:
  - enabled in the configuration, by C(callbacks_enabled = kelt.fleet.report)
author:
  - keltconfig maintainers (@keltconfig)
"""

import os
import time

from ansible import context
from ansible.plugins.callback import CallbackBase
from ansible_collections.kelt.fleet.plugins.plugin_utils.report import counts, row, write

ACTIONS = ("keltconfig", "keltcheck", "keltconfig_package")


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "aggregate"
    CALLBACK_NAME = "kelt.fleet.report"
    CALLBACK_NEEDS_ENABLED = True

    def __init__(self):
        super(CallbackModule, self).__init__()
        self.title = ""
        self.plays = []
        self.rows = {}
        self.used = False

    def v2_playbook_on_start(self, playbook):
        self.title = os.path.splitext(os.path.basename(playbook._file_name))[0]
        if context.CLIARGS.get("check"):
            self.title += " (check mode: nothing was changed)"

    def v2_playbook_on_play_start(self, play):
        self.plays.append(play)

    def v2_playbook_on_task_start(self, task, is_conditional):
        self.used = self.used or concerns(task)

    def v2_runner_on_ok(self, result):
        self.take("changed" if result._result.get("changed") else "ok", result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.take("failed", result)

    def v2_runner_on_unreachable(self, result):
        self.take("unreachable", result)

    def take(self, state, result):
        if not concerns(result._task):
            return
        device = result._host.get_name()
        earlier = self.rows.get(device)
        found = row(device, state, result._result)
        # A device that was changed by one task stays so when the next one finds nothing to do.
        if earlier and earlier["state"] == "changed" and found["state"] == "ok":
            found["state"] = "changed"
        self.rows[device] = found

    def v2_playbook_on_stats(self, stats):
        if not self.used:
            return
        rows = [self.rows.get(device) or row(device, "untried") for device in self.devices()]
        when = time.strftime("%Y-%m-%d %H:%M:%S %Z")
        paths = write(self.get_option("directory"), rows, self.title, when)
        told = ", ".join("%d %s" % (count, state) for state, count in counts(rows))
        self._display.display("Report: %s (%s)" % (paths[-1], told))

    def devices(self):
        """All that the plays were for, those included that no batch came to."""
        found = list(self.rows)
        for play in self.plays:
            inventory = play.get_variable_manager()._inventory
            hosts = inventory.get_hosts(play.hosts, ignore_restrictions=True)
            found += [host.get_name() for host in hosts]
        return list(dict.fromkeys(found))


def concerns(task):
    """Whether a task is one of this collection's."""
    return task.action.rsplit(".", 1)[-1] in ACTIONS
