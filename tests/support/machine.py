"""A machine for every test: file systems, processes and a host name that no other test sees.

The machine has its own "/opt", "/var/opt" and "/etc/opt" with the installed program, and an empty
"/tmp", "/var/tmp" and "/dev/shm"; everything else is the host's, read-only. All of it ends with the
test.
"""

from __future__ import annotations

import fcntl
import os
import shlex
import shutil
import stat
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from pathlib import Path, PurePosixPath

from . import behave, masking
from .run import ActiveRun, Capture, Run, wait_until
from .sandbox import Order, ProcessEntry, Sandbox, SandboxServer

QUENDIL = "/opt/norvale/quendil/bin/quendil"
PROGRAMS = ["quendil", "quendil-check", "quendil-report"]  # what is installed in that directory
LOG_DIRECTORY = "/var/opt/norvale/quendil/log"
DATA_DIRECTORY = "/var/opt/norvale/quendil/data"
PATTERN_DIRECTORY = "/etc/opt/norvale/quendil/pattern"
CONFIGURATION = "/etc/opt/norvale/quendil/config/quendil_conf"
TOOL_DIRECTORY = "/opt/tools"
REAL_DIRECTORY = "/opt/real"

HOSTNAME = "testhost"

#: Far from UTC and with odd minutes, so that a program that ignores the zone fails a test.
ZONE = timezone(timedelta(hours=5, minutes=45))
TZ = "QTZ-05:45"

ENVIRONMENT = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "HOME": "/", "LC_ALL": "C.UTF-8", "TZ": TZ,
}

#: A command line in a pattern holds 260 bytes; a longer tool is written to a file.
LONGEST_COMMAND = 200


def environment_path(name: str) -> Path:
    """The existing file or directory that a variable of the environment must name."""
    path = Path(os.environ.get(name, ""))
    assert path.is_absolute() and path.exists(), f"{name} must name what is tested by its full path"
    return path


@dataclass(frozen=True)
class Installation:
    """What is installed in a machine, and how the program is started there."""

    stage: Path
    behave: Path
    wrapper: tuple[str, ...] = ()
    writable: tuple[str, ...] = ()

    @classmethod
    def from_environment(cls) -> Installation:
        """The installation that the QUENDIL_ variables name."""
        writable = os.environ.get("QUENDIL_WRITABLE", "")
        return cls(environment_path("QUENDIL_STAGE"), environment_path("QUENDIL_BEHAVE"),
                   tuple(shlex.split(os.environ.get("QUENDIL_WRAPPER", ""))),
                   tuple(path for path in writable.split(":") if path))


@dataclass(frozen=True)
class Completed:
    """A command that `Machine.exec` ran."""

    status: int
    stdout: str
    stderr: str


