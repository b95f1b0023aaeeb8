"""Hosts of a fleet as Ansible and the installed program see them."""

from __future__ import annotations

import pytest
from support.fleet import Fleet
from support.machine import DATA_DIRECTORY

SIZE = 5_000_000


def test_a_host_makes_a_large_archive_that_is_valid(fleet: Fleet):
    host = fleet.host("host")
    host.collect_large(SIZE)
    done = fleet.run(["ssh", "host", "quendil=/opt/norvale/quendil/bin/quendil; $quendil -t large"])
    assert done.status == 0, done
    [name] = host.list(DATA_DIRECTORY)
    assert SIZE < host.status(f"{DATA_DIRECTORY}/{name}").st_size < SIZE + 100_000
    done = fleet.run(["ssh", "host", f"cd {DATA_DIRECTORY}; gzip -t {name} && "
                      f"tar xzOf {name} --wildcards '*/large' | cmp - /opt/large && "
                      f"tar tzf {name} | grep index"])
    assert (done.status, done.stdout) == (0, f"{name.removesuffix('.tar.gz')}/quendil_index\n"), done


@pytest.mark.parametrize("sudo", [False, True])
def test_ansible_reaches_hosts_through_the_inventory(fleet: Fleet, sudo: bool):
    fleet.host("host", sudo=sudo)
    fleet.host("other")
    inventory = fleet.inventory(groups={"group": ["host"]}, variables={"known": "all"},
                                host_variables={"host": {"own": "one"}})
    done = fleet.run(["ansible", "-i", inventory, "group", "-b", "-m", "shell", "-a",
                      "id -un; echo {{ known }} {{ own }} {{ ansible_user }}"])
    assert done.status == 0, done
    login = "operator" if sudo else "root"
    assert done.stdout.splitlines()[1:] == ["root", f"all one {login}"]
