"""Switching to managed mode with site list and keys from a management server of another make than ours."""

import pytest

import elf
from device import INSTALL, KEY_FILES, KEYSTORE, NO_MODE, SCRATCH, SITE_LIST, Device, contents
from provisioning import CONTACTED, HINT, PROGRESS

ACCESS = ["-U", "admin", "-P", "zentor 4711"]


@pytest.fixture
def served(tmp_path, binary, _packages):
    """A device beside a management server, which hands out a package of 2048-bit keys."""
    return Device(tmp_path / "device", binary, "--server", "--package", str(_packages(())))


def files_of_agent(device):
    """All but what the server and the tool's lock and log leave."""
    apart = ("/run/server", "/run/orv-locks", INSTALL + "/scratch/logs")
    return {name: file for name, file in device.files().items() if not name.startswith(apart)}


@pytest.mark.parametrize(
    "server",
    ["127.0.0.1", "127.0.0.1:8443", "127.0.0.1:8444", "[::1]", "[::1]:8444", "[fe80::1%lo]", "[fe80::1%lo]:8444"],
)
def test_a_switch_with_files_from_the_server(served, server):
    run = served.run("-m", "-d", "/run/keys", "-z", "-e", server, *ACCESS, before="mkdir /run/keys", after="ls -A /run/keys")
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert served.calls() == served.stopping() + served.starting()
    assert b'ServerIP="192.0.2.10"' in served.read(SITE_LIST)
    assert run.after == b""  # nothing of what was fetched stays in the source directory


def test_a_name_of_the_server(served):
    run = served.run("-m", "-d", "/run/keys", "-z", "-e", "localhost", *ACCESS, before="mkdir /run/keys")
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)


def test_wrong_credentials_change_nothing(served):
    served.shell("mkdir /run/keys")
    before = files_of_agent(served)
    run = served.run("-m", "-d", "/run/keys", "-z", "-e", "127.0.0.1", "-U", "admin", "-P", "wrong")
    assert run.result() == (NO_MODE + CONTACTED + b" OK\nExamining response... ERROR\n", b"", 40)
    assert served.calls() == []
    assert files_of_agent(served) == before


def test_a_server_that_does_not_listen(served):
    run = served.run("-m", "-d", "/run", "-z", "-e", "127.0.0.1:1", *ACCESS)
    assert run.result() == (NO_MODE + CONTACTED + b" ERROR\n", b"", 32)
    assert served.calls() == []


def test_nothing_is_provisioned_without_being_asked(served, package):
    run = served.run("-m", "-d", package(), "-e", "127.0.0.1", *ACCESS)
    assert run.result() == (NO_MODE, b"", 0)


def test_an_empty_reply_hints_at_the_credentials(served):
    reply = "/run/server/www/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do"
    run = served.run("-m", "-d", "/run", "-z", "-e", "127.0.0.1", *ACCESS, before=f": >{reply}")
    assert run.result() == (NO_MODE + CONTACTED + b" OK\nExamining response... ERROR\n" + HINT, b"", 40)


PARTS = ["keltconfig-crypto.so", "keltconfig-provision.so"]


def copy_tool(device, binary, tmp_path, parts):
    """Makes `device` run a copy of the tool with these parts beside it, and returns their directory."""
    alone = tmp_path / "bin"
    alone.mkdir()
    for name in ["keltconfig", *parts]:
        (alone / name).write_bytes((binary.parent / name).read_bytes())
        (alone / name).chmod(0o755)
    device.binary = alone / "keltconfig"
    return alone


def unavailable(reason):
    return (
        NO_MODE + b"Initializing CURL...\nCurl initialization ERROR\n0\n"
        b"Error : Provisioning is not available on this device, " + reason.encode() + b"\n",
        b"",
        31,
    )


def test_a_tool_without_its_provisioning_part(served, tmp_path, binary):
    copy_tool(served, binary, tmp_path, PARTS[:1])
    run = served.run("-m", "-d", "/run", "-z", "-e", "127.0.0.1", *ACCESS)
    assert run.result() == unavailable("keltconfig-provision.so: not installed")
    assert served.calls() == []


@pytest.mark.parametrize("which", ["keltconfig-provision.so", "."])
def test_a_provisioning_part_that_others_may_write_is_not_loaded(served, tmp_path, binary, which):
    open_to_all = copy_tool(served, binary, tmp_path, PARTS) / which
    open_to_all.chmod(0o777)
    run = served.run("-m", "-d", "/run", "-z", "-e", "127.0.0.1", *ACCESS)
    assert run.result() == unavailable(f"{open_to_all}: can be written by others")
    assert served.calls() == []
    assert served.log().count(("E", f"{open_to_all}: can be written by others")) == 1


