"""The mark of unfinished work: when it is there, and what the next run makes of it after a refused call."""

import re

import pytest

from device import SCRATCH, SITE_LIST
from killed_runs import (
    MARK,
    REHEARSAL,
    SERVER_DATA,
    UPDATE,
    device,
    expect_as_undisturbed,
    log_says,
    managed,
    number_of,
    numbers_of,
    put_keys,
    put_pair,
    put_registry,
    there,
    undisturbed,
)


def changing_calls(device, *arguments):
    """The calls of a run that change a directory or bring something to the disk, with the paths of descriptors."""
    traced = "fsync,rename,renameat,renameat2,unlink,unlinkat"
    assert device.run(*arguments, via=f"strace -y -s 256 -o /run/trace -e trace={traced}").status == 0
    lines = device.take("/run/trace").decode(errors="replace").splitlines()
    return [line.replace("//", "/") for line in lines if re.match(r"\w+\(.* = 0$", line)]


def index_of(lines, pattern, start=0):
    return next((n for n in range(start, len(lines)) if re.search(pattern, lines[n])), len(lines))


@pytest.mark.parametrize("arguments", [["-u"], ["-k"]], ids=lambda words: words[0])
def test_the_mark_is_on_the_disk_before_the_first_change_and_goes_after_the_last_one_is(managed, arguments):
    put_keys(managed, UPDATE)
    put_registry(managed)
    lines = changing_calls(managed, *arguments)
    marked = [n for n, line in enumerate(lines) if re.match(r"renameat.*unfinished-work\"", line)]
    # The first mark is there before anything is renamed or removed; each one is synced before the next change.
    assert marked[0] == index_of(lines, "^(rename|unlink)")
    assert [re.match(rf"fsync\(\d+<[^>]*{SCRATCH}>\)", lines[n + 1]) is not None for n in marked] == [True] * len(marked)
    # What was removed is synced, each directory, before the mark goes, and that is the last thing.
    end = index_of(lines, 'unlinkat.*"unfinished-work"')
    removals = [n for n, line in enumerate(lines) if line.startswith("unlink(") and "/opt/" in line]
    assert removals and max(removals) < end
    for n in removals:
        directory = re.search(r'"(/[^"]*)/[^"/]*"', lines[n])[1]
        assert index_of(lines, rf"^fsync\(\d+<[^>]*{directory}>\)", n) < end, lines[n]
    assert re.match(rf"fsync\(\d+<[^>]*{SCRATCH}>\)", lines[end + 1])
    assert [line for line in lines[end + 2 :] if "/opt/" in line or "/etc/" in line] == []


def test_a_failed_import_leaves_no_mark(device):
    device.write(UPDATE + "/sr2048pubkey.bin", b"no key")
    device.write(UPDATE + "/agentfipsmode", b"0")
    assert device.run("-k").status == 16
    assert there(device, [MARK]) == []


@pytest.mark.parametrize("arguments", [["-u"], ["-k"]], ids=lambda words: words[0])
def test_a_mark_that_cannot_be_made_changes_nothing(managed, arguments):
    put_keys(managed, UPDATE)
    said = managed.shell(REHEARSAL, *arguments) and undisturbed(managed)
    managed.path(MARK).mkdir()
    run = managed.run(*arguments)
    assert (run.out, run.err, run.status) == (said[0], b"", said[1])
    assert log_says(managed, "No mark of unfinished work could be made: ")
    assert managed.path(MARK).is_dir()


def test_a_link_in_the_place_of_the_mark_is_removed_and_not_followed(managed):
    managed.write("/run/elsewhere", b"work=unmanaged-switch\n", 0o600)
    managed.path(MARK).symlink_to("/run/elsewhere")
    managed.write(SITE_LIST, b"<ns:SiteLists><SiteList/></ns:SiteLists>")
    assert managed.run("-u").result() == (b"", b"", 0)
    assert there(managed, SERVER_DATA) == SERVER_DATA
    assert managed.read("/run/elsewhere") == b"work=unmanaged-switch\n"
    assert not managed.path(MARK).is_symlink()
    assert log_says(managed, f"Removed, being no mark of unfinished work: {MARK} is not a regular file")


# -- after a single refused call -----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "refused",
    [
        r"openat\(.*update/req2048seckey",
        r"newfstatat\(.*update/sr2048pubkey",
        r"openat\(.*server-public",
        r"openat\(.*ZENTORAGENT3000/config.xml",
        r"renameat\(.*unfinished-work",
        r"renameat\(.*config.xml",
    ],
)
def test_a_single_refused_call_before_a_kill_makes_no_difference_to_the_next_import(device, refused):
    put_keys(device, UPDATE)
    put_registry(device)
    put_pair(device)
    name, numbers = numbers_of(device, refused, "-k")
    for number in numbers:
        fault = f"-e inject={name}:error=EIO:when={number}"
        _, kill = number_of(device, r"unlink\(.*update/req2048seckey", "-k", faults=fault)
        number_of(device, r"unlink\(.*update/req2048seckey", "-k")  # with what is undisturbed in /run/after
        device.shell("cp -a /etc/orv.d /run/first.orv.d; cp -a /opt/Quorvane /run/first.Quorvane")
        via = f"strace -qq -o /run/trace -e trace={name},unlink {fault} -e inject=unlink:signal=KILL:when={kill}"
        assert device.run("-k", via=via).status == 137
        assert b"(INJECTED)" in device.read("/run/trace")
        assert device.run("-k").status == 0
        expect_as_undisturbed(device)
        assert not device.path(MARK).exists()
        put_back = "rm -rf /etc/orv.d/* /opt/Quorvane/orv; cp -a /run/first.orv.d/. /etc/orv.d/"
        device.shell(put_back + "; cp -a /run/first.Quorvane/. /opt/Quorvane/; rm -r /run/first.*")


@pytest.mark.parametrize("refused", [r"openat\(.*orv/scratch\"", r"unlinkat\(.*unfinished-work"])
def test_a_single_refused_call_leaves_no_mark(managed, refused):
    name, numbers = numbers_of(managed, refused, "-u")
    for number in numbers:
        number_of(managed, r"renameat\(.*unfinished-work", "-u", faults=f"-e inject={name}:error=EIO:when={number}")
        assert managed.read("/run/undisturbed") == b"0\n"
        assert not managed.path("/run/after/Quorvane/orv/scratch/unfinished-work").exists()
