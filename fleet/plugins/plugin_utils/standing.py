"""How a device stands, from what keltcheck says of it, and what that means for a switch."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import re

from ansible.errors import AnsibleError

# What a switch to managed mode replaces, deletes or finishes, so that a problem there does not keep it from working.
MENDED_BY_MANAGED = (
    "mode.cache",
    "mode.site-list",
    "trace.key-files",
    "trace.plug-ins",
    "trace.stopped",
    "trace.temporary",
    "trace.unfinished",
    "trace.update",
)
# How keltcheck's remedy begins for what such a switch puts right.
SWITCH_AGAIN = "Switch the agent to managed mode again"
# What a switch to unmanaged mode does not ask for at all; it reads the site list.
NOT_ASKED_BY_UNMANAGED = ("key.", "install.", "mode.cache", "trace.")
# Work that an earlier run was to do and the next one does.
OWED = ("trace.unfinished", "trace.stopped", "trace.plug-ins")

SCHEMA = 1
KEPT_FACTS = (
    "mode",
    "servers",
    "server_key_sha256",
    "server_key_bits",
    "crypto_mode",
    "key_size",
    "agent_version",
    "certificate_sha256",
    "versions",
)


class Standing:
    """What keltcheck --json says.

    facts     of the device, as the schema of keltcheck names them
    findings  all checks that are not ok
    """

    def __init__(self, text):
        try:
            report = json.loads(text)
            if report["schema"] != SCHEMA:
                raise AnsibleError("keltcheck speaks schema %s, and this collection %d" % (report["schema"], SCHEMA))
            self.verdict = report["verdict"]
            self.summary = report["summary"]
            self.facts = report["facts"]
            self.findings = [check for check in report["checks"] if check["state"] != "ok"]
        except (ValueError, KeyError, TypeError):
            raise AnsibleError("keltcheck did not say how the device stands: %s" % excerpt(text))

    @property
    def managed(self):
        return self.facts.get("mode") == "managed"

    def problems(self):
        return [check for check in self.findings if check["state"] == "problem"]

    def blocking(self, state):
        """The problems that would make a switch to `state` fail."""
        return [check for check in self.problems() if not mended(check, state)]

    def impairing(self, state):
        """The problems that a switch to `state` should not have left."""
        return self.problems() if state == "managed" else self.blocking(state)

    def owed(self):
        """What an interrupted run has left to do."""
        return [check for check in self.findings if check["id"] in OWED]

    def shown(self):
        """For results and reports."""
        return {
            "verdict": self.verdict,
            "summary": self.summary,
            "facts": dict((name, self.facts[name]) for name in KEPT_FACTS if name in self.facts),
            "findings": self.findings,
        }


def mended(check, state):
    if state == "unmanaged":
        return check["id"].startswith(NOT_ASKED_BY_UNMANAGED)
    return check["id"] in MENDED_BY_MANAGED or check.get("remedy", "").startswith(SWITCH_AGAIN)


def sentence(check):
    """A finding in one line."""
    subject = " (%s)" % check["subject"] if check.get("subject") else ""
    remedy = " Remedy: %s" % check["remedy"] if check.get("remedy") else ""
    return "%s%s: %s%s" % (check["id"], subject, check["fact"], remedy)


def excerpt(text, most=200):
    line = re.sub(r"\s+", " ", text).strip() or "it said nothing"
    return line if len(line) <= most else line[:most] + " ..."


def differences(standing, wanted):
    """In what the device does not stand as wanted: a list of (what, is, should be), empty where all is as wanted.

    `wanted` has `state`, and for "managed" what is known of `servers` (a list, or one of several lists) and `keys`.
    """
    found = []
    if standing.facts.get("mode") != wanted["state"]:
        found.append(("mode", standing.facts.get("mode", "unknown"), wanted["state"]))
    if wanted["state"] == "managed":
        found += different_servers(standing, wanted)
        key = standing.facts.get("server_key_sha256", "none")
        if wanted.get("keys") and key not in wanted["keys"]:
            found.append(("server key", key, wanted["keys"][0]))
        recorded = standing.facts.get("binsphash", "")
        if not found and recorded != key:
            found.append(("recorded hash", recorded or "none", key))
    for check in standing.owed():
        found.append((check["id"], check["fact"], "done"))
    return found


def different_servers(standing, wanted):
    servers = standing.facts.get("servers", [])
    if "servers" in wanted and servers != wanted["servers"]:
        return [("servers", ", ".join(servers) or "none", ", ".join(wanted["servers"]))]
    if "one_of" in wanted and not set(map(without_port, servers)) & set(wanted["one_of"]):
        return [("servers", ", ".join(servers) or "none", wanted["one_of"][0])]
    return []


def without_port(address):
    """The host of host, host:port, [address], [address]:port, or a bare IPv6 address."""
    match = re.match(r"^\[([^\]]*)\](?::\d*)?$", address) or re.match(r"^([^:]*)(?::\d*)?$", address)
    return match.group(1) if match else address
