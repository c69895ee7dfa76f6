"""The devices that the tests roll out to, and the playbooks as a whole."""

import subprocess
import tarfile

import pytest

from device import ROOT
from fleet import PLAYBOOKS, Fleet

PASSWORD = "zentor 4711"
CONFIG = "/etc/orv.d/ZENTORAGENT3000/config.xml"
SSH = 'ssh -F /dev/null -i "$KELT_FLEET/key" -o UserKnownHostsFile="$KELT_FLEET/known_hosts" -o BatchMode=yes root@127.1.0.'


@pytest.fixture
def fleet_of(tmp_path, binary):
    """fleet_of(count, *options): new devices."""
    return lambda count, *options: Fleet(tmp_path / "fleet", binary, count, *options)


def test_a_device_has_no_python_and_no_sftp_in_sight(fleet_of):
    search = 'find / -path /proc -prune -o \\( -name "*python*" -o -name "*sftp*" -o -name "*.py" \\) -print'
    found = fleet_of(1).shell(f"{SSH}1 '{search}; ls /.machine /home /usr/lib/python3; hostname; which keltconfig'")
    assert found.stdout.split() == ["device001", "/usr/sbin/keltconfig"], found.stderr


def test_devices_end_with_the_command_and_its_status_is_told(fleet_of, tmp_path):
    fleet = fleet_of(2)
    ended = fleet.shell('cat /proc/[0-9]*/root/run/dropbear.pid >/dev/null 2>&1; readlink /proc/self/ns/pid; exit 7')
    assert ended.returncode == 7
    namespace = ended.stdout.strip()
    alive = subprocess.run(["sh", "-c", "readlink /proc/[0-9]*/ns/pid"], capture_output=True, text=True).stdout.split()
    assert namespace and namespace not in alive


def test_a_batch_that_fails_stops_the_rollout_and_the_report_names_those_not_tried(fleet_of, make_keys):
    fleet = fleet_of(5)
    fleet.boot(2, "rm -f /opt/Quorvane/orv/bin/agent")
    keys = str(make_keys("192.0.2.10"))
    run = fleet.play(PLAYBOOKS / "managed.yml", options=["--off", "device004"], keltconfig_source=keys,
                     keltconfig_batches=[1, 1, 3])
    assert run.status != 0
    assert run.tried() == ["device001", "device002"]
    report = (fleet.reports / "report.csv").read_text().splitlines()
    states = {line.split(",")[0]: line.split(",")[1] for line in report[1:]}
    assert states == {"device001": "changed", "device002": "failed", "device003": "untried", "device004": "untried",
                      "device005": "untried"}


def test_an_unreachable_device_stops_the_rollout_like_a_failed_one(fleet_of, make_keys):
    run = fleet_of(3).play(PLAYBOOKS / "managed.yml", options=["--off", "device001"], keltconfig_source=str(make_keys("192.0.2.10")))
    assert run.status != 0
    assert run.of("device001")[0] == "unreachable"
    assert run.tried() == ["device001"]


@pytest.fixture
def secret(tmp_path):
    """A file of variables with the password of the server, as a vault would give it."""
    path = tmp_path / "secret.yml"
    path.write_text(f'keltconfig_password: "{PASSWORD}"\n')
    return path


# The agent's stop command waits until every process of controller and devices was looked at.
LOOK = """
(
  tries=0
  until [ -e "$KELT_FLEET/devices/device001/run/looking" ] || [ $((tries += 1)) -gt 6000 ]; do sleep 0.05; done
  cat /proc/[0-9]*/cmdline /proc/[0-9]*/environ >seen 2>/dev/null
  : >"$KELT_FLEET/devices/device001/run/looked"
) &
"""
WAIT = f"""
cat >/opt/Quorvane/stop <<'END'
#!/bin/sh
: >/run/looking
tries=0
until [ -e /run/looked ] || [ $((tries += 1)) -gt 6000 ]; do sleep 0.05; done
rm -f /run/looking
exec /opt/Quorvane/orv/bin/agent stop
END
chmod 755 /opt/Quorvane/stop
sed -i 's:<StopCommand>.*</Stop:<StopCommand>/opt/Quorvane/stop</Stop:' {CONFIG}
"""


def test_a_device_fetches_from_the_server_and_the_password_is_seen_nowhere(fleet_of, secret, tmp_path):
    fleet = fleet_of(1, "--server")
    fleet.boot(1, WAIT)
    log = tmp_path / "log"
    run = fleet.play(PLAYBOOKS / "managed.yml", "-vvvvv", "-e", f"@{secret}", before=f"export ANSIBLE_LOG_PATH={log} ANSIBLE_DEBUG=1\n{LOOK}",
                     keltconfig_server="127.0.0.1", keltconfig_user="admin")
    outcome, result = run.of("device001")
    assert outcome == "changed", result
    assert result["keltcheck"]["facts"]["servers"] == ["127.0.0.1"]
    seen = (tmp_path / "seen").read_bytes()
    assert b"keltconfig\0-m\0-d\0" in seen and b"ansible-playbook" in seen
    assert PASSWORD.encode() not in seen and PASSWORD.encode() not in log.read_bytes() and log.stat().st_size > 10000
    assert PASSWORD not in run.out + run.err + str(run.records)
    files = [path for path in tmp_path.rglob("*") if path.is_file() and path != secret and "server" not in path.parts]
    assert [path for path in files if PASSWORD.encode() in path.read_bytes()] == []


