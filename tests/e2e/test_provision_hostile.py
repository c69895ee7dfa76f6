"""A management server that nobody verified may say anything: the agent keeps running in its old mode."""

import base64
import os
import signal
import subprocess
import sys

import pytest

from device import KEYSTORE, NO_MODE, ROOT
from provisioning import CONTACTED, HINT, NO_ARCHIVE, NO_SUCCESS, PROGRESS, UNPACKED, make_reply, tool_process
from reply_server import ReplyServer, ok, reset

NO_MODE_READ = UNPACKED + b"Reading FIPS mode from sitelist... ERROR\n"
MIB = 1 << 20


@pytest.fixture
def target(device):
    directory = device.state / "target"
    directory.mkdir()
    return directory


@pytest.fixture(scope="session")
def archives(tmp_path_factory):
    directory = tmp_path_factory.mktemp("archives")
    subprocess.run([sys.executable, "-B", ROOT / "tests/data/archives/make_archives.py", directory], check=True)
    return directory


def refused(device, target, certificate, *answers):
    """What a provisioning that must fail says and returns. The agent was left alone, and so was all but the target."""
    before = sorted(str(path) for path in device.state.parent.rglob("*") if target not in path.parents)
    with ReplyServer(certificate, *answers) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "pw")
    assert device.calls() == []
    after = sorted(str(path) for path in device.state.parent.rglob("*") if target not in path.parents)
    own = ("/run/orv-locks", "/logs")
    assert [path for path in set(after) ^ set(before) if not any(part in path for part in own)] == []
    assert run.out.startswith(NO_MODE)
    assert run.err == b""
    return run.out[len(NO_MODE) :], run.status


def cut(connection):
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\nOK:\r\n" + b"UEsD" * 1000)
    reset(connection)


REPLIES = {
    "empty": (ok(b""), NO_SUCCESS + HINT, 40),
    "short": (ok(b"OK:\r"), NO_SUCCESS, 40),
    "wrong_prefix": (ok(b"ok:\r\nUEs="), NO_SUCCESS, 40),
    "mark_alone": (ok(b"OK:\r\n"), NO_ARCHIVE, 35),
    "garbage": (ok(b"OK:\r\n%%%%"), NO_ARCHIVE, 35),
    "cut_base64": (ok(b"OK:\r\nUEsDB"), NO_ARCHIVE, 35),
    "no_zip": (ok(b"OK:\r\n" + base64.b64encode(b"no archive")), NO_ARCHIVE, 35),
    "reset": (cut, CONTACTED + b" ERROR\n", 32),
    "no_http": (b"OK:\r\nUEs=", CONTACTED + b" ERROR\n", 32),
    "redirect": (
        b"HTTP/1.1 302 Found\r\nLocation: https://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n",
        NO_SUCCESS + HINT,
        40,
    ),
    "not_found": (b"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone", NO_SUCCESS, 40),
    "server_error": (b"HTTP/1.1 500 Internal Server Error\r\nContent-Length: 4\r\n\r\nnone", NO_SUCCESS, 40),
    "wrong_length": (b"HTTP/1.1 200 OK\r\nContent-Length: 99999\r\n\r\nOK:\r\n", CONTACTED + b" ERROR\n", 32),
}


@pytest.mark.parametrize("name", REPLIES)
def test_a_reply_that_is_no_package(device, target, certificate, name):
    answer, text, status = REPLIES[name]
    assert refused(device, target, certificate, answer) == (text, status)
    left = {"keltconfig_keystemp.zip"} if status == 35 else set()
    assert {path.name for path in target.iterdir()} == left


@pytest.mark.parametrize(
    "name",
    ["parent", "absolute", "backslash", "link", "file_through_link", "duplicate", "part_of_300", "entries_2000", "bomb"]
    + ["bomb_that_lies", "wrong_checksum", "encrypted", "cut_in_content"],
)
def test_an_archive_that_is_hostile(device, target, certificate, archives, name):
    archive = (archives / "hostile" / (name + ".zip")).read_bytes()
    reply = ok(b"OK:\r\n" + base64.encodebytes(archive).replace(b"\n", b"\r\n"))
    assert refused(device, target, certificate, reply) == (NO_ARCHIVE, 35)
    assert [path.name for path in target.iterdir()] == ["keltconfig_keystemp.zip"]


@pytest.mark.parametrize("name", ["empty", "stored"])
def test_an_archive_without_a_site_list(device, target, certificate, archives, name):
    reply = ok(b"OK:\r\n" + base64.b64encode((archives / "good" / (name + ".zip")).read_bytes()))
    assert refused(device, target, certificate, reply) == (NO_MODE_READ, 38)


