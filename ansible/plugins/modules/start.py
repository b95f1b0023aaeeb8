# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: start
short_description: Start a run of quendil on a host
version_added: "1.2.0"
description:
  - Checks that quendil is there and that there is enough free space, and starts a run in the background.
  - The run goes on when the connection is lost. It runs under C(nice), C(ionice) and C(timeout).
  - If the host already has a run of this request, or its archive, nothing is started.
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.work
  - norvale.quendil.request.answer
  - norvale.quendil.request.reconnect
options:
  groups:
    description: The groups of pattern files to collect.
    type: list
    elements: str
  targets:
    description: The targets to collect.
    type: list
    elements: str
  patterns:
    description: Pattern files of the controller, which are on the host during this run only.
    type: list
    elements: path
  time_limit:
    description: The longest time of the run, in seconds. Then it gets SIGTERM, and 60 seconds later SIGKILL.
    type: int
    required: true
  free_space:
    description:
      - The least free space, in MiB.
      - Without it, twice the size that C(quendil-check --preview) knows of and 100 MiB; 200 MiB if there is no C(quendil-check).
    type: int
  recipients:
    description: Public keys of age. The host encrypts the archive for them; it needs C(age).
    type: list
    elements: str
  package:
    description: A C(.deb), a C(.rpm) or the C(.tar.gz) of quendil on the controller, for hosts without quendil.
    type: path
  uninstall:
    description: Whether the package is removed after the run.
    type: bool
    default: true
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Start a run
  norvale.quendil.start:
    groups: [linux]
    request: disk-trouble
    work_directory: /var/opt/norvale/quendil-collect
    time_limit: 900
  become: true
"""

RETURN = r"""
state:
  description: C(started), or C(resumed) if there was a run of this request.
  type: str
  returned: success
  sample: started
version:
  description: The version of quendil on the host.
  type: str
  returned: when a run was started
  sample: "1.2"
"""
