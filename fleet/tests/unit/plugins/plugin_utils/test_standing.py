"""What keltcheck says, and what that means for a switch."""

import json
import pathlib

import pytest
from ansible.errors import AnsibleError
from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import (
    SWITCH_AGAIN,
    Standing,
    differences,
    sentence,
    without_port,
)

KEYS = pathlib.Path(__file__).resolve().parents[5] / "check/keys.cpp"
KEY = "AB" * 32


def standing(checks=(), **facts):
    report = {"schema": 1, "verdict": "ok", "summary": "s", "facts": dict(facts, versions={}), "checks": list(checks)}
    return Standing(json.dumps(report))


def problem(identifier):
    return {"id": identifier, "group": identifier.split(".")[0], "state": "problem", "fact": "F.", "remedy": "R."}


def managed(**facts):
    return standing(**dict(dict(mode="managed", servers=["192.0.2.10"], server_key_sha256=KEY, binsphash=KEY), **facts))


WANTED = {"state": "managed", "servers": ["192.0.2.10"], "keys": [KEY]}


def test_a_device_that_stands_as_wanted_has_no_differences():
    assert differences(managed(), WANTED) == []
    assert differences(standing(mode="unmanaged"), {"state": "unmanaged"}) == []


@pytest.mark.parametrize(
    "facts, what",
    [
        ({"mode": "unmanaged"}, "mode"),
        ({"servers": ["192.0.2.11"]}, "servers"),
        ({"servers": ["192.0.2.10", "192.0.2.11"]}, "servers"),
        ({"server_key_sha256": "CD" * 32}, "server key"),
        ({"binsphash": ""}, "recorded hash"),
    ],
)
def test_each_fact_that_is_otherwise_is_a_difference(facts, what):
    assert what in [difference[0] for difference in differences(managed(**facts), WANTED)]


def test_the_hash_that_is_left_of_an_earlier_server_is_no_difference_for_an_unmanaged_device():
    assert differences(standing(mode="unmanaged", binsphash=KEY), {"state": "unmanaged"}) == []


def test_a_mode_that_is_not_known_is_a_difference():
    assert differences(standing(), {"state": "unmanaged"}) == [("mode", "unknown", "unmanaged")]


def test_a_server_that_was_asked_is_looked_for_under_any_of_its_names():
    wanted = {"state": "managed", "one_of": ["mgmt.example", "192.0.2.10"]}
    assert differences(managed(servers=["192.0.2.10:8443"]), wanted) == []
    assert differences(managed(servers=["192.0.2.9"]), wanted) == [("servers", "192.0.2.9", "mgmt.example")]


def test_work_that_a_killed_run_owes_is_a_difference():
    owed = {"id": "trace.unfinished", "group": "trace", "state": "warning", "fact": "F.", "remedy": "R."}
    found = differences(standing([owed], mode="unmanaged"), {"state": "unmanaged"})
    assert found == [("trace.unfinished", "F.", "done")]


@pytest.mark.parametrize(
    "identifier, managed_blocked, unmanaged_blocked",
    [
        ("command.start", True, True),
        ("room.file-system", True, True),
        ("config.file", True, True),
        ("server.connection", True, True),
        ("key.store", True, False),
        ("trace.stopped", False, False),
        ("mode.site-list", False, True),
        ("trace.unfinished", False, False),
        ("what.comes-later", True, True),
    ],
)
def test_a_problem_blocks_what_it_would_make_fail(identifier, managed_blocked, unmanaged_blocked):
    device = standing([problem(identifier)])
    assert bool(device.blocking("managed")) == managed_blocked
    assert bool(device.blocking("unmanaged")) == unmanaged_blocked


def test_what_keltcheck_would_mend_by_a_switch_does_not_keep_from_it():
    check = dict(problem("key.store"), remedy="Switch the agent to managed mode again, with the keys of its server.")
    device = standing([check], mode="managed")
    assert device.blocking("managed") == [] and device.impairing("managed") == [check]


@pytest.mark.skipif(not KEYS.exists(), reason="only in keltconfig's own tree")
def test_the_remedy_is_worded_as_keltcheck_words_it():
    assert '"%s, with the keys of its server."' % SWITCH_AGAIN in KEYS.read_text()


@pytest.mark.parametrize("text", ["", "Segmentation fault", "{}", "[]", '{"schema": 1}'])
def test_what_is_no_report_is_refused_and_quoted(text):
    with pytest.raises(AnsibleError, match="did not say how the device stands"):
        Standing(text)


def test_another_schema_is_refused():
    with pytest.raises(AnsibleError, match="schema 2"):
        Standing(json.dumps({"schema": 2}))


def test_a_finding_is_one_sentence_with_its_remedy():
    assert sentence(dict(problem("command.load"), subject="SCANNER")) == "command.load (SCANNER): F. Remedy: R."


@pytest.mark.parametrize(
    "address, host",
    [("a.example", "a.example"), ("a.example:8443", "a.example"), ("[fe80::1%eth0]:1", "fe80::1%eth0"), ("fe80::1", "fe80::1")],
)
def test_a_port_is_no_part_of_a_name(address, host):
    assert without_port(address) == host
