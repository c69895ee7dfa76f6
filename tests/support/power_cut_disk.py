"""The disk under a run: a model of what a file system guarantees, on which the record of a run is played.

What the file system guarantees, and no more than that:

- A call that changes names (creation, link, rename, unlink, mkdir) is one change: it is on the disk as a whole or not at all. A
  rename takes away the old name and gives the new one at once; an exchange is one change, too.
- Such a change is on the disk for certain once a descriptor of the directory whose name it gives or takes is synced: for a
  rename from one directory to another, that of the new name. A sync of the file itself is none of its name.
- Before that, any of these changes may be on the disk or lost, in any combination, also the later one without the earlier.
- What was written to a file, and its mode, is on the disk for certain once the file is synced. Before that, each write may be
  lost, cut off in the middle, or be there as zero bytes.
- A name that leads to a file that was made in this run leads to an empty file with the mode of its creation while none of
  its writes is on the disk.
- /run is in memory and is empty after the cut, the locks and the marks there with it.

Not modelled: a disk that forgets what it has confirmed.
"""

import dataclasses
import os
import re

from lasting_files import lasts
from power_cut_trace import bytes_of, number, words

# What the sweep of the next run knows as left over.
TEMPORARY = re.compile(r"^\..*\.kelt-[a-z0-9]+$")


@dataclasses.dataclass
class Node:
    """A file or a directory; `first` is what it holds on the disk without any change of this run."""

    kind: str
    mode: int
    first: object  # bytes of a file, names and nodes of a directory
    made: bool = False  # by the run


@dataclasses.dataclass
class Names:
    """One change of names: (directory, name, node or None) each."""

    given: list
    call: str

    def directories(self):
        return {self.given[-1][0]}


@dataclasses.dataclass
class Data:
    node: int
    change: tuple  # ("write", offset, bytes), ("size", length), ("mode", bits)
    call: str


@dataclasses.dataclass
class Sync:
    node: int
    call: str


