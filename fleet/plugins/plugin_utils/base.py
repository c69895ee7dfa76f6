"""What the actions of this collection share: they work from the controller by scripts over the connection, without modules."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible.errors import AnsibleConnectionFailure, AnsibleError
from ansible.module_utils.common.parameters import remove_values
from ansible.plugins.action import ActionBase
from ansible_collections.kelt.fleet.plugins.plugin_utils.device import looking
from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import Standing, excerpt


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
        validation, arguments = self.validate_argument_spec(self.SPEC, **self.RULES)
        result["changed"] = False
        try:
            self.work(arguments, result)
        except AnsibleConnectionFailure:
            raise
        except AnsibleError as error:
            self.fail(result, error.message)
        # The password, should any program on the device have said it.
        return remove_values(result, validation._no_log_values)

    def work(self, arguments, result):
        raise NotImplementedError()

    def fail(self, result, message):
        result["failed"] = True
        result["msg"] = "%s: %s" % (self.host, message)

    @property
    def check_mode(self):
        return self._task.check_mode

    def say(self, script, data=None):
        """Runs a script on the device; its frames. There is always some input, as a connection without gets a terminal."""
        done = self._low_level_execute_command(script.text(), in_data=data or script.data or b"\n")
        frames = script.frames(done["stdout"])
        if not frames:
            said = excerpt(done["stderr"] or done["stdout"])
            raise Broken("the device did not answer to the end (status %s): %s" % (done["rc"], said))
        for name, argument, _text in frames:
            if name == "refused":
                raise AnsibleError(argument)
        return frames

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
