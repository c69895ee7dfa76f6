"""The scripts for a device, run by a shell of this machine as far as they do not need one."""

import pathlib
import shutil
import subprocess

import pytest
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import Script, looking, quoted_bytes, working

SHELLS = [shell for shell in (["dash"], ["bash", "--posix"], ["busybox", "sh"]) if shutil.which(shell[0])]


@pytest.mark.parametrize("shell", SHELLS, ids=" ".join)
@pytest.mark.parametrize("content", [b"Rack 4", b"$(reboot) `reboot` \"'\\", bytes(range(1, 10)) + bytes(range(11, 256)), b"%s%d"])
def test_bytes_reach_a_command_as_they_are(shell, content):
    done = subprocess.run([*shell, "-c", "printf %%s %s" % quoted_bytes(content)], capture_output=True)
    assert (done.stdout, done.stderr) == (content, b"")


@pytest.mark.parametrize("shell", SHELLS, ids=" ".join)
@pytest.mark.parametrize(
    "script",
    [
        looking(),
        looking("mgmt.example:8443"),
        working([("switch", "keltconfig -u")]),
        working([("switch", "keltconfig -m")], {"a": b"1", "b": b"2"}, rehearse=True, mended=("a.b",), health="true && 'false'"),
    ],
)
def test_every_script_is_one_that_the_shell_reads(shell, script):
    done = subprocess.run([*shell, "-n", "-c", script.text()], capture_output=True)
    assert (done.returncode, done.stderr) == (0, b"")


def answer(script, *frames, end=True):
    text = "".join("\n%s %s\n%s" % (script.word, head, body) for head, body in frames)
    return "a greeting\n" + text + ("\n%s end\n" % script.word if end else "")


def test_frames_are_told_apart_by_a_word_that_nobody_else_knows():
    script = Script()
    found = script.frames(answer(script, ("check", '{"a": 1}\nend 0\n'), ("checked 2", "")))
    assert found[0] == ("check", "", '{"a": 1}\nend 0\n\n')
    assert found[1][:2] == ("checked", "2")
    assert Script().word != script.word


def test_an_answer_without_its_end_is_none():
    script = Script()
    assert script.frames(answer(script, ("check", "{}"), end=False)) == []
    assert script.frames("") == []


def test_neither_files_nor_answers_stand_in_the_script():
    script = working([("switch", "keltconfig -m")], answers=[b"admin", b"canary"])
    assert script.data == b"admin\ncanary\n" and "canary" not in script.text()
    script = working([("switch", "keltconfig -m")], {"key": b"canary", "list": b"other"})
    assert script.data == b"canaryother" and "canary" not in script.text()


def test_the_prompts_answers_reach_the_first_step_alone():
    lines = working([("switch", "one"), ("properties-set", "two")], answers=[b"x"]).lines
    steps = [line for line in lines if " run " in line]
    assert steps[0].endswith("run switch one") and steps[1].endswith("run properties-set two </dev/null")
