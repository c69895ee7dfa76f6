# The documentation of the action plugin of this name, which works from the controller.
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: keltconfig_package
short_description: install keltconfig on a device
version_added: 1.0.0
description:
  - Installs the package of the device's own architecture by what the device has, C(dpkg), C(opkg) or C(tar), in this order.
  - Nothing is done where C(keltconfig) has the version of the package.
options:
  directory:
    description:
      - A directory on the controller with C(keltconfig_VERSION_ARCHITECTURE.deb), C(.ipk) or C(.tar.gz), one version for each
        architecture. Taken as I(source) of M(kelt.fleet.keltconfig) is.
    type: path
    required: true
attributes:
  check_mode:
    description: Can run in check mode, and tells what would be installed. Nothing is sent.
    support: full
  diff_mode:
    description: Shows the version before and after.
    support: full
author:
  - keltconfig maintainers (@keltconfig)
"""

EXAMPLES = r"""
- name: Install keltconfig
  kelt.fleet.keltconfig_package:
    directory: packages
"""

RETURN = r"""
package:
  description: The package for this device.
  returned: success
  type: str
version:
  description: The version of keltconfig on the device at the end.
  returned: success
  type: str
"""
