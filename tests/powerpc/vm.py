"""A machine with a kernel of its own: QEMU's board "ppce500" with the bare system on its disk; and that disk from outside.

What tests/powerpc/bare makes goes to an ext4 file system, which is the whole of the disk. The first process of the
machine, machine.cpp, is in memory and does what `Machine` asks for. All that is started here ends with whoever started it.
"""

import collections
import dataclasses
import itertools
import os
import pathlib
import shlex
import shutil
import socket
import stat
import struct
import subprocess

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILT = SOURCE / "build/ppc/machine"
BARE = SOURCE / "tests/powerpc/bare"

# Far above what a loaded machine takes.
PATIENCE = 600
# At which machines begin: long after all certificates, long before they end.
NOW = 1_893_456_000  # 2030-01-01

SERVER = "10.0.2.2"  # under which a machine reaches the loopback interface of its emulator

# Flags of mount(2).
NOATIME, BIND = 1024, 4096

AGENT = """#!/bin/sh
echo "agent $*" >>/run/agent-calls
"""


def said(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, timeout=PATIENCE, **options)
    assert done.returncode == 0, (command, done.stdout, done.stderr)
    return done.stdout


def as_root():
    """What makes files of this user's look like root's."""
    return [] if os.geteuid() == 0 else ["unshare", "--map-root-user", "--"]


# The disk.


def make_root(root, program=AGENT):
    """The bare system with an agent, whose program is the given one, as a directory."""
    said(BARE, "--make", root)
    for part in ("etc/orv.d", "opt/Quorvane"):
        shutil.copytree(SOURCE / "device/root" / part, root / part)
    agent = root / "opt/Quorvane/orv/bin/agent"
    agent.write_text(program)
    agent.chmod(0o755)
    for directory in ("etc", "opt"):
        said("chmod", "-R", "u=rwX,go=rX", root / directory)


def make_disk(root, image, size="24M"):
    """A file system with what is in a directory, all of it root's."""
    features = "root_owner=0:0,lazy_itable_init=0,lazy_journal_init=0,nodiscard"
    said(*as_root(), "/sbin/mke2fs", "-q", "-F", "-t", "ext4", "-b", "4096", "-m", "0", "-J", "size=4", "-N", "1024",
         "-d", root, "-E", features, image, size)


def repair(image):
    """Has the file system brought in order, as at a start after a power cut. Returns what that came to: 0 where the
    journal was enough, 1 where something had to be corrected, more where it could not be; and what was said."""
    done = subprocess.run(["/sbin/e2fsck", "-fy", image], capture_output=True, text=True, timeout=PATIENCE)
    return done.returncode, done.stdout + done.stderr


@dataclasses.dataclass(frozen=True)
class Entry:
    kind: str  # "f", "d" or "l"
    mode: int
    owner: tuple
    content: bytes = b""


KINDS = {stat.S_IFREG: "f", stat.S_IFDIR: "d", stat.S_IFLNK: "l"}


def debugfs(image, *requests):
    requests = "".join(request + "\n" for request in requests)
    done = subprocess.run(["/sbin/debugfs", "-f", "-", image], input=requests, capture_output=True, text=True,
                          timeout=PATIENCE)
    assert done.returncode == 0, done
    return done.stdout


def list_directories(image, directories):
    """(path, mode, owner) of everything that debugfs tells of directories."""
    asked = "debugfs: ls -p "
    for line in debugfs(image, *(f'ls -p "{directory}"' for directory in directories)).splitlines():
        if line.startswith(asked):
            directory = line.removeprefix(asked).strip().strip('"')
        elif line.startswith("/"):
            _, _, mode, user, group, name, _, _ = line.split("/")
            if name not in ("", ".", ".."):
                yield f"{directory}/{name}", int(mode, 8), (int(user), int(group))


def tree_of(image, scratch, *tops):
    """Everything below some directories of a disk: path -> Entry, read without its being mounted."""
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir()
    debugfs(image, *(f"rdump {top} {scratch}" for top in tops))
    copies = {top: str(scratch / pathlib.Path(top).name) for top in tops}
    directories = [top + directory.removeprefix(copies[top]) for top in tops for directory, _, _ in os.walk(copies[top])]
    tree = {}
    for path, mode, owner in list_directories(image, directories):
        top = next(top for top in tops if path.startswith(top + "/"))
        copy = pathlib.Path(copies[top] + path.removeprefix(top))
        kind = KINDS.get(stat.S_IFMT(mode), "?")
        content = copy.read_bytes() if kind == "f" else os.readlink(copy).encode() if kind == "l" else b""
        tree[path] = Entry(kind, stat.S_IMODE(mode), owner, content)
    return tree


# The machine.


def entry_of_archive(name, mode, content=b"", number=0, device=(0, 0)):
    """An entry of a cpio archive as the kernel takes it ("newc")."""
    raw = name.encode() + b"\0"
    fields = [number, mode, 0, 0, 1, 0, len(content), 0, 0, *device, len(raw), 0]
    head = b"070701" + b"".join(b"%08x" % field for field in fields) + raw
    return head + bytes(-len(head) % 4) + content + bytes(-len(content) % 4)