def applied(content, change, how):
    """A file's content after a write that is on the disk in one of the ways that it can be."""
    if change[0] == "size":
        return content[: change[1]].ljust(change[1], b"\0")
    offset, data = change[1:]
    if how == "torn":
        data = data[: len(data) // 2]
    if how == "zeros":
        data = bytes(len(data))
    return content[:offset].ljust(offset, b"\0") + data + content[offset + len(data) :]


class Disk:
    """The disk under one run. `problems` has what the run did in a wrong order."""

    def __init__(self, tree):
        self.nodes, self.events, self.problems = [Node("d", 0o755, {})], [], []
        self.live = [{}]  # per node, as the run sees it
        self.descriptors = {}  # number: [node, offset, whether it appends]
        for path, (kind, mode, content) in sorted(tree.items()):
            directory, name = self._parent(path, make=True)
            node = self._new(kind, mode, {} if kind == "d" else content)
            self.nodes[directory].first[name] = self.live[directory][name] = node

    def _new(self, kind, mode, content, made=False):
        self.nodes.append(Node(kind, mode, content, made))
        self.live.append(dict(content) if kind == "d" else content)
        return len(self.nodes) - 1

    def _find(self, path):
        node = 0
        for name in filter(None, path.split("/")):
            if node is None or self.nodes[node].kind != "d":
                return None
            node = self.live[node].get(name)
        return node

    def _parent(self, path, make=False):
        directory, name = os.path.split(os.path.normpath(path))
        if make and self._find(directory) is None:
            parent, last = self._parent(directory, make=True)
            self.nodes[parent].first[last] = self.live[parent][last] = self._new("d", 0o755, {})
        return self._find(directory), name

    # The calls of a run.

    def play(self, calls):
        for call, arguments, result in calls:
            if result >= 0:
                getattr(self, "_" + re.sub(r"(at2?|64)$", "", call), self._unknown)(call, words(arguments), result)
        return self

    def _unknown(self, call, given, _result):
        raise AssertionError(f"{call}({', '.join(given)}) is not modelled")

    def _paths(self, given):
        """The paths among the arguments, absolute. One relative to a descriptor comes after it."""
        paths, directory = [], None
        for word in given:
            if word.startswith('"'):
                paths.append(os.path.normpath(os.path.join(directory or "/", bytes_of(word).decode())))
                directory = None
            elif word.endswith(">"):
                directory = bytes_of(word[word.index("<") :]).decode()
        return paths

    def _open(self, call, given, result):
        flags = set(next(word for word in given if word.startswith("O_")).split("|"))
        (path,) = self._paths(given)
        node = self._find(path)
        if "O_TMPFILE" in flags:
            node = self._new("f", int(given[-1], 8), b"", made=True)
        elif node is None and "O_CREAT" in flags and lasts(path):
            node = self._new("f", int(given[-1], 8), b"", made=True)
            self._name([(*self._parent(path), node)], call)
        elif node is not None and "O_TRUNC" in flags:
            self._change(node, ("size", 0), call)
        self.descriptors[result] = [node, 0, "O_APPEND" in flags]

    _creat = _unknown

    def _close(self, _call, given, _result):
        self.descriptors.pop(number(given[0]), None)

    def _dup(self, _call, given, result):
        if number(given[0]) in self.descriptors:
            self.descriptors[result] = self.descriptors[number(given[0])]

    _dup2 = _dup3 = _dup

    def _fcntl(self, call, given, result):
        if given[1].startswith("F_DUPFD"):
            self._dup(call, given, result)

    def _write(self, call, given, result):
        opened = self.descriptors.get(number(given[0]))
        if opened is None or opened[0] is None:
            return
        node, offset, appends = opened
        at = int(given[3]) if call == "pwrite64" else len(self.live[node]) if appends else offset
        data = bytes_of(given[1])
        assert len(data) >= result and not given[1].endswith("..."), call
        self._change(node, ("write", at, data[:result]), call)
        opened[1] = at + result

    _pwrite = _write

    def _ftruncate(self, call, given, _result):
        node = self.descriptors.get(number(given[0]), [None])[0]
        if node is not None:
            self._change(node, ("size", int(given[1])), call)

    def _fchmod(self, call, given, _result):
        node = self.descriptors.get(number(given[0]), [None])[0] if call == "fchmod" else self._find(self._paths(given)[0])
        if node is not None:
            self._change(node, ("mode", int(given[-1] if call != "fchmodat" else given[2], 8)), call)

    _chmod = _fchmod

    def _fchown(self, _call, _given, _result):
        """To the owner that they have, on a device where everything is root's."""

    def _fsync(self, call, given, _result):
        node = self.descriptors.get(number(given[0]), [None])[0]
        if node is None:
            node = self._find(bytes_of(given[0][given[0].index("<") :]).decode())
        if node is not None:
            self.events.append(Sync(node, call))

    _fdatasync = _fsync

    def _link(self, call, given, _result):
        old, new = self._paths(given)
        behind = re.match(r"/proc/self/fd/(\d+)$", old)
        node = self.descriptors[int(behind[1])][0] if behind else self._find(old)
        if lasts(new):
            self._name([(*self._parent(new), node)], call)

    def _rename(self, call, given, _result):
        old, new = self._paths(given)
        if not lasts(new):
            return
        exchanged = self._find(new) if "RENAME_EXCHANGE" in given[-1] else None
        self._name([(*self._parent(old), exchanged), (*self._parent(new), self._find(old))], call)

    def _unlink(self, call, given, _result):
        (path,) = self._paths(given)
        if lasts(path):
            self._name([(*self._parent(path), None)], call)

    _rmdir = _unlink

    def _mkdir(self, call, given, _result):
        (path,) = self._paths(given)
        if lasts(path):
            self._name([(*self._parent(path), self._new("d", int(given[-1], 8), {}, made=True))], call)

    def _name(self, given, call):
        event = Names(given, f"{call} of {given[-1][1]}")
        self._check_names(event)
        for directory, name, node in given:
            self.live[directory][name] = node
            if node is None:
                del self.live[directory][name]
        self.events.append(event)

    def _change(self, node, change, call):
        if change[0] != "mode":
            self._check_data(node, call)
            self.live[node] = applied(self.live[node], change, "whole")
        self.events.append(Data(node, change, call))

    # The order of syncs.

    def pending(self, upto=None):
        """The changes that no sync has put on the disk."""
        upto = len(self.events) if upto is None else upto
        synced, pending = set(), []
        for event in reversed(self.events[:upto]):
            if isinstance(event, Sync):
                synced.add(event.node)
            elif not synced & (event.directories() if isinstance(event, Names) else {event.node}):
                pending.append(event)
        return pending[::-1]

    def _gives(self, event):
        """The names that a change gives, but for those of temporary files, and of empty files that are made where one is
        missing: nothing is lost with them."""
        if not isinstance(event, Names) or event.call.startswith("open"):
            return []
        return [(directory, name) for directory, name, node in event.given if node is not None and not TEMPORARY.match(name)]

    def _check_names(self, event):
        pending = self.pending()
        given = self._gives(event)
        unsynced = {change.node for change in pending if isinstance(change, Data)}
        for directory, name in given:
            if any(entry[2] in unsynced for entry in event.given if entry[1] == name):
                self.problems.append(f"{event.call} before the file was synced")
            # Files that belong together may take their names together, in one directory.
            for other in pending:
                if any(where != directory for where, _ in self._gives(other)):
                    self.problems.append(f"{event.call} before the directory was synced after {other.call}")
        taken = [name for _, name, node in event.given if node is None and not TEMPORARY.match(name)]
        if taken and not given:
            before = [change.call for change in pending if self._gives(change)]
            if before:
                self.problems.append(f"{event.call} before the directory was synced after {', '.join(before)}")

    def _check_data(self, node, call):
        names = [name for entries in self.live if isinstance(entries, dict) for name, at in entries.items() if at == node]
        if any(not TEMPORARY.match(name) for name in names):
            self.problems.append(f"{call} to {names[0]}, which has its name already")
