# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: record
short_description: Write the result of a host, or find an earlier one
version_added: "1.2.0"
description:
  - Adds a line to C(results.jsonl) on the controller, or looks there for a verified archive of this host.
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.destination
options:
  state:
    description: C(begun) checks that results can be written, and looks for an earlier one. C(done) writes a result.
    type: str
    choices: [begun, done]
    required: true
  resume:
    description: Whether C(begun) looks for an earlier result.
    type: bool
    default: false
  cause:
    description: Why the host has failed; empty if it has not.
    type: str
  start:
    description: The result of M(norvale.quendil.start).
    type: dict
  end:
    description: The result of M(norvale.quendil.wait).
    type: dict
  fetch:
    description: The result of M(norvale.quendil.fetch).
    type: dict
  remove:
    description: The result of M(norvale.quendil.remove).
    type: dict
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Write the result of this host
  norvale.quendil.record:
    state: done
    request: disk-trouble
    destination: collected
    end: "{{ end }}"
    fetch: "{{ fetch }}"
"""

RETURN = r"""
verified:
  description: Whether there is an archive of this host that is still as it was fetched.
  type: bool
  returned: when I(state=begun)
record:
  description: The line that was written.
  type: dict
  returned: when I(state=done)
"""
