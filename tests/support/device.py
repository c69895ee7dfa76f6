"""The private device as the tests see it: run the binary there, look at every file before and after."""

import dataclasses
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Far above what a loaded machine takes.
PATIENCE = 300

# Printed by every run on a device that has no key store yet.
NO_MODE = b"Unable to find existing mode, assuming non_fips mode\n"

AGENT_CONFIG = "/etc/orv.d/ZENTORAGENT3000/config.xml"
INSTALL = "/opt/Quorvane/orv"
SCRATCH = INSTALL + "/scratch"
SITE_LIST = SCRATCH + "/etc/SiteList.xml"
KEYSTORE = SCRATCH + "/keystore"
LOG = SCRATCH + "/logs/keltcfg.log"

KEY_FILES = ["agentfipsmode", "req2048seckey.bin", "reqseckey.bin", "sr2048pubkey.bin", "srpubkey.bin"]

# The order in which the directories of the other products are listed is the file system's; see Device.plugins.
START, STOP = "agent start", "agent stop"


@dataclasses.dataclass
class Run:
    """What became of one run."""

    out: bytes
    err: bytes
    status: int
    before: bytes  # what the lines before and after printed
    after: bytes

    def result(self):
        return (self.out, self.err, self.status)


class Device:
    """A device in the directory `state`. What its commands do can change nothing of the machine but what is beside that."""

    def __init__(self, state, binary, *options):
        self.state = state
        self.binary = binary
        state.parent.mkdir(parents=True, exist_ok=True)
        self.options = ["--sealed", state.parent, *options]  # of device/enter
        self.enter("true")

    def enter(self, *command, timeout=PATIENCE, **options):
        """Runs a command on the device, from its state directory. `env` adds to a bare environment."""
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "KELTCONFIG": str(self.binary), **options.pop("env", {})}
        return subprocess.run(
            self.command(*command),
            capture_output="stdout" not in options,
            stdin=options.pop("stdin", subprocess.DEVNULL),
            env=environment,
            timeout=timeout,
            cwd=options.pop("cwd", self.state if self.state.exists() else "/"),
            **options,
        )

    def command(self, *command):
        """What runs a command on the device, which ends with whoever started it, however that ends."""
        words = [word if isinstance(word, bytes) else str(word) for word in command]
        bound = ["setpriv", "--pdeathsig", "KILL"]
        return [*bound, ROOT / "device/enter", "--state", self.state, *self.options, "--", *words]

    def run(self, *arguments, before="", after="", via="", **options):
        """Runs the binary with these arguments. `before` and `after` are shell lines around it, `via` goes before its
        name (a tool that runs it, or an assignment)."""
        script = f"""
{{ :
{before}
}} >/run/test.before 2>&1
{via} "$KELTCONFIG" "$@"
status=$?
{{ :
{after}
}} >/run/test.after 2>&1
exit $status"""
        done = self.enter("sh", "-c", script, "sh", *arguments, **options)
        texts = [self.take("/run/test.before"), self.take("/run/test.after")]
        return Run(done.stdout, done.stderr, done.returncode, *texts)

    def shell(self, script, *arguments, **options):
        """Runs a shell script on the device; the binary is "$KELTCONFIG"."""
        return self.enter("sh", "-c", script, "sh", *arguments, **options)

    def path(self, path):
        """Where a file of the device is on this machine."""
        return self.state / path.lstrip("/")

    def read(self, path):
        return self.path(path).read_bytes()

    def write(self, path, content, mode=0o644):
        target = self.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content)
        target.chmod(mode)

    def take(self, path):
        content = self.read(path)
        self.path(path).unlink()
        return content

    def edit(self, path, old, new):
        """Replaces `old`, which must be there once, in a file of the device."""
        content = self.read(path)
        assert content.count(old) == 1
        self.write(path, content.replace(old, new))

    def calls(self):
        """The commands of the agent that were run, in order."""
        log = self.path("/run/agent/calls")
        return log.read_text().splitlines() if log.exists() else []

    def forget_calls(self):
        self.path("/run/agent/calls").unlink(missing_ok=True)

    def plugins(self, verb):
        """The commands that load or unload the plug-ins, in the order of the configuration directory."""
        names = self.enter("ls", "-U", "/etc/orv.d").stdout.decode().split()
        return [f"agent {verb} {name}" for name in (self._plugin(n) for n in names) if name]

    @staticmethod
    def _plugin(directory):
        return {"SCANNER2000": "scanner", "FIREWALL1000": "firewall"}.get(directory)

    def stopping(self):
        return [*self.plugins("unload"), STOP]

    def starting(self):
        return [START, *self.plugins("load")]

    def log(self):
        """The agent log, as pairs of severity and text."""
        path = self.path(LOG)
        lines = path.read_text().splitlines() if path.exists() else []
        return [(line.split("\t")[1], line.split("\t")[4]) for line in lines]

    def files(self):
        """Every file and directory of the device with its content (None for a directory) and mode; not what the
        stand-in agent keeps in /run/agent."""
        found = {}
        for top in ("etc/orv.d", "opt/Quorvane", "run"):
            for path in sorted((self.state / top).rglob("*")):
                name = "/" + str(path.relative_to(self.state))
                if not name.startswith("/run/agent"):
                    found[name] = (path.read_bytes() if path.is_file() else None, path.stat().st_mode & 0o7777)
        return found


def changes(before, after):
    """Names of what was added, removed and changed between two results of Device.files()."""
    return {
        "added": sorted(set(after) - set(before)),
        "removed": sorted(set(before) - set(after)),
        "changed": sorted(name for name in set(before) & set(after) if before[name] != after[name]),
    }


def contents(directory):
    """The files of a directory and their contents."""
    return {path.name: path.read_bytes() for path in pathlib.Path(directory).iterdir()}
