"""Exit statuses that take an unusual device to provoke, and that each documented one has a test."""

import re
import subprocess

import pytest

from device import INSTALL, NO_MODE, PATIENCE, ROOT, Device
from provisioning import CONTACTED, UNPACKED

CREATING = CONTACTED + b" OK\nExamining response... OK\nCreating keys zip file..."
ACCESS = ["-e", "127.0.0.1", "-U", "admin", "-P", "zentor 4711"]

# Fails the allocation of the tool whose number is in FAIL_AT, and no other; its children have what they want.
FAILING_MALLOC = r"""
#include <stdlib.h>
void *__libc_malloc(size_t size);
static long left;
__attribute__((constructor)) static void begin(void) {
  const char *at = getenv("FAIL_AT");
  if (at) left = atol(at);
  unsetenv("FAIL_AT");
}
void *malloc(size_t size) { return left && --left == 0 ? 0 : __libc_malloc(size); }
"""


@pytest.fixture
def served(tmp_path, binary, _packages):
    return Device(tmp_path / "device", binary, "--server", "--package", str(_packages(())))


def provision(served, before):
    """A provisioning into /run/keys that fails; the agent is left alone."""
    run = served.run("-m", "-d", "/run/keys", "-z", *ACCESS, before=before)
    assert run.before == b""
    assert served.calls() == []
    assert not served.path(INSTALL + "/scratch/keystore").exists()
    return run.result()


def test_a_source_directory_that_is_not_there(served):
    assert provision(served, before="") == (NO_MODE + CREATING + b" ERROR\n", b"", 33)


def test_a_source_directory_without_room(served):
    full = "mkdir /run/keys; mount -t tmpfs -o size=8k full /run/keys; head -c 8192 /dev/zero >/run/keys/fill"
    writing = CREATING + b" OK\nWriting decoded data to zip file... ERROR\n"
    assert provision(served, before=full) == (NO_MODE + writing, b"", 34)


def test_a_directory_in_the_place_of_the_fips_mode_file(served):
    expected = UNPACKED + b"Reading FIPS mode from sitelist... OK\nWriting agentfipsmode file... ERROR\n"
    assert provision(served, before="mkdir -p /run/keys/agentfipsmode") == (NO_MODE + expected, b"", 36)


def test_a_directory_in_the_place_of_the_site_list(served):
    out, err, status = provision(served, before="mkdir -p /run/keys/SiteList.xml/kept")
    assert out.endswith(b"Renaming sitelist.xml to SiteList.xml... ERROR\n")
    assert (err, status) == (b"", 39)
    assert served.path("/run/keys/SiteList.xml/kept").is_dir()


def test_no_memory_for_the_crypto_logger(device, tmp_path):
    (tmp_path / "fail.c").write_text(FAILING_MALLOC)
    library = tmp_path / "fail.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, tmp_path / "fail.c"], check=True)
    done = device.shell(
        """
        ulimit -c 0
        for n in $(seq 1 300); do
          FAIL_AT=$n LD_PRELOAD=$1 "$KELTCONFIG" -start >/dev/null 2>/run/error
          echo $? >>/run/statuses
          cat /run/error >>/run/errors
          test -e /run/agent/calls && echo started >>/run/statuses && rm /run/agent/calls
        done""",
        library,
        timeout=12 * PATIENCE,  # for three hundred runs
    )
    statuses = device.read("/run/statuses").split()
    assert b"18" in statuses, done
    # Never an abort: 1 is the parser's answer, 4 that of a configuration that could not be read.
    assert b"71" in statuses, done
    assert set(statuses) <= {b"0", b"1", b"4", b"18", b"71", b"started"}
    assert device.read("/run/errors") == b"Error : Out of memory.\n" * statuses.count(b"71")
    # Whatever could not be had, either the agent was started or the status is not 0.
    assert all(after == b"started" for status, after in zip(statuses, [*statuses[1:], b""]) if status == b"0")


def test_no_standard_input_and_no_device_to_open_for_it(device):
    done = device.shell('mount -t tmpfs none /dev && "$KELTCONFIG" -version <&-')
    assert (done.stdout, done.stderr, done.returncode) == (b"", b"", 71)


def test_every_documented_status_has_a_test_that_provokes_it():
    documented = re.findall(r"^\| (\d+) \|", (ROOT / "docs/console.md").read_text(), re.M)
    assert len(documented) == 20
    tests = "\n".join(path.read_text() for path in sorted((ROOT / "tests/e2e").glob("test_*.py")))
    # The last of what a run is expected to give: (out, err, status), or the status alone.
    provoked = set(re.findall(r"(?:, |^ +)(\d+)\)?,?$", tests, re.M)) | set(re.findall(r"status\w* == (\d+)", tests))
    provoked |= set(re.findall(r'b"(\d+)" in statuses', tests))
    assert [status for status in documented if status not in provoked] == []
