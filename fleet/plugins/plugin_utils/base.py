"""What the actions of this collection share: they work from the controller by scripts over the connection, without modules."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import contextlib
import os
import shlex

from ansible.errors import AnsibleConnectionFailure, AnsibleError
from ansible.module_utils.common.parameters import remove_values
from ansible.plugins.action import ActionBase
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import looking
from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import Standing, excerpt

# dropbear takes commands of up to 9000 bytes; a shell and become go before it.
MOST_OF_A_COMMAND = 8500
# As Ansible's own modules show what is not to be seen.
HIDDEN = "VALUE_SPECIFIED_IN_NO_LOG_PARAMETER"


class Broken(AnsibleError):
    """The device was reached, and then its answer did not come whole."""


class DeviceAction(ActionBase):
    """An action on a device. Subclasses give SPEC, and `work(arguments, result)`, which fills in the result."""

    SPEC = {}
    RULES = {}
    TRANSFERS_FILES = False
    _VALID_ARGS = frozenset()

    def run(self, tmp=None, task_vars=None):
        self._supports_check_mode = True
        self._supports_async = False
        result = super(DeviceAction, self).run(tmp, task_vars)
        self.host = (task_vars or {}).get("inventory_hostname", "the device")
        result["changed"] = False
        with self.hidden_secrets():
            validation, arguments = self.validate_argument_spec(self.SPEC, **self.RULES)
            try:
                self.work(arguments, result)
            except AnsibleConnectionFailure:
                raise
            except AnsibleError as error:
                self.fail(result, error.message)
        # The password, should any program on the device have said it.
        return remove_values(result, validation._no_log_values)

    @contextlib.contextmanager
    def hidden_secrets(self):
        """The arguments with their values, as given; afterwards the task has no secret ones, as callbacks get to see them.
        Where the task is tried again, it is with the same arguments."""
        self.given = getattr(self, "given", None) or self._task.args.copy()
        self._task.args = self.given.copy()
        try:
            yield
        finally:
            for name in self._task.args:
                if self.SPEC.get(name, {}).get("no_log"):
                    self._task.args[name] = HIDDEN

    def work(self, arguments, result):
        raise NotImplementedError()

    def fail(self, result, message):
        result["failed"] = True
        result["msg"] = "%s: %s" % (self.host, message)

    @property
    def check_mode(self):
        return self._task.check_mode

    def say(self, script):
        """Runs a script on the device; its frames. There is always some input, as a connection without gets a terminal."""
        command = script.text()
        if len(shlex.quote(command)) > MOST_OF_A_COMMAND:
            raise AnsibleError("custom_props and health_command are together too long for a command of ssh")
        done = self._low_level_execute_command(command, in_data=script.data or b"\n")
        frames = script.frames(done["stdout"])
        if not frames:
            said = excerpt(done["stderr"] or done["stdout"])
            raise Broken("the device did not answer to the end (status %s): %s" % (done["rc"], said))
        for name, argument, _text in frames:
            if name == "refused":
                raise AnsibleError(argument)
        return frames

    def directory(self, name):
        """A directory of the controller: as Ansible finds files of a playbook or a role, and else from where it was started, as
        the playbooks of a collection have no place beside them for anybody's files."""
        try:
            return self._find_needle("files", name)
        except AnsibleError:
            if os.path.isdir(name):
                return os.path.abspath(name)
            raise

    def look(self, result, server=None):
        """How the device stands: the standing, and the frames."""
        frames = self.say(looking(server, sweep=not self.check_mode))
        swept = [argument for name, argument, _text in frames if name == "swept"]
        if swept:
            result["swept"] = swept
        standing = standing_of(frames)
        result["keltcheck"] = standing.shown()
        return standing, frames


def standing_of(frames):
    return Standing(text_of(frames, "check"))


def text_of(frames, name):
    """What stands in the last frame of this name, empty where there is none."""
    return ([text for found, _argument, text in frames if found == name] or [""])[-1]
