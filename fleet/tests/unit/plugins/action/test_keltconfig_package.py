"""Which package a device gets."""

import pytest
from ansible.errors import AnsibleError
from ansible_collections.kelt.fleet.plugins.action.keltconfig_package import architecture_of, choose, version_of


@pytest.fixture
def directory(tmp_path):
    for name in ("amd64.deb", "powerpc.deb", "powerpc.ipk", "powerpc.tar.gz", "arm64.tar.gz"):
        (tmp_path / ("keltconfig_4.6.0.2545_" + name)).write_bytes(b"")
    return str(tmp_path)


@pytest.mark.parametrize(
    "architecture, ways, name, way",
    [
        ("powerpc", ["dpkg", "opkg", "tar"], "powerpc.deb", "dpkg"),
        ("powerpc", ["opkg", "tar"], "powerpc.ipk", "opkg"),
        ("powerpc", ["tar"], "powerpc.tar.gz", "tar"),
        ("arm64", ["dpkg", "tar"], "arm64.tar.gz", "tar"),
    ],
)
def test_a_device_gets_the_package_of_its_architecture_by_what_it_has(directory, architecture, ways, name, way):
    path, chosen, command = choose(directory, architecture, ways)
    assert path.endswith(name) and chosen == way and way in command


@pytest.mark.parametrize("architecture, ways", [("mips", ["tar"]), ("amd64", ["tar"]), ("amd64", [])])
def test_where_there_is_none_that_is_said(directory, architecture, ways):
    with pytest.raises(AnsibleError):
        choose(directory, architecture, ways)


def test_of_two_versions_none_is_chosen(directory, tmp_path):
    (tmp_path / "keltconfig_4.6.0.2546_amd64.deb").write_bytes(b"")
    with pytest.raises(AnsibleError, match="several"):
        choose(directory, "amd64", ["dpkg"])


@pytest.mark.parametrize("machine, told, architecture", [("ppc", "", "powerpc"), ("x86_64", "i386", "i386"), ("odd", "", "odd")])
def test_the_architecture_is_what_the_package_manager_says_or_else_the_kernel(machine, told, architecture):
    assert architecture_of([("machine", machine, ""), ("architecture", told, "")]) == architecture


@pytest.mark.parametrize("name", ["keltconfig_4.6.0.2545_amd64.deb", "keltconfig_4.6.0.2545-1_amd64.deb"])
def test_the_version_is_that_in_the_name(name):
    assert version_of("/x/" + name) == "4.6.0.2545"
