"""The kinds of calls that a fault test makes fail, and how a run reports each failure."""

from __future__ import annotations

import errno
from collections.abc import Mapping
from dataclasses import dataclass, field

from .fault_injection import Fault

EXISTENCE = "a file whose stat fails counts as missing"


@dataclass(frozen=True)
class Kind:
    """A kind of call, and how a run reports its failure.

    `calls` are the names under which the three lines of a failed system call report it; `words` are
    patterns of other messages that report it. A failure that is not reported must change nothing,
    except for the subjects in `quiet`, each with its reason.
    """

    call: str
    error: int
    calls: tuple[str, ...] = ()
    words: tuple[str, ...] = ()
    quiet: Mapping[str, str] = field(default_factory=dict)
    child: bool = False
    env: Mapping[str, str] = field(default_factory=dict)
    also: str | None = None

    def __str__(self) -> str:
        names = ["child"] * self.child + [self.call] + [self.also] * (self.also is not None)
        return "-".join([*names, errno.errorcode[self.error]])

    def fault(self, nth: int, rest: bool = False) -> Fault:
        """The failure of the `nth` of these calls."""
        return Fault(self.call, nth, self.error, rest, self.child, self.also)


# After a failed stat, the run makes a directory that exists.
MADE_AGAIN = r"system call name = mkdir, error code = 17,"
NOT_COPIED = "ZEPA130-W"
NO_MEMORY = "ZEPA(122-E|143-W)"
# The copies of the logs, and the removal, are made by a shell.
NO_COPY = ("ZEPA133-W", "ZEPA142-W")
NO_SHELL = (*NO_COPY, "rm command failed")

STAT = Kind(
    "stat", errno.EACCES, calls=("stat",),
    words=(MADE_AGAIN, "ZEPA10[45]-E", "ZEPA129-W", NOT_COPIED, "ZEPA132-W"),
    quiet={r"quendil_hist\.log$": EXISTENCE + ": it is not rotated",
           r"log/quendil\.log$": EXISTENCE + ": it is written over",
           r"log/quendil_hist_old\.log$": EXISTENCE + ": it is not packed",
           r"log/quendil_stderr\.log$": EXISTENCE + ": it is not shown"})

KINDS = (
    Kind("chdir", errno.EACCES, calls=("chdir",)),
    Kind("close", errno.EIO),
    Kind("dup2", errno.EBUSY, calls=("dup2",)),
    Kind("fchdir", errno.EACCES, calls=("fchdir",)),
    Kind("fchmod", errno.EPERM, calls=("chmod",), words=(NOT_COPIED,)),
    Kind("fchown", errno.EPERM, calls=("chown",), words=(NOT_COPIED,)),
    Kind("fclose", errno.EIO),
    Kind("fcntl", errno.ENOLCK, calls=("fcntl", "dup")),
    Kind("fcntl", errno.EAGAIN, calls=("fcntl", "dup"), words=("ZEPA116-E",)),
    Kind("fdopen", errno.ENOMEM, calls=("fopen",), words=("ZEPA112-E",)),
    Kind("fflush", errno.ENOSPC, calls=("fflush",)),
    Kind("fnmatch", errno.ENOMEM, calls=("fnmatch",)),
    Kind("fork", errno.EAGAIN, calls=("fork", "system"), words=NO_COPY),
    Kind("fprintf", errno.ENOSPC, calls=("vfprintf", "fprintf")),
    Kind("fstat", errno.EIO, calls=("fstat", "open", "opendir", "fopen"),
         words=(NOT_COPIED, "ZEPA112-E")),
    Kind("fstatat", errno.EIO, calls=("fstatat",), words=("ZEPA129-W",)),
    Kind("futimens", errno.EPERM, calls=("utime",), words=(NOT_COPIED,)),
    Kind("fwrite", errno.ENOSPC, calls=("fputs",)),
    Kind("getc", errno.EIO, calls=("fgets",)),
    Kind("gethostname", errno.ENAMETOOLONG, calls=("gethostname",)),
    Kind("localtime", errno.EOVERFLOW),
    Kind("lstat", errno.EACCES, calls=("lstat",), words=(MADE_AGAIN,)),
    # In this locale the C library needs no memory for itself.
    Kind("malloc", errno.ENOMEM, calls=("fopen", "opendir", "fgetwc"),
         words=(NO_MEMORY, "ZEPA112-E"), env={"LC_ALL": "C"}),
    Kind("mbstowcs", errno.EILSEQ, calls=("mbstowcs",)),
    Kind("mkdir", errno.ENOSPC, calls=("mkdir",)),
    Kind("open", errno.EMFILE, calls=("open", "fopen", "opendir"), words=(NOT_COPIED, "ZEPA112-E")),
    Kind("openat", errno.EMFILE, calls=("open", "opendir"), words=(NOT_COPIED,)),
    # openat2, which opens a path without following links: old kernels do not have it.
    Kind("openat", errno.ENOSYS, calls=("open", "opendir"), words=(NOT_COPIED,)),
    Kind("opendir", errno.EMFILE, calls=("opendir",)),
    Kind("pidfd_open", errno.ENOSYS),
    Kind("read", errno.EIO, calls=("fgets",), words=(NOT_COPIED,)),
    Kind("read", errno.EINTR),
    Kind("readdir", errno.EIO, calls=("readdir",)),
    Kind("readlinkat", errno.EIO, calls=("open",)),
    Kind("remove", errno.EBUSY, calls=("remove",)),
    Kind("rename", errno.EXDEV, calls=("rename",)),
    Kind("select", errno.ENOMEM, calls=("select",)),
    Kind("setlocale", errno.ENOENT),
    Kind("setpgid", errno.EPERM),
    Kind("sigaction", errno.EINVAL),
    Kind("signal", errno.EINVAL),
    Kind("sigprocmask", errno.EINVAL),
    STAT,
    Kind("statfs", errno.ESTALE, calls=("statfs",)),
    Kind("symlink", errno.ENOSPC, words=(NOT_COPIED,)),
    Kind("vsnprintf", errno.EOVERFLOW),
    Kind("waitid", errno.EINVAL, calls=("waitpid",)),
    Kind("waitpid", errno.EINVAL, calls=("waitpid", "system"), words=NO_COPY),
    Kind("wcrtomb", errno.EILSEQ),
    Kind("wcstombs", errno.EILSEQ, calls=("wcstombs",)),
    Kind("write", errno.ENOSPC, words=(NOT_COPIED,)),
    Kind("write", errno.EINTR),
    Kind("close_range", errno.EPERM, child=True),
    Kind("execv", errno.EACCES, calls=("execv",), words=NO_SHELL, child=True),
    Kind("execv", errno.ENOENT, child=True,
         words=("Return code = 255", "ZEPA132-W", "ZEPA135-W", *NO_SHELL)),
    Kind("prctl", errno.EINVAL, child=True),
    Kind("setpgid", errno.EPERM, child=True),
    Kind("sigaction", errno.EINVAL, child=True),
    Kind("signal", errno.EINVAL, child=True),
    Kind("sigprocmask", errno.EINVAL, child=True),
)

