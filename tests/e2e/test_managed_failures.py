"""Switches to managed mode that fail: every message, the status, and what is left of the device."""

import os

import pytest

from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, LOG, NO_MODE, SCRATCH, SITE_LIST, changes, contents

NOT_FOUND = b"Error : For managed mode, sitelist file and all key files could not be found for processing.\n\n"
NO_SERVER = b"Error : Sitelist file invalid. Server ip not found.\n\n"
LOGS = [SCRATCH + "/logs", LOG, "/run/orv-locks"]


def missing(path):
    return b"Error : Missing key file, %s\n" % str(path).encode()


def incomplete(directory):
    return (
        b"Error : For managed mode, although sitelist file found in %s, all key files not present or accessible.\n"
        % str(directory).encode()
    )


def expect_untouched(device, before):
    """Nothing changed on the device but its log."""
    assert changes(before, device.files()) == {"added": sorted(LOGS), "removed": [], "changed": []}


def switch(device, directory, *options, **around):
    before = device.files()
    run = device.run("-m", "-d", directory, *options, **around)
    return before, run


def test_empty_directory(device, tmp_path):
    before, run = switch(device, tmp_path / "nosuch")
    assert run.result() == (NO_MODE + NOT_FOUND, b"", 1)
    assert device.calls() == device.stopping() + device.starting()
    expect_untouched(device, before)


def test_incomplete_keys_are_all_named_in_every_place_that_is_searched(device, package, tmp_path):
    directory = package()
    for name in ("req2048seckey.bin", "sr2048pubkey.bin", "agentfipsmode"):
        (directory / name).unlink()
    before, run = switch(device, directory, cwd=tmp_path)
    lines = b"".join(
        missing(directory / name)
        for name in ("req2048seckey.bin", "reqseckey.bin", "agentfipsmode", "sr2048pubkey.bin", "srpubkey.bin")
    )
    assert run.result() == (NO_MODE + lines + incomplete(directory) + NOT_FOUND, b"", 1)
    assert sorted(contents(directory)) == ["SiteList.xml"]
    expect_untouched(device, before)


def test_relative_incomplete_directory_is_named_as_typed(device, package, tmp_path):
    directory = package(to=tmp_path / "keys")
    (directory / "agentfipsmode").unlink()
    run = device.run("-m", "-d", "keys", cwd=tmp_path)
    found = tmp_path / "keys"
    assert run.out == NO_MODE + missing(found / "agentfipsmode") + incomplete(found) + NOT_FOUND
    assert run.status == 1
    # The legacy names beside the 2048-bit ones were still made.
    assert contents(directory)["reqseckey.bin"] == b"" and contents(directory)["srpubkey.bin"] == b""


def test_legacy_key_beside_a_missing_one_of_2048_bits(device, package):
    directory = package("--both")
    (directory / "req2048seckey.bin").unlink()
    run = device.run("-m", "-d", directory)
    assert run.out == NO_MODE + missing(directory / "req2048seckey.bin") + incomplete(directory) + NOT_FOUND


def test_place_that_cannot_be_examined(device, tmp_path):
    loop = tmp_path / "loop"
    loop.symlink_to(loop)
    before, run = switch(device, loop, cwd="/")
    accessing = b"Error : Accessing sitelist file, %s/SiteList.xml\n"
    name = str(loop).encode()
    assert run.result() == (NO_MODE + accessing % name + accessing % (b"//" + name) + NOT_FOUND, b"", 1)
    expect_untouched(device, before)


def test_site_list_that_does_not_load(device, package):
    directory = package()
    (directory / "SiteList.xml").write_bytes(b"<ns:SiteLists><SiteList></ns:SiteLists>")
    before, run = switch(device, directory)
    assert run.result() == (
        NO_MODE + b"Successfully convert the sitelist.xml file to utf8\nError : Fail to load sitelist file\n",
        b"",
        1,
    )
    assert device.calls() == device.stopping() + device.starting()
    expect_untouched(device, before)