def test_a_crypto_part_that_others_may_write_is_not_loaded(device, package, tmp_path, binary):
    part = copy_tool(device, binary, tmp_path, PARTS) / "keltconfig-crypto.so"
    part.chmod(0o757)
    run = device.run("-m", "-d", package())
    # As without the part: the import fails, and the agent is started again.
    assert (run.err, run.status) == (b"", 1)
    assert device.calls() == device.stopping() + device.starting()
    assert device.log().count(("E", f"{part}: can be written by others")) == 1


def test_only_a_provisioning_loads_what_it_needs(served, package, binary):
    trace = "strace -e trace=openat,open -o /run/trace"
    part = "keltconfig-provision.so"
    needed = elf.Elf(binary.parent / part).needed()
    # On the device they are in one library, which the part for keys has, too.
    separate = "keltconfig-libraries.so" not in needed
    names = (part, "libcurl", "libzip", "libssl") if separate else (part,)

    def loaded(*arguments):
        assert served.run(*arguments, via=trace).status == 0
        text = served.take("/run/trace").decode()
        assert arguments != ("-version",) or "keltconfig-libraries.so" not in text
        return [name for name in names if name in text]

    assert loaded("-version") == []
    assert loaded("-m", "-d", package()) == []
    served.shell("mkdir /run/keys")
    assert loaded("-m", "-d", "/run/keys", "-z", "-e", "127.0.0.1", *ACCESS) == list(names)


@pytest.mark.parametrize("where", [SCRATCH + "/etc", INSTALL])
def test_files_fetched_into_the_installation(served, where):
    run = served.run("-m", "-d", where, "-z", "-e", "127.0.0.1", *ACCESS)
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert b'ServerIP="192.0.2.10"' in served.read(SITE_LIST)
    assert served.path(KEYSTORE + "/server-public.der").exists()
    # What was fetched is gone, but for the installed site list.
    for directory in (SCRATCH + "/etc", INSTALL):
        left = {path.name for path in served.path(directory).iterdir()}
        assert left & {"SiteList.xml", *KEY_FILES} == ({"SiteList.xml"} if directory != INSTALL else set())


def test_an_installed_site_list_that_is_a_link_to_what_was_fetched(served):
    link = f"mkdir /run/keys; ln -sf /run/keys/SiteList.xml {SITE_LIST}"
    run = served.run("-m", "-d", "/run/keys", "-z", "-e", "127.0.0.1", *ACCESS, before=link, after=f"cat {SITE_LIST}")
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert b'ServerIP="192.0.2.10"' in run.after
    assert [path.name for path in served.path("/run/keys").iterdir()] == ["SiteList.xml"]


def test_files_that_were_not_fetched_are_the_operators(tmp_path, binary, package):
    # The server's set lacks a key; the complete one below the current directory is used, and kept.
    lacking = package(to=tmp_path / "lacking")
    (lacking / "sr2048pubkey.bin").unlink()
    served = Device(tmp_path / "device", binary, "--server", "--package", str(lacking))
    own = package("--both", "--server", "192.0.2.77", to=tmp_path / "keys")
    kept = contents(own)
    served.path(INSTALL + "/bin/keys").mkdir()
    run = served.run("-m", "-d", "keys", "-z", "-e", "127.0.0.1", *ACCESS, cwd=tmp_path)
    missing = b"".join(b"Error : Missing key file, keys/%s\n" % name for name in (b"sr2048pubkey.bin", b"srpubkey.bin"))
    incomplete = (
        b"Error : For managed mode, although sitelist file found in keys, all key files not present or accessible.\n"
    )
    assert run.result() == (NO_MODE + PROGRESS + missing + incomplete, b"", 0)
    assert b'ServerIP="192.0.2.77"' in served.read(SITE_LIST)
    assert contents(own) == kept
    assert ("I", f"Kept, as nothing was fetched into this directory: {own}") in served.log()


def test_a_second_provisioning_after_a_first(served):
    for _ in range(2):
        run = served.run("-m", "-d", "/run/keys", "-z", "-e", "127.0.0.1", *ACCESS, before="mkdir -p /run/keys")
        assert run.status == 0
        assert run.out.endswith(PROGRESS)
