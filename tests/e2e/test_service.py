"""Options that act on the service or ask about it, and their combinations."""

import pytest

from device import AGENT_CONFIG, INSTALL, NO_MODE, SCRATCH, START, STOP, changes

CONFLICT = b"\n there is a conflict \n"
UNSAFE = b"Security Issue, Config Dir is writable by non root.\n"
STATUS = INSTALL + "/bin/agent status"


def test_version(device):
    assert device.run("-version").result() == (NO_MODE + b"4.6.0.2545\n", b"", 0)
    assert device.calls() == []


def test_start_runs_the_agent_and_then_the_plug_ins(device):
    run = device.run("-start", after=STATUS)
    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == device.starting()
    assert b"service     running" in run.after


def test_stop_unloads_the_plug_ins_and_then_ends_the_agent(device):
    run = device.run("-stop", before=f"{INSTALL}/bin/agent start; rm /run/agent/calls", after=STATUS)
    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == device.stopping()
    assert b"service     stopped" in run.after


def test_start_and_stop_do_both_start_first(device):
    assert device.run("-stop", "-start").result() == (NO_MODE, b"", 0)
    assert device.calls() == device.starting() + device.stopping()


def test_service_without_agent_configuration(device):
    device.path(AGENT_CONFIG).unlink()
    assert device.run("-start").result() == (NO_MODE, b"", 4)
    assert device.run("-stop").result() == (NO_MODE, b"", 5)
    assert device.calls() == []


def test_service_with_an_empty_configuration_directory(device):
    empty = "rm -rf /etc/orv.d/*"
    assert device.run("-start", before=empty).result() == (NO_MODE, b"", 4)
    assert device.run("-stop", before=empty).result() == (NO_MODE, b"", 5)


def test_configuration_directory_that_others_may_write(device):
    # Nobody can trust what is in such a directory: the agent's configuration is not found in it either.
    device.path("/etc/orv.d").chmod(0o777)
    assert device.run("-start").result() == (NO_MODE, b"", 4)
    assert device.run("-stop").result() == (NO_MODE, b"", 5)
    assert device.calls() == []


UNTRUSTED = {
    "the file": f"chmod o+w {AGENT_CONFIG}",
    "its directory": "chmod o+w /etc/orv.d/ZENTORAGENT3000",
    "a link into a directory of everybody's": f"mkdir -m 1777 /run/all; mv {AGENT_CONFIG} /run/all; ln -s /run/all/config.xml {AGENT_CONFIG}",
}


@pytest.mark.parametrize("damage", UNTRUSTED.values(), ids=UNTRUSTED.keys())
def test_configuration_that_others_may_write_decides_nothing(device, damage):
    planted = b"<FrameworkDataDirectory>/run/planted</FrameworkDataDirectory><AgentBinDirectory>/run</AgentBinDirectory>"
    device.edit(AGENT_CONFIG, b"</Configuration>", planted + b"</Configuration>")
    assert device.run("-start", before="mkdir /run/planted; " + damage).result() == (NO_MODE, b"", 4)
    assert device.run("-stop").result() == (NO_MODE, b"", 5)
    assert device.run("-CustomProps1", "a").status == 0
    assert device.calls() == []
    assert list(device.path("/run/planted").iterdir()) == []
    assert device.path(SCRATCH + "/CustomProps.xml").exists()
    errors = [text for mark, text in device.log() if mark == "E"]
    assert len(errors) == 3, "one line a run"
    for text in errors:
        assert text.startswith(AGENT_CONFIG + ": ") and text.endswith("can be written by others")


def test_plug_in_whose_configuration_is_refused_is_named_in_the_log(device):
    config = "/etc/orv.d/SCANNER2000/config.xml"
    device.path(config).write_bytes(b"<Configuration>")
    assert device.run("-start", "-stop").result() == (NO_MODE, b"", 0)
    assert not any("scanner" in call for call in device.calls())
    (error,) = [text for mark, text in device.log() if mark == "E"]
    assert error.startswith(config + ": XML document with ")


def test_configuration_directory_that_a_group_may_write_is_fine(device):
    device.path("/etc/orv.d").chmod(0o775)
    assert device.run("-start").result() == (NO_MODE, b"", 0)
    assert device.calls()[0] == START


def test_commands_that_fail_change_nothing_of_the_result(device):
    device.edit(AGENT_CONFIG, b"bin/agent start", b"bin/nosuch start")
    device.edit(AGENT_CONFIG, b"bin/agent stop", b"bin/agent nosuch")
    run = device.run("-start", "-stop")
    assert (run.out, run.status) == (NO_MODE, 0)
    assert device.calls() == device.plugins("load") + device.plugins("unload") + ["agent nosuch"]


def test_absent_commands_are_no_failure(device):
    device.write(AGENT_CONFIG, b"<Configuration><AgentBinDirectory>/tmp</AgentBinDirectory></Configuration>")
    assert device.run("-start", "-stop").result() == (NO_MODE, b"", 0)
    assert device.calls() == device.plugins("load") + device.plugins("unload")


def test_products_without_plug_in_commands_are_skipped(device):
    device.write("/etc/orv.d/SCANNER2000/config.xml", b"<Configuration/>")
    device.write("/etc/orv.d/FIREWALL1000/config.xml", b"not XML")
    assert device.run("-start").result() == (NO_MODE, b"", 0)
    assert device.calls() == [START]


