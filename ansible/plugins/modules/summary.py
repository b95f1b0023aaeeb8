# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: summary
short_description: Complete the results of a request
version_added: "1.2.0"
description:
  - Writes C(results.jsonl) anew, with one line for each host, and makes C(index.html) with C(quendil-report --overview).
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.destination
options:
  hosts:
    description: The names of all hosts of the play.
    type: list
    elements: str
    required: true
  since:
    description: The time when the play began, in UTC. Older results of the request do not count.
    type: str
    default: ""
  overview:
    description: Whether the overview is made.
    type: bool
    default: true
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Complete the results
  norvale.quendil.summary:
    request: disk-trouble
    destination: collected
    hosts: "{{ ansible_play_hosts_all }}"
  run_once: true
"""

RETURN = r"""
causes:
  description: The hosts that have failed, each with its cause.
  type: dict
  returned: success
results:
  description: The file with the results.
  type: str
  returned: success
overview:
  description: The page with one row for each archive.
  type: str
  returned: when it was made
text:
  description: All this in words.
  type: str
  returned: success
"""
