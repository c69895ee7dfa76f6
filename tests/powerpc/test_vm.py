"""The release on a machine with a kernel of its own and an ext4 disk: what the emulation of single programs cannot
show, and the main job from installation to removal.

scripts/test-powerpc vm runs this after scripts/setup-powerpc-kernel, on the package of scripts/release-powerpc.
"""

import contextlib
import hashlib
import itertools
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

import vm
from device import AGENT_CONFIG, INSTALL, KEY_FILES, KEYSTORE, LOG, NO_MODE, SCRATCH, SITE_LIST
from provisioning import CONTACTED, PROGRESS
from vm import PATIENCE, SERVER, SOURCE, Machine

VERSION = b"4.6.0.2545\n"
ACCESS = ("-e", SERVER, "-U", "admin")
# Nothing listens there.
NOBODY = ("-e", SERVER + ":1", "-U", "admin")
STOPPED = ["agent unload firewall", "agent unload scanner", "agent stop"]
STARTED = ["agent start", "agent load firewall", "agent load scanner"]


def tree(machine):
    """What is on the disk of a machine that was powered off, read without a kernel."""
    status, text = vm.repair(machine.directory / "disk")
    assert status == 0, text
    return vm.tree_of(machine.directory / "disk", machine.directory / "copy", "/opt/Quorvane", "/etc/orv.d")


def put(machine, directory, to):
    """Copies the files of a directory to the machine, secret ones closed to others."""
    assert machine.run("mkdir", "-p", to).result() == (b"", b"", 0)
    for path in sorted(directory.iterdir()):
        machine.write(f"{to}/{path.name}", path.read_bytes(), 0o600 if "seckey" in path.name else 0o644)


def calls_in_order(machine):
    """The commands of the agent that were run; those for plug-ins, which come in the order of the configuration
    directory, sorted between the others."""
    calls = machine.agent_calls()
    groups = itertools.groupby(calls, key=lambda call: call in ("agent stop", "agent start"))
    return [call for one, group in groups for call in (group if one else sorted(group))]


# The machine itself.


