"""Site lists in the encodings that a switch takes as they are."""

import pytest

from device import NO_MODE, SCRATCH, SITE_LIST
from provisioning import PROGRESS, make_reply
from reply_server import ReplyServer, ok

BYTE_ORDERS = pytest.mark.parametrize("encoding", ["utf-16-le", "utf-16-be"])


def marked(text, encoding):
    return ("\ufeff" + text).encode(encoding)


def in_utf16(directory, encoding, declaration):
    """Rewrites the site list of a directory in UTF-16. Returns its new bytes."""
    path = directory / "SiteList.xml"
    text = path.read_text(encoding="utf-8").replace('<?xml version="1.0"?>', declaration)
    path.write_bytes(marked(text, encoding))
    return path.read_bytes()


@BYTE_ORDERS
@pytest.mark.parametrize("declaration", ["", '<?xml version="1.0" encoding="UTF-16"?>'])
def test_a_utf16_site_list_is_installed_byte_for_byte(device, package, encoding, declaration):
    directory = package()
    content = in_utf16(directory, encoding, declaration)
    run = device.run("-m", "-d", directory)
    assert run.result() == (NO_MODE, b"", 0)
    assert device.read(SITE_LIST) == content
    assert (directory / "SiteList.xml").read_bytes() == content


@BYTE_ORDERS
def test_the_switch_back_writes_it_in_utf8(device, package, encoding):
    in_utf16(package(), encoding, '<?xml version="1.0" encoding="UTF-16"?>')
    assert device.run("-m", "-d", device.state.parent / "package").status == 0
    assert device.run("-u").result() == (b"", b"", 0)
    content = device.read(SITE_LIST)
    assert content.startswith(b'<?xml version="1.0" encoding="UTF-8"?>\n<ns:SiteLists ')
    assert b"SpipeSite" not in content and b"\0" not in content


@BYTE_ORDERS
def test_the_fips_mode_of_a_fetched_one_is_read(device, package, certificate, encoding):
    directory = package("--fips")
    in_utf16(directory, encoding, "")
    content = (directory / "SiteList.xml").read_bytes()
    target = device.state / "target"
    target.mkdir()
    with ReplyServer(certificate, ok(make_reply(directory))) as server:
        run = device.run("-m", "-d", target, "-z", "-e", server.address, "-U", "admin", "-P", "p")
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert device.read(SITE_LIST) == content
    assert device.read(SCRATCH + "/keystore/keyconf.ini") == b"mode=0\nkeysize=1\n"
