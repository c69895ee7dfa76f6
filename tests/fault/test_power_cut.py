"""A power cut at any moment of any command that writes: the order of syncs, and what the next run makes of each state that
the cut can leave."""

import re

import pytest

from device import INSTALL, KEY_FILES, KEYSTORE, ROOT, SCRATCH, SITE_LIST, Device
from lasting_files import lasting_tree
from power_cut_disk import TEMPORARY, Disk
from power_cut_runs import run_states
from power_cut_states import states_of
from power_cut_trace import TRACE, record

SOURCE = "/opt/Quorvane/keys"  # on the disk, unlike /run
KEYS = ROOT / "tests/data/keys"
SECTION = b"[SOFTWARE\\Tellwick\\Zentor\\Agent]\n"


def key(name):
    return (KEYS / name).read_bytes()


def put_source(device, directory, to=SOURCE):
    for path in directory.iterdir():
        device.write(f"{to}/{path.name}", path.read_bytes(), 0o600 if "seckey" in path.name else 0o644)


def put_agents_pair(device):
    """An agent that has a pair of its own, in another size than the new keys."""
    for name, content in (("agent-public.der", key("rsa1024.spki.der")), ("agent-secret.der", key("rsa1024.pkcs8.der"))):
        device.write(f"{KEYSTORE}/{name}", content, 0o600)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=0\n", 0o600)
    device.path(KEYSTORE).chmod(0o700)


def put_caches(device):
    for name in ("ServerSiteList.xml", "etc/sitecache.bin"):
        device.write(f"{SCRATCH}/{name}", b"cached")


def value(name, content):
    if isinstance(content, int):
        return b"%s=dword:%08x\n" % (name, content)
    return b"%s=hex:%s\n" % (name, content.hex(",").encode())


def managed(*options):
    def prepare(device, package):
        put_source(device, package(*options))
        put_agents_pair(device)
        put_caches(device)
        return ["-m", "-d", SOURCE]

    return prepare


def provisioned(device, _package):
    device.path(SOURCE).mkdir()
    put_agents_pair(device)
    return ["-m", "-d", SOURCE, "-z", "-e", "127.0.0.1", "-U", "admin", "-P", "zentor 4711"]


def unmanaged(device, package):
    put_agents_pair(device)
    put_caches(device)
    device.write(SITE_LIST, (package() / "SiteList.xml").read_bytes())
    for name in KEY_FILES:
        device.write(f"{INSTALL}/{name}", b"left over", 0o600)
    return ["-u"]


def keys_from_files(device, package):
    put_agents_pair(device)
    put_source(device, package("--both"), SCRATCH + "/update")
    device.path(SCRATCH + "/update/SiteList.xml").unlink()
    return ["-k"]


def keys_from_registry(device, package):
    public, secret = key("rsa1024.spki.der"), key("rsa1024.pkcs8.der")
    server = [(b"ServerPubKeyBuffSize", len(public)), (b"ServerPublicKey", public)]
    server += [(b"ReqSecKeyBuffSize", len(secret)), (b"ReqSecretKey", secret)]
    agent = [(b"PubKeyBuffSize", len(public)), (b"AgentPublicKey", public)]
    agent += [(b"SecKeyBuffSize", len(secret)), (b"AgentSecretKey", secret), (b"AgentGUID", b"\1\2")]
    registry = SECTION + b"".join(value(*entry) for entry in server + agent)
    device.write(f"{SCRATCH}/registry.ini", registry, 0o600)
    return keys_from_files(device, package)


def custom_properties(device, _package):
    device.write(f"{SCRATCH}/CustomProps.xml", b'<CustomProperties><CustomProps1 value="before"/></CustomProperties>')
    return [word for n in "1234" for word in (f"-CustomProps{n}", f"value {n}")]


COMMANDS = {
    "managed-utf8": managed(),
    "managed-latin1": managed("--latin1"),
    "managed-provisioned": provisioned,
    "unmanaged": unmanaged,
    "keys-from-files": keys_from_files,
    "keys-from-registry": keys_from_registry,
    "custom-properties": custom_properties,
}


@pytest.fixture(params=COMMANDS)
def command(request, tmp_path, binary, package, _packages):
    """A device that is ready for a command, and its arguments."""
    options = ["--server", "--package", str(_packages(("--both",)))] if request.param == "managed-provisioned" else []
    device = Device(tmp_path / "device", binary, *options)
    # The stand-in agent has no part in this, and takes time.
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(re.sub(rb"/opt/Quorvane/orv/bin/agent \w+( \w+)?", b"/bin/true", config.read_bytes()))
    return device, COMMANDS[request.param](device, package)


def test_what_a_power_cut_can_leave_is_a_state_from_which_the_next_run_ends_well(command):
    device, arguments = command
    first = lasting_tree(device.state)
    assert device.run(*arguments, via=TRACE).status == 0
    after = lasting_tree(device.state)
    disk = Disk(first).play(record(device.take("/run/trace")))
    states = states_of(disk)

    assert disk.problems == []
    assert after in [state for _, state in states], "the model follows the run to its end"
    assert first in [state for _, state in states]
    assert len(states) > 20

    trees = [first, after, *(state for _, state in states)]
    (status, _, good), again, *reruns = run_states(device, trees, *arguments)
    assert (status, good) == (0, after)
    # Where all was done, the next run may find nothing to do.
    ends = [(0, after), (again[0], again[2])]
    wrong = []
    for (how, state), (status, output, tree) in zip(states, reruns):
        done = {path: entry for path, entry in state.items() if not TEMPORARY.match(path.rsplit("/", 1)[1])} == after
        if (status, tree) != ends[0] and not (done and (status, tree) == ends[1]):
            paths = sorted(path for path in {*tree, *after} if tree.get(path) != after.get(path))
            wrong.append(f"{how}: status {status}, {paths}, {output!r}")
    if wrong:
        pytest.fail("\n".join([f"{len(wrong)} of {len(states)} states:", *wrong]), pytrace=False)
