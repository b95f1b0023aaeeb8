#include "common/IGCmnFile.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/IGAssert.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnStr.h"
#include "common/IGCmnSystem.h"
#include "common/IGGuards.h"
#include "common/IGInodeSet.h"
#include "common/IGRunState.h"
#include "common/IGShell.h"

namespace {

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

// Opening never waits: a FIFO in a file's place would hold up the run, and with it every other one
// that waits for a lock of this one.
int openFlags(const char* mode) {
    return accessFlags(mode) | O_NONBLOCK | O_NOCTTY;
}

// Adds the sizes of the files in one directory; its directories go to the list, each once.
std::int64_t sizeOfEntries(const char* directory, IgCmnListHeader** directories, InodeSet& entered,
                           memory_pool* memoryp) {
    LocalPool local;
    IgCmnListHeader* names = nullptr;
    IgCmnDirReadNames(directory, nullptr, &names, local.get());  // reports; what was read counts
    std::int64_t sum = 0;
    for (const char& name : walkStrings(names)) {
        char* path = IgCmnStrCatDir(memoryp, directory, &name);
        struct stat st = {};
        if (path == nullptr) {
            break;
        }
        if (::stat(path, &st) != 0) {
            IgCmnSysErrPath("stat", errno, path);
        } else if (!S_ISDIR(st.st_mode)) {
            sum += st.st_size;
        } else if (entered.add(st) == InodeSet::Added::NEW &&
                   IgCmnListAppend(memoryp, directories, path) == -1) {
            break;
        }
    }
    return sum;
}

int linkTo(const char* source, const char* destination, int overwrite) {
    const FdGuard readable(IgCmnFileOpenForReading(source));
    if (!readable) {
        return 0;
    }
    if (overwrite == 1) {
        ::unlink(destination);
    }
    return ::symlink(source, destination) == 0 ? 1 : 0;
}

void reportRemoval(int status, int error, const char* command) {
    const bool call_failed = status == -1 && error != 0;
    IgCmnSysErr({.call = "system",
                 .error = call_failed ? error : status,
                 .text = call_failed ? nullptr : "rm command failed",
                 .what = "command",
                 .subject = command});
}

// Opens a file by its name, provided that it still is the one that was looked at.
int openSameFile(const char* path, const struct stat& looked_at, int flags) {
    FdGuard fd(::open(path, flags, 0));
    struct stat st = {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
        return -1;
    }
    if (st.st_dev != looked_at.st_dev || st.st_ino != looked_at.st_ino) {
        errno = ENOTSUP;
        return -1;
    }
    return fd.release();
}

// Opens without waiting, but tries for up to a second while another process holds a lease on the
// file: it is asked to give that up, and a file server does so at once.
int openLeased(const char* path, int flags) {
    constexpr int TRIES = 20;
    static int left_of_run = 10 * TRIES;  // one user may hold leases on very many files
    for (int left = TRIES;; --left) {
        const int fd = ::open(path, flags, 0);
        if (fd != -1 || errno != EWOULDBLOCK || left == 0 || left_of_run == 0 ||
            IgMainIsInterrupted() != 0) {
            return fd;
        }
        --left_of_run;
        struct timeval pause = {0, 50000};
        ::select(0, nullptr, nullptr, nullptr, &pause);
    }
}

// Opens the very file that was looked at, not one that has been given its name since.
int openSeen(int looked_at, const struct stat& st, const char* path, int flags) {
    std::array<char, 32> same{};
    std::snprintf(same.data(), same.size(), "/proc/self/fd/%d", looked_at);
    const int fd = openLeased(same.data(), flags);
    // A machine in trouble may have no /proc.
    return fd != -1 || errno != ENOENT ? fd : openSameFile(path, st, flags);
}

// Opens a file unless it is a lock file: closing that again would drop our lock.
int openUnlessLock(const char* path, int flags) {
    const FdGuard looked_at(::open(path, O_PATH | O_CLOEXEC));
    struct stat st = {};
    if (!looked_at || ::fstat(looked_at.get(), &st) != 0) {
        return -1;
    }
    if (isLockFile(st)) {
        errno = EACCES;
        return -1;
    }
    return openSeen(looked_at.get(), st, path, flags);
}

}  // namespace