def processes_with(word):
    """Those of this computer that have a word among their arguments."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        with contextlib.suppress(OSError):
            found += [path.parent.name] if word in path.read_bytes() else []
    return found


def test_it_is_a_powerpc_with_an_ext4_disk_and_a_kernel_of_its_own(machine):
    assert processes_with(bytes(machine.directory / "disk"))
    assert machine.processor == "ppc"
    assert machine.kernel.startswith("6.")
    (line,) = [line for line in machine.read("/proc/mounts").decode().splitlines() if line.split()[1] == "/"]
    assert line.split()[2] == "ext4" and "nobarrier" not in line
    libraries = machine.shell("find / -xdev -name '*.so*' -type f").out.decode().split()
    assert sorted(libraries) == sorted(
        ["/lib/ld.so.1", "/lib/libc.so.6", "/lib/libm.so.6", "/usr/lib/powerpc-linux-gnu/gconv/ISO8859-1.so"]
        + [f"/usr/lib/keltconfig/keltconfig-{part}.so" for part in ("crypto", "libraries", "provision")])


def test_output_and_statuses_come_over_exactly(machine):
    done = machine.shell("printf 'a\\0b\\r\\n'; printf err >&2; exit 7")
    assert done.result() == (b"a\0b\r\n", b"err", 7)
    done = machine.shell("kill -9 $$")
    assert done.result() == (b"", b"", -9)
    assert len(machine.shell("dd if=/dev/zero bs=100000 count=3 2>/dev/null").out) == 300_000


LEFT_ALONE = """
import os, pathlib, signal, sys
sys.path.insert(0, sys.argv[1])
import vm
directory = pathlib.Path(sys.argv[2])
machine = vm.Machine(directory / "disk", directory, package=sys.argv[3] if len(sys.argv) > 3 else None)
os.kill(os.getpid(), signal.SIGKILL)
"""


@pytest.mark.parametrize("served", [False, True])
def test_a_machine_ends_with_whoever_started_it(installed, package, tmp_path, served):
    shutil.copy(installed, tmp_path / "disk")
    words = [vm.__file__.rpartition("/")[0], tmp_path, *([package("--server", SERVER)] if served else [])]
    done = subprocess.run(["/usr/bin/python3", "-B", "-c", LEFT_ALONE, *words], capture_output=True, timeout=PATIENCE)
    assert done.returncode == -signal.SIGKILL, done.stderr
    deadline = time.monotonic() + PATIENCE
    while processes_with(bytes(tmp_path / "disk")):
        assert time.monotonic() < deadline
        time.sleep(0.1)


def test_the_network_of_the_emulator_has_the_server_alone(boot, package):
    machine = boot(package=package("--server", SERVER))
    run = machine.run("keltconfig", "-m", "-d", "/root", "-z", *NOBODY, "-P", "secret")
    assert run.result() == (NO_MODE + CONTACTED + b" ERROR\n", b"", 32)


# Want of memory.


OUT_OF_MEMORY = b"Error : Out of memory.\n"
NO_BEGINNING = 127  # of the loader, when there is no room for program and libraries


def least_memory(machine):
    """The least address space in which the program can begin, in kilobytes."""
    low, high = 2048, 8192
    while high - low > 4:
        middle = (low + high) // 8 * 4
        run = machine.run("keltconfig", "-version", memory=middle * 1024)
        low, high = (middle, high) if run.status == NO_BEGINNING else (low, middle)
    return high


def outcome(machine, kilobytes, *arguments):
    """Status and commands run with so much address space. An agent that was stopped was started again, and want of memory
    is said where it is the status."""
    run = machine.run("keltconfig", *arguments, memory=kilobytes * 1024)
    calls = machine.agent_calls()
    assert (run.status == 71) == (run.err == OUT_OF_MEMORY), run
    assert [call for call in calls if call in ("agent stop", "agent start")] in ([], ["agent stop", "agent start"]), calls
    return run.status, len(calls)


@pytest.mark.parametrize("arguments, most", [(["-version"], 0), (["-u"], 6)])
def test_a_run_with_too_little_memory_says_so_or_does_its_work(machine, arguments, most):
    least = least_memory(machine)
    # A page more or less decides, so what comes of one limit is not the same each time.
    found = [outcome(machine, least + more, *arguments) for more in (*range(0, 112, 16), 256, 4096)]
    assert {status for status, _ in found} <= {0, 1, 71, NO_BEGINNING}
    assert (71, 0) in found
    assert found[-1] == (0, most)


def test_a_switch_with_too_little_memory_fails_or_does_its_work_and_the_agent_runs(machine, package):
    put(machine, package(), "/root/keys")
    assert machine.run("keltconfig", "-m", "-d", "/root/keys").status == 0
    before = machine.read(KEYSTORE + "/server-public.der")
    machine.agent_calls()
    least = least_memory(machine)
    found = [outcome(machine, least + more, "-m", "-d", "/root/keys") for more in (0, 128, 1024, 2048, 3072, 10240)]
    assert {status for status, _ in found} <= {0, 1, 71, NO_BEGINNING}
    assert found[0][0] != 0 and found[-1] == (0, 6)
    assert machine.read(KEYSTORE + "/server-public.der") == before


# Guards.


def test_an_agent_that_was_stopped_is_started_though_the_run_is_killed(machine):
    machine.write(INSTALL + "/bin/agent", b"""#!/bin/sh
