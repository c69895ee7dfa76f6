"""The private device itself: what the other tests rely on."""

import os
import pathlib
import subprocess
import sys
import time

import pytest

from device import PATIENCE

ENTER = pathlib.Path(__file__).resolve().parents[2] / "device/enter"


def enter(*arguments, **options):
    return subprocess.run([ENTER, *arguments], capture_output=True, timeout=PATIENCE, **options)


def machine():
    return [sorted(os.listdir(directory)) for directory in ("/etc", "/opt", "/run")]


def test_the_machine_stays_as_it_is():
    before = machine()
    script = "touch /etc/orv.d/a /opt/Quorvane/b /run/c /etc/d /opt/e && mkdir /run/orv-locks && ls /etc/passwd"
    assert enter("sh", "-c", script).returncode == 0
    assert machine() == before


def test_the_command_is_root_on_a_device_of_its_own():
    script = "id -u; stat -c '%u %a %n' /etc/orv.d /opt/Quorvane /run; ls /run; test -r /etc/passwd"
    done = enter("sh", "-c", script, cwd="/")
    if ENTER.parts[1] == "run":  # the checkout is there
        assert done.stdout.endswith(b"/run\n%s\n" % os.fsencode(ENTER.parts[2]))
        done.stdout = done.stdout[: -len(ENTER.parts[2]) - 1]
    assert done.stdout == b"0\n0 755 /etc/orv.d\n0 755 /opt/Quorvane\n0 755 /run\n"
    assert (done.stderr, done.returncode) == (b"", 0)


@pytest.mark.parametrize("script, status", [("exit 7", 7), ("kill -TERM $$", 143), ("kill -KILL $$", 137)])
def test_the_status_is_that_of_the_command(script, status):
    done = enter("sh", "-c", script)
    assert (done.stdout, done.stderr, done.returncode) == (b"", b"", status)


def test_standard_input_reaches_the_command():
    assert enter("cat", input=b"text\0\n").stdout == b"text\0\n"


def test_nothing_is_left_running():
    seconds = 98765 + os.getpid()  # other tests of the kind may run on this machine
    done = enter("sh", "-c", f"sleep {seconds} >/dev/null 2>&1 & echo started")
    assert done.stdout == b"started\n"
    assert subprocess.run(["pgrep", "-f", f"^sleep {seconds}$"], check=False).returncode == 1


def test_a_state_directory_is_found_again(tmp_path):
    state = tmp_path / "a device"
    enter("--state", state, "sh", "-c", "echo kept >/etc/orv.d/file; echo kept >/run/file; mkdir /opt/Quorvane/new")
    done = enter("--state", state, "cat", "/etc/orv.d/file", "/run/file")
    assert done.stdout == b"kept\nkept\n"
    assert (state / "opt/Quorvane/new").is_dir()
    assert sorted(path.name for path in (state / "run").iterdir()) == ["file"]


def running_with(word):
    """Processes that have a word in their command lines."""
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            line = pathlib.Path(f"/proc/{entry}/cmdline").read_bytes()
        except OSError:
            continue  # it has ended
        if word in line.split(b"\0"):
            found.append(entry)
    return found


def comes_true(so):
    deadline = time.monotonic() + PATIENCE
    while not so():
        assert time.monotonic() < deadline
        time.sleep(0.01)


def test_what_runs_for_a_test_ends_with_the_tests(device):
    word = f"of test run {os.getpid()}"
    command = device.command("sh", "-c", "touch /run/runs; while :; do sleep 1; done", "sh", word)
    test = [sys.executable, "-c", "import subprocess, sys; subprocess.run(sys.argv[1:])", *command]
    with subprocess.Popen(test) as tests:
        comes_true(device.path("/run/runs").exists)
        assert len(running_with(word.encode())) > 2
        tests.kill()
        comes_true(lambda: not running_with(word.encode()))


def test_a_sealed_device_changes_nothing_but_one_directory(tmp_path):
    inside, outside = tmp_path / "in side", tmp_path / "outside"
    inside.mkdir()
    outside.mkdir()
    script = """
for directory in "$1" "$2" "$3" /usr /etc/.machine /run /etc/orv.d /opt/Quorvane; do
  touch "$directory/made" 2>/dev/null || echo "$directory"
done"""
    done = enter("--sealed", inside, "--", "sh", "-c", script, "sh", inside, outside, ENTER.parent)
    assert done.stdout.decode().splitlines() == [str(outside), str(ENTER.parent), "/usr", "/etc/.machine"]
    assert (done.stderr, done.returncode) == (b"", 0)
    assert ((inside / "made").exists(), (outside / "made").exists()) == (True, False)


def test_nothing_runs_on_half_a_device(tmp_path):
    # One of the mounts fails.
    trace = tmp_path / "ran"
    command = [ENTER, "--state", tmp_path / "state", "--", "touch", trace]
    broken = {**os.environ, "PATH": f"{tmp_path}/bin:{os.environ['PATH']}"}
    wrapper = tmp_path / "bin/mount"
    wrapper.parent.mkdir()
    wrapper.write_text('#!/bin/sh\ncase $* in *--bind*/opt/Quorvane) exit 32 ;; esac\nexec /bin/mount "$@"\n')
    wrapper.chmod(0o755)
    done = subprocess.run(command, capture_output=True, timeout=PATIENCE, env=broken, check=False)
    assert done.stderr.startswith(b"device/enter: cannot make the private device")
    assert (done.stdout, done.returncode, trace.exists()) == (b"", 125, False)


def test_the_command_starts_where_it_was_called(tmp_path):
    assert enter("pwd", cwd=tmp_path).stdout.decode() == f"{tmp_path}\n"