# One or two calls for each character of a pattern file, which is therefore short.
BY_CHARACTER = (
    Kind("fgetwc", errno.EIO, calls=("fgetwc",)),
    Kind("ungetwc", errno.ENOMEM, calls=("ungetwc",)),
)

# Too many calls for a run each; the program checks the result of none.
IGNORED = (
    Kind("pthread_mutex", errno.EINVAL),
    Kind("terminal", errno.EIO),
)

# Made only when tar reports an error: the program then checks whether the archive is complete.
TRUNCATED_ARCHIVE = (Kind("pread", errno.EIO),)

# Made only when a pattern's directory gets a number: without them, the output is read for each.
NUMBERING = (
    Kind("inotify_add_watch", errno.ENOSPC),
    Kind("inotify_init1", errno.EMFILE),
    Kind("opendir", errno.EMFILE, calls=("opendir",)),
    Kind("read", errno.EIO, calls=("fgets",), words=(NOT_COPIED,)),
    Kind("readdir", errno.EIO, calls=("readdir",)),
)

# Calls that are made only after another one has failed: `also` is that one.
AFTERWARDS = (
    Kind("execv", errno.EACCES, child=True, also="dprintf",
         words=("Return code = 255", "ZEPA132-W", "ZEPA135-W", *NO_SHELL)),
    Kind("getdents64", errno.ENOSYS, child=True, also="close_range"),
    Kind("open", errno.EMFILE, child=True, also="close_range"),
    Kind("fflush", errno.ENOSPC, calls=("fflush",), also="truncate"),
    Kind("write", errno.ENOSPC, words=(NOT_COPIED,), also="unlink"),
)

# Calls that stop a program: an archiver, or a tool, which has a pidfd too.
STOPPING_ARCHIVER = (
    Kind("kill", errno.EPERM, calls=("kill",)),
    Kind("select", errno.ENOMEM, calls=("select",)),
    Kind("waitid", errno.EINVAL, calls=("waitpid",)),
    Kind("waitpid", errno.EINVAL, calls=("waitpid", "system"), words=NO_COPY),
)
STOPPING = (*STOPPING_ARCHIVER, Kind("pidfd_open", errno.ENOSYS))

EVERY_KIND = (
    *KINDS, *BY_CHARACTER, *IGNORED, *TRUNCATED_ARCHIVE, *NUMBERING, *AFTERWARDS, *STOPPING)
