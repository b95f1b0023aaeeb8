#include "common/base/IGOpen.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "common/base/IGCmnSystem.h"
#include "common/base/IGGuards.h"
#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"

namespace {

// A lock file, if it is known which file that is.
struct LockIdentity {
    bool known;
    dev_t device;
    ino_t inode;
};
// Those that this process has opened.
std::array<LockIdentity, 2> lock_files{};

LockIdentity findLockFile(LockFile which) {
    std::array<char, PATH_MAX + 1> path{};
    struct stat st = {};
    const char* name = which == LOCK_RUN ? RUN_LOCK_NAME : HISTORY_LOCK_NAME;
    const bool known =
        IgCmnGetKestrumFile(IgCmnGetKestrumBinDir, name, path.data(), path.size()) != 0 &&
        ::stat(path.data(), &st) == 0;
    return {known, st.st_dev, st.st_ino};
}

int accessFlags(const char* mode) {
    switch (mode[0]) {
        case 'w':
            return O_WRONLY | O_CREAT | O_TRUNC;
        case 'a':
            return O_WRONLY | O_CREAT | O_APPEND;
        default:
            return O_RDONLY;
    }
}

// Opening never waits: a FIFO in a file's place would block the run, and so every other run that
// waits for a lock of this one.
int openFlags(const char* mode) {
    return accessFlags(mode) | O_NONBLOCK | O_NOCTTY;
}

// Opens a file by its name, and closes it again if it is not the file that was found.
int openSameFile(const char* path, const struct stat& found, int flags) {
    FdGuard fd(::open(path, flags, 0));
    struct stat st = {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
        return -1;
    }
    if (st.st_dev != found.st_dev || st.st_ino != found.st_ino) {
        errno = ENOTSUP;
        return -1;
    }
    return fd.release();
}

// Opens without waiting, but retries for up to a second while another process holds a lease on the
// file: the kernel asks that process to release it, and a file server does so at once.
int openLeased(const char* path, int flags) {
    constexpr long STEP = 50000;  // microseconds
    constexpr long TRIES = roundsIn<SECOND, STEP>();
    static long left_of_run = 10 * TRIES;  // 10 s in all: a user may hold leases on many files
    for (long left = TRIES;; --left) {
        const int fd = ::open(path, flags, 0);
        if (fd != -1 || errno != EWOULDBLOCK || left == 0 || left_of_run == 0 ||
            IgMainIsInterrupted() != 0) {
            return fd;
        }
        --left_of_run;
        struct timeval pause = {0, STEP};
        ::select(0, nullptr, nullptr, nullptr, &pause);
    }
}

// Opens exactly the file that was found, not a new file with the same name.
int openFound(int found, const struct stat& st, const char* path, int flags) {
    std::array<char, 32> same{};
    std::snprintf(same.data(), same.size(), "/proc/self/fd/%d", found);
    const int fd = openLeased(same.data(), flags);
    // A damaged system may have no /proc.
    return fd != -1 || errno != ENOENT ? fd : openSameFile(path, st, flags);
}

// Opens a file unless it is a lock file: closing a lock file again would drop this run's lock.
int openUnlessLock(const char* path, int flags) {
    const FdGuard found(::open(path, O_PATH | O_CLOEXEC));
    struct stat st = {};
    if (!found || ::fstat(found.get(), &st) != 0) {
        return -1;
    }
    if (isLockFile(st)) {
        errno = EACCES;
        return -1;
    }
    return openFound(found.get(), st, path, flags);
}

}  // namespace

void noteLockFile(LockFile which, int fd) {
    struct stat st = {};
    LockIdentity& noted = lock_files[which];
    noted.known = fd != -1 && ::fstat(fd, &st) == 0;
    noted.device = st.st_dev;
    noted.inode = st.st_ino;
}

bool isLockFile(const struct stat& st) {
    for (const LockFile which : {LOCK_RUN, LOCK_HISTORY}) {
        const LockIdentity lock = lock_files[which].known ? lock_files[which] : findLockFile(which);
        if (lock.known && lock.device == st.st_dev && lock.inode == st.st_ino) {
            return true;
        }
    }
    return false;
}

int openForReading(const char* path) {
    const FdGuard found(::open(path, O_PATH | O_CLOEXEC));
    struct stat st = {};
    if (!found || ::fstat(found.get(), &st) != 0) {
        return -1;
    }
    return reopenForReading(found.get(), st, path);
}

int reopenForReading(int found, const struct stat& st, const char* path) {
    if (!S_ISREG(st.st_mode)) {
        errno = ENOTSUP;
        return -1;
    }
    return openFound(found, st, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

std::FILE* openStream(const char* path, const char* mode, int flags) {
    // Only the owner may use it. Set here, because a default ACL of the directory overrides the
    // umask.
    constexpr mode_t PRIVATE_FILE = 0600;
    flags |= openFlags(mode) | O_CLOEXEC;
    FdGuard fd((flags & O_CREAT) != 0 ? ::open(path, flags, PRIVATE_FILE)
                                      : openUnlessLock(path, flags));
    if (!fd) {
        return nullptr;
    }
    std::FILE* stream = ::fdopen(fd.get(), mode);
    if (stream != nullptr) {
        static_cast<void>(fd.release());
    }
    return stream;
}

std::size_t readTextLine(std::FILE* stream, char* line, std::size_t size) {
    std::size_t length = 0;
    int c = 0;
    while (length + 1 < size && c != '\n' && (c = std::getc(stream)) != EOF) {
        line[length++] = static_cast<char>(c);
    }
    line[length] = '\0';
    return length;
}
