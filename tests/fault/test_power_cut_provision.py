"""What was fetched is on the disk before it has its name: a power cut leaves no empty key file."""

import os.path
import re

from device import KEY_FILES, Device
from test_power_cut import calls

# The arguments of a call that takes names: each may come after the directory that it is relative to.
NAME = re.compile(r'(?:(?:AT_FDCWD|\d+)(?:<([^>]*)>)?, )?"([^"]*)"')
OF_DESCRIPTOR = re.compile(r"/proc/self/fd/(\d+)")


def names(arguments):
    return [os.path.join(directory, name) for directory, name in NAME.findall(arguments)]


def descriptor(arguments):
    """The number and the path of the descriptor that a call is about."""
    found = re.match(r"(\d+)<([^>]*)>", arguments)
    return found.groups() if found else (None, None)


class Disk:
    """Which files are on the disk, as a trace tells it: by descriptor and by name."""

    def __init__(self):
        self.synced = set()
        self.linked = {}  # descriptor: the names that the file behind it got while it was open
        self.named = {}  # name: whether the file was on the disk when it got it

    def see(self, name, arguments, result):
        if result == "-1":
            return
        if name == "openat":
            self.synced.discard(result)
            self.linked.pop(result, None)
        elif name == "write":
            self.synced -= set(descriptor(arguments))
        elif name in ("fsync", "fdatasync"):
            self.synced |= {*descriptor(arguments), *self.linked.get(descriptor(arguments)[0], [])}
        elif name.startswith(("rename", "link")):
            old, new = names(arguments)[:2]
            by_descriptor = OF_DESCRIPTOR.search(old)
            if by_descriptor:
                self.linked.setdefault(by_descriptor[1], []).append(new)
            self.named[new] = (by_descriptor[1] if by_descriptor else old) in self.synced
            if self.named[new]:
                self.synced.add(new)


def test_every_fetched_file_is_on_the_disk_before_it_takes_its_name(tmp_path, binary, _packages):
    served = Device(tmp_path / "device", binary, "--server", "--package", str(_packages(("--both",))))
    disk = Disk()
    run = served.run(
        *("-m", "-d", "/run/keys", "-z", "-e", "127.0.0.1", "-U", "admin", "-P", "zentor 4711"),
        before="mkdir /run/keys",
        via="strace -y -s 256 -o /run/trace",
    )
    assert run.status == 0
    for call in calls(served.take("/run/trace")):
        disk.see(*call)
    fetched = ["keltconfig_keystemp.zip", "sitelist.xml", "SiteList.xml", *KEY_FILES]
    assert {name: disk.named.get("/run/keys/" + name) for name in fetched} == dict.fromkeys(fetched, True)
