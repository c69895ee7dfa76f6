"""A switch that is killed where it cannot be done again by its own rules: the next run finishes it, or takes it back."""

import pytest

from device import INSTALL, KEY_FILES, SITE_LIST
from killed_runs import MARK, SERVER_DATA, device, expect_as_undisturbed, kill_before, log_says, managed, there


# -- to unmanaged mode --------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("path", SERVER_DATA, ids=lambda path: path.rsplit("/", 1)[-1])
def test_a_second_switch_to_unmanaged_mode_deletes_what_a_killed_one_has_not(managed, path):
    kill_before(managed, r"unlink\(.*" + path.rsplit("/", 1)[-1], "-u")
    assert path in there(managed, SERVER_DATA)
    assert b"SpipeSite" not in managed.read(SITE_LIST)
    assert managed.read(MARK) == b"work=unmanaged-switch\n"
    assert managed.path(MARK).stat().st_mode & 0o7777 == 0o600
    assert managed.run("-u").result() == (b"", b"", 0)
    assert there(managed, [*SERVER_DATA, MARK]) == []
    expect_as_undisturbed(managed)


def test_a_second_switch_to_unmanaged_mode_tells_what_it_cannot_delete(managed):
    kill_before(managed, r"unlink\(.*reqseckey", "-u")
    managed.path(SERVER_DATA[0]).unlink()
    managed.path(SERVER_DATA[0]).mkdir()
    run = managed.run("-u")
    assert run.result() == (b"Error : Failed to delete key file, /opt/Quorvane/orv//reqseckey.bin\n", b"", 1)
    assert there(managed, [*SERVER_DATA, MARK]) == [SERVER_DATA[0]]


@pytest.mark.parametrize("arguments", [["-k"], ["-m", "-d", "/run/nothing"]], ids=lambda words: words[0])
def test_other_runs_finish_a_killed_switch_to_unmanaged_mode_too_and_say_nothing_of_it(managed, arguments):
    said = managed.run(*arguments).result()
    kill_before(managed, r"unlink\(.*srpubkey", "-u")
    assert managed.run(*arguments).result() == said
    assert there(managed, [*SERVER_DATA, MARK]) == []
    assert log_says(managed, "Finishing the switch to unmanaged mode that an earlier run began.")


def test_a_switch_to_unmanaged_mode_that_was_killed_before_it_changed_anything_is_not_finished_by_others(managed):
    kill_before(managed, r'renameat\(.*"SiteList.xml"', "-u")
    assert managed.path(MARK).exists()
    managed.run("-k")
    assert there(managed, [*SERVER_DATA, MARK]) == SERVER_DATA
    assert b"SpipeSite" in managed.read(SITE_LIST)


# -- to managed mode, which has failed ----------------------------------------------------------------------------------

SWITCH = ["-m", "-d", "/run/keys"]
COPIES = [f"{INSTALL}/{name}" for name in KEY_FILES if name != "agentfipsmode"]


@pytest.fixture
def failing(device, package):
    """A switch that cannot copy one of its files."""
    device.shell('cp -a "$1" /run/keys', package())
    device.path(f"{INSTALL}/agentfipsmode").mkdir()
    return device


@pytest.mark.parametrize("path", COPIES, ids=lambda path: path.rsplit("/", 1)[-1])
def test_the_next_switch_takes_back_what_a_failed_one_that_was_killed_has_not(failing, path):
    _, status = kill_before(failing, r'unlink\(".*orv//' + path.rsplit("/", 1)[-1], *SWITCH)
    assert status == 1
    assert path in there(failing, COPIES)
    assert failing.read(MARK).startswith(b"work=take-back\ncopy=reqseckey.bin ")
    assert failing.path(MARK).stat().st_mode & 0o7777 == 0o600
    assert failing.run(*SWITCH).status == 1, "the site list of the source was taken back first"
    expect_as_undisturbed(failing)
    assert there(failing, [*COPIES, MARK]) == []
    assert log_says(failing, "Taking back what is left of a failed switch to managed mode.")


@pytest.mark.parametrize("arguments", [["-k"], ["-u"]], ids=lambda words: words[0])
def test_other_runs_take_back_a_failed_switch_that_was_killed_too(failing, arguments):
    kill_before(failing, r'unlink\(".*orv//req2048seckey', *SWITCH)
    failing.run(*arguments)
    assert there(failing, [*COPIES, MARK]) == []


def test_what_came_after_a_failed_switch_that_was_killed_stays(failing):
    kill_before(failing, r'unlink\(".*orv//req2048seckey', *SWITCH)
    copy = f"{INSTALL}/req2048seckey.bin"
    content = failing.read(copy)
    failing.path(copy).unlink()
    failing.write(copy, content, 0o600)
    failing.run("-k")
    assert there(failing, [*COPIES, MARK]) == [copy]


def test_a_failed_switch_that_is_not_killed_leaves_no_mark(failing):
    assert failing.run(*SWITCH).status == 1
    assert there(failing, [*COPIES, MARK]) == []
