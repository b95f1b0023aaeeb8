#include "collect/IGOutput.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "collect/IGCopy.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnDir.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGKernelFileSystem.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

namespace {

// One pass over all entries of the output, for settleOutput().
struct Sweep {
    memory_pool* memoryp;
    const root_tbl& root;
    const char* place;                       // the output's path from pathInOutput
    const char* ours;                        // as for sourceFollow
    IgCmnListHeader* directories = nullptr;  // paths; grows while it is walked
};

// An entry of the output. Only root can replace it, but other users may be able to replace the
// output's path.
struct Entry {
    const char* path;
    const char* shown;
};

void reportPath(const Entry& entry) {
    IgCmnMsg<ZEPA130_W>();
    IgCmnMsg<ZEPA151_E>("path", entry.shown);
}

bool removeEntry(const Entry& entry) {
    if (std::remove(entry.path) == 0) {
        return true;
    }
    IgCmnSysErrPath("remove", errno, entry.shown);
    return false;
}

void removeAndReport(const Entry& entry) {
    removeEntry(entry);
    reportPath(entry);
}

// Reports the missing file that a symlink of the output leads to.
void reportMissing(const Entry& link) {
    std::array<char, std::size_t{PATH_MAX}> source{};
    LocalPool local;
    const bool known = ::readlinkat(AT_FDCWD, link.path, source.data(), source.size() - 1) > 0;
    const char* shown = known ? IgCmnStrPrintable(local.get(), source.data()) : link.shown;
    if (shown != nullptr) {
        IgCmnMsg<ZEPA129_W>(shown);
    }
}

// Replaces a symlink with the content of its file: another user could replace the file, or it is in
// a kernel file system.
void replaceLink(const Sweep& sweep, const Entry& link, const Source& source, int kernel_file) {
    if (!removeEntry(link)) {
        return;
    }
    std::int64_t bytes = source.st.st_size;
    Collected collected = Collected::OVER_LIMIT;
    if (fitsLimit(sweep.root, bytes)) {
        collected = copyContent(sweep.root, source, kernel_file, byPath(link.path), bytes);
    }
    if (collected == Collected::OVER_LIMIT) {
        reportOverLimit(link.shown, bytes);
    } else if (collected != Collected::WHOLE) {
        reportPath(link);
    }
}

// Checks a symlink as if it were collected now.
void checkAnyLink(const Sweep& sweep, const Entry& link) {
    Source source;
    if (!sourceFollow(link.path, source, sweep.ours)) {
        if (errno == LINK_REFUSED) {
            removeAndReport(link);
            return;
        }
        if (leadsNowhere(errno)) {
            reportMissing(link);
        } else {
            IgCmnSysErrPath("open", errno, link.shown);
        }
        // Where users can write, they choose what the symlink leads to when tar runs.
        if (!source.own) {
            removeEntry(link);
        }
        return;
    }
    const int kernel_file = kernelFileSystemOf(source.fd.get(), source.st.st_dev, link.path);
    if (!S_ISREG(source.st.st_mode)) {
        removeAndReport(link);
    } else if (kernel_file != 0 || !source.own) {
        replaceLink(sweep, link, source, kernel_file);
    }
}

// Checks a symlink that this run made: only root could replace its file.
void checkOwnLink(const Entry& link) {
    struct stat st = {};
    if (::stat(link.path, &st) != 0) {
        reportMissing(link);
    } else if (!S_ISREG(st.st_mode)) {
        removeAndReport(link);
    }
}

// Whether a symlink certainly needs no change, which is true of nearly all. This takes few calls;
// the other symlinks are checked in detail.
bool staysAsItIs(const Sweep& sweep, int directory, const char* name) {
    struct stat st = {};
    if (!sweep.root.tools_ran) {
        return ::fstatat(directory, name, &st, 0) == 0 && S_ISREG(st.st_mode);
    }
    if (sweep.root.output_held) {
        return false;  // no path in such an output is root's own
    }
    std::array<char, std::size_t{PATH_MAX}> target;
    Source source;
    if (::fstatat(directory, name, &st, AT_SYMLINK_NOFOLLOW) != 0 || st.st_uid != 0) {
        return false;  // a tool may have copied a user's symlink
    }
    const ssize_t length = ::readlinkat(directory, name, target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) == target.size() || target[0] != '/') {
        return false;
    }
    target[static_cast<std::size_t>(length)] = '\0';
    // The run's own links lead to their file without another link on the way. A tool's link may
    // lead to a user's link in the output, or to more links than tar can follow.
    return sourceFollow(target.data(), source) && source.own &&
           std::strcmp(target.data(), source.path.data()) == 0 && S_ISREG(source.st.st_mode) &&
           kernelFileSystemOf(source.fd.get(), source.st.st_dev, nullptr) == 0;
}

