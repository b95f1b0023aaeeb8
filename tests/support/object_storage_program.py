"""Runs one of the four servers of OpenStack Swift, in the foreground.

usage: object_storage_program.py rings
       object_storage_program.py proxy|account|container|object

Swift's own commands do the same; they come with packages that start services, which a machine that
only runs tests should not have.
"""

import array
import sys

CONFIGURATION = "/etc/swift"
PORTS = {"account": 6202, "container": 6201, "object": 6200}


class Cache:
    """What the proxy keeps between requests; it is a single process, so a dictionary is enough."""

    def __init__(self):
        self.held = {}

    def get(self, key, **_):
        """The value of a key, or None."""
        return self.held.get(key)

    def set(self, key, value, **_):
        """Keeps a value."""
        self.held[key] = value

    def delete(self, key, **_):
        """Forgets a value."""
        self.held.pop(key, None)

    def incr(self, key, delta=1, **_):
        """Adds to a number."""
        self.held[key] = int(self.held.get(key, 0)) + delta
        return self.held[key]


def cache_factory(_settings, **_own):
    """The filter "cache" of the proxy."""
    def make(app):
        cache = Cache()

        def answer(environment, start_response):
            environment["swift.cache"] = cache
            return app(environment, start_response)
        return answer
    return make


def make_rings():
    """One copy of everything, on one device."""
    from swift.common.ring import RingData
    for kind, port in PORTS.items():
        device = {"id": 0, "region": 1, "zone": 1, "ip": "127.0.0.1", "port": port, "weight": 1.0,
                  "replication_ip": "127.0.0.1", "replication_port": port, "device": "disk"}
        RingData([array.array("H", [0])], [device], 32).save(f"{CONFIGURATION}/{kind}.ring.gz")


def main():
    """Makes the rings or runs a server."""
    if sys.argv[1] == "rings":
        make_rings()
        return
    from swift.common.wsgi import run_wsgi
    kind = sys.argv[1]
    sys.exit(run_wsgi(f"{CONFIGURATION}/{kind}.conf", f"{kind}-server", verbose=False))


if __name__ == "__main__":
    main()
