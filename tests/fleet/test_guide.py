"""docs/fleet.md, done by its very commands; and the collection as a release of it, as Ansible's own tests judge it."""

import os
import re
import shutil
import subprocess
import tarfile

import pytest

from device import ROOT
from fleet import COLLECTION, PLAYBOOKS

GUIDE = (ROOT / "docs/fleet.md").read_text()
VALIDATE = "/usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity/validate-modules/validate.py"


def part(heading):
    return re.search(rf"^## {heading}\n(.*?)(?=^## |\Z)", GUIDE, re.M | re.S).group(1)


def lines(text, start=r"(?!keltconfig_)"):
    """What is typed there: the indented lines, without remarks."""
    found = re.findall(rf"^(?: {{4}}|(?: {{3}})+ {{4}}| {{6}})({start}[a-z].*)$", text, re.M)
    return [re.sub(r"\s+#.*$", "", line).strip() for line in found]


def steps():
    return re.split(r"^\d\. ", part("In ten minutes"), flags=re.M)[1:]


def settings(text):
    return [line for line in re.findall(r"^ +(keltconfig_\w+: .*)$", text, re.M)]


def test_the_guide_has_what_is_looked_for_in_it():
    assert [len(lines(step)) for step in steps()] == [6, 0, 0, 2, 1]
    assert len(settings(steps()[2])) == 4 and len(lines(part("Secrets"))) == 2 and len(lines(part("Taking it back"))) == 1


@pytest.fixture
def checkout(tmp_path):
    """What the guide needs of one."""
    shutil.copytree(COLLECTION, tmp_path / "checkout/fleet")
    return tmp_path / "checkout"


EDITOR = """#!/bin/sh
echo 'vault_keltconfig_password: "zentor 4711"' >"$1"
"""


def guided(checkout):
    """The guide as one script, for two devices that get a directory and one that asks the server."""
    first, _, source, look, switch = steps()
    directory, *server = settings(source)
    server = [line.replace("mgmt.example:8443", "127.0.0.1:8443") for line in server]
    assert server != settings(source)[1:]
    vault, rollout = lines(part("Secrets"))
    inventory = "\n".join([
        "fleet:", "  hosts:", "    device[001:002]:", *(f"      {directory}" for _ in range(1)), "    device003:",
        *(f"      {line}" for line in server)])
    return f"""
set -e
for name in ${{!ANSIBLE_*}}; do [ $name = ANSIBLE_SSH_CONTROL_PATH_DIR ] || unset $name; done
unset KELT_REPORT_DIRECTORY
cd {checkout}
{chr(10).join(line for line in lines(first) if not line.startswith("apt "))}
# The devices, named and known.
cat >inventory/example.yml <<'END'
{inventory}
END
cp "$KELT_FLEET/inventory.ini" inventory/where
cp -R {checkout}/keys .
export EDITOR={checkout}/editor ANSIBLE_VAULT_PASSWORD_FILE={checkout}/vault-password
{vault.replace("ansible-vault", "mkdir -p inventory/group_vars/fleet; ansible-vault", 1)}
{chr(10).join(lines(look))}
cp reports/report.csv {checkout}/looked.csv
{chr(10).join(lines(switch))}
cp reports/report.csv {checkout}/switched.csv
{rollout.replace(" --ask-vault-pass", "")}
{lines(part("Taking it back"))[0]}
cp reports/report.csv {checkout}/back.csv
ansible-doc kelt.fleet.keltconfig | cat
"""