def first_files():
    """What is in the machine's memory when it starts: its first process, which is also in /tests."""
    program = (BUILT / "machine").read_bytes()
    entries = [("dev", stat.S_IFDIR | 0o755, b"", (0, 0)), ("dev/console", stat.S_IFCHR | 0o600, b"", (5, 1)),
               ("init", stat.S_IFREG | 0o755, program, (0, 0)), ("tests", stat.S_IFDIR | 0o755, b"", (0, 0)),
               ("tests/machine", stat.S_IFREG | 0o755, program, (0, 0))]
    archive = b"".join(entry_of_archive(name, mode, content, number, device)
                       for number, (name, mode, content, device) in enumerate(entries, 1))
    return archive + entry_of_archive("TRAILER!!!", 0)


@dataclasses.dataclass
class Result:
    out: bytes
    err: bytes
    status: int  # the negative of a signal
    core: bool  # whether the kernel dumped its memory

    def result(self):
        return (self.out, self.err, self.status)


class Running:
    """A command that runs on a machine. On a terminal all that it writes is in `out`."""

    def __init__(self, machine, name):
        self.machine, self.name = machine, name
        self.out, self.err, self.end = bytearray(), bytearray(), None

    def wait(self):
        self.machine.until(lambda: self.end)
        word, number = self.end
        return Result(bytes(self.out), bytes(self.err), int(number) if word == "exit" else -int(number), word == "core")

    def expect(self, text):
        """Waits until it has written something, and takes that and what came before."""
        self.machine.until(lambda: text in self.out or self.end)
        assert text in self.out, (text, bytes(self.out), bytes(self.err), self.end)
        end = self.out.index(text) + len(text)
        taken = bytes(self.out[:end])
        del self.out[:end]
        return taken

    def type(self, text):
        self.machine.send("i", self.name, data=text)

    def close_input(self):
        self.machine.send("i", self.name)

    def signal(self, number):
        self.machine.call("k", self.name, number)

    def modes(self):
        """(input, output, control, local) modes of its terminal."""
        return self.machine.modes(self.name)


