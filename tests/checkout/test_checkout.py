"""Nothing that a test does reaches the checkout that it runs in, and nothing of it goes on when it was killed."""

import os
import pathlib
import signal
import subprocess
import time

import pytest

from device import PATIENCE

HERE = pathlib.Path(__file__).resolve().parent


@pytest.mark.parametrize("place", ["/tmp/clone", "/run/user/clone", "/opt/Quorvane/clone", "/home/somebody/a clone"])
def test_a_checkout_is_as_before_when_tests_have_run_in_it(place, program, binary):
    enter = ["unshare", "--mount", *([] if os.geteuid() == 0 else ["--map-root-user"]), "--"]
    clone = ["/usr/bin/python3", HERE / "clone.py", place, program, binary]
    done = subprocess.run([*enter, *clone], capture_output=True, text=True, check=False, timeout=PATIENCE * 4)
    assert done.returncode == 0, done.stdout + done.stderr


def processes_with(variable):
    """Those whose environment has this assignment."""
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            environment = pathlib.Path(f"/proc/{entry}/environ").read_bytes()
        except OSError:
            continue  # it has ended, or is somebody else's
        if os.fsencode(variable) in environment.split(b"\0"):
            found.append(entry)
    return found


def test_a_killed_test_program_leaves_no_process(program):
    name, value = "KELT_TEST_RUN", str(os.getpid())
    # A test whose children work until they are told to stop.
    command = [program, "--gtest_filter=ReplaceFile.FinishesBeforeASignalEndsTheRun", "--gtest_repeat=-1"]
    with subprocess.Popen(command, env={**os.environ, name: value}, stdout=subprocess.PIPE) as run:
        for line in run.stdout:
            if b"[       OK ]" in line:
                break
        assert len(processes_with(f"{name}={value}")) > 2
        run.send_signal(signal.SIGKILL)
        run.wait(PATIENCE)
        deadline = time.monotonic() + PATIENCE
        while processes_with(f"{name}={value}"):
            assert time.monotonic() < deadline
            time.sleep(0.01)
