"""What the tests of the collection share."""

import subprocess

import pytest

from device import ROOT


@pytest.fixture(scope="session")
def make_keys(tmp_path_factory):
    """make_keys(server): a directory with a site list of that server and new keys."""

    def make(server):
        directory = tmp_path_factory.mktemp("keys")
        subprocess.run([ROOT / "device/make-package", "--server", server, directory], check=True)
        return directory

    return make
