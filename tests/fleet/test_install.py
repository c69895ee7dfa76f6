"""How keltconfig gets onto a device: by dpkg, by opkg or from an archive, whichever the device has."""

import pathlib
import re
import shutil
import subprocess
import tarfile

import pytest

from fleet import PLAYBOOKS, SSH

VERSION = "4.6.0.2545"
ARCHIVE, OPKG, DPKG = 1, 2, 3
SOMEBODY = 1234


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=True, **options).stdout


@pytest.fixture(scope="module")
def tree(tmp_path_factory, binary):
    """What an installation consists of."""
    tree = tmp_path_factory.mktemp("tree")
    run("cmake", "--install", binary.parent, "--strip", env={"PATH": "/usr/bin:/bin", "DESTDIR": str(tree)})
    return tree


def own_by_somebody(entry):
    entry.uid = entry.gid = SOMEBODY
    return entry


def make_archive(tree, path):
    """As docs/fleet.md has it made, but by somebody who forgot whose the files are to be."""
    with tarfile.open(path, "w:gz", format=tarfile.GNU_FORMAT) as archive:
        for file in sorted(path for path in tree.rglob("*") if not path.is_dir()):
            archive.add(file, f"./{file.relative_to(tree)}", filter=own_by_somebody)


@pytest.fixture(scope="module")
def packages(tmp_path_factory, tree):
    """A package of each kind for this machine."""
    directory = tmp_path_factory.mktemp("packages")
    architecture = run("dpkg", "--print-architecture").strip()
    stem = directory / f"keltconfig_{VERSION}_{architecture}"
    make_archive(tree, f"{stem}.tar.gz")
    with tarfile.open(f"{stem}.ipk", "w:gz", format=tarfile.GNU_FORMAT) as archive:
        archive.add(f"{stem}.tar.gz", "./data.tar.gz")
    control = tree.parent / "deb"
    shutil.copytree(tree, control, symlinks=True)
    (control / "DEBIAN").mkdir()
    (control / "DEBIAN/control").write_text(
        f"Package: keltconfig\nVersion: {VERSION}\nArchitecture: {architecture}\nMaintainer: nobody\nDescription: a package\n")
    run("dpkg-deb", "--root-owner-group", "-Znone", "--build", control, f"{stem}.deb")
    return directory


# Stands in for it: what it is asked to do, and no more.
BOOT_OPKG = """
cat >/usr/sbin/opkg <<'END'
#!/bin/sh
echo "opkg $1 ${2##*/}" >/run/opkg.calls
tar -xzOf "$2" ./data.tar.gz | tar -xzof - -C /
END
chmod 755 /usr/sbin/opkg
"""
# The machine's own, with the libraries that it needs.
BOOT_DPKG = """
mkdir -p /var/lib/dpkg/info /var/lib/dpkg/updates /var/lib/dpkg/triggers
: >/var/lib/dpkg/status
for program in dpkg dpkg-deb dpkg-split tar; do
  printf '#!/bin/sh\\nLD_LIBRARY_PATH=/run/own exec /run/own/%s "$@"\\n' "$program" >"/usr/sbin/$program"
  chmod 755 "/usr/sbin/$program"
done
for program in diff ldconfig start-stop-daemon; do
  ln -s /bin/true "/usr/sbin/$program"
done
"""


def give_dpkg(fleet):
    own = fleet.path(DPKG, "/run/own")
    own.mkdir(parents=True)
    for name in ("dpkg", "dpkg-deb", "dpkg-split", "tar"):
        program = shutil.which(name)
        shutil.copy(program, own)
        for library in re.findall(r"=> (/\S+)", run("ldd", program)):
            shutil.copy(library, own)
    for library in own.glob("libc.so*"):
        library.unlink()  # the device has that one, with its loader
    fleet.boot(DPKG, BOOT_DPKG)


@pytest.fixture(scope="module")
def installed(tmp_path_factory, fleet_in, packages):
    """What became of two runs."""
    fleet = fleet_in(tmp_path_factory.mktemp("install"), 3, "--bare")
    fleet.boot(OPKG, BOOT_OPKG)
    give_dpkg(fleet)
    look = "; ".join(f"{SSH}{n} 'keltcheck; stat -c \"%a %u %n\" /usr/share/keltconfig /usr/sbin/keltconfig; cat /var/lib/dpkg/status' 2>&1"
                     for n in (ARCHIVE, OPKG, DPKG))
    play = f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/install.yml -e keltconfig_packages={packages}"
    check = fleet.play(PLAYBOOKS / "install.yml", "--check", "--diff", keltconfig_packages=str(packages),
                       after=f"{SSH}{ARCHIVE} 'command -v keltconfig || echo none yet'")
    first = fleet.play(PLAYBOOKS / "install.yml", keltconfig_packages=str(packages), after=f"{play} && {look}")
    return fleet, check, first


def test_check_mode_tells_what_would_be_installed_and_installs_nothing(installed):
    _, check, _ = installed
    assert [record["outcome"] for record in check.records] == ["changed"] * 3, check.out
    assert "+keltconfig 4.6.0.2545" in check.out and check.out.endswith("none yet\n")


def test_each_device_gets_the_package_by_what_it_has_and_only_once(installed):
    fleet, _, first = installed
    outcomes = sorted((record["device"], record["outcome"]) for record in first.records)
    assert outcomes == [(fleet.name(n), outcome) for n in (ARCHIVE, OPKG, DPKG) for outcome in ("changed", "ok")], first.out
    names = {record["device"]: pathlib.Path(record["result"]["package"]).suffix for record in first.records}
    assert names == {"device001": ".gz", "device002": ".ipk", "device003": ".deb"}
    assert fleet.path(OPKG, "/run/opkg.calls").read_text().startswith("opkg install keltconfig_4.6.0.2545_")
    assert first.out.count("Status: install ok installed") == 1
    assert first.out.count("KELTCHECK OK - unmanaged") == 3


def test_what_is_installed_is_roots_and_open_to_all(installed):
    _, _, first = installed
    found = re.findall(r"^(\d+ \d+) /usr/\S+$", first.out, re.M)
    assert found == ["755 0"] * 6


def test_nothing_of_the_installation_is_left_in_run(installed):
    fleet, _, _ = installed
    assert [n for n in (ARCHIVE, OPKG, DPKG) if fleet.work_left(n)] == []


def test_a_device_without_a_package_of_its_own_fails_and_says_what_was_sought(fleet_of, tmp_path):
    (tmp_path / "none").mkdir()
    run = fleet_of(1, "--bare").play(PLAYBOOKS / "install.yml", keltconfig_packages=str(tmp_path / "none"))
    outcome, result = run.of("device001", "keltconfig_package")
    assert outcome == "failed" and "has no package for this device: keltconfig_*_" in result["msg"]
