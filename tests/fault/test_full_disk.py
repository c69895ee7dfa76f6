"""A switch on a device whose file systems are full."""

import pytest

from device import AGENT_CONFIG, INSTALL, NO_MODE, SITE_LIST

# Moves a directory of the device to a small file system of its own, filled to the last block or out of inodes.
SMALL = """
small() {
  cp -a "$1" /run/moved
  mount -n -t tmpfs -o "mode=755,$2" small "$1"
  cp -a /run/moved/. "$1"
  rm -r /run/moved
}
fill() { dd if=/dev/zero of="$1/filler" bs=4096 2>/dev/null || true; }
use_up() { n=0; while printf "" >"$1/filler.$n"; do n=$((n+1)); done 2>/dev/null; }
"""
# Brings what is left there to where the test can look at it, fillers aside.
BACK = """
rm -f {0}/filler*
mkdir /run/left
cp -a {0}/. /run/left
"""


def left(device):
    top = device.path("/run/left")
    return {str(path.relative_to(top)): path.read_bytes() for path in top.rglob("*") if path.is_file()}


@pytest.mark.parametrize(
    "small, full", [("size=128k", "fill"), ("size=1m,nr_inodes=40", "use_up")], ids=["blocks", "inodes"]
)
def test_installation_without_room(device, package, small, full):
    directory = package()
    old = device.read(SITE_LIST)
    installed = {str(p.relative_to(device.path(INSTALL))): p.read_bytes() for p in device.path(INSTALL).rglob("*") if p.is_file()}
    run = device.run(
        "-m", "-d", directory, before=SMALL + f"small {INSTALL} {small}; {full} {INSTALL}", after=BACK.format(INSTALL)
    )
    assert run.before == b""
    assert run.result() == (NO_MODE + b"Error : Failed to copy sitelist file.\n\n", b"", 1)
    found = left(device)
    assert found.pop("scratch/logs/keltcfg.log", b"") == b""
    assert found == installed and found["scratch/etc/SiteList.xml"] == old
    assert device.calls() == device.stopping() + device.starting()
    # The operator's files are all still there.
    assert {"SiteList.xml", "agentfipsmode", "req2048seckey.bin", "sr2048pubkey.bin"} <= {p.name for p in directory.iterdir()}


@pytest.mark.parametrize("small, full", [("size=64k", "fill"), ("size=1m,nr_inodes=20", "use_up")], ids=["blocks", "inodes"])
def test_configuration_without_room_keeps_the_old_one(device, package, small, full):
    agent = AGENT_CONFIG.rsplit("/", 1)[0]
    old = device.read(AGENT_CONFIG)
    run = device.run("-m", "-d", package(), before=SMALL + f"small {agent} {small}; {full} {agent}", after=BACK.format(agent))
    assert run.before == b""
    assert run.result() == (NO_MODE, b"", 0)
    assert left(device) == {"config.xml": old}


def test_source_directory_without_room_for_the_legacy_names(device, package):
    directory = package()
    fixed = "small /run/keys nr_inodes=6,size=1m; use_up /run/keys"
    run = device.run(
        "-m", "-d", "/run/keys", before=SMALL + f"cp -a {directory} /run/keys; {fixed}", after=BACK.format("/run/keys")
    )
    failed = b"".join(b"Error : Failed to copy key file, /run/keys/%s\n" % name for name in (b"reqseckey.bin", b"srpubkey.bin"))
    assert run.result() == (NO_MODE + failed, b"", 1)
