"""Power cuts on the disk of a machine: what stands on it after one, and what the same command makes of that.

The number of disks is KELT_CUTS (scripts/test-powerpc cuts tries 1500); on KELT_CUT_BOOTS of them the machine starts
again. KELT_CUT_SEED chooses others. A disk that shows a violation is kept in build/logs/cuts.
"""

import collections
import dataclasses
import itertools
import os
import pathlib
import shutil
import struct
import tempfile

import pytest

from cut_bench import Bench, boot_again, is_found, keep, try_cuts
from cut_judge import Judge, lasting, secrets_of
from cuts import BLOCK, FLUSHED, Write, all_cuts, distinct, plain_cuts, play, read_record
from device import SCRATCH
from power_cut_commands import COMMANDS
from vm import Entry

CUTS, BOOTS = int(os.environ.get("KELT_CUTS", 140)), int(os.environ.get("KELT_CUT_BOOTS", 7))


@pytest.fixture(scope="session")
def memory():
    """A directory for disks: in memory where there is such a place, as a disk is made and repaired for each cut."""
    shared = pathlib.Path("/dev/shm")
    place = shared if os.access(shared, os.W_OK) and shutil.disk_usage(shared).free > 1 << 29 else None
    with tempfile.TemporaryDirectory(prefix="keltconfig-cuts-", dir=place) as directory:
        yield pathlib.Path(directory)


# First what the tests are made with.


def entry(sector, sectors, flags, data=b""):
    return struct.pack("<QQQQ", sector, sectors, flags, 0).ljust(512, b"\0") + data


def record_of(*entries):
    return struct.pack("<QQQI", 0x6A736677736872, 1, len(entries), 512).ljust(512, b"\0") + b"".join(entries)


def test_a_record_is_read_as_it_was_written(tmp_path):
    path = tmp_path / "record"
    path.write_bytes(record_of(entry(3, 1, 0, b"a" * 512), entry(0, 0, 1), entry(9, 2, 2, b"b" * 1024)) + bytes(4096))
    assert read_record(path) == [Write(1536, b"a" * 512), FLUSHED, Write(4608, b"b" * 1024, True)]


def written(place, data, lasting=False):
    """A write beyond the first block of the disk."""
    return Write(BLOCK + place, data, lasting)


def disks_of(events, count):
    """The different disks of so many cuts, without that first block, where a disk of zero bytes was before."""
    first = bytes(3 * BLOCK)
    cuts = distinct(itertools.islice(all_cuts(events, 1), count), first, events)
    return [bytes(cut.image(first, events)[BLOCK:]) for cut in cuts]


EVENTS = [written(0, b"1" * 1024), FLUSHED, written(512, b"2" * 1024), written(4096, b"3" * 512), FLUSHED,
          written(0, b"4" * 512)]


def test_what_was_flushed_is_on_every_disk_and_what_was_not_on_some():
    disks = disks_of(EVENTS, 500)
    assert len(disks) == len(set(disks))
    assert bytes(2 * BLOCK) in disks
    assert (b"4" * 512 + b"2" * 1024).ljust(4096, b"\0") + (b"3" * 512).ljust(4096, b"\0") in disks
    for disk in disks:
        if disk[4096] or disk[512] == ord("2") or disk[1024]:
            assert disk[:512] in (b"1" * 512, b"4" * 512), "before the first flush"
        if disk[0] == ord("4"):
            assert disk[512:1536] == b"2" * 1024 and disk[4096:4608] == b"3" * 512, "before the second flush"
    pieces = {(disk[512] == ord("2"), disk[1024] == ord("2"), disk[4096] == ord("3")) for disk in disks}
    assert len(pieces) == 8, "each piece with and without each other"
    assert {disk[:1024] for disk in disks} >= {b"1" * 512 + bytes(512), bytes(512) + b"1" * 512}


def test_a_write_that_lasts_at_once_is_on_every_disk_from_there_on():
    disks = disks_of([written(0, b"1" * 512), written(512, b"2" * 512, True), written(1024, b"3" * 512)], 200)
    assert all(disk[512] for disk in disks if disk[1024])
    assert any(disk[512] and not disk[0] for disk in disks)


def test_the_first_block_is_never_written_in_part():
    events = [Write(1024, b"1" * 1024 + b"2" * 4096)]
    first = bytes(3 * BLOCK)
    disks = [cut.image(first, events) for cut in itertools.islice(all_cuts(events, 1), 500)]
    assert {bytes(disk[1024:2048]) for disk in disks} == {bytes(1024), b"1" * 1024}
    assert {bytes(disk[4096:5120]) for disk in disks} >= {bytes(512) + b"2" * 512, b"2" * 512 + bytes(512)}


def test_the_judge_knows_each_kind_of_violation():
    old, new = {"/a/k": Entry("f", 0o600, (0, 0), b"old")}, {"/a/k": Entry("f", 0o600, (0, 0), b"new")}
    judge = Judge(old, new, new, {}, [b"SECRET"])
    def problems(**changes):
        return list(judge.problems({"/a/k": dataclasses.replace(old["/a/k"], **changes)}))
    assert problems() == []
    assert problems(content=b"new") == []
    assert problems(content=b"ne") == ["/a/k is neither old nor new: f 600, 2 bytes"]
    assert problems(mode=0o644) == ["/a/k is neither old nor new: f 644, 3 bytes"]
    assert problems(owner=(0, 1))[-1] == "/a/k belongs to (0, 1)"
    assert list(judge.problems({})) == ["/a/k is gone"]
    left = {**new, "/a/.k.kelt-abc": Entry("f", 0o644, (0, 0), b"a SECRET")}
    assert list(judge.problems(left)) == ["/a/.k.kelt-abc holds a secret and has mode 644"]
    left = {**new, "/a/.k.kelt-abc": Entry("f", 0o600, (0, 0), b"a SECRET")}
    assert list(judge.problems(left)) == []


