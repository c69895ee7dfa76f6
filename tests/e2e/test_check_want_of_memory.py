"""keltcheck where one allocation fails, or all from there on: it never dies of that, and calls nothing wrong that is well,
with two exceptions: an OpenSSL that lacked memory when it started takes no key for one until the end of the process; and
what the dynamic loader says of the parts is then its own (it lists an object's dependencies halfway, say)."""

import os

import pytest

from check import OK, PROBLEM, UNKNOWN, WARNING, environment, found_in
from test_want_of_memory import library  # noqa: F401

# For every STEP-th number up to the last: a run in which that allocation fails, its report, and a line with its status.
SCRIPT = """
ulimit -c 0
library=$1 first=$2 step=$3 last=$4 lasting=$5
[ $lasting = once ] || export FAIL_ON=1
mkdir /run/reports
n=$first
while [ $n -le $last ]; do
  FAIL_AT=$n LD_PRELOAD=$library "$KELTCHECK" --json >/run/reports/$n 2>/run/errors
  echo $n $? $(wc -c </run/errors) >>/run/results
  n=$((n + step))
done
"""

OUT_OF_MEMORY = b"KELTCHECK UNKNOWN - out of memory\n"
LOADED = ("install.crypto", "install.provision")
# The process that reports makes few allocations, after those before the fork; the one that looks makes thousands.
EVERY = bool(os.environ.get("KELT_EVERY_ALLOCATION"))


@pytest.mark.parametrize(("first", "step", "last"), [(1, 1 if EVERY else 3, 200), (201, 1 if EVERY else 61, 4000)])
@pytest.mark.parametrize("lasting", ["once", "on"])
def test_want_of_memory_is_unknown_and_nothing_worse(device, library, package, lasting, first, step, last):  # noqa: F811
    device.run("-m", "-d", package(), "-nostart")
    done = device.shell(SCRIPT, library, first, step, last, lasting, env=environment(device), timeout=1800)
    assert (done.stdout, done.stderr, done.returncode) == (b"", b"", 0)
    seen = set()
    for line in device.read("/run/results").decode().splitlines():
        number, status, errors = map(int, line.split())
        report = device.read(f"/run/reports/{number}")
        assert errors == 0, number
        if report == OUT_OF_MEMORY:
            assert status == 3, number
            seen.add(UNKNOWN)
            continue
        found = found_in(report, status)
        wrong = {name for name, state in found.trouble().items() if state in (PROBLEM, WARNING)}
        excused = {name for name in wrong if name in LOADED or ": not an RSA " in found.fact(name)}
        assert wrong == excused, (number, found.trouble(), found.report["summary"])
        seen.add(found.verdict)
    assert UNKNOWN in seen
