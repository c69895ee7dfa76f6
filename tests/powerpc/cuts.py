"""Power cuts on a real file system: the record of what a machine wrote to its disk, and the disks that a cut can leave.

The record is that of QEMU's driver blklogwrites, in the format of Linux' dm-log-writes: writes in the order in which
they were given to the disk, and flushes. A disk has on it for certain what was written before the last flush; of what
came after, each sector may be there or not, also a later one without an earlier.
"""

import dataclasses
import hashlib
import itertools
import pathlib
import random
import struct

SECTOR, BLOCK = 512, 4096
MAGIC = 0x6A736677736872
FLUSH, FUA, DISCARD, MARK = 1, 2, 4, 8


@dataclasses.dataclass(frozen=True)
class Write:
    offset: int
    data: bytes
    lasting: bool = False  # on the disk before the next is given to it (FUA)


FLUSHED = "flushed"


def read_record(path):
    """The writes, and FLUSHED where there was a flush, in their order."""
    raw = memoryview(pathlib.Path(path).read_bytes())
    magic, version, _, size = struct.unpack_from("<QQQI", raw)
    assert (magic, version, size) == (MAGIC, 1, SECTOR)
    # How many there are is told late, so the end is where no more follow.
    events, at = [], SECTOR
    while at + 32 <= len(raw):
        sector, sectors, flags, _ = struct.unpack_from("<QQQQ", raw, at)
        if not sectors and not flags:
            break
        assert not flags & ~(FLUSH | FUA), f"flags {flags} are not modelled"
        at += SECTOR
        if flags & FLUSH:
            events.append(FLUSHED)
        if sectors:
            events.append(Write(sector * SECTOR, bytes(raw[at : at + sectors * SECTOR]), bool(flags & FUA)))
            at += sectors * SECTOR
    return events


def play(disk, events):
    """Does to the bytes of a disk what was written to it."""
    for event in events:
        if event is not FLUSHED:
            disk[event.offset : event.offset + len(event.data)] = event.data


def pieces_of(write, size):
    """A write in pieces that end where the disk's blocks of that size do. But the first block of the file system is one
    piece: its superblock has two sectors, and where only one is of a write, neither Linux nor e2fsck takes it for one."""
    at = 0
    while at < len(write.data):
        here = write.offset + at
        end = min(at + (BLOCK - here if here < BLOCK else size - here % size), len(write.data))
        yield Write(write.offset + at, write.data[at:end])
        at = end


@dataclasses.dataclass(frozen=True)
class Cut:
    """A disk after a cut. `how` tells how it came about; `lasting` is the number of events that are on the disk for
    certain, `kept` what is there besides. `torn` where it may have blocks of the file system in part."""

    how: str
    lasting: int
    kept: tuple
    torn: bool = False

    def writes(self, events):
        return itertools.chain(events[: self.lasting], self.kept)

    def image(self, first, events):
        disk = bytearray(first)
        play(disk, self.writes(events))
        return disk

    def digest(self, first, events):
        """The same for the same disk, and made faster than that."""
        sectors = {}
        for write in self.writes(events):
            if write is not FLUSHED:
                for at in range(0, len(write.data), SECTOR):
                    sectors[write.offset + at] = write.data[at : at + SECTOR]
        changed = hashlib.blake2b()
        for offset in sorted(sectors):
            if sectors[offset] != first[offset : offset + SECTOR]:
                changed.update(offset.to_bytes(8, "big") + sectors[offset])
        return changed.digest()


def segments(events):
    """(begin, end) of what lies between flushes."""
    begin = 0
    for at, event in enumerate(events):
        if event is FLUSHED:
            yield begin, at
            begin = at + 1
    yield begin, len(events)


def plain_cuts(events):
    """At each flush: nothing of what came after the one before it is on the disk, and all of it."""
    for begin, end in segments(events):
        pending = tuple(event for event in events[begin:end] if not event.lasting)
        lasting = tuple(event for event in events[begin:end] if event.lasting)
        yield Cut(f"flush {begin}: nothing since", begin, lasting)
        if pending:
            yield Cut(f"flush {end}: everything before", begin, tuple(events[begin:end]))


def random_cut(events, places, dice):
    """At any write: what came since the last flush in part, by whole writes, blocks or sectors."""
    begin, end = dice.choice(places)
    upto = dice.randint(begin + 1, end)
    size = dice.choice([1 << 30, BLOCK, SECTOR])
    share = dice.choice([0.1, 0.5, 0.9])
    kept = tuple(piece for event in events[begin:upto] for piece in pieces_of(event, size)
                 if event.lasting or dice.random() < share)
    return Cut(f"event {upto}, flush {begin}, pieces of {size}, {len(kept)} kept", begin, kept, size < BLOCK)


def all_cuts(events, seed):
    """Cuts without end: at each flush first, in random order, then random ones."""
    dice = random.Random(seed)
    plain = list(plain_cuts(events))
    dice.shuffle(plain)
    yield from plain
    places = [(begin, end) for begin, end in segments(events) if end > begin]
    while places:
        yield random_cut(events, places, dice)


def distinct(cuts, first, events):
    """Those cuts that leave another disk than any before."""
    seen = set()
    for cut in cuts:
        digest = cut.digest(first, events)
        if digest not in seen:
            seen.add(digest)
            yield cut
