#include "common/IGSource.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif

#include "common/IGCmnFile.h"
#include "common/IGKernelFileSystem.h"

namespace {

constexpr int LINKS_LIMIT = 40;  // as many as the kernel follows in one path
constexpr std::size_t DESCRIPTOR_PATH_SIZE = 32;

// One way along a path. `source` is where it has come to.
class Way {
  public:
    Way(Source& source, const char* ours, int links)
        : source_(source), ours_(ours), links_(links) {}

    bool go(const char* path) { return toRoot() && follow(path); }

  private:
    // Makes what was opened the place where the way stands. Takes the descriptor.
    bool arrive(int opened) {
        source_.fd.reset(opened);
        return opened != -1 && ::fstat(opened, &source_.st) == 0;
    }

    bool toRoot() {
        length_ = 0;
        source_.path[0] = '\0';
        return arrive(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    bool toParent() {
        while (length_ > 0 && source_.path[--length_] != '/') {
        }
        source_.path[length_] = '\0';
        return arrive(::openat(source_.fd.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    // Goes along a text: from the root when it begins with a slash, else from here.
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
        judge();
        return take(text.data(), last);
    }

    // Judges the directory that is left for one of its entries. What lies below one that is not
    // root's own does not count as root's own again.
    void judge() {
        const bool in_ours = liesInOurs();
        own_ = own_ && (in_ours || isRootsOwn(source_.st));
        source_.own = in_ours || own_;
    }

    // Goes on to an entry of the directory. Only a directory is entered with O_DIRECTORY, which has
    // an automounter mount it.
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
        const std::size_t length = std::strlen(name);
        if (length_ + 1 + length >= source_.path.size()) {
            errno = ENAMETOOLONG;
            return false;
        }
        source_.path[length_] = '/';
        std::memcpy(source_.path.data() + length_ + 1, name, length + 1);
        length_ += 1 + length;
        source_.st = st;
        source_.fd.reset(taken.release());
        return true;
    }

    bool takeLink(int link, const char* name, const struct stat& st) {
        if (links_-- == 0) {
            errno = ELOOP;
            return false;
        }
        const bool trusted = source_.own;
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

    // A link in proc leads to a file, whatever its text says: the file may have been deleted, or
    // have its name in another mount namespace.
    bool takeOfProc(const char* name) {
        if (!arrive(::openat(source_.fd.get(), name, O_PATH | O_CLOEXEC))) {
            return false;
        }
        std::array<char, DESCRIPTOR_PATH_SIZE> self{};
        std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", source_.fd.get());
        const ssize_t length =
            ::readlinkat(AT_FDCWD, self.data(), source_.path.data(), source_.path.size() - 1);
        length_ = length == -1 ? 0 : static_cast<std::size_t>(length);
        source_.path[length_] = '\0';
        source_.own = source_.own && isOfProc(source_.fd.get());
        return true;
    }

    static bool isOfProc(int fd) {
        struct statfs fs = {};
        return ::fstatfs(fd, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
    }

    [[nodiscard]] bool liesInOurs() const {
        if (ours_ == nullptr) {
            return false;
        }
        const std::size_t length = std::strlen(ours_);
        return std::strncmp(source_.path.data(), ours_, length) == 0 &&
               (source_.path[length] == '/' || source_.path[length] == '\0');
    }

    // Whether a link that a user may have made is followed to the place where the way now stands.
    [[nodiscard]] bool mayFollow(const struct stat& link) const {
        const bool owned = link.st_uid == 0 || link.st_uid == source_.st.st_uid;
        return owned &&
               kernelFileSystemOf(source_.fd.get(), source_.st.st_dev, source_.path.data()) == 0;
    }

    Source& source_;
    const char* ours_;
    int links_;               // how many more are followed
    bool own_ = true;         // as source_.own, but for what being in the output adds
    std::size_t length_ = 0;  // of the path
};

bool go(const char* path, Source& source, const char* ours, int links) {
    source.own = true;
    if (Way(source, ours, links).go(path)) {
        return true;
    }
    source.fd.reset();
    return false;
}

// Opens a path on which no component may be a link. `flags` are those of open(2).
int openWithoutLinks(const char* path, int flags) {
#ifdef SYS_openat2
    static bool is_there = true;  // kernels before 5.6, and some sandboxes, lack the call
    if (is_there) {
        struct open_how how = {};
        how.flags = static_cast<__u64>(flags | O_CLOEXEC);
        how.resolve = RESOLVE_NO_SYMLINKS;
        const long fd = ::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how);
        if (fd != -1 || (errno != ENOSYS && errno != EPERM)) {
            return static_cast<int>(fd);
        }
        is_there = false;
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

bool sourceFollow(const char* path, Source& source, const char* ours) {
    return go(path, source, ours, LINKS_LIMIT);
}

bool sourceOpenEntry(const SourceDirectory& directory, const char* path, Source& source) {
    source.fd.reset(directory.own ? ::open(path, O_PATH | O_CLOEXEC)
                                  : openWithoutLinks(path, O_PATH));
    source.own = directory.own;
    std::snprintf(source.path.data(), source.path.size(), "%s", path);
    return source.fd && ::fstat(source.fd.get(), &source.st) == 0;
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
    return openLookedAt(source.fd.get(), source.st, source.path.data());
}
