"""A rollout to eleven devices over ssh, of which most have something wrong: looked at without a change, done, and done again."""

import csv
import shutil
import stat

import pytest

from fleet import PLAYBOOKS

CONFIG = "/etc/orv.d/ZENTORAGENT3000/config.xml"
SCRATCH = "/opt/Quorvane/orv/scratch"
WRONG = "wr0ng-canary-0815"

# Until the guards of killed tools, and the scripts that have lost their connection, have done their work.
QUIET = """
tries=0
while { pgrep -x keltconfig || pgrep -f 'base=/run/[k]eltconfig-fleet-'; } >/dev/null && [ $((tries += 1)) -lt 3000 ]; do sleep 0.1; done
"""

PLAIN, MANAGED, BAD_PASSWORD, NO_AGENT, FULL, OFF, CUT, OTHER_KEY, DEAD_TOOL, DEAD_SHELL, DEAD_LINK = range(1, 12)
ALL = range(1, 12)
PARENT_OF = "sed 's/.*) . \\([0-9]*\\) .*/\\1/'"


def stopping_with(script):
    """Makes a script the agent's stop command; what it says first happens once."""
    return f"""
cat >/opt/Quorvane/stop <<'END'
#!/bin/sh
if [ ! -e /opt/Quorvane/happened ]; then
  : >/opt/Quorvane/happened
  sync
  {script}
fi
exec /opt/Quorvane/orv/bin/agent stop
END
chmod 755 /opt/Quorvane/stop
sed -i 's:<StopCommand>.*</Stop:<StopCommand>/opt/Quorvane/stop</Stop:' {CONFIG}
"""


def prepare(fleet, keys, other):
    for number, directory in ((MANAGED, keys), (OTHER_KEY, other)):
        shutil.copytree(directory, fleet.path(number, "/run/keys"))
        fleet.boot(number, "[ ! -d /run/keys ] || { keltconfig -m -d /run/keys; rm -r /run/keys /run/agent/calls; }")
    fleet.boot(NO_AGENT, "rm -f /opt/Quorvane/orv/bin/agent")
    fleet.boot(FULL, f"""
cp -R {SCRATCH} /tmp/scratch
mount -t tmpfs -o size=64k full {SCRATCH}
cp -R /tmp/scratch/. {SCRATCH}
dd if=/dev/zero of={SCRATCH}/filled bs=1k 2>/dev/null
""")
    fleet.boot(CUT, stopping_with("poweroff -f"))
    fleet.boot(DEAD_TOOL, stopping_with("kill -KILL $PPID"))
    # The shell that runs the tool.
    fleet.boot(DEAD_SHELL, stopping_with(f"kill -KILL $({PARENT_OF} /proc/$PPID/stat)"))
    # What serves the connection. The shell goes on without anybody to hear it.
    fleet.boot(DEAD_LINK, stopping_with(f"""
  id=$PPID
  until [ "$(cat /proc/$id/comm)" = dropbear ]; do id=$({PARENT_OF} /proc/$id/stat); done
  kill -KILL $id"""))


