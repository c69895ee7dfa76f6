"""Power cuts on the disk of a machine: what stands on it after one, and what the same command makes of that.

The number of disks is KELT_CUTS (scripts/test-powerpc cuts tries 1500); on KELT_CUT_BOOTS of them the machine starts
again. KELT_CUT_SEED chooses others. A disk that shows a violation is kept in build/logs/cuts.
"""

import collections
import concurrent.futures
import dataclasses
import io
import itertools
import os
import pathlib
import random
import re
import shutil
import struct
import tarfile
import tempfile
import xml.etree.ElementTree

import pytest

import vm
from cuts import BLOCK, FLUSHED, Write, all_cuts, distinct, plain_cuts, play, read_record
from device import INSTALL, KEY_FILES, SCRATCH, Device
from power_cut_commands import COMMANDS, SOURCE
from power_cut_disk import TEMPORARY
from vm import Entry, Machine

CUTS, BOOTS = int(os.environ.get("KELT_CUTS", 140)), int(os.environ.get("KELT_CUT_BOOTS", 7))
SEED = int(os.environ.get("KELT_CUT_SEED", 1))
KEPT = vm.SOURCE / "build/logs/cuts"
TOPS = ("/opt/Quorvane", "/etc/orv.d")
LOGS = SCRATCH + "/logs"
PASSWORD = b"zentor 4711"


@pytest.fixture(scope="session")
def memory():
    """A directory for disks: in memory where there is such a place, as a disk is made and repaired for each cut."""
    shared = pathlib.Path("/dev/shm")
    place = shared if os.access(shared, os.W_OK) and shutil.disk_usage(shared).free > 1 << 29 else None
    with tempfile.TemporaryDirectory(prefix="keltconfig-cuts-", dir=place) as directory:
        yield pathlib.Path(directory)


class Files(Device):
    """Files that are put on a machine; the same operations as those of a device."""

    def __init__(self, state):
        self.state = state
        (state / "opt/Quorvane").mkdir(parents=True)

    def archive(self):
        def root(entry):
            entry.uid = entry.gid = 0
            entry.uname = entry.gname = "root"
            # The directories of the system stay as they are.
            return entry if entry.name.startswith("opt/Quorvane/") or entry.name.startswith("etc/orv.d/") else None

        archive = io.BytesIO()
        with tarfile.open(fileobj=archive, mode="w", format=tarfile.GNU_FORMAT) as tar:
            for path in sorted(self.state.rglob("*")):
                tar.add(path, str(path.relative_to(self.state)), recursive=False, filter=root)
        return archive.getvalue()


# What may be there.


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


# Recording and trying.


@dataclasses.dataclass
class Case:
    """A command that was recorded: the disk before it, and what was written to it from there on."""

    name: str
    arguments: list
    options: dict  # of Machine
    first: bytes
    events: list
    status: int
    copied: dict  # name -> contents of what is copied on the way


