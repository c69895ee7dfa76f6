"""Provisioning that asks: on a terminal, from redirected input, and when it is interrupted meanwhile."""

import os
import signal
import time

import pexpect
import pytest

from device import NO_MODE, PATIENCE
from provisioning import CONTACTED, tool_process

ANSWERS = b"127.0.0.1:1\nadmin\nsecret\n"
ASKED = b"zentorserver:\nusername:\npassword:\n"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TERM": "dumb", "PS1": "# "}


@pytest.fixture
def terminal(device):
    """terminal(*command): runs a command of the device on a terminal."""
    children = []

    def start(*command):
        name, *arguments = [os.fsdecode(word) for word in device.command(*command)]
        child = pexpect.spawn(name, arguments, env=ENVIRONMENT, timeout=PATIENCE)
        children.append(child)
        return child

    yield start
    for child in children:
        child.close(force=True)


def expect_echo(child, on):
    deadline = time.monotonic() + PATIENCE
    while child.getecho() != on:
        assert time.monotonic() < deadline, f"echo is still {not on}"
        time.sleep(0.01)


def switch(device, *more):
    return (device.binary, "-m", "-d", device.state, "-z", *more)


def test_prompts_and_progress_on_a_terminal(device, terminal):
    child = terminal(*switch(device))
    for prompt, answer in [("zentorserver:", "127.0.0.1:1"), ("username:", "admin"), ("password:", "secret")]:
        child.expect_exact(prompt)
        expect_echo(child, False)
        child.sendline(answer)
    child.expect(pexpect.EOF)
    assert child.before == b"\r\n" + CONTACTED.replace(b"\n", b"\r\n") + b" ERROR\r\n"
    child.close()
    assert child.exitstatus == 32


@pytest.mark.parametrize("name", ["SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT"])
def test_a_signal_at_the_password_ends_the_run_on_an_echoing_terminal(device, terminal, name):
    child = terminal("bash", "--norc", "-i")
    child.expect_exact("# ")
    child.sendline("stty -g >/run/before")
    child.expect_exact("# ")
    child.sendline(" ".join(map(str, switch(device, "-e", "127.0.0.1:1", "-U", "admin"))))
    child.expect_exact("password:")
    expect_echo(child, False)
    os.kill(tool_process(device), getattr(signal, name))
    child.expect_exact("# ")
    child.sendline('echo "status $?"; stty -g >/run/after; cmp /run/before /run/after && echo no difference')
    child.expect_exact(f"status {128 + getattr(signal, name)}\r\n")
    child.expect_exact("no difference")


def test_a_shell_may_stop_it_at_the_password_and_continue_it(device, terminal):
    child = terminal("bash", "--norc", "-i")
    child.expect_exact("# ")
    child.sendline(" ".join(map(str, switch(device, "-e", "127.0.0.1:1", "-U", "admin"))))
    child.expect_exact("password:")
    expect_echo(child, False)
    child.send("\x1a")
    child.expect_exact("Stopped")
    child.expect_exact("# ")
    child.sendline("stty -a | grep -o '[-]*echo\\b'")
    child.expect_exact("\r\necho\r\n")
    child.expect_exact("# ")
    child.sendline("fg")
    child.expect_exact("-U admin")
    expect_echo(child, False)
    child.sendline("secret")
    child.expect_exact("Contacting Zentor... ERROR\r\n")
    assert b"secret" not in child.before
    child.expect_exact("# ")
    child.sendline("stty -a | grep -o '[-]*echo\\b'")
    child.expect_exact("\r\necho\r\n")


def run_with_input(device, content, *more):
    path = device.path("/run/input")
    path.write_bytes(content)
    with path.open("rb") as file:
        return device.run("-m", "-d", "/run", "-z", *more, stdin=file)


def test_redirected_answers(device):
    run = run_with_input(device, ANSWERS)
    assert run.result() == (NO_MODE + ASKED + CONTACTED + b" ERROR\n", b"", 32)


def test_only_what_is_missing_is_asked_for(device):
    run = run_with_input(device, b"secret\n", "-e", "127.0.0.1:1", "-U", "admin")
    assert run.result() == (NO_MODE + b"password:\n" + CONTACTED + b" ERROR\n", b"", 32)


def test_nothing_is_asked_and_no_terminal_touched_when_all_is_given(device):
    calls = device.run(
        *("-m", "-d", "/run", "-z", "-e", "127.0.0.1:1", "-U", "admin", "-P", "secret"),
        via="strace -e trace=ioctl,read -o /run/trace",
    )
    assert calls.result() == (NO_MODE + CONTACTED + b" ERROR\n", b"", 32)
    trace = device.take("/run/trace").decode()
    assert "read(" in trace
    assert "ioctl(0" not in trace
    assert "read(0," not in trace


def test_a_long_line_is_cut_and_nothing_more_is_read(device):
    server = b"127.0.0.1:1/" + b"x" * 300
    run = run_with_input(device, server + b"\nadmin\nsecret\n")
    assert run.result() == (NO_MODE + ASKED + CONTACTED + b" ERROR\n", b"", 32)


@pytest.mark.parametrize("content", [b"", b"127.0.0.1:1", b"127.0.0.1:1\n\n"])
def test_input_that_ends_early(device, content):
    run = run_with_input(device, content)
    assert run.out == NO_MODE + ASKED + CONTACTED + b" ERROR\n"
    assert run.status == 32
