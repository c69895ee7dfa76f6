"""Runs a switch to managed mode many times, each with a fault at another of its system calls."""

import collections
import dataclasses
import re

from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, SITE_LIST

# What can change a file or a directory. The loader's own calls, and all that only read, leave nothing half done.
CHANGING = ["write", "pwrite64", "fsync", "fdatasync", "rename", "renameat", "renameat2", "unlink", "unlinkat", "mkdir"]
CHANGING += ["mkdirat", "fchmod", "fchown", "ftruncate", "fsetxattr", "link", "linkat", "copy_file_range", "sendfile"]

WATCHED = [AGENT_CONFIG, SITE_LIST, KEYSTORE + "/server-public.der", KEYSTORE + "/server-request-secret.der"]
WATCHED += [KEYSTORE + "/keyconf.ini"] + [f"{INSTALL}/{name}" for name in KEY_FILES]

# For every line "number call fault" of /run/faults: the device as it was at first, a run with the fault, and its files
# into /run/results/number; then, when asked, a run without any, whose status goes there too.
SCRIPT = """
mkdir /run/first /run/results
cp -a /etc/orv.d /opt/Quorvane /run/first/
run() { "$@" "$KELTCONFIG" -m -d /run/keys; }
while read -r number call fault <&3; do
  to=/run/results/$number
  rm -rf /etc/orv.d/* /opt/Quorvane/orv /run/orv-locks /run/keys
  cp -a /run/first/orv.d/. /etc/orv.d/
  cp -a /run/first/Quorvane/. /opt/Quorvane/
  cp -a "$1" /run/keys
  mkdir $to
  run strace -qq -o $to/trace -e trace=$call -e inject=$call:$fault >$to/out 2>$to/err
  echo $? >$to/status
  cp -a /etc/orv.d /opt/Quorvane /run/keys $to/
  if [ "$2" ]; then
    run timeout 300 >$to/again.out 2>$to/again.err
    echo $? >$to/again.status
    mkdir $to/again
    cp -a /etc/orv.d /opt/Quorvane $to/again
  fi
done 3</run/faults
"""


@dataclasses.dataclass
class Outcome:
    """The device after a run with a fault, and then after one without."""

    fault: str
    injected: bool
    status: int
    files: dict  # WATCHED path: content, or None
    others: set  # further files of the device
    again_status: int
    again_files: dict
    again_others: set
    keys: dict  # the source directory


class Faults:
    def __init__(self, device, package):
        self.device = device
        self.source = package()
        # The stand-in agent has no part in this, and takes time.
        for config in device.path("/etc/orv.d").glob("*/config.xml"):
            config.write_bytes(re.sub(rb"/opt/Quorvane/orv/bin/agent \w+( \w+)?", b"/bin/true", config.read_bytes()))
        self.first = self._files("/etc/orv.d", "/opt/Quorvane")
        self.known = self._names("/etc/orv.d", "/opt/Quorvane")

    def points(self):
        """(call, number) for every call of an undisturbed run that can change something."""
        trace = "/run/undisturbed"
        script = f"""
cp -a /etc/orv.d /run/kept.orv.d; cp -a /opt/Quorvane /run/kept.Quorvane; cp -a "$1" /run/keys
strace -o {trace} "$KELTCONFIG" -m -d /run/keys; status=$?
rm -rf /etc/orv.d/* /opt/Quorvane/orv /run/keys
cp -a /run/kept.orv.d/. /etc/orv.d/; cp -a /run/kept.Quorvane/. /opt/Quorvane/; rm -r /run/kept.*
exit $status"""
        done = self.device.shell(script, self.source)
        assert (done.stderr, done.returncode) == (b"", 0)
        found, counts = [], collections.Counter()
        for line in self.device.take(trace).decode(errors="replace").splitlines():
            call = re.match(r"(\w+)\(", line)
            if not call:
                continue
            counts[call[1]] += 1
            if call[1] in CHANGING or (call[1] == "openat" and re.search("O_CREAT|O_TMPFILE", line)):
                found.append((call[1], counts[call[1]]))
        return found

    def run(self, fault, again):
        """An Outcome for every point of the switch with this fault (as strace's -e inject= takes it, "{n}" for the number
        of the call), followed by an undisturbed run if `again`."""
        specs = [f"{call} {fault.format(n=number)}" for call, number in self.points()]
        lines = "".join(f"{number} {spec}\n" for number, spec in enumerate(specs))
        self.device.write("/run/faults", lines.encode())
        done = self.device.shell(SCRIPT, self.source, "again" if again else "", timeout=3600)
        assert (done.stdout, done.stderr, done.returncode) == (b"", b"", 0)
        return [self._outcome(number, spec, again) for number, spec in enumerate(specs)]

    def _outcome(self, number, spec, again):
        at = f"/run/results/{number}"
        trace = self.device.read(at + "/trace")
        keys = self.device.path(at + "/keys")
        return Outcome(
            fault=spec,
            injected=b"(INJECTED)" in trace or b"killed by SIGKILL" in trace,
            status=int(self.device.read(at + "/status")),
            files=self._files(at + "/orv.d", at + "/Quorvane"),
            others=self._names(at + "/orv.d", at + "/Quorvane") - self.known - set(WATCHED),
            again_status=int(self.device.read(at + "/again.status")) if again else None,
            again_files=self._files(at + "/again/orv.d", at + "/again/Quorvane"),
            again_others=self._names(at + "/again/orv.d", at + "/again/Quorvane") - self.known - set(WATCHED) if again else set(),
            keys={path.name: path.read_bytes() for path in keys.iterdir()},
        )

    def _files(self, config, install):
        found = {}
        for name in WATCHED:
            path = self._place(name, config, install)
            found[name] = path.read_bytes() if path.is_file() else None
        return found

    def _place(self, name, config, install):
        return self.device.path(name.replace("/etc/orv.d", config, 1).replace("/opt/Quorvane", install, 1))

    def _names(self, config, install):
        names = set()
        for real, copy in (("/etc/orv.d", config), ("/opt/Quorvane", install)):
            top = self.device.path(copy)
            names |= {f"{real}/{path.relative_to(top)}" for path in top.rglob("*") if path.is_file()}
        return names