unsigned char typeOf(int directory, const struct dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type;
    }
    struct stat st = {};
    if (::fstatat(directory, entry.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return DT_REG;  // it has gone: nothing to do
    }
    return static_cast<unsigned char>(IFTODT(st.st_mode));
}

// The path under which an entry of the output is reported.
const char* shownPath(const Sweep& sweep, const char* path, memory_pool* memoryp) {
    const char* named =
        IgCmnStrCat(memoryp, sweep.root.output_path, path + std::strlen(sweep.place));
    return named == nullptr ? nullptr : IgCmnStrPrintable(memoryp, named);
}

bool sweepEntry(Sweep& sweep, const char* directory, int fd, const struct dirent& entry) {
    const unsigned char type = typeOf(fd, entry);
    if (type == DT_REG || (type == DT_LNK && staysAsItIs(sweep, fd, entry.d_name))) {
        return true;
    }
    LocalPool local;
    const char* path = IgCmnStrCatDir(local.get(), directory, entry.d_name);
    if (path == nullptr) {
        return false;
    }
    if (type == DT_DIR) {
        return makeList(path, &sweep.directories, sweep.memoryp) == 0;
    }
    const Entry swept = {path, shownPath(sweep, path, local.get())};
    if (swept.shown == nullptr) {
        return false;
    }
    if (type != DT_LNK) {
        removeAndReport(swept);
    } else if (sweep.root.tools_ran) {
        checkAnyLink(sweep, swept);
    } else {
        checkOwnLink(swept);
    }
    return true;
}

bool sweepAll(Sweep& sweep) {
    if (makeList(sweep.place, &sweep.directories, sweep.memoryp) != 0) {
        return false;
    }
    for (const char& directory : walkStrings(sweep.directories)) {
        const DirGuard dir(sourceOpenDirectory({&directory, true}));
        if (!dir) {
            IgCmnSysErrPath("opendir", errno, &directory);
            continue;
        }
        const auto take = [&](const struct dirent& entry) {
            return IgMainIsInterrupted() != 0 ||
                   sweepEntry(sweep, &directory, ::dirfd(dir.get()), entry);
        };
        if (readNames(dir.get(), &directory, nullptr, take) == -1) {
            return false;
        }
    }
    return true;
}

// What the output's path names now.
enum class Place {
    OURS,
    LOST,
    UNKNOWN,  // reported; no user can cause it
};

Place placeOf(const root_tbl& root) {
    struct stat st = {};
    if (root.output_path == nullptr) {
        return Place::LOST;
    }
    if (::lstat(root.output_path, &st) != 0) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) {
            return Place::LOST;
        }
        IgCmnSysErrPath("lstat", errno, root.output_path);
        return Place::UNKNOWN;
    }
    const bool ours =
        S_ISDIR(st.st_mode) && st.st_dev == root.output_device && st.st_ino == root.output_inode;
    return ours ? Place::OURS : Place::LOST;
}

