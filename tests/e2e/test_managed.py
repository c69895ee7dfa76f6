"""Switches to managed mode that succeed: what they print, run, change and leave alone."""

import hashlib

import pytest

from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, LOG, NO_MODE, SCRATCH, SITE_LIST, changes, contents

STATUS = INSTALL + "/bin/agent status"
BOOT = f"{INSTALL}/bin/agent start; rm /run/agent/calls"
TEMPLATE_TEXT = b"<binsphash></binsphash>"


def hash_of(key):
    return hashlib.sha256(key).hexdigest().upper().encode()


def expect_managed(device, source, key, mode, size):
    """The device stands as after a switch with the server key of that name, and holds no key file any more."""
    assert device.read(KEYSTORE + "/server-public.der") == source[key]
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=%d\nkeysize=%d\n" % (mode, size)
    assert b"<binsphash>" + hash_of(source[key]) + b"</binsphash>" in device.read(AGENT_CONFIG)
    for name in KEY_FILES:
        assert not device.path(f"{INSTALL}/{name}").exists()


def test_everything_that_a_switch_changes_and_nothing_else(device, package):
    directory = package()
    source = contents(directory)
    device.write(SCRATCH + "/ServerSiteList.xml", b"cached")
    device.write(SCRATCH + "/etc/sitecache.bin", b"cached")
    before = device.files()

    run = device.run("-m", "-d", directory, before=BOOT, after=STATUS)

    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping() + device.starting()
    assert run.after.splitlines()[0] == b"service     running"
    assert b"mode        managed by 192.0.2.10" in run.after

    after = device.files()
    assert changes(before, after) == {
        "added": sorted(
            [KEYSTORE, KEYSTORE + "/keyconf.ini", KEYSTORE + "/server-public.der"]
            + [KEYSTORE + "/server-request-secret.der", SCRATCH + "/logs", LOG, "/run/orv-locks"]
        ),
        "removed": [SCRATCH + "/ServerSiteList.xml", SCRATCH + "/etc/sitecache.bin"],
        "changed": [AGENT_CONFIG, SITE_LIST],
    }
    assert device.read(SITE_LIST) == source["SiteList.xml"]
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)
    old, mode = before[AGENT_CONFIG]
    filled = b"<binsphash>" + hash_of(source["sr2048pubkey.bin"]) + b"</binsphash>"
    assert after[AGENT_CONFIG] == (old.replace(TEMPLATE_TEXT, filled), mode)
    assert after[KEYSTORE][1] == 0o700
    assert {after[f"{KEYSTORE}/{name}"][1] for name in ("server-public.der", "server-request-secret.der")} == {0o600}
    # Of the source directory nothing is lost; the legacy names are there too, empty.
    assert contents(directory) == {**source, "reqseckey.bin": b"", "srpubkey.bin": b""}


def test_what_the_agent_log_says(device, package):
    device.run("-m", "-d", package())
    assert device.log() == [
        ("I", "Unable to find existing mode, assuming non_fips mode"),
        ("I", "Initializing in NON-FIPS mode"),
        ("I", "Setting the key size to be used as Higher 2048 bits"),
        (
            "I",
            "Expecting these key files: /opt/Quorvane/orv//sr2048pubkey.bin, /opt/Quorvane/orv//req2048seckey.bin",
        ),
        ("I", "Trying to re-initialize crypto libraries."),
        ("I", "Successfully re-initialized crypto libraries."),
        ("I", "Successfully imported the keys."),
    ]
    assert device.path(LOG).stat().st_mode & 0o777 == 0o600


def test_secret_key_is_nowhere_but_in_the_key_store(device, package):
    directory = package()
    secret = (directory / "req2048seckey.bin").read_bytes()
    run = device.run("-m", "-d", directory)
    part = secret[-200:]
    holders = [name for name, (content, _) in device.files().items() if content and part in content]
    assert holders in ([], [KEYSTORE + "/server-request-secret.der"])
    assert part not in run.out + run.err


def test_a_second_switch_replaces_the_first(device, package, tmp_path):
    device.run("-m", "-d", package("--server", "192.0.2.1", to=tmp_path / "one"))
    second = package("--server", "192.0.2.2", to=tmp_path / "two")
    source = contents(second)
    run = device.run("-m", "-d", second)
    # The mode is known by now.
    assert run.result() == (b"", b"", 0)
    assert device.read(SITE_LIST) == source["SiteList.xml"]
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)


def test_legacy_keys_beside_those_of_2048_bits_are_not_used(device, package):
    directory = package("--both")
    source = contents(directory)
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)
    assert contents(directory) == source


def legacy_only(package):
    """A directory whose 2048-bit files are there but empty, so that the legacy ones count."""
    directory = package("--legacy")
    for name in ("sr2048pubkey.bin", "req2048seckey.bin"):
        (directory / name).write_bytes(b"")
    return directory


def test_legacy_keys_of_1024_bits(device, package):
    directory = legacy_only(package)
    source = contents(directory)
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "srpubkey.bin", mode=2, size=0)
    assert ("I", "Setting the key size to be used as Lower 1024 bits") in device.log()


def test_fips_marker(device, package):
    directory = package("--fips")
    source = contents(directory)
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "sr2048pubkey.bin", mode=0, size=1)
    assert ("I", "Initializing in FIPS mode") in device.log()


def test_fips_marker_with_legacy_keys_keeps_the_larger_size(device, package):
    directory = legacy_only(package)
    (directory / "agentfipsmode").write_bytes(b"1")
    source = contents(directory)
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "srpubkey.bin", mode=0, size=1)


