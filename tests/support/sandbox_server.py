"""Makes sandboxes: private namespaces, each with an init process that takes orders.

This file runs as a program of its own, started once for every pytest worker. It stays small and has
a single thread, so that forking it takes about a millisecond and is safe; a worker of pytest is
neither small nor single-threaded. It imports nothing of the test suite.

A sandbox consists of two processes:

* the guardian, outside the new process-id namespace, which does nothing but wait for init. The
  kernel lets that wait end only after everything in the sandbox has died, and the guardian's end
  closes the lifeline pipe: its end of file shows that the sandbox has ended;
* init, process 1 of the sandbox. It starts programs with the attributes of an order, reaps every
  process that ends and reports it. It ends when its link to the worker closes, and the sandbox with
  it.

Orders and reports are JSON objects, one in each packet of the link.
"""

import ctypes
import errno
import json
import os
import resource
import select
import signal
import socket
import sys

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY, MS_NOSUID, MS_NODEV, MS_NOEXEC = 1, 2, 4, 8
MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 0x20, 0x1000, 0x4000, 0x40000

SYS_MOUNT_SETATTR = 442  # the same number on every architecture
AT_FDCWD, AT_RECURSIVE = -100, 0x8000
MOUNT_ATTR_RDONLY = 1

#: Directories that each sandbox has for itself, empty; everything else is read-only in it.
PRIVATE_DIRECTORIES = ("/opt", "/var/opt", "/etc/opt", "/tmp", "/var/tmp", "/dev/shm")

#: What a sandbox with a network of its own has for itself besides, because its users, keys and
#: running services are its own too.
HOST_DIRECTORIES = ("/home", "/root", "/run")

PACKET = 1 << 17

libc = ctypes.CDLL(None, use_errno=True)


class MountAttr(ctypes.Structure):
    """The argument of mount_setattr(2)."""

    _fields_ = [
        ("set", ctypes.c_uint64),
        ("clear", ctypes.c_uint64),
        ("propagation", ctypes.c_uint64),
        ("userns", ctypes.c_uint64),
    ]


def check(result, what):
    """Turns a failed C library call into an exception that names it."""
    if result < 0:
        code = ctypes.get_errno()
        raise OSError(code, f"{what}: {os.strerror(code)}")


def mount(source, target, kind, flags, options=None):
    """mount(2); None stands for a null pointer."""
    texts = (source, target, kind, options)
    source_, target_, kind_, options_ = (text and os.fsencode(text) for text in texts)
    result = libc.mount(source_, target_, kind_, ctypes.c_ulong(flags), options_)
    check(result, f"mount {target}")


def make_everything_read_only():
    """Protects the host: programs in the sandbox can change only what is mounted after this."""
    attributes = MountAttr(set=MOUNT_ATTR_RDONLY)
    result = libc.syscall(
        ctypes.c_long(SYS_MOUNT_SETATTR), AT_FDCWD, b"/", AT_RECURSIVE,
        ctypes.byref(attributes), ctypes.c_size_t(ctypes.sizeof(attributes)),
    )
    check(result, "mount_setattr /")


def make_own_settings():
    """Makes "/etc" writable: what is changed in it stays in memory and ends with the sandbox."""
    mount("sandbox", "/tmp", "tmpfs", MS_NODEV)  # covered by the sandbox's own one afterwards
    os.mkdir("/tmp/upper")
    os.mkdir("/tmp/work")
    mount("sandbox", "/etc", "overlay", MS_NODEV,
          "lowerdir=/etc,upperdir=/tmp/upper,workdir=/tmp/work")
    check(libc.umount2(b"/tmp", 0), "umount /tmp")


def make_own_terminals():
    """Makes terminals that no other sandbox sees; the program behind a terminal must own it."""
    mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC, "mode=620,gid=5,ptmxmode=666")
    mount("/dev/pts/ptmx", "/dev/ptmx", None, MS_BIND)


def make_file_systems(writable, visible, host):
    """Makes the sandbox's own directories.

    `writable` lists directories of the machine that stay writable, `visible` those that can be read
    though they are below a private one. With `host` the sandbox has settings, homes, services and
    terminals of its own too.
    """
    kept = [(path, path in writable, os.open(path, os.O_PATH | os.O_DIRECTORY))
            for path in (*visible, *writable)]
    mount(None, "/", None, MS_REC | MS_PRIVATE)
    make_everything_read_only()
    if host:
        make_own_settings()
    for path in PRIVATE_DIRECTORIES + (HOST_DIRECTORIES if host else ()):
        mode = "1777" if path.endswith(("tmp", "shm")) else "0700" if path == "/root" else "0755"
        mount("sandbox", path, "tmpfs", MS_NODEV, f"mode={mode}")
    for path, may_write, descriptor in kept:
        os.makedirs(path, exist_ok=True)
        mount(f"/proc/self/fd/{descriptor}", path, None, MS_BIND)
        if may_write:
            mount(None, path, None, MS_REMOUNT | MS_BIND)
        os.close(descriptor)
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    if host:
        make_own_terminals()
        mount("sysfs", "/sys", "sysfs", MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC)


