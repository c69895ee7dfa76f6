"""The working directory, the environment and the signals that a run finds, and those that its commands find."""

import pytest

from device import AGENT_CONFIG, INSTALL, KEYSTORE, NO_MODE, SCRATCH, SITE_LIST

CURRENT = b"Error : Failed to acquire current directory.\n"
IN_DELETED = "mkdir /run/gone; cd /run/gone; rmdir /run/gone; "


def test_deleted_directory_and_no_name_of_it(device):
    run = device.shell(IN_DELETED + 'exec env -u PWD "$KELTCONFIG" -start')
    assert (run.stdout, run.stderr, run.returncode) == (CURRENT, b"", 8)
    assert device.calls() == []


def test_deleted_directory_with_its_name_in_the_environment(device, package):
    package(to=device.path("/run/here/keys"))
    run = device.shell(IN_DELETED + 'PWD=/run/here exec env PWD=/run/here "$KELTCONFIG" -m -d keys')
    assert (run.stdout, run.stderr, run.returncode) == (NO_MODE, b"", 0)
    assert b"SpipeSite" in device.read(SITE_LIST)


@pytest.mark.parametrize("length", [1022, 1023, 1024, 1025, 5000, 100000])
def test_name_of_any_length_in_the_environment(device, package, length):
    package(to=device.path("/run/here"))
    name = ("/run/here" + "/." * length)[:length]
    run = device.shell(IN_DELETED + 'exec env PWD="$1" "$KELTCONFIG" -m -d nosuch', name)
    assert (run.stdout, run.stderr, run.returncode) == (NO_MODE, b"", 0)


def test_working_directory_of_a_great_depth(device):
    # Deeper than the buffer for its name: getcwd fails and PWD is not set.
    script = 'n=0; while [ $n -lt 300 ]; do mkdir abcdefgh; cd abcdefgh; n=$((n+1)); done; exec env -u PWD "$KELTCONFIG" -start'
    run = device.shell("mkdir /run/deep; cd /run/deep; " + script)
    assert (run.stdout, run.returncode) == (CURRENT, 8)


def start_with(device, script):
    """Makes a script the start command of the agent."""
    device.write("/run/command", b"#!/bin/sh\n" + script.encode(), 0o755)
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent start", b"/run/command")


def test_commands_start_with_the_default_signals(device):
    start_with(device, "grep -E '^(SigBlk|SigIgn):' /proc/self/status >/run/signals")
    # Whoever started the tool may have ignored and blocked some.
    run = device.run("-start", via="env --ignore-signal=INT,PIPE,HUP --block-signal=TERM,USR1")
    assert run.status == 0
    masks = dict(line.split(":\t") for line in device.take("/run/signals").decode().splitlines())
    assert masks == {"SigBlk": "0" * 16, "SigIgn": "0" * 16}


def test_commands_during_a_switch_start_with_the_default_signals(device, package):
    start_with(device, "grep -E '^(SigBlk|SigIgn):' /proc/self/status >/run/signals")
    assert device.run("-m", "-d", package()).status == 0
    assert device.take("/run/signals").split() == [b"SigBlk:", b"0" * 16, b"SigIgn:", b"0" * 16]


def test_commands_inherit_the_standard_descriptors_only(device, package):
    start_with(device, "ls /proc/self/fd >/run/descriptors")
    assert device.run("-m", "-d", package()).status == 0
    # The fourth is the directory that ls reads.
    assert device.take("/run/descriptors").split() == [b"0", b"1", b"2", b"3"]


