#include "tool/IGShow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/file/IGSource.h"
#include "tool/IGSecretFile.h"

namespace {

constexpr std::int64_t MIB = 1 << 20;
constexpr std::string_view HEADER = "==> ";

std::array<char, 65536> piece;

// Prints a line: `lead`, the path and `what`.
void say(Show& show, std::string_view lead, const char* path, std::string_view what) {
    toolWrite(show.out, lead);
    escapeName(show.out, path);
    toolWrite(show.out, what);
    toolWrite(show.out, "\n");
}

// --- finding and opening ---

// Follows a path as sourceFollow() does; a relative one begins in the current directory.
// @return false with errno set
bool follow(const char* path, Source& source) {
    std::array<char, std::size_t{PATH_MAX}> whole{};
    if (path[0] == '/') {
        return sourceFollow(path, source);
    }
    if (::getcwd(whole.data(), whole.size()) == nullptr) {
        return false;
    }
    const std::size_t length = std::strlen(whole.data());
    const int added = std::snprintf(whole.data() + length, whole.size() - length, "/%s", path);
    if (added < 0 || static_cast<std::size_t>(added) >= whole.size() - length) {
        errno = ENAMETOOLONG;
        return false;
    }
    return sourceFollow(whole.data(), source);
}

void sayNotFollowed(Show& show, std::string_view lead, const char* path, int error) {
    say(show, lead, path,
        error == LINK_REFUSED ? " lies behind a link that a user made, and was not opened"
                              : " is not there");
}

// Opens a file that may be printed, or prints the reason why it may not.
// @param error set to the errno of a failed open, which the caller reports, else to 0
// @return the descriptor, which the caller closes, or -1
int openFile(Show& show, std::string_view lead, const char* path, const Source& source,
             int& error) {
    error = 0;
    if (isSecretFile(path) || isSecretFile(source.path.data())) {
        say(show, lead, path, " is a file of secrets and was not opened");
        return -1;
    }
    if (!S_ISREG(source.st.st_mode)) {
        say(show, lead, path, " is not a regular file");
        return -1;
    }
    const int fd = sourceOpenForReading(source);
    error = fd == -1 ? errno : 0;
    return fd;
}

// --- contents ---

// Reads the next piece, of at most `most` bytes.
// @return its length; 0 at the end of the file or of the time; -1 with errno set
ssize_t readPiece(const Show& show, int fd, std::int64_t most) {
    const auto size = static_cast<std::size_t>(
        std::min<std::int64_t>(most, static_cast<std::int64_t>(piece.size())));
    while (!showIsOver(show)) {
        const ssize_t length = ::read(fd, piece.data(), size);
        if (length != -1 || errno != EINTR) {
            return length;
        }
    }
    return 0;
}

// Reads at most `most` bytes and drops them.
// @return how many were read
std::int64_t skip(const Show& show, int fd, std::int64_t most) {
    std::int64_t skipped = 0;
    for (ssize_t length = 1; length > 0 && skipped < most;) {
        length = readPiece(show, fd, most - skipped);
        skipped += std::max<ssize_t>(length, 0);
    }
    return skipped;
}

// The size of a file in bytes. A file of the kernel has size 0 in its status: it is read to its
// end.
std::int64_t sizeOf(const Show& show, int fd, const struct stat& st) {
    if (st.st_size != 0) {
        return st.st_size;
    }
    const std::int64_t size = skip(show, fd, INT64_MAX);
    ::lseek(fd, 0, SEEK_SET);
    return size;
}

// Skips to the last bytes of a file that is longer than the limit, and prints its size.
void skipToEnd(Show& show, int fd) {
    struct stat st = {};
    if (::fstat(fd, &st) != 0) {
        return;
    }
    const std::int64_t most = show.mib * MIB;
    const std::int64_t size = sizeOf(show, fd, st);
    if (size <= most) {
        return;
    }
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "(the last %d MiB of %lld bytes)\n", show.mib,
                  static_cast<long long>(size));
    toolWrite(show.out, text.data());
    if (st.st_size == 0) {
        skip(show, fd, size - most);
    } else {
        ::lseek(fd, size - most, SEEK_SET);
    }
}

void sayUnreadable(Show& show, int error) {
    toolWrite(show.out, "(reading failed: ");
    toolWrite(show.out, std::strerror(error));
    toolWrite(show.out, ")\n");
}

void printContent(Show& show, int fd) {
    skipToEnd(show, fd);
    Escape escape{.ends = LineEnd::FEED, .out = &show.out};
    std::int64_t left = show.mib * MIB;
    ssize_t length = 0;
    while (left > 0 && (length = readPiece(show, fd, left)) > 0) {
        escapeText(escape, {piece.data(), static_cast<std::size_t>(length)});
        toolFlush(show.out);
        left -= length;
    }
    escapeEnd(escape);
    if (length == -1) {
        sayUnreadable(show, errno);
    }
}

void printFile(Show& show, const char* path, const Source& source) {
    int error = 0;
    const FdGuard fd(openFile(show, HEADER, path, source, error));
    if (fd || error != 0) {
        say(show, HEADER, path, "");
        fd ? printContent(show, fd.get()) : sayUnreadable(show, error);
        toolWrite(show.out, "\n");
    }
    toolFlush(show.out);
}

// --- directories ---

struct ShownDirectory {
    SourceDirectory directory;
    const char* shown;  // its path as it was given
};

struct ShownFile {
    const ShownDirectory* directory;
    const char* path;   // without symlinks
    const char* shown;  // as the directory was given
};

