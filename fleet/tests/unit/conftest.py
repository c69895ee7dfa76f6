"""Lets the tests import the collection from where it stands, as Ansible does from where it is installed."""

import os
import pathlib

import pytest

COLLECTION = pathlib.Path(__file__).resolve().parents[2]


def in_its_place():
    """Whether the collection stands where Ansible's own test program puts it."""
    return COLLECTION.parts[-3:] == ("ansible_collections", "kelt", "fleet")


@pytest.fixture(scope="session", autouse=True)
def _collection():
    assert COLLECTION.joinpath("galaxy.yml").exists()


def pytest_configure(config):
    if in_its_place():
        return
    from tempfile import TemporaryDirectory

    place = TemporaryDirectory()
    config.add_cleanup(place.cleanup)
    directory = pathlib.Path(place.name) / "ansible_collections/kelt"
    directory.mkdir(parents=True)
    directory.joinpath("fleet").symlink_to(COLLECTION)
    os.environ["ANSIBLE_COLLECTIONS_PATH"] = place.name
    from ansible.plugins import loader

    # Before 2.15 it was the import that did this.
    getattr(loader, "init_plugin_loader", lambda: None)()
