#include "collect/IGArcMake.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "collect/IGOutput.h"
#include "collect/IGResult.h"
#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnDir.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnProgress.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"
#include "process/IGCmnProcess.h"

namespace {

constexpr std::int32_t GZIP_WARNING = 2;  // exit code of gzip after a warning

// The paths of one archive.
struct Archive {
    memory_pool* memoryp;
    root_tbl& root;
    char* collected = nullptr;  // the output directory's path
    char* directory = nullptr;  // its name, relative to the base directory
    char* tar = nullptr;
    char* gz = nullptr;
    bool tar_nonzero = false;
    std::int32_t gzip_exit_cd = 0;  // of a gzip that failed
    FdGuard claimed{};              // the file that tar writes to
    bool own = false;               // only root can replace entries of its directory
};

// Changes the working directory until leave() or the end of the scope. The former one is kept as a
// descriptor, because it may be renamed or deleted meanwhile.
class WorkingDirectory {
  public:
    WorkingDirectory() = default;
    ~WorkingDirectory() {
        const ErrnoKeeper keeper;
        if (entered_ && ::fchdir(former_.get()) != 0) {
            entered_ = false;  // a failure is already being handled
        }
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool remember() {
        former_.reset(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!former_) {
            IgCmnSysErrPath("open", errno, ".");
        }
        return static_cast<bool>(former_);
    }
    bool enter(const char* path) {
        entered_ = IgCmnFileChdir(path) == 0;
        return entered_;
    }
    bool leave() {
        if (std::exchange(entered_, false) && ::fchdir(former_.get()) != 0) {
            IgCmnSysErrPlain("fchdir", errno);
            return false;
        }
        return true;
    }

  private:
    FdGuard former_;
    bool entered_ = false;
};

// The directory in which tar runs, because tar gets only the output's name. This is the base
// directory; where another user can replace the output there, it is a new directory in the
// program's data directory with a symlink to the output, both removed at the end of the scope.
class PackingPlace {
  public:
    PackingPlace() = default;
    ~PackingPlace() {
        const ErrnoKeeper keeper;
        if (link_ != nullptr && ::unlink(link_) != 0) {
            IgCmnSysErrPath("unlink", errno, link_);
        }
        if (made_ && ::unlinkat(AT_FDCWD, path_.data(), AT_REMOVEDIR) != 0) {
            IgCmnSysErrPath("rmdir", errno, path_.data());
        }
    }
    PackingPlace(const PackingPlace&) = delete;
    PackingPlace& operator=(const PackingPlace&) = delete;

    // Null after reporting.
    const char* find(memory_pool* memoryp, const root_tbl& root) {
        return root.output_held ? make(memoryp, root) : root.output_dir;
    }

  private:
    const char* make(memory_pool* memoryp, const root_tbl& root) {
        if (IgCmnGetKestrumFile(IgCmnGetKestrumOutputDir, ".packing_XXXXXX", path_.data(),
                                path_.size()) == 0) {
            return nullptr;
        }
        made_ = ::mkdtemp(path_.data()) != nullptr;
        if (!made_) {
            IgCmnSysErrPath("mkdtemp", errno, path_.data());
            return nullptr;
        }
        const char* output = pathInOutput(memoryp, root, root.output_path);
        const char* link = IgCmnStrCatDir(memoryp, path_.data(), root.output_name);
        if (output == nullptr || link == nullptr) {
            return nullptr;
        }
        if (::symlink(output, link) != 0) {
            IgCmnSysErrPath("symlink", errno, link);
            return nullptr;
        }
        link_ = link;
        return path_.data();
    }

