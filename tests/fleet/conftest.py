"""What the tests of the collection share."""

import fcntl
import os
import subprocess

import pytest

import fleet
from device import ROOT

# Waits for the last process that holds the other end of its standard input. What a worker of xdist shares with others goes
# when the process that started them all has ended, too.
CLEAR = ["sh", "-c", 'read -r farewell || { rm -rf -- "$1"; kill -0 "$2" 2>/dev/null || rm -rf -- "$3"; }', "sh"]


@pytest.fixture(scope="session", autouse=True)
def _nothing_left(tmp_path_factory):
    """Where the tests are killed, their directories are removed once the last device has ended."""
    end, own = os.pipe()
    # Above what the shells of device/fleet use.
    fleet.held.append(fcntl.fcntl(own, fcntl.F_DUPFD_CLOEXEC, 100))
    os.close(own)
    place, worker, parent = tmp_path_factory.getbasetemp(), "PYTEST_XDIST_WORKER" in os.environ, os.getppid()
    first, all_of_it = (parent, place.parent) if worker else (os.getpid(), place)
    clear = subprocess.Popen([*CLEAR, place, str(first), all_of_it], stdin=end, start_new_session=True, cwd="/")
    os.close(end)
    yield
    # A worker outlives what started it for a while, and must not wait then for what ends with it.
    if os.getppid() == parent or not worker:
        os.write(fleet.held[0], b"farewell\n")
        clear.wait()
    os.close(fleet.held.pop())


@pytest.fixture(scope="session")
def make_keys(tmp_path_factory):
    """make_keys(server): a directory with a site list of that server and new keys."""

    def make(server):
        directory = tmp_path_factory.mktemp("keys")
        subprocess.run([ROOT / "device/make-package", "--server", server, directory], check=True)
        return directory

    return make


@pytest.fixture(scope="session")
def fleet_in(binary):
    """fleet_in(directory, count, *options): new devices."""
    return lambda directory, count, *options: fleet.Fleet(directory / "fleet", binary, count, *options)


@pytest.fixture
def fleet_of(tmp_path, fleet_in):
    """fleet_of(count, *options): new devices, for one test."""
    return lambda count, *options: fleet_in(tmp_path, count, *options)