@pytest.fixture(scope="module")
def story(tmp_path_factory, fleet_in, make_keys):
    """What became of the three runs."""
    directory = tmp_path_factory.mktemp("rollout")
    keys, other = make_keys("192.0.2.10"), make_keys("192.0.2.10")
    fleet = fleet_in(directory, len(ALL), "--server")
    prepare(fleet, keys, other)
    hosts = directory / "hosts.yml"
    hosts.write_text(f"""
fleet:
  hosts:
    {fleet.name(BAD_PASSWORD)}: {{keltconfig_server: "127.0.0.1", keltconfig_user: admin, keltconfig_password: {WRONG}}}
""" + "".join(f"    {fleet.name(n)}: {{keltconfig_source: '{keys}'}}\n" for n in ALL if n != BAD_PASSWORD))
    started = fleet.shell("true")
    assert started.returncode == 0, started.stderr
    story = {"fleet": fleet, "keys": keys, "before": {n: fleet.files(n) for n in ALL}}
    playbook = directory / "at-once.yml"
    given = (PLAYBOOKS / "managed.yml").read_text()
    playbook.write_text(given.replace("max_fail_percentage: 10", "max_fail_percentage: 100"))
    play = [playbook, "-i", hosts]
    at_once = {"keltconfig_batches": ["100%"], "after": QUIET}
    off = ["--off", fleet.name(OFF)]
    story["check"] = fleet.play(*play, "--check", "--diff", options=off, **at_once)
    story["checked"] = {n: fleet.files(n) for n in ALL}
    story["first"] = fleet.play(*play, "-vvvvv", options=off, **at_once)
    story["left"] = {n: fleet.work_left(n) for n in ALL}
    story["calls"] = {n: fleet.calls(n) for n in ALL}
    story["rows"] = rows(fleet)
    fleet.forget_calls()
    story["second"] = fleet.play(*play, **at_once)
    story["calls again"] = {n: fleet.calls(n) for n in ALL}
    return story


def rows(fleet):
    with open(fleet.reports / "report.csv", newline="") as file:
        return {row["device"]: row for row in csv.DictReader(file)}


def came_to(story, run, number):
    return story[run].of(story["fleet"].name(number))


def test_check_mode_tells_what_would_change_and_changes_nothing(story):
    outcome, result = came_to(story, "check", PLAIN)
    assert outcome == "changed" and result["msg"].startswith("would change: mode: unmanaged, to be managed")
    assert "+mode: managed" in story["check"].out
    changed = [n for n in ALL if story["before"][n] != story["checked"][n]]
    assert changed == []


def test_a_device_is_switched_and_read_back(story):
    outcome, result = came_to(story, "first", PLAIN)
    assert outcome == "changed", result
    facts = result["keltcheck"]["facts"]
    assert (facts["mode"], facts["servers"], result["status"]) == ("managed", ["192.0.2.10"], 0)
    assert "agent start" in story["calls"][PLAIN]


def test_a_device_that_stands_as_wanted_is_left_alone(story):
    for run in ("check", "first", "second"):
        assert came_to(story, run, MANAGED)[0] == "ok"
    assert story["calls"][MANAGED] == []


def test_a_wrong_password_fails_with_status_40_and_its_meaning(story):
    outcome, result = came_to(story, "first", BAD_PASSWORD)
    assert (outcome, result["status"]) == ("failed", 40)
    assert result["msg"].startswith("device003: keltconfig ended with status 40. Provisioning: the reply is not a success reply")
    assert "Check user name and password" in result["msg"]
    assert "keltcheck: OK - unmanaged" in result["msg"]
    assert story["calls"][BAD_PASSWORD] == []


def test_the_password_is_nowhere_at_any_verbosity(story):
    run = story["first"]
    assert len(run.out) > 20000
    for text in (run.out, run.err, story["check"].out, story["second"].out, str(run.records)):
        assert WRONG not in text
    for path in story["fleet"].reports.iterdir():
        assert WRONG not in path.read_text()


def test_nothing_is_tried_on_a_device_without_its_agent(story):
    outcome, result = came_to(story, "first", NO_AGENT)
    assert outcome == "failed" and "status" not in result
    assert "nothing was tried, as it would fail. keltcheck: command.start: " in result["msg"]
    assert not result["changed"]


def test_nothing_is_tried_on_a_full_disk(story):
    outcome, result = came_to(story, "first", FULL)
    assert outcome == "failed" and "room.file-system" in result["msg"]
    assert story["calls"][FULL] == []


def test_a_device_that_is_off_is_unreachable_and_counts_as_failed(story):
    assert came_to(story, "first", OFF)[0] == "unreachable"
    assert story["first"].of("device006", "fail")[0] == "failed"
    assert story["rows"]["device006"]["state"] == "unreachable"