def receive(link, most):
    """A packet and the descriptors sent with it, which no program started later inherits."""
    data, descriptors, _, _ = socket.recv_fds(link, PACKET, most)
    for descriptor in descriptors:
        os.set_inheritable(descriptor, False)
    return data, descriptors


def become(order, descriptors):
    """Turns the current process, a fresh fork of init, into the ordered program."""
    os.setsid()
    for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
        signal.signal(number, signal.SIG_IGN if number in order["ignore"] else signal.SIG_DFL)
    for place, descriptor in enumerate(descriptors):
        os.dup2(descriptor, place)
    for place in order["close"]:
        os.close(place)
    for name, value in order["limits"].items():
        resource.setrlimit(getattr(resource, "RLIMIT_" + name.upper()), (value, value))
    os.umask(order["umask"])
    if order["groups"] is not None:
        os.setgroups(order["groups"])
    os.setresgid(*order["gids"])
    os.setresuid(*order["uids"])
    os.chdir(order["cwd"])
    signal.pthread_sigmask(signal.SIG_SETMASK, order["block"])
    os.execvpe(order["path"], order["argv"], order["env"])


def spawn(order, descriptors):
    """Starts a program; the answer holds its process id, or why it could not be started."""
    outcome, outcome_of_child = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            become(order, descriptors)
        except OSError as error:
            os.write(outcome_of_child, f"{error.errno} {error}".encode())
        finally:
            os._exit(127)
    os.close(outcome_of_child)
    trouble = os.read(outcome, 4096).decode()
    os.close(outcome)
    if trouble:
        return {"failed": trouble.split(" ", 1)[1]}
    return {"spawned": pid}


def kill(order):
    """Sends a signal; a negative process id means a process group."""
    try:
        os.kill(order["pid"], order["signal"])
    except OSError as error:
        return {"failed": str(error)}
    return {"killed": order["pid"]}


def set_hostname(order):
    """Changes the host name of the sandbox."""
    socket.sethostname(order["hostname"])
    return {"hostname": order["hostname"]}


def reap(link):
    """Reports every process that ended, the orphans among them too."""
    while True:
        try:
            pid, status, usage = os.wait4(-1, os.WNOHANG)
        except ChildProcessError:
            return
        if pid == 0:
            return
        link.send(json.dumps({"ended": pid, "status": status, "peak": usage.ru_maxrss}).encode())


def serve(link):
    """The main loop of init: carries out the orders from the link and reaps children."""
    children, wake = os.pipe()
    os.set_blocking(children, False)
    os.set_blocking(wake, False)
    signal.set_wakeup_fd(wake, warn_on_full_buffer=False)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    while True:
        ready, _, _ = select.select([link, children], [], [])
        if link in ready:
            data, descriptors = receive(link, 3)
            if not data:
                return
            order = json.loads(data)
            if order["do"] == "spawn":
                answer = spawn(order, descriptors)
            else:
                answer = {"kill": kill, "hostname": set_hostname}[order["do"]](order)
            for descriptor in descriptors:
                os.close(descriptor)
            link.send(json.dumps(answer).encode())
        if children in ready:
            os.read(children, 4096)
            reap(link)


def run_init(order, link):
    """Everything that process 1 of a sandbox does."""
    try:
        make_file_systems(order["writable"], order["visible"], order["host"])
        socket.sethostname(order["hostname"])
        os.chdir("/")
        link.send(json.dumps({"ready": True}).encode())
        serve(link)
    except OSError as error:
        # The worker has ended: so ends a sandbox whose test was killed.
        if error.errno not in (errno.EPIPE, errno.ECONNRESET):
            link.send(json.dumps({"broken": str(error)}).encode())


def guard(order, link, lifeline):
    """Everything that the guardian of a sandbox does; `lifeline` closes when it ends."""
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    spaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS | CLONE_NEWIPC
    check(libc.unshare(spaces | (CLONE_NEWNET if order["host"] else 0)), "unshare")
    pid = os.fork()
    if pid == 0:
        os.close(lifeline)
        run_init(order, link)
        os._exit(0)
    link.send(json.dumps({"init": pid}).encode())
    link.close()
    os.waitpid(pid, 0)


def main():
    """Makes a sandbox for every order of the worker, until the worker ends."""
    control = socket.socket(fileno=int(sys.argv[1]))
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # only the worker handles ctrl-c
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # guardians leave no zombies
    while True:
        data, descriptors = receive(control, 2)
        if not data:
            return
        if os.fork() == 0:
            control.close()
            link = socket.socket(fileno=descriptors[0])
            try:
                guard(json.loads(data), link, descriptors[1])
            except OSError as error:
                link.send(json.dumps({"broken": str(error)}).encode())
            finally:
                os._exit(0)
        for descriptor in descriptors:
            os.close(descriptor)


if __name__ == "__main__":
    main()
