"""keltcheck on the private device."""

import dataclasses
import json
import os

PROBLEM, WARNING, OK, UNKNOWN = "problem", "warning", "ok", "unknown"
STATUS = {OK: 0, WARNING: 1, PROBLEM: 2, UNKNOWN: 3}


@dataclasses.dataclass
class Found:
    """What one run found."""

    report: dict
    status: int

    @property
    def verdict(self):
        return self.report["verdict"]

    def state(self, identifier, subject=None):
        """The state of a check; None where there is none."""
        states = [check["state"] for check in self.all(identifier) if subject in (None, check.get("subject"))]
        assert len(states) < 2, states
        return states[0] if states else None

    def all(self, identifier):
        return [check for check in self.report["checks"] if check["id"] == identifier]

    def trouble(self):
        """Identifiers and states of whatever is not ok."""
        return {check["id"]: check["state"] for check in self.report["checks"] if check["state"] != OK}

    def fact(self, identifier):
        (check,) = self.all(identifier)
        return check["fact"]


def program(device):
    return device.binary.parent / "keltcheck"


def found_in(output, status):
    report = json.loads(output)
    assert STATUS[report["verdict"]] == status
    for check in report["checks"]:
        assert check["fact"].endswith((".", "!")), check
        assert ("remedy" in check) == (check["state"] != OK), check
    named = [(check["id"], check.get("subject")) for check in report["checks"]]
    assert len(named) == len(set(named)), "those of one identifier differ in their subject"
    return Found(report, status)


def check(device, *arguments, via=(), **options):
    """Runs keltcheck --json."""
    done = device.enter(*via, program(device), "--json", *arguments, **options)
    assert done.stderr == b"", done.stderr
    return found_in(done.stdout, done.returncode)


def plain(device, *arguments, **options):
    done = device.enter(program(device), "--plain", *arguments, **options)
    assert done.stderr == b""
    return done.stdout.decode(), done.returncode


def environment(device, **more):
    return {"KELTCHECK": os.fspath(program(device)), **more}
