#include "check/IGCheckSource.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/base/IGOpen.h"

namespace {

constexpr std::size_t MOST_INPUT = std::size_t{8} << 20U;
constexpr std::size_t BLOCK_SIZE = 65536;
constexpr std::size_t MOST_UNFINISHED = 1024;

}  // namespace

bool SourceText::open(const char* path) {
    fd_.reset(openForReading(path));
    if (!fd_) {
        error_ = errno == ENOTSUP ? "not a regular file" : std::strerror(errno);
        return false;
    }
    return true;
}

bool SourceText::fail(int error) {
    error_ = std::strerror(error);
    return false;
}

// Lines are read more than once, which a pipe does not allow: its content is kept in a file of
// memory.
bool SourceText::openStandardInput() {
    // Opened before it is known to be open, the file could get the number of the standard input.
    if (::fcntl(STDIN_FILENO, F_GETFD) == -1) {
        return fail(errno);
    }
    fd_.reset(::memfd_create("standard input", MFD_CLOEXEC));
    if (!fd_) {
        return fail(errno);
    }
    std::array<char, BLOCK_SIZE> block{};
    for (std::size_t size = 0;;) {
        const ssize_t got = ::read(STDIN_FILENO, block.data(), block.size());
        if (got <= 0) {
            return got == 0 || fail(errno);
        }
        if (::write(fd_.get(), block.data(), static_cast<std::size_t>(got)) != got) {
            return fail(errno);
        }
        size += static_cast<std::size_t>(got);
        if (size > MOST_INPUT) {
            error_ = "more than 8 MiB: name the file instead";
            return false;
        }
    }
}

std::FILE* SourceText::streamFrom(off_t offset) {
    FdGuard fd(::fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0));
    if (!fd || ::lseek(fd.get(), offset, SEEK_SET) == -1) {
        return nullptr;
    }
    std::FILE* stream = ::fdopen(fd.get(), "r");
    if (stream != nullptr) {
        static_cast<void>(fd.release());  // the stream owns it
    }
    return stream;
}

ssize_t SourceText::readAt(off_t offset, char* buffer, std::size_t size) const {
    return ::pread(fd_.get(), buffer, size, offset);
}

off_t SourceText::offsetOf(std::int32_t line) {
    if (line < found_.line) {
        found_ = {};
    }
    std::array<char, BLOCK_SIZE> block;  // NOLINT(cppcoreguidelines-pro-type-member-init): is read
    off_t at = found_.offset;
    while (found_.line < line) {
        const ssize_t got = readAt(at, block.data(), block.size());
        if (got <= 0) {
            return at;
        }
        const char* begin = block.data();
        const char* end = begin + got;
        while (found_.line < line) {
            const auto* feed = static_cast<const char*>(
                std::memchr(begin, '\n', static_cast<std::size_t>(end - begin)));
            if (feed == nullptr) {
                break;
            }
            begin = feed + 1;
            ++found_.line;
            found_.offset = at + (begin - block.data());
        }
        at += got;
    }
    return found_.offset;
}

std::string SourceText::line(std::int32_t number, std::size_t first, std::size_t most) {
    std::string text(most, '\0');
    const off_t begin = offsetOf(number);
    const ssize_t got = readAt(begin + static_cast<off_t>(first), text.data(), most);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text.substr(0, text.find('\n'));
}

std::int32_t SourceText::lastLine() {
    offsetOf(INT32_MAX);
    return found_.line;
}

std::string SourceText::unfinishedLine() {
    struct stat st = {};
    if (::fstat(fd_.get(), &st) != 0) {
        return "";
    }
    std::string tail(MOST_UNFINISHED, '\0');
    const off_t begin = std::max<off_t>(st.st_size - static_cast<off_t>(tail.size()), 0);
    const ssize_t got = readAt(begin, tail.data(), tail.size());
    tail.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return tail.substr(tail.rfind('\n') + 1);
}