class Machine:
    """A machine with a disk. Its system is mounted and ready; `options` are those of the file system. With `log` what is
    written to the disk is recorded there, in a file that exists. With `package` a management server listens at SERVER, whose
    reply has those files, and which knows the user "admin" by `password`. With `package` or `network` there is a network."""

    def __init__(self, disk, directory, log=None, options="", package=None, password="zentor 4711", network=False):
        self.console, self.running, self.answers = directory / "console", {}, collections.deque()
        self.names = (str(number) for number in itertools.count(1))
        self.port, port = socket.socketpair()
        self.serial, serial = socket.socketpair()
        for end in (self.port, self.serial):
            end.settimeout(PATIENCE)
        (directory / "first-files").write_bytes(first_files())
        inherited = (port.fileno(), serial.fileno())
        command = self._emulator(disk, directory, log, inherited)
        if package:
            command = self._beside_server(command, package, password)
        bound = ["setpriv", "--pdeathsig", "KILL", "--"]
        with (directory / "emulator").open("wb") as said_by_it:
            self.process = subprocess.Popen([*bound, *map(str, command)], stdin=subprocess.DEVNULL, stdout=said_by_it,
                                            stderr=subprocess.STDOUT, pass_fds=inherited)
        port.close()
        serial.close()
        self.directory = directory
        try:
            self._begin(options, network or bool(package))
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends it as when its power is cut."""
        self.process.kill()
        self.process.wait()
        self.port.close()
        self.serial.close()

    @staticmethod
    def _emulator(disk, directory, log, inherited):
        # What the machine takes for written is the emulator's alone, which nothing here survives.
        drive = f"driver=raw,node-name=disk,file.driver=file,file.filename={disk},file.cache.no-flush=on"
        if log:
            drive = f"driver=blklogwrites,node-name=disk,file.driver=file,file.filename={disk},file.cache.no-flush=on," \
                    f"log.driver=file,log.filename={log},log.cache.no-flush=on," \
                    "log-sector-size=512,log-super-update-interval=1"
        return ["qemu-system-ppc", "-M", "ppce500", "-cpu", "e500mc", "-m", "128", "-nodefaults", "-no-user-config",
                "-display", "none", "-monitor", "none", "-no-reboot",
                "-kernel", BUILT / "vmlinux", "-initrd", directory / "first-files",
                "-append", "console=ttyS0 quiet panic=-1 rdinit=/init",
                "-chardev", f"file,id=console,path={directory}/console", "-serial", "chardev:console",
                "-chardev", f"socket,id=terminal,fd={inherited[1]}", "-serial", "chardev:terminal",
                "-device", "virtio-serial-pci", "-chardev", f"socket,id=port,fd={inherited[0]}",
                "-device", "virtserialport,chardev=port",
                "-blockdev", drive, "-device", "virtio-blk-pci,drive=disk",
                "-device", "virtio-rng-pci",
                "-netdev", "user,id=network", "-device", "virtio-net-pci,netdev=network,romfile="]

    @staticmethod
    def _beside_server(command, package, password):
        """In a network of their own, which has no ports but theirs."""
        script = f"""
            ip link set lo up
            mount -n -t tmpfs -o mode=700 server /mnt
            {shlex.quote(str(SOURCE / "device/server/start"))} --package "$0" /mnt
            printf 'admin:%s\\n' {shlex.quote(password)} >/mnt/users
            exec "$@"
            """
        users = [] if os.geteuid() == 0 else ["--map-root-user"]
        return ["unshare", *users, "--mount", "--net", "--pid", "--fork", "--kill-child", "--",
                "bash", "-ec", script, package, *command]

    def _begin(self, options, network):
        self.until(lambda: self.answers)
        _, self.kernel, self.processor = self.answers.popleft()
        self.call("t", NOW)
        self.mount("/dev/vda", "/disk", "ext4", NOATIME, options)
        self.mount("proc", "/disk/proc", "proc")
        self.mount("devtmpfs", "/disk/dev", "devtmpfs")
        self.mount("devpts", "/disk/dev/pts", "devpts")
        self.mount("tmpfs", "/disk/run", "tmpfs", 0, "mode=755")
        self.mount("tmpfs", "/disk/tmp", "tmpfs", 0, "mode=1777")
        if network:
            done = self.shell("busybox ifconfig lo 127.0.0.1 up && busybox ifconfig eth0 10.0.2.15 up")
            assert done.result() == (b"", b"", 0)

    # Messages.

    def send(self, letter, *words, data=b""):
        body = letter.encode() + b"".join(os.fsencode(str(word)) + b"\0" for word in words) + data
        self.port.sendall(struct.pack(">I", len(body)) + body)

    def _read(self, length):
        data = b""
        while len(data) < length:
            piece = self.port.recv(length - len(data))
            if not piece:
                raise AssertionError(f"the machine ended: {self.said_on_console()}")
            data += piece
        return data

    def said_on_console(self):
        """What kernel and emulator said."""
        return "".join((self.directory / name).read_text(errors="replace")[-3000:] for name in ("console", "emulator")
                       if (self.directory / name).exists())

    def _receive(self):
        body = self._read(struct.unpack(">I", self._read(4))[0])
        letter, rest = body[:1].decode(), body[1:]
        if letter == "o":
            name, stream, content = rest.split(b"\0", 2)
            running = self.running[name.decode()]
            (running.out if stream == b"1" else running.err).extend(content)
        elif letter == "e":
            name, word, number = rest.decode().split("\0")[:3]
            self.running.pop(name).end = (word, number)
        else:
            self.answers.append([letter, *rest.decode().split("\0")[:-1]])

    def until(self, condition):
        while not condition():
            self._receive()

    def ask(self, letter, *words):
        self.send(letter, *words)
        self.until(lambda: self.answers)
        return self.answers.popleft()[1:]

    def call(self, letter, *words):
        (number,) = self.ask(letter, *words)
        assert number == "0", (letter, words, os.strerror(int(number)))

    # What it can do.

    def mount(self, source, target, kind, flags=0, data=""):
        self.call("m", source, target, kind, flags, data)

    def sync(self):
        self.call("s")

    def modes(self, terminal):
        return tuple(map(int, self.ask("a", terminal)))

    def start(self, *command, stdin="null", directory="/", memory="", core="0", env=()):
        """Starts a command, with no more memory and no larger a dump than so many bytes."""
        name = next(self.names)
        running = self.running[name] = Running(self, name)
        variables = ["PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", *env]
        self.call("r", name, stdin, "/disk", directory, memory, core, *variables, "", *command)
        return running

    def run(self, *command, **options):
        return self.start(*command, **options).wait()

    def shell(self, line, **options):
        return self.run("/bin/sh", "-c", line, **options)

    def write(self, path, content, mode=0o644):
        running = self.start("/bin/sh", "-c", 'umask 077 && cat >"$0" && chmod "$1" "$0"', path, f"{mode:o}", stdin="pipe")
        running.type(content)
        running.close_input()
        assert running.wait().result() == (b"", b"", 0)

    def read(self, path):
        done = self.run("cat", path)
        assert done.status == 0, done
        return done.out

    def agent_calls(self):
        """The commands of the agent since the last time."""
        done = self.shell("[ ! -e /run/agent-calls ] || cat /run/agent-calls; rm -f /run/agent-calls")
        return done.out.decode().splitlines()

    def power_off(self):
        """Ends it in order: what is on the disk is whole."""
        for target in ("/disk/run/tests", "/disk/run", "/disk/tmp", "/disk/dev/pts", "/disk/dev", "/disk/proc"):
            self.ask("u", target)
        self.call("u", "/disk")
        self.send("p")
        assert self.process.wait(PATIENCE) == 0, self.said_on_console()
        self.close()
