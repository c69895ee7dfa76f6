"""keltcheck's command line, its formats and its exit statuses."""

import json
import os
import pathlib
import pty
import subprocess

import jsonschema
import pytest

from check import OK, PROBLEM, STATUS, WARNING, check, plain, program
from device import AGENT_CONFIG, ROOT, SITE_LIST

SCHEMA = json.loads((ROOT / "packaging/keltcheck.schema.json").read_text())


def run(device, *arguments, **options):
    done = device.enter(program(device), *arguments, **options)
    return done.stdout, done.stderr, done.returncode


def on_terminal(device, *arguments, **environment):
    """What a run prints on a terminal."""
    controller, terminal = pty.openpty()
    try:
        done = device.enter(
            program(device), *arguments, stdout=terminal, stderr=subprocess.PIPE, env={"TERM": "xterm", **environment}
        )
        os.close(terminal)
        shown = b""
        while True:
            try:
                piece = os.read(controller, 4096)
            except OSError:  # the other end is closed
                break
            shown += piece
        return shown.replace(b"\r\n", b"\n").decode(), done.returncode
    finally:
        os.close(controller)


def test_first_line_of_a_device_without_a_server(device):
    assert plain(device) == ("KELTCHECK OK - unmanaged\n", 0)


def test_first_line_of_a_managed_device(device, package):
    assert device.run("-m", "-d", package()).status == 0
    assert plain(device) == ("KELTCHECK OK - managed by 192.0.2.10, key 2048 bits\n", 0)


def test_output_that_is_no_terminal_is_plain(device):
    assert run(device) == (b"KELTCHECK OK - unmanaged\n", b"", 0)


def test_each_finding_is_a_line_with_identifier_fact_and_remedy(device):
    device.path(SITE_LIST).unlink()
    out, status = plain(device)
    first, *rest = out.splitlines()
    assert status == STATUS[PROBLEM]
    assert first == (
        "KELTCHECK PROBLEM - mode unknown; 1 problem: stat /opt/Quorvane/orv/scratch/etc/SiteList.xml: "
        "No such file or directory."
    )
    assert rest == [
        "problem mode.site-list: stat /opt/Quorvane/orv/scratch/etc/SiteList.xml: No such file or directory. Remedy: "
        "Switch the agent to managed mode, which replaces the site list, or install the agent again; a switch to "
        "unmanaged mode is refused until then."
    ]


def test_what_is_well_is_told_only_when_asked_for(device):
    out, status = plain(device, "--verbose")
    lines = out.splitlines()
    assert status == 0 and len(lines) > 30
    assert all(line.startswith("ok ") for line in lines[1:])
    assert "ok config.directory: /etc/orv.d is root's, and others may not write to it." in lines


def test_first_line_has_no_character_that_monitoring_systems_cut_at(device):
    device.path("/etc/orv.d/A|ZENTORAGENT").mkdir()
    device.path("/etc/orv.d/ZENTORAGENT3000").rename(device.path("/etc/orv.d/gone"))
    out, _ = plain(device)
    assert "A/ZENTORAGENT" in out.splitlines()[0] and "|" not in out.splitlines()[0]


def test_names_of_the_device_cannot_move_the_cursor(device):
    name = b"X\x1b[2J\xff\n1ZENTORAGENT"
    os.mkdir(os.path.join(os.fsencode(device.path("/etc/orv.d")), name))
    for arguments in (["--verbose", "--plain"], ["--json"]):
        out, _, _ = run(device, *arguments)
        assert b"\x1b" not in out and b"\xff" not in out
        assert b"X\\x1B[2J\\xFF\\x0A1ZENTORAGENT" in out.replace(b"\\\\", b"\\")
        out.decode()


def test_a_value_longer_than_any_reader_wants_is_cut_and_all_else_is_told(device):
    sites = b'<ns:SiteLists xmlns:ns="x"><SiteList><SpipeSite ServerIP="%s"/></SiteList></ns:SiteLists>' % (b"1" * (3 << 20))
    device.write(SITE_LIST, sites)
    found = check(device)
    assert found.state("run.complete") is None
    assert found.report["facts"]["servers"] == ["1" * 65536]


