"""Runs that are killed at one of their calls, and what the device is like when the next one has ended."""

import re

import pytest

from device import INSTALL, KEYSTORE, ROOT, SCRATCH, SITE_LIST

KEYS = ROOT / "tests/data/keys"
MARK = SCRATCH + "/unfinished-work"
UPDATE = SCRATCH + "/update"
REGISTRY = SCRATCH + "/registry.ini"
SERVER_DATA = [f"{INSTALL}/reqseckey.bin", f"{INSTALL}/srpubkey.bin", f"{SCRATCH}/ServerSiteList.xml"]
SERVER_DATA += [f"{SCRATCH}/etc/sitecache.bin"]
PAIR = [f"{KEYSTORE}/agent-public.der", f"{KEYSTORE}/agent-secret.der"]

# Runs "$@" once, with strace's options in FAULTS, with its calls in /run/trace and what it leaves in /run/after, and puts everything back as it was.
REHEARSAL = """
cp -a /etc/orv.d /run/kept.orv.d; cp -a /opt/Quorvane /run/kept.Quorvane
[ ! -d /run/keys ] || cp -a /run/keys /run/kept.keys
strace -o /run/trace -s 256 $FAULTS "$KELTCONFIG" "$@" >/run/undisturbed; echo $? >>/run/undisturbed
rm -rf /run/after; mkdir /run/after; cp -a /etc/orv.d /opt/Quorvane /run/after/
[ ! -d /run/keys ] || cp -a /run/keys /run/after/
rm -rf /etc/orv.d/* /opt/Quorvane/orv /run/keys
cp -a /run/kept.orv.d/. /etc/orv.d/; cp -a /run/kept.Quorvane/. /opt/Quorvane/
[ ! -d /run/kept.keys ] || mv /run/kept.keys /run/keys
rm -r /run/kept.*"""


@pytest.fixture
def device(device):
    """With an agent that takes no time, and that nobody has to wait for."""
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(re.sub(rb"/opt/Quorvane/orv/bin/agent \w+( \w+)?", b"/bin/true", config.read_bytes()))
    return device


def numbers_of(device, wanted, *arguments, faults=""):
    """The calls that show as `wanted`, a pattern that starts with their name, in a run with these arguments and faults:
    their name, and which of that name they are. The device is as it was before."""
    assert device.shell(f"FAULTS='{faults}'\n" + REHEARSAL, *arguments).returncode == 0
    name = re.match(r"\w+", wanted)[0]
    lines = device.take("/run/trace").decode(errors="replace").splitlines()
    calls = enumerate((line for line in lines if line.startswith(name + "(")), 1)
    found = [number for number, line in calls if re.match(wanted, line)]
    assert found, wanted
    return name, found


def number_of(device, wanted, *arguments, faults=""):
    """The first of them."""
    name, found = numbers_of(device, wanted, *arguments, faults=faults)
    return name, found[0]


def undisturbed(device, *arguments):
    """What the last rehearsal said and ended with."""
    *lines, status = device.take("/run/undisturbed").splitlines(keepends=True)
    return b"".join(lines), int(status)


def kill_before(device, wanted, *arguments):
    """Kills a run before that call. The run that was not killed had (output, status)."""
    name, number = number_of(device, wanted, *arguments)
    said = undisturbed(device, *arguments)
    run = device.run(*arguments, via=f"strace -qq -o /run/trace -e trace={name} -e inject={name}:signal=KILL:when={number}")
    assert run.status == 137
    return said


def files_below(device, directory):
    """Every file below it with its content and mode, log apart."""
    top = device.path(directory)
    found = {str(path.relative_to(top)): path for path in top.rglob("*") if path.is_file() and path.name != "keltcfg.log"}
    return {name: (path.read_bytes(), path.stat().st_mode & 0o7777) for name, path in found.items()}


def expect_as_undisturbed(device):
    """That the device is as the last rehearsal left it."""
    for directory in ("/etc/orv.d", "/opt/Quorvane", "/run/keys"):
        expected = files_below(device, "/run/after/" + directory.rsplit("/", 1)[-1])
        found = files_below(device, directory)
        assert sorted(found) == sorted(expected)
        assert [name for name in expected if found[name] != expected[name]] == []


def there(device, paths):
    return [path for path in paths if device.path(path).exists()]


def put_keys(device, directory, public="rsa2048", names=("sr2048pubkey.bin", "req2048seckey.bin")):
    device.write(f"{directory}/{names[0]}", (KEYS / f"{public}.spki.der").read_bytes())
    device.write(f"{directory}/{names[1]}", (KEYS / f"{public}.pkcs8.der").read_bytes(), 0o600)
    device.write(f"{directory}/agentfipsmode", b"0")


def put_pair(device):
    """An agent that has a pair of its own, of 1024 bits."""
    device.path(KEYSTORE).mkdir(mode=0o700, exist_ok=True)
    device.write(PAIR[0], (KEYS / "rsa1024.spki.der").read_bytes(), 0o600)
    device.write(PAIR[1], (KEYS / "rsa1024.pkcs8.der").read_bytes(), 0o600)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=0\n", 0o600)


def put_registry(device, public="rsa1024"):
    """A registry that holds the keys of the server, by which the marker does not count, and of the agent."""
    lines = ["[SOFTWARE\\Tellwick\\Zentor\\Agent]"]
    names = [("ServerPubKeyBuffSize", "ServerPublicKey", "spki"), ("ReqSecKeyBuffSize", "ReqSecretKey", "pkcs8")]
    names += [("PubKeyBuffSize", "AgentPublicKey", "spki"), ("SecKeyBuffSize", "AgentSecretKey", "pkcs8")]
    for size, name, form in names:
        key = (KEYS / f"{public}.{form}.der").read_bytes()
        lines += [f"{size}=dword:{len(key):08x}", f"{name}=hex:" + ",".join(f"{byte:02x}" for byte in key)]
    device.write(REGISTRY, "\n".join([*lines, "AgentGUID=hex:01,02", ""]).encode(), 0o600)


@pytest.fixture
def managed(device):
    """An agent with a server, and all that belongs to it."""
    device.write(SITE_LIST, b'<ns:SiteLists><SiteList><SpipeSite ServerIP="192.0.2.1"/></SiteList></ns:SiteLists>\n')
    for path in SERVER_DATA:
        device.write(path, b"of the server")
    put_pair(device)
    return device


def log_says(device, text):
    return any(text in line for _, line in device.log())
