"""Switches the agent of a device between unmanaged and managed mode, and sets the texts that it reports."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import shlex
import socket

from ansible.errors import AnsibleConnectionFailure, AnsibleError
from ansible.module_utils.common.text.converters import to_bytes
from ansible_collections.kelt.fleet.plugins.plugin_utils.base import Broken, DeviceAction, standing_of, text_of
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import quoted_bytes, working
from ansible_collections.kelt.fleet.plugins.plugin_utils.properties import properties_of, wanted_properties
from ansible_collections.kelt.fleet.plugins.plugin_utils.source import read_source
from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import (
    MENDED_BY_MANAGED,
    differences,
    excerpt,
    sentence,
    without_port,
)
from ansible_collections.kelt.fleet.plugins.plugin_utils.statuses import meaning

MOST_OF_AN_ANSWER = 254  # bytes that the prompts of keltconfig keep
CHANGING = ("switch", "properties-set")  # steps of the work
BROKE = (
    "the connection broke in the middle. What keltconfig had begun it ends, or its guard starts the agent again; run this "
    "again, and it finishes"
)


class ActionModule(DeviceAction):
    SPEC = dict(
        state=dict(type="str", choices=["managed", "unmanaged"]),
        source=dict(type="path"),
        server=dict(type="str"),
        servers=dict(type="list", elements="str"),
        user=dict(type="str"),
        password=dict(type="str", no_log=True),
        certificate=dict(type="str"),
        custom_props=dict(type="dict"),
        start=dict(type="bool", default=True),
        check_before=dict(type="bool", default=True),
        health_command=dict(type="str"),
    )
    RULES = dict(
        mutually_exclusive=[("source", "server")],
        required_one_of=[("state", "custom_props")],
        required_if=[("state", "managed", ("source", "server"), True)],
        required_by={"server": ("user", "password"), "certificate": "server", "servers": "server"},
    )
    _VALID_ARGS = frozenset(SPEC)

    def work(self, arguments, result):
        self.arguments = arguments
        self.state = arguments["state"]
        if arguments["certificate"] and not arguments["check_before"]:
            raise AnsibleError("certificate: it is looked at before the switch, which check_before forbids")
        self.source = self.read_source()
        self.answers = self.read_answers()
        self.properties = wanted_properties(arguments["custom_props"]) if arguments["custom_props"] else None
        standing, frames = self.look(result, arguments["server"] if arguments["check_before"] else None)
        missing = self.missing(standing, frames)
        result["differences"] = ["%s: %s, to be %s" % difference for difference in missing]
        result["diff"] = [diff(missing, self.host)]
        if not missing:
            result["msg"] = "stands as wanted: %s" % standing.summary
            return
        if arguments["check_before"]:
            self.check(standing, missing)
        if self.check_mode:
            result["changed"] = True
            result["msg"] = "would change: %s" % "; ".join(result["differences"])
            return
        self.change(missing, result)

    # What is wanted.

    def read_source(self):
        if not self.arguments["source"] or self.state != "managed":
            return None
        return read_source(self._loader, self.directory(self.arguments["source"]))

    def read_answers(self):
        """The lines for the prompts for user and password."""
        if not self.arguments["server"] or self.state != "managed":
            return None
        checked_server(self.arguments["server"])
        return [answer(name, self.arguments[name]) for name in ("user", "password")]

    def wanted(self):
        wanted = {"state": self.state}
        if self.source:
            wanted.update(servers=self.source.servers, keys=self.source.keys)
        elif self.answers:
            wanted["one_of"] = self.arguments["servers"] or names_of(self.arguments["server"])
        return wanted

    def missing(self, standing, frames):
        """In what the device does not stand as wanted."""
        found = differences(standing, self.wanted()) if self.state else []
        if self.properties is not None:
            has = properties_of(frames, standing.facts.get("agent_directory"))
            found += [
                ("custom property %s" % number, has.get(number, "none"), self.properties.get(number, "none"))
                for number in sorted(set(has) | set(self.properties))
                if has.get(number) != self.properties.get(number)
            ]
        return found

    # Before.

    def check(self, standing, missing):
        """Refuses what would fail."""
        blocking = standing.blocking(self.state) if self.switching(missing) else []
        if blocking:
            raise AnsibleError("nothing was tried, as it would fail. keltcheck: %s" % sentences(blocking))
        fingerprint = self.arguments["certificate"]
        shown = standing.facts.get("certificate_sha256", "none")
        if fingerprint and self.switching(missing) and normal(fingerprint) != normal(shown):
            raise AnsibleError("nothing was tried, as the server shows another certificate: %s" % shown)

    @staticmethod
    def switching(missing):
        return any(not what.startswith("custom property ") for what, _is, _wanted in missing)

    # The change.

    def change(self, missing, result):
        script = self.script(missing)
        try:
            frames = self.say(script)
        except (AnsibleConnectionFailure, Broken) as error:
            raise AnsibleError("%s. %s" % (BROKE, excerpt(error.message)))
        after = standing_of(frames)
        result["keltcheck"] = after.shown()
        result["changed"] = any(name in CHANGING for name, _argument, _text in frames)
        problems = [text.strip() for name, _argument, text in frames if name == "problem"]
        if problems:
            raise AnsibleError("nothing was tried, as it would fail. keltcheck: %s" % " ".join(problems))
        for name, status, text in frames:
            if name in CHANGING or name == "health":
                self.judge(name, int(status), text, after, result)
        self.read_back(after, frames)
        result["msg"] = "done: %s" % after.summary

    def script(self, missing):
        switching = self.switching(missing)
        source = self.source if switching else None
        return working(
            self.steps(switching),
            files=source.files if source else None,
            answers=self.answers if switching else None,
            mended=MENDED_BY_MANAGED,
            rehearse=bool(source and self.arguments["check_before"]),
            health=self.arguments["health_command"],
        )

    def steps(self, switching):
        steps = []
        if switching:
            steps.append(("switch", " ".join(["keltconfig"] + self.switch_options())))
        if self.properties is not None:
            words = [
                "-CustomProps%s %s" % (number, quoted_bytes(value.encode("iso-8859-1")))
                for number, value in sorted(self.properties.items())
            ]
            steps.append(("properties-set", " ".join(["keltconfig"] + words)))
        return steps

    def switch_options(self):
        options = ["-u"] if self.state == "unmanaged" else ["-m", "-d", '"$work/keys"']
        if self.answers:
            options += ["-z", "-e", shlex.quote(self.arguments["server"])]
        if not self.arguments["start"]:
            options.append("-nostart")
        return options

    # After.

    def judge(self, name, status, text, after, result):
        result["output"] = result.get("output", []) + [line for line in text.split("\n") if line]
        result["status"] = status
        if status == 0:
            return
        said = excerpt((text.strip() or "nothing").split("\n")[-1])
        if name == "health":
            raise AnsibleError("health_command ended with status %d: %s" % (status, said))
        cause, remedy = meaning(status)
        result.update(meaning=cause, remedy=remedy + ".")
        problems = sentences(after.problems()) or "%s - %s" % (after.verdict.upper(), after.summary)
        raise AnsibleError(
            "keltconfig ended with status %d. %s. %s. Its last line: %s. keltcheck: %s" % (status, cause, remedy, said, problems)
        )

    def read_back(self, after, frames):
        """Raises where the device does not stand as it was to, whatever the tool said."""
        missing = self.missing(after, frames)
        if missing:
            told = "; ".join("%s is %s, not %s" % difference for difference in missing)
            raise AnsibleError("keltconfig ended well, and yet: %s. keltcheck: %s" % (told, sentences(after.findings)))
        impairing = after.impairing(self.state) if self.state else []
        if impairing:
            raise AnsibleError("the device stands as wanted, but is impaired. keltcheck: %s" % sentences(impairing))


def sentences(checks):
    return " ".join(sentence(check) for check in checks)


def diff(missing, host):
    """For --diff."""

    def lines(index):
        return "".join("%s: %s\n" % (difference[0], difference[index]) for difference in missing)

    return {"before": lines(1), "after": lines(2), "before_header": host, "after_header": host}


def checked_server(server):
    if server.startswith("-") or any(ord(character) <= 32 for character in server) or not server:
        raise AnsibleError("server: %r is no name or address" % server)


def answer(name, value):
    content = to_bytes(value)
    if not content or len(content) > MOST_OF_AN_ANSWER or b"\n" in content or b"\0" in content:
        raise AnsibleError("%s: a prompt takes a line of 1 to %d bytes" % (name, MOST_OF_AN_ANSWER))
    return content


def names_of(server):
    """As what a site list may name the server: its host, and the addresses that the controller finds for it."""
    host = without_port(server)
    try:
        found = socket.getaddrinfo(host, None, type=socket.SOCK_STREAM)
    except (OSError, UnicodeError):
        found = []
    addresses = [address[4][0] for address in found]
    return [host] + sorted(set(addresses) - set([host]))


def normal(fingerprint):
    return fingerprint.replace(":", "").upper()