def planted(directory, name, content):
    """A file that another user put into a directory that all may write to."""
    path = directory / name
    path.write_bytes(content)
    if os.geteuid() == 0:
        os.chown(path, 65534, 65534)
    else:
        path.chmod(0o666)
    directory.chmod(0o1777)
    return path


LEGACY, FULL = ["reqseckey.bin", "srpubkey.bin"], ["req2048seckey.bin", "sr2048pubkey.bin"]


@pytest.mark.parametrize("brought, strange", [(["--legacy"], FULL), ([], LEGACY)], ids=["full", "legacy"])
def test_keys_of_strangers_never_become_the_agents(device, target, certificate, package, tmp_path, brought, strange):
    servers, strangers = package(*brought, to=tmp_path / "server"), package("--both", to=tmp_path / "stranger")
    for name in strange:
        planted(target, name, (strangers / name).read_bytes())
    with ReplyServer(certificate, ok(make_reply(servers))) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "pw")
    assert run.out.startswith(NO_MODE + PROGRESS)
    for name in strange:
        assert ("I", f"Removed what is no file of ours, {target}/{name}") in device.log()
    if brought:  # without its 2048-bit keys the package is none to switch with
        assert run.status == 1
        assert f"Error : Missing key file, {target}/sr2048pubkey.bin\n".encode() in run.out
        assert not device.path(KEYSTORE).exists()
    else:
        assert run.result() == (NO_MODE + PROGRESS, b"", 0)
        assert device.read(KEYSTORE + "/server-public.der") == (servers / "sr2048pubkey.bin").read_bytes()


def test_what_cannot_be_removed_ends_the_run(device, target, certificate, package):
    (target / "srpubkey.bin").mkdir()
    reply = ok(make_reply(package()))
    assert refused(device, target, certificate, reply) == (NO_MODE_READ, 38)
    assert ("E", f"Cannot remove what is no file of ours, {target}/srpubkey.bin") in device.log()
    assert (target / "srpubkey.bin").is_dir()


def test_plain_http(device, target, certificate):
    class Plain(ReplyServer):
        def _converse(self, plain, answer):
            with plain:
                plain.sendall(answer)
                plain.recv(4096)

    with Plain(certificate, ok(b"OK:\r\n")) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "pw")
    assert run.result() == (NO_MODE + CONTACTED + b" ERROR\n", b"", 32)


def test_an_endless_reply_costs_no_more_memory_than_its_bound_and_ends_at_an_interrupt(device, target, certificate):
    resident = []

    def endless(connection):
        connection.sendall(b"HTTP/1.1 200 OK\r\n\r\nOK:\r\n")
        for _ in range(96):
            connection.sendall(b"A" * MIB)
        pid = tool_process(device)
        with open(f"/proc/{pid}/status") as file:
            resident.extend(int(line.split()[1]) // 1024 for line in file if line.startswith("VmHWM"))
        os.kill(pid, signal.SIGINT)
        connection.sendall(b"A" * MIB)

    with ReplyServer(certificate, endless) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "pw")
    assert run.result() == (NO_MODE + CONTACTED, b"", 128 + signal.SIGINT)
    assert 32 < resident[0] < 3 * 32 + 16
    assert device.calls() == []


@pytest.mark.parametrize("line", [None, 76], ids=["one-line", "lines-of-76"])
def test_a_large_reply_costs_no_more_than_three_times_its_size(device, target, certificate, package, line):
    directory = package()
    for number in range(6):
        (directory / f"noise{number}").write_bytes(os.urandom(MIB))
    reply = make_reply(directory)
    if line:
        reply = reply[:5] + b"\n".join(reply[at : at + line] for at in range(5, len(reply), line))
    with ReplyServer(certificate, ok(reply)) as server:
        run = device.run(
            *("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "pw"),
            via=f"/usr/bin/python3 {ROOT}/tests/support/measure_peak.py /run/peak",
        )
    assert run.status == 0
    assert len(reply) > 8 * MIB
    assert (target / "noise5").read_bytes() == (directory / "noise5").read_bytes()
    assert len(reply) < int(device.take("/run/peak")) <= 3 * len(reply) + 16 * MIB


def test_a_second_server_is_never_asked(device, target, certificate, package):
    with ReplyServer(certificate, ok(make_reply(package()))) as elsewhere:
        location = f"HTTP/1.1 301 Moved Permanently\r\nLocation: https://{elsewhere.address}/\r\nContent-Length: 0\r\n\r\n"
        assert refused(device, target, certificate, location.encode()) == (NO_SUCCESS + HINT, 40)
    assert elsewhere.requests == []
