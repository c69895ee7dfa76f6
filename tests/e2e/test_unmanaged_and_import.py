"""The switch back to unmanaged mode, and the import of keys alone."""

import pytest

from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, LOG, NO_MODE, SCRATCH, SITE_LIST, STOP, changes

STATUS = INSTALL + "/bin/agent status"
BOOT = f"{INSTALL}/bin/agent start; rm /run/agent/calls"
LOGS = [SCRATCH + "/logs", LOG, "/run/orv-locks"]
UPDATE = SCRATCH + "/update"


def gone(name):
    return b"Could not delete file, /opt/Quorvane/orv/scratch//update/%s\n" % name.encode()


def test_unmanaged_switch_removes_the_servers_and_what_belongs_to_them(device, package):
    assert device.run("-m", "-d", package()).status == 0
    for name in ("ServerSiteList.xml", "etc/sitecache.bin"):
        device.write(f"{SCRATCH}/{name}", b"cached")
    for name in KEY_FILES:
        device.write(f"{INSTALL}/{name}", b"left over")
    device.forget_calls()
    before = device.files()

    run = device.run("-u", before=BOOT, after=STATUS)

    assert run.result() == (b"", b"", 0)
    assert device.calls() == device.stopping() + device.starting()
    assert b"service     running" in run.after and b"mode        unmanaged" in run.after
    assert changes(before, device.files()) == {
        "added": [],
        "removed": sorted(
            [f"{SCRATCH}/ServerSiteList.xml", f"{SCRATCH}/etc/sitecache.bin"]
            + [f"{INSTALL}/reqseckey.bin", f"{INSTALL}/srpubkey.bin"]
        ),
        "changed": [SITE_LIST],
    }
    assert b"SpipeSite" not in device.read(SITE_LIST)
    assert b"<SiteList Default" in device.read(SITE_LIST)


def test_unmanaged_switch_of_an_unmanaged_device_changes_nothing(device):
    device.write(f"{INSTALL}/reqseckey.bin", b"left over")
    before = device.files()
    assert device.run("-u", "-nostart").result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping()
    assert changes(before, device.files()) == {"added": sorted(LOGS), "removed": [], "changed": []}


def test_unmanaged_switch_ignores_start(device):
    assert device.run("-u", "-start", "-nostart").status == 0
    assert device.calls() == device.stopping()


def test_unmanaged_switch_without_site_list(device):
    device.path(SITE_LIST).unlink()
    run = device.run("-u")
    assert run.result() == (
        NO_MODE + b"Error : For unmanaged mode, sitelist file not found for processing.\n",
        b"",
        1,
    )
    assert device.calls() == device.stopping() + device.starting()


@pytest.mark.parametrize("content", [b"<other/>", b'<ns:SiteLists><SiteList Name="\xe9"/></ns:SiteLists>', b""])
def test_unmanaged_switch_with_a_site_list_that_does_not_load(device, content):
    device.write(SITE_LIST, content)
    run = device.run("-u")
    assert run.result() == (NO_MODE + b"Error : For unmanaged mode, sitelist file failed to load.\n", b"", 1)
    assert device.read(SITE_LIST) == content


def test_unmanaged_switch_names_each_file_that_it_cannot_delete(device):
    device.write(SITE_LIST, b"<ns:SiteLists><SiteList><SpipeSite/><SpipeSite/></SiteList></ns:SiteLists>")
    for name in ("reqseckey.bin", "srpubkey.bin", "scratch/ServerSiteList.xml", "scratch/etc/sitecache.bin"):
        device.path(f"{INSTALL}/{name}").mkdir()
    run = device.run("-u")
    assert run.result() == (
        NO_MODE
        + b"Error : Failed to delete key file, /opt/Quorvane/orv//reqseckey.bin\n"
        + b"Error : Failed to delete key file, /opt/Quorvane/orv//srpubkey.bin\n"
        + b"Error : Failed to delete sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n"
        + b"Error : Failed to delete sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n",
        b"",
        1,
    )
    assert b"SpipeSite" not in device.read(SITE_LIST)


