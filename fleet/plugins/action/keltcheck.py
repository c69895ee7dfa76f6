"""Tells how a device stands, and changes nothing."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.kelt.fleet.plugins.plugin_utils.base import DeviceAction, standing_of
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import looking


class ActionModule(DeviceAction):
    SPEC = dict(server=dict(type="str"))
    _VALID_ARGS = frozenset(SPEC)

    def work(self, arguments, result):
        standing = standing_of(self.say(looking(arguments["server"], sweep=False)))
        result["keltcheck"] = standing.shown()
        result["msg"] = standing.summary
