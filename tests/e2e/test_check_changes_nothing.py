"""keltcheck changes nothing: no file, no lock, no log, no command; as root and as another user."""

import os
import re
import time

import pytest

from check import OK, PROBLEM, UNKNOWN, check, environment, found_in, program
from device import INSTALL, KEYSTORE, SCRATCH

# Whatever changes a file system, and what starts a program.
CHANGING = (
    "rename renameat renameat2 unlink unlinkat mkdir mkdirat rmdir link linkat symlink symlinkat mknod mknodat chmod fchmod "
    "fchmodat chown fchown lchown fchownat truncate ftruncate fallocate utime utimes utimensat futimesat setxattr lsetxattr "
    "fsetxattr removexattr lremovexattr fremovexattr mount umount2 sync syncfs fsync fdatasync sendfile copy_file_range "
    "execve execveat flock"
).split()


def times(device):
    """What tells of every file whether it was touched."""
    found = {}
    for top in ("etc/orv.d", "opt/Quorvane", "run"):
        for path in (device.state / top).rglob("*"):
            info = path.lstat()
            found[str(path)] = (info.st_mtime_ns, info.st_ctime_ns, info.st_mode, info.st_uid, info.st_ino, info.st_size)
    return found


def trace(device, *arguments, tmp_path):
    """The system calls of a run, of all its processes."""
    log = tmp_path / "trace"
    done = device.enter("strace", "-f", "-s", "300", "-o", log, program(device), "--json", *arguments)
    found_in(done.stdout, done.returncode)
    calls = []
    for line in log.read_text(errors="replace").splitlines():
        call = re.match(r"\d+ +(\w+)\((.*)", line)
        if call:
            calls.append((call.group(1), call.group(2)))
    return calls


def broken(device, package):
    """A device with something of everything that the tool itself would mend, sweep or remove."""
    device.run("-m", "-d", package(), "-nostart")
    device.path(KEYSTORE).chmod(0o755)
    device.write(SCRATCH + "/etc/.SiteList.xml.kelt-abcdefghijkl", b"")
    device.write(SCRATCH + "/unfinished-work", b"nonsense")
    device.write(INSTALL + "/srpubkey.bin", b"left")
    device.write("/etc/orv.d/FIREWALL1000/config.xml", b"refused")
    device.write(SCRATCH + "/registry.ini", b"a\0b")
    device.forget_calls()


@pytest.mark.parametrize("prepare", [lambda *_: None, broken], ids=["new", "broken"])
def test_a_run_leaves_every_file_as_it_was(device, package, tmp_path, prepare):
    prepare(device, package)
    source = package(to=tmp_path / "source")
    before, touched, given = device.files(), times(device), {path: path.read_bytes() for path in source.iterdir()}
    check(device, "--source", source, "--server", "127.0.0.1:1")
    assert device.files() == before
    assert times(device) == touched
    assert {path: path.read_bytes() for path in source.iterdir()} == given
    assert device.calls() == []


def test_the_system_calls_of_a_run_change_nothing(device, package, tmp_path):
    broken(device, package)
    source = package(to=tmp_path / "source")
    calls = trace(device, "--source", source, tmp_path=tmp_path)
    names = [name for name, _ in calls]
    assert names.count("execve") == 1, "the program itself"
    changing = [(name, rest) for name, rest in calls if name in CHANGING and name != "execve"]
    assert changing == []
    opened = [rest for name, rest in calls if name in ("open", "openat", "openat2", "creat")]
    assert len(opened) > 50
    for rest in opened:
        writing = re.search(r"O_WRONLY|O_RDWR|O_CREAT|O_TRUNC|O_TMPFILE|O_APPEND", rest)
        assert not writing or rest.startswith('AT_FDCWD, "/dev/null", O_RDWR'), rest
    locks = [rest for name, rest in calls if name == "fcntl" and re.search(r"F_(OFD_)?SETLKW?\b", rest)]
    assert locks == []
    written = {rest.split(",")[0] for name, rest in calls if name in ("write", "writev", "pwrite64")}
    assert len(written) == 2, "the report on standard output, and the pipe of the findings"


def test_no_line_is_logged_where_the_tool_would_log(device):
    device.write("/etc/orv.d/ZENTORAGENT3000/config.xml", b"refused")
    check(device, "--source", "/nowhere")
    assert device.log() == []
    assert not device.path(SCRATCH + "/logs").exists()
    assert not device.path("/run/orv-locks").exists()


