"""What becomes of the management server's password, and of secret keys, on the controller and on the devices."""

import json

import pytest

from fleet import PLAYBOOKS

PASSWORD = "zentor 4711"
ENDS_WITH_ITS_PARENT = ["setpriv", "--pdeathsig", "KILL", "--"]


@pytest.fixture
def secret(tmp_path):
    """A file of variables with the password of the server, as a vault would give it."""
    path = tmp_path / "secret.yml"
    path.write_text(f'keltconfig_password: "{PASSWORD}"\n')
    return path


@pytest.fixture
def talkative(tmp_path):
    """Everything that Ansible of its own can be asked to write down."""
    return {
        "ANSIBLE_LOG_PATH": str(tmp_path / "log"),
        "ANSIBLE_DEBUG": "1",
        "ANSIBLE_CALLBACKS_ENABLED": "kelt.fleet.report,record,tree,junit",
        "ANSIBLE_CALLBACK_TREE_DIR": str(tmp_path / "tree"),
        "JUNIT_OUTPUT_DIR": str(tmp_path / "junit"),
        "ANSIBLE_DISPLAY_ARGS_TO_STDOUT": "1",
        "ANSIBLE_RETRY_FILES_ENABLED": "1",
        "ANSIBLE_RETRY_FILES_SAVE_PATH": str(tmp_path / "retry"),
        "ANSIBLE_CACHE_PLUGIN": "jsonfile",
        "ANSIBLE_CACHE_PLUGIN_CONNECTION": str(tmp_path / "facts"),
    }


def test_a_device_fetches_from_the_server_and_the_password_is_seen_nowhere(fleet_of, secret, talkative, tmp_path):
    """Every program that the controller and the devices start is recorded, with its arguments and its environment."""
    programs, playbook = tmp_path / "programs", tmp_path / "play.yml"
    recording = ["strace", "-f", "--seccomp-bpf", "-qq", "-e", "trace=execve,execveat", "-e", "signal=none", "-v", "-s", "100000"]
    playbook.write_text(f"""
- import_playbook: {PLAYBOOKS}/managed.yml
- hosts: fleet
  gather_facts: false
  tasks:
    - set_fact: {{remembered: "{{{{ keltconfig_result }}}}", cacheable: true}}
""")
    run = fleet_of(1, "--server").play(
        playbook, "-vvvvv", "-e", f"@{secret}", via=[*ENDS_WITH_ITS_PARENT, *recording, "-o", programs, *ENDS_WITH_ITS_PARENT],
        env=talkative, keltconfig_server="127.0.0.1", keltconfig_user="admin")
    outcome, result = run.of("device001")
    assert outcome == "changed", result
    assert result["keltcheck"]["facts"]["servers"] == ["127.0.0.1"]
    started = programs.read_text()
    for words in ('["keltconfig", "-m", "-d", ', '"ansible-playbook", "-i"', '["ssh", '):
        assert words in started
    for name in ("log", "tree/device001", "facts/device001"):
        assert (tmp_path / name).stat().st_size > 1000, name
    assert list((tmp_path / "junit").iterdir())
    assert PASSWORD not in run.out + run.err + json.dumps(run.records)
    files = [path for path in tmp_path.rglob("*") if path.is_file() and path != secret and "server" not in path.parts]
    assert programs in files and len(files) > 20
    assert [path for path in files if PASSWORD.encode() in path.read_bytes()] == []


def test_a_secret_key_is_seen_nowhere_but_in_the_key_store_of_the_device(fleet_of, make_keys, talkative, tmp_path):
    keys = make_keys("192.0.2.10")
    run = fleet_of(1).play(PLAYBOOKS / "managed.yml", "-vvvvv", "--diff", env=talkative, keltconfig_source=str(keys))
    assert run.of("device001")[0] == "changed"
    piece = (keys / "req2048seckey.bin").read_bytes()[100:140]
    holders = [path.name for path in tmp_path.rglob("*") if path.is_file() and piece in path.read_bytes()]
    assert holders == ["server-request-secret.der"]
    assert piece.decode("latin-1") not in run.out and piece.hex() not in run.out
