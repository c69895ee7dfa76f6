"""What a killed test run, or a killed demo, leaves on the machine: nothing."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

from device import PATIENCE, ROOT

KINDS = ("pid", "net", "mnt", "uts")


def namespaces(process):
    found = set()
    for kind in KINDS:
        try:
            found.add(os.readlink(f"/proc/{process}/ns/{kind}"))
        except OSError:
            pass  # it has ended, or is somebody else's
    return found


def processes():
    return [int(entry) for entry in os.listdir("/proc") if entry.isdigit()]


def descendants(top):
    """The processes that a process has started, and those that they have, and so on."""
    children = {}
    for process in processes():
        try:
            parent = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[1]
        except OSError:
            continue
        children.setdefault(int(parent), []).append(process)
    found, new = [], [top]
    while new:
        new = [child for process in new for child in children.get(process, [])]
        found += new
    return found


def name_of(process):
    try:
        return pathlib.Path(f"/proc/{process}/comm").read_text().strip()
    except OSError:
        return ""


def await_that(condition, run, log):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert run.poll() is None, log.read_text()
        assert time.monotonic() < deadline, log.read_text()
        time.sleep(0.05)


def kill_and_look(run, expected):
    """Kills a process among whose descendants are these programs, and waits until all that it started has ended."""
    started = descendants(run.pid)
    names = {name_of(process) for process in started}
    assert expected <= names, names
    theirs = set().union(*(namespaces(process) for process in started)) - namespaces(os.getpid())
    assert len(theirs) > 6
    run.send_signal(signal.SIGKILL)
    run.wait(PATIENCE)
    deadline = time.monotonic() + PATIENCE
    while left := [name_of(process) for process in processes() if process in started or namespaces(process) & theirs]:
        assert time.monotonic() < deadline, left
        time.sleep(0.05)


@pytest.fixture
def places(tmp_path):
    """A home and a directory for temporary files. Nor does anything come to where else one would put such; whoever else uses the
    machine may put their own there."""
    directories = {name: tmp_path / name for name in ("HOME", "TMPDIR")}
    for directory in directories.values():
        directory.mkdir()
    before = usual_places()
    yield {name: str(path) for name, path in directories.items()}
    assert [path for path in usual_places() - before if re.search("fleet|device0|chromium|ansible|dropbear|lighttpd", path.name)] == []


def usual_places():
    tops = [pathlib.Path(name) for name in ("/mnt", "/media", "/srv", "/dev/shm", "/run", "/tmp", "/var/tmp")]
    return {path for top in tops if top.is_dir() for path in top.iterdir()}


def files_below(directory):
    return [str(path) for path in pathlib.Path(directory).rglob("*")]


@pytest.mark.parametrize("workers", [0, 2])
def test_killed_tests_leave_no_device_no_process_and_no_file(places, tmp_path, binary, workers):
    log, mine = tmp_path / "log", pathlib.Path(places["TMPDIR"])
    base = mine / "base"
    command = ["/usr/bin/python3", "-m", "pytest", "-c", ROOT / "tests/pytest.ini", "--basetemp", base]
    command += [*(["-n", str(workers)] if workers else []), "--binary", binary, ROOT / "tests/fleet/wait_to_be_killed.py"]
    environment = {name: value for name, value in os.environ.items() if not name.startswith("PYTEST_")} | places
    with open(log, "wb") as out, subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=out, env=environment) as run:
        await_that(lambda: list(base.glob("**/device002/opt/Quorvane/happened")), run, log)
        kill_and_look(run, {"dropbear", "ssh", "keltconfig", "chromium", "lighttpd", "sleep"})
    deadline = time.monotonic() + PATIENCE
    while files_below(mine) or files_below(places["HOME"]):
        assert time.monotonic() < deadline, files_below(mine)
        time.sleep(0.05)


def test_a_killed_demo_leaves_no_device_no_process_and_no_file(places, tmp_path, binary):
    """From a copy, and with what is built already."""
    clone, log = tmp_path / "clone", tmp_path / "log"
    for part in ("device", "fleet", "scripts"):
        shutil.copytree(ROOT / part, clone / part)
    tools = tmp_path / "tools"
    tools.mkdir()
    (tools / "cmake").write_text("#!/bin/sh\n")
    (tools / "cmake").chmod(0o755)
    environment = {**places, "PATH": f"{tools}:/usr/bin:/bin", "KELT_BUILD": str(binary.parent)}
    with open(log, "wb") as out, subprocess.Popen([clone / "scripts/demo-fleet"], stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                                  env=environment) as run:
        await_that(lambda: "TASK [kelt.fleet.switch : Switch the agent]" in log.read_text(), run, log)
        kill_and_look(run, {"dropbear", "lighttpd", "ansible-playboo"})
    assert [*files_below(places["TMPDIR"]), *files_below(places["HOME"])] == []
    assert sorted(path.name for path in (clone / "build").iterdir()) == ["demo-fleet"]