def listed_first(device):
    """The first entry of the configuration directory, as it is listed, that is named like the agent's."""
    return next(name for name in device.enter("ls", "-U", "/etc/orv.d").stdout.decode().split() if "ZENTORAGENT" in name)


def test_regular_files_named_like_the_agents_directory_are_passed(device):
    agent = device.path("/etc/orv.d/ZENTORAGENT3000")
    number = 0
    while listed_first(device) == agent.name:
        # Some file systems list the newest entry first, some the oldest, and some neither.
        agent.rename(device.path("/run/agent.moved"))
        device.write(f"/etc/orv.d/ZENTORAGENT{number}", b"<Configuration/>")
        device.path("/run/agent.moved").rename(agent)
        device.write(f"/etc/orv.d/ZENTORAGENT{number + 1}", b"<Configuration/>")
        number += 2
    assert device.run("-start", "-stop").result() == (NO_MODE, b"", 0)
    assert device.calls() == device.starting() + device.stopping()


def test_check_of_a_proper_version(device):
    run = device.run("-checkHF", "5.7.8-HF2000")
    assert run.result() == (NO_MODE + b"\n Proper Version \n", b"", 0)


def test_check_of_an_improper_version_ends_the_run(device):
    run = device.run("-checkHF", "5.7.9-HF2000", "-conflictList", "X", "-version", "-start")
    assert run.result() == (NO_MODE + b"\n Improper Version \n", b"", 2)
    assert device.calls() == []


def test_version_check_without_agent_configuration(device):
    device.path(AGENT_CONFIG).unlink()
    assert device.run("-checkHF", "5.7.8").result() == (NO_MODE, b"", 2)
    assert device.run("-conflictList", "X").result() == (NO_MODE + CONFLICT, b"", 3)


def test_hotfix_that_is_installed_already(device):
    run = device.run("-conflictList", "X", "-checkHF", "5.7.8-HF1001")
    assert run.result() == (NO_MODE + b"\n Proper Version \n\n Hotfix already Exists \n" + CONFLICT, b"", 3)


def test_conflicting_hotfix(device):
    run = device.run("-conflictList", "5.7.8-HF9,5.7.8-HF1002")
    assert run.result() == (NO_MODE + b"\n reg and conflict match \n\n Found \n" + CONFLICT, b"", 3)


def test_no_conflict_then_the_run_goes_on(device):
    run = device.run("-checkHF", "5.7.8-HF2000", "-conflictList", "5.7.8-HF9", "-start")
    assert run.result() == (NO_MODE + b"\n Proper Version \n\n Not Found \n", b"", 0)
    assert device.calls() == device.starting()


def test_version_wins_over_a_mode_switch(device, package):
    source = package()
    before = device.files()
    run = device.run("-version", "-m", "-d", source)
    assert run.result() == (NO_MODE + b"4.6.0.2545\n", b"", 0)
    assert device.calls() == []
    assert changes(before, device.files())["changed"] == []


def test_managed_mode_without_a_directory_is_named_and_the_run_goes_on(device):
    lines = (
        b"Error : -d option is missing for following files\n"
        b"      1. sitelist &\n"
        b"      2. keyfiles (for Zentor4.0 or higher)\n"
    )
    assert device.run("-m").result() == (NO_MODE + lines, b"", 0)
    assert device.calls() == []
    assert device.run("-m", "-start").result() == (NO_MODE + lines, b"", 0)
    assert device.calls() == device.starting()


def test_agent_binary_directory_that_is_missing(device):
    device.edit(AGENT_CONFIG, b"<AgentBinDirectory>/opt/Quorvane/orv/bin", b"<AgentBinDirectory>/nosuch/d\xc3\xafr")
    run = device.run("-start")
    assert run.result() == (b"Error : Failed to change current directory to /nosuch/d\xc3\xafr\n", b"", 8)
    assert device.calls() == []


def test_start_of_an_agent_whose_directory_check_fails_loads_no_plug_ins(device):
    # The configuration is found under one check and walked under another; between them a directory can change hands.
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent start", b"chmod 0777 /etc/orv.d")
    run = device.run("-start", after="chmod 0755 /etc/orv.d")
    assert run.result() == (NO_MODE + UNSAFE, b"", 0)
    assert device.calls() == []


def test_stop_of_an_agent_whose_directory_check_fails_runs_nothing_and_reports_success(device):
    # The last time that the directory is opened is for the plug-ins; then it cannot be opened any more.
    trace = "strace -o /run/trace -e trace=openat"
    assert device.run("-stop", via=trace).status == 0
    assert device.calls() == device.stopping()
    device.forget_calls()
    opened = [b'"/etc/orv.d"' in line for line in device.take("/run/trace").splitlines()]
    last = len(opened) - opened[::-1].index(True)

    run = device.run("-stop", via=f"{trace} -e inject=openat:error=EMFILE:when={last}")

    assert run.result() == (NO_MODE + b"Opendir failed for config directory.\n", b"", 0)
    assert b'"/etc/orv.d"' in next(line for line in device.take("/run/trace").splitlines() if b"INJECTED" in line)
    assert device.calls() == []