def test_a_device_in_fips_mode_stays_there_without_a_new_start_of_the_crypto_library(device, package, tmp_path):
    device.run("-m", "-d", package("--fips"))
    device.path(LOG).unlink()
    assert device.run("-m", "-d", package("--fips", to=tmp_path / "again")).result() == (b"", b"", 0)
    texts = [text for _, text in device.log()]
    assert "Trying to re-initialize crypto libraries." not in texts
    assert texts[-1] == "Successfully imported the keys."


def test_site_list_in_latin_1_is_converted(device, package):
    directory = package("--latin1")
    assert b"M\xe1laga" in (directory / "SiteList.xml").read_bytes()
    run = device.run("-m", "-d", directory)
    assert run.result() == (NO_MODE + b"Successfully convert the sitelist.xml file to utf8\n", b"", 0)
    assert b"M\xc3\xa1laga" in device.read(SITE_LIST)
    assert (directory / "SiteList.xml").read_bytes() == device.read(SITE_LIST)
    assert ("I", f"Converted to UTF-8: {directory}/SiteList.xml") in device.log()


def test_links_to_site_list_and_keys_are_read(device, package, tmp_path):
    real = package("--both", to=tmp_path / "real")
    directory = tmp_path / "keys"
    directory.mkdir()
    for path in real.iterdir():
        (directory / path.name).symlink_to(path)
    source = contents(real)
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)
    assert device.read(SITE_LIST) == source["SiteList.xml"]
    assert contents(real) == source


def test_switch_from_the_installed_site_list(device, package):
    source = contents(package("--both", to=device.path(SCRATCH + "/etc")))
    assert device.run("-m", "-d", SCRATCH + "/etc").result() == (NO_MODE, b"", 0)
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)
    found = contents(device.path(SCRATCH + "/etc"))
    assert {name: found[name] for name in source} == source


def test_switch_from_the_directory_that_keys_are_imported_from(device, package):
    source = contents(package("--both"))
    package("--both", to=device.path(INSTALL))
    assert device.run("-m", "-d", INSTALL).result() == (NO_MODE, b"", 0)
    # As after every switch: the keys are in the key store, and their files are gone.
    expect_managed(device, source, "sr2048pubkey.bin", mode=2, size=1)
    assert device.read(SITE_LIST) == device.read(INSTALL + "/SiteList.xml") == source["SiteList.xml"]


def test_site_list_in_utf_8_is_kept_byte_for_byte(device, package):
    directory = package()
    assert b"M\xc3\xa1laga" in (directory / "SiteList.xml").read_bytes()
    device.run("-m", "-d", directory)
    assert b"M\xc3\xa1laga" in device.read(SITE_LIST)


@pytest.mark.parametrize("typed, cwd", [("keys", "."), ("./keys", "."), ("../keys", "below"), ("sub/keys/", "..")])
def test_relative_directory_is_found_from_where_the_tool_was_started(device, package, tmp_path, typed, cwd):
    base = tmp_path / "sub"
    directory = package(to=base / "keys")
    (base / "below").mkdir()
    run = device.run("-m", "-d", typed, cwd=base / cwd)
    assert run.result() == (NO_MODE, b"", 0)
    expect_managed(device, contents(directory), "sr2048pubkey.bin", mode=2, size=1)


def test_relative_directory_is_first_looked_for_in_the_binary_directory(device, package, tmp_path):
    package("--server", "192.0.2.1", to=device.path(INSTALL + "/bin/keys"))
    package("--server", "192.0.2.2", to=tmp_path / "keys")
    device.run("-m", "-d", "keys", cwd=tmp_path)
    assert b'ServerIP="192.0.2.1"' in device.read(SITE_LIST)


def test_files_in_the_current_directory_are_the_last_resort(device, package, tmp_path):
    directory = package(to=tmp_path / "here")
    assert device.run("-m", "-d", "nosuch", cwd=directory).result() == (NO_MODE, b"", 0)
    expect_managed(device, contents(directory), "sr2048pubkey.bin", mode=2, size=1)


def test_no_start_leaves_the_agent_stopped(device, package):
    run = device.run("-m", "-nostart", "-d", package(), before=BOOT, after=STATUS)
    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping()
    assert run.after.splitlines()[0] == b"service     stopped"
    assert b"mode        managed by 192.0.2.10" in run.after


def test_managed_wins_over_unmanaged_and_over_start(device, package):
    assert device.run("-u", "-start", "-m", "-d", package(), "-nostart").result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping()
    assert b"SpipeSite" in device.read(SITE_LIST)


def test_check_first_then_the_switch(device, package):
    directory = package()
    run = device.run("-checkHF", "5.7.8-HF7", "-m", "-d", directory)
    assert run.result() == (NO_MODE + b"\n Proper Version \n", b"", 0)
    assert b"SpipeSite" in device.read(SITE_LIST)


def test_an_installed_site_list_keeps_its_mode_and_a_new_one_takes_that_of_the_source(device, package):
    device.path(SITE_LIST).chmod(0o640)
    device.run("-m", "-d", package())
    assert device.path(SITE_LIST).stat().st_mode & 0o777 == 0o640
    device.path(SITE_LIST).unlink()
    directory = package()
    (directory / "SiteList.xml").chmod(0o604)
    device.run("-m", "-d", directory)
    assert device.path(SITE_LIST).stat().st_mode & 0o777 == 0o604