int IgCmnFileOpenForReading(const char* path) {
    const FdGuard looked_at(::open(path, O_PATH | O_CLOEXEC));
    struct stat st = {};
    if (!looked_at || ::fstat(looked_at.get(), &st) != 0) {
        return -1;
    }
    return openLookedAt(looked_at.get(), st, path);
}

int openLookedAt(int looked_at, const struct stat& st, const char* path) {
    if (!S_ISREG(st.st_mode)) {
        errno = ENOTSUP;
        return -1;
    }
    return openSeen(looked_at, st, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

std::FILE* IgCmnFileOpenStream(const char* path, const char* mode, int flags) {
    // Nobody else's mode: a default ACL of the directory would take the place of the umask.
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

std::size_t IgCmnFileReadLine(std::FILE* stream, char* line, std::size_t size) {
    std::size_t length = 0;
    int c = 0;
    while (length + 1 < size && c != '\n' && (c = std::getc(stream)) != EOF) {
        line[length++] = static_cast<char>(c);
    }
    line[length] = '\0';
    return length;
}

int IgCmnFileOpen(IgCmnFileHandle* handle, const char* name, const char* mode) {
    IG_ASSERT_NOT_NULL(handle);
    IG_ASSERT_NOT_NULL(name);
    IG_ASSERT_NOT_NULL(mode);
    *handle = IgCmnFileHandle{};
    handle->stream = IgCmnFileOpenStream(name, mode, mode[0] == 'r' ? 0 : O_NOFOLLOW);
    if (handle->stream == nullptr) {
        IgCmnSysErrPath("fopen", errno, name);
        return FILE_FAILED;
    }
    handle->name = IgCmnStrdup(&handle->pool, name);
    if (handle->name == nullptr) {
        IgCmnFileClose(handle);
        return -1;
    }
    handle->line_no = 1;
    return 0;
}

void IgCmnFileClose(IgCmnFileHandle* handle) {
    IG_ASSERT_NOT_NULL(handle);
    if (handle->stream != nullptr) {
        std::fclose(handle->stream);
    }
    IgCmnMemoryFree(&handle->pool, nullptr, 0);
    *handle = IgCmnFileHandle{};
}

int IgCmnFileFlush(IgCmnFileHandle* handle) {
    IG_ASSERT_NOT_NULL(handle);
    if (handle->stream != nullptr && std::fflush(handle->stream) != 0) {
        IgCmnSysErrPath("fflush", errno, handle->name);
        return FILE_FAILED;
    }
    return 0;
}

int concat_data(memory_pool* memoryp, char** destination, std::uint32_t* size, const char* source) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(destination);
    IG_ASSERT_NOT_NULL(size);
    IG_ASSERT_NOT_NULL(source);
    const std::size_t old_length = *destination == nullptr ? 0 : std::strlen(*destination);
    const std::size_t source_length = std::strlen(source);
    const std::size_t needed = old_length + source_length + 1;
    if (*destination == nullptr || *size < needed) {
        auto* grown = static_cast<char*>(
            IgCmnMemoryRealloc(memoryp, *destination, *destination == nullptr ? 0 : *size, needed));
        if (grown == nullptr) {
            return -1;
        }
        *destination = grown;
        *size = static_cast<std::uint32_t>(needed);
    }
    std::memcpy(*destination + old_length, source, source_length + 1);
    return 0;
}

int IgCmnFileExists(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::stat(path, &st) == 0 ? 1 : 0;
}

int IgCmnFileIsTaken(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::lstat(path, &st) == 0 ? 1 : 0;
}

int IgCmnFileIsDir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? 1 : 0;
}

int IgCmnFileMkdir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    return makeDirectoryWithMode(path, 0777);
}

int makeDirectoryWithMode(const char* path, mode_t mode) {
    const UmaskGuard mask(0);
    if (::mkdir(path, mode) != 0) {
        IgCmnSysErrPath("mkdir", errno, path);
        return 1;
    }
    return 0;
}

