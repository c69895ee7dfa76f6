"""Brings a device to each of the states that a power cut can leave, and runs a command there: the next run after the cut.

Started as a program on the private device, it does that; `run_states` starts it there.
"""

import json
import os
import pathlib
import subprocess
import sys

from lasting_files import lasting_tree


def bring_to(wanted):
    """Makes what lasts this tree."""
    there = lasting_tree()
    for path in sorted(there, reverse=True):
        if path not in wanted:
            os.rmdir(path) if there[path][0] == "d" else os.unlink(path)
    for path, (kind, mode, content) in sorted(wanted.items()):
        if there.get(path) == (kind, mode, content):
            continue
        if kind == "d":
            os.makedirs(path, exist_ok=True)
        else:
            pathlib.Path(path).write_bytes(content)
        os.chmod(path, mode)


def forget_memory():
    """What is in memory is gone after a power cut."""
    locks = pathlib.Path("/run/orv-locks")
    for path in locks.glob("*"):
        path.unlink()
    if locks.exists():
        locks.rmdir()


def packed(tree):
    return {path: [kind, mode, content.hex()] for path, (kind, mode, content) in tree.items()}


def unpacked(tree):
    return {path: (kind, mode, bytes.fromhex(content)) for path, (kind, mode, content) in tree.items()}


def run_all(states, command):
    """The command on each state: its status and what it has made of it."""
    results = []
    for state in states:
        bring_to(unpacked(state))
        forget_memory()
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=300)
        results.append([done.returncode, done.stdout.hex(), packed(lasting_tree())])
    return results


def run_states(device, states, *arguments):
    """(status, output, tree) of the command on each of these states, run on the device one after the other."""
    device.write("/run/states", json.dumps([packed(state) for state in states]).encode())
    script = 'exec /usr/bin/python3 -B "$0" /run/states "$KELTCONFIG" "$@"'
    done = device.enter("sh", "-c", script, __file__, *arguments, timeout=3600)
    assert (done.stderr, done.returncode) == (b"", 0)
    return [(status, bytes.fromhex(out), unpacked(tree)) for status, out, tree in json.loads(done.stdout)]


if __name__ == "__main__":
    with open(sys.argv[1], encoding="ascii") as file:
        json.dump(run_all(json.load(file), sys.argv[2:]), sys.stdout)
