# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: fetch
short_description: Fetch an archive of quendil and verify it
version_added: "1.2.0"
description:
  - Fetches an archive as the user who logs in, and checks its size, its checksum, gzip and that it has an index.
  - The host is not trusted. It cannot write outside of its own directory, nor more than it announced.
extends_documentation_fragment:
  - norvale.quendil.request
  - norvale.quendil.request.work
  - norvale.quendil.request.destination
  - norvale.quendil.request.reconnect
options:
  path:
    description: The archive on the host, as M(norvale.quendil.wait) returns it.
    type: str
    required: true
  bytes:
    description: Its size.
    type: int
    required: true
  sha256:
    description: Its checksum.
    type: str
    required: true
  encrypted:
    description: Whether it must be encrypted.
    type: bool
    default: false
  archive_limit:
    description: The largest archive that is fetched, in MiB.
    type: int
    required: true
  fetch_limit:
    description: The longest time for fetching it, in seconds.
    type: int
    required: true
author:
  - the quendil developers (@norvale)
"""

EXAMPLES = r"""
- name: Fetch the archive
  norvale.quendil.fetch:
    path: "{{ end.path }}"
    bytes: "{{ end.bytes }}"
    sha256: "{{ end.sha256 }}"
    request: disk-trouble
    work_directory: /var/opt/norvale/quendil-collect
    destination: collected
    archive_limit: 4096
    fetch_limit: 1800
"""

RETURN = r"""
archive:
  description: The archive on the controller.
  type: str
  returned: success
"""
