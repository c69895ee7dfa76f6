"""Runs on a private device beside its management server; see bench/run-provision."""

import os
import pathlib
import shutil
import sys

PATH = "/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do"
SERVER, USER, PASSWORD = "127.0.0.1:8443", "admin", "zentor 4711"
ROUNDS = 21
MIB = 1 << 20
TARGET = "/run/target"

# The package has no site list, so that the run ends when all is unpacked.
NO_SITE_LIST = 38
BASELINE = f"""curl -sk --anyauth -u '{USER}:{PASSWORD}' https://{SERVER}{PATH} | tail -c +6 | base64 -d >{TARGET}/keys.zip &&
unzip -q {TARGET}/keys.zip -d {TARGET}"""


def run(*command):
    """Processor time in milliseconds and peak of resident memory in bytes of a command and all it started."""
    shutil.rmtree(TARGET, ignore_errors=True)
    os.mkdir(TARGET)
    quiet = [(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)]
    pid = os.posix_spawnp(command[0], command, os.environ, file_actions=quiet)
    _, status, usage = os.wait4(pid, 0)
    unpacked = sum(path.stat().st_size for path in pathlib.Path(TARGET).glob("key?.bin"))
    if unpacked != 6 * MIB:
        sys.exit(f"{command[0]} ended with {os.waitstatus_to_exitcode(status)} and unpacked {unpacked} bytes")
    return (usage.ru_utime + usage.ru_stime) * 1000, usage.ru_maxrss * 1024, os.waitstatus_to_exitcode(status)


def main():
    if not pathlib.Path("/opt/.machine").is_dir():
        sys.exit("this empties directories of a private device: run bench/run-provision")
    tool = [sys.argv[1], "-m", "-d", TARGET, "-z", "-e", SERVER, "-U", USER, "-P", PASSWORD]
    reply = os.path.getsize("/run/server/www" + PATH)
    ours, theirs = [], []
    for _ in range(ROUNDS):
        ours.append(run(*tool))
        theirs.append(run("sh", "-c", BASELINE))
    if {status for _, _, status in ours} != {NO_SITE_LIST}:
        sys.exit("the tool did not end where it should")

    time, baseline = (min(cpu for cpu, _, _ in runs) for runs in (ours, theirs))
    peak, bound = max(peak for _, peak, _ in ours), 3 * reply + 16 * MIB
    print(f"reply                       {reply / MIB:8.1f} MiB")
    print(f"keltconfig, peak resident   {peak / MIB:8.1f} MiB   bound {bound / MIB:.1f} MiB")
    print(f"keltconfig, processor time  {time:8.1f} ms    least of {ROUNDS} runs")
    print(f"curl, base64 and unzip      {baseline:8.1f} ms    least of {ROUNDS} runs")
    return 0 if peak <= bound and time <= baseline else 1


sys.exit(main())