int IgCmnFileCreateDirAllPath(const char* dirpath, mode_t mode) {
    IG_ASSERT_NOT_NULL(dirpath);
    if (IgCmnIsAbsPath(dirpath) == 0) {
        return -1;
    }
    LocalPool local;
    char* path = IgCmnStrdup(local.get(), dirpath);
    if (path == nullptr) {
        return -1;
    }
    for (char* slash = std::strchr(path + 1, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        if (IgCmnFileIsDir(path) == 0 && makeDirectoryWithMode(path, mode) != 0) {
            return -1;
        }
        *slash = '/';
    }
    return 0;
}

int IgCmnFileRemoveAll(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    constexpr const char* FORMAT = R"(/bin/rm -rf "%s" 2> /dev/null)";
    LocalPool local;
    const char* escaped = IgCmnStrShellEscape(local.get(), path);
    if (escaped == nullptr) {
        return 1;
    }
    const std::size_t size = std::strlen(FORMAT) + std::strlen(escaped);
    auto* command = newFromPool<char>(local.get(), size);
    if (command == nullptr) {
        return 1;
    }
    std::snprintf(command, size, FORMAT, escaped);
    const int status = runShell(command);
    if (status != 0) {
        reportRemoval(status, errno, command);
        return 1;
    }
    return 0;
}

std::int64_t IgCmnFileGetSize(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    if (::stat(path, &st) != 0) {
        IgCmnSysErrPath("stat", errno, path);
        return 0;
    }
    if (!S_ISDIR(st.st_mode)) {
        return st.st_size;
    }
    LocalPool local;
    InodeSet entered(local.get());
    IgCmnListHeader* directories = nullptr;  // grows while it is walked
    char* first = IgCmnStrdup(local.get(), path);
    if (first == nullptr || entered.add(st) == InodeSet::Added::NO_MEMORY ||
        IgCmnListAppend(local.get(), &directories, first) == -1) {
        return 0;
    }
    std::int64_t sum = 0;
    for (const char& directory : walkStrings(directories)) {
        if (IgMainIsInterrupted() != 0) {
            break;
        }
        sum += sizeOfEntries(&directory, &directories, entered, local.get());
    }
    return sum;
}

std::int64_t IgCmnFileSizeIfThere(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    return IgCmnFileExists(path) != 0 ? IgCmnFileGetSize(path) : 0;
}

int IgCmnFileCheckMode(const char* path, std::uint16_t bits) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    if (::stat(path, &st) != 0) {
        return 0;
    }
    const mode_t wanted = S_ISDIR(st.st_mode) ? bits | S_IXUSR : bits;
    return (st.st_mode & wanted) == wanted ? 1 : 0;
}

int IgCmnFileCopy(const char* src, const char* dest, int overwrite, int link) {
    IG_ASSERT_NOT_NULL(src);
    IG_ASSERT_NOT_NULL(dest);
    if (link != 0) {
        return linkTo(src, dest, overwrite);
    }
    if (overwrite != 1 && IgCmnFileExists(dest) != 0) {
        return 0;
    }
    constexpr const char* FORMAT = R"(/bin/cp -p "%s" "%s" 2> /dev/null)";
    LocalPool local;
    const char* from = IgCmnStrShellEscape(local.get(), src);
    const char* to = IgCmnStrShellEscape(local.get(), dest);
    if (from == nullptr || to == nullptr) {
        return 0;
    }
    const std::size_t size = std::strlen(FORMAT) + std::strlen(from) + std::strlen(to);
    auto* command = newFromPool<char>(local.get(), size);
    if (command == nullptr) {
        return 0;
    }
    std::snprintf(command, size, FORMAT, from, to);
    return runShell(command) == 0 ? 1 : 0;
}

int IgCmnFileChdir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    if (::chdir(path) != 0) {
        IgCmnSysErrPath("chdir", errno, path);
        return -1;
    }
    return 0;
}

char* IgCmnFileGetCwd(char* buffer, std::size_t size) {
    IG_ASSERT_NOT_NULL(buffer);
    if (::getcwd(buffer, size) == nullptr) {
        IgCmnSysErrPlain("getcwd", errno);
        return nullptr;
    }
    return buffer;
}
