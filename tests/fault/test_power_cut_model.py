"""The model of a power cut finds the mistakes that it is there to find, in records of runs that make them."""

import pytest

from power_cut_disk import Disk
from power_cut_states import states_of
from power_cut_trace import record

PLACE = "/opt/Quorvane"
OLD = {f"{PLACE}/file": ("f", 0o644, b"old")}


def shown(text):
    return "".join(f"\\x{byte:02x}" for byte in text.encode())


def word(text):
    return f'"{shown(text)}"'


HERE = f"5<{shown(PLACE)}>"
OPEN_PLACE = f"openat(AT_FDCWD<{shown('/')}>, {word(PLACE)}, O_RDONLY|O_DIRECTORY) = {HERE}"
OPEN_NEW = f"openat({HERE}, {word('.file.kelt-abc')}, O_WRONLY|O_CREAT|O_EXCL, 0600) = 6<{shown(PLACE)}>"
OPEN_NAMELESS = f"openat({HERE}, {word('.')}, O_WRONLY|O_TMPFILE, 0600) = 6<{shown(PLACE)}>(deleted)"
WRITE = f"write(6<{shown(PLACE)}>, {word('new!')}, 4) = 4"
LINK = f"linkat(AT_FDCWD<{shown('/')}>, {word('/proc/self/fd/6')}, {HERE}, {word('.file.kelt-abc')}, AT_SYMLINK_FOLLOW) = 0"
SYNC_FILE = f"fsync(6<{shown(PLACE)}>) = 0"
RENAME = f"renameat({HERE}, {word('.file.kelt-abc')}, {HERE}, {word('file')}) = 0"
SYNC_PLACE = f"fsync({HERE}) = 0"
REFUSED = f"renameat2({HERE}, {word('a')}, {HERE}, {word('b')}, RENAME_EXCHANGE) = -1 ENOENT (No such file or directory)"


def unlink(name):
    return f"unlink({word(f'{PLACE}/{name}')}) = 0"


def played(*lines, first=OLD):
    return Disk(first).play(record("\n".join(lines).encode()))


def contents(disk, name="file"):
    """What the states have under a name, None for nothing."""
    return {state.get(f"{PLACE}/{name}", (None, None, None))[2] for _, state in states_of(disk)}


@pytest.mark.parametrize("opened", [(OPEN_NEW, WRITE), (OPEN_NAMELESS, WRITE, LINK)], ids=["with-a-name", "without"])
def test_a_replacement_with_its_syncs_leaves_old_or_new(opened):
    disk = played(OPEN_PLACE, *opened, SYNC_FILE, REFUSED, RENAME, SYNC_PLACE)
    assert disk.problems == []
    assert contents(disk) == {b"old", b"new!"}


def test_after_the_sync_of_the_directory_only_the_new_file_is_left():
    disk = played(OPEN_PLACE, OPEN_NEW, WRITE, SYNC_FILE, RENAME, SYNC_PLACE)
    assert disk.pending() == []
    assert [state for _, state in states_of(disk)][-1] == {f"{PLACE}/file": ("f", 0o600, b"new!")}


def test_a_file_that_takes_its_name_before_its_sync_may_be_empty_torn_or_zeros():
    disk = played(OPEN_PLACE, OPEN_NEW, WRITE, RENAME, SYNC_FILE, SYNC_PLACE)
    assert disk.problems == ["renameat of file before the file was synced"]
    assert contents(disk) == {b"old", b"", b"ne", bytes(4), b"new!"}


def test_a_sync_of_the_file_is_none_of_its_name():
    disk = played(OPEN_PLACE, OPEN_NEW, WRITE, SYNC_FILE, RENAME, SYNC_FILE)
    assert [event.call for event in disk.pending()] == ["openat of .file.kelt-abc", "renameat of file"]


def test_a_source_that_goes_before_its_copy_is_on_the_disk_may_be_lost_with_it():
    first = {f"{PLACE}/source": ("f", 0o600, b"new!")}
    early = played(OPEN_PLACE, OPEN_NEW, WRITE, SYNC_FILE, RENAME, unlink("source"), SYNC_PLACE, first=first)
    assert early.problems == ["unlink of source before the directory was synced after renameat of file"]
    lost = [state for _, state in states_of(early) if not {f"{PLACE}/file", f"{PLACE}/source"} & set(state)]
    assert lost != []
    late = played(OPEN_PLACE, OPEN_NEW, WRITE, SYNC_FILE, RENAME, SYNC_PLACE, unlink("source"), first=first)
    assert late.problems == []
    assert [state for _, state in states_of(late) if not {f"{PLACE}/file", f"{PLACE}/source"} & set(state)] == []


def test_two_removals_may_be_lost_in_either_order():
    first = {f"{PLACE}/one": ("f", 0o600, b"1"), f"{PLACE}/two": ("f", 0o600, b"2")}
    disk = played(unlink("one"), unlink("two"), first=first)
    left = {frozenset(path[-3:] for path in state) for _, state in states_of(disk)}
    assert left == {frozenset(), frozenset({"one"}), frozenset({"two"}), frozenset({"one", "two"})}


def test_an_exchange_is_one_change():
    first = {f"{PLACE}/one": ("f", 0o600, b"1"), f"{PLACE}/two": ("f", 0o600, b"2")}
    disk = played(f"renameat2({HERE}, {word('one')}, {HERE}, {word('two')}, RENAME_EXCHANGE) = 0", first=first)
    both = {tuple(state[f"{PLACE}/{name}"][2] for name in ("one", "two")) for _, state in states_of(disk)}
    assert both == {(b"1", b"2"), (b"2", b"1")}


def test_what_is_written_to_a_file_in_its_place_is_a_problem():
    opened = f"openat(AT_FDCWD<{shown('/')}>, {word(f'{PLACE}/file')}, O_WRONLY) = 6<{shown(f'{PLACE}/file')}>"
    disk = played(opened, WRITE, SYNC_FILE)
    assert disk.problems == ["write to file, which has its name already"]
    assert contents(disk) == {b"old", b"ned", bytes(4), b"new!"}


def test_a_call_that_the_model_does_not_know_is_not_passed_over():
    with pytest.raises(AssertionError, match="sendfile"):
        played(OPEN_PLACE, OPEN_NEW, f"sendfile(6<{shown(PLACE)}>, 7<{shown('/tmp/x')}>, NULL, 4) = 4")
