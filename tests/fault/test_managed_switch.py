"""A switch to managed mode that is cut off, or refused a system call, at every point where it changes something."""

import hashlib

import pytest

from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, LOG, SITE_LIST
from faults import Faults

SERVER_KEY = KEYSTORE + "/server-public.der"
REQUEST_KEY = KEYSTORE + "/server-request-secret.der"


@pytest.fixture
def faults(device, package):
    return Faults(device, package)


def finished(faults):
    """The files that matter as they are after a good switch: nothing else is right but this or what was there before."""
    source = {path.name: path.read_bytes() for path in faults.source.iterdir()}
    digest = hashlib.sha256(source["sr2048pubkey.bin"]).hexdigest().upper().encode()
    config = faults.first[AGENT_CONFIG].replace(b"<binsphash></", b"<binsphash>" + digest + b"</")
    return {AGENT_CONFIG: config, SITE_LIST: source["SiteList.xml"], SERVER_KEY: source["sr2048pubkey.bin"]}


def expect_old_or_new(faults, outcome):
    """No file that anything reads is ever half written."""
    good = finished(faults)
    for name in (AGENT_CONFIG, SITE_LIST, SERVER_KEY):
        assert outcome.files[name] in (faults.first[name], good[name]), (outcome.fault, name)
    source = {path.name: path.read_bytes() for path in faults.source.iterdir()}
    for name in KEY_FILES:
        assert outcome.files[f"{INSTALL}/{name}"] in (None, source.get(name, b"")), (outcome.fault, name)
    assert outcome.files[KEYSTORE + "/keyconf.ini"] in (None, b"mode=2\nkeysize=1\n"), outcome.fault


def expect_sources_kept(faults, outcome):
    for path in faults.source.iterdir():
        assert outcome.keys[path.name] == path.read_bytes(), (outcome.fault, path.name)


def expect_finished(faults, outcome, files):
    for name, content in finished(faults).items():
        assert files[name] == content, (outcome.fault, name)
    assert files[REQUEST_KEY], outcome.fault


def test_a_cut_at_any_point_leaves_old_or_new_files_and_the_next_run_succeeds(faults):
    outcomes = faults.run("signal=KILL:when={n}", again=True)
    assert len(outcomes) > 40
    for outcome in outcomes:
        assert (outcome.injected, outcome.status) == (True, 137), outcome.fault
        expect_old_or_new(faults, outcome)
        expect_sources_kept(faults, outcome)
        assert outcome.again_status == 0, outcome.fault
        expect_finished(faults, outcome, outcome.again_files)
        assert outcome.again_others <= {LOG}, outcome.fault


@pytest.mark.parametrize("fault", ["error=EIO:when={n}", "error=ENOSPC:when={n}+"])
def test_an_error_at_any_point_leaves_old_or_new_files_and_nothing_else(faults, fault):
    for outcome in faults.run(fault, again=False):
        assert outcome.injected, outcome.fault
        # Reading fails as well where opening files goes on failing: then the agent is neither stopped nor started.
        assert outcome.status in (0, 1, 4, 5, 17), outcome.fault
        expect_old_or_new(faults, outcome)
        # What cannot be removed, by the fault itself, is all that may be left over.
        if not outcome.fault.startswith("unlink"):
            assert outcome.others <= {LOG}, outcome.fault
        if outcome.status == 0:
            assert outcome.files[SITE_LIST] == finished(faults)[SITE_LIST], outcome.fault
            assert outcome.files[SERVER_KEY] == finished(faults)[SERVER_KEY], outcome.fault
            assert outcome.files[KEYSTORE + "/keyconf.ini"] == b"mode=2\nkeysize=1\n", outcome.fault