class Bench:
    """Records commands and tries the disks that cuts leave."""

    def __init__(self, installed, memory, package, packages):
        self.installed, self.memory, self.package, self.packages = installed, memory, package, packages

    def new(self, name, content=None):
        """A directory with a disk."""
        directory = pathlib.Path(tempfile.mkdtemp(prefix=name + "-", dir=self.memory))
        if content is None:
            shutil.copy(self.installed, directory / "disk")
        else:
            (directory / "disk").write_bytes(content)
        return directory

    def prepare(self, *names):
        """The files for some commands, and the arguments of each."""
        files = Files(pathlib.Path(tempfile.mkdtemp(dir=self.memory)) / "files")
        arguments = [COMMANDS[name](files, self.package) for name in names]
        return files, [[vm.SERVER if word == "127.0.0.1" else word for word in words] for words in arguments]

    def record(self, name, *arguments, program="keltconfig", files=None, first=None, options=""):
        """Runs a command on a disk, with the files, and records what it writes. `options` are the file system's."""
        directory = self.new(name, first)
        record = directory / "record"
        record.touch()
        sources = list(files.state.rglob("*")) if files else []
        machine_options = {}
        if "-z" in arguments:
            machine_options["package"] = self.packages(("--both",))
            sources += machine_options["package"].iterdir()
        copied = collections.defaultdict(set)
        for path in filter(pathlib.Path.is_file, sources):
            copied[path.name].add(path.read_bytes())
        with Machine(directory / "disk", directory, log=record, options=options, **machine_options) as machine:
            if files:
                unpacked = machine.start("tar", "-xf", "-", "-C", "/", stdin="pipe")
                unpacked.type(files.archive())
                unpacked.close_input()
                assert unpacked.wait().result() == (b"", b"", 0)
            machine.sync()
            begin = len(read_record(record))
            done = machine.run(program, *arguments)
            machine.sync()
        events = read_record(record)
        disk = bytearray(self.installed.read_bytes() if first is None else first)
        play(disk, events[:begin])
        shutil.rmtree(directory)
        return Case(name, list(arguments), machine_options, bytes(disk), events[begin:], done.status, copied)

    def look(self, disk):
        """What repair comes to and what stands on a disk, which stays as it is."""
        directory = self.new("look", disk)
        try:
            repaired = vm.repair(directory / "disk")
            return repaired, vm.tree_of(directory / "disk", directory / "copy", *TOPS)
        finally:
            shutil.rmtree(directory)

    def run_again(self, case, disk, repair=False):
        """The machine starts on a disk and runs the command: status, what it said, what stands on the disk then. Where it
        does not start, that is the status, and the kernel's words are what was said."""
        directory = self.new("again", disk)
        try:
            if repair:
                vm.repair(directory / "disk")
            try:
                with Machine(directory / "disk", directory, **case.options) as machine:
                    done = machine.run("keltconfig", *case.arguments)
                    machine.power_off()
            except AssertionError as error:
                said = (directory / "console").read_bytes()
                return f"no start, {'repaired' if repair else 'not repaired'}", f"{error}; {said}", {}
            return done.status, done.out + done.err, lasting(vm.tree_of(directory / "disk", directory / "copy", *TOPS))
        finally:
            shutil.rmtree(directory)

    def ends(self, case):
        """How the command ends undisturbed and how a second one does after it."""
        after = bytearray(case.first)
        play(after, case.events)
        _, tree = self.look(after)
        status, _, again = self.run_again(case, after)
        return (case.status, lasting(tree)), (status, again)

    def judge(self, case):
        (_, after), (_, again) = ends = self.ends(case)
        first = lasting(self.look(case.first)[1])
        return Judge(first, after, again, case.copied, secrets_of(first, after, again)), ends


@dataclasses.dataclass
class Tried:
    cut: object
    tree: dict
    problems: list


def keep(case, number, tried):
    """Keeps a disk for whoever looks into it."""
    KEPT.mkdir(parents=True, exist_ok=True)
    path = KEPT / f"{case.name.replace(' ', '-')}-{SEED}-{number}"
    path.write_bytes(tried.cut.image(case.first, case.events))
    return f"{path}: {tried.cut.how}: {'; '.join(tried.problems)}"


def try_cut(bench, case, judge, cut):
    (status, text), tree = bench.look(cut.image(case.first, case.events))
    problems = list(judge.problems(tree))
    if status > 1:
        problems.append(f"the file system could not be repaired: {text}")
    return Tried(cut, tree, problems)


def different_cuts(case, count):
    """So many that leave different disks, or as many as are found."""
    cuts = itertools.islice(all_cuts(case.events, SEED), 20 * count)
    return itertools.islice(distinct(cuts, case.first, case.events), count)


def try_cuts(bench, case, judge, count):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(lambda cut: try_cut(bench, case, judge, cut), different_cuts(case, count)))


def is_found(bench, case, judge, problem):
    """Whether one of many disks shows a problem that begins so."""
    return any(found.startswith(problem) for cut in different_cuts(case, 500)
               for found in try_cut(bench, case, judge, cut).problems)


def boot_again(bench, case, ends, tried, count):
    """Starts the machine on some of the disks and runs the command once more. Returns how many were tried, and what was
    wrong. Half of them are as they are, for the kernel to bring in order; but Linux refuses a journal with a block that
    the disk wrote in part until e2fsck was there."""
    sample = random.Random(SEED).sample(tried, min(count, len(tried)))

    def wrong(number, one):
        disk = one.cut.image(case.first, case.events)
        status, output, tree = bench.run_again(case, disk, repair=one.cut.torn or number % 2 == 1)
        done = {path: entry for path, entry in lasting(one.tree).items() if not TEMPORARY.match(path.rsplit("/", 1)[1])}
        if (status, tree) == ends[0] or done == ends[0][1] and (status, tree) == ends[1]:
            return None
        paths = sorted(path for path in {*tree, *ends[0][1]} if tree.get(path) != ends[0][1].get(path))
        one.problems = [f"the command ends with status {status}, {paths}, {output!r}"]
        return keep(case, f"boot-{number}", one)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = list(pool.map(wrong, range(len(sample)), sample))
    return len(sample), [text for text in found if text]


# The tests. First what they are made with.


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