class Machine:
    """The machine of one test."""

    #: In which directories a test may make files.
    OWN_DIRECTORIES = ("/opt/", "/var/opt/", "/etc/opt/", "/tmp/")

    def __init__(self, server: SandboxServer, installation: Installation) -> None:
        self._installation = installation
        self.sandbox = self._make_sandbox(server)
        self.root = self.sandbox.root
        self.runs: list[ActiveRun] = []
        self._legal: set[int] = set()
        self._survivors_allowed = False
        self._own_patterns = False
        self._numbered = 0
        try:
            self._install()
        except BaseException:
            self.sandbox.destroy()
            raise

    def _make_sandbox(self, server: SandboxServer) -> Sandbox:
        return server.make_sandbox(HOSTNAME, self._installation.writable)

    def _install(self) -> None:
        for tree in ("opt", "var/opt", "etc/opt"):
            shutil.copytree(self._installation.stage / tree, self.root / tree, symlinks=True,
                            dirs_exist_ok=True)
        shutil.copyfile(self._installation.behave, self.path(behave.PROGRAM))
        self.path(behave.PROGRAM).chmod(0o755)

    # ---- Time -----------------------------------------------------------------------------------

    @property
    def patience(self) -> float:
        """By how much every deadline is longer, because a wrapper such as valgrind is slow."""
        return 10.0 if self.wrapped else 1.0

    @property
    def deadline(self) -> float:
        """The seconds after which a run has failed."""
        return 60.0 * self.patience

    @property
    def behave_source(self) -> Path:
        """The host's path of `behave`; the other helper programs are in the same directory."""
        return self._installation.behave

    @property
    def wrapped(self) -> bool:
        """Whether the program runs inside another one."""
        return bool(self._installation.wrapper)

    @staticmethod
    def now() -> datetime:
        """The machine's local time, in whole seconds like the program's own."""
        # Not the system call's exact time: the program's clock, time(2), lags by up to a tick.
        seconds = int(time.clock_gettime(5))  # CLOCK_REALTIME_COARSE, which the time module lacks
        return datetime.fromtimestamp(seconds, ZONE).replace(tzinfo=None)

    # ---- Files ----------------------------------------------------------------------------------

    def path(self, inside: str) -> Path:
        """The host's path of a file of the machine.

        A path through a symbolic link is refused: the host would resolve an absolute link from its
        own root.
        """
        pure = PurePosixPath(inside)
        assert pure.is_absolute() and ".." not in pure.parts, f"not a plain path: {inside}"
        host = self.root
        for part in pure.parts[1:-1]:
            host = host / part
            assert not host.is_symlink(), f"{inside} leads through a symbolic link"
        return host / pure.name

    def _own(self, inside: str) -> Path:
        """The path of a file to make or remove, which must be in a private directory."""
        assert inside.startswith(self.OWN_DIRECTORIES), f"{inside} is not the machine's own"
        return self.path(inside)

    def _make_parents(self, inside: str) -> None:
        for parent in reversed(PurePosixPath(inside).parents):
            if not self.path(str(parent)).exists():
                self._own(str(parent)).mkdir()
                self._own(str(parent)).chmod(0o755)

    def _set_attributes(self, path: Path, mode: int | None, owner: tuple[int, int] | None,
                        mtime: float | None) -> None:
        if owner is not None:
            os.chown(path, *owner, follow_symlinks=False)
        if mode is not None:
            path.chmod(mode)
        if mtime is not None:
            os.utime(path, (mtime, mtime), follow_symlinks=False)

    def file(self, path: str, content: bytes | str = b"", mode: int = 0o644,
             owner: tuple[int, int] = (0, 0), mtime: float | None = None) -> str:
        """Makes or replaces a file, with its parent directories; returns its path."""
        self._make_parents(path)
        own = self._own(path)
        assert not own.is_symlink(), f"{path} is a symbolic link"
        own.write_bytes(content.encode() if isinstance(content, str) else content)
        self._set_attributes(own, mode, owner, mtime)
        return path

    def directory(self, path: str, mode: int = 0o755, owner: tuple[int, int] = (0, 0),
                  mtime: float | None = None) -> str:
        """Makes a directory, or sets the attributes of one; returns its path."""
        self._make_parents(path)
        self._own(path).mkdir(exist_ok=True)
        self._set_attributes(self._own(path), mode, owner, mtime)
        return path

    def link(self, path: str, target: str, owner: tuple[int, int] = (0, 0),
             mtime: float | None = None) -> str:
        """Makes a symbolic link; returns its path."""
        self._make_parents(path)
        self._own(path).symlink_to(target)
        self._set_attributes(self._own(path), None, owner, mtime)
        return path

    def fifo(self, path: str) -> str:
        """Makes a FIFO; returns its path."""
        self._make_parents(path)
        os.mkfifo(self._own(path))
        return path

    def install(self, source: Path, path: str, mode: int = 0o755) -> str:
        """Copies a file of the host, such as a library to preload, into the machine."""
        return self.file(path, source.read_bytes(), mode)

    def remove(self, path: str) -> None:
        """Removes a file or a whole tree."""
        own = self._own(path)
        if own.is_dir() and not own.is_symlink():
            shutil.rmtree(own)
        else:
            own.unlink()

    def exists(self, path: str) -> bool:
        """Whether there is an entry of that name, which may be a dangling link."""
        return os.path.lexists(self.path(path))

    def read(self, path: str) -> str:
        """The text of a file of the machine."""
        host = self.path(path)
        assert stat.S_ISREG(host.lstat().st_mode), f"{path} is not a regular file"
        return masking.decode(host.read_bytes())

    def list(self, path: str) -> list[str]:
        """The sorted names in a directory."""
        return sorted(os.listdir(self.path(path)))

    def status(self, path: str) -> os.stat_result:
        """The attributes of an entry, links not followed."""
        return self.path(path).lstat()

    def mode(self, path: str) -> str:
        """The permission bits of an entry as octal text, such as "0600"."""
        return f"{stat.S_IMODE(self.status(path).st_mode):04o}"

    def outputs(self) -> list[str]:
        """The names in the default output base directory, masked."""
        return [masking.mask(name) for name in self.list(DATA_DIRECTORY)]

    def read_log(self, name: str) -> str | None:
        """The current text of a log, or None when there is no such regular file."""
        path = f"{LOG_DIRECTORY}/{name}"
        try:
            return self.read(path) if stat.S_ISREG(self.status(path).st_mode) else None
        except (FileNotFoundError, NotADirectoryError):
            return None

    # ---- The program's input --------------------------------------------------------------------

    def pattern(self, name: str, text: str) -> None:
        """Adds a pattern file; the first one takes the place of all shipped ones."""
        if not self._own_patterns:
            self.no_patterns()
        self.file(f"{PATTERN_DIRECTORY}/{name}", text)

    def no_patterns(self) -> None:
        """Empties the pattern directory."""
        self._own_patterns = True
        for name in self.list(PATTERN_DIRECTORY):
            self.remove(f"{PATTERN_DIRECTORY}/{name}")

    def conf(self, text: str) -> None:
        """Replaces the configuration file."""
        self.file(CONFIGURATION, text)

    def hostname(self, name: str) -> None:
        """Gives the machine another name."""
        self.sandbox.set_hostname(name)

    def tool(self, *actions: behave.Action) -> str:
        """A command line that performs these actions; a long one is a file below /opt/tools."""
        line = behave.command(*actions)
        if len(line) <= LONGEST_COMMAND:
            return line
        self._numbered += 1
        return self.file(f"{TOOL_DIRECTORY}/{self._numbered}", behave.script(*actions), 0o755)

    def replace(self, program: str, *actions: behave.Action) -> str:
        """Replaces a program of the system by one that performs these actions.

        Returns the path at which the real program stays available, for `behave.run` and
        `behave.become`: always "/opt/real/" and the program's name.
        """
        name = PurePosixPath(program).name
        real = f"{REAL_DIRECTORY}/{name}"
        target = os.path.realpath(program)
        if not self.exists(real):
            self.file(real)
            self.mount("--bind", target, real)
        self._numbered += 1
        replacement = f"{TOOL_DIRECTORY}/{name}.{self._numbered}"
        self.file(replacement, behave.script(*actions), 0o755)
        self.mount("--bind", replacement, target)
        return real

    def mount(self, *arguments: str) -> None:
        """mount(8) inside the machine."""
        self.exec(["/usr/bin/mount", "-n", *arguments])

    def small_tmpfs(self, path: str, size: int | str, inodes: int = 0) -> None:
        """Mounts a file system of so many bytes on a directory, whose files it keeps."""
        self.directory(path)
        held = self._own("/tmp/held")
        shutil.copytree(self._own(path), held, symlinks=True)
        self.mount("-t", "tmpfs", "-o", f"size={size},nr_inodes={inodes},mode=0755", "small",
                   path)
        shutil.copytree(held, self._own(path), symlinks=True, dirs_exist_ok=True)
        shutil.rmtree(held)

    def fill(self, path: str, leave: int = 0) -> None:
        """Fills the file system at `path` with one file, up to so many free bytes."""
        status = os.statvfs(self.path(path))
        size = status.f_bavail * status.f_frsize - leave
        assert size > 0, f"{path} has only {size + leave} bytes left"
        self.file(f"{path}/filler", b"x" * size)

    def read_only(self, path: str) -> None:
        """Makes a directory tree unwritable, even for root."""
        self.mount("--bind", path, path)
        self.mount("-o", "remount,bind,ro", path)

    def pin(self, path: str) -> None:
        """Makes every attempt to remove or rename a file or directory fail with EBUSY."""
        self.mount("--bind", path, path)

    @contextmanager
    def locked(self, path: str) -> Iterator[None]:
        """Holds a record lock on a whole file of the machine, as another program would.

        Do not read the file meanwhile: closing any descriptor of it would drop the record lock.
        """
        with open(self._own(path), "r+b") as file:
            fcntl.lockf(file, fcntl.LOCK_EX)
            yield

    def locks(self, path: str) -> tuple[int, int]:
        """How many record locks on a file are held, and how many are waited for."""
        status = self.status(path)
        device = f"{os.major(status.st_dev):02x}:{os.minor(status.st_dev):02x}"
        lines = Path("/proc/locks").read_text().splitlines()
        own = [line for line in lines if f" {device}:{status.st_ino} " in line]
        waiting = sum("->" in line for line in own)
        return len(own) - waiting, waiting

    # ---- Running --------------------------------------------------------------------------------

    def start(self, *arguments: str, argv0: str | None = None, env: Mapping[str, str] | None = None,
              cwd: str = "/", umask: int = 0o022, user: int | None = None,
              effective_user: int | None = None, limits: Mapping[str, int] | None = None,
              stdin: bytes | int | None = None, stdout: int | None = None,
              stderr: int | None = None, merge: bool = False, close: Sequence[int] = (),
              ignore: Sequence[int] = (), block: Sequence[int] = (),
              program: str = QUENDIL) -> ActiveRun:
        """Starts the program and returns at once.

        `env` adds to the fixed environment. `user` is the real user, and the effective one too
        unless `effective_user` is given. `limits` are soft and hard limits by their short names
        ("nofile", "fsize"). `stdin`, `stdout` and `stderr` may be descriptors of the test; `stdin`
        may be bytes. `merge` captures both outputs in one, in their true order. `close` lists
        descriptors that are closed when the program starts, `ignore` and `block` signals.
        `program` is the path of another program, or of this one where a test has moved it.
        """
        assert argv0 is None or not self.wrapped, "a wrapped program cannot be given an argv[0]"
        command = [*self._installation.wrapper, program]
        real = 0 if user is None else user
        effective = real if effective_user is None else effective_user
        order = Order(
            argv=[command[0] if argv0 is None else argv0, *command[1:], *arguments],
            path=command[0], env={**ENVIRONMENT, **_sanitizer_settings(), **(env or {})}, cwd=cwd,
            umask=umask, uids=(real, effective, effective), gids=(real, effective, effective),
            limits=limits or {}, close=close, ignore=ignore, block=block)
        out = Capture("stdout")
        err = out if merge else Capture("stderr")
        given = _input(stdin)
        began = self.now()
        try:
            pid = self.sandbox.spawn(order, given, out.descriptor if stdout is None else stdout,
                                  err.descriptor if stderr is None else stderr)
        finally:
            if given != stdin:
                os.close(given)
        run = ActiveRun(self, pid, out, err, began, list(arguments))
        self.runs.append(run)
        return run

    def run(self, *arguments: str, seconds: float | None = None, **how) -> Run:
        """Runs the program to its end; `how` is that of `start`."""
        return self.start(*arguments, **how).finish(seconds)

    def exec(self, command: Sequence[str] | str, check: bool = True, seconds: float = 30.0,
             stdin: bytes | None = None, user: int = 0, cwd: str = "/",
             env: Mapping[str, str] | None = None) -> Completed:
        """Runs any command in the machine; a string goes through the shell. `env` adds to the
        fixed environment."""
        argv = ["/bin/sh", "-c", command] if isinstance(command, str) else list(command)
        out, err = Capture("stdout"), Capture("stderr")
        given = _input(stdin)
        order = Order(argv=argv, env={**ENVIRONMENT, **_sanitizer_settings(), **(env or {})},
                      cwd=cwd, uids=(user,) * 3, gids=(user,) * 3)
        try:
            pid = self.sandbox.spawn(order, given, out.descriptor, err.descriptor)
            status = self.sandbox.wait(pid, seconds * self.patience)
            assert status is not None, f"{argv} did not end"
            done = Completed(os.waitstatus_to_exitcode(status), masking.decode(out.read()),
                             masking.decode(err.read()))
        finally:
            os.close(given)
            out.close()
            err.close()
        assert done.status == 0 or not check, f"{argv}: {done}"
        return done

    def report(self, path: str) -> dict[str, str]:
        """What a tool reported of itself to a file, by key."""
        return behave.parse_report(self.read(path))

    def processes(self) -> list[ProcessEntry]:
        """Every process of the machine but its init."""
        return self.sandbox.processes()

    def wait_for(self, condition: Callable[[], object] | str, seconds: float = 10.0,
                 what: str | None = None):
        """Waits until a condition is true, or a file of that path exists."""
        if isinstance(condition, str):
            path = condition
            return wait_until(lambda: self.exists(path), seconds * self.patience, what or path)
        return wait_until(condition, seconds * self.patience, what or repr(condition))

    # ---- The end --------------------------------------------------------------------------------

    def allow_survivors(self) -> None:
        """This test leaves processes behind on purpose; they end with the machine."""
        self._survivors_allowed = True

    def allow_status(self, *statuses: int) -> None:
        """This test lets a run end in these ways too."""
        self._legal |= set(statuses)

    def check(self, grace: float = 10.0) -> None:
        """What must be true after every test.

        `grace` is for processes that were just killed and may not have ended yet.
        """
        for run in self.runs:
            assert run.finished, f"the test left a run unfinished: {run.describe()}"
            status = run.finished.status
            assert run.is_legal_end() or status in self._legal, (
                f"illegal end of a run: {run.describe()}{self._wrapper_reports()}")
        if not self._survivors_allowed:
            wait_until(lambda: not self.processes(), grace * self.patience,
                       f"the end of all processes\n{self.describe_processes()}")

    def describe_processes(self) -> str:
        """The processes, one to a line, for a failure's report."""
        return "\n".join(f"process {entry}" for entry in self.processes())

    def _wrapper_reports(self) -> str:
        """The reports that a wrapper left as /tmp/wrapper.*."""
        names = [name for name in self.list("/tmp") if name.startswith("wrapper.")]
        return "".join(f"\n--- {name} ---\n{self.read(f'/tmp/{name}')}" for name in names)

    def describe(self) -> str:
        """All that is known of the machine, for a failure's report."""
        if not self.root.exists():
            return "the machine is gone"
        parts = [run.describe() for run in self.runs]
        return "\n".join([*parts, self.describe_processes(), self._wrapper_reports()])

    def destroy(self) -> None:
        """Ends the machine with everything in it."""
        for run in self.runs:
            if not run.finished:
                run.close()
        self.runs.clear()
        self.sandbox.destroy()


def _input(stdin: bytes | int | None) -> int:
    """A descriptor from which the given input is read; None is an empty input."""
    if isinstance(stdin, int):
        return stdin
    if stdin is None:
        return os.open(os.devnull, os.O_RDONLY)
    descriptor = os.memfd_create("stdin")
    os.write(descriptor, stdin)
    os.lseek(descriptor, 0, os.SEEK_SET)
    return descriptor


def _sanitizer_settings() -> dict[str, str]:
    """The settings of an instrumented build, which the caller of the tests gave."""
    known = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "LLVM_PROFILE_FILE",
             "GCOV_PREFIX", "GCOV_PREFIX_STRIP", "GCOV_ERROR_FILE")
    return {name: os.environ[name] for name in known if name in os.environ}
