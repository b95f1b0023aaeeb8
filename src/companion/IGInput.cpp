#include "companion/IGInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/base/IGGuards.h"

namespace {

constexpr std::size_t BLOCK_BYTES = std::size_t{64} * 1024;

bool fail(std::string& why, const std::string& what) {
    why = "it cannot be read: " + what;
    return false;
}

// Opening a FIFO must not wait for another process to open it for writing. Reading from one waits,
// as from a pipe of the shell; without a writer, it is at its end.
bool openInput(const std::string& path, FdGuard& file, std::string& why) {
    file.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st = {};
    if (!file || ::fstat(file.get(), &st) != 0) {
        return fail(why, std::strerror(errno));
    }
    if (!S_ISREG(st.st_mode) && !S_ISFIFO(st.st_mode)) {
        return fail(why, S_ISDIR(st.st_mode) ? std::strerror(EISDIR) : "it is no file");
    }
    return ::fcntl(file.get(), F_SETFL, 0) == 0 || fail(why, std::strerror(errno));
}

}  // namespace

bool readInput(const std::string& path, std::size_t most, std::string& text, std::string& why) {
    FdGuard file;
    if (!openInput(path, file, why)) {
        return false;
    }
    text.clear();
    std::array<char, BLOCK_BYTES> block{};
    ssize_t got = 0;
    while ((got = ::read(file.get(), block.data(), block.size())) != 0) {
        if (got < 0 && errno != EINTR) {
            return fail(why, std::strerror(errno));
        }
        text.append(block.data(), static_cast<std::size_t>(got < 0 ? 0 : got));
        if (text.size() > most) {
            why = "it is too large: more than " + std::to_string(most) + " bytes";
            return false;
        }
    }
    return true;
}

int openDirectoryBelow(int root, std::string_view path) {
    constexpr int FLAGS = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    FdGuard directory(::openat(root, ".", FLAGS));
    while (directory && !path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string name(path.substr(0, slash));
        directory.reset(::openat(directory.get(), name.c_str(), FLAGS));
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return directory.release();
}
