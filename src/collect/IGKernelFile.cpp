#include "collect/IGKernelFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "common/IGCmnFile.h"
#include "common/IGCmnMessage.h"
#include "common/IGGuards.h"
#include "common/IGRunState.h"

namespace {

// Largest content taken of one file, in bytes: some, like the kernel's own memory, never end.
constexpr std::size_t CONTENT_LIMIT = std::size_t{16} << 20;

bool writeAll(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, length);
        if (written == -1 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

bool copyContent(int from, int to) {
    std::array<char, 65536> bytes{};
    for (std::size_t total = 0; total < CONTENT_LIMIT;) {
        if (IgMainIsInterrupted() != 0) {
            return false;
        }
        const std::size_t wanted = std::min(bytes.size(), CONTENT_LIMIT - total);
        const ssize_t got = ::read(from, bytes.data(), wanted);
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got == 0 || (got == -1 && errno == EAGAIN)) {
            return true;  // the end, or nothing more for now
        }
        if (got == -1 || !writeAll(to, bytes.data(), static_cast<std::size_t>(got))) {
            return false;
        }
        total += static_cast<std::size_t>(got);
    }
    return true;
}

bool copyAttributes(int from, int to) {
    struct stat st = {};
    if (::fstat(from, &st) != 0) {
        return false;
    }
    const struct timespec times[] = {st.st_atim, st.st_mtim};
    return ::fchown(to, st.st_uid, st.st_gid) == 0 && ::fchmod(to, st.st_mode & 07777) == 0 &&
           ::futimens(to, times) == 0;
}

}  // namespace

bool kernelFileCopy(const char* source, const char* destination) {
    const FdGuard from(IgCmnFileOpenForReading(source));
    if (!from) {
        return false;
    }
    const FdGuard to(
        ::open(destination, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to) {
        return false;
    }
    if (copyContent(from.get(), to.get()) && copyAttributes(from.get(), to.get())) {
        return true;
    }
    if (::unlink(destination) != 0) {
        IgCmnSysErrPath("unlink", errno, destination);
    }
    return false;
}
