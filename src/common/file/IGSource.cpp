#include "common/file/IGSource.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif

#include "common/base/IGOpen.h"
#include "common/file/IGKernelFileSystem.h"

namespace {

constexpr int LINKS_LIMIT = 40;    // the kernel's limit for one path
constexpr int STEPS_LIMIT = 4096;  // names in one path and its symlinks: the longest path has half
constexpr std::size_t DESCRIPTOR_PATH_SIZE = 32;

// A walk along a path. `source` is the current position.
class PathWalk {
  public:
    PathWalk(Source& source, const char* ours, int links)
        : source_(source), ours_(ours), links_(links) {}

    bool go(const char* path) { return toRoot() && follow(path); }

  private:
    // Makes the opened file the current position. Owns the descriptor from here on.
    bool moveTo(int opened) {
        source_.fd.reset(opened);
        return opened != -1 && ::fstat(opened, &source_.st) == 0;
    }

    bool toRoot() {
        length_ = 0;
        source_.path[0] = '\0';
        return moveTo(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    bool toParent() {
        while (length_ > 0 && source_.path[--length_] != '/') {
        }
        source_.path[length_] = '\0';
        return moveTo(::openat(source_.fd.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    // Walks along a text: from the root when it begins with a slash, else from here.
    bool follow(const char* text) {
        if (*text == '/') {
            own_ = source_.own;
            if (!toRoot()) {
                return false;
            }
        }
        for (text += std::strspn(text, "/"); *text != '\0'; text += std::strspn(text, "/")) {
            const std::size_t length = std::strcspn(text, "/");
            const bool last = text[length] == '\0';
            if (!step({text, length}, last)) {
                return false;
            }
            text += length;
        }
        return true;
    }

    bool step(std::string_view name, bool last) {
        if (steps_-- == 0) {
            errno = ELOOP;
            return false;
        }
        if (!S_ISDIR(source_.st.st_mode)) {
            errno = ENOTDIR;
            return false;
        }
        if (name == ".") {
            return true;
        }
        if (name == "..") {
            return toParent();
        }
        std::array<char, NAME_MAX + 1> text{};
        if (name.size() >= text.size()) {
            errno = ENAMETOOLONG;
            return false;
        }
        name.copy(text.data(), name.size());
        checkDirectory();
        return take(text.data(), last);
    }

    // Checks the current directory before its entry is opened. Below a directory that is not root's
    // own, nothing counts as root's own again.
    void checkDirectory() {
        const bool in_ours = liesInOurs();
        own_ = own_ && (in_ours || isRootsOwn(source_.st));
        source_.own = in_ours || own_;
    }

    // Moves to an entry of the directory. Only directories are opened with O_DIRECTORY, which makes
    // an automounter mount them.
    bool take(const char* name, bool last) {
        const int here = source_.fd.get();
        int next = last ? -1 : ::openat(here, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (last || (next == -1 && errno == ENOTDIR)) {
            next = ::openat(here, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
        }
        FdGuard taken(next);
        struct stat st = {};
        if (!taken || ::fstat(next, &st) != 0) {
            return false;
        }
        if (S_ISLNK(st.st_mode)) {
            return takeLink(next, name, st);
        }
        if (!append(name)) {
            return false;
        }
        source_.st = st;
        source_.fd.reset(taken.release());
        return true;
    }

    bool append(const char* name) {
        const std::size_t length = std::strlen(name);
        if (length_ + 1 + length >= source_.path.size()) {
            errno = ENAMETOOLONG;
            return false;
        }
        source_.path[length_] = '/';
        std::memcpy(source_.path.data() + length_ + 1, name, length + 1);
        length_ += 1 + length;
        return true;
    }

    bool takeLink(int link, const char* name, const struct stat& st) {
        if (links_-- == 0) {
            errno = ELOOP;
            return false;
        }
        // A tool may have copied a user's symlink into the output: check it as at its original
        // path.
        const bool trusted = source_.own && (st.st_uid == 0 || !liesInOurs());
        if (!(isOfProc(link) ? takeOfProc(name) : takeText(link))) {
            return false;
        }
        if (!trusted && !mayFollow(st)) {
            errno = LINK_REFUSED;
            return false;
        }
        return true;
    }

    bool takeText(int link) {
        std::array<char, std::size_t{PATH_MAX}> text{};
        const ssize_t length = ::readlinkat(link, "", text.data(), text.size());
        if (length == -1 || static_cast<std::size_t>(length) == text.size()) {
            errno = length == -1 ? errno : ENAMETOOLONG;
            return false;
        }
        return follow(text.data());
    }

    // A symlink in proc leads to a file, regardless of its text. If no name leads to that file,
    // because it was deleted or is in another mount namespace, the symlink's path is used.
    bool takeOfProc(const char* name) {
        const bool ours = isOfOurNamespace(source_.fd.get());
        if (!moveTo(::openat(source_.fd.get(), name, O_PATH | O_CLOEXEC))) {
            return false;
        }
        if (ours && takeName()) {
            own_ = own_ && isOfProc(source_.fd.get());  // the directories above were not checked
            source_.own = source_.own && own_;
            return true;
        }
        source_.own = source_.own && S_ISDIR(source_.st.st_mode);
        return append(name);
    }

    // False when a directory of proc, or its parent, is that of a process with another mount
    // namespace.
    static bool isOfOurNamespace(int fd) {
        struct stat theirs = {};
        struct stat ours = {};
        return (::fstatat(fd, "ns/mnt", &theirs, 0) != 0 &&
                ::fstatat(fd, "../ns/mnt", &theirs, 0) != 0) ||
               (::stat("/proc/self/ns/mnt", &ours) == 0 && ours.st_dev == theirs.st_dev &&
                ours.st_ino == theirs.st_ino);
    }

    // Sets the path to the kernel's name of the file, if that name leads to the file.
    bool takeName() {
        std::array<char, DESCRIPTOR_PATH_SIZE> self{};
        std::array<char, std::size_t{PATH_MAX}> path{};
        struct stat st = {};
        std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", source_.fd.get());
        const ssize_t length = ::readlinkat(AT_FDCWD, self.data(), path.data(), path.size() - 1);
        if (length == -1 || ::lstat(path.data(), &st) != 0 || st.st_dev != source_.st.st_dev ||
            st.st_ino != source_.st.st_ino) {
            return false;
        }
        length_ = length == 1 ? 0 : static_cast<std::size_t>(length);  // "/" is stored as ""
        path[length_] = '\0';
        source_.path = path;
        return true;
    }

    static bool isOfProc(int fd) {
        struct statfs fs = {};
        return ::fstatfs(fd, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
    }

    [[nodiscard]] bool liesInOurs() const { return liesIn(ours_, source_.path.data()); }

    // Whether a symlink that a user may have made may be followed to the current position.
    [[nodiscard]] bool mayFollow(const struct stat& link) const {
        const bool owned = link.st_uid == 0 || link.st_uid == source_.st.st_uid;
        return owned &&
               kernelFileSystemOf(source_.fd.get(), source_.st.st_dev, source_.path.data()) == 0;
    }

    Source& source_;
    const char* ours_;
    int steps_ = STEPS_LIMIT;
    int links_;               // how many more may be followed
    bool own_ = true;         // source_.own without the exception for the output
    std::size_t length_ = 0;  // of the path
};

bool go(const char* path, Source& source, const char* ours, int links) {
    source.own = true;
    source.readable = false;
    if (PathWalk(source, ours, links).go(path)) {
        return true;
    }
    source.fd.reset();
    return false;
}

// Opens an entry of root's own directory for reading at once. It must be a regular file on the
// directory's device, and that no kernel file system: opening a file of those may have an effect.
bool openToRead(int directory, const char* name, dev_t device, Source& source) {
    struct stat found = {};
    if (::fstatat(directory, name, &found, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(found.st_mode) ||
        found.st_dev != device || isLockFile(found)) {
        return false;
    }
    constexpr int FLAGS = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC;
    source.fd.reset(::openat(directory, name, FLAGS));
    return source.fd && ::fstat(source.fd.get(), &source.st) == 0 &&
           source.st.st_dev == found.st_dev && source.st.st_ino == found.st_ino;
}

// What a later file in the same directory depends on: which directory it is, who can replace its
// entries, and the attributes that its copy in the output gets.
bool isUnchanged(const struct stat& now, const struct stat& before) {
    return now.st_dev == before.st_dev && now.st_ino == before.st_ino &&
           now.st_mode == before.st_mode && now.st_uid == before.st_uid &&
           now.st_gid == before.st_gid && now.st_mtim.tv_sec == before.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
}

// The directory above the file that was found last, if it and all above it are root's own and no
// symlink led there. The next item is often in the same directory: if none of these directories has
// changed, its path is not walked along name by name again.
class KnownDirectory {
  public:
    // Remembers the directory of a file that was found under a path.
    void remember(const char* path, const Source& source) {
        const std::size_t length = directoryLength(path);
        forget();
        if (!source.own || length == 0 || std::strcmp(path, source.path.data()) != 0) {
            return;
        }
        std::memcpy(path_.data(), path, length);
        path_[length] = '\0';
        const bool all = eachLevel([this](const char* directory, struct stat& level) {
            ++levels_;
            return ::lstat(directory, &level) == 0 && S_ISDIR(level.st_mode) && isRootsOwn(level);
        });
        if (!all) {
            return;
        }
        length_ = length;
        ordinary_ = source.st.st_dev == device() &&
                    kernelFileSystemOf(source.fd.get(), device(), nullptr) == 0;
    }

    void forget() {
        length_ = 0;
        levels_ = 0;
    }

    // Opens a file in the directory, if its path still leads there and the file is no symlink.
    bool open(const char* path, Source& source, bool to_read) {
        const std::size_t length = std::strlen(path);
        if (length_ == 0 || directoryLength(path) != length_ || length >= source.path.size() ||
            std::memcmp(path, path_.data(), length_) != 0 || !isThere()) {
            return false;
        }
        std::memcpy(source.path.data(), path, length + 1);
        source.own = true;
        source.readable = to_read && ordinary_ && openToRead(AT_FDCWD, path, device(), source);
        if (source.readable) {
            return true;
        }
        source.fd.reset(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        return source.fd && ::fstat(source.fd.get(), &source.st) == 0 &&
               !S_ISLNK(source.st.st_mode);
    }

  private:
    static constexpr std::size_t LEVELS = 16;  // the directories of a deeper path are not known

    // The length of the text before the last slash; 0 when no plain name follows it.
    static std::size_t directoryLength(const char* path) {
        const char* slash = std::strrchr(path, '/');
        const bool plain = slash != nullptr && slash[1] != '\0' && std::strcmp(slash, "/.") != 0 &&
                           std::strcmp(slash, "/..") != 0;
        return plain ? static_cast<std::size_t>(slash - path) : 0;
    }

    // Calls a function for the root and each directory below it on the path, until it returns
    // false. False then, and when there are too many.
    template <typename Function>
    bool eachLevel(Function function) {
        bool good = function("/", level_[0]);
        std::size_t number = 1;
        for (char* end = path_.data(); good && *end != '\0'; ++number) {
            end += 1 + std::strcspn(end + 1, "/");
            const char after = *end;
            *end = '\0';
            good = number < LEVELS && function(path_.data(), level_[number]);
            *end = after;
        }
        return good;
    }

    [[nodiscard]] bool isThere() {
        return eachLevel([](const char* directory, const struct stat& level) {
            struct stat st = {};
            return ::lstat(directory, &st) == 0 && isUnchanged(st, level);
        });
    }

    [[nodiscard]] dev_t device() const { return level_[levels_ - 1].st_dev; }

    std::array<char, std::size_t{PATH_MAX}> path_{};
    std::size_t length_ = 0;                   // of the path in bytes; 0 when none is known
    std::array<struct stat, LEVELS> level_{};  // the root, and each directory on the path
    std::size_t levels_ = 0;
    bool ordinary_ = false;  // in no kernel file system
};
KnownDirectory known_directory;
std::uint64_t walks = 0;  // sourceWalks

// Opens a path without symlinks in any component. `flags` are those of open(2).
int openWithoutLinks(const char* path, int flags) {
#ifdef SYS_openat2
    static bool available = true;  // kernels before 5.6, and some sandboxes, lack the call
    if (available) {
        struct open_how how = {};
        how.flags = static_cast<__u64>(flags | O_CLOEXEC);
        how.resolve = RESOLVE_NO_SYMLINKS;
        const long fd = ::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how);
        if (fd != -1 || (errno != ENOSYS && errno != EPERM)) {
            return static_cast<int>(fd);
        }
        available = false;
    }
#endif
    Source source;
    if (!go(path, source, nullptr, 0)) {
        return -1;
    }
    if ((flags & O_PATH) != 0) {
        return source.fd.release();
    }
    return ::openat(source.fd.get(), ".", flags | O_CLOEXEC);
}

}  // namespace

bool liesIn(const char* directory, const char* path) {
    if (directory == nullptr) {
        return false;
    }
    const std::size_t length = std::strlen(directory);
    return std::strncmp(path, directory, length) == 0 &&
           (path[length] == '/' || path[length] == '\0');
}

namespace {

bool followKnown(const char* path, Source& source, const char* ours, bool to_read) {
    if (ours == nullptr && known_directory.open(path, source, to_read)) {
        return true;
    }
    ++walks;
    if (!go(path, source, ours, LINKS_LIMIT)) {
        return false;
    }
    if (ours == nullptr) {
        known_directory.remember(path, source);
    }
    return true;
}

}  // namespace

bool sourceFollow(const char* path, Source& source, const char* ours) {
    return followKnown(path, source, ours, false);
}

bool sourceFollowToRead(const char* path, Source& source, const char* ours) {
    return followKnown(path, source, ours, true);
}

void sourceForget() {
    known_directory.forget();
}

std::uint64_t sourceWalks() {
    return walks;
}

bool SourceOpener::changeTo(const SourceDirectory& directory) {
    if (directory_ == &directory) {
        return true;
    }
    constexpr int FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;
    directory_ = nullptr;  // after a failure the next entry tries again
    fd_.reset();
    fd_.reset(directory.own ? ::open(directory.path, FLAGS)
                            : openWithoutLinks(directory.path, FLAGS));
    if (!fd_) {
        return false;
    }
    struct stat st = {};
    const bool ordinary = directory.own && ::fstat(fd_.get(), &st) == 0 &&
                          kernelFileSystemOf(fd_.get(), st.st_dev, nullptr) == 0;
    device_ = ordinary ? st.st_dev : 0;
    length_ = std::strlen(directory.path);
    length_ += directory.path[length_ - 1] == '/' ? 0 : 1;
    directory_ = &directory;
    return true;
}

bool SourceOpener::open(const SourceDirectory& directory, const char* name, Source& source) {
    source.fd.reset();
    if (!changeTo(directory)) {
        return false;
    }
    const std::size_t length = std::strlen(name);
    if (length_ + length >= source.path.size()) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(source.path.data(), directory.path, length_ - 1);
    source.path[length_ - 1] = '/';
    std::memcpy(source.path.data() + length_, name, length + 1);
    source.own = directory.own;
    source.readable = device_ != 0 && openToRead(fd_.get(), name, device_, source);
    return source.readable || openToFind(name, directory.own ? 0 : O_NOFOLLOW, source);
}

bool SourceOpener::openToFind(const char* name, int flags, Source& source) const {
    source.fd.reset(::openat(fd_.get(), name, O_PATH | O_CLOEXEC | flags));
    if (!source.fd || ::fstat(source.fd.get(), &source.st) != 0) {
        return false;
    }
    if (S_ISLNK(source.st.st_mode)) {
        errno = ELOOP;
        return false;
    }
    return true;
}

DIR* sourceOpenDirectory(const SourceDirectory& directory) {
    constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    FdGuard fd(directory.own ? ::open(directory.path, FLAGS)
                             : openWithoutLinks(directory.path, FLAGS));
    DIR* stream = fd ? ::fdopendir(fd.get()) : nullptr;
    if (stream != nullptr) {
        static_cast<void>(fd.release());
    }
    return stream;
}

int sourceOpenForReading(const Source& source) {
    return reopenForReading(source.fd.get(), source.st, source.path.data());
}
