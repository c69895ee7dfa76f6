"""Runs in which one allocation fails, each in its turn, or all from there on: what was stopped is started again."""

import os
import subprocess

import pytest

from device import SITE_LIST

# Fails the allocation of the tool whose number is in FAIL_AT, and where FAIL_ON is set all that follow; its children have
# what they want. COUNT_TO names a file for the last number. OpenSSL makes thousands of allocations and answers each failure in the same way: every 200th of them
# has a number.
FAILING = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
static long left, count, passed;
static int lasting, failed;
static const char *to;
static int bNumbered(const void *caller) {
  Dl_info object;
  if (!dladdr(caller, &object) || !strstr(object.dli_fname, "libcrypto")) return 1;
  return ++passed % 200 == 0;
}
static int bFails(const void *caller) {
  if (!(failed && lasting)) {
    if (!bNumbered(caller)) return 0;
    ++count;
    if (left == 0 || --left > 0) return 0;
    failed = 1;
  }
  errno = ENOMEM;
  return 1;
}
__attribute__((constructor)) static void begin(void) {
  const char *at = getenv("FAIL_AT");
  if (at) left = atol(at);
  lasting = getenv("FAIL_ON") != 0;
  to = getenv("COUNT_TO");
  unsetenv("FAIL_AT");
  unsetenv("FAIL_ON");
  unsetenv("COUNT_TO");
}
__attribute__((destructor)) static void end(void) {
  FILE *file = to ? fopen(to, "w") : 0;
  if (file) fprintf(file, "%ld", count), fclose(file);
}
void *malloc(size_t size) { return bFails(__builtin_return_address(0)) ? 0 : __libc_malloc(size); }
void *calloc(size_t n, size_t size) { return bFails(__builtin_return_address(0)) ? 0 : __libc_calloc(n, size); }
void *realloc(void *old, size_t size) { return bFails(__builtin_return_address(0)) ? 0 : __libc_realloc(old, size); }
"""

# For every STEP-th number up to what an undisturbed run counts: the device as it was at first, a run in which that
# allocation fails, and a line with its number, its status and what was done to the agent.
SCRIPT = """
ulimit -c 0
library=$1 step=$2 lasting=$3; shift 3
[ $lasting = once ] || export FAIL_ON=1
again() {
  rm -rf /etc/orv.d/* /opt/Quorvane/* /run/keys /run/calls
  cp -a /run/first/orv.d/. /etc/orv.d/
  cp -a /run/first/Quorvane/. /opt/Quorvane/
  cp -a /run/first/keys /run/
}
again
COUNT_TO=/run/count LD_PRELOAD=$library "$KELTCONFIG" "$@" >/run/out 2>&1 || exit
count=$(cat /run/count)
n=1
while [ $n -le $count ]; do
  again
  FAIL_AT=$n LD_PRELOAD=$library "$KELTCONFIG" "$@" >/run/out 2>&1
  echo $n $? $(cat /run/calls 2>/dev/null) >>/run/results
  n=$((n + step))
done
"""

# All of them take many minutes. Where all later ones fail too, many points come to the same.
STEPS = {"once": 1, "on": 1} if os.environ.get("KELT_EVERY_ALLOCATION") else {"once": 17, "on": 53}


@pytest.fixture(scope="module")
def library(tmp_path_factory):
    directory = tmp_path_factory.mktemp("failing")
    (directory / "failing.c").write_text(FAILING)
    subprocess.run(["cc", "-shared", "-fPIC", "-O1", "-o", directory / "failing.so", directory / "failing.c"], check=True)
    return directory / "failing.so"


def outcomes(device, library, package, lasting, *arguments):
    """(status, commands run) of a run for each allocation that is made to fail."""
    device.write("/run/agent.sh", b"#!/bin/sh\necho $1 >>/run/calls\n", 0o755)
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(config.read_bytes().replace(b"/opt/Quorvane/orv/bin/agent", b"/run/agent.sh"))
    device.path("/run/first").mkdir()
    assert device.shell("cp -a /etc/orv.d /opt/Quorvane /run/first/").returncode == 0
    package("--both", to=device.path("/run/first/keys"))
    package("--both", to=device.path("/run/first/Quorvane/orv/scratch/update"))
    done = device.shell(SCRIPT, library, STEPS[lasting], lasting, *arguments, timeout=1800)
    assert (done.stdout, done.stderr, done.returncode) == (b"", b"", 0)
    found = [line.split() for line in device.read("/run/results").decode().splitlines()]
    assert len(found) > (30 if lasting == "once" else 10)
    return [(int(status), commands) for _, status, *commands in found]


# Done, failed, not begun, the import of -k failed, no crypto logger, no memory.
STATUSES = {0, 1, 5, 16, 18, 71}


@pytest.mark.parametrize("lasting", ["once", "on"])
@pytest.mark.parametrize(
    "arguments, failed", [(["-k"], 16), (["-m", "-d", "/run/keys"], 1), (["-u"], 1)], ids=["import", "managed", "unmanaged"]
)
def test_an_agent_that_was_stopped_is_started_whatever_memory_was_lacking(
    device, library, package, arguments, failed, lasting
):
    if arguments == ["-u"]:
        device.write(SITE_LIST, b"<ns:SiteLists><SiteList><SpipeSite/></SiteList></ns:SiteLists>")
    seen = set()
    for status, commands in outcomes(device, library, package, lasting, *arguments):
        assert status in STATUSES, (status, commands)
        if "stop" in commands:
            seen.add(status)
            assert commands.count("start") == 1 and commands[-1] != "stop", (status, commands)
            # A plug-in that could not be unloaded is loaded all the same.
            assert commands.count("load") >= commands.count("unload"), (status, commands)
    assert {0, failed} <= seen