// Whether a directory has the owner and mode of one that this run has just made.
bool isPrivate(const struct stat& st) {
    return st.st_uid == 0 && (st.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// Makes a directory private that has another owner or that others may enter. On a file system with
// no owners or a fixed one this fails, and the directory is accepted unchanged. Elsewhere another
// user has put it in the place of ours: it becomes root's, and is accepted if it is empty.
bool makePrivate(const Source& source, const char* path) {
    const DirGuard dir(sourceOpenDirectory({path, true}));
    struct stat st = {};
    if (!dir || ::fstat(::dirfd(dir.get()), &st) != 0 || st.st_ino != source.st.st_ino ||
        st.st_dev != source.st.st_dev) {
        return false;
    }
    if (::fchown(::dirfd(dir.get()), 0, 0) != 0 || ::fchmod(::dirfd(dir.get()), S_IRWXU) != 0) {
        return true;
    }
    bool empty = true;
    const auto take = [&](const struct dirent& /*entry*/) {
        empty = false;
        return true;
    };
    return readNames(dir.get(), path, nullptr, take) == 0 && empty;
}

}  // namespace

bool noteOutput(memory_pool* memoryp, root_tbl& root, const char* path) {
    struct stat st = {};
    Source source;
    char* normal = nullptr;
    if (IgCmnFileNormPath(memoryp, path, &normal) != 0) {
        return false;
    }
    if (::lstat(path, &st) != 0) {
        IgCmnSysErrPath("lstat", errno, path);
        return false;
    }
    if (!sourceFollow(path, source)) {
        IgCmnSysErrPath("open", errno, path);
        return false;
    }
    const bool same = source.st.st_dev == st.st_dev && source.st.st_ino == st.st_ino;
    if (!same || (!isPrivate(source.st) && !makePrivate(source, path))) {
        IgCmnSysErrPath("lstat", ESTALE, path);  // another directory has just replaced it
        return false;
    }
    if (root.output_held) {
        ::close(root.output_fd);  // of a directory that was lost
    }
    root.output_path = path;
    root.output_normal = normal;
    root.output_device = st.st_dev;
    root.output_inode = st.st_ino;
    root.output_held = !source.own;
    root.output_fd = source.own ? -1 : source.fd.release();
    return true;
}

bool outputIsOurs(const root_tbl& root) {
    return placeOf(root) == Place::OURS;
}

bool checkOutput(const root_tbl& root) {
    if (placeOf(root) != Place::LOST) {
        return true;
    }
    if (root.output_path != nullptr) {
        IgCmnMsg<ZEPA104_E>(root.output_path);
    }
    return false;
}

const char* pathInOutput(memory_pool* memoryp, const root_tbl& root, const char* path) {
    if (!root.output_held) {
        return path;
    }
    for (const char* output : {root.output_path, root.output_normal}) {
        if (liesIn(output, path)) {
            constexpr std::size_t SIZE = 48;
            std::array<char, SIZE> place{};
            std::snprintf(place.data(), place.size(), "/proc/%d/fd/%d", ::getpid(), root.output_fd);
            return IgCmnStrCat(memoryp, place.data(), path + std::strlen(output));
        }
    }
    return path;
}

bool settleOutput(const root_tbl& root) {
    LocalPool local;
    const char* place = pathInOutput(local.get(), root, root.output_path);
    Source source;
    if (place == nullptr) {
        return false;
    }
    sourceForget();
    if (!sourceFollow(place, source)) {
        IgCmnSysErrPath("open", errno, root.output_path);
        return true;  // the output is packed as it is
    }
    Sweep sweep{.memoryp = local.get(),
                .root = root,
                .place = place,
                .ours = root.output_held ? nullptr : source.path.data()};
    return sweepAll(sweep);
}

void removeOutput(const root_tbl& root) {
    if (!root.output_held) {
        IgCmnFileRemoveAll(root.output_path);
        return;
    }
    LocalPool local;
    IgCmnListHeader* names = nullptr;
    const char* place = pathInOutput(local.get(), root, root.output_path);
    if (place == nullptr) {
        return;
    }
    IgCmnDirReadNames(place, nullptr, &names, local.get());
    for (const char& name : walkStrings(names)) {
        if (const char* path = IgCmnStrCatDir(local.get(), place, &name); path != nullptr) {
            IgCmnFileRemoveAll(path);
        }
    }
    // The path may name something else by now: only an empty directory is removed.
    if (::unlinkat(AT_FDCWD, root.output_path, AT_REMOVEDIR) != 0) {
        IgCmnSysErrPath("rmdir", errno, root.output_path);
    }
}
