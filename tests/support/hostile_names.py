"""Names that users can choose, which forge a line or control a terminal if printed as they are."""

from __future__ import annotations

from .machine import Machine

#: Begins a line of an output in which a name's line feed is not escaped.
FORGED = "FORGED"
#: Fits into the name of a process; holds a line feed, a sequence for terminals and a raw C1 control.
NAME = b"a\n" + FORGED.encode() + b"\x1b[7m\x9b"

#: Below "/var": where services and users make files.
VAR = {
    f"log/postgresql/d\n{FORGED}\x1b/x.log": "",
    f"log/f\n{FORGED}\x1b": "",
    f"crash/d\n{FORGED}\x1b/dmesg.1": "of a crash\n",
    f"crash/f\n{FORGED}\x1b": "",
}

_PROGRAM = '''
import ctypes, os, shutil, socket, subprocess, time
NAME = {name!r}
where = b"/tmp/planted/"
os.mkdir(where)
program = where + b"p" + NAME
shutil.copy("/usr/bin/sleep", program)
sleeper = subprocess.Popen([program, "1000"])
while os.readlink(f"/proc/{{sleeper.pid}}/exe") == os.readlink("/proc/self/exe"):
    time.sleep(0.01)
os.unlink(program)
kept = open(where + b"o" + NAME, "wb")
os.unlink(kept.name)
unix = socket.socket(socket.AF_UNIX)
unix.bind(where + b"s" + NAME)
unix.listen()
tcp = socket.socket()
tcp.bind(("", 0))
tcp.listen()
ctypes.CDLL(None).prctl(15, NAME, 0, 0, 0)  # PR_SET_NAME
open("/tmp/planted.ready", "w").close()
while not os.path.exists("/tmp/planted.over"):
    time.sleep(0.05)
sleeper.kill()
sleeper.wait()
'''


def start(machine: Machine) -> None:
    """Starts processes with such names, and with such program files, open files and sockets."""
    machine.file("/tmp/planted.py", _PROGRAM.format(name=NAME))
    machine.exec("setsid python3 /tmp/planted.py >/tmp/planted.out 2>&1 &")
    machine.wait_for("/tmp/planted.ready")


def stop(machine: Machine) -> None:
    """Ends these processes."""
    machine.file("/tmp/planted.over")


def faults(text: bytes) -> list[bytes]:
    """The lines of an output that a name has forged, or that contain control characters."""
    lines = text.split(b"\n")
    return [line for line in lines if line.startswith(FORGED.encode())
            or any(byte < 0x20 and byte != 0x09 or byte == 0x7f for byte in line)
            or any(0x80 <= ord(character) < 0xa0 or 0xdc80 <= ord(character) < 0xdca0
                   for character in line.decode("utf-8", "surrogateescape"))]
