"""What the actions share."""

import types

import pytest
from ansible.errors import AnsibleError
from ansible_collections.kelt.fleet.plugins.plugin_utils.base import HIDDEN, MOST_OF_A_COMMAND, DeviceAction
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import Script


class Action(DeviceAction):
    SPEC = {"password": {"type": "str", "no_log": True}, "user": {"type": "str"}}


@pytest.fixture
def action():
    action = Action.__new__(Action)
    action._task = types.SimpleNamespace(args={"password": "canary", "user": "admin"})
    return action


def test_a_task_has_its_secrets_while_it_is_done_and_not_for_callbacks_afterwards(action):
    with action.hidden_secrets():
        assert action._task.args == {"password": "canary", "user": "admin"}
    assert action._task.args == {"password": HIDDEN, "user": "admin"}


def test_a_task_that_is_tried_again_has_them_again(action):
    for _ in range(2):
        with pytest.raises(AnsibleError), action.hidden_secrets():
            assert action._task.args["password"] == "canary"
            raise AnsibleError("it fails")
        assert action._task.args["password"] == HIDDEN


def test_a_command_that_a_small_ssh_server_does_not_take_is_not_sent(action):
    action._low_level_execute_command = lambda *_, **__: pytest.fail("it was sent")
    script = Script()
    script.add("x" * MOST_OF_A_COMMAND)
    with pytest.raises(AnsibleError, match="too long"):
        action.say(script)
