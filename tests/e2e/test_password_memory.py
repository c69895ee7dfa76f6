"""The password is nowhere in the memory of the tool while the agent's commands run. The commands look for it themselves."""

import base64
import json
import os

import pytest

from device import INSTALL, NO_MODE, ROOT
from provisioning import PROGRESS, make_reply
from reply_server import ReplyServer, ok

# Without a piece of it in any other word that a run has to do with. Eight characters stand in a string object itself.
PASSWORDS = {8: "Qz7#jX9v", 40: "Qz7#jX9v~Kw4&hY2m!Tn8%bR5s^Gd3*fL6c?Pq1+Z"[:40]}
# A word that stays in memory, as an option's value, shows that the search finds what is there.
PLANT = "Vogel+Nest"


@pytest.fixture
def target(device):
    directory = device.state / "target"
    directory.mkdir()
    return directory


def challenge(scheme):
    head = f'HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: {scheme} realm="z", nonce="n", qop="auth"\r\n'
    return head.encode() + b"Content-Length: 0\r\nConnection: close\r\n\r\n"


def search_from_commands(device, password):
    """Makes the agent's commands `start` and `stop` search the memory of the tool, which waits for them, before they do
    their work."""
    agent = INSTALL + "/bin/agent"
    device.write(agent + ".original", device.read(agent), 0o755)
    device.write("/run/words", json.dumps({"password": password, "plant": PLANT}).encode())
    search = ROOT / "tests/support/search_memory.py"
    script = f"""#!/bin/sh
case $1 in
  st*) /usr/bin/python3 {search} $PPID /run/words "/run/found.$1" 2>>/run/search.errors ;;
esac
exec {agent}.original "$@"
"""
    device.write(agent, script.encode(), 0o755)


def plants():
    coded = base64.b64encode(PLANT.encode()).decode()
    return ("-CustomProps1", PLANT, "-CustomProps2", coded)


def expect_no_trace(device, *commands):
    errors = device.path("/run/search.errors")
    assert not errors.exists() or errors.read_text() == ""
    for command in commands:
        found = json.loads(device.take("/run/found." + command))
        assert {line.split()[0] for line in found["plant"]} == {"narrow", "wide", "base64"}, command
        assert found["password"] == [], command


def typed(answer):
    """A terminal, on which `answer` was typed ahead. Returns the end that a run reads, and the other one to hold open."""
    keyboard, screen = os.openpty()
    os.write(keyboard, answer.encode() + b"\n")
    return screen, keyboard


@pytest.mark.parametrize("length", PASSWORDS)
@pytest.mark.parametrize("scheme", ["Basic", "Digest"])
@pytest.mark.parametrize("prompted", [False, True])
def test_after_provisioning(device, target, package, certificate, scheme, prompted, length):
    password = PASSWORDS[length]
    search_from_commands(device, password)
    options = ("-m", "-d", target, "-z", "-U", "admin", *plants(), *(() if prompted else ("-P", password)))
    screen, keyboard = typed(password)
    with ReplyServer(certificate, challenge(scheme), ok(make_reply(package("--both")))) as server:
        run = device.run(*options, "-e", server.address, stdin=screen)
    os.close(screen)
    os.close(keyboard)
    assert run.result() == (NO_MODE + (b"password:\n" if prompted else b"") + PROGRESS, b"", 0)
    expected = base64.b64encode(f"admin:{password}".encode()) if scheme == "Basic" else b'username="admin"'
    assert expected in server.requests[1]
    expect_no_trace(device, "stop", "start")


@pytest.mark.parametrize(
    ("option", "commands"),
    [("-start", ["start"]), ("-stop", ["stop"]), ("-u", ["stop", "start"]), ("-k", ["stop", "start"])],
)
def test_where_it_was_given_for_nothing(device, option, commands):
    search_from_commands(device, PASSWORDS[40])
    device.run(option, *plants(), "-P", PASSWORDS[40])
    expect_no_trace(device, *commands)


@pytest.mark.parametrize("length", PASSWORDS)
def test_where_nothing_is_fetched(device, package, length):
    search_from_commands(device, PASSWORDS[length])
    assert device.run("-m", "-d", package(), *plants(), "-P", PASSWORDS[length]).status == 0
    expect_no_trace(device, "stop", "start")


def test_of_two_passwords_neither_stays(device):
    search_from_commands(device, PASSWORDS[40])
    assert device.run("-P", PASSWORDS[40], "-P", "short", *plants(), "-start").status == 0
    expect_no_trace(device, "start")


def test_as_the_first_argument_which_the_start_of_the_program_looks_at(device):
    """In blocks as wide as a vector register, with the name of the program; how it stands in them differs."""
    search_from_commands(device, PASSWORDS[40])
    for shift in range(0, 64, 8):
        run = device.run("-P", PASSWORDS[40], *plants(), "-start", via=f"SHIFT={'x' * shift}")
        assert run.status == 0
        expect_no_trace(device, "start")


def test_behind_an_empty_argument_where_nothing_is_read_any_more(device):
    search_from_commands(device, PASSWORDS[8])
    assert device.run("-start", *plants(), "", "-P", PASSWORDS[8]).status == 0
    expect_no_trace(device, "start")


def test_a_server_that_offers_http_2_is_asked_in_http_1_1(device, target, certificate):
    """The tables of HTTP/2 would keep the password."""
    with ReplyServer(certificate, ok(b"no"), protocols=["h2", "http/1.1"]) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "p")
    assert run.status == 40
    assert server.requests[0].startswith(b"GET /remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do HTTP/1.1\r\n")
    assert server.agreed == ["http/1.1"]