def test_properties_are_set_and_a_switch_back_is_reported(fleet_of, make_keys):
    fleet = fleet_of(1)
    properties = {"1": "Räck $4 'x'", "4": 'a "quoted" & b'}
    keys = str(make_keys("192.0.2.10"))
    word = '{"keltconfig_custom_props": ' + str(properties["4"] and '{"1": "Räck $4", "4": "a & b"}') + "}"
    run = fleet.play(PLAYBOOKS / "managed.yml", keltconfig_source=keys, keltconfig_custom_props=properties,
                     keltconfig_health_command="/opt/Quorvane/orv/bin/agent status | grep running",
                     after=f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/properties.yml -e '{word}' && "
                           f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/unmanaged.yml -e keltconfig_source={keys} && "
                           f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/report.yml")
    assert run.status == 0
    outcomes = [(record["outcome"], record["action"]) for record in run.records]
    assert outcomes == [("changed", "keltconfig")] * 3 + [("ok", "keltcheck")], run.out
    assert [text.split(":")[0] for text in run.records[0]["result"]["differences"]][-2:] == ["custom property 1", "custom property 4"]
    text = fleet.path(1, "/opt/Quorvane/orv/scratch/CustomProps.xml").read_text()
    assert 'CustomProps1 value="Räck $4"' in text and 'value="a &amp; b"' in text
    assert run.records[-1]["result"]["keltcheck"]["facts"]["mode"] == "unmanaged"
    assert "device001,ok,unmanaged" in (fleet.reports / "report.csv").read_text()


def test_an_agent_that_is_not_well_after_the_switch_is_a_failure(fleet_of, make_keys):
    run = fleet_of(1).play(PLAYBOOKS / "managed.yml", keltconfig_source=str(make_keys("192.0.2.10")),
                           keltconfig_health_command="echo it coughs; exit 3")
    outcome, result = run.of("device001")
    assert outcome == "failed" and result["status"] == 3 and result["changed"]
    assert result["msg"] == "device001: health_command ended with status 3: it coughs"


def test_a_missing_agent_is_noticed_without_a_look_before(fleet_of, make_keys):
    fleet = fleet_of(1)
    fleet.boot(1, "rm -f /opt/Quorvane/orv/bin/agent")
    run = fleet.play(PLAYBOOKS / "managed.yml", keltconfig_source=str(make_keys("192.0.2.10")), keltconfig_check_before=False)
    outcome, result = run.of("device001")
    assert outcome == "failed" and "is impaired. keltcheck: command.start" in result["msg"]


@pytest.fixture(scope="module")
def packages(tmp_path_factory, binary):
    """What a release brings for this machine, for tar and for opkg."""
    directory, tree = tmp_path_factory.mktemp("packages"), tmp_path_factory.mktemp("tree")
    subprocess.run(["cmake", "--install", binary.parent], env={"PATH": "/usr/bin:/bin", "DESTDIR": str(tree)},
                   check=True, stdout=subprocess.DEVNULL)
    names = {"x86_64": "amd64", "aarch64": "arm64"}
    machine = subprocess.run(["uname", "-m"], capture_output=True, text=True, check=True).stdout.strip()
    stem = directory / f"keltconfig_4.6.0.2545_{names.get(machine, machine)}"
    data = directory / "data.tar.gz"
    for path in (f"{stem}.tar.gz", data):
        with tarfile.open(path, "w:gz", format=tarfile.GNU_FORMAT) as archive:
            archive.add(tree / "usr", "./usr")
    with tarfile.open(f"{stem}.ipk", "w:gz", format=tarfile.GNU_FORMAT) as archive:
        archive.add(data, "./data.tar.gz")
    data.unlink()
    return directory


OPKG = """
mkdir -p /usr/sbin
cat >/usr/sbin/opkg <<'END'
#!/bin/sh
echo "opkg $1 ${2##*/}" >/run/opkg.calls
tar -xzOf "$2" ./data.tar.gz | tar -xzf - -C /
END
chmod 755 /usr/sbin/opkg
"""


def test_a_device_gets_the_package_by_what_it_has_and_only_once(fleet_of, packages):
    fleet = fleet_of(2, "--bare")
    fleet.boot(2, OPKG)
    play = f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/install.yml -e keltconfig_packages={packages}"
    run = fleet.play(PLAYBOOKS / "managed.yml", keltconfig_source="/nowhere", after=f"{play} && {play} && {SSH}2 keltcheck")
    assert run.of("device001")[0] == "failed"
    installed = [(record["device"], record["outcome"]) for record in run.records if record["action"] == "keltconfig_package"]
    assert installed == [("device001", "changed"), ("device002", "changed"), ("device001", "ok"), ("device002", "ok")], run.out
    assert "KELTCHECK OK - unmanaged" in run.out
    assert fleet.path(2, "/run/opkg.calls").read_text().startswith("opkg install keltconfig_4.6.0.2545_")
