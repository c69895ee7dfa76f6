"""One run at a time."""

import pytest

from device import AGENT_CONFIG, INSTALL, LOG, NO_MODE

LOCK = "/run/orv-locks/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex"
VERSION = NO_MODE + b"4.6.0.2545\n"

# A stop command that holds its run, and so the lock, until the file /run/go is there.
HOLD = b"""#!/bin/sh
touch /run/held
until [ -e /run/go ]; do sleep 0.01; done
"""
FIRST = """
"$KELTCONFIG" -stop >/run/first.out & first=$!
until [ -e /run/held ]; do sleep 0.01; done
"""
# The second run waits for the lock: it sleeps, has opened it, and has a handler for SIGALRM (bit 13).
WAITING = """
waits() {
  readlink /proc/$second/fd/* 2>/dev/null | grep -q sync_mutex &&
    grep -Eq '^SigCgt:.*[2367abef][0-9a-f]{3}$' /proc/$second/status && grep -q '^State:.S' /proc/$second/status
}
until waits; do sleep 0.01; done
"""


@pytest.fixture
def held(device):
    """A device whose stop command waits."""
    device.write("/run/hold", HOLD, 0o755)
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"/run/hold")
    return device


def lock_lines(device):
    return [text for _, text in device.log() if "lock" in text]


@pytest.mark.parametrize("option, status, text", [("-version", b"0", VERSION), ("-h", b"1", NO_MODE + b"keltconfig    [")])
def test_a_second_run_waits_for_the_first_whatever_it_is_asked_for(held, option, status, text):
    run = held.shell(
        FIRST
        + """
"$KELTCONFIG" "$1" >/run/second.out & second=$!"""
        + WAITING
        + """
echo "while waiting: $(wc -c </run/second.out) $(ls /run/orv-locks | wc -l)"
touch /run/go
wait $first; echo "first $?"
wait $second; echo "second $?"
ls -A /run/orv-locks""",
        option,
    )
    assert run.stdout == b"while waiting: 0 1\nfirst 0\nsecond " + status + b"\n"
    assert held.read("/run/second.out").startswith(text)
    assert held.read("/run/first.out") == NO_MODE


def test_waiting_costs_no_processor_time(held):
    run = held.shell(
        FIRST
        + """
"$KELTCONFIG" -version >/dev/null & second=$!"""
        + WAITING
        + """
cut -d ' ' -f 14,15 /proc/$second/stat
sleep 0.5
cut -d ' ' -f 14,15 /proc/$second/stat
touch /run/go
wait"""
    )
    user, system, user_later, system_later = map(int, run.stdout.split())
    assert user_later + system_later - user - system <= 1  # hundredths of a second


def test_a_killed_holder_leaves_nothing_stuck(held):
    run = held.shell(
        FIRST
        + """
kill -KILL $first
wait $first; echo "first $?"
timeout 300 "$KELTCONFIG" -version; echo "second $?"
ls -A /run/orv-locks"""
    )
    assert run.stdout == b"first 137\n" + VERSION + b"second 0\n"


def test_the_end_of_the_wait_is_status_17(held):
    run = held.shell(
        FIRST
        + """
"$KELTCONFIG" -start & second=$!"""
        + WAITING
        + """
kill -ALRM $second
wait $second; echo "second $?"
touch /run/go
wait $first; echo "first $?" """
    )
    assert run.stdout == b"second 17\nfirst 0\n"
    assert held.calls() == held.plugins("unload")
    assert lock_lines(held) == ["Unable to acquire lock", "Unable to acquire interprocess lock for keltconfig "]


def test_a_started_service_does_not_hold_the_lock(device):
    run = device.shell(
        f"""
"$KELTCONFIG" -start
{INSTALL}/bin/agent status | head -n 1
timeout 300 "$KELTCONFIG" -version; echo "$?" """
    )
    assert run.stdout == NO_MODE + b"service     running\n" + VERSION + b"0\n"


def test_the_lock_file_is_gone_after_a_run(device):
    assert device.run("-version").status == 0
    assert list(device.path("/run/orv-locks").iterdir()) == []
    assert device.path("/run/orv-locks").stat().st_mode & 0o777 == 0o700


IN_DIRECTORY = "mkdir -m 0700 /run/orv-locks; touch /run/victim; "


@pytest.mark.parametrize(
    "trap, why",
    [
        ("touch /run/orv-locks", "/run/orv-locks: is not a directory"),
        ("mkdir -m 0777 /run/orv-locks", "/run/orv-locks: can be written by others"),
        ("mkdir /run/secret; ln -s /run/secret /run/orv-locks", "/run/orv-locks: is not a directory"),
        (IN_DIRECTORY + f"touch {LOCK}; chmod 0666 {LOCK}", f"{LOCK}: can be opened by others"),
        (IN_DIRECTORY + f"mkdir {LOCK}", f"open {LOCK}: Is a directory"),
        (IN_DIRECTORY + f"ln -s /run/victim {LOCK}", f"open {LOCK}: Too many levels of symbolic links"),
        (IN_DIRECTORY + f"chmod 600 /run/victim; ln /run/victim {LOCK}", f"{LOCK}: has other names"),
    ],
)
def test_a_lock_that_cannot_be_trusted_is_not_taken(device, trap, why):
    run = device.run("-start", before=trap)
    assert run.result() == (b"", b"", 17)
    assert device.calls() == []
    assert lock_lines(device)[-1] == "Unable to acquire interprocess lock for keltconfig "
    assert [text for mark, text in device.log() if mark == "E"] == [why]


def test_a_lock_file_that_a_killed_run_left_is_taken_over(device):
    left_behind = f"mkdir -m 0700 /run/orv-locks; umask 077; touch {LOCK}"
    assert device.run("-version", before=left_behind).result() == (VERSION, b"", 0)
    assert not device.path(LOCK).exists()


def test_many_runs_at_once_all_get_their_turn(device):
    run = device.shell(
        """
for n in 1 2 3 4 5 6 7 8; do "$KELTCONFIG" -CustomProps1 "run $n" >/run/out.$n & done
wait
cat /run/out.* | grep -c 'Unable to find existing mode'
ls -A /run/orv-locks"""
    )
    assert run.stdout == b"8\n"
    assert device.read(INSTALL + "/scratch/CustomProps.xml").count(b"<CustomProps1 ") == 1
    assert not any("lock" in text for _, text in device.log()), device.read(LOG)
