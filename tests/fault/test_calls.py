"""No call of the C library is forgotten: each can fail in a test, or there is a reason why not."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

from support.fault_kinds import EVERY_KIND
from support.fault_injection import LIBRARY
from support.machine import QUENDIL, Installation, environment_path

pytestmark = pytest.mark.plain_binary

#: The kind that fails when a function of this name does.
KIND_OF = {
    **{name: name for name in (
        "chdir", "close", "close_range", "dup2", "execv", "fchdir", "fchmod", "fchown", "fclose",
        "fdopen", "fflush", "fnmatch", "fork", "futimens", "fwrite", "getc", "gethostname",
        "inotify_add_watch", "inotify_init1", "kill", "mbstowcs", "mkdir", "open", "opendir", "prctl", "read",
        "readlinkat", "remove", "rename", "select", "setlocale", "setpgid", "sigaction", "signal",
        "sigprocmask", "symlink",
        "ungetwc", "unlink", "waitid", "waitpid", "wcrtomb", "wcstombs", "write")},
    "__dprintf_chk": "dprintf", "__fprintf_chk": "fprintf", "__vfprintf_chk": "fprintf",
    "__vsnprintf_chk": "vsnprintf", "calloc": "malloc", "fcntl64": "fcntl",
    "fgetwc_unlocked": "fgetwc", "fputc": "terminal", "fputs": "terminal", "fstat64": "fstat",
    "localtime_r": "localtime", "lstat64": "lstat", "malloc": "malloc", "open64": "open",
    "pread64": "pread",
    "pthread_mutex_destroy": "pthread_mutex", "pthread_mutex_init": "pthread_mutex",
    "pthread_mutex_lock": "pthread_mutex", "pthread_mutex_unlock": "pthread_mutex",
    "readdir64": "readdir", "realloc": "malloc", "stat64": "stat", "statfs64": "statfs",
    "syscall": "pidfd_open", "truncate64": "truncate", "fdopendir": "opendir",
    "fstatat64": "fstatat", "unlinkat": "remove", "fstatfs64": "statfs", "openat64": "openat",
    "__open64_2": "open", "__openat64_2": "openat", "symlinkat": "symlink",
    "__read_chk": "read", "getdents64": "getdents64",
}

#: Why the other functions never fail in a test.
NEVER_FAILS = {
    "it has no way to fail": """
        __ctype_get_mb_cur_max __errno_location __fsetlocking __libc_single_threaded
        __libc_start_main __memcpy_chk __tls_get_addr ferror free getenv geteuid getpid getppid
        getuid memchr memcmp memcpy memmove memrchr memset strchr strcmp strcspn strerror
        strerrordesc_np strlen strncmp strrchr strspn strstr strtol time umask wcslen wmemchr
        wmemcpy""",
    "it does not return": "__fdelt_chk __stack_chk_fail _exit abort exit",
    "it fails only for an argument that is never passed: no stream, set, name or text": """
        __snprintf_chk closedir dirfd fileno sigaddset sigemptyset snprintf unsetenv""",
    "a program started with an effective user of its own ignores what is to be preloaded": """
        clearenv setenv setgid setgroups setuid""",
    "only a run whose output lies in a user's directory calls it; a test of those lets it fail":
        "mkdtemp",
    "only a relative path on the command line calls it; a test of those lets it fail": "getcwd",
    "only the C++ runtime calls it, from code that no run reaches": """
        _dl_find_object arc4random getentropy gettext ioctl sprintf""",
}


def symbols(path: Path, which: str) -> set[str]:
    """The functions that a program or library defines, or that it needs from elsewhere."""
    listed = subprocess.run(["nm", "-D", which, "--format=posix", path], capture_output=True,
                            text=True, check=True).stdout
    rows = [line.split() for line in listed.splitlines()]
    return {row[0].partition("@")[0] for row in rows if row[1] not in "wv"}


@pytest.fixture(name="needed")
def fixture_needed(installation: Installation) -> set[str]:
    """The functions that the installed program needs of the C library."""
    return symbols(installation.stage / QUENDIL.lstrip("/"), "--undefined-only")


def test_every_call_can_fail_or_has_a_reason_not_to(needed):
    explained = {name for names in NEVER_FAILS.values() for name in names.split()}
    assert explained.isdisjoint(KIND_OF)
    assert needed <= explained | set(KIND_OF)


def test_every_call_that_can_fail_does_so_in_a_test(needed):
    tested = {kind.call for kind in EVERY_KIND} | {kind.also for kind in EVERY_KIND}
    assert {KIND_OF[name] for name in needed & set(KIND_OF)} <= tested


def test_the_library_can_make_every_such_call_fail(needed):
    library = environment_path("QUENDIL_BEHAVE").with_name(Path(LIBRARY).name)
    assert needed & set(KIND_OF) <= symbols(library, "--defined-only")


def test_no_kind_is_without_a_call_of_the_program(needed):
    known = {KIND_OF[name] for name in needed & set(KIND_OF)}
    assert {kind.call for kind in EVERY_KIND} <= known
