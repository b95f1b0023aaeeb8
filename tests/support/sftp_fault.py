"""An sftp server with a fault, in the place of a host's own one.

usage: sftp_fault.py flip SIZE COUNT STATE    flips one byte in each of the first COUNT transfers of
                                              more than SIZE bytes; STATE is a writable file
       sftp_fault.py endless                  every file that is read has no end
       sftp_fault.py slow SECONDS             waits so long before each 32 KiB of a file

It passes the requests of the client to the real server, and the answers back. Of the protocol
(draft-ietf-secsh-filexfer-02) it knows only what it changes.
"""

import os
import struct
import subprocess
import sys
import threading
import time

SERVER = "/usr/lib/openssh/sftp-server"
OPEN, READ, DATA = 3, 5, 103  # SSH_FXP_OPEN, SSH_FXP_READ, SSH_FXP_DATA
BLOCK = 32768


def packets(stream):
    """The packets of a stream: type, and all after it."""
    while len(head := stream.read(4)) == 4:
        body = stream.read(struct.unpack(">I", head)[0])
        yield body[0], body[1:]


def send(stream, kind, rest):
    """Sends a packet."""
    stream.write(struct.pack(">IB", len(rest) + 1, kind) + rest)
    stream.flush()


class Flip:
    """Flips a byte once in a transfer; how many remain is kept in a file, for later sessions."""

    def __init__(self, size, count, state):
        self.size, self.state = int(size), state
        self.offsets = {}
        self.armed = True
        if not os.path.exists(state):
            self.remain(int(count))

    def remain(self, count):
        """Stores how many transfers are still to be changed."""
        with open(self.state, "w", encoding="ascii") as file:
            file.write(str(count))

    def request(self, kind, rest):
        """Notes at which offset an answer will be."""
        if kind == OPEN:
            self.armed = True
        if kind == READ:
            handle = struct.unpack_from(">I", rest, 4)[0]
            self.offsets[rest[:4]] = struct.unpack_from(">Q", rest, 8 + handle)[0]
        return None

    def answer(self, kind, rest):
        """The answer, changed where the file has turned out to be long enough."""
        offset = self.offsets.pop(rest[:4], 0)
        if kind != DATA or not self.armed or offset + len(rest) - 8 <= self.size:
            return rest
        with open(self.state, encoding="ascii") as file:
            left = int(file.read())
        if left == 0:
            return rest
        self.remain(left - 1)
        self.armed = False
        return rest[:-1] + bytes([rest[-1] ^ 1])


class Endless:
    """Answers every request for a part of a file itself, with bytes that no file holds."""

    def request(self, kind, rest):
        """The answer to a request, or None for one that the real server answers."""
        if kind != READ:
            return None
        size = struct.unpack(">I", rest[-4:])[0]  # not more, or the client would stop
        return rest[:4] + struct.pack(">I", size) + b"x" * size

    def answer(self, kind, rest):
        """The answer as it is."""
        return rest


class Slow:
    """Waits before each part of a file, the longer the larger it is."""

    def __init__(self, seconds):
        self.seconds = float(seconds)

    def request(self, kind, rest):
        """The real server answers everything."""
        return None

    def answer(self, kind, rest):
        """The answer as it is, later."""
        if kind == DATA:
            time.sleep(self.seconds * (len(rest) - 8) / BLOCK)
        return rest


def pass_requests(fault, server, lock):
    """Passes requests on until the client has no more."""
    for kind, rest in packets(sys.stdin.buffer):
        own = fault.request(kind, rest)
        if own is None:
            send(server.stdin, kind, rest)
        else:
            with lock:
                send(sys.stdout.buffer, DATA, own)
    server.stdin.close()


def main():
    """Runs the real server with the fault between it and the client."""
    fault = {"flip": Flip, "endless": Endless, "slow": Slow}[sys.argv[1]](*sys.argv[2:])
    server = subprocess.Popen([SERVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    lock = threading.Lock()
    threading.Thread(target=pass_requests, args=(fault, server, lock), daemon=True).start()
    for kind, rest in packets(server.stdout):
        changed = fault.answer(kind, rest)
        with lock:
            send(sys.stdout.buffer, kind, changed)
    sys.stdout.flush()
    os._exit(server.wait())


if __name__ == "__main__":
    try:
        main()
    except BrokenPipeError:
        os._exit(1)
