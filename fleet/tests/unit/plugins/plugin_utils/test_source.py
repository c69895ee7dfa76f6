"""The directory of site list and keys."""

import hashlib

import pytest
from ansible.errors import AnsibleError
from ansible.parsing.dataloader import DataLoader
from ansible_collections.kelt.fleet.plugins.plugin_utils.source import key_hash, read_source, servers_of
from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import rsa

Encoding, Format = serialization.Encoding, serialization.PublicFormat
KEY = rsa.generate_private_key(65537, 1024).public_key()
DER = KEY.public_bytes(Encoding.DER, Format.SubjectPublicKeyInfo)
HASH = hashlib.sha256(DER).hexdigest().upper()
SITE_LIST = b'<ns:SiteLists><SiteList><SpipeSite ServerIP="192.0.2.10"/><SpipeSite ServerIP="b.example:1"/></SiteList></ns:SiteLists>'


@pytest.fixture
def directory(tmp_path):
    for name in ("req2048seckey.bin", "agentfipsmode"):
        (tmp_path / name).write_bytes(b"0")
    (tmp_path / "sr2048pubkey.bin").write_bytes(DER)
    (tmp_path / "SiteList.xml").write_bytes(SITE_LIST)
    return tmp_path


def test_a_source_has_its_servers_and_the_hash_of_its_key(directory):
    source = read_source(DataLoader(), str(directory))
    assert source.servers == ["192.0.2.10", "b.example:1"]
    assert source.keys == [HASH]
    assert list(source.files)[-1] == "SiteList.xml"


@pytest.mark.parametrize("encoding", [Encoding.DER, Encoding.PEM])
@pytest.mark.parametrize("form", [Format.SubjectPublicKeyInfo, Format.PKCS1])
def test_the_hash_is_the_same_in_every_form_of_a_key(encoding, form):
    assert key_hash("k", KEY.public_bytes(encoding, form)) == HASH


@pytest.mark.parametrize("name", ["req2048seckey.bin", "sr2048pubkey.bin", "agentfipsmode", "SiteList.xml"])
def test_a_file_that_is_missing_is_named(directory, name):
    (directory / name).unlink()
    with pytest.raises(AnsibleError, match=name):
        read_source(DataLoader(), str(directory))


def test_an_empty_legacy_key_does_not_count(directory):
    (directory / "srpubkey.bin").write_bytes(b"")
    assert read_source(DataLoader(), str(directory)).keys == [HASH]


def test_what_is_no_key_is_named(directory):
    (directory / "sr2048pubkey.bin").write_bytes(b"no key")
    with pytest.raises(AnsibleError, match="sr2048pubkey.bin is no public key"):
        read_source(DataLoader(), str(directory))


def test_a_key_that_is_too_large_is_refused(directory):
    (directory / "req2048seckey.bin").write_bytes(b"x" * 65537)
    with pytest.raises(AnsibleError, match="more than 65536 bytes"):
        read_source(DataLoader(), str(directory))


def test_a_site_list_that_does_not_load_is_read_as_latin_1():
    latin1 = SITE_LIST.replace(b"<SpipeSite", b'<SpipeSite Name="M\xe1laga"', 1)
    assert servers_of(latin1) == ["192.0.2.10", "b.example:1"]


@pytest.mark.parametrize(
    "content, reason",
    [
        (b"<ns:SiteLists>", "does not load"),
        (b"<other/>", "names no server"),
        (b'<ns:SiteLists><SiteList><SpipeSite ServerIP=""/></SiteList></ns:SiteLists>', "names no server"),
        (b"<!DOCTYPE a><ns:SiteLists/>", "DOCTYPE"),
    ],
)
def test_a_site_list_that_no_device_would_take_is_refused(content, reason):
    with pytest.raises(AnsibleError, match=reason):
        servers_of(content)
