/*
 * fail_nth: a library to preload into the program, which has one of its C library calls fail.
 *
 *     FAIL_CALL    the kind of call, by the name that is passed to `fails` below
 *     FAIL_NTH     which call of that kind fails, counted from 1
 *     FAIL_ALL     set: that one and every later one
 *     FAIL_ALSO    a kind of which every call fails, with the same error number
 *     FAIL_ERRNO   the error number it fails with
 *     FAIL_CHILD   set: only calls of forked children count, else only those of the program itself
 *     FAIL_REPORT  an existing file of 4096 bytes. Its first two 32-bit words become the number of
 *                  calls seen and of calls failed; after them is the subject of the first failed
 *                  one, such as a path.
 *
 * The library acts in the program alone, and in its children until they become another program:
 * any other program that inherits the environment runs as if the library were not there. A failed
 * call does nothing, with one exception: a descriptor or stream that "could not be closed" is
 * closed, as the kernel does it. Writes to the standard output and the standard error are a kind of
 * their own, "terminal".
 */
#define _GNU_SOURCE
#define _LARGEFILE64_SOURCE
#undef _FORTIFY_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#define STREAM_ERROR 0x20 /* the error flag of a stream, as ferror checks it */

struct report {
    uint32_t seen;
    uint32_t failed;
    char subject[4096 - 2 * sizeof(uint32_t)];
};

static const char* call; /* null: nothing fails here */
static const char* also;
static uint32_t nth;
static int all;
static int error_number;
static int children_only;
static int in_child;
static struct report* report;

static int fails(const char* name, const char* subject) {
    if (call == NULL || in_child != children_only) {
        return 0;
    }
    if (also != NULL && strcmp(name, also) == 0) {
        errno = error_number;
        return 1;
    }
    if (strcmp(name, call) != 0) {
        return 0;
    }
    uint32_t number = __atomic_add_fetch(&report->seen, 1, __ATOMIC_SEQ_CST);
    if (number != nth && !(all && number > nth)) {
        return 0;
    }
    if (__atomic_fetch_add(&report->failed, 1, __ATOMIC_SEQ_CST) == 0 && subject != NULL) {
        size_t length = strnlen(subject, sizeof report->subject - 1);
        memcpy(report->subject, subject, length);
    }
    errno = error_number;
    return 1;
}

static int failsFor(const char* name, long number) {
    char digits[24];
    snprintf(digits, sizeof digits, "%ld", number);
    return fails(name, digits);
}

/* The kind of a call that writes to a stream. */
static const char* kindOf(const char* name, const FILE* stream) {
    return stream == stdout || stream == stderr ? "terminal" : name;
}

/* What the headers do not declare. */
extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);
extern int __vfprintf_chk(FILE* stream, int flag, const char* format, va_list arguments);
extern int __vsnprintf_chk(char* text, size_t size, int flag, size_t room, const char* format,
                           va_list arguments);
extern int __fprintf_chk(FILE* stream, int flag, const char* format, ...);
extern int __dprintf_chk(int descriptor, int flag, const char* format, ...);
extern int __open64_2(const char* path, int flags);
extern int __openat64_2(int directory, const char* path, int flags);
extern ssize_t __read_chk(int fd, void* bytes, size_t size, size_t room);
extern int fcntl64(int descriptor, int command, ...);

// clang-format off
#define EVERY_CALL(X)                                                                             \
    X(__vfprintf_chk) X(__vsnprintf_chk) X(chdir) X(close) X(close_range) X(dup2) X(execv)        \
    X(fchdir) X(fchmod) X(fchown) X(fclose) X(fcntl64) X(fdopen) X(fdopendir) X(fflush)           \
    X(fgetwc_unlocked) X(fnmatch) X(fork) X(fputc) X(fputs) X(fstat64) X(fstatat64) X(fstatfs64)  \
    X(futimens) X(fwrite) X(getc) X(getdents64) X(gethostname) X(inotify_add_watch)               \
    X(inotify_init1) X(kill) X(localtime_r) X(lstat64)                                            \
    X(mbstowcs) X(mkdir) X(open64) X(openat64) X(opendir) X(prctl) X(pread64)                     \
    X(pthread_mutex_destroy) X(pthread_mutex_init) X(pthread_mutex_lock) X(pthread_mutex_unlock)  \
    X(read) X(readdir64) X(readlinkat) X(remove) X(rename) X(select) X(setlocale) X(setpgid)      \
    X(sigaction) X(signal) X(sigprocmask) X(stat64) X(statfs64) X(symlink) X(syscall)             \
    X(symlinkat) X(truncate64)                                                                    \
    X(ungetwc) X(unlink) X(unlinkat) X(vdprintf) X(waitid) X(waitpid) X(wcrtomb) X(wcstombs)      \
    X(write)
