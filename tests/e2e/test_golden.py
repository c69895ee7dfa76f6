"""From the same input the builds for all processors leave the same bytes: those in tests/data."""

import re
import shutil

import pytest

from device import AGENT_CONFIG, KEYSTORE, ROOT, SCRATCH, SITE_LIST

DATA = ROOT / "tests/data"
# Under the names that the tool takes them by, in forms other than the one it keeps.
KEYS = {
    "sr2048pubkey.bin": "rsa2048.spki.pem",
    "req2048seckey.bin": "rsa2048.pkcs1.pem",
    "srpubkey.bin": "rsa1024.pkcs1pub.der",
    "reqseckey.bin": "rsa1024.pkcs1.der",
}


@pytest.fixture
def source(tmp_path):
    directory = tmp_path / "source"
    directory.mkdir()
    for name, key in KEYS.items():
        shutil.copy(DATA / "keys" / key, directory / name)
    (directory / "agentfipsmode").write_bytes(b"0")
    shutil.copy(DATA / "golden/source.xml", directory / "SiteList.xml")
    return directory


def test_a_managed_switch(device, source):
    assert device.run("-m", "-d", source).status == 0
    assert device.read(SITE_LIST) == (DATA / "golden/managed.xml").read_bytes()
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"
    assert device.read(KEYSTORE + "/server-public.der") == (DATA / "keys/rsa2048.spki.der").read_bytes()
    assert device.read(KEYSTORE + "/server-request-secret.der") == (DATA / "keys/rsa2048.pkcs8.der").read_bytes()
    hash_element = re.search(rb"<binsphash>.*?</binsphash>", device.read(AGENT_CONFIG))[0]
    assert hash_element == (DATA / "golden/binsphash").read_bytes()


def test_a_switch_back(device, source):
    assert device.run("-m", "-d", source).status == 0
    assert device.run("-u").status == 0
    assert device.read(SITE_LIST) == (DATA / "golden/unmanaged.xml").read_bytes()


def test_custom_properties(device):
    assert device.run("-CustomProps1", "M\u00e1laga \u20ac", "-CustomProps4", "<&\">\t\xff").status == 0
    assert device.read(SCRATCH + "/CustomProps.xml") == (DATA / "golden/CustomProps.xml").read_bytes()