def test_a_run_does_not_wait_for_the_lock_and_names_who_holds_it(device):
    lock = "/run/orv-locks/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex"
    holder = (
        "import fcntl, struct, sys\n"
        f"file = open('{lock}', 'w')\n"
        "fcntl.fcntl(file, 37, struct.pack('hhqqi4x', fcntl.F_WRLCK, 0, 0, 0, 0))\n"
        "print(flush=True); sys.stdin.read()"
    )
    script = f"""
mkdir -m 700 /run/orv-locks; umask 077; : >{lock}
mkfifo /run/end /run/begun
/usr/bin/python3 -c "$1" </run/end >/run/begun &
exec 3>/run/end; read line </run/begun
"$KELTCHECK" --json"""
    done = device.shell(script, holder, env=environment(device))
    found = found_in(done.stdout, done.returncode)
    assert found.trouble() == {"trace.lock": "warning"}
    assert re.search(r"A run is under way: the lock is held by process \d+ \(python3(\.\d+)?\)\.", found.fact("trace.lock"))


def as_somebody_else(device, *arguments):
    """A run as a user without rights. Without root's own, tests have no second user: then a user namespace gives one
    who is not uid 0, on files that nobody but uid 0 of the device may look at."""
    if os.geteuid() == 0:
        via = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--bounding-set=-all", "--inh-caps=-all"]
    else:
        via = ["unshare", "--user", "--map-user=1000"]
    return check(device, *arguments, via=via)


def test_what_another_user_cannot_see_is_unknown(device, package, tmp_path):
    device.run("-m", "-d", package(), "-nostart")
    # Also where the other user owns everything, as in a namespace of one user.
    device.path(KEYSTORE).chmod(0o700 if os.geteuid() == 0 else 0)
    tmp_path.chmod(0o755)
    for path in tmp_path.parents:
        if path.name.startswith("pytest-"):
            path.chmod(path.stat().st_mode | 0o011)
    found = as_somebody_else(device)
    assert found.state("key.server") == found.state("key.setting") == UNKNOWN
    assert PROBLEM not in found.trouble().values() or os.geteuid() != 0
    if os.geteuid() == 0:
        assert found.verdict == UNKNOWN and found.status == 3
        assert found.state("config.file") == found.state("mode.site-list") == found.state("command.start") == OK
        assert found.report["facts"]["mode"] == "managed"
        assert all(item["remedy"] == "Run keltcheck as root to find it out."
                   for item in found.report["checks"] if item["state"] == UNKNOWN)


def test_where_the_configuration_cannot_be_read_nothing_is_said_of_usual_places(device, package, tmp_path):
    """Which are not those of this device."""
    tmp_path.chmod(0o755)
    for path in tmp_path.parents:
        if path.name.startswith("pytest-"):
            path.chmod(path.stat().st_mode | 0o011)
    device.path("/etc/orv.d").chmod(0o700 if os.geteuid() == 0 else 0)
    found = as_somebody_else(device)
    device.path("/etc/orv.d").chmod(0o755)
    unknown = ("config.directory", "directory.bin", "directory.data", "key.store", "trace.unfinished")
    assert [found.state(name) for name in unknown] == [UNKNOWN] * len(unknown)
    assert found.state("key.server") is None
    assert PROBLEM not in found.trouble().values()
    assert found.status == 3


def looked_at_with(device, injection):
    """A run of which the processes that look are struck at their second look at a file system."""
    script = f'strace -f -qq -o /dev/null -e trace=statfs -e inject=statfs:{injection}:when=2 "$KELTCHECK" --json'
    begun = time.monotonic()
    done = device.shell(script, env=environment(device))
    return found_in(done.stdout, done.returncode), time.monotonic() - begun


def test_a_look_that_comes_to_no_end_is_ended_in_time_and_what_it_found_is_told(device):
    found, seconds = looked_at_with(device, "signal=STOP")
    assert found.fact("run.complete") == "There was no end of the checks from directory.bin on within the time for all."
    assert found.verdict == UNKNOWN and found.status == 3
    assert found.state("config.file") == found.state("command.start") == OK
    assert 10 <= seconds < 60


@pytest.mark.parametrize(("signal", "number"), [("KILL", 9), ("SEGV", 11)])
def test_a_look_that_dies_is_unknown(device, signal, number):
    found, _ = looked_at_with(device, f"signal={signal}")
    assert found.fact("run.complete") == (
        f"There was no end of the checks from directory.bin on: a signal ended the look, {number}."
    )
    assert found.verdict == UNKNOWN and found.status == 3
    assert found.state("config.file") == OK


def test_the_process_that_looks_ends_with_the_one_that_reports(device):
    script = """
strace -f -qq -o /dev/null -e trace=statfs -e inject=statfs:signal=STOP "$KELTCHECK" --json >/dev/null &
until [ "$(pgrep -c -x keltcheck)" = 2 ]; do sleep 0.05; done
kill -KILL $(pgrep -o -x keltcheck)
while pgrep -x keltcheck >/dev/null; do sleep 0.05; done
echo gone"""
    done = device.shell(script, env=environment(device))
    assert done.stdout == b"gone\n"
