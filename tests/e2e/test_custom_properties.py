"""The custom properties that the agent reports."""

import pytest

from device import LOG, NO_MODE, SCRATCH, changes

FILE = SCRATCH + "/CustomProps.xml"
GONE = b"Error : Failed to delete file, " + FILE.encode() + b"\n"
DECLARATION = b'<?xml version="1.0" encoding="UTF-8"?>'


def without_layout(xml):
    """The document without blanks between elements, which are the XML library's own matter."""
    return b"".join(line.strip() for line in xml.splitlines())


def test_first_properties_in_ascending_order(device):
    before = device.files()
    run = device.run("-CustomProps4", "D", "-CustomProps1", "A")
    assert run.result() == (NO_MODE + GONE, b"", 0)
    assert without_layout(device.read(FILE)) == (
        DECLARATION + b'<CustomProperties><CustomProps1 value="A"/><CustomProps4 value="D"/></CustomProperties>'
    ) or without_layout(device.read(FILE)) == (
        DECLARATION + b'<CustomProperties><CustomProps1 value="A" /><CustomProps4 value="D" /></CustomProperties>'
    )
    left = changes(before, device.files())
    assert (left["removed"], left["changed"]) == ([], [])
    assert set(left["added"]) <= {FILE, LOG, SCRATCH + "/logs", "/run/orv-locks"}
    assert device.calls() == []


def test_a_later_run_replaces_what_an_earlier_one_set(device):
    device.run("-CustomProps1", "A", "-CustomProps2", "old")
    run = device.run("-CustomProps2", "B")
    assert run.result() == (NO_MODE, b"", 0)
    assert b"CustomProps1" not in device.read(FILE)
    assert b'<CustomProps2 value="B"' in device.read(FILE)


def test_a_run_without_properties_leaves_the_file_alone(device):
    device.write(FILE, b"whatever it holds")
    device.run("-start")
    assert device.read(FILE) == b"whatever it holds"


def test_value_is_escaped_and_read_as_latin_1(device):
    device.run("-CustomProps3", b'<a & "b" \xe9>')
    assert b"\xc3\xa9" in device.read(FILE)
    assert b"&lt;a &amp; &quot;b&quot; " in device.read(FILE)
    shown = device.enter("/opt/Quorvane/orv/bin/agent", "status").stdout.decode()
    assert "CustomProps3" in shown


def test_file_that_cannot_be_deleted(device):
    device.path(FILE).mkdir()
    run = device.run("-CustomProps1", "A")
    assert run.result() == (NO_MODE + GONE, b"", 0)
    assert list(device.path(FILE).iterdir()) == []


def test_a_value_that_xml_cannot_hold_leaves_no_file(device):
    device.run("-CustomProps1", "fine", "-CustomProps2", "bad\x01", "-CustomProps3", "also fine")
    assert b"CustomProps1" in device.read(FILE) and b"CustomProps3" in device.read(FILE)
    assert b"CustomProps2" not in device.read(FILE)


def test_a_new_file_can_be_read_by_the_agent_and_a_replaced_one_keeps_its_permissions(device):
    device.run("-CustomProps1", "A", before="umask 077")
    assert device.path(FILE).stat().st_mode & 0o7777 == 0o644
    device.path(FILE).chmod(0o640)
    device.run("-CustomProps1", "A", "-CustomProps2", "B")
    assert device.path(FILE).stat().st_mode & 0o7777 == 0o640
    assert device.read(FILE) == (
        DECLARATION + b'\n<CustomProperties><CustomProps1 value="A"/><CustomProps2 value="B"/></CustomProperties>\n'
    )


@pytest.mark.parametrize("number", [1, 2, 3, 4])
def test_every_property(device, number):
    device.run(f"-CustomProps{number}", f"value {number}")
    assert b'<CustomProps%d value="value %d"' % (number, number) in device.read(FILE)
