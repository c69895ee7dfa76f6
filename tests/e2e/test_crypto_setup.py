"""How the tool sets up the crypto library for a device: its mode, and where what it says goes."""

import pytest

from device import INSTALL, KEYSTORE


def set_mode(device, mode):
    """A device whose agent runs in this crypto mode already: 0 is FIPS, 2 is not."""
    device.write(KEYSTORE + "/keyconf.ini", b"mode=%d\nkeysize=1\n" % mode, 0o600)
    device.path(KEYSTORE).chmod(0o700)


@pytest.mark.parametrize("mode, asked", [(0, True), (2, False)])
def test_the_library_is_set_up_for_the_mode_that_the_agent_runs_in(device, package, mode, asked):
    # In FIPS mode the import takes the library as it was set up at first.
    set_mode(device, mode)
    run = device.run("-m", "-d", package(*(["--fips"] if mode == 0 else [])), via="strace -e trace=openat -o /run/trace")
    assert run.status == 0
    assert (b"fips.so" in device.take("/run/trace")) is asked


def test_information_of_the_library_goes_to_standard_output(device, package):
    set_mode(device, 0)
    directory = package("--fips")
    (directory / "sr2048pubkey.bin").write_bytes(b"damaged")
    run = device.run("-m", "-d", directory)
    told = f"keltconfig\t[I] The key in {INSTALL}//sr2048pubkey.bin was not imported: ".encode()
    assert run.out.startswith(told)
    assert run.out.count(b"\n") == 1
    assert (run.err, run.status) == (b"", 1)


def test_errors_of_the_library_go_to_standard_error(device, package, tmp_path, binary):
    set_mode(device, 0)
    alone = tmp_path / "bin" / "keltconfig"  # without the part that computes
    alone.parent.mkdir()
    alone.write_bytes(binary.read_bytes())
    alone.chmod(0o755)
    device.binary = alone
    run = device.run("-m", "-d", package("--fips"))
    assert run.out == b""
    assert run.err.startswith(b"keltconfig\t[E] ")
    assert run.err.count(b"\n") == run.err.count(b"keltconfig\t[E] ")
    assert run.status == 1