def test_a_power_cut_in_the_middle_fails_that_device_and_the_next_run_finishes(story):
    outcome, result = came_to(story, "first", CUT)
    assert outcome == "failed" and "the connection broke in the middle" in result["msg"]
    assert len(story["left"][CUT]) > 1
    outcome, result = came_to(story, "second", CUT)
    assert outcome == "changed" and result["keltcheck"]["facts"]["mode"] == "managed"
    assert len(result["swept"]) == 1


def test_a_tool_that_is_killed_fails_that_device_and_its_guard_starts_the_agent(story):
    outcome, result = came_to(story, "first", DEAD_TOOL)
    assert (outcome, result["status"]) == ("failed", 137)
    assert "ended by signal 9" in result["msg"]
    assert story["calls"][DEAD_TOOL].count("agent start") == 1
    assert story["left"][DEAD_TOOL] == {}
    outcome, result = came_to(story, "second", DEAD_TOOL)
    assert outcome == "changed" and result["keltcheck"]["facts"]["mode"] == "managed"


def test_a_shell_that_is_killed_fails_that_device_and_what_it_left_is_swept(story):
    outcome, result = came_to(story, "first", DEAD_SHELL)
    assert outcome == "failed" and "the connection broke in the middle" in result["msg"]
    assert len(story["left"][DEAD_SHELL]) > 1
    outcome, result = came_to(story, "second", DEAD_SHELL)
    assert outcome in ("ok", "changed") and result["keltcheck"]["facts"]["mode"] == "managed"
    assert len(result["swept"]) == 1


def test_a_lost_connection_fails_that_device_and_its_work_is_ended_and_cleared_away_there(story):
    outcome, result = came_to(story, "first", DEAD_LINK)
    assert outcome == "failed" and "the connection broke in the middle" in result["msg"]
    assert story["calls"][DEAD_LINK].count("agent start") == 1
    assert story["left"][DEAD_LINK] == {}
    outcome, result = came_to(story, "second", DEAD_LINK)
    assert (outcome, result["keltcheck"]["facts"]["mode"]) == ("ok", "managed")
    assert story["calls again"][DEAD_LINK] == []


def test_a_device_with_another_server_key_gets_the_new_one(story):
    outcome, result = came_to(story, "first", OTHER_KEY)
    assert outcome == "changed"
    assert [text.split(":")[0] for text in result["differences"]] == ["server key"]
    assert came_to(story, "second", OTHER_KEY)[0] == "ok"


def test_a_second_run_changes_nothing_where_all_is_done(story):
    for number in (PLAIN, MANAGED, OTHER_KEY):
        assert came_to(story, "second", number)[0] == "ok"
        assert story["calls again"][number] == []


def test_a_device_that_came_back_is_switched_by_the_next_run(story):
    assert came_to(story, "second", OFF)[0] == "changed"


def test_nothing_is_left_on_any_device(story):
    fleet = story["fleet"]
    assert [n for n in ALL if fleet.work_left(n)] == []


def test_key_files_are_roots_alone_in_a_directory_of_its_own_while_they_are_on_the_device(story):
    for number in (CUT, DEAD_SHELL):
        left = story["left"][number]
        assert len({path.partition("/")[0] for path in left}) == 1
        files = {path.partition("/")[2]: mode for path, mode in left.items() if stat.S_ISREG(mode)}
        assert {"keys/req2048seckey.bin", "keys/sr2048pubkey.bin", "keys/SiteList.xml"} <= set(files)
        assert {oct(stat.S_IMODE(mode)) for mode in files.values()} == {"0o600"}
        assert {oct(stat.S_IMODE(mode)) for path, mode in left.items() if stat.S_ISDIR(mode)} == {"0o700"}


def test_the_report_has_every_device_with_the_worst_first(story):
    assert sorted(story["rows"]) == [f"device{n:03}" for n in ALL]
    states = [row["state"] for row in story["rows"].values()]
    assert states[:5] == ["failed"] * 5 or states.index("ok") > states.index("failed")
    assert story["rows"]["device001"]["servers"] == "192.0.2.10"
    assert "StartCommand" in story["rows"]["device004"]["message"]
    assert story["rows"]["device004"]["remedy"].startswith("Install the program")
