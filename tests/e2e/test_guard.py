"""A run that dies while the agent is stopped leaves it running: a guard starts it, once."""

import shlex

import pytest

from device import AGENT_CONFIG, START, STOP

AGENT = "/opt/Quorvane/orv/bin/agent"
MARKS = "/run/orv-locks"
# Waits for what has to come, far longer than a loaded machine takes.
AWAIT = """
await() { tries=0; until "$@"; do tries=$((tries + 1)); [ $tries -lt 1200 ] || return 1; sleep 0.1; done; }
quiet() { ! pgrep -x keltconfig >/dev/null; }
"""


def stop_with(device, script):
    """Makes `script` the agent's stop command; the tool is $PPID there."""
    device.write("/run/stop.sh", b"#!/bin/sh\n" + script.encode(), 0o755)
    device.edit(AGENT_CONFIG, f"{AGENT} stop".encode(), b"/run/stop.sh")


def run_until_quiet(device, *commands):
    """Runs shell lines, then waits until neither the tool nor its guard runs any more. What is left in the directory of
    the lock."""
    done = device.shell(AWAIT + "\n".join(commands) + "\nawait quiet; ls -A " + MARKS, timeout=300)
    assert done.returncode == 0
    return done.stdout.decode().split()


def killed_while_stopped(device):
    stop_with(device, f"{AGENT} stop\nkill -KILL $PPID\n")


@pytest.mark.parametrize("command", ["-u", "-k"])
def test_a_run_that_is_killed_while_the_agent_is_stopped_has_it_started_once(device, command):
    killed_while_stopped(device)
    left = run_until_quiet(device, f'"$KELTCONFIG" {command} >/dev/null')
    assert device.calls() == device.stopping() + device.starting()
    assert left == []
    assert ("E", "A run ended before it started the agent again, which is started now.") in device.log()


@pytest.mark.parametrize("command", ["-u", "-k"])
def test_a_stop_that_outlives_its_run_ends_before_the_start(device, command):
    stop_with(device, f"kill -KILL $PPID\nsleep 1\n{AGENT} stop\n")
    left = run_until_quiet(device, f'"$KELTCONFIG" {command} >/dev/null')
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_an_unloading_that_outlives_its_run_ends_before_the_loading(device):
    device.write("/run/unload.sh", f"#!/bin/sh\nkill -KILL $PPID\nsleep 1\n{AGENT} unload \"$1\"\n".encode(), 0o755)
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(config.read_bytes().replace(f"{AGENT} unload".encode(), b"/run/unload.sh"))
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null')
    assert device.calls() == device.stopping()[:1] + device.starting()[1:]
    assert left == []


@pytest.mark.parametrize("arguments", ["-start", "-stop", "-u"])
def test_a_stop_that_outlives_run_and_guard_ends_before_the_next_run_begins(device, arguments):
    stop_with(device, f"if mkdir /run/killed 2>/dev/null; then pkill -KILL -x keltconfig; sleep 1; fi\n{AGENT} stop\n")
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null', f'"$KELTCONFIG" {arguments} >/dev/null')
    then = {"-start": device.starting(), "-stop": device.stopping(), "-u": device.stopping() + device.starting()}
    assert device.calls() == device.stopping() + then[arguments]
    assert left == []


def test_a_stop_that_hangs_is_waited_for_five_minutes_and_no_longer(device):
    # A process that never ends takes the place of the stop; the pauses are counted, and not taken.
    sign = "import struct, sys; sys.stdout.buffer.write(struct.pack('=qq', int(sys.argv[1]), 1 << 40))"
    left = run_until_quiet(
        device,
        f"mkdir -m 700 {MARKS}; sleep 100000 & /usr/bin/python3 -c {shlex.quote(sign)} $! >{MARKS}/agent-stopped",
        "strace -o /run/trace -e trace=clock_nanosleep -e inject=clock_nanosleep:retval=0 "
        '"$KELTCONFIG" -start >/dev/null',
        "kill $!",
    )
    pauses = [line for line in device.take("/run/trace").decode().splitlines() if "tv_nsec=20000000" in line]
    assert len(pauses) * 0.02 == 300
    assert device.calls() == device.starting()
    assert left == []


