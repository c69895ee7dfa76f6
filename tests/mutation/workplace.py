"""A private copy of a project, with a build tree of its own, in which one file at a time is changed, built and tested."""

import os
import pathlib
import shutil
import signal
import subprocess
import time
import tomllib

AMPLE = 3600  # seconds for what is known to end
FAULT = 125  # what the confined shell ends with when it could not begin

# Wrong code is going to run, maybe as root: it sees the machine read-only, but for the copy and a /tmp in memory, and
# whatever it starts ends with it. That goes for /dev too, where a change once took /dev/null from everybody; devices
# can be written to all the same. A mount that cannot be made read-only is left alone, unless it is the root or /dev.
CONFINE = """
place=$1; shift
mount --make-rprivate / && mount --bind "$place" "$place" && mount -t tmpfs -o mode=1777 tmpfs /tmp || exit 125
mount -t proc proc /proc 2>/dev/null
cut -d ' ' -f 5 /proc/self/mountinfo | sort -u | while read -r at; do
  case $at in
    /proc | /proc/* | /dev/pts | /dev/shm | /tmp | "$place" | "$place"/*) ;;
    / | /dev) mount -o remount,bind,ro "$at" || exit 125 ;;
    *) mount -o remount,bind,ro "$at" 2>/dev/null || true ;;
  esac
done || exit 125
cd "$place" && exec "$@"
"""


class Plan:
    """What is changed, built and run: plan.toml of the project."""

    def __init__(self, path):
        content = tomllib.loads(path.read_text())
        self.build_directory = content["build-directory"]
        self.configure = content["configure"]
        self.build = content["build"]
        self.tests = {name: Test(name, **test) for name, test in content["tests"].items()}
        self.folders = {name: [self.tests[test] for test in tests] for name, tests in content["folders"].items()}

    def leave_out(self, names):
        for tests in self.folders.values():
            tests[:] = [test for test in tests if test.name not in names]

    def folder_of(self, file):
        return file.split("/", 1)[0]


class Test:
    """A test program and the targets that it is made of."""

    def __init__(self, name, targets, command):
        self.name = name
        self.targets = targets
        self.command = command
        self.usual = None  # how long it takes when nothing is wrong


def tracked(root):
    """The files of a checkout that git knows, as they are now."""
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=root, check=True, capture_output=True).stdout
    names = [os.fsdecode(name) for name in listed.split(b"\0") if name]
    return [name for name in names if os.path.lexists(root / name)]


def hear_signals():
    """Whoever measures in the background may ignore signals; the tests would take that over."""
    for number in (signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


class Workplace:
    def __init__(self, directory, plan, limit):
        self.directory = pathlib.Path(directory).resolve()
        self.plan = plan
        self.limit = limit
        for place in ("/tmp", "/run"):
            if self.directory.is_relative_to(place):
                raise RuntimeError(f"{self.directory}: tests have a {place} of their own; choose another place")

    @property
    def said(self):
        """What the last build or test said."""
        return self.directory / self.plan.build_directory / "said.log"

    def fill(self, root):
        """Makes the tracked files here those of the checkout; what is the same already keeps its time."""
        names = set(tracked(root))
        for path in self.directory.rglob("*"):
            name = str(path.relative_to(self.directory))
            if not path.is_dir() and name not in names and not name.startswith(self.plan.build_directory):
                path.unlink()
        for name in names:
            self._copy(root / name, self.directory / name)

    @staticmethod
    def _copy(source, target):
        if source.is_symlink():
            target.unlink(missing_ok=True)
            target.parent.mkdir(parents=True, exist_ok=True)
            target.symlink_to(os.readlink(source))
        elif not target.is_file() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
        if not source.is_symlink():
            target.chmod(source.stat().st_mode & 0o777)

    def configure(self):
        subprocess.run(self.plan.configure, cwd=self.directory, check=True, stdout=subprocess.DEVNULL)

    def build(self, targets):
        """Whether the targets build."""
        return self._run([*self.plan.build, *targets], AMPLE) == 0

    def put(self, mutant):
        """Makes the change. Returns what stood there before."""
        path = self.directory / mutant.file
        content = path.read_bytes()
        assert content[mutant.offset : mutant.end].decode() == mutant.old
        path.write_bytes(content[: mutant.offset] + mutant.new.encode() + content[mutant.end :])
        return content

    def restore(self, mutant, content):
        (self.directory / mutant.file).write_bytes(content)

    def time(self, test):
        """Runs a test of the unchanged copy and notes how long it takes. Whether it passes."""
        begin = time.monotonic()
        status = self._run(self._confined(test), AMPLE)
        test.usual = time.monotonic() - begin
        return status == 0

    def run(self, test):
        """What a test says: "passed", "failed", or "hung" when it had to be ended."""
        status = self._run(self._confined(test), min(self.limit, 30 + 5 * test.usual))
        return {0: "passed", None: "hung"}.get(status, "failed")

    def _confined(self, test):
        namespaces = ["--mount", "--pid", "--fork", "--kill-child"]
        if os.geteuid() != 0:
            namespaces.append("--map-root-user")
        return ["unshare", *namespaces, "--", "sh", "-c", CONFINE, "sh", str(self.directory), *test.command]

    def _run(self, command, limit):
        """The exit status of a command; None when it took too long."""
        environment = {**os.environ, "PYTHONDONTWRITEBYTECODE": "1", "TMPDIR": "/tmp"}
        with self.said.open("wb") as said:
            process = subprocess.Popen(
                command,
                cwd=self.directory,
                env=environment,
                stdin=subprocess.DEVNULL,
                stdout=said,
                stderr=said,
                start_new_session=True,
                preexec_fn=hear_signals,
            )
        try:
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            status = None
        finally:
            # What has joined no other session ends with it; the rest ended with its namespace.
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
        if status == FAULT:
            raise RuntimeError("the tests cannot be confined: this system refuses namespaces")
        return status