// All regular files in a directory and below it, found without following a symlink.
class Tree {
  public:
    Tree(Show& show, const Source& top, const char* path) : show_(show) {
        failed_ = !addTop(top, path);
        for (const ShownDirectory& directory : walkList<ShownDirectory>(directories_)) {
            if (failed_ || showIsOver(show)) {
                return;
            }
            read(directory);
        }
    }

    void print() {
        const std::size_t count = files_ == nullptr ? 0 : files_->count;
        auto* sorted = newFromPool<ShownFile>(local_.get(), count + 1);
        if (failed_ || sorted == nullptr) {
            toolWrite(show_.out, "show: there is not enough memory\n");
            return;
        }
        ShownFile* end = sorted;
        for (const ShownFile& file : walkList<ShownFile>(files_)) {
            *end++ = file;
        }
        std::sort(sorted, end, [](const ShownFile& one, const ShownFile& other) {
            return std::strcmp(one.shown, other.shown) < 0;
        });
        for (const ShownFile* file = sorted; file != end && !showIsOver(show_); ++file) {
            printEntry(*file);
        }
    }

  private:
    // Copies a path with single slashes, and none at the end.
    const char* copyPath(const char* path) {
        char* copy = IgCmnStrdup(local_.get(), path);
        if (copy == nullptr) {
            return nullptr;
        }
        char* end = copy;
        for (const char* from = copy; *from != '\0'; ++from) {
            if (from[0] != '/' || (from[1] != '/' && from[1] != '\0')) {
                *end++ = *from;
            }
        }
        *end = '\0';
        return copy;
    }

    bool addTop(const Source& top, const char* path) {
        const char* real = IgCmnStrdup(local_.get(), top.path[0] == '\0' ? "/" : top.path.data());
        return addDirectory({{real, top.own && isRootsOwn(top.st)}, copyPath(path)});
    }

    bool addDirectory(const ShownDirectory& model) {
        auto* added = newFromPool<ShownDirectory>(local_.get());
        if (added == nullptr || model.shown == nullptr || model.directory.path == nullptr) {
            return false;
        }
        *added = model;
        return IgCmnListAppend(local_.get(), &directories_, added) != -1;
    }

    bool addFile(const ShownFile& model) {
        auto* added = newFromPool<ShownFile>(local_.get());
        if (added == nullptr || model.shown == nullptr || model.path == nullptr) {
            return false;
        }
        *added = model;
        return IgCmnListAppend(local_.get(), &files_, added) != -1;
    }

    void read(const ShownDirectory& directory) {
        const DirGuard dir(sourceOpenDirectory(directory.directory));
        if (!dir) {
            say(show_, HEADER, directory.shown, " is a directory that cannot be read");
            return;
        }
        while (const struct dirent* entry = ::readdir(dir.get())) {
            const char* name = entry->d_name;
            struct stat st = {};
            if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
                ::fstatat(::dirfd(dir.get()), name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                !add(directory, name, st)) {
                failed_ = true;
                return;
            }
        }
    }

    bool add(const ShownDirectory& directory, const char* name, const struct stat& st) {
        if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
            return true;
        }
        const SourceDirectory& above = directory.directory;
        const char* path = IgCmnStrCatDir(local_.get(), above.path, name);
        const char* shown = IgCmnStrCatDir(local_.get(), directory.shown, name);
        return S_ISREG(st.st_mode) ? addFile({&directory, path, shown})
                                   : addDirectory({{path, above.own && isRootsOwn(st)}, shown});
    }

    void printEntry(const ShownFile& file) {
        Source source;
        if (opener_.open(file.directory->directory, lastComponent(file.path), source)) {
            printFile(show_, file.shown, source);
        } else {
            sayNotFollowed(show_, HEADER, file.shown, errno);
        }
    }

    Show& show_;
    LocalPool local_;
    SourceOpener opener_;
    bool failed_ = false;  // memory ran out
    IgCmnListHeader* directories_ = nullptr;
    IgCmnListHeader* files_ = nullptr;
};

// --- values ---

void printLines(Show& show, const char* path, int fd) {
    Escape escape{.ends = LineEnd::FEED, .out = &show.out};
    bool begins = true;
    for (ssize_t length = 0; (length = readPiece(show, fd, INT64_MAX)) > 0;) {
        for (const char& character :
             std::string_view(piece.data(), static_cast<std::size_t>(length))) {
            if (begins) {
                escapeName(show.out, path);
                toolWrite(show.out, ":");
            }
            escapeText(escape, {&character, 1});
            begins = character == '\n';
        }
        toolFlush(show.out);
    }
    escapeEnd(escape);
    toolWrite(show.out, begins ? "" : "\n");
}

}  // namespace

bool showIsOver(const Show& show) {
    return *show.stopped != 0 || show.out.failed;
}

void showPath(Show& show, const char* path) {
    Source source;
    if (!follow(path, source)) {
        sayNotFollowed(show, HEADER, path, errno);
    } else if (S_ISDIR(source.st.st_mode)) {
        Tree(show, source, path).print();
    } else {
        printFile(show, path, source);
    }
    toolFlush(show.out);
}

void showValues(Show& show, const char* path, bool must_exist) {
    Source source;
    int error = 0;
    if (!follow(path, source)) {
        if (must_exist || errno == LINK_REFUSED) {
            sayNotFollowed(show, "", path, errno);
        }
    } else if (!S_ISDIR(source.st.st_mode)) {
        const FdGuard fd(openFile(show, "", path, source, error));
        if (fd) {
            printLines(show, path, fd.get());
        }
    }
    toolFlush(show.out);
}
