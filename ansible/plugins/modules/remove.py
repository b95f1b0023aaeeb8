# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: remove
short_description: Remove everything of a request from a host
version_added: "1.2.0"
description:
  - Removes the files of a request from a host. A run that has not ended is left alone, as it ends by itself.
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.work
  - norvale.quendil.request.answer
  - norvale.quendil.request.reconnect
options:
  verified:
    description: The checksum of the archive that was fetched. Without it, what was collected stays.
    type: str
  keep:
    description: Whether the archive is copied to C(/var/opt/norvale/quendil/data) before.
    type: bool
    default: false
  uninstall:
    description: Whether a package that was installed for this request is removed, if it is still there.
    type: bool
    default: true
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Remove everything from the host
  norvale.quendil.remove:
    request: disk-trouble
    work_directory: /var/opt/norvale/quendil-collect
  become: true
"""

RETURN = r"""
kept:
  description: What stays on the host, because it was not fetched.
  type: str
  returned: if there is something
"""