def test_the_guide_leads_from_nothing_to_a_rollout_and_back(fleet_of, make_keys, checkout, tmp_path):
    shutil.copytree(make_keys("192.0.2.10"), checkout / "keys")
    (checkout / "editor").write_text(EDITOR)
    (checkout / "editor").chmod(0o755)
    (checkout / "vault-password").write_text("of the vault\n")
    (tmp_path / "home").mkdir()
    done = fleet_of(3, "--server").shell(guided(checkout), env={"HOME": str(tmp_path / "home")})
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    modes = {}
    for name in ("looked", "switched", "back"):
        rows = sorted((checkout / f"{name}.csv").read_text().splitlines()[1:])
        modes[name] = [",".join(row.split(",")[:3]) for row in rows]
    assert modes == {name: [f"device{n:03},{how}" for n in (1, 2, 3)] for name, how in
                     (("looked", "changed,unmanaged"), ("switched", "changed,managed"), ("back", "changed,unmanaged"))}, done.stdout
    assert "Switches the endpoint management agent" in done.stdout
    vault = next(checkout.glob("rollout/inventory/**/vault.yml"))
    assert vault.read_text().startswith("$ANSIBLE_VAULT;")
    assert (tmp_path / "home/.ansible/collections/ansible_collections/kelt/fleet/galaxy.yml").exists() is False
    assert (tmp_path / "home/.ansible/collections/ansible_collections/kelt/fleet/MANIFEST.json").exists()


def test_what_the_guide_says_of_playbooks_and_variables_is_so():
    assert sorted(re.findall(r"^\| `kelt\.fleet\.(\w+)` \|", GUIDE, re.M)) == sorted(path.stem for path in PLAYBOOKS.glob("*.yml"))
    used = set().union(*(re.findall(r"keltconfig_\w+", path.read_text()) for path in COLLECTION.glob("**/*.yml")))
    named = set(re.findall(r"(?<!vault_)keltconfig_[a-z]\w*", GUIDE))
    assert named - used == {"keltconfig_VERSION_ARCHITECTURE"} & named


def test_figures_are_drawn_and_told_as_they_were_measured():
    drawn = subprocess.run([ROOT / "bench/draw-fleet", "--check"], capture_output=True, text=True)
    assert (drawn.returncode, drawn.stderr) == (0, "")
    table = (ROOT / "bench/README.md").read_text()
    rows = re.findall(r"^ +(\d+)  (loop|\d+ forks) +(\S+) s +(\S+) s +(\S+) s +(\d+) MiB", (ROOT / "bench/fleet.txt").read_text(), re.M)
    assert len(rows) == 20
    for devices, way, first, each, second, memory in rows:
        plain = f"| {devices} | {way} | {first} s | {each} s | {second} s | {memory} MiB |"
        slow = rf"^\| {devices} \| {way} \| .* \| {first} s / {second} s \|$"
        assert plain in table or re.search(slow, table, re.M), (devices, way)


def test_a_release_holds_what_is_used_and_no_tests(tmp_path, checkout):
    subprocess.run(["ansible-galaxy", "collection", "build", checkout / "fleet", "--output-path", tmp_path], check=True,
                   stdout=subprocess.DEVNULL, env={**os.environ, "HOME": str(tmp_path)})
    (release,) = tmp_path.glob("kelt-fleet-*.tar.gz")
    with tarfile.open(release) as archive:
        held = {member.name for member in archive if member.isfile()} - {"MANIFEST.json", "FILES.json"}
    meant = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "."], cwd=COLLECTION, check=True,
                           capture_output=True, text=True).stdout.split()
    assert held == {name for name in meant if not name.startswith("tests/") and name != "galaxy.yml"}


@pytest.mark.parametrize("kind, directory", [("module", "modules"), ("callback", "callback")])
def test_ansibles_own_check_of_the_documentation_finds_nothing_but_another_licence(tmp_path, kind, directory):
    place = tmp_path / "ansible_collections/kelt"
    place.mkdir(parents=True)
    shutil.copytree(COLLECTION, place / "fleet")
    plugins = sorted(str(path.relative_to(tmp_path)) for path in (place / "fleet/plugins" / directory).glob("*.py"))
    command = ["/usr/bin/python3", VALIDATE, "--collection", "ansible_collections/kelt/fleet", "--collection-version", "1.0.0",
               "--plugin-type", kind, "--warnings", *plugins]
    environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path), "ANSIBLE_COLLECTIONS_PATH": str(tmp_path)}
    done = subprocess.run(command, cwd=tmp_path, env=environment, capture_output=True, text=True)
    found = [line.split(":0:0: ") for line in done.stdout.splitlines()]
    assert done.stderr == ""
    assert found == [[plugin, "Emissing-gplv3-license GPLv3 license header not found in the first 20 lines of the module"]
                     for plugin in plugins]
