#include "collect/IGDestination.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnMessage.h"

namespace {

// Readable, not only O_PATH: its attributes are set through the descriptor.
constexpr int DIRECTORY_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// The last directory for which recordComplete() was called.
struct CompleteDirectory {
    std::array<char, std::size_t{PATH_MAX}> path;
    std::size_t length;        // 0 when there is none
    std::size_t place_length;  // of the data directory's part; the rest is the source's path
    dev_t device;
    ino_t inode;
    std::uint64_t walks;  // sourceWalks() then
};
CompleteDirectory complete;

std::size_t directoryLength(const char* path) {
    return static_cast<std::size_t>(lastSlash(path) - path);
}

}  // namespace

bool Destination::isCurrent(const char* path, std::size_t length) const {
    return fd_ && length == current_length_ && std::memcmp(path, current_.data(), length) == 0;
}

// Length of the part of a directory's path that exists: the directories above the current one.
std::size_t Destination::readyLength(const char* path, std::size_t length) const {
    std::size_t ready = std::strlen(place_);
    if (!fd_) {
        return ready;
    }
    const std::size_t both = std::min(length, current_length_);
    std::size_t same = ready;
    while (same < both && path[same] == current_[same]) {
        if (path[same] == '/') {
            ready = same;
        }
        ++same;
    }
    const bool whole = same == both && (same == length || path[same] == '/') &&
                       (same == current_length_ || current_[same] == '/');
    return whole ? same : ready;
}

void Destination::makeCurrent(const char* path, std::size_t length) {
    std::memcpy(current_.data(), path, length);
    current_length_ = length;
}

bool Destination::resume(const char* place, const char* source) {
    const std::size_t place_length = std::strlen(place);
    if (source[0] != '/' || complete.length == 0 || place_length != complete.place_length ||
        std::memcmp(complete.path.data(), place, place_length) != 0) {
        return false;
    }
    const std::size_t source_length = directoryLength(source);
    if (complete.length != place_length + source_length ||
        std::memcmp(complete.path.data() + place_length, source, source_length) != 0) {
        return false;
    }
    FdGuard opened(::open(complete.path.data(), DIRECTORY_FLAGS | O_NOFOLLOW));
    struct stat st = {};
    if (!opened || ::fstat(opened.get(), &st) != 0 || st.st_dev != complete.device ||
        st.st_ino != complete.inode) {
        return false;
    }
    makeCurrent(complete.path.data(), complete.length);
    fd_.reset(opened.release());
    return true;
}

// Opens the part of the path that exists.
Destination::Prepared Destination::openReady(char* path, std::size_t ready) {
    if (fd_ && ready == current_length_) {
        return Prepared::READY;
    }
    const char after = path[ready];
    path[ready] = '\0';
    // The path of the data directory itself may be that of a descriptor, which is a symlink.
    const bool is_place = ready == std::strlen(place_);
    fd_.reset();
    fd_.reset(::open(path, DIRECTORY_FLAGS | (is_place ? 0 : O_NOFOLLOW)));
    if (!fd_) {
        IgCmnSysErrPath("open", errno, path);
    }
    path[ready] = after;
    return fd_ ? Prepared::READY : Prepared::NOT_OPENED;
}

// Makes the last component of a path, unless it is a directory, and opens it from its parent.
Destination::Prepared Destination::enter(char* path, std::size_t begin) {
    // No other call could use a longer path, and making it fails.
    const bool too_long = std::strlen(path) >= current_.size();
    int opened = too_long ? -1 : ::openat(fd_.get(), path + begin, DIRECTORY_FLAGS | O_NOFOLLOW);
    if (too_long || (opened == -1 && leadsNowhere(errno))) {
        if (IgCmnFileMkdir(path) != 0) {
            return Prepared::NOT_MADE;
        }
        forgetComplete();  // this changes the times of the directory above
        opened = ::openat(fd_.get(), path + begin, DIRECTORY_FLAGS | O_NOFOLLOW);
    }
    if (opened == -1) {
        IgCmnSysErrPath("open", errno, path);
        return Prepared::NOT_OPENED;
    }
    fd_.reset(opened);
    return Prepared::READY;
}

// Makes and opens the directories of a path that follow the part that exists.
Destination::Prepared Destination::walk(char* path, std::size_t ready, std::size_t length) {
    Prepared prepared = openReady(path, ready);
    for (std::size_t at = ready; prepared == Prepared::READY && at < length;) {
        const std::size_t begin = at + 1;
        at = begin + std::strcspn(path + begin, "/");
        const char after = path[at];
        path[at] = '\0';
        prepared = enter(path, begin);
        path[at] = after;
    }
    return prepared;
}

Destination::Prepared Destination::prepare(const char* path) {
    const std::size_t length = directoryLength(path);
    const bool current = isCurrent(path, length);
    if (first_) {
        was_complete_ = current;
        first_ = false;
    }
    if (current) {
        return Prepared::READY;
    }
    LocalPool local;
    char* copy = IgCmnStrndup(local.get(), path, length);
    const Prepared prepared =
        copy == nullptr ? Prepared::NOT_MADE : walk(copy, readyLength(path, length), length);
    if (prepared == Prepared::READY) {
        makeCurrent(path, length);  // it fits: a directory with a longer path cannot be opened
    } else {
        fd_.reset();
    }
    return prepared;
}

NewFile Destination::file(const char* path) const {
    return {fd_.get(), path + current_length_ + 1, path};
}

int Destination::directoryOf(const char* path) const {
    return isCurrent(path, directoryLength(path)) ? fd_.get() : -1;
}

bool Destination::wasComplete() const {
    return was_complete_ && complete.walks == sourceWalks();
}

void Destination::recordComplete(const char* path) const {
    const std::size_t length = directoryLength(path);
    struct stat st = {};
    if (wasComplete()) {
        return;
    }
    forgetComplete();
    if (!isCurrent(path, length) || length >= complete.path.size() ||
        ::fstat(fd_.get(), &st) != 0) {
        return;
    }
    std::memcpy(complete.path.data(), path, length);
    complete.path[length] = '\0';
    complete.length = length;
    complete.place_length = std::strlen(place_);
    complete.device = st.st_dev;
    complete.inode = st.st_ino;
    complete.walks = sourceWalks();
}

void Destination::forgetComplete() {
    complete.length = 0;
}
