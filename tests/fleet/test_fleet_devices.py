"""The devices that the tests roll out to, and the playbooks as a whole."""

import csv
import json
import subprocess

import pytest

from fleet import PLAYBOOKS, SSH


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


def states(fleet):
    with open(fleet.reports / "report.csv", newline="") as file:
        return [row["state"] for row in sorted(csv.DictReader(file), key=lambda row: row["device"])]


def test_a_batch_that_fails_stops_the_rollout_and_the_report_names_those_not_tried(fleet_of, make_keys):
    """Also where another device of that batch is not reached, which Ansible by itself takes for no reason to stop."""
    fleet = fleet_of(5)
    fleet.boot(2, "rm -f /opt/Quorvane/orv/bin/agent")
    run = fleet.play(PLAYBOOKS / "managed.yml", options=["--off", "device003"], keltconfig_source=str(make_keys("192.0.2.10")),
                     keltconfig_batches=[1, 2, 2])
    assert run.status != 0
    assert run.tried() == ["device001", "device002", "device003"]
    assert states(fleet) == ["changed", "failed", "unreachable", "untried", "untried"]
    assert fleet.calls(4) == fleet.calls(5) == []


def test_an_unreachable_device_stops_the_rollout_like_a_failed_one(fleet_of, make_keys):
    run = fleet_of(3).play(PLAYBOOKS / "managed.yml", options=["--off", "device001"], keltconfig_source=str(make_keys("192.0.2.10")))
    assert run.status != 0
    assert run.of("device001")[0] == "unreachable"
    assert run.tried() == ["device001"]


def test_properties_are_set_as_bytes_of_latin_1_and_a_switch_back_is_reported(fleet_of, make_keys, tmp_path):
    fleet = fleet_of(1)
    fleet.boot(1, RECORD_ARGUMENTS)
    texts = tmp_path / "texts.json"
    texts.write_text(json.dumps({"keltconfig_custom_props": {"1": "R\u00e4ck $4", "4": "a & b"}}))
    again = [f"ansible-playbook -i $KELT_FLEET/inventory.ini {PLAYBOOKS}/{name}" for name in
             (f"properties.yml -e @{texts}", f"properties.yml -e @{texts}", "unmanaged.yml", "unmanaged.yml", "report.yml")]
    run = fleet.play(PLAYBOOKS / "managed.yml", keltconfig_source=str(make_keys("192.0.2.10")),
                     keltconfig_custom_props={"1": "R\u00fcck '\u00a4' x", "4": 'a "quoted" % \\ b'}, after=" && ".join(again))
    assert run.status == 0
    outcomes = [(record["outcome"], record["action"]) for record in run.records]
    assert outcomes == [(outcome, "keltconfig") for outcome in ("changed", "changed", "ok", "changed", "ok")] + [("ok", "keltcheck")]
    assert [text.split(":")[0] for text in run.records[0]["result"]["differences"]][-2:] == ["custom property 1", "custom property 4"]
    given = [line.split(b" ", 1)[1] for line in fleet.path(1, "/run/arguments").read_bytes().splitlines() if b"Custom" in line]
    assert given == [b"-CustomProps1 R\xfcck '\xa4' x -CustomProps4 a \"quoted\" % \\ b", b"-CustomProps1 R\xe4ck $4 -CustomProps4 a & b"]
    text = fleet.path(1, "/opt/Quorvane/orv/scratch/CustomProps.xml").read_text()
    assert 'CustomProps1 value="R\u00e4ck $4"' in text and 'value="a &amp; b"' in text
    assert run.records[-1]["result"]["keltcheck"]["facts"]["mode"] == "unmanaged"
    assert "device001,ok,unmanaged" in (fleet.reports / "report.csv").read_text()


# Puts something in the place of the tool, which goes on standing beside it.
INSTEAD = """
cp /usr/sbin/keltconfig /usr/lib/*-linux-gnu/keltconfig/*.so /opt
umount /usr/sbin/keltconfig
cat >/usr/sbin/keltconfig <<'END'
#!/bin/sh
%s
END
chmod 755 /usr/sbin/keltconfig
"""
RECORD_ARGUMENTS = INSTEAD % 'echo "keltconfig $*" >>/run/arguments\nexec /opt/keltconfig "$@"'

COUGHING, GONE, STOPPED, LYING, OTHER_SERVER, SAME_SERVER, UNLOOKED, BARE, LONG_WINDED, BROKEN_CHECK = range(1, 11)


