"""What the tests on a machine share: a disk with the bare system, and one where the release was installed."""

import shutil

import pytest

import vm
from vm import Machine

PACKAGE = vm.SOURCE / "build/release-powerpc/keltconfig_4.6.0.2545_powerpc.deb"


@pytest.fixture(scope="session")
def bare(tmp_path_factory):
    """A disk with the bare system, an agent, and the package in /root."""
    directory = tmp_path_factory.mktemp("bare")
    vm.make_root(directory / "root")
    shutil.copy(PACKAGE, directory / "root/root/keltconfig.deb")
    vm.make_disk(directory / "root", directory / "disk")
    return directory / "disk"


@pytest.fixture(scope="session")
def installed(bare, tmp_path_factory):
    """A disk where the package was installed by the system's own means."""
    directory = tmp_path_factory.mktemp("installed")
    shutil.copy(bare, directory / "disk")
    with Machine(directory / "disk", directory) as machine:
        done = machine.shell("dpkg -i /root/keltconfig.deb && rm /root/keltconfig.deb")
        assert done.status == 0, done
        machine.power_off()
    return directory / "disk"
