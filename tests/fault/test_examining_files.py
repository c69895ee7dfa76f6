"""A file that is there, of which the system says that it may not be read, or cannot say anything."""

import pytest

from device import NO_MODE

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