def test_unmanaged_switch_statuses_of_the_service(device):
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"mv " + AGENT_CONFIG.encode() + b" /run/hidden.xml")
    assert device.run("-u").result() == (NO_MODE, b"", 4)
    assert device.run("-u").result() == (NO_MODE, b"", 5)


def test_key_import_alone(device, package):
    package("--both", to=device.path(UPDATE))
    before = device.files()
    run = device.run("-k", before=BOOT, after=STATUS)
    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping() + device.starting()
    assert b"service     running" in run.after
    assert changes(before, device.files()) == {
        "added": sorted(
            [KEYSTORE, KEYSTORE + "/keyconf.ini", KEYSTORE + "/server-public.der"]
            + [KEYSTORE + "/server-request-secret.der", *LOGS]
        ),
        "removed": sorted(f"{UPDATE}/{name}" for name in KEY_FILES),
        "changed": [AGENT_CONFIG],
    }


def test_key_import_names_the_files_that_were_not_there_to_delete(device, package):
    package(to=device.path(UPDATE))
    run = device.run("-k", "-nostart")
    assert run.result() == (NO_MODE + gone("srpubkey.bin") + gone("reqseckey.bin"), b"", 0)
    assert device.calls() == device.stopping()


def test_key_import_without_keys_starts_the_agent_again(device):
    before = device.files()
    run = device.run("-k", "-nostart", after=STATUS)
    assert run.result() == (NO_MODE, b"", 16)
    assert device.calls() == device.stopping() + device.starting()
    assert changes(before, device.files()) == {"added": sorted(LOGS), "removed": [], "changed": []}
    assert ("E", "Unable to locate server keys ") in device.log()


def test_key_import_that_cannot_record_the_mode_keeps_the_key_files(device, package):
    package("--both", to=device.path(UPDATE))
    device.path(KEYSTORE).mkdir(mode=0o700)
    device.path(KEYSTORE + "/keyconf.ini").mkdir()
    before = device.files()
    run = device.run("-k")
    assert run.result() == (NO_MODE, b"", 16)
    assert device.calls() == device.stopping() + device.starting()
    keys = [KEYSTORE + "/server-public.der", KEYSTORE + "/server-request-secret.der"]
    assert changes(before, device.files()) == {"added": sorted(keys + LOGS), "removed": [], "changed": []}
    assert device.log()[-1] == ("E", "Unable to record the crypto mode and key size")
    device.path(KEYSTORE + "/keyconf.ini").rmdir()
    assert device.run("-k").status == 0


def test_key_import_with_a_service_that_does_not_stop_or_start(device, package):
    package(to=device.path(UPDATE))
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"mv " + AGENT_CONFIG.encode() + b" /run/hidden.xml")
    run = device.run("-k")
    assert (run.err, run.status) == (b"", 4)
    assert device.run("-k").result() == (b"", b"", 5)


def test_start_stop_and_key_import_in_their_order(device, package):
    package("--both", to=device.path(UPDATE))
    assert device.run("-k", "-stop", "-start").status == 0
    assert device.calls() == device.starting() + device.stopping() + device.stopping() + device.starting()
    assert device.calls().count(STOP) == 2


def test_a_key_store_with_wider_permissions_is_narrowed(device, package):
    assert device.run("-m", "-d", package()).status == 0
    device.path(KEYSTORE).chmod(0o777)
    assert device.run("-start").result() == (b"", b"", 0)  # the crypto mode is found
    assert device.path(KEYSTORE).stat().st_mode & 0o7777 == 0o700
    device.path(KEYSTORE).chmod(0o1777)
    assert device.run("-m", "-d", package()).result() == (b"", b"", 0)
    assert device.path(KEYSTORE).stat().st_mode & 0o7777 == 0o700
    assert not any(mark == "E" for mark, _ in device.log())


def test_a_record_of_the_crypto_mode_that_others_may_have_put_there_is_refused(device, package):
    assert device.run("-m", "-d", package()).status == 0
    record = device.path(KEYSTORE + "/keyconf.ini")
    record.rename(device.path("/run/record"))
    record.symlink_to("/run/record")
    assert device.run("-start").result() == (NO_MODE, b"", 0)
    assert ("E", f"{KEYSTORE}/keyconf.ini: is a symbolic link") in device.log()
