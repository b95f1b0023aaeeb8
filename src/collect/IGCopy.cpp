#include "collect/IGCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "collect/IGAttributes.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

namespace {

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

// Reads the next bytes of a file. Returns their number, 0 at the end or when no data is there yet,
// -1 after a failure.
ssize_t readSome(int fd, char* bytes, std::size_t size) {
    for (;;) {
        const ssize_t got = ::read(fd, bytes, size);
        if (got != -1 || (errno != EINTR && errno != EAGAIN)) {
            return got;
        }
        if (errno == EAGAIN) {
            return 0;
        }
    }
}

Copied copyBytes(int from, int to, std::int64_t most, std::int64_t& bytes) {
    static std::array<char, std::size_t{256} << 10> block;
    bytes = 0;
    while (bytes < most) {
        if (IgMainIsInterrupted() != 0) {
            return Copied::FAILED;
        }
        const std::int64_t wanted = std::min<std::int64_t>(block.size(), most - bytes);
        const ssize_t got = readSome(from, block.data(), static_cast<std::size_t>(wanted));
        if (got == 0) {
            return Copied::ALL;
        }
        if (got == -1 || !writeAll(to, block.data(), static_cast<std::size_t>(got))) {
            return Copied::FAILED;
        }
        bytes += got;
    }
    return Copied::ALL;
}

// A file system without owners still stores content, mode and times. The owner is set first,
// because a change of owner clears the set-user-ID bits.
void copyAttributes(int to, const struct stat& source, const char* destination) {
    for (const Attribute attribute : {Attribute::OWNER, Attribute::MODE, Attribute::TIMES}) {
        giveAttribute(attribute, to, attributesOf(source), destination);
    }
}

// Whether the file has more data. The buffer is not one byte because some kernel files return whole
// records only.
bool hasMore(int fd) {
    std::array<char, 4096> bytes{};
    return readSome(fd, bytes.data(), bytes.size()) > 0;
}

void removeCopy(const NewFile& copy) {
    if (::unlink(copy.path) != 0) {
        IgCmnSysErrPath("unlink", errno, copy.path);
    }
}

}  // namespace

Copied copySource(const Source& source, const NewFile& destination, std::int64_t most,
                  std::int64_t& bytes) {
    bytes = 0;
    const FdGuard from(sourceOpenForReading(source));
    if (!from) {
        return Copied::FAILED;
    }
    const FdGuard to(::openat(destination.directory, destination.name,
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to) {
        return Copied::FAILED;
    }
    if (copyBytes(from.get(), to.get(), most, bytes) == Copied::ALL) {
        copyAttributes(to.get(), source.st, destination.path);
        // What a file has beyond its size was written later and is not wanted.
        const bool at_limit = bytes == most && most != source.st.st_size;
        return at_limit && hasMore(from.get()) ? Copied::TRUNCATED : Copied::ALL;
    }
    removeCopy(destination);
    return Copied::FAILED;
}

Collected copyContent(const root_tbl& root, const Source& source, int kernel_file,
                      const NewFile& destination, std::int64_t& bytes) {
    const std::int64_t size = source.st.st_size;
    if (kernel_file == 0) {
        const Copied copied = copySource(source, destination, size, bytes);
        return copied == Copied::FAILED ? Collected::FAILED : Collected::WHOLE;
    }
    const Copied copied = kernel_file == 1
                              ? copySource(source, destination, KERNEL_FILE_LIMIT, bytes)
                              : Copied::FAILED;
    if (copied == Copied::FAILED) {
        return Collected::FAILED;
    }
    if (bytes > size && !fitsLimit(root, bytes - size)) {
        removeCopy(destination);
        return Collected::OVER_LIMIT;
    }
    return copied == Copied::TRUNCATED ? Collected::TRUNCATED : Collected::WHOLE;
}
