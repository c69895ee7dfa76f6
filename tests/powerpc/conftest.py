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


@pytest.fixture
def boot(installed, tmp_path):
    """boot(**options): a machine with an installed package; options as of Machine."""
    machines = []

    def start(**options):
        directory = tmp_path / f"machine{len(machines)}"
        directory.mkdir()
        shutil.copy(installed, directory / "disk")
        machines.append(Machine(directory / "disk", directory, **options))
        return machines[-1]

    yield start
    for machine in machines:
        machine.close()


@pytest.fixture
def machine(boot):
    return boot()
