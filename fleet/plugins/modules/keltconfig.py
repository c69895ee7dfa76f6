# The documentation of the action plugin of this name, which works from the controller.
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: keltconfig
short_description: switch the agent of a device between unmanaged and managed mode
version_added: 1.0.0
description:
  - Switches the endpoint management agent of a device to managed mode, from a directory of site list and keys or from the
    management server, or back to unmanaged mode, and sets the texts that it reports.
  - The device needs a POSIX shell and keltconfig, no Python and no sftp. All is done by at most two commands of ssh.
  - Where C(keltcheck) says that the device stands as wanted, nothing is done, and the agent is not stopped.
  - Key files stand in a directory of their own below C(/run), 0600, which is removed at the end; what a killed run has left
    there is removed by the next one.
  - The password reaches keltconfig by its prompt. It is on no command line, in no environment and in no file.
options:
  state:
    description:
      - How the agent is to be managed.
      - Without, only I(custom_props) are set.
    type: str
    choices: [managed, unmanaged]
  source:
    description:
      - A directory on the controller with C(SiteList.xml), C(req2048seckey.bin), C(sr2048pubkey.bin) and C(agentfipsmode).
        Files in it may be encrypted by a vault.
      - Taken relative to the playbook, to C(files) of the role, or to where Ansible was started.
    type: path
  server:
    description:
      - The management server, as a host name or address with an optional port, from which the device fetches site list and keys.
    type: str
  servers:
    description:
      - What the site list of I(server) calls its servers. One that the device has of these means that it is managed as wanted.
      - Without, the host of I(server), and the addresses that the controller finds for it.
    type: list
    elements: str
  user:
    description: The administrator of I(server).
    type: str
  password:
    description: That administrator's password. It belongs into a vault.
    type: str
  certificate:
    description:
      - SHA-256 of the certificate that I(server) is to show. Where C(keltcheck) sees another one, nothing is tried and the
        password is not sent. Needs I(check_before).
    type: str
  custom_props:
    description:
      - The texts that the agent reports, by their numbers 1 to 4. Those not given are gone afterwards.
      - Characters of ISO-8859-1.
    type: dict
  start:
    description: Whether the agent is started after a switch.
    type: bool
    default: true
  check_before:
    description: Whether C(keltcheck) is asked first, and nothing is tried where it finds what would make the switch fail.
    type: bool
    default: true
  health_command:
    description:
      - A command of the device's shell that ends with 0 where the agent is well. It is run after a change.
      - keltconfig itself does not ask how the agent's commands ended.
    type: str
attributes:
  check_mode:
    description: Can run in check mode, and tells what would change. No file is sent.
    support: full
  diff_mode:
    description: Shows mode, servers, key and texts before and after.
    support: full
author:
  - keltconfig maintainers (@keltconfig)
"""

EXAMPLES = r"""
- name: Switch to managed mode, with files from the controller
  kelt.fleet.keltconfig:
    state: managed
    source: keys

- name: Switch to managed mode, with files from the management server
  kelt.fleet.keltconfig:
    state: managed
    server: mgmt.example:8443
    user: admin
    password: "{{ vault_keltconfig_password }}"
    health_command: /opt/Quorvane/orv/bin/agent status

- name: Switch back
  kelt.fleet.keltconfig:
    state: unmanaged

- name: Set the texts that the agent reports
  kelt.fleet.keltconfig:
    custom_props:
      1: Rack 4
      2: Harbour
"""

RETURN = r"""
differences:
  description: In what the device did not stand as wanted.
  returned: when the device was reached
  type: list
  elements: str
  sample: ["mode: unmanaged, to be managed"]
keltcheck:
  description: How the device stands at the end, with C(verdict), C(summary), C(facts) and C(findings).
  returned: when the device was reached
  type: dict
status:
  description: The exit status of the last command, keltconfig or I(health_command).
  returned: when one was run
  type: int
meaning:
  description: What that status of keltconfig means.
  returned: when it is not 0
  type: str
remedy:
  description: What to do about it.
  returned: when it is not 0
  type: str
output:
  description: What keltconfig said.
  returned: when it was run
  type: list
  elements: str
swept:
  description: Directories of killed runs that were removed from the device.
  returned: when there were any
  type: list
  elements: str
"""
