"""Where the password and the keys never are, however a provisioning ends."""

import pathlib
import re

import pytest

from device import INSTALL, NO_MODE
from provisioning import CONTACTED, PROGRESS, make_reply, tool_process
from reply_server import ReplyServer, ok

CANARY = "Kanarienvogel-4711"


@pytest.fixture
def target(device):
    directory = device.state / "target"
    directory.mkdir()
    return directory


def arguments(target, server, *password):
    return ("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", *password)


def challenge(scheme):
    head = f'HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: {scheme} realm="z", nonce="n", qop="auth"\r\n'
    return head.encode() + b"Content-Length: 0\r\nConnection: close\r\n\r\n"


def files_with(word, directory):
    paths = [path for path in pathlib.Path(directory).rglob("*") if path.is_file() and not path.is_symlink()]
    assert paths
    return [path for path in paths if word in path.read_bytes()]


def record_children(device):
    """Makes the agent's commands record their environments and command lines."""
    agent = INSTALL + "/bin/agent"
    original = device.read(agent)
    device.write(INSTALL + "/bin/agent.original", original, 0o755)
    script = f'#!/bin/sh\ncat /proc/$$/environ /proc/$$/cmdline >>/run/children\nexec {agent}.original "$@"\n'
    device.write(agent, script.encode(), 0o755)


@pytest.mark.parametrize("scheme", ["Basic", "Digest"])
@pytest.mark.parametrize("prompted", [False, True])
def test_the_password_is_in_no_output_no_file_and_no_started_command(
    device, target, package, certificate, scheme, prompted, tmp_path
):
    record_children(device)
    reply = make_reply(package("--both"))
    answers = tmp_path / "answers"
    answers.write_text(CANARY + "\n")
    with ReplyServer(certificate, challenge(scheme), ok(reply)) as server, answers.open("rb") as stdin:
        run = device.run(*arguments(target, server, *(() if prompted else ("-P", CANARY))), stdin=stdin)
    assert run.result() == (NO_MODE + (b"password:\n" if prompted else b"") + PROGRESS, b"", 0)
    assert len(server.requests) == 2
    assert b"PATH=" in device.read("/run/children")
    assert files_with(CANARY.encode(), device.state) == []


def test_the_password_is_not_in_the_list_of_processes(device, target, certificate):
    seen = []

    def look(connection):
        pid = tool_process(device)
        for name in ("cmdline", "environ"):
            try:
                seen.append(pathlib.Path(f"/proc/{pid}/{name}").read_bytes())
            except PermissionError:
                pass  # not even the same user reads the environment of a run that holds a password
        connection.sendall(ok(b"no"))

    with ReplyServer(certificate, look) as server:
        run = device.run(*arguments(target, server, "-P", CANARY))
    assert run.status == 40
    assert b"admin" in seen[0]
    assert CANARY.encode() not in b"".join(seen)


def test_no_file_of_a_provisioning_is_ever_open_to_others(device, target, package, certificate):
    calls = "openat,open,creat,mkdir,mkdirat,chmod,fchmod,fchmodat"
    with ReplyServer(certificate, ok(make_reply(package("--both")))) as server:
        run = device.run(
            *arguments(target, server, "-P", "p"),
            before="umask 0",
            via=f"strace -y -s 300 -e trace={calls} -o /run/trace",
        )
    assert run.status == 0
    made = [line for line in device.take("/run/trace").decode().splitlines() if "O_TMPFILE" in line or "O_CREAT" in line]
    of_target = [line for line in made if f"<{target}>" in line or f'"{target}' in line]
    assert len(of_target) >= 7  # the zip file, six entries, the mode
    for line in of_target:
        assert re.search(r"(O_TMPFILE|O_EXCL.*), 0600\) = ", line), line


def test_links_that_were_planted_are_not_followed(device, target, package, certificate):
    victim = device.state / "victim"
    victim.write_bytes(b"untouched")
    names = ["keltconfig_keystemp.zip", "sitelist.xml", "SiteList.xml", "agentfipsmode", "srpubkey.bin"]
    names += ["reqseckey.bin", "req2048seckey.bin", "sr2048pubkey.bin"]
    for name in names:
        (target / name).symlink_to(victim)
    with ReplyServer(certificate, ok(make_reply(package("--both")))) as server:
        run = device.run(*arguments(target, server, "-P", "p"))
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert victim.read_bytes() == b"untouched"


def test_the_received_files_are_gone_after_the_switch(device, target, package, certificate):
    (target / "bystander").write_bytes(b"kept")
    with ReplyServer(certificate, ok(make_reply(package("--both")))) as server:
        assert device.run(*arguments(target, server, "-P", "p")).status == 0
    assert [path.name for path in target.iterdir()] == ["bystander"]


def test_a_refused_reply_leaves_no_key_behind(device, target, certificate):
    with ReplyServer(certificate, ok(b"nothing good")) as server:
        run = device.run(*arguments(target, server, "-P", "p"))
    assert run.result() == (NO_MODE + CONTACTED + b" OK\nExamining response... ERROR\n", b"", 40)
    assert list(target.iterdir()) == []
