"""Records what commands write to the disk of a machine, and tries the disks that power cuts leave."""

import collections
import concurrent.futures
import dataclasses
import io
import itertools
import os
import pathlib
import random
import shutil
import tarfile
import tempfile

import vm
from cut_judge import Judge, lasting, secrets_of
from cuts import all_cuts, distinct, play, read_record
from device import Device
from power_cut_commands import COMMANDS
from power_cut_disk import TEMPORARY
from vm import Machine

SEED = int(os.environ.get("KELT_CUT_SEED", 1))
KEPT = vm.SOURCE / "build/logs/cuts"
TOPS = ("/opt/Quorvane", "/etc/orv.d")


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
