"""What may stand on the disk of a machine after a power cut."""

import dataclasses
import re
import xml.etree.ElementTree

from device import INSTALL, KEY_FILES, SCRATCH
from power_cut_commands import SOURCE
from power_cut_disk import TEMPORARY

LOGS = SCRATCH + "/logs"
PASSWORD = b"zentor 4711"


def pieces_of_secrets(content):
    """What gives a secret key away: pieces of its latter half, of which the public key has nothing, as bytes and as the
    registry has them."""
    pieces = [content[at : at + 16] for at in range(len(content) * 55 // 100, len(content) - 16, 64)]
    return pieces + [piece.hex(",").encode() for piece in pieces]


def secrets_of(*trees):
    """The password, and pieces of every secret key of a device."""
    found = [PASSWORD]
    for tree in trees:
        for path, entry in tree.items():
            if "secret" in path or "seckey" in path:
                found += pieces_of_secrets(entry.content)
    return found


def is_mark(entry):
    return entry.mode == 0o600 and re.fullmatch(rb"work=[a-z-]+\n([a-z-]+=[^\n]+\n)*", entry.content)


def are_properties_so_far(entry, after):
    """A document with some of the values that there are in the end."""
    def values(content):
        return {item.tag: item.get("value") for item in xml.etree.ElementTree.fromstring(content)}

    try:
        return values(entry.content).items() <= values(after.content).items()
    except xml.etree.ElementTree.ParseError:
        return False


@dataclasses.dataclass
class Judge:
    """Knows what each file may be: as before the command, as after it, as after another one of the same. Some are only
    there meanwhile."""

    first: dict
    after: dict
    again: dict
    copied: dict  # name -> contents of what is copied on the way
    secrets: list

    def may_be_meanwhile(self, path, entry):
        directory, name = path.rsplit("/", 1)
        if path == SCRATCH + "/unfinished-work":
            return is_mark(entry)
        if path == SCRATCH + "/CustomProps.xml" and path in self.after:
            return are_properties_so_far(entry, self.after[path])
        if directory == INSTALL and name in KEY_FILES or directory == SOURCE:
            # A copy of a key file, a file that was fetched, or an empty one in the place of a key that is not needed.
            whole = self.copied.get(name.replace("sitelist", "SiteList"), {b""})
            archive = name == "keltconfig_keystemp.zip" and entry.content.startswith(b"PK")
            known = archive or not entry.content or entry.content in whole
            return known and (entry.mode == 0o600 or "seckey" not in name and ".zip" not in name)
        return False

    def is_known(self, path, entry):
        states = (tree.get(path) for tree in (self.first, self.after, self.again))
        return entry in states or TEMPORARY.match(path.rsplit("/", 1)[1]) or self.may_be_meanwhile(path, entry)

    def problems(self, tree):
        for path, entry in tree.items():
            if (path + "/").startswith(LOGS + "/"):
                known = entry.kind == ("d" if path == LOGS else "f")
            else:
                known = self.is_known(path, entry)
            if not known:
                yield f"{path} is neither old nor new: {entry.kind} {entry.mode:o}, {len(entry.content)} bytes"
            if entry.owner != (0, 0):
                yield f"{path} belongs to {entry.owner}"
            if entry.mode & 0o077 and any(secret in entry.content for secret in self.secrets):
                yield f"{path} holds a secret and has mode {entry.mode:o}"
        for path in self.first:
            if path in self.after and path in self.again and path not in tree and not path.endswith("/CustomProps.xml"):
                yield f"{path} is gone"


def lasting(tree):
    """Without what no run goes by."""
    return {path: entry for path, entry in tree.items() if not (path + "/").startswith(LOGS + "/")}
