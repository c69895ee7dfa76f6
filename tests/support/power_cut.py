"""What a power cut can leave of a run, and what the next run makes of it.

The record of a run is what strace saw of its calls that change files (`record`). Played on a model of the disk, it gives every
state that a power cut can leave (`Disk.states`); what the tool makes of each is found out by running it (this file, started as
a program on the private device).

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
import itertools
import json
import os
import pathlib
import re
import stat
import subprocess
import sys

# What of a device lasts. The log is none of it: it is written without syncs, and no run reads it.
TOPS = ("/etc/orv.d", "/opt/Quorvane")
LOGS = "/opt/Quorvane/orv/scratch/logs"
# What the sweep of the next run knows as left over.
TEMPORARY = re.compile(r"^\..*\.kelt-[a-z0-9]+$")

CALLS = "open openat creat close dup dup2 dup3 fcntl write writev pwrite64 pwritev ftruncate truncate fallocate sendfile"
CALLS += " copy_file_range splice fsync fdatasync sync syncfs rename renameat renameat2 link linkat symlink symlinkat unlink"
CALLS += " unlinkat rmdir mkdir mkdirat mknod mknodat chmod fchmod fchmodat chown fchown lchown fchownat"
TRACE = f"strace -y -xx -s 1000000 -o /run/trace -e trace={CALLS.replace(' ', ',')}"

LINE = re.compile(r"^(\w+)\((.*)\)\s+= (-?\d+)")
WORD = re.compile(r'\s*("(?:[^"]*)"(?:\.\.\.)?|[^,\[{]+|\[[^\]]*\]|\{[^}]*\})\s*(?:,|$)')
ESCAPE = re.compile(r"\\x([0-9a-f]{2})")


def bytes_of(text):
    """What strace shows as \\xNN, each byte of it."""
    return bytes(int(digits, 16) for digits in ESCAPE.findall(text))


def words(arguments):
    """The arguments of a call, as strace shows them."""
    return WORD.findall(arguments)


def number(word):
    """A descriptor, which strace shows with the path behind it."""
    return int(word.split("<")[0])


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

    def _lasting(self, path):
        return path.startswith(tuple(top + "/" for top in TOPS)) and not (path + "/").startswith(LOGS + "/")

    def _open(self, call, given, result):
        flags = set(next(word for word in given if word.startswith("O_")).split("|"))
        (path,) = self._paths(given)
        node = self._find(path)
        if "O_TMPFILE" in flags:
            node = self._new("f", int(given[-1], 8), b"", made=True)
        elif node is None and "O_CREAT" in flags and self._lasting(path):
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
        if self._lasting(new):
            self._name([(*self._parent(new), node)], call)

    def _rename(self, call, given, _result):
        old, new = self._paths(given)
        if not self._lasting(new):
            return
        exchanged = self._find(new) if "RENAME_EXCHANGE" in given[-1] else None
        self._name([(*self._parent(old), exchanged), (*self._parent(new), self._find(old))], call)

    def _unlink(self, call, given, _result):
        (path,) = self._paths(given)
        if self._lasting(path):
            self._name([(*self._parent(path), None)], call)

    _rmdir = _unlink

    def _mkdir(self, call, given, _result):
        (path,) = self._paths(given)
        if self._lasting(path):
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

    def _pending(self, upto=None):
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
        pending = self._pending()
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

    # What a cut can leave.

    def _named(self, upto):
        """The files that have a name other than a temporary one."""
        names = {(directory, name): node for directory, n in enumerate(self.nodes) if n.kind == "d" for name, node in n.first.items()}
        for event in self.events[:upto]:
            for directory, name, node in event.given if isinstance(event, Names) else ():
                names[directory, name] = node
        return {node for (_, name), node in names.items() if not TEMPORARY.match(name)}

    def _choices(self, pending, named):
        """Ways, one per pending change, in which they may be on the disk: all; none; each lost or spoilt alone; each there
        alone; and where they are few, every combination. What stands in a file that is swept is of no account."""
        spoilt = [isinstance(c, Data) and c.change[0] == "write" and c.node in named for c in pending]
        ways = [("whole", "lost") + (("torn", "zeros") if spoils else ()) for spoils in spoilt]
        if len(pending) <= 5:
            yield from itertools.product(*ways)
            return
        for rest in ("whole", "lost"):
            yield (rest,) * len(pending)
            for index, own in enumerate(ways):
                for way in own:
                    yield (rest,) * index + (way,) + (rest,) * (len(pending) - index - 1)

    def _state(self, upto, pending, choice):
        names = {node: dict(n.first) for node, n in enumerate(self.nodes) if n.kind == "d"}
        files = {node: n.first for node, n in enumerate(self.nodes) if n.kind == "f"}
        modes = {node: n.mode for node, n in enumerate(self.nodes)}
        chosen = {id(event): way for event, way in zip(pending, choice)}
        for event in self.events[:upto]:
            way = chosen.get(id(event), "whole")
            if isinstance(event, Sync) or way == "lost":
                continue
            if isinstance(event, Names):
                for directory, name, node in event.given:
                    names[directory].pop(name, None) if node is None else names[directory].update({name: node})
            elif event.change[0] == "mode":
                modes[event.node] = event.change[1]
            else:
                files[event.node] = applied(files[event.node], event.change, way)
        tree = {}

        def walk(path, directory):
            for name, node in names[directory].items():
                kind = self.nodes[node].kind
                tree[f"{path}/{name}"] = (kind, modes[node], files.get(node, b""))
                if kind == "d":
                    walk(f"{path}/{name}", node)

        walk("", 0)
        return {path: entry for path, entry in tree.items() if self._lasting(path)}

    def states(self):
        """The distinct states, each with a word on how it comes about."""
        found = {}
        for upto in range(len(self.events) + 1):
            pending = self._pending(upto)
            after = self.events[upto - 1].call if upto else "nothing"
            for choice in self._choices(pending, self._named(upto)):
                tree = self._state(upto, pending, choice)
                lost = [f"{way} {event.call}" for event, way in zip(pending, choice) if way != "whole"]
                found.setdefault(tuple(sorted(tree.items())), f"after {upto} changes, the last {after}; {', '.join(lost)}")
        return [(how, dict(state)) for state, how in found.items()]


def record(trace):
    """The calls in what TRACE has written: (name, arguments, result)."""
    found = [LINE.match(line) for line in trace.decode().splitlines()]
    return [(match[1], match[2], int(match[3])) for match in found if match]


# On the device: brings it to each state and runs the command there.


def lasting_tree(root="/"):
    """Everything that lasts: path to (kind, mode, content)."""
    tree = {}
    for top in TOPS:
        for path in sorted(pathlib.Path(root, top.lstrip("/")).rglob("*")):
            name = "/" + str(path.relative_to(root))
            if (name + "/").startswith(LOGS + "/"):
                continue
            info = path.lstat()
            directory = stat.S_ISDIR(info.st_mode)
            tree[name] = ("d" if directory else "f", stat.S_IMODE(info.st_mode), b"" if directory else path.read_bytes())
    return tree


def identities(root="/"):
    """What the tool's marks tell files by, inode, size and time of change, with the paths of the files."""
    found = {}
    for path, (kind, _, _) in lasting_tree(root).items():
        info = os.lstat(os.path.join(root, path.lstrip("/")))
        changed = b"%d.%d" % divmod(info.st_ctime_ns, 10**9)
        if kind == "f":
            found[b"%d %d %s" % (info.st_ino, info.st_size, changed)] = path
    return found


