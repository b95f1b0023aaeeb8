# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment:
    """Options that several actions have. Each name is a fragment."""

    DOCUMENTATION = r"""
options:
  request:
    description: The name of the request, which is the same for all hosts.
    type: str
    required: true
"""

    WORK = r"""
options:
  work_directory:
    description: A directory of root's on the host. Everything of a request is in one directory below it.
    type: path
    required: true
"""

    ANSWER = r"""
options:
  answer_limit:
    description: How long the host may take for an answer, in seconds.
    type: int
    default: 60
"""

    RECONNECT = r"""
options:
  reconnect:
    description: How long a lost connection is made again, in seconds.
    type: int
    default: 0
"""

    DESTINATION = r"""
options:
  destination:
    description: The directory on the controller. Archives are in C(DESTINATION/REQUEST/HOST).
    type: path
    required: true
"""
