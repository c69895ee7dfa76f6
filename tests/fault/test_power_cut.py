"""What a power cut can undo is only what no sync has put on the disk: the order of the calls that make a change last."""

import re

from device import AGENT_CONFIG, KEYSTORE, SITE_LIST

CALL = re.compile(r"^(\w+)\((.*)\)\s+= (-?\d+)")


def calls(trace):
    """(name, arguments, result) of every call of a trace, descriptors with their paths."""
    return [match.groups() for match in map(CALL.match, trace.decode(errors="replace").splitlines()) if match]


def last_index(entries, upto, name, text):
    """Where the last call of that name whose arguments hold `text` stands before `upto`; -1 when there is none."""
    return max((i for i in range(upto) if entries[i][0] == name and text in entries[i][1]), default=-1)


def last_call(entries, upto, name, descriptor):
    """The same for a call whose first argument is `descriptor`."""
    return max((i for i in range(upto) if entries[i][0] == name and entries[i][1].startswith(descriptor)), default=-1)


def descriptor_of(entries, upto, temporary):
    """The descriptor through which the file was written that has the name `temporary` at that point, as strace shows it."""
    for name, arguments, result in reversed(entries[:upto]):
        if temporary in arguments and result != "-1":
            if name == "linkat":
                return re.search(r"/proc/self/fd/(\d+)", arguments)[1]
            if name == "openat" and "O_EXCL" in arguments:
                return result
    raise AssertionError(temporary)


def test_every_file_is_on_the_disk_before_it_takes_its_name_and_the_name_before_the_run_goes_on(device, package):
    run = device.run("-m", "-d", package(), via="strace -y -s 256 -o /run/trace")
    assert run.status == 0
    entries = calls(device.take("/run/trace"))
    replaced = []
    for index, (name, arguments, result) in enumerate(entries):
        if not name.startswith("rename") or result != "0":
            continue
        temporary, target = re.findall(r'"([^"]*)"', arguments)[:2]
        descriptor = descriptor_of(entries, index, temporary.rsplit("/", 1)[-1]) + "<"
        replaced.append(target.rsplit("/", 1)[-1])
        opened = last_index(entries, index, "openat", "O_TMPFILE")
        written = last_call(entries, index, "write", descriptor)
        synced = last_call(entries, index, "fsync", descriptor)
        assert synced > max(written, opened), target
        following = [(n, a) for n, a, _ in entries[index + 1 :]]
        directory_sync = next(i for i, (n, a) in enumerate(following) if n == "fsync")
        assert not any(n.startswith("rename") or n == "unlink" for n, _ in following[:directory_sync]), target
    for name in (AGENT_CONFIG, SITE_LIST, KEYSTORE + "/server-public.der", KEYSTORE + "/keyconf.ini"):
        assert name.rsplit("/", 1)[-1] in replaced
