"""A key import that is killed where it cannot be done again by its own rules: the next run finishes it."""

import re

import pytest

from device import INSTALL, KEYSTORE, KEY_FILES, LOG, SCRATCH, changes
from killed_runs import (
    KEYS,
    MARK,
    PAIR,
    REGISTRY,
    UPDATE,
    device,
    expect_as_undisturbed,
    kill_before,
    log_says,
    managed,
    put_keys,
    put_pair,
    put_registry,
    there,
)


@pytest.mark.parametrize("both", [True, False], ids=["five key files", "three key files"])
@pytest.mark.parametrize("name", KEY_FILES)
def test_a_second_import_succeeds_where_the_first_was_killed_while_it_deleted_key_files(device, name, both):
    put_pair(device)
    put_keys(device, UPDATE)
    if both:
        put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    said = kill_before(device, r"unlink\(.*/" + name, "-k")
    before = device.files()
    run = device.run("-k")
    assert (run.err, run.status) == (b"", said[1])
    assert said[1] == 0
    texts = {f"Could not delete file, {SCRATCH}//update/{file}".encode() for file in KEY_FILES}
    assert set(run.out.splitlines()) <= texts
    assert not (UPDATE + "/" + name).encode() in run.out or not both
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK] + PAIR) == []
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"
    assert changes(before, device.files())["changed"] == [LOG]
    expect_as_undisturbed(device)
    assert device.run("-k").status == 16


def test_a_second_import_goes_by_the_rules_of_the_first_once_the_registry_is_cleared(device):
    put_keys(device, UPDATE)
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    put_pair(device)
    put_registry(device)
    kill_before(device, r"unlink\(.*update/sr2048pubkey", "-k")
    assert b"ServerPublicKey" not in device.read(REGISTRY)
    assert device.run("-k").result() == (b"", b"", 0)
    expect_as_undisturbed(device)
    # The marker would have chosen 2048 bits, and thrown the agent's pair away.
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, PAIR) == PAIR
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []


def test_a_second_import_discards_the_old_pair_where_the_first_has_recorded_the_new_size(device):
    put_pair(device)
    put_keys(device, UPDATE)
    said = kill_before(device, r"unlink\(.*agent-secret", "-k")
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"
    assert there(device, PAIR) == PAIR
    assert device.run("-k").result() == (said[0], b"", 0)
    expect_as_undisturbed(device)
    assert there(device, [*PAIR, MARK, UPDATE + "/sr2048pubkey.bin"]) == []


def test_a_second_managed_switch_discards_the_old_pair_where_the_first_has_recorded_the_new_size(device, package):
    put_pair(device)
    package("--both", to=device.path("/run/keys"))
    said = kill_before(device, r"unlink\(.*agent-secret", "-m", "-d", "/run/keys")
    assert there(device, PAIR) == PAIR
    assert device.run("-m", "-d", "/run/keys").result() == (said[0], b"", 0)
    assert there(device, [*PAIR, MARK] + [f"{INSTALL}/{file}" for file in KEY_FILES]) == []
    expect_as_undisturbed(device)


@pytest.mark.parametrize("arguments", [["-u"], ["-m", "-d", "/run/nothing"]], ids=lambda words: words[0])
def test_other_runs_finish_a_killed_import_too_and_say_nothing_of_it(managed, arguments):
    put_keys(managed, UPDATE)
    kill_before(managed, r"unlink\(.*update/req2048seckey", "-k")
    run = managed.run(*arguments)
    assert b"update" not in run.out
    assert there(managed, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []
    assert log_says(managed, "Finishing the key import that an earlier run began.")


def test_key_files_that_have_come_since_are_imported_and_not_taken_for_those_of_the_killed_import(device):
    put_pair(device)
    put_keys(device, UPDATE)
    kill_before(device, r"unlink\(.*update/req2048seckey", "-k")
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    assert device.run("-k").status == 0
    assert device.read(KEYSTORE + "/server-public.der") == (KEYS / "rsa1024.spki.der").read_bytes()
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []


def test_key_files_that_were_exchanged_before_the_import_is_repeated_are_chosen_from_anew(device):
    put_pair(device)
    put_keys(device, UPDATE)
    kill_before(device, r"unlink\(.*agent-secret", "-k")
    device.path(UPDATE + "/sr2048pubkey.bin").unlink()
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    assert device.run("-k").status == 0
    assert device.read(KEYSTORE + "/server-public.der") == (KEYS / "rsa1024.spki.der").read_bytes()
    # As if the first run had never been: of that size.
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, [*PAIR, MARK]) == PAIR
    assert log_says(device, "Beginning anew the key import that an earlier run began.")


CUTS = [r'renameat\(.*"server-public.der"', r'renameat\(.*"keyconf.ini"', r'renameat\(.*"config.xml"']
CUTS += [r"unlink\(.*agent-secret", r"unlink\(.*agent-public", r'renameat\(.*"registry.ini"', r"unlink\(.*/sr2048pubkey"]
CUTS += [r"unlink\(.*/req2048seckey", r"unlink\(.*/srpubkey", r"unlink\(.*/agentfipsmode", r"unlinkat\(.*unfinished"]


@pytest.mark.parametrize("wanted", CUTS, ids=lambda wanted: re.search(r"[\w-]+$|[\w-]+(?=\.|\"$)", wanted)[0])
def test_a_second_managed_switch_ends_as_the_first_would_have_where_the_registry_makes_the_rules(device, package, wanted):
    put_pair(device)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=1\n", 0o600)
    put_registry(device)
    package("--both", to=device.path("/run/keys"))
    said = kill_before(device, wanted, "-m", "-d", "/run/keys")
    assert device.run("-m", "-d", "/run/keys").result() == (said[0], b"", 0)
    expect_as_undisturbed(device)


def test_a_second_managed_switch_from_the_installation_itself_ends_as_the_first_would_have(device, package):
    put_pair(device)
    package("--both", to=device.path("/run/package"))
    for path in device.path("/run/package").iterdir():
        device.write(f"{INSTALL}/{path.name}", path.read_bytes(), 0o600)
    said = kill_before(device, r"unlink\(.*agent-secret", "-m", "-d", INSTALL)
    assert device.run("-m", "-d", INSTALL).result() == (said[0], b"", 0)
    expect_as_undisturbed(device)
    assert there(device, PAIR) == []