def test_terminal_gets_groups_symbols_and_colours(device):
    device.path(SITE_LIST).unlink()
    out, status = on_terminal(device)
    assert status == STATUS[PROBLEM]
    first, blank, group, finding, remedy, end = out.split("\n")
    assert first.startswith("\x1b[1;31mKELTCHECK PROBLEM - mode unknown") and blank == "" and end == ""
    assert group == "Mode"
    assert finding.startswith("  \x1b[1;31m[XX]\x1b[0m mode.site-list: ")
    assert remedy.startswith("       -> Switch the agent")


@pytest.mark.parametrize("environment", [{"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": ""}])
def test_terminal_without_colours(device, environment):
    out, _ = on_terminal(device, "--verbose", **environment)
    assert "\x1b" not in out
    assert "\nConfiguration\n  [ok] config.directory: " in out


def test_plain_is_plain_on_a_terminal(device):
    assert on_terminal(device, "--plain") == ("KELTCHECK OK - unmanaged\n", 0)


def test_json_follows_the_schema_whatever_the_device_is_like(device, package, tmp_path):
    directory = package()
    look = lambda *arguments: check(device, *arguments).report  # noqa: E731
    reports = [look(), look("--source", directory), look("--source", tmp_path / "nowhere")]
    device.run("-m", "-d", directory, "-nostart")
    reports += [look(), look("--source", directory, "--server", "127.0.0.1:1")]
    device.write(AGENT_CONFIG, b"no XML")
    reports += [look()]
    jsonschema.Draft7Validator.check_schema(SCHEMA)
    for report in reports:
        jsonschema.validate(report, SCHEMA)
        assert report["schema"] == 1
    assert [report["verdict"] for report in reports] == [OK, OK, PROBLEM, OK, PROBLEM, PROBLEM]


def test_facts_of_a_managed_device(device, package):
    directory = package()
    assert device.run("-m", "-d", directory, "-nostart").status == 0
    facts = check(device).report["facts"]
    versions = facts.pop("versions")
    hashed = facts.pop("server_key_sha256")
    assert len(hashed) == 64 and facts.pop("binsphash") == hashed
    assert facts == {
        "mode": "managed",
        "servers": ["192.0.2.10"],
        "server_key_bits": 2048,
        "crypto_mode": "non-FIPS",
        "key_size": 2048,
        "agent_directory": "/etc/orv.d/ZENTORAGENT3000",
        "agent_version": "5.7.8",
    }
    assert versions["keltcheck"] == "4.6.0.2545" and versions["openssl"].startswith("OpenSSL 3")
    assert set(versions) == {"keltcheck", "openssl", "libcurl"}


@pytest.mark.parametrize(
    ("arguments", "why"),
    [
        (["--foo"], "there is no option --foo"),
        (["-v"], "there is no option -v"),
        (["word"], "the argument word belongs to no option"),
        (["--source"], "the option --source needs a value"),
        (["--source", ""], "the value of an option is empty"),
        (["--server="], "the value of an option is empty"),
        (["--json", "--plain"], "--json and --plain exclude each other"),
    ],
)
def test_wrong_use_is_one_line_and_unknown(device, arguments, why):
    line = f"KELTCHECK UNKNOWN - wrong use: {why}; keltcheck --help shows the right one\n"
    assert run(device, *arguments) == (line.encode(), b"", 3)


def test_help_and_version(device):
    out, err, status = run(device, "--help")
    assert (err, status) == (b"", 0) and out.startswith(b"usage: keltcheck [--source DIR]")
    assert run(device, "--version") == (b"4.6.0.2545\n", b"", 0)


def test_warning_has_its_status(device):
    device.path("/etc/orv.d/FIREWALL1000/config.xml").write_bytes(b"no XML")
    found = check(device)
    assert (found.status, found.verdict) == (1, WARNING)
    assert found.trouble() == {"config.product": WARNING}


def test_closed_output_changes_nothing(device):
    done = device.shell('"$KELTCHECK" --verbose >&- 2>&-; echo $?', env={"KELTCHECK": str(program(device))})
    assert done.stdout == b"0\n"


def test_service_definition_calls_the_program_as_it_is(device):
    example = (ROOT / "packaging/keltcheck.cfg").read_text()
    assert "/usr/sbin/keltcheck --plain" in example
    assert pathlib.Path(program(device)).is_file()
