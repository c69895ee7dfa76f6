"""What the end-to-end tests share: a private device, directories of site list and keys, the binary under test."""

import os
import pathlib
import shutil
import signal
import subprocess

import pytest

from device import Device
from reply_server import make_certificate

HIDDEN = [pathlib.Path(name) for name in ("/etc/orv.d", "/opt/Quorvane", "/run")]
ROOT = pathlib.Path(__file__).resolve().parents[1]


def pytest_addoption(parser):
    default = os.environ.get("KELT_BINARY", ROOT / "build/release/keltconfig")
    parser.addoption("--binary", default=str(default), help="the keltconfig to test (default: the release build)")


def pytest_configure():
    """Whatever runs the tests may ignore signals (nohup, a job in the background); the tool would take that over."""
    signal.signal(signal.SIGINT, signal.default_int_handler)
    for number in (signal.SIGHUP, signal.SIGQUIT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


@pytest.fixture(scope="session", autouse=True)
def _room(tmp_path_factory):
    """The tests' directories have to be seen on a device: it has directories of its own over some of the machine's."""
    base = tmp_path_factory.getbasetemp().resolve()
    for hidden in HIDDEN:
        if hidden in base.parents:
            pytest.exit(f"{base} is below {hidden}, which a private device hides: set TMPDIR", returncode=3)


@pytest.fixture(scope="session")
def binary(request):
    path = pathlib.Path(request.config.getoption("--binary")).resolve()
    if ROOT not in path.parents and any(hidden in path.parents for hidden in HIDDEN):
        pytest.exit(f"{path} is where a private device hides it: build it in this checkout", returncode=3)
    if not os.access(path, os.X_OK):
        pytest.exit(f"{path} is missing: cmake --preset release && cmake --build --preset release", returncode=3)
    return path


@pytest.fixture
def device(tmp_path, binary):
    """A new device with its stand-in agent, whose files the test can look at while and after commands run on it."""
    return Device(tmp_path / "device", binary)


@pytest.fixture(scope="session")
def certificate(tmp_path_factory):
    """A self-signed certificate with its key, for the management servers of tests."""
    return make_certificate(tmp_path_factory.mktemp("certificate"))


@pytest.fixture(scope="session")
def _packages(tmp_path_factory):
    """Makes each kind of source directory once, as making keys takes time."""
    made = {}

    def make(options):
        if options not in made:
            directory = tmp_path_factory.mktemp("package")
            subprocess.run([ROOT / "device/make-package", *options, directory], check=True)
            made[options] = directory
        return made[options]

    return make


@pytest.fixture
def package(tmp_path, _packages):
    """package(*options, to=PATH): a fresh source directory with site list and keys; options as of device/make-package."""

    def copy(*options, to=None):
        target = pathlib.Path(to) if to else tmp_path / "package"
        shutil.copytree(_packages(options), target, dirs_exist_ok=True)
        return target

    return copy