    std::array<char, PATH_MAX + 1> path_{};
    const char* link_ = nullptr;
    bool made_ = false;
};

// --- copying the logs ---

// Whether a log is a FIFO, which is not copied: cp would wait until a process writes to it.
bool isFifo(const char* path) {
    struct stat st = {};
    return ::stat(path, &st) == 0 && S_ISFIFO(st.st_mode);
}

template <MsgNo NUMBER>
Result copyLog(memory_pool* memoryp, const char* collected, const char* name, bool only_if_there) {
    if (IgMainIsInterrupted() != 0) {
        return RESULT_INTERRUPTED;
    }
    std::array<char, PATH_MAX + 1> source{};
    const char* target = IgCmnStrCatDir(memoryp, collected, name);
    if (target == nullptr ||
        IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, name, source.data(), source.size()) == 0) {
        return RESULT_FAILED;
    }
    if (only_if_there && IgCmnFileExists(source.data()) == 0) {
        return RESULT_DONE;
    }
    if (isFifo(source.data()) || IgCmnFileCopy(source.data(), target, 0, 0) != 1) {
        IgCmnMsg<NUMBER>(static_cast<const char*>(source.data()));
    }
    return RESULT_DONE;
}

Result copyLogs(memory_pool* memoryp, const root_tbl& root) {
    const char* output = outputDirectory(memoryp, root);
    const char* collected = output == nullptr ? nullptr : pathInOutput(memoryp, root, output);
    if (collected == nullptr) {
        return RESULT_FAILED;
    }
    Result result = copyLog<ZEPA133_W>(memoryp, collected, RUN_LOG_NAME, false);
    if (result == RESULT_DONE) {
        result = copyLog<ZEPA142_W>(memoryp, collected, HISTORY_NAME, false);
    }
    if (result == RESULT_DONE) {
        result = copyLog<ZEPA142_W>(memoryp, collected, OLD_HISTORY_NAME, true);
    }
    return result;
}

// --- checking the archive ---

constexpr std::int64_t TAR_BLOCK = 512;
using TarBlock = std::array<unsigned char, TAR_BLOCK>;

// The size of a member in bytes, from the size field of its header (tar(5)): octal digits, or from
// 8 GiB on a binary number, which the first bit marks. -1 if it is neither.
std::int64_t tarMemberSize(const TarBlock& header) {
    constexpr std::size_t FIELD = 124;
    constexpr std::size_t LENGTH = 12;
    std::int64_t size = 0;
    if ((header[FIELD] & 0x80U) != 0) {
        for (std::size_t i = LENGTH - 8; i < LENGTH; ++i) {
            size = size << 8 | header[FIELD + i];
        }
        return size;
    }
    for (std::size_t i = 0; i < LENGTH && header[FIELD + i] != '\0' && header[FIELD + i] != ' ';
         ++i) {
        if (header[FIELD + i] < '0' || header[FIELD + i] > '7') {
            return -1;
        }
        size = size * 8 + (header[FIELD + i] - '0');
    }
    return size;
}

// Whether an archive is complete, as far as its headers show.
enum class TarState {
    WHOLE,
    TRUNCATED,
    UNKNOWN,  // it cannot be read, or does not begin with a tar header
};

bool isTarHeader(const TarBlock& block) {
    constexpr std::size_t MAGIC = 257;
    return std::memcmp(block.data() + MAGIC, "ustar", 5) == 0;
}

// Checks whether an archive was written to its end: its headers lead to a block of zeros.
TarState stateOfTar(const char* path) {
    const FdGuard fd(openForReading(path));
    TarBlock header{};
    std::int64_t at = 0;
    bool from_tar = false;
    ssize_t got = fd ? TAR_BLOCK : -1;
    while (got == TAR_BLOCK) {
        got = ::pread(fd.get(), header.data(), header.size(), at);
        if (got != TAR_BLOCK) {
            break;
        }
        if (std::all_of(header.begin(), header.end(), [](unsigned char c) { return c == 0; })) {
            return TarState::WHOLE;
        }
        from_tar = from_tar || (at == 0 && isTarHeader(header));
        const std::int64_t size = tarMemberSize(header);
        if (size < 0 || size > INT64_MAX - at - 2 * TAR_BLOCK) {
            break;
        }
        at += TAR_BLOCK + (size + TAR_BLOCK - 1) / TAR_BLOCK * TAR_BLOCK;
    }
    return got != -1 && from_tar ? TarState::TRUNCATED : TarState::UNKNOWN;
}

// --- making ---

void removePartial(const char* path) {
    if (IgCmnFileIsTaken(path) != 0 && std::remove(path) != 0) {
        IgCmnSysErrPath("remove", errno, path);
    }
}

bool alreadyExists(const char* path) {
    if (IgCmnFileIsTaken(path) == 0) {
        return false;
    }
    IgCmnMsg<ZEPA109_E>(path);
    return true;
}

bool choosePaths(Archive& archive) {
    memory_pool* memoryp = archive.memoryp;
    archive.collected = outputDirectory(memoryp, archive.root);
    const char* base = archiveBase(memoryp, archive.root);
    archive.tar = base == nullptr ? nullptr : tarName(memoryp, base);
    archive.gz = base == nullptr ? nullptr : compressedName(memoryp, base);
    archive.directory = archive.root.output_name;
    return archive.collected != nullptr && archive.tar != nullptr && archive.gz != nullptr;
}

// Whether only root can replace entries of the archive's directory.
bool liesInOwn(const Archive& archive) {
    Search name{};
    Source directory;
    if (!splitSearch(archive.tar, name, archive.memoryp)) {
        return false;
    }
    const bool there = sourceFollow(name.directory, directory);
    // A path that ends early is root's own as far as it was followed.
    return directory.own && (!there || isRootsOwn(directory.st));
}

// Creates the archive's file before tar does: tar would write through a symlink, or into a file,
// that another user puts there meanwhile, as any user can in /tmp. Returns false when the name is
// taken.
bool claimName(Archive& archive) {
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_NOCTTY | O_CLOEXEC;
    {
        const UmaskGuard mask(PRIVATE_MASK);  // even if the caller's mask removes every permission
        archive.claimed.reset(::open(archive.tar, FLAGS, 0600));
    }
    const int error = errno;
    if (!archive.claimed && error == EEXIST) {
        IgCmnMsg<ZEPA109_E>(static_cast<const char*>(archive.tar));
        return false;
    }
    archive.own = liesInOwn(archive);
    if (!archive.claimed && !archive.own) {
        IgCmnSysErrPath("open", error, archive.tar);
    }
    return true;  // any other error stops tar too, and tar reports it
}

// The file name for tar: that of the claimed file's descriptor where another user can replace the
// archive's name. Null when no file was claimed or memory runs out.
char* nameForTar(const Archive& archive) {
    if (archive.own) {
        return archive.tar;
    }
    constexpr std::size_t SIZE = 48;
    auto* name = archive.claimed ? newFromPool<char>(archive.memoryp, SIZE) : nullptr;
    if (name != nullptr) {
        std::snprintf(name, SIZE, "/proc/%d/fd/%d", ::getpid(), archive.claimed.get());
    }
    return name;
}

// Whether the archive's name still names the claimed file.
bool isClaimed(const Archive& archive) {
    struct stat claimed = {};
    struct stat there = {};
    return archive.own ||
           (::fstat(archive.claimed.get(), &claimed) == 0 && ::lstat(archive.tar, &there) == 0 &&
            claimed.st_dev == there.st_dev && claimed.st_ino == there.st_ino);
}

// Removes the file that tar has left, unless another one has taken its name.
void dropTar(const Archive& archive) {
    if (isClaimed(archive)) {
        removePartial(archive.tar);
    }
}

int runTar(const Archive& archive, std::int32_t* exit_cd) {
    // Create the named file, follow symlinks; the directory is relative to the working directory.
    // BusyBox has these options too, and stateOfTar knows the headers that they give.
    char program[] = "/bin/tar";
    char options[] = "cfh";
    char* name = nameForTar(archive);
    char* const argv[] = {program, options, name, archive.directory, nullptr};
    return name == nullptr ? EXEC_FAILED : IgCmnExecCommandWords(argv, exit_cd);
}

// Whether tar has left an archive, even if tar failed. A truncated one, from a full disk or a
// killed tar, does not count: the directory is then the last complete copy, and the name must be
// free for the next run. If the headers do not show whether it is complete, both are kept
// (`output_kept`).
bool isArchive(const Archive& archive) {
    if (!isClaimed(archive) || IgCmnFileGetSize(archive.tar) <= 0) {
        return false;
    }
    if (!archive.tar_nonzero) {
        return true;
    }
    const TarState state = stateOfTar(archive.tar);
    archive.root.output_kept = state != TarState::WHOLE;
    return state != TarState::TRUNCATED;
}

// Packs the output directory under the claimed name. Returns RESULT_DONE when the archive exists,
// else RESULT_INTERRUPTED or RESULT_FAILED, and the claimed file is removed.
Result pack(Archive& archive) {
    if (IgMainIsInterrupted() != 0) {
        dropTar(archive);
        return RESULT_INTERRUPTED;
    }
    if (!checkOutput(archive.root)) {
        dropTar(archive);
        IgMainSetRetCode(RETCODE_FAILED);
        return RESULT_FAILED;
    }
    std::int32_t exit_cd = 0;
    const int result = runTar(archive, &exit_cd);
    if (result == EXEC_INTERRUPTED) {
        dropTar(archive);
        return RESULT_INTERRUPTED;
    }
    // tar exits with a code of its own when a file changed while it was read; the archive is good.
    archive.tar_nonzero = result != EXEC_OK;
    if (result == EXEC_FAILED || !isArchive(archive)) {
        dropTar(archive);
        return RESULT_FAILED;
    }
    return RESULT_DONE;
}

// Makes the archive the result and removes the directory, unless the archive may be incomplete.
void replaceDirectoryByArchive(const Archive& archive) {
    const char* collected = archive.collected;
    IgCmnProgressStep();
    IgMainSetRetCode(RETCODE_ARCHIVE);
    if (archive.root.output_kept) {
        IgCmnMsg<ZEPA215_I>(collected);
    } else if (checkOutput(archive.root)) {
        IgCmnMsgInfo<ZEPA212_I>(collected);
        removeOutput(archive.root);  // reports; the archive is the result either way
    }
    IgCmnProgressStep();
}

// The name under which the compressed archive is reported: without "." and "..", if that still
// names the same file.
char* resultName(const Archive& archive) {
    struct stat made = {};
    struct stat named = {};
    char* name = IgArcMakeName(archive.memoryp, archive.root.output_file, 0);
    const bool same = name != nullptr && ::stat(archive.gz, &made) == 0 &&
                      ::stat(name, &named) == 0 && made.st_dev == named.st_dev &&
                      made.st_ino == named.st_ino;
    return same ? name : archive.gz;
}

// Makes the compressed archive the run's result.
void takeCompressed(const Archive& archive) {
    root_tbl& root = archive.root;
    root.output_file = IgCmnIsAbsPath(root.output_file) != 0 ? resultName(archive) : archive.gz;
    IgCmnProgressStep();
    IgMainSetRetCode(RETCODE_COMPRESSED);
}

// After a failed compression: removes the partial file if the ".tar" exists. If gzip had finished
// and removed the ".tar", the compressed archive is the only copy and becomes the result.
Result keepWhatIsThere(const Archive& archive, Result result) {
    struct stat st = {};
    if (IgCmnFileIsTaken(archive.tar) != 0) {
        if (isClaimed(archive)) {
            removePartial(archive.gz);
        }
    } else if (::lstat(archive.gz, &st) == 0 && st.st_size > 0) {
        takeCompressed(archive);
    }
    return result;
}

// gzip shortens a name that is too long for the file system, and the result would not be found.
bool isNameTooLong(const char* path) {
    struct stat st = {};
    if (::lstat(path, &st) == 0 || errno != ENAMETOOLONG) {
        return false;
    }
    IgCmnSysErrPath("lstat", ENAMETOOLONG, path);
    return true;
}

Result compress(Archive& archive) {
    const Result as_packed = archive.tar_nonzero ? RESULT_TAR_NONZERO : RESULT_DONE;
    if (alreadyExists(archive.gz) || IgMainIsInterrupted() != 0) {
        return as_packed;
    }
    if (isNameTooLong(archive.gz)) {
        return RESULT_NOT_COMPRESSED;
    }
    char program[] = "/bin/gzip";
    char* const argv[] = {program, archive.tar, nullptr};
    std::int32_t exit_cd = 0;
    switch (IgCmnExecCommandWords(argv, &exit_cd)) {
        case EXEC_NONZERO:
            archive.gzip_exit_cd = exit_cd;
            return keepWhatIsThere(archive, RESULT_NOT_COMPRESSED);
        case EXEC_FAILED:
            return keepWhatIsThere(archive, RESULT_NOT_COMPRESSED);
        case EXEC_INTERRUPTED:
            return keepWhatIsThere(archive, RESULT_INTERRUPTED);
        default:
            break;
    }
    if (IgCmnFileGetSize(archive.gz) <= 0) {
        return keepWhatIsThere(archive, RESULT_FAILED);
    }
    takeCompressed(archive);
    return RESULT_DONE;
}

Result make(Archive& archive) {
    PackingPlace place;
    WorkingDirectory working_directory;
    if (!working_directory.remember() || !choosePaths(archive)) {
        return RESULT_FAILED;
    }
    if (!claimName(archive)) {
        return RESULT_DONE;
    }
    const char* directory = place.find(archive.memoryp, archive.root);
    if (directory == nullptr || !working_directory.enter(directory)) {
        dropTar(archive);
        return RESULT_FAILED;
    }
    if (const Result result = pack(archive); result != RESULT_DONE) {
        return result;
    }
    replaceDirectoryByArchive(archive);
    return working_directory.leave() ? compress(archive) : RESULT_FAILED;
}

Result reportMaking(Result made, std::int32_t gzip_exit_cd) {
    switch (made) {
        case RESULT_DONE:
            return IgMainIsInterrupted() != 0 ? RESULT_INTERRUPTED : RESULT_DONE;
        case RESULT_INTERRUPTED:
            return RESULT_INTERRUPTED;
        case RESULT_FAILED:
            IgCmnMsg<ZEPA132_W>();
            return RESULT_FAILED;
        default:
            if (gzip_exit_cd != GZIP_WARNING) {
                IgCmnMsg<ZEPA135_W>();
            }
            IgCmnMsg<ZEPA306_I>();
            return RESULT_FAILED;
    }
}

}  // namespace

Result IgArcMakeOutput(memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    if (IgMainIsInterrupted() != 0) {
        return RESULT_INTERRUPTED;
    }
    if (!settleOutput(*root)) {
        return RESULT_FAILED;
    }
    const Result copied = copyLogs(memoryp, *root);
    if (copied != RESULT_DONE) {
        return copied;
    }
    Archive archive{.memoryp = memoryp, .root = *root};
    const Result made = make(archive);
    return reportMaking(made, archive.gzip_exit_cd);
}

Result IgArcMake(memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    Archive archive{.memoryp = memoryp, .root = *root};
    return make(archive);
}

char* IgArcMakeName(memory_pool* memoryp, const char* name, int flag) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(name);
    char* absolute = nullptr;
    if (IgCmnFileNormPath(memoryp, name, &absolute) != 0) {
        return nullptr;
    }
    return flag == 0 ? compressedName(memoryp, absolute) : tarName(memoryp, absolute);
}
