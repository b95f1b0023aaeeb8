#include "companion/IGOutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t BUFFER_BYTES = std::size_t{64} * 1024;
constexpr mode_t MODE = 0600;  // what was collected is secret

}  // namespace

OutputFile::~OutputFile() {
    if (!temporary_.empty()) {
        ::unlinkat(directory_.get(), temporary_.c_str(), 0);
    }
}

bool OutputFile::fail() {
    error_ = std::strerror(errno);
    return false;
}

bool OutputFile::open(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    name_ = slash == std::string::npos ? path : path.substr(slash + 1);
    directory_.reset(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_) {
        return fail();
    }
    struct stat st = {};
    if (name_.empty() || name_ == "." || name_ == "..") {
        errno = EISDIR;
        return fail();
    }
    if (::fstatat(directory_.get(), name_.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return fail();
    }
    // A file without a name vanishes even if the program is killed.
    file_.reset(::openat(directory_.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, MODE));
    if (!file_ && !openNamed()) {
        return fail();
    }
    return ::fchmod(file_.get(), MODE) == 0 || fail();
}

// For file systems that have only files with names.
bool OutputFile::openNamed() {
    temporary_ = "." + name_ + "." + std::to_string(::getpid());
    file_.reset(::openat(directory_.get(), temporary_.c_str(),
                         O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, MODE));
    if (!file_) {
        temporary_.clear();
        return false;
    }
    return true;
}

bool OutputFile::write(std::string_view bytes) {
    buffer_ += bytes;
    return buffer_.size() < BUFFER_BYTES || flush();
}

bool OutputFile::flush() {
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return fail();
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    buffer_.clear();
    return true;
}

bool OutputFile::commit() {
    // Network file systems report a full disk here.
    if (!flush() || (::fsync(file_.get()) != 0 && errno != EINVAL)) {
        return false;
    }
    return (temporary_.empty() ? linkUnnamed() : renameNamed()) || fail();
}

bool OutputFile::linkUnnamed() {
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", file_.get());
    return ::linkat(AT_FDCWD, path.data(), directory_.get(), name_.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

bool OutputFile::renameNamed() {
    const int directory = directory_.get();
    if (::linkat(directory, temporary_.c_str(), directory, name_.c_str(), 0) == 0) {
        return true;  // the destructor removes the other name
    }
    if (errno == EEXIST || ::renameat2(directory, temporary_.c_str(), directory, name_.c_str(),
                                       RENAME_NOREPLACE) != 0) {
        return false;
    }
    temporary_.clear();
    return true;
}