// clang-format on

#define DECLARE(name) static __typeof__(name)* real_##name;
EVERY_CALL(DECLARE)

static void find(void* place, const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    memcpy(place, &found, sizeof found);
}

/* The function that ours replaces. Other libraries call us from their constructors, before ours has
 * run. */
#define NEXT(name) \
    (*(real_##name != NULL ? &real_##name : (find(&real_##name, #name), &real_##name)))

static int number(const char* name) {
    const char* text = getenv(name);
    return text == NULL ? 0 : atoi(text);
}

__attribute__((constructor)) static void start(void) {
#define FIND(name) find(&real_##name, #name);
    EVERY_CALL(FIND)
    const char* path = getenv("FAIL_REPORT");
    if (path == NULL || strcmp(program_invocation_short_name, "quendil") != 0) {
        return;
    }
    int descriptor = real_open64(path, O_RDWR | O_CLOEXEC);
    if (descriptor == -1) {
        abort();
    }
    report = mmap(NULL, sizeof *report, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    real_close(descriptor);
    if (report == MAP_FAILED) {
        abort();
    }
    nth = (uint32_t)number("FAIL_NTH");
    all = getenv("FAIL_ALL") != NULL;
    error_number = number("FAIL_ERRNO");
    children_only = getenv("FAIL_CHILD") != NULL;
    also = getenv("FAIL_ALSO");
    call = getenv("FAIL_CALL");
}

/* --- Memory --- */

void* malloc(size_t size) {
    return failsFor("malloc", (long)size) ? NULL : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return failsFor("malloc", (long)(count * size)) ? NULL : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    return failsFor("malloc", (long)size) ? NULL : __libc_realloc(block, size);
}

/* --- What fails with -1 --- */

#define FAILS_WITH(failure, kind, subject, type, name, parameters, arguments) \
    type name parameters {                                                    \
        return fails(kind, subject) ? failure : NEXT(name) arguments;         \
    }

#define FAILS_ON_PATH(name, parameters, arguments) \
    FAILS_WITH(-1, #name, path, int, name, parameters, arguments)

FAILS_ON_PATH(chdir, (const char* path), (path))
FAILS_WITH(-1, "fchdir", NULL, int, fchdir, (int fd), (fd))
FAILS_ON_PATH(mkdir, (const char* path, mode_t mode), (path, mode))
FAILS_ON_PATH(remove, (const char* path), (path))
FAILS_ON_PATH(rename, (const char* path, const char* to), (path, to))
FAILS_ON_PATH(unlink, (const char* path), (path))
FAILS_WITH(-1, "remove", path, int, unlinkat, (int dir, const char* path, int flags),
           (dir, path, flags))
FAILS_ON_PATH(execv, (const char* path, char* const argv[]), (path, argv))
FAILS_WITH(-1, "symlink", path, int, symlink, (const char* target, const char* path),
           (target, path))
FAILS_WITH(-1, "symlink", path, int, symlinkat, (const char* target, int dir, const char* path),
           (target, dir, path))
FAILS_WITH(-1, "truncate", path, int, truncate64, (const char* path, off64_t length),
           (path, length))
FAILS_WITH(-1, "stat", path, int, stat64, (const char* path, struct stat64* st), (path, st))
FAILS_WITH(-1, "lstat", path, int, lstat64, (const char* path, struct stat64* st), (path, st))
FAILS_WITH(-1, "statfs", path, int, statfs64, (const char* path, struct statfs64* fs), (path, fs))
FAILS_WITH(-1, "statfs", NULL, int, fstatfs64, (int fd, struct statfs64* fs), (fd, fs))
FAILS_WITH(-1, "fstatat", path, int, fstatat64,
           (int dir, const char* restrict path, struct stat64* restrict st, int flags),
           (dir, path, st, flags))
FAILS_WITH(-1, "readlinkat", path, ssize_t, readlinkat,
           (int dir, const char* restrict path, char* restrict text, size_t size),
           (dir, path, text, size))
FAILS_WITH(-1, "fnmatch", path, int, fnmatch, (const char* pattern, const char* path, int flags),
           (pattern, path, flags))

FAILS_WITH(-1, "close_range", NULL, int, close_range,
           (unsigned int first, unsigned int last, int flags), (first, last, flags))
FAILS_WITH(-1, "dup2", NULL, int, dup2, (int from, int to), (from, to))
FAILS_WITH(-1, "fchmod", NULL, int, fchmod, (int fd, mode_t mode), (fd, mode))
FAILS_WITH(-1, "fchown", NULL, int, fchown, (int fd, uid_t uid, gid_t gid), (fd, uid, gid))
FAILS_WITH(-1, "fstat", NULL, int, fstat64, (int fd, struct stat64* st), (fd, st))
FAILS_WITH(-1, "futimens", NULL, int, futimens, (int fd, const struct timespec times[2]),
           (fd, times))
FAILS_WITH(-1, "getdents64", NULL, ssize_t, getdents64, (int fd, void* entries, size_t size),
           (fd, entries, size))
FAILS_WITH(-1, "inotify_add_watch", path, int, inotify_add_watch,
           (int fd, const char* path, uint32_t mask), (fd, path, mask))
FAILS_WITH(-1, "inotify_init1", NULL, int, inotify_init1, (int flags), (flags))
FAILS_WITH(-1, "gethostname", NULL, int, gethostname, (char* name, size_t size), (name, size))
FAILS_WITH(-1, "pread", NULL, ssize_t, pread64, (int fd, void* bytes, size_t size, off64_t at),
           (fd, bytes, size, at))
FAILS_WITH(-1, "read", NULL, ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size))
ssize_t __read_chk(int fd, void* bytes, size_t size, size_t room) {
    (void)room;
    return read(fd, bytes, size);
}
FAILS_WITH(-1, fd == STDOUT_FILENO || fd == STDERR_FILENO ? "terminal" : "write", NULL, ssize_t,
           write, (int fd, const void* bytes, size_t size), (fd, bytes, size))

FAILS_WITH(-1, "setpgid", NULL, int, setpgid, (pid_t pid, pid_t group), (pid, group))
FAILS_WITH(-1, "select", NULL, int, select,
           (int count, fd_set* restrict in, fd_set* restrict out, fd_set* restrict other,
            struct timeval* restrict time),
           (count, in, out, other, time))
FAILS_WITH(-1, "sigaction", NULL, int, sigaction,
           (int signo, const struct sigaction* restrict action, struct sigaction* restrict old),
           (signo, action, old))
FAILS_WITH(-1, "sigprocmask", NULL, int, sigprocmask,
           (int how, const sigset_t* restrict mask, sigset_t* restrict old), (how, mask, old))
FAILS_WITH(-1, "waitid", NULL, int, waitid, (idtype_t type, id_t id, siginfo_t* info, int options),
           (type, id, info, options))
FAILS_WITH(-1, "waitpid", NULL, pid_t, waitpid, (pid_t pid, int* status, int options),
           (pid, status, options))

int kill(pid_t pid, int signo) {
    return failsFor("kill", signo) ? -1 : NEXT(kill)(pid, signo);
}

pid_t fork(void) {
    if (fails("fork", NULL)) {
        return -1;
    }
    pid_t pid = NEXT(fork)();
    in_child = in_child || pid == 0;
    return pid;
}

static mode_t modeArgument(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) == 0 ? 0 : va_arg(arguments, mode_t);
}

#define OPENS(name)                                                        \
    int name(const char* path, int flags, ...) {                           \
        va_list arguments;                                                 \
        va_start(arguments, flags);                                        \
        mode_t mode = modeArgument(flags, arguments);                      \
        va_end(arguments);                                                 \
        return fails("open", path) ? -1 : NEXT(open64)(path, flags, mode); \
    }
OPENS(open)
OPENS(open64)

#define OPENS_AT(name)                                                                    \
    int name(int directory, const char* path, int flags, ...) {                           \
        va_list arguments;                                                                \
        va_start(arguments, flags);                                                       \
        mode_t mode = modeArgument(flags, arguments);                                     \
        va_end(arguments);                                                                \
        return fails("openat", path) ? -1 : NEXT(openat64)(directory, path, flags, mode); \
    }
OPENS_AT(openat)
OPENS_AT(openat64)

int __open64_2(const char* path, int flags) {
    return open64(path, flags);
}

int __openat64_2(int directory, const char* path, int flags) {
    return openat64(directory, path, flags);
}

int fcntl64(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return failsFor("fcntl", command) ? -1 : NEXT(fcntl64)(descriptor, command, argument);
}

/* The program makes these two calls by their numbers. */
long syscall(long call_number, ...) {
    long words[6];
    va_list arguments;
    va_start(arguments, call_number);
    for (size_t i = 0; i < 6; ++i) {
        words[i] = va_arg(arguments, long);
    }
    va_end(arguments);
    if (call_number == SYS_pidfd_open && fails("pidfd_open", NULL)) {
        return -1;
    }
    if (call_number == SYS_openat2 && fails("openat", (const char*)words[1])) {
        return -1;
    }
    return NEXT(syscall)(call_number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

int prctl(int option, ...) {
    va_list arguments;
    va_start(arguments, option);
    unsigned long word = va_arg(arguments, unsigned long);
    va_end(arguments);
    return failsFor("prctl", option) ? -1 : NEXT(prctl)(option, word, 0UL, 0UL, 0UL);
}

int close(int descriptor) {
    int result = NEXT(close)(descriptor);
    return fails("close", NULL) ? -1 : result;
}

/* --- What fails with null --- */

FAILS_WITH(NULL, "fdopen", mode, FILE*, fdopen, (int fd, const char* mode), (fd, mode))
FAILS_WITH(NULL, "localtime", NULL, struct tm*, localtime_r,
           (const time_t* restrict now, struct tm* restrict parts), (now, parts))
FAILS_WITH(NULL, "opendir", NULL, DIR*, fdopendir, (int fd), (fd))
FAILS_WITH(NULL, "opendir", path, DIR*, opendir, (const char* path), (path))
FAILS_WITH(NULL, "readdir", NULL, struct dirent64*, readdir64, (DIR * directory), (directory))
FAILS_WITH(NULL, "setlocale", locale, char*, setlocale, (int category, const char* locale),
           (category, locale))

/* --- What fails in its own way --- */

#define FAILURE_IS_RESULT(kind, name, parameters, arguments) \
    FAILS_WITH(error_number, kind, NULL, int, name, parameters, arguments)

FAILURE_IS_RESULT("pthread_mutex", pthread_mutex_init,
                  (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
                  (mutex, attributes))
FAILURE_IS_RESULT("pthread_mutex", pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
FAILURE_IS_RESULT("pthread_mutex", pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
FAILURE_IS_RESULT("pthread_mutex", pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))

FAILS_WITH(SIG_ERR, "signal", NULL, sighandler_t, signal, (int signo, sighandler_t handler),
           (signo, handler))
FAILS_WITH((size_t)-1, "mbstowcs", text, size_t, mbstowcs,
           (wchar_t* restrict wide, const char* restrict text, size_t size), (wide, text, size))
FAILS_WITH((size_t)-1, "wcrtomb", NULL, size_t, wcrtomb,
           (char* restrict text, wchar_t wide, mbstate_t* restrict state), (text, wide, state))
FAILS_WITH((size_t)-1, "wcstombs", NULL, size_t, wcstombs,
           (char* restrict text, const wchar_t* restrict wide, size_t size), (text, wide, size))

/* --- Streams --- */

FAILS_WITH(EOF, kindOf("fflush", stream), NULL, int, fflush, (FILE * stream), (stream))
FAILS_WITH(EOF, kindOf("fputc", stream), NULL, int, fputc, (int c, FILE* stream), (c, stream))
FAILS_WITH(EOF, kindOf("fputs", stream), text, int, fputs,
           (const char* restrict text, FILE* restrict stream), (text, stream))
FAILS_WITH(0, kindOf("fwrite", stream), NULL, size_t, fwrite,
           (const void* restrict bytes, size_t size, size_t count, FILE* restrict stream),
           (bytes, size, count, stream))
FAILS_WITH(WEOF, "ungetwc", NULL, wint_t, ungetwc, (wint_t c, FILE* stream), (c, stream))

int fclose(FILE* stream) {
    int result = NEXT(fclose)(stream);
    return fails("fclose", NULL) ? EOF : result;
}

int getc(FILE* stream) {
    if (fails("getc", NULL)) {
        stream->_flags |= STREAM_ERROR;
        return EOF;
    }
    return NEXT(getc)(stream);
}

wint_t fgetwc_unlocked(FILE* stream) {
    if (fails("fgetwc", NULL)) {
        stream->_flags |= STREAM_ERROR;
        return WEOF;
    }
    return NEXT(fgetwc_unlocked)(stream);
}

int __vfprintf_chk(FILE* stream, int flag, const char* format, va_list arguments) {
    if (fails(kindOf("fprintf", stream), format)) {
        return -1;
    }
    return NEXT(__vfprintf_chk)(stream, flag, format, arguments);
}

int __fprintf_chk(FILE* stream, int flag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int result = __vfprintf_chk(stream, flag, format, arguments);
    va_end(arguments);
    return result;
}

int __vsnprintf_chk(char* text, size_t size, int flag, size_t room, const char* format,
                    va_list arguments) {
    if (fails("vsnprintf", format)) {
        return -1;
    }
    return NEXT(__vsnprintf_chk)(text, size, flag, room, format, arguments);
}

int __dprintf_chk(int descriptor, int flag, const char* format, ...) {
    (void)flag;
    if (fails("dprintf", format)) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    int result = NEXT(vdprintf)(descriptor, format, arguments);
    va_end(arguments);
    return result;
}