@pytest.fixture(scope="session")
def bench(installed, memory, _packages):
    def package(*options):
        return _packages(options)

    return Bench(installed, memory, package, _packages)


def a_writer(bench, script, **options):
    """A case of a program that is not ours, which changes the installed site list by a shell script."""
    files, _ = bench.prepare("unmanaged")
    line = f"cd {SCRATCH}/etc && {script}"
    case = bench.record("writer", "-c", line, program="/bin/sh", files=files, **options)
    assert case.status == 0
    after = bytearray(case.first)
    play(after, case.events)
    first, after = (lasting(bench.look(disk)[1]) for disk in (case.first, after))
    assert first != after
    return case, Judge(first, after, after, {}, secrets_of(first))


# Who syncs something else after it puts on the disk that the file was made, and not yet what is in it.
MAKE, SYNC = "sed s/Server/Another/ SiteList.xml", "keltconfig -CustomProps1 x"


@pytest.mark.parametrize("script", [f"{MAKE} >/tmp/new && cp /tmp/new SiteList.xml && {SYNC}",
                                    f"{MAKE} >SiteList && mv SiteList SiteList.xml && {SYNC}"], ids=["copy", "rename"])
def test_a_writer_that_does_not_care_is_found_out(bench, script):
    case, judge = a_writer(bench, script, options="noauto_da_alloc")
    assert is_found(bench, case, judge, f"{SCRATCH}/etc/SiteList.xml is neither old nor new: f 644, 0 bytes")


def test_a_disk_that_is_never_flushed_is_told_apart(bench):
    files, (arguments,) = bench.prepare("keys-from-files")
    case = bench.record("nobarrier", *arguments, files=files, options="nobarrier")
    assert case.status == 0
    assert FLUSHED not in case.events
    judge, _ = bench.judge(case)
    assert is_found(bench, case, judge, "/")


TRIED, BOOTED = collections.Counter(), collections.Counter()


# With the option, ext4 does not write the content of a file for a rename that replaces another, as it does of itself.
CASES = [(name, "") for name in COMMANDS] + [(name, "noauto_da_alloc") for name in ("managed-utf8", "keys-from-registry")]


def share(total, number=len(CASES) + 1):
    return -(-total // number)


def try_case(bench, case, count=share(CUTS), boots=share(BOOTS)):
    judge, ends = bench.judge(case)
    tried = try_cuts(bench, case, judge, count)
    TRIED[case.name] = len(tried)
    wrong = [keep(case, number, one) for number, one in enumerate(tried) if one.problems]
    BOOTED[case.name], more = boot_again(bench, case, ends, tried, boots)
    if wrong or more:
        pytest.fail("\n".join([f"{len(wrong)} of {len(tried)} disks, {len(more)} of {BOOTED[case.name]} that ran again:",
                               *wrong, *more]), pytrace=False)
    return tried


@pytest.mark.parametrize("name, options", CASES, ids=["-".join(filter(None, case)) for case in CASES])
def test_every_disk_that_a_cut_leaves_is_whole_and_the_same_command_ends_well_there(bench, name, options):
    files, (arguments,) = bench.prepare(name)
    case = bench.record(f"{name} {options}".strip(), *arguments, files=files, options=options)
    assert case.status == 0
    assert case.events.count(FLUSHED) >= 8
    try_case(bench, case)


def test_a_switch_that_finishes_what_a_cut_left_survives_another(bench):
    files, (first, second) = bench.prepare("keys-from-registry", "managed-utf8")
    begun = bench.record("begun", *first, files=files)
    marked = None
    for cut in plain_cuts(begun.events):
        disk = cut.image(begun.first, begun.events)
        tree = bench.look(disk)[1]
        if b"stage=cleaning" in tree.get(SCRATCH + "/unfinished-work", Entry("f", 0, ())).content:
            marked = disk
            break
    assert marked
    case = bench.record("unfinished", *second, first=bytes(marked))
    for name, contents in begun.copied.items():
        case.copied[name] |= contents
    assert case.status == 0
    try_case(bench, case)


@pytest.mark.parametrize("option", ["-start", "-stop"])
def test_a_command_that_writes_nothing_but_its_log_leaves_all_else_as_it_was(bench, option):
    files, _ = bench.prepare("managed-utf8")
    case = bench.record(option.strip("-"), option, files=files)
    tried = try_case(bench, case, boots=1)
    first = lasting(bench.look(case.first)[1])
    assert {tuple(sorted(lasting(one.tree))) for one in tried} == {tuple(sorted(first))}


def test_as_many_were_tried_as_were_wanted(capsys):
    with capsys.disabled():
        for name, count in TRIED.items():
            print(f"\n   {name:34} {count:5d} disks, {BOOTED[name]:3d} ran again", end="")
        print(f"\n   {'all':34} {sum(TRIED.values()):5d} disks, {sum(BOOTED.values()):3d} ran again")
    if len(TRIED) == len(CASES) + 3:  # where nothing was left out
        assert sum(TRIED.values()) >= CUTS and sum(BOOTED.values()) >= BOOTS
