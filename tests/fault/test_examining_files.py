"""A file that is there, of which the system says that it may not be read, or cannot say anything."""

import pytest

from device import INSTALL, KEYSTORE, NO_MODE, SCRATCH, SITE_LIST

NOT_FOUND = b"Error : For managed mode, sitelist file and all key files could not be found for processing.\n\n"


def switch(device, directory, error):
    """A switch in which the first question whether a file may be read, the site list, ends with this error."""
    calls = "faccessat,faccessat2"
    via = f"strace -o /run/trace -e trace={calls} -e inject={calls}:error={error}:when=1"
    run = device.run("-m", "-d", directory, via=via)
    assert b"SiteList.xml" in next(line for line in device.take("/run/trace").splitlines() if b"INJECTED" in line)
    return run


@pytest.mark.parametrize("error", ["EACCES", "EPERM", "EROFS", "ETXTBSY"])
def test_a_site_list_that_may_not_be_read_counts_as_none(device, package, error):
    assert switch(device, package(), error).result() == (NO_MODE + NOT_FOUND, b"", 1)


@pytest.mark.parametrize("error", ["ENOENT", "ENOTDIR"])
def test_a_site_list_that_went_meanwhile_counts_as_none(device, package, error):
    assert switch(device, package(), error).result() == (NO_MODE + NOT_FOUND, b"", 1)


@pytest.mark.parametrize("error", ["EIO", "ELOOP", "ENOMEM"])
def test_a_site_list_that_cannot_be_examined_is_named(device, package, error):
    directory = package()
    named = f"Error : Accessing sitelist file, {directory}/SiteList.xml\n".encode()
    assert switch(device, directory, error).result() == (NO_MODE + named + NOT_FOUND, b"", 1)


REGISTRY_KEYS = [("ServerPubKeyBuffSize", "ServerPublicKey"), ("ReqSecKeyBuffSize", "ReqSecretKey")]


def refused_once(device, path, calls, number):
    """Arguments of strace by which the n-th of these calls about this file is refused."""
    error = "EMFILE" if calls == "openat" else "ENOMEM"
    return f"strace -o /run/trace -P {path} -e trace={calls} -e inject={calls}:error={error}:when={number}"


def test_a_site_list_in_utf_8_whose_reading_is_refused_once_is_not_converted(device, package):
    directory = package()
    content = (directory / "SiteList.xml").read_bytes().replace(b"<SpipeSite ", '<SpipeSite Note="M\u00e1laga" '.encode())
    (directory / "SiteList.xml").write_bytes(content)
    via = refused_once(device, directory / "SiteList.xml", "openat", 1)
    assert device.run("-m", "-d", directory, via=via).result() == (NO_MODE, b"", 0)
    assert device.take("/run/trace").count(b"(INJECTED)") == 1
    assert (directory / "SiteList.xml").read_bytes() == content
    assert device.read(SITE_LIST) == content


def test_a_key_file_of_2048_bits_that_cannot_be_examined_once_is_imported_all_the_same(device, package):
    directory = package("--both")
    wanted = (directory / "sr2048pubkey.bin").read_bytes()
    # The first time the installed copy is asked for.
    via = refused_once(device, "/opt/Quorvane/orv//sr2048pubkey.bin", "faccessat2", 1)
    assert device.run("-m", "-d", directory, via=via).result() == (NO_MODE, b"", 0)
    assert device.take("/run/trace").count(b"(INJECTED)") == 1
    assert device.read(KEYSTORE + "/server-public.der") == wanted
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"


def test_a_fips_marker_that_cannot_be_read_once_counts_all_the_same(device, package):
    directory = package("--fips")
    # Copied to the installation, and examined there; then its first byte is read.
    via = refused_once(device, INSTALL + "//agentfipsmode", "openat", 1)
    assert device.run("-m", "-d", directory, via=via).status == 0
    assert device.take("/run/trace").count(b"(INJECTED)") == 1
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=0\nkeysize=1\n"


def test_a_record_of_the_mode_that_cannot_be_read_once_is_read_all_the_same(device):
    device.write(KEYSTORE + "/keyconf.ini", b"mode=2\nkeysize=1\n", 0o600)
    device.path(KEYSTORE).chmod(0o700)
    via = "strace -y -o /run/trace -P /opt/Quorvane/orv/scratch/keystore -e trace=openat -e inject=openat:error=EMFILE:when=1"
    assert device.run("-version", via=via).result()[::2] == (b"4.6.0.2545\n", 0)
    assert device.take("/run/trace").count(b"(INJECTED)") == 1


def test_a_registry_that_cannot_be_read_once_decides_over_the_rules_all_the_same(device, package):
    """With the server's keys in the registry the marker counts for nothing; without, it changes the size of the keys."""
    registry = device.path(SCRATCH + "/registry.ini")
    package("--both", to=device.path(SCRATCH + "/update"))
    for name, content in (("agent-public.der", b"a pair"), ("agent-secret.der", b"of its own"), ("keyconf.ini", b"mode=2\nkeysize=0\n")):
        device.write(f"{KEYSTORE}/{name}", content, 0o600)
    device.path(KEYSTORE).chmod(0o700)
    values = "".join(f"{size}=dword:00000004\n{key}=hex:01,02,03,04\n" for size, key in REGISTRY_KEYS)
    registry.write_text("[SOFTWARE\\Tellwick\\Zentor\\Agent]\n" + values)
    registry.chmod(0o600)
    via = refused_once(device, SCRATCH + "/registry.ini", "openat", 1)
    assert device.run("-k", via=via).result() == (b"", b"", 0)
    assert device.take("/run/trace").count(b"(INJECTED)") == 1
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert device.read(KEYSTORE + "/agent-secret.der") == b"of its own"
