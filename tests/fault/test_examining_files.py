"""A file that is there, of which the system says that it may not be read, or cannot say anything."""

import pytest

from device import KEYSTORE, NO_MODE, SITE_LIST

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


def refused_once(device, path, calls, number):
    """Arguments of strace by which the n-th of these calls about this file is refused for want of memory."""
    return f"strace -o /run/trace -P {path} -e trace={calls} -e inject={calls}:error=ENOMEM:when={number}"


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
