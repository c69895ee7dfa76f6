"""What the command line gives, byte for byte."""

import pytest

from device import NO_MODE

HELP = rb"""keltconfig    [-m -d path [ -z [-e zentorserver[:port] -U user -P password] ] [-nostart] ]
             [-u [-nostart]] [-CustomProps1] [-CustomProps2] [-CustomProps3] [-CustomProps4] 

     -m        Switch from Unmanaged to Managed mode.
     -d        Directory path where SiteList.xml, sr(2048)pubkey.bin, req(2048)seckey.bin and agentfipsmode are present
                 Ex: -d /tmp or c:\temp

     -z        Provision to an Zentor server by fetching keys/sitelist from it.
                 (files will be unzipped to path specified by -d argument and then removed)
     -e        Optional ZENTOR server (IP or hostname w/optional port(8443)).  Used with -z argument.
     -U        Optional user name of Zentor admin specified by -e argument.  Used with -z argument.
     -P        Optional password of Zentor admin specified by -e argument.  Used with -z argument.

               Note: If -z is specified and if any of -e, -U, or -P are not, then
                     any missing argument will be prompted for using stdin/stdout.

     -nostart  QV will not be restarted after changing mode.
     -u        Switch from Managed to Unmanaged mode.
     -CustomProps1   Pass custom property value Ex:-CustomProps1 "Prop 1" 
     -CustomProps2   Pass custom property value Ex:-CustomProps2 "Prop 2" 
     -CustomProps3   Pass custom property value Ex:-CustomProps3 "Prop 3" 
     -CustomProps4   Pass custom property value Ex:-CustomProps4 "Prop 4" 
"""
NO_OPTIONS = b"Invalid command line : No options specified. Use keltconfig -h or ? or --help for help \n"
UNSUPPORTED = b"Unsupported option. Use keltconfig -h or ? or --help for help.\n"
MISSING = b"Missing option argument.\n"


def rejected(device, *arguments):
    """The output of a command line that must be refused with status 1, without a change to the device."""
    before = device.files()
    run = device.run(*arguments)
    assert (run.err, run.status) == (b"", 1)
    assert run.out.startswith(NO_MODE)
    after = {name: file for name, file in device.files().items() if not name.startswith("/opt/Quorvane/orv/scratch/logs")}
    after.pop("/run/orv-locks", None)
    assert after == before
    assert device.calls() == []
    return run.out[len(NO_MODE) :]


@pytest.mark.parametrize("argument", ["?", "-h", "--help"])
def test_help_is_shown_and_refuses_the_run(device, argument):
    assert rejected(device, argument) == HELP


def test_no_arguments_at_all(device):
    assert rejected(device) == NO_OPTIONS


@pytest.mark.parametrize("argument", ["-?", "-help", "-M", "-mu", "-", "-start=1", "--start", "-START", "-CustomProps5"])
def test_unsupported_options(device, argument):
    assert rejected(device, argument, "-start") == UNSUPPORTED


@pytest.mark.parametrize(
    "option", ["-checkHF", "-conflictList", "-d", "-e", "-U", "-P", "-l"] + [f"-CustomProps{n}" for n in range(1, 5)]
)
def test_option_without_its_value_at_the_end(device, option):
    assert rejected(device, option) == MISSING


def test_an_option_in_place_of_a_value_is_consumed(device):
    assert rejected(device, "-d", "-start") == MISSING


def test_help_in_place_of_a_value(device):
    assert rejected(device, "-d", "?") == HELP + MISSING


def test_argument_without_option_is_named_and_parsing_goes_on(device):
    out = rejected(device, "foo", "-start", "bar", "-nosuch")
    assert out == (
        b"Argument foo passed without a valid option\nArgument bar passed without a valid option\n" + UNSUPPORTED
    )


def test_argument_bytes_are_taken_as_latin_1(device):
    assert rejected(device, b"caf\xe9") == b"Argument caf\xc3\xa9 passed without a valid option\n"


def test_an_empty_argument_ends_the_command_line(device):
    run = device.run("-version", "", "-nosuch")
    assert run.result() == (NO_MODE + b"4.6.0.2545\n", b"", 0)


def test_an_empty_value_ends_the_command_line_too(device):
    assert rejected(device, "-CustomProps2", "", "-start") == MISSING


def test_a_help_request_after_good_options_does_nothing_else(device):
    assert rejected(device, "-start", "-CustomProps1", "A", "-h") == HELP


def test_options_without_any_effect_of_their_own(device):
    run = device.run("-p", "-f", "-l", "/run/some.log", "-z", "-e", "s", "-U", "u", "-P", "p", "-nostart")
    assert run.result() == (NO_MODE, b"", 0)
    assert device.calls() == []
    assert not device.path("/run/some.log").exists()