def test_it_is_started_after_a_kill_of_the_whole_process_group_too(device):
    stop_with(device, f"{AGENT} stop\nkill -KILL -$PPID\n")
    run_until_quiet(device, 'setsid -w "$KELTCONFIG" -u >/dev/null')
    assert device.calls() == device.stopping() + device.starting()


def test_a_run_that_ends_well_leaves_no_guard_and_no_mark(device):
    assert run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null') == []
    assert device.calls() == device.stopping() + device.starting()


def test_an_agent_that_is_to_stay_stopped_has_no_guard(device):
    killed_while_stopped(device)
    left = run_until_quiet(device, '"$KELTCONFIG" -u -nostart >/dev/null')
    assert device.calls() == device.stopping()
    assert [name for name in left if "sync_mutex" not in name] == []


def test_a_run_that_is_killed_before_the_stop_starts_nothing(device):
    device.write("/run/unload.sh", b"#!/bin/sh\nkill -KILL $PPID\n", 0o755)
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(config.read_bytes().replace(f"{AGENT} unload".encode(), b"/run/unload.sh"))
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null')
    assert START not in device.calls() and STOP not in device.calls()
    assert device.calls() == device.starting()[1:], "the plug-ins are loaded again"
    assert left == []


def test_a_guard_that_is_killed_with_its_run_leaves_the_mark_and_a_start_takes_it_away(device):
    stop_with(device, f"{AGENT} stop\npkill -KILL -x keltconfig\n")
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null')
    assert device.calls() == device.stopping()
    assert "agent-stopped" in left and "plug-ins-unloaded" in left
    device.forget_calls()
    left = run_until_quiet(device, '"$KELTCONFIG" -start >/dev/null')
    assert device.calls() == device.starting()
    assert left == []


def test_a_stop_that_is_meant_to_last_takes_the_marks_away(device):
    for mark in ("agent-stopped", "plug-ins-unloaded"):
        device.write(f"{MARKS}/{mark}", b"", 0o600)
    device.path(MARKS).chmod(0o700)
    assert run_until_quiet(device, '"$KELTCONFIG" -stop >/dev/null') == []
    assert device.calls() == device.stopping()


def test_a_run_beside_the_killed_one_and_the_guard_start_the_agent_after_each_stop(device):
    stop_with(device, f"{AGENT} stop\nif mkdir /run/killed 2>/dev/null; then kill -KILL $PPID; fi\n")
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null & "$KELTCONFIG" -u >/dev/null; wait')
    calls = [call for call in device.calls() if call in (START, STOP)]
    assert calls in ([STOP, START, STOP, START], [STOP, STOP, START])
    assert left == []


def test_nobody_waits_for_the_guard(device):
    killed_while_stopped(device)
    # The shell reads until nobody has the output open any more, and the guard is held up meanwhile by a slow start.
    device.write("/run/start.sh", f"#!/bin/sh\nuntil [ -e /run/read ]; do sleep 0.1; done\n{AGENT} start\n".encode(), 0o755)
    device.edit(AGENT_CONFIG, f"{AGENT} start".encode(), b"/run/start.sh")
    left = run_until_quiet(device, 'output=$("$KELTCONFIG" -u; echo ended)', "touch /run/read", 'echo "$output" | tail -n 1')
    assert left == ["ended"]
    assert device.calls() == device.stopping() + device.starting()


def full_table(forks):
    """Runs a program for which the process table is full at those of its forks, as strace counts them: the guard's comes
    first, then those of the unload commands, of the stop, and of the start. Its pauses end at once."""
    calls = "clone,clone3,fork,vfork"
    pauses = "nanosleep,clock_nanosleep"
    inject = f"-e inject={calls}:error=EAGAIN:when={forks} -e inject={pauses}:retval=0"
    return f"strace -qq -o /run/trace -e trace={calls},{pauses} {inject}"


def refused(device):
    return device.read("/run/trace").count(b"EAGAIN (Resource temporarily unavailable) (INJECTED)")