def name_identities(states, first, known):
    """The same states, with the identities of files as they were at first replaced by their paths: the files are made anew
    for each state, and are others then."""

    def named(state, content):
        for identity, path in known.items():
            same = state.get(path) == first[path]
            content = content.replace(identity, b"<identity of %s>" % path.encode() if same else b"0 0 0.0")
        return content

    return [{path: (kind, mode, named(state, content)) for path, (kind, mode, content) in state.items()} for state in states]


def identify():
    """Puts the identities that the files have now in the place of their paths."""
    now = {path.encode(): identity for identity, path in identities().items()}
    for path, (_, _, content) in lasting_tree().items():
        if b"<identity of " in content:
            pathlib.Path(path).write_bytes(re.sub(rb"<identity of ([^>]*)>", lambda match: now[match[1]], content))


def bring_to(wanted):
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
    identify()


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
    script = 'exec /usr/bin/python3 "$0" /run/states "$KELTCONFIG" "$@"'
    done = device.enter("sh", "-c", script, __file__, *arguments, timeout=3600)
    assert (done.stderr, done.returncode) == (b"", 0)
    return [(status, bytes.fromhex(out), unpacked(tree)) for status, out, tree in json.loads(done.stdout)]


if __name__ == "__main__":
    with open(sys.argv[1], encoding="ascii") as file:
        json.dump(run_all(json.load(file), sys.argv[2:]), sys.stdout)