def test_directory_in_place_of_the_site_list(device, package):
    directory = package()
    (directory / "SiteList.xml").unlink()
    (directory / "SiteList.xml").mkdir()
    before, run = switch(device, directory)
    assert run.result() == (
        NO_MODE + b"Error : Fail to convert the sitelist.xml file to utf8\nError : Fail to load sitelist file\n",
        b"",
        1,
    )
    expect_untouched(device, before)


def test_site_list_that_is_a_link_is_never_written_through(device, package, tmp_path):
    directory = package()
    target = tmp_path / "program"
    target.write_bytes(b"\x7fELF\xe9\xe9\0" + bytes(range(256)) * 100)
    content, mode = target.read_bytes(), target.stat().st_mode
    (directory / "SiteList.xml").unlink()
    (directory / "SiteList.xml").symlink_to(target)
    before, run = switch(device, directory)
    assert run.result() == (
        NO_MODE + b"Error : Fail to convert the sitelist.xml file to utf8\nError : Fail to load sitelist file\n",
        b"",
        1,
    )
    assert (target.read_bytes(), target.stat().st_mode) == (content, mode)
    assert (directory / "SiteList.xml").is_symlink()
    assert ("E", f"{directory}/SiteList.xml: not converted to UTF-8: it is a symbolic link") in device.log()
    assert device.calls() == device.stopping() + device.starting()
    expect_untouched(device, before)


@pytest.mark.parametrize("name", KEY_FILES)
@pytest.mark.parametrize("kind", ["pipe", "directory", "device", "large"])
def test_key_file_that_is_none_changes_nothing(device, package, tmp_path, kind, name):
    directory = package("--both")
    path = directory / name
    path.unlink()
    if kind == "pipe":
        os.mkfifo(path)
    elif kind == "directory":
        path.mkdir()
    elif kind == "device":
        path.symlink_to("/dev/zero")
    else:
        path.write_bytes(bytes(64 * 1024 + 1))
    source = sorted(directory.iterdir()), (directory / "SiteList.xml").read_bytes()
    before, run = switch(device, directory, cwd=tmp_path)
    accessing = b"Error : Accessing key file, %s\n" % str(path).encode()
    assert run.result() == (NO_MODE + accessing + incomplete(directory) + NOT_FOUND, b"", 1)
    assert (sorted(directory.iterdir()), (directory / "SiteList.xml").read_bytes()) == source
    reason = "larger than any key file" if kind == "large" else "not a regular file"
    assert ("E", f"{path}: {reason}") in device.log()
    expect_untouched(device, before)


def test_installed_site_list_as_the_source_outlives_a_failed_switch(device, package):
    package(to=device.path(SCRATCH + "/etc"))
    device.path(INSTALL + "/agentfipsmode").mkdir()
    before, run = switch(device, SCRATCH + "/etc")
    failed = b"Error : Failed to copy key file, %s/etc/agentfipsmode\n" % SCRATCH.encode()
    assert run.result() == (NO_MODE + failed, b"", 1)
    legacy = [f"{SCRATCH}/etc/{name}" for name in ("reqseckey.bin", "srpubkey.bin")]
    assert changes(before, device.files()) == {"added": sorted(LOGS + legacy), "removed": [], "changed": []}


def test_site_list_without_a_server(device, package):
    directory = package()
    (directory / "SiteList.xml").write_bytes(b"<ns:SiteLists><SiteList><SpipeSite/></SiteList></ns:SiteLists>")
    before, run = switch(device, directory)
    assert run.result() == (NO_MODE + NO_SERVER, b"", 1)
    expect_untouched(device, before)


def test_site_list_without_its_list_element_clears_the_caches_only(device, package):
    directory = package()
    (directory / "SiteList.xml").write_bytes(b"<ns:SiteLists/>")
    source = contents(directory)
    device.write(SCRATCH + "/ServerSiteList.xml", b"cached")
    device.write(SCRATCH + "/etc/sitecache.bin", b"cached")
    before, run = switch(device, directory)
    assert run.result() == (NO_MODE, b"", 1)
    assert changes(before, device.files()) == {
        "added": sorted(LOGS),
        "removed": [SCRATCH + "/ServerSiteList.xml", SCRATCH + "/etc/sitecache.bin"],
        "changed": [],
    }
    assert contents(directory) == {**source, "reqseckey.bin": b"", "srpubkey.bin": b""}


