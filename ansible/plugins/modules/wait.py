# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: wait
short_description: Wait for the end of a run of quendil on a host
version_added: "1.2.0"
description:
  - Waits until the run that M(norvale.quendil.start) started has ended. A lost connection is made again.
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.work
  - norvale.quendil.request.answer
  - norvale.quendil.request.reconnect
options:
  time_limit:
    description: How long to wait, in seconds.
    type: int
    required: true
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Wait for the end of the run
  norvale.quendil.wait:
    request: disk-trouble
    work_directory: /var/opt/norvale/quendil-collect
    time_limit: 1800
    reconnect: 300
  become: true
  register: end
"""

RETURN = r"""
path:
  description: The archive on the host.
  type: str
  returned: success
bytes:
  description: Its size.
  type: int
  returned: success
sha256:
  description: Its checksum.
  type: str
  returned: success
exit:
  description:
    - "The exit status of quendil: 0 for the C(.tar.gz), 10 for the C(.tar), 20 for a directory, which the role has packed."
    - On failure 255, or 124 and 137 for a run that was stopped.
  type: int
  returned: when the run has ended
seconds:
  description: How long the run took.
  type: int
  returned: when the run has ended
cause:
  description: What was not as usual, in a run that has an archive.
  type: str
  returned: success
"""
