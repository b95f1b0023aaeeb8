"""What the hosts of a fleet need of the installed program itself."""

from __future__ import annotations

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
