"""A power cut at any moment of any command that writes: the order of syncs, and what the next run makes of each state that
the cut can leave."""

import re

import pytest

from device import Device
from lasting_files import lasting_tree
from power_cut_commands import COMMANDS
from power_cut_disk import TEMPORARY, Disk
from power_cut_runs import run_states
from power_cut_states import states_of
from power_cut_trace import TRACE, record


@pytest.fixture(params=COMMANDS)
def command(request, tmp_path, binary, package, _packages):
    """A device that is ready for a command, and its arguments."""
    options = ["--server", "--package", str(_packages(("--both",)))] if request.param == "managed-provisioned" else []
    device = Device(tmp_path / "device", binary, *options)
    # The stand-in agent has no part in this, and takes time.
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(re.sub(rb"/opt/Quorvane/orv/bin/agent \w+( \w+)?", b"/bin/true", config.read_bytes()))
    return device, COMMANDS[request.param](device, package)


def test_what_a_power_cut_can_leave_is_a_state_from_which_the_next_run_ends_well(command):
    device, arguments = command
    first = lasting_tree(device.state)
    assert device.run(*arguments, via=TRACE).status == 0
    after = lasting_tree(device.state)
    disk = Disk(first).play(record(device.take("/run/trace")))
    states = states_of(disk)

    assert disk.problems == []
    assert after in [state for _, state in states], "the model follows the run to its end"
    assert first in [state for _, state in states]
    assert len(states) > 20

    trees = [first, after, *(state for _, state in states)]
    (status, _, good), again, *reruns = run_states(device, trees, *arguments)
    assert (status, good) == (0, after)
    # Where all was done, the next run may find nothing to do.
    ends = [(0, after), (again[0], again[2])]
    wrong = []
    for (how, state), (status, output, tree) in zip(states, reruns):
        done = {path: entry for path, entry in state.items() if not TEMPORARY.match(path.rsplit("/", 1)[1])} == after
        if (status, tree) != ends[0] and not (done and (status, tree) == ends[1]):
            paths = sorted(path for path in {*tree, *after} if tree.get(path) != after.get(path))
            wrong.append(f"{how}: status {status}, {paths}, {output!r}")
    if wrong:
        pytest.fail("\n".join([f"{len(wrong)} of {len(states)} states:", *wrong]), pytrace=False)
