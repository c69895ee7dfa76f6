"""Installs keltconfig on a device, from the package of the device's own architecture."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import glob
import os
import re

from ansible.errors import AnsibleError
from ansible_collections.kelt.fleet.plugins.plugin_utils.base import DeviceAction
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import asking_for_packages, installing
from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import excerpt

# What packages call the machines that the kernel names.
ARCHITECTURES = {
    "aarch64": "arm64",
    "armv6l": "armel",
    "armv7l": "armhf",
    "i586": "i386",
    "i686": "i386",
    "ppc": "powerpc",
    "ppc64": "powerpc",
    "x86_64": "amd64",
}
# In the order in which they are taken: what a device has, the package for it, and the command.
WAYS = (
    ("dpkg", "deb", '"$(place_of dpkg)" -i "$package"'),
    ("opkg", "ipk", '"$(place_of opkg)" install "$package"'),
    # The files become root's, whoever made the archive.
    ("tar", "tar.gz", 'tar -xzof "$package" -C /'),
)


class ActionModule(DeviceAction):
    SPEC = dict(directory=dict(type="path", required=True))
    _VALID_ARGS = frozenset(SPEC)

    def work(self, arguments, result):
        directory = self.directory(arguments["directory"])
        frames = self.say(asking_for_packages())
        path, way, command = choose(directory, architecture_of(frames), ways_of(frames))
        wanted, has = version_of(path), argument_of(frames, "version")
        result.update(package=os.path.basename(path), version=has)
        if has == wanted:
            result["msg"] = "keltconfig %s is installed" % has
            return
        result["changed"] = True
        result["diff"] = [{"before": "keltconfig %s\n" % (has or "none"), "after": "keltconfig %s\n" % wanted}]
        if self.check_mode:
            result["msg"] = "would install %s" % os.path.basename(path)
            return
        self.install(path, way, command, wanted, result)

    def install(self, path, way, command, wanted, result):
        with open(path, "rb") as file:
            frames = self.say(installing(os.path.basename(path), file.read(), command))
        status, said = [(argument, text) for name, argument, text in frames if name == "install"][0]
        if status != "0":
            raise AnsibleError("%s ended with status %s: %s" % (way, status, excerpt(said)))
        result["version"] = argument_of(frames, "version")
        if result["version"] != wanted:
            raise AnsibleError("after the installation of %s keltconfig is %s" % (wanted, result["version"] or "missing"))
        result["msg"] = "installed %s" % os.path.basename(path)


def argument_of(frames, wanted):
    return ([argument for name, argument, _text in frames if name == wanted] or [""])[0]


def architecture_of(frames):
    machine = argument_of(frames, "machine")
    return argument_of(frames, "architecture") or ARCHITECTURES.get(machine, machine)


def ways_of(frames):
    return [argument for name, argument, _text in frames if name == "way"]


def choose(directory, architecture, ways):
    """The package for a device, the way in which it is installed, and the command. The first way counts for which there is a package."""
    if not ways:
        raise AnsibleError("the device has none of dpkg, opkg and tar")
    sought = []
    for way, ending, command in WAYS:
        if way not in ways:
            continue
        pattern = "keltconfig_*_%s.%s" % (architecture, ending)
        found = glob.glob(os.path.join(glob.escape(directory), pattern))
        if len(found) > 1:
            raise AnsibleError("%s has several packages %s" % (directory, pattern))
        if found:
            return found[0], way, command
        sought.append(pattern)
    raise AnsibleError("%s has no package for this device: %s" % (directory, " or ".join(sought)))


def version_of(path):
    """4.6.0.2545 of keltconfig_4.6.0.2545-1_powerpc.deb."""
    return re.match(r"keltconfig_([^_-]+)", os.path.basename(path)).group(1)
