"""Terminals and secrets on a machine with a kernel of its own: what is typed and what is given to a run is shown to nobody.

The machine is that of test_vm.py.
"""

import signal
import time

import pytest

from device import INSTALL
from provisioning import CONTACTED, PROGRESS
from vm import BIND, PATIENCE, SERVER

# Nothing listens there.
NOBODY = ("-e", SERVER + ":1", "-U", "admin")
# Nobody answers there.
SILENCE = ("-e", "10.0.2.77", "-U", "admin")
UNLIMITED = 1 << 30
ECHO = 8  # among the local modes


# Terminals.


def lines(output):
    """As a terminal shows them."""
    return output.replace(b"\n", b"\r\n")


# What is done on a terminal. Its modes can be looked at afterwards, while the shell waits, which outlives what is typed.
SESSION = """trap : INT QUIT HUP; read begin; keltconfig "$@"; echo "status $?"; read end"""


class Session:
    """A run on a terminal: the pseudo-terminal "pty", or the machine's second serial line."""

    def __init__(self, machine, *arguments, on="pty", **options):
        self.machine, self.on = machine, on
        self.shell = machine.start("/bin/sh", "-c", SESSION, "sh", *arguments, stdin=on, **options)
        self.shown = bytearray()
        self.before = self.modes()
        self.type(b"\n")

    def modes(self):
        return self.machine.modes(self.on if self.on.startswith("/") else self.shell.name)

    def type(self, text):
        if self.on == "pty":
            self.shell.type(text)
        else:
            self.machine.serial.sendall(text)

    def expect(self, text):
        """Waits until that is shown, and takes it and what came before."""
        if self.on == "pty":
            return self.shell.expect(text)
        while text not in self.shown:
            piece = self.machine.serial.recv(4096)
            assert piece, bytes(self.shown)
            self.shown += piece
        end = self.shown.index(text) + len(text)
        taken = bytes(self.shown[:end])
        del self.shown[:end]
        return taken

    def expect_echo(self, on):
        deadline = time.monotonic() + PATIENCE
        while bool(self.modes()[3] & ECHO) != on:
            assert time.monotonic() < deadline, f"echo is still {not on}"
            time.sleep(0.01)

    def answer(self, prompt, answer):
        self.expect(prompt)
        self.expect_echo(False)
        self.type(answer + b"\n")

    def expect_end(self, status):
        """What was shown until the end of the run, which left the terminal as it was."""
        shown = self.expect(b"status %d\r\n" % status)
        assert self.modes() == self.before
        self.type(b"\n")
        assert self.shell.wait().status == 0
        return shown.removesuffix(b"status %d\r\n" % status)


TERMINALS = ["pty", "/dev/ttyS1"]


@pytest.mark.parametrize("terminal", TERMINALS)
def test_what_is_typed_at_the_prompts_is_not_shown(machine, terminal):
    session = Session(machine, "-m", "-d", "/root", "-z", on=terminal)
    session.answer(b"zentorserver:", b"10.0.2.2:1")
    session.answer(b"username:", b"somebody")
    session.answer(b"password:", b"Kanarienvogel")
    shown = session.expect_end(32)
    assert shown == lines(b"\n" + CONTACTED + b" ERROR\n")


@pytest.mark.parametrize("terminal", TERMINALS)
@pytest.mark.parametrize("key, number", [(b"\x03", signal.SIGINT), (b"\x1c", signal.SIGQUIT)])
def test_a_key_that_ends_a_run_at_the_password_leaves_an_echoing_terminal_and_no_dump(machine, terminal, key, number):
    session = Session(machine, "-m", "-d", "/root", "-z", *NOBODY, on=terminal, core=UNLIMITED, directory="/run")
    session.expect(b"password:")
    session.expect_echo(False)
    session.type(key)
    shown = session.expect_end(128 + number)
    assert b"(core dumped)" not in shown
    assert machine.shell("ls /run").out == b"orv-locks\n"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_signal_that_ends_a_run_at_the_password_leaves_an_echoing_terminal(machine, number):
    session = Session(machine, "-m", "-d", "/root", "-z", *NOBODY)
    session.expect(b"password:")
    session.expect_echo(False)
    assert machine.shell(f"kill -{number} {process_of(machine)}").status == 0
    session.expect_end(128 + number)


def test_a_terminal_that_goes_away_at_the_password_ends_the_run(machine):
    running = machine.start("keltconfig", "-m", "-d", "/root", "-z", *NOBODY, stdin="pty")
    running.expect(b"password:")
    running.close_input()
    assert running.wait().status == -signal.SIGHUP


# Memory dumps, the list of processes, the memory itself.