@pytest.fixture(scope="module")
def cases(tmp_path_factory, fleet_in, make_keys):
    """A rollout to devices that stand for themselves: fleet and outcome."""
    directory = tmp_path_factory.mktemp("cases")
    fleet, keys = fleet_in(directory, BROKEN_CHECK, "--server"), make_keys("192.0.2.10")
    source = {"keltconfig_source": str(keys)}
    server = {"keltconfig_server": "127.0.0.1", "keltconfig_user": "admin", "keltconfig_password": "zentor 4711"}
    hosts = {
        COUGHING: source | {"keltconfig_health_command": "echo it coughs; exit 3"},
        GONE: source | {"keltconfig_check_before": False},
        STOPPED: source | {"keltconfig_start": False},
        LYING: source,
        OTHER_SERVER: server | {"keltconfig_certificate": "AB:" * 31 + "AB"},
        SAME_SERVER: server | {"keltconfig_certificate": "{{ lookup('env', 'FINGERPRINT') }}"},
        UNLOOKED: server | {"keltconfig_certificate": "AB" * 32, "keltconfig_check_before": False},
        BARE: source,
        LONG_WINDED: source | {"keltconfig_custom_props": {"1": "\u00e4" * 2000}},
        BROKEN_CHECK: source,
    }
    fleet.boot(GONE, "rm -f /opt/Quorvane/orv/bin/agent")
    fleet.boot(LYING, INSTEAD % "exit 0")
    fleet.boot(BARE, "umount /usr/sbin/keltconfig; rm /usr/sbin/keltconfig")
    fleet.boot(BROKEN_CHECK, "umount /usr/sbin/keltcheck; printf '#!/bin/sh\necho nonsense\n' >/usr/sbin/keltcheck; chmod 755 /usr/sbin/keltcheck")
    inventory = directory / "hosts.json"
    inventory.write_text(json.dumps({"fleet": {"hosts": {fleet.name(number): given for number, given in hosts.items()}}}))
    playbook = directory / "at-once.yml"
    playbook.write_text((PLAYBOOKS / "managed.yml").read_text().replace("max_fail_percentage: 10", "max_fail_percentage: 100"))
    fingerprint = 'export FINGERPRINT=$(openssl x509 -noout -fingerprint -sha256 -in "$KELT_FLEET/server/certificate.pem" | cut -d= -f2)'
    return fleet, fleet.play(playbook, "-i", inventory, before=fingerprint, keltconfig_batches=["100%"])


def came_to(cases, number):
    fleet, run = cases
    return (*run.of(fleet.name(number)), fleet.calls(number))


def test_an_agent_that_is_not_well_after_the_switch_is_a_failure(cases):
    outcome, result, _ = came_to(cases, COUGHING)
    assert outcome == "failed" and result["status"] == 3 and result["changed"]
    assert result["msg"] == "device001: health_command ended with status 3: it coughs"


def test_a_missing_agent_is_noticed_without_a_look_before(cases):
    outcome, result, _ = came_to(cases, GONE)
    assert outcome == "failed" and "is impaired. keltcheck: command.start" in result["msg"]


def test_an_agent_that_is_not_to_be_started_is_not(cases):
    outcome, result, calls = came_to(cases, STOPPED)
    assert (outcome, result["keltcheck"]["facts"]["mode"]) == ("changed", "managed")
    assert "agent stop" in calls and "agent start" not in calls


def test_a_success_is_not_claimed_before_it_is_read_back(cases):
    outcome, result, _ = came_to(cases, LYING)
    assert outcome == "failed" and result["status"] == 0
    assert result["msg"].startswith("device004: keltconfig ended well, and yet: mode is unmanaged, not managed; ")


def test_nothing_is_tried_with_a_server_that_shows_another_certificate(cases):
    outcome, result, calls = came_to(cases, OTHER_SERVER)
    assert outcome == "failed" and "nothing was tried, as the server shows another certificate: " in result["msg"]
    assert calls == [] and not result["changed"] and "status" not in result
    assert came_to(cases, SAME_SERVER)[0] == "changed"


def test_a_certificate_that_nobody_would_look_at_is_refused(cases):
    outcome, result, calls = came_to(cases, UNLOOKED)
    assert outcome == "failed" and "check_before" in result["msg"] and calls == []


def test_a_device_without_keltconfig_or_with_a_broken_keltcheck_says_so(cases):
    outcome, result, _ = came_to(cases, BARE)
    assert (outcome, result["msg"]) == ("failed", "device008: keltconfig is not installed on the device")
    outcome, result, calls = came_to(cases, BROKEN_CHECK)
    assert outcome == "failed" and "keltcheck did not say how the device stands: nonsense" in result["msg"]
    assert calls == []


def test_what_no_command_of_ssh_can_hold_is_refused_before_anything_is_done(cases):
    outcome, result, calls = came_to(cases, LONG_WINDED)
    assert outcome == "failed" and "too long" in result["msg"] and calls == []