@pytest.mark.parametrize("arguments", [["-m", "-d", "/run/keys"], ["-u"], ["-k"], ["-start"]], ids=lambda given: given[0])
def test_every_descriptor_would_be_closed_to_commands(device, package, arguments):
    package("--both", to=device.path("/run/keys"))
    package("--both", to=device.path("/opt/Quorvane/orv/scratch/update"))
    device.write(SITE_LIST, b"<ns:SiteLists><SiteList><SpipeSite/></SiteList></ns:SiteLists>")
    via = "strace -o /run/trace -e trace=open,openat,openat2,creat,socket,pipe,pipe2,dup,fcntl,memfd_create"
    assert device.run(*arguments, via=via).status == 0
    made = [line for line in device.take("/run/trace").splitlines() if not line.startswith((b"---", b"+++"))]
    made = [line for line in made if not line.startswith(b"fcntl") or b"F_DUPFD" in line]
    assert len(made) > 10
    # The C library opens its list of encodings so, and closes it at once.
    assert [line for line in made if b"CLOEXEC" not in line and b"gconv-modules.cache" not in line] == []


def test_commands_see_the_environment_without_the_library_path(device):
    start_with(device, "env >/run/environment")
    assert device.run("-start", env={"LD_LIBRARY_PATH": "/nosuch", "KEPT": "yes"}).status == 0
    lines = device.take("/run/environment").splitlines()
    assert b"KEPT=yes" in lines
    assert not any(line.startswith(b"LD_LIBRARY_PATH") for line in lines)


def test_commands_run_without_a_shell(device):
    device.write("/run/arguments", b'#!/bin/sh\nprintf "%s\\n" "$@" >/run/given', 0o755)
    device.edit(AGENT_CONFIG, b"bin/agent start", b'bin/../../../../run/arguments a  "b c" $HOME;d >e &amp;')
    assert device.run("-start").status == 0
    assert device.take("/run/given") == b'a\n"b c"\n$HOME;d\n>e\n&\n'


def test_commands_are_run_in_the_binary_directory(device):
    start_with(device, "pwd >/run/directory")
    device.run("-start", cwd="/")
    assert device.take("/run/directory") == INSTALL.encode() + b"/bin\n"


@pytest.mark.parametrize("signal, status", [("INT", 130), ("TERM", 143), ("HUP", 129)])
def test_a_signal_during_the_switch_waits_for_its_end(device, package, signal, status):
    device.write("/run/command", b"#!/bin/sh\nkill -%s $PPID\n" % signal.encode(), 0o755)
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"/run/command")
    run = device.run("-m", "-d", package(), after=INSTALL + "/bin/agent status")
    assert (run.out, run.status) == (NO_MODE, status)
    assert device.calls() == device.plugins("unload") + device.starting()
    assert b"service     running" in run.after and b"managed by" in run.after
    assert device.path(KEYSTORE + "/server-public.der").exists()
    # And nothing stands in the way of the next run.
    assert device.run("-version").result() == (b"4.6.0.2545\n", b"", 0)


def test_an_ignored_signal_stays_ignored(device, package):
    device.write("/run/command", b"#!/bin/sh\nkill -HUP $PPID\n", 0o755)
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent stop", b"/run/command")
    run = device.run("-m", "-d", package(), via="env --ignore-signal=HUP")
    assert run.result() == (NO_MODE, b"", 0)


def test_secrets_of_the_command_line_reach_no_file_and_no_output(device):
    run = device.run("-P", "the-password", "-U", "the-user", "-start")
    assert run.result() == (NO_MODE, b"", 0)
    for name, (content, _) in device.files().items():
        assert b"the-password" not in (content or b""), name


def test_a_device_whose_library_converts_no_encodings(device, package):
    """As on small devices. Arguments are widened all the same; a site list that needs the conversion is refused."""
    hidden = 'for modules in /usr/lib/*/gconv; do mount -t tmpfs none "$modules"; done'
    before = device.read(SITE_LIST)
    run = device.run("-m", "-d", package("--latin1"), before=hidden)
    assert b"Error : Fail to convert the sitelist.xml file to utf8\n" in run.out
    assert run.status != 0
    assert device.read(SITE_LIST) == before
    run = device.run("-CustomProps1", b"M\xe1laga", before=hidden)
    assert run.status == 0
    assert 'CustomProps1 value="M\u00e1laga"'.encode() in device.read(SCRATCH + "/CustomProps.xml")
