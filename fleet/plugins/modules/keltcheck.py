# The documentation of the action plugin of this name, which works from the controller.
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: keltcheck
short_description: tell how a device stands
version_added: 1.0.0
description:
  - Runs C(keltcheck --json) on a device, which changes nothing.
  - The task does not fail where the device has a problem; the result and the report tell.
options:
  server:
    description: A management server that C(keltcheck) looks at as well. No credentials are sent.
    type: str
attributes:
  check_mode:
    description: Does the same in check mode.
    support: full
author:
  - keltconfig maintainers (@keltconfig)
"""

EXAMPLES = r"""
- name: Ask how the device stands
  kelt.fleet.keltcheck:
  register: device

- name: Stop where it has a problem
  ansible.builtin.assert:
    that: device.keltcheck.verdict != "problem"
"""

RETURN = r"""
keltcheck:
  description: C(verdict), C(summary), C(facts), and C(findings), the checks that are not ok.
  returned: success
  type: dict
"""
