"""Outputs that are closed, full or gone, and locales: none of them changes what the tool does."""

import pytest

from device import AGENT_CONFIG, INSTALL, KEYSTORE, NO_MODE, SITE_LIST

NOT_FOUND = b"Error : For managed mode, sitelist file and all key files could not be found for processing.\n\n"


def expect_switched(device):
    """The switch was completed, and no file of the device took console text for its content."""
    assert device.calls() == device.stopping() + device.starting()
    assert b"SpipeSite" in device.read(SITE_LIST)
    assert device.path(KEYSTORE + "/server-public.der").exists()
    logs = INSTALL + "/scratch/logs/"
    for name, (content, _) in device.files().items():
        if content and not name.startswith(logs):
            assert b"assuming non_fips mode" not in content, name


@pytest.mark.parametrize("closed", [">&-", "2>&-", "<&-", ">&- 2>&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors(device, package, closed):
    run = device.shell(f'"$KELTCONFIG" -m -d "$1" {closed}', package())
    assert run.returncode == 0
    expect_switched(device)


@pytest.mark.parametrize("full", [">/dev/full", ">/dev/full 2>&1"])
def test_full_output(device, package, full):
    run = device.shell(f'"$KELTCONFIG" -m -d "$1" {full}', package())
    assert run.returncode == 0
    expect_switched(device)


def test_reader_that_is_gone(device, package):
    # The reader is gone before the first line is written.
    gone = "mkfifo /run/fifo; exec 3<>/run/fifo 4>/run/fifo 3<&-; rm /run/fifo; "
    run = device.shell(gone + '"$KELTCONFIG" -m -d "$1" >&4; echo $? >/run/status', package())
    assert run.stderr == b""
    assert device.take("/run/status") == b"0\n"
    expect_switched(device)


def test_full_output_does_not_hide_a_failure(device):
    assert device.shell('"$KELTCONFIG" -m -d /nosuch >/dev/full').returncode == 1
    assert device.shell('"$KELTCONFIG" -h >&-').returncode == 1


@pytest.mark.parametrize("locale", [{}, {"LC_ALL": "C"}, {"LC_ALL": "POSIX"}, {"LC_ALL": "C.UTF-8"}, {"LANG": "xx_YY"}])
def test_every_locale_gives_the_same_bytes(device, package, tmp_path, locale):
    latin1 = package("--latin1")
    device.edit(AGENT_CONFIG, b"bin/agent start", b"bin/agent start d\xc3\xa9part")
    run = device.run(b"\xe9t\xe9", "-version", env=locale)
    assert run.result() == (NO_MODE + b"Argument \xc3\xa9t\xc3\xa9 passed without a valid option\n", b"", 1)
    run = device.run("-m", "-d", latin1, env=locale)
    assert run.result() == (NO_MODE + b"Successfully convert the sitelist.xml file to utf8\n", b"", 0)
    assert b"M\xc3\xa1laga" in device.read(SITE_LIST)
    assert "agent start départ" in device.calls()


def test_output_of_commands_stands_in_its_place(device):
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"echo stopping")
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent start", b"echo starting")
    run = device.run("-m", "-d", "/nosuch")
    assert run.result() == (NO_MODE + b"stopping\n" + NOT_FOUND + b"starting\n", b"", 1)


def test_a_log_that_cannot_be_written_changes_nothing(device, package):
    device.write(INSTALL + "/scratch/logs", b"in the way")
    run = device.run("-m", "-d", package())
    assert run.result() == (NO_MODE, b"", 0)
    expect_switched(device)