NO_GUARD = ("E", "No guard starts the agent should this run die: start a guard: Resource temporarily unavailable")
NO_PROCESS = ("E", "The system has no process for a command of the agent; trying again.")
STARTED_NOW = ("E", "A run ended before it started the agent again, which is started now.")


def test_a_full_process_table_lets_a_run_go_on_without_a_guard(device):
    left = run_until_quiet(device, full_table("1..3") + ' "$KELTCONFIG" -u >/dev/null && echo done >/run/done')
    assert device.read("/run/done") == b"done\n"
    assert refused(device) == 3
    assert device.log().count(NO_GUARD) == 1
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_a_guard_for_which_there_is_no_process_at_first_is_made_all_the_same(device):
    killed_while_stopped(device)
    run_until_quiet(device, full_table("1..2") + ' "$KELTCONFIG" -u >/dev/null')
    assert refused(device) == 2
    assert NO_GUARD not in device.log() and STARTED_NOW in device.log()
    assert device.calls() == device.stopping() + device.starting()


def test_a_start_for_which_there_is_no_process_is_tried_again(device):
    forks = len(device.stopping()) + 2
    left = run_until_quiet(device, full_table(f"{forks}..{forks + 19}") + ' "$KELTCONFIG" -u >/dev/null')
    assert refused(device) == 20
    assert NO_GUARD not in device.log() and device.log().count(NO_PROCESS) == 1
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_a_stop_for_which_there_is_no_process_is_tried_again(device):
    forks = len(device.stopping()) + 1
    left = run_until_quiet(device, full_table(f"{forks}..{forks + 19}") + ' "$KELTCONFIG" -u >/dev/null')
    assert refused(device) == 20
    assert device.log().count(NO_PROCESS) == 1
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_a_start_for_which_there_is_never_a_process_is_left_to_the_guard(device):
    forks = len(device.stopping()) + 2
    left = run_until_quiet(device, full_table(f"{forks}+") + ' "$KELTCONFIG" -u >/dev/null')
    assert NO_GUARD not in device.log() and NO_PROCESS in device.log() and STARTED_NOW in device.log()
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_a_guard_that_has_no_process_for_the_start_tries_again(device):
    # The tracer comes to the guard while that waits, and only then the tool is killed.
    stop_with(
        device,
        f"{AGENT} stop\nguard=$(pgrep -x keltconfig | grep -vx $PPID)\n"
        + full_table("1..20")
        + " -p $guard &\nuntil grep -q 'TracerPid:[[:space:]]*[1-9]' /proc/$guard/status; do sleep 0.1; done\nkill -KILL $PPID\n",
    )
    traced = "traced() { ! pgrep -x strace >/dev/null; }"
    left = run_until_quiet(device, '"$KELTCONFIG" -u >/dev/null', traced, "await traced")
    assert refused(device) == 20
    assert device.log().count(NO_PROCESS) == 1 and STARTED_NOW in device.log()
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_an_agent_that_no_process_could_stop_runs_on_and_is_owed_nothing(device):
    left = run_until_quiet(device, full_table("1+") + ' "$KELTCONFIG" -u >/dev/null')
    assert NO_GUARD in device.log()
    assert (device.calls(), left) == ([], [])


def refused_once(call, mark):
    """Runs a program in which, per process, the first call of this name that concerns the mark is refused."""
    return f"strace -f -b execve -qq -o /run/trace -P {MARKS}/{mark} -e trace={call} -e inject={call}:error=EIO:when=1"


def test_a_mark_that_the_system_refuses_for_once_is_made_all_the_same(device):
    killed_while_stopped(device)
    left = run_until_quiet(device, refused_once("openat", "agent-stopped") + ' "$KELTCONFIG" -u >/dev/null')
    assert b"EIO (Input/output error) (INJECTED)" in device.read("/run/trace")
    assert device.calls() == device.stopping() + device.starting()
    assert left == []


def test_an_agent_whose_mark_the_system_refuses_to_remove_for_once_is_started_once(device):
    left = run_until_quiet(device, refused_once("unlink", "agent-stopped") + ' "$KELTCONFIG" -u >/dev/null')
    assert b"EIO (Input/output error) (INJECTED)" in device.read("/run/trace")
    assert device.calls() == device.stopping() + device.starting()
    assert left == []