def test_site_list_that_cannot_be_copied(device, package):
    device.path(SITE_LIST).unlink()
    device.path(SITE_LIST).mkdir()
    before, run = switch(device, package())
    assert run.result() == (NO_MODE + b"Error : Failed to copy sitelist file.\n\n", b"", 1)
    expect_untouched(device, before)


def test_key_file_that_cannot_be_copied_takes_the_others_back(device, package):
    directory = package()
    source = contents(directory)
    device.path(INSTALL + "/agentfipsmode").mkdir()
    before, run = switch(device, directory)
    failed = b"Error : Failed to copy key file, %s/agentfipsmode\n" % str(directory).encode()
    assert run.result() == (NO_MODE + failed, b"", 1)
    # The installed site list stays, the operator's is deleted.
    assert changes(before, device.files()) == {"added": sorted(LOGS), "removed": [], "changed": [SITE_LIST]}
    assert device.read(SITE_LIST) == source["SiteList.xml"]
    assert "SiteList.xml" not in contents(directory)


def test_caches_that_cannot_be_deleted(device, package):
    for name in ("/ServerSiteList.xml", "/etc/sitecache.bin"):
        device.path(SCRATCH + name).mkdir()
    run = device.run("-m", "-d", package())
    assert run.result() == (
        NO_MODE
        + b"Error : Failed to delete sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n"
        + b"Error : Failed to delete sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n",
        b"",
        1,
    )
    for name in KEY_FILES:
        assert not device.path(f"{INSTALL}/{name}").exists()


def test_agent_that_cannot_be_stopped_keeps_everything(device, package):
    device.path(AGENT_CONFIG).unlink()
    before, run = switch(device, package())
    assert run.result() == (NO_MODE, b"", 5)
    assert device.calls() == []
    expect_untouched(device, before)


def test_agent_that_cannot_be_started_again(device, package):
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"mv " + AGENT_CONFIG.encode() + b" /run/hidden.xml")
    run = device.run("-m", "-d", package())
    # Nor is there a configuration to record the hash in, which is no failure.
    assert run.result() == (NO_MODE, b"", 4)
    assert ("E", "Unable to set the public key hash information in the registry") in device.log() or (
        "I",
        "Unable to set the public key hash information in the registry",
    ) in device.log()


def test_server_key_that_is_none(device, package):
    directory = package()
    (directory / "sr2048pubkey.bin").write_bytes(b"no key")
    run = device.run("-m", "-d", directory, before=INSTALL + "/bin/agent start", after=INSTALL + "/bin/agent status")
    assert run.result() == (NO_MODE, b"", 1)
    assert ("E", "Failed to import the server public key") in device.log()
    assert run.after.startswith(b"service     running")
    assert not device.path(KEYSTORE + "/server-public.der").exists()
    assert b"<binsphash></binsphash>" in device.read(AGENT_CONFIG)
    # The key files stay where the switch put them, for another try.
    assert device.read(INSTALL + "/sr2048pubkey.bin") == b"no key"


def test_request_key_that_is_none_is_no_failure(device, package):
    directory = package()
    (directory / "req2048seckey.bin").write_bytes(b"no key")
    assert device.run("-m", "-d", directory).result() == (NO_MODE, b"", 0)
    assert ("I", "Failed to import the server private key, not treating as a failure") in device.log()


def test_configuration_too_large_to_be_edited_is_no_failure(device, package):
    padding = b"<!--" + b"x" * 4096 + b"-->"
    device.edit(AGENT_CONFIG, b"<FIPSmode>", padding + b"<FIPSmode>")
    before = device.read(AGENT_CONFIG)
    assert device.run("-m", "-d", package()).result() == (NO_MODE, b"", 0)
    assert device.read(AGENT_CONFIG) == before


def test_directory_name_in_utf_8_is_not_found(device, package, tmp_path):
    directory = package(to=tmp_path / "señal")
    run = device.run("-m", "-d", directory, cwd="/")
    assert run.result() == (NO_MODE + NOT_FOUND, b"", 1)
    assert len(contents(directory)) == 4
