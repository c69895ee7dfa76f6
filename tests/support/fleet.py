"""Private devices that are reached over ssh, and Ansible beside them."""

import json
import os
import pathlib
import shlex
import subprocess

from device import PATIENCE, ROOT

COLLECTION = ROOT / "fleet"
PLAYBOOKS = COLLECTION / "playbooks"
# In a shell beside the devices; the end of an address and a command come after it.
SSH = 'ssh -F /dev/null -i "$KELT_FLEET/key" -o UserKnownHostsFile="$KELT_FLEET/known_hosts" -o BatchMode=yes root@127.1.0.'

# Descriptors that the devices hold as well: their end tells somebody that the last process of them has ended.
held = []


class Fleet:
    """Devices in the directory `state`, kept between runs."""

    def __init__(self, state, binary, count, *options):
        self.state, self.count, self.options = state, count, options
        self.build = pathlib.Path(binary).parent
        self.collections = state.parent / "collections"
        place = self.collections / "ansible_collections/kelt"
        place.mkdir(parents=True, exist_ok=True)
        if not (place / "fleet").exists():
            (place / "fleet").symlink_to(COLLECTION)
        self.reports = state.parent / "reports"
        self.records = state.parent / "record"

    def name(self, number):
        return f"device{number:03}"

    def environment(self):
        """No setting of whoever runs the tests counts."""
        mine = {name: value for name, value in os.environ.items() if not name.startswith(("ANSIBLE_", "KELT_", "PYTEST_"))}
        return mine | {
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
            "KELT_BUILD": str(self.build),
            "KELT_TEST_RECORD": str(self.records),
            "KELT_REPORT_DIRECTORY": str(self.reports),
            "ANSIBLE_CONFIG": str(COLLECTION / "ansible.cfg"),
            "ANSIBLE_HOME": str(self.state.parent / "home"),
            "ANSIBLE_COLLECTIONS_PATH": str(self.collections),
            "ANSIBLE_CALLBACK_PLUGINS": str(ROOT / "tests/fleet/callback"),
            "ANSIBLE_CALLBACKS_ENABLED": "kelt.fleet.report,record",
            "ANSIBLE_NOCOLOR": "1",
            "PYTHONDONTWRITEBYTECODE": "1",
        }

    def shell(self, script, *options, via=(), **more):
        """Runs a shell script beside the running devices. "$KELT_FLEET" is their directory. `via` goes before all of it, and
        must end with whoever started it."""
        bound = [] if via else ["--bound", os.getpid()]
        command = [*via, ROOT / "device/fleet", *bound, "--count", self.count, "--state", self.state]
        command += [*self.options, *options, "--", "bash", "-c", script]
        environment = self.environment() | more.pop("env", {})
        return subprocess.run([*map(str, command)], capture_output=True, text=True, stdin=subprocess.DEVNULL, pass_fds=held,
                              timeout=4 * PATIENCE, env=environment, cwd=self.state.parent, **more)

    def play(self, playbook, *arguments, options=(), via=(), before="", after="", env=(), **variables):
        """Runs a playbook: what Ansible said and its status, and what each device's tasks came to."""
        words = ["ansible-playbook", "-i", f"{self.state}/inventory.ini", playbook, *arguments]
        if variables:
            words += ["-e", json.dumps(variables)]
        self.records.unlink(missing_ok=True)
        command = " ".join(shlex.quote(str(word)) for word in words)
        done = self.shell(f"{before}\n{command}\nstatus=$?\n{after}\nexit $status", *options, via=via, env=dict(env))
        return Outcome(done, self.taken())

    def taken(self):
        if not self.records.exists():
            return []
        return [json.loads(line) for line in self.records.read_text().splitlines()]

    def path(self, number, path):
        return self.state / "devices" / self.name(number) / path.lstrip("/")

    def boot(self, number, script):
        """What a device does when it starts, before it answers."""
        target = self.path(number, "boot")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(script)

    def calls(self, number):
        """The commands of the agent that were run, in order."""
        log = self.path(number, "/run/agent/calls")
        return log.read_text().splitlines() if log.exists() else []

    def forget_calls(self):
        for log in self.state.glob("devices/*/run/agent/calls"):
            log.unlink()

    def work_left(self, number):
        """What runs of the collection have left in a device's /run: modes by path."""
        run = self.path(number, "/run")
        tops = sorted(run.glob("keltconfig-fleet-*"))
        return {str(path.relative_to(run)): path.stat().st_mode for top in tops for path in (top, *top.rglob("*"))}

    def files(self, number):
        """Every file of a device with its content; not what comes and goes with each start of it."""
        found = {}
        for top in ("etc/orv.d", "opt/Quorvane", "run"):
            for path in sorted(self.path(number, top).rglob("*")):
                if path.is_file() and path.name != "dropbear.pid":
                    found[str(path.relative_to(self.path(number, "/")))] = path.read_bytes()
        return found


class Outcome:
    """What became of a playbook."""

    def __init__(self, done, records):
        self.status, self.out, self.err, self.records = done.returncode, done.stdout, done.stderr, records

    def of(self, device, action="keltconfig"):
        """Outcome and result of an action on a device, of the last task with it."""
        found = [record for record in self.records if record["device"] == device and record["action"] == action]
        assert found, f"{action} was not run on {device}:\n{self.out[-3000:]}\n{self.err[-1000:]}"
        return found[-1]["outcome"], found[-1]["result"]

    def tried(self, action="keltconfig"):
        return sorted({record["device"] for record in self.records if record["action"] == action})
