"""What a run that was killed left of the files it was writing: the next one that writes anything removes it."""

import pytest

from device import AGENT_CONFIG, INSTALL, KEYSTORE, SCRATCH
from provisioning import make_reply
from reply_server import ReplyServer, ok

NAME = ".f.kelt-abcdefgh2345"
INSTALLATION = [AGENT_CONFIG.rsplit("/", 1)[0], INSTALL, SCRATCH, SCRATCH + "/etc", KEYSTORE]
LINE = "Removed what an interrupted run left, "


@pytest.fixture
def littered(device):
    """The device with a file left in each of its directories, and some that only look like such."""
    device.path(KEYSTORE).mkdir(mode=0o700)
    for directory in INSTALLATION:
        device.write(f"{directory}/{NAME}", b"secret", 0o600)
        device.write(f"{directory}/.mine.kelt-not", b"kept")
    return device


def left(device):
    return [directory for directory in INSTALLATION if device.path(f"{directory}/{NAME}").exists()]


def mentioned(device):
    return sorted(text.removeprefix(LINE) for severity, text in device.log() if text.startswith(LINE) and severity == "I")


def single(path):
    return path.replace("//", "/")


@pytest.mark.parametrize("arguments", [["-u"], ["-k"], ["-CustomProps1", "A"]], ids=lambda words: words[0])
def test_a_run_that_writes_sweeps_the_installation(littered, arguments):
    littered.run(*arguments)
    assert left(littered) == []
    assert [single(path) for path in mentioned(littered)] == sorted(f"{directory}/{NAME}" for directory in INSTALLATION)
    assert all(littered.read(directory + "/.mine.kelt-not") == b"kept" for directory in INSTALLATION)


def test_a_switch_sweeps_its_source_directory_too(littered, package):
    directory = package()
    (directory / NAME).write_bytes(b"secret")
    (directory / "bystander").write_bytes(b"kept")
    assert littered.run("-m", "-d", directory).status == 0
    assert left(littered) == []
    assert not (directory / NAME).exists()
    assert (directory / "bystander").read_bytes() == b"kept"
    assert str(directory / NAME) in mentioned(littered)


def test_a_directory_that_is_not_the_source_is_not_swept(device, package, tmp_path):
    (tmp_path / NAME).write_bytes(b"kept")
    assert device.run("-m", "-d", package(), cwd=tmp_path).status == 0
    assert (tmp_path / NAME).exists()


def test_provisioning_sweeps_the_directory_that_it_unpacks_into(device, package, certificate, tmp_path):
    target = tmp_path / "target"
    target.mkdir()
    (target / NAME).write_bytes(b"secret")
    with ReplyServer(certificate, ok(b"OK:\r\n")) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "p")
    assert run.status == 35
    assert [path.name for path in target.iterdir()] == ["keltconfig_keystemp.zip"]
    assert mentioned(device) == [str(target / NAME)]


@pytest.mark.parametrize(
    "arguments",
    [["-version"], ["-h"], ["-nonsense"], ["-checkHF", "X", "-u"], ["-m"], ["-start"], ["-stop"], ["-version", "-u"]],
    ids=" ".join,
)
def test_a_run_that_writes_nothing_leaves_all_as_it_is(littered, arguments):
    littered.run(*arguments)
    assert left(littered) == INSTALLATION
    assert mentioned(littered) == []


def test_a_version_costs_no_look_at_a_directory(littered):
    assert littered.run("-version", via="strace -f -y -e trace=getdents64,unlink,unlinkat -o /run/trace").status == 0
    trace = littered.take("/run/trace").decode()
    assert not any(directory in trace or NAME in trace for directory in INSTALLATION)
