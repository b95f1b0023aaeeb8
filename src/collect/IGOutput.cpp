#include "collect/IGOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "collect/IGCopy.h"
#include "common/IGCmnList.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnStr.h"
#include "common/IGKernelFileSystem.h"
#include "common/IGRunState.h"
#include "common/IGSource.h"
#include "ini/IGIniTable.h"

namespace {

// The sweep over the output.
struct Sweep {
    memory_pool* memoryp;
    const char* output;
    IgCmnListHeader* directories = nullptr;  // paths; grows while it is walked
    std::int64_t links = 0;                  // that are there
    bool judging = false;                    // whether links are judged one by one
};

void reportPath(const char* path) {
    LocalPool local;
    if (const char* shown = IgCmnStrPrintable(local.get(), path); shown != nullptr) {
        IgCmnMsg<ZEPA130_W>();
        IgCmnMsg<ZEPA151_E>("path", shown);
    }
}

// An entry of the output by the directory that was opened: by its path another one may be found
// meanwhile, where the output lies in a user's directory.
struct Entry {
    int directory;
    const char* name;
    const char* path;
};

bool removeEntry(const Entry& entry) {
    if (::unlinkat(entry.directory, entry.name, 0) == 0) {
        return true;
    }
    IgCmnSysErrPath("remove", errno, entry.path);
    return false;
}

void takeOut(const Entry& entry) {
    removeEntry(entry);
    reportPath(entry.path);
}

// Names the file that a link of the output leads to, or led to.
void reportGone(const char* link) {
    std::array<char, std::size_t{PATH_MAX}> source{};
    LocalPool local;
    const bool known = ::readlinkat(AT_FDCWD, link, source.data(), source.size() - 1) > 0;
    const char* shown = IgCmnStrPrintable(local.get(), known ? source.data() : link);
    if (shown != nullptr) {
        IgCmnMsg<ZEPA129_W>(shown);
    }
}

// Puts content in the place of a link whose file could be exchanged, or has no size of its own.
void judge(const Sweep& sweep, const Entry& entry) {
    const char* link = entry.path;
    Source source;
    if (!sourceFollow(link, source, sweep.output)) {
        takeOut(entry);
        return;
    }
    const int kernel_file = kernelFileSystemOf(source.fd.get(), source.st.st_dev, link);
    if (kernel_file == 0 && source.own) {
        return;
    }
    std::int64_t bytes = 0;
    if (!removeEntry(entry)) {
        return;
    }
    const Copied copied =
        copySource(source, link, kernel_file == 0 ? source.st.st_size : KERNEL_FILE_LIMIT, bytes);
    if (copied == Copied::FAILED || (copied == Copied::CUT && kernel_file != 0)) {
        reportPath(link);
    }
}

void sweepLink(Sweep& sweep, const Entry& link) {
    struct stat st = {};
    sweep.links += sweep.judging ? 0 : 1;
    if (::fstatat(link.directory, link.name, &st, 0) != 0) {
        if (!sweep.judging) {
            reportGone(link.path);
        }
    } else if (!S_ISREG(st.st_mode)) {
        takeOut(link);
    } else if (sweep.judging) {
        judge(sweep, link);
    }
}

unsigned char typeOf(const char* path, const struct dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type;
    }
    struct stat st = {};
    if (::lstat(path, &st) != 0) {
        return DT_REG;  // there is nothing to do
    }
    return static_cast<unsigned char>(IFTODT(st.st_mode));
}

bool sweepEntry(Sweep& sweep, const char* directory, int fd, const struct dirent& entry) {
    LocalPool local;
    const char* path = IgCmnStrCatDir(local.get(), directory, entry.d_name);
    if (path == nullptr) {
        return false;
    }
    switch (typeOf(path, entry)) {
        case DT_REG:
            return true;
        case DT_DIR:
            return makeList(path, &sweep.directories, sweep.memoryp) == 0;
        case DT_LNK:
            sweepLink(sweep, {fd, entry.d_name, path});
            return true;
        default:
            takeOut({fd, entry.d_name, path});
            return true;
    }
}

bool sweepAll(Sweep& sweep) {
    if (makeList(sweep.output, &sweep.directories, sweep.memoryp) != 0) {
        return false;
    }
    for (const char& directory : walkStrings(sweep.directories)) {
        const DirGuard dir(sourceOpenDirectory({&directory, false}));
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

// What has the output's name now.
enum class Place {
    OURS,
    LOST,
    UNKNOWN,  // reported; no user can bring that about
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

}  // namespace

bool noteOutput(root_tbl& root, const char* path) {
    struct stat st = {};
    Source source;
    if (::lstat(path, &st) != 0) {
        IgCmnSysErrPath("lstat", errno, path);
        return false;
    }
    if (!sourceFollow(path, source)) {
        IgCmnSysErrPath("open", errno, path);
        return false;
    }
    // Another user's may have taken its place just now.
    const bool same = source.st.st_dev == st.st_dev && source.st.st_ino == st.st_ino;
    if (!same || !isRootsOwn(st) || (st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        IgCmnSysErrPath("lstat", ESTALE, path);
        return false;
    }
    if (root.output_held) {
        ::close(root.output_fd);  // of one that has gone
    }
    root.output_path = path;
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
    const std::size_t length = std::strlen(root.output_path);
    if (std::strncmp(path, root.output_path, length) != 0 ||
        (path[length] != '/' && path[length] != '\0')) {
        return path;
    }
    constexpr std::size_t SIZE = 48;
    std::array<char, SIZE> output{};
    std::snprintf(output.data(), output.size(), "/proc/%d/fd/%d", ::getpid(), root.output_fd);
    return IgCmnStrCat(memoryp, output.data(), path + length);
}

bool settleOutput(const root_tbl& root) {
    Source source;
    if (!sourceFollow(root.output_path, source)) {
        IgCmnSysErrPath("open", errno, root.output_path);
        return true;  // what is there is packed as it is
    }
    const char* output = source.path.data();
    LocalPool local;
    Sweep sweep{.memoryp = local.get(), .output = output};
    if (!sweepAll(sweep)) {
        return false;
    }
    if (sweep.links <= run_state.links_made) {
        return true;
    }
    // Some link is not ours.
    LocalPool again;
    Sweep judging{.memoryp = again.get(), .output = output, .judging = true};
    return sweepAll(judging);
}