echo "agent $*" >>/run/agent-calls
[ "$1" != stop ] || kill -9 $PPID
""", 0o755)
    killed = machine.run("keltconfig", "-u")
    assert killed.status == -signal.SIGKILL
    # The next run waits for the guard.
    deadline = time.monotonic() + PATIENCE
    calls = []
    while "agent start" not in calls:
        assert time.monotonic() < deadline, calls
        time.sleep(0.1)
        calls += machine.agent_calls()
    assert calls.count("agent start") == 1


# Unit tests.

UNIT_BUILD = SOURCE / "build/ppc"
UNIT_PROGRAMS = ["kelt_test_base", "kelt_test_helper", "kelt_test_provision"]


def unit_tests_for_a_machine():
    """Those that do not run under the emulation of programs and are to run here, by what exclusions.txt says of them."""
    lines = (SOURCE / "tests/powerpc/exclusions.txt").read_text().splitlines()
    return [line.split()[0] for line in lines if line.endswith("powerpc/test_vm.py runs it on a machine")]


@pytest.fixture
def unit_disk(tmp_path):
    """A disk with the bare system, unit tests, and the libraries that these need."""
    root = tmp_path / "root"
    vm.make_root(root)
    (root / "build/ppc").mkdir(parents=True)
    (root / "mnt").mkdir()
    for name in (*UNIT_PROGRAMS, "keltconfig-crypto.so", "keltconfig-provision.so"):
        assert (UNIT_BUILD / name).exists(), f"{name} is missing: scripts/test-powerpc build"
        shutil.copy(UNIT_BUILD / name, root / "build/ppc")
    for name in ("libstdc++.so.6", "libgcc_s.so.1", "libatomic.so.1", "keltconfig-libraries.so"):
        shutil.copy(UNIT_BUILD / "root/usr/lib/powerpc-linux-gnu" / name, root / "lib")
    shutil.copytree(SOURCE / "tests/data", root / "tests/data", ignore=shutil.ignore_patterns("fuzz"))
    vm.make_disk(root, tmp_path / "disk", "48M")
    return tmp_path / "disk"


def test_the_unit_tests_that_take_a_kernel_pass(unit_disk, tmp_path):
    wanted = unit_tests_for_a_machine()
    assert len(wanted) >= 19
    ran = 0
    with Machine(unit_disk, tmp_path) as machine:
        for program in UNIT_PROGRAMS:
            done = machine.run(f"/build/ppc/{program}", "--gtest_brief=1", f"--gtest_filter={':'.join(wanted)}")
            assert done.status == 0, done.out.decode() + done.err.decode()
            ran += int(re.search(rb"PASSED  \] (\d+) test", done.out)[1])
    assert ran == len(wanted)


# The main job.

NO_PROPERTIES = b"Error : Failed to delete file, /opt/Quorvane/orv/scratch/CustomProps.xml\n"


def files_of(machine):
    """All paths on the disk but those of the agent."""
    found = machine.shell("find / -xdev ! -path '/opt/*' ! -path '/etc/orv.d/*'").out.decode().splitlines()
    return {path for path in found if not path.startswith("/var/lib/dpkg/status.udeb")}


def test_the_main_job_from_installation_to_removal(bare, tmp_path, package, _packages):
    shutil.copy(bare, tmp_path / "disk")
    with Machine(tmp_path / "disk", tmp_path, package=_packages(("--server", SERVER))) as machine:
        before = files_of(machine)
        assert machine.run("dpkg", "-i", "/root/keltconfig.deb").status == 0
        assert machine.run("keltconfig", "-version").result() == (NO_MODE + VERSION, b"", 0)
        assert machine.run("keltcheck", "--plain").result() == (b"KELTCHECK OK - unmanaged\n", b"", 0)

        put(machine, package(), "/root/keys")
        assert machine.run("keltconfig", "-m", "-d", "/root/keys").result() == (NO_MODE, b"", 0)
        assert calls_in_order(machine) == STOPPED + STARTED
        managed = b"KELTCHECK OK - managed by 192.0.2.10, key 2048 bits\n"
        assert machine.run("keltcheck", "--plain").result() == (managed, b"", 0)

        assert machine.run("keltconfig", "-u").result() == (b"", b"", 0)
        assert calls_in_order(machine) == STOPPED + STARTED
        assert machine.run("keltcheck", "--plain").out == b"KELTCHECK OK - unmanaged, key 2048 bits\n"

        assert machine.run("mkdir", "-m", "700", "/root/fetched").status == 0
        fetch = machine.run("keltconfig", "-m", "-d", "/root/fetched", "-z", *ACCESS, "-P", "zentor 4711")
        assert fetch.result() == (PROGRESS, b"", 0)
        assert calls_in_order(machine) == STOPPED + STARTED
        managed = b"KELTCHECK OK - managed by 10.0.2.2, key 2048 bits\n"
        assert machine.run("keltcheck", "--plain").result() == (managed, b"", 0)
        assert machine.shell("ls -A /root/fetched").out == b""

        update = package("--both", to=tmp_path / "update")
        (update / "SiteList.xml").unlink()
        put(machine, update, SCRATCH + "/update")
        assert machine.run("keltconfig", "-k").result() == (b"", b"", 0)
        assert calls_in_order(machine) == STOPPED + STARTED
        assert machine.run("ls", "-A", SCRATCH + "/update").out == b""

        assert machine.run("keltconfig", "-CustomProps1", "rack 7").result() == (NO_PROPERTIES, b"", 0)
        assert machine.agent_calls() == []
        assert machine.run("keltconfig", "-stop").result() == (b"", b"", 0)
        assert calls_in_order(machine) == STOPPED
        assert machine.run("keltconfig", "-start").result() == (b"", b"", 0)
        assert calls_in_order(machine) == STARTED

        assert machine.run("dpkg", "-P", "keltconfig").status == 0
        left = files_of(machine)
        assert {path for path in left - before if not path.startswith(("/root/keys", "/root/fetched"))} == set()
        assert before - left == set()
        machine.power_off()

    found = tree(machine)
    assert {entry.owner for entry in found.values()} == {(0, 0)}
    assert found[KEYSTORE].mode == 0o700
    stored = {path.rpartition("/")[2]: entry for path, entry in found.items() if path.startswith(KEYSTORE + "/")}
    assert {name: entry.mode for name, entry in stored.items()} == dict.fromkeys(
        ["keyconf.ini", "server-public.der", "server-request-secret.der"], 0o600)
    assert stored["keyconf.ini"].content == b"mode=2\nkeysize=1\n"
    assert stored["server-public.der"].content == (update / "sr2048pubkey.bin").read_bytes()
    digest = hashlib.sha256(stored["server-public.der"].content).hexdigest().upper().encode()
    assert b"<binsphash>" + digest + b"</binsphash>" in found[AGENT_CONFIG].content
    assert b'ServerIP="10.0.2.2"' in found[SITE_LIST].content
    assert b'"rack 7"' in found[SCRATCH + "/CustomProps.xml"].content
    assert found[LOG].mode == 0o600
    assert not [path for path in found if path.removeprefix(INSTALL + "/") in KEY_FILES or ".kelt-" in path]
    secret = stored["server-request-secret.der"].content[-200:]
    assert [path for path, entry in found.items() if secret in entry.content] in (
        [], [KEYSTORE + "/server-request-secret.der"])


def test_a_site_list_in_latin_1_is_converted(machine, package):
    put(machine, package("--latin1"), "/root/keys")
    converted = b"Successfully convert the sitelist.xml file to utf8\n"
    assert machine.run("keltconfig", "-m", "-d", "/root/keys").result() == (NO_MODE + converted, b"", 0)
    assert "Zentor Málaga".encode() in machine.read(SITE_LIST)


def test_a_full_disk_is_an_error_and_leaves_the_old(machine, package):
    put(machine, package(), "/root/keys")
    before = machine.read(SITE_LIST)
    machine.shell("dd if=/dev/zero of=/opt/fill bs=4096; dd if=/dev/zero of=/opt/fill2 bs=512")
    switch = machine.run("keltconfig", "-m", "-d", "/root/keys")
    assert switch.status == 1 and b"Error" in switch.out
    assert machine.read(SITE_LIST) == before
    assert machine.shell("rm /opt/fill*; find /opt -name '*.kelt-*'").result() == (b"", b"", 0)
    assert machine.run("keltconfig", "-m", "-d", "/root/keys").status == 0