def process_of(machine):
    """The process id of keltconfig."""
    line = "for p in /proc/[0-9]*; do [ \"$(readlink $p/exe)\" = /usr/sbin/keltconfig ] && echo ${p#/proc/}; done; true"
    (pid,) = machine.shell(line).out.split()
    return int(pid)


def test_a_run_that_knows_a_password_leaves_no_dump_where_others_do(boot):
    machine = boot(network=True)
    dumped = machine.shell("sleep 1000 & kill -SEGV $!; wait $!", directory="/root", core=UNLIMITED)
    assert dumped.status == 128 + signal.SIGSEGV
    assert machine.shell("ls /root").out == b"core\n"
    assert machine.run("rm", "/root/core").status == 0

    arguments = ("-m", "-d", "/root", "-z", *SILENCE, "-P", "Kanarienvogel")
    running = machine.start("keltconfig", *arguments, core=UNLIMITED, directory="/root")
    running.expect(b"Contacting Zentor...")
    running.signal(signal.SIGSEGV)
    done = running.wait()
    assert (done.status, done.core) == (-signal.SIGSEGV, False)
    assert machine.shell("ls /root").out == b""


def test_the_password_is_in_no_list_of_processes(boot):
    machine = boot(network=True)
    running = machine.start("keltconfig", "-m", "-d", "/root", "-z", *SILENCE, "-P", "Kanarienvogel")
    running.expect(b"Contacting Zentor...")
    pid = process_of(machine)
    listed = machine.shell("ps; cat /proc/[0-9]*/cmdline /proc/[0-9]*/environ").out
    running.signal(signal.SIGKILL)
    running.wait()
    assert b"10.0.2.77" in listed and b"PATH=" in listed and b"%d" % pid in listed
    assert b"Kanarienvogel" not in listed


# Eight characters stand in a string object itself. A whole number of groups of base64 has no part of a neighbour.
WORDS, PLANT = ["Qz7#jX9v", "Qz7#jX9v~Kw4&hY2m!Tn8%bR5s^Gd3*fL6c?"], "Vogel+Nest12"
SEARCHING = """#!/bin/sh
echo "agent $*" >>/run/agent-calls
case $1 in st*) /run/tests/machine search $PPID </run/words >/run/found.$1 2>&1 ;; esac
"""
PLANTS = ("-CustomProps1", PLANT)


def search_from_commands(machine, word):
    """Makes the agent's commands `start` and `stop` search the memory of the run, which waits for them."""
    machine.mount("/tests", "/disk/run/tests", "", BIND)
    machine.write("/run/words", f"{word}\n{PLANT}\n".encode())
    machine.write(INSTALL + "/bin/agent", SEARCHING.encode(), 0o755)


def expect_no_trace(machine, *commands):
    """Nothing of the word, narrow, wide or coded, but of the plant, which shows that the search finds what is there."""
    for command in commands:
        word, plant = machine.read(f"/run/found.{command}").decode().splitlines()
        assert word == "0 0 0", command
        assert "0" not in plant.split()[:2], command


@pytest.mark.parametrize("word", WORDS, ids=len)
@pytest.mark.parametrize("prompted, port", [(False, ""), (False, ":8444"), (True, "")], ids=["Digest", "Basic", "asked"])
def test_the_password_is_nowhere_in_memory_while_the_commands_of_the_agent_run(boot, package, word, prompted, port):
    machine = boot(package=package("--server", SERVER), password=word)
    search_from_commands(machine, word)
    arguments = ("keltconfig", "-m", "-d", "/root", "-z", "-e", SERVER + port, "-U", "admin", *PLANTS)
    if prompted:
        running = machine.start(*arguments, stdin="pty")
        running.expect(b"password:")
        running.type(word.encode() + b"\n")
        run = running.wait()
    else:
        run = machine.run(*arguments, "-P", word)
    assert run.status == 0
    assert run.out.replace(b"\r\n", b"\n").endswith(PROGRESS)
    expect_no_trace(machine, "stop", "start")


@pytest.mark.parametrize("word", WORDS, ids=len)
def test_a_password_that_was_given_for_nothing_is_nowhere_in_memory(machine, word):
    search_from_commands(machine, word)
    given = ("-P", word)
    for arguments, commands in [
        (("-start", *PLANTS, *given), ["start"]),
        (("-stop", *PLANTS, *given), ["stop"]),
        (("-u", *PLANTS, *given), ["stop", "start"]),
        (("-k", *PLANTS, *given), ["stop", "start"]),
        ((*given, *PLANTS, "-start"), ["start"]),
        ((*given, "-P", "short", *PLANTS, "-start"), ["start"]),
        (("-start", *PLANTS, "", *given), ["start"]),
    ]:
        assert machine.run("keltconfig", *arguments).status in ((16,) if "-k" in arguments else (0,)), arguments
        expect_no_trace(machine, *commands)
        assert machine.shell("rm /run/found.*").status == 0
