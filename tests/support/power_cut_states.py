"""The states that a power cut can leave of a run that was played on the model of the disk."""

import itertools

from lasting_files import lasts
from power_cut_disk import TEMPORARY, Data, Names, Sync, applied


def named_files(disk, upto):
    """The files that have a name other than a temporary one."""
    names = {(directory, name): node for directory, n in enumerate(disk.nodes) if n.kind == "d" for name, node in n.first.items()}
    for event in disk.events[:upto]:
        for directory, name, node in event.given if isinstance(event, Names) else ():
            names[directory, name] = node
    return {node for (_, name), node in names.items() if not TEMPORARY.match(name)}


def ways_of(pending, named):
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


def state_of(disk, upto, pending, choice):
    """What is on the disk after the first `upto` events, with the pending changes in the ways of `choice`."""
    names = {node: dict(n.first) for node, n in enumerate(disk.nodes) if n.kind == "d"}
    files = {node: n.first for node, n in enumerate(disk.nodes) if n.kind == "f"}
    modes = {node: n.mode for node, n in enumerate(disk.nodes)}
    chosen = {id(event): way for event, way in zip(pending, choice)}
    for event in disk.events[:upto]:
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
            kind = disk.nodes[node].kind
            tree[f"{path}/{name}"] = (kind, modes[node], files.get(node, b""))
            if kind == "d":
                walk(f"{path}/{name}", node)

    walk("", 0)
    return {path: entry for path, entry in tree.items() if lasts(path)}


def states_of(disk):
    """The distinct states, each with a word on how it comes about."""
    found = {}
    for upto in range(len(disk.events) + 1):
        pending = disk.pending(upto)
        after = disk.events[upto - 1].call if upto else "nothing"
        for choice in ways_of(pending, named_files(disk, upto)):
            tree = state_of(disk, upto, pending, choice)
            lost = [f"{way} {event.call}" for event, way in zip(pending, choice) if way != "whole"]
            found.setdefault(tuple(sorted(tree.items())), f"after {upto} changes, the last {after}; {', '.join(lost)}")
    return [(how, dict(tree)) for tree, how in found.items()]
