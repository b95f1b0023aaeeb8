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

#include "collect/IGCmnProcess.h"
#include "common/IGAssert.h"
#include "common/IGCmnFile.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnProgress.h"
#include "common/IGCmnStr.h"
#include "common/IGCmnSystem.h"
#include "common/IGGuards.h"
#include "common/IGRunState.h"
#include "ini/IGIniTable.h"

namespace {

// Exit code of a failed gzip, until it is reported. 2 is gzip's own code for a warning.
std::int32_t gzip_exit_cd;
constexpr std::int32_t GZIP_WARNING = 2;

// The paths of one archive.
struct Archive {
    memory_pool* memoryp;
    root_tbl& root;
    char* collected;  // the output directory
    char* directory;  // its name, relative to the base directory
    char* tar;
    char* gz;
    bool tar_nonzero;
};

// Another working directory for a while. It is left when the scope ends at the latest.
class WorkingDirectory {
  public:
    WorkingDirectory() = default;
    ~WorkingDirectory() {
        const ErrnoKeeper keeper;
        if (entered_ && ::chdir(former_.data()) != 0) {
            entered_ = false;  // already on the way out of a failure
        }
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool remember() { return IgCmnFileGetCwd(former_.data(), former_.size()) != nullptr; }
    bool enter(const char* path) {
        entered_ = IgCmnFileChdir(path) == 0;
        return entered_;
    }
    bool leave() {
        entered_ = false;
        return IgCmnFileChdir(former_.data()) == 0;
    }

  private:
    std::array<char, PATH_MAX + 1> former_{};
    bool entered_ = false;
};

// --- copying the logs ---

// cp would read from it until somebody writes to it.
bool isFifo(const char* path) {
    struct stat st = {};
    return ::stat(path, &st) == 0 && S_ISFIFO(st.st_mode);
}

template <MsgNo FAILED>
int copyLog(memory_pool* memoryp, const char* collected, const char* name, bool only_if_there) {
    if (IgMainIsInterrupted() != 0) {
        return ARC_INTERRUPTED;
    }
    std::array<char, PATH_MAX + 1> source{};
    const char* target = IgCmnStrCatDir(memoryp, collected, name);
    if (target == nullptr ||
        IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, name, source.data(), source.size()) == 0) {
        return -1;
    }
    if (only_if_there && IgCmnFileExists(source.data()) == 0) {
        return 0;
    }
    if (isFifo(source.data()) || IgCmnFileCopy(source.data(), target, 0, 0) != 1) {
        IgCmnMsg<FAILED>(static_cast<const char*>(source.data()));
    }
    return 0;
}

int copyLogs(memory_pool* memoryp, const root_tbl& root) {
    const char* collected = outputDirectory(memoryp, root);
    if (collected == nullptr) {
        return -1;
    }
    int result = copyLog<ZEPA133_W>(memoryp, collected, RUN_LOG_NAME, false);
    if (result == 0) {
        result = copyLog<ZEPA142_W>(memoryp, collected, HISTORY_NAME, false);
    }
    if (result == 0) {
        result = copyLog<ZEPA142_W>(memoryp, collected, OLD_HISTORY_NAME, true);
    }
    return result;
}

// --- a whole archive ---

constexpr std::int64_t TAR_BLOCK = 512;
using TarBlock = std::array<unsigned char, TAR_BLOCK>;

// The size field of a header: octal digits, or from 8 GiB on a binary number marked by its first
// bit. -1 for what is neither.
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

// Whether the archive was written to its end: from header to header one comes to a block of zeros.
bool isWholeTar(const char* path) {
    const FdGuard fd(IgCmnFileOpenForReading(path));
    TarBlock header{};
    for (std::int64_t at = 0;
         fd && ::pread(fd.get(), header.data(), header.size(), at) == TAR_BLOCK;) {
        if (std::all_of(header.begin(), header.end(), [](unsigned char c) { return c == 0; })) {
            return true;
        }
        const std::int64_t size = tarMemberSize(header);
        if (size < 0 || size > INT64_MAX - at - 2 * TAR_BLOCK) {
            return false;
        }
        at += TAR_BLOCK + (size + TAR_BLOCK - 1) / TAR_BLOCK * TAR_BLOCK;
    }
    return false;
}

// --- making ---

void removePartial(const char* path) {
    if (IgCmnFileExists(path) != 0 && std::remove(path) != 0) {
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
    const root_tbl& root = archive.root;
    archive.collected = outputDirectory(memoryp, root);
    char* directory = nullptr;
    char* file = nullptr;
    if (archive.collected == nullptr ||
        IgCmnFileSplitPath(root.output_file, &directory, &file, memoryp) != 0) {
        return false;
    }
    char* base = root.output_file;
    if (IgCmnIsAbsPath(base) == 0) {
        base = IgCmnStrCatDir(memoryp, root.output_dir, file == nullptr ? directory : file);
    }
    archive.tar = base == nullptr ? nullptr : IgCmnStrCat(memoryp, base, ".tar");
    archive.gz = archive.tar == nullptr ? nullptr : IgCmnStrCat(memoryp, archive.tar, ".gz");
    archive.directory = root.output_name;
    return archive.gz != nullptr;
}

// Takes the archive's name before tar does, which would write through a link, or into another's
// file, that somebody puts there meanwhile: in /tmp everybody may. False when it is taken already.
bool claimName(const char* path) {
    const UmaskGuard mask(PRIVATE_MASK);
    const FdGuard fd(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOCTTY | O_CLOEXEC, 0666));
    if (!fd && errno == EEXIST) {
        IgCmnMsg<ZEPA109_E>(path);
        return false;
    }
    return true;  // what else keeps the file from being made keeps tar from it, which tells
}

// Packs the output directory under the name that was claimed. 0 when the archive is there, else the
// result of IgArcMake.
int pack(Archive& archive) {
    if (IgMainIsInterrupted() != 0) {
        removePartial(archive.tar);
        return ARC_INTERRUPTED;
    }
    // Create the named file, follow links; the directory is relative to the one we are in.
    char program[] = "/bin/tar";
    char options[] = "cfh";
    char* const argv[] = {program, options, archive.tar, archive.directory, nullptr};
    std::int32_t exit_cd = 0;
    const int result = IgCmnExecCommandWords(argv, &exit_cd);
    if (result == EXEC_INTERRUPTED) {
        removePartial(archive.tar);
        return ARC_INTERRUPTED;
    }
    // A tar that met a file changing under it ends with a code of its own; the archive is good.
    if (result == EXEC_FAILED || IgCmnFileSizeIfThere(archive.tar) <= 0) {
        removePartial(archive.tar);
        return -1;
    }
    archive.tar_nonzero = result != EXEC_OK;
    return 0;
}

// The archive takes the directory's place. Of an archive that was cut short, by a full disk or a
// tar that died, the directory is the last whole copy: it stays, and is named.
void replaceDirectoryByArchive(const Archive& archive) {
    const char* collected = archive.collected;
    IgCmnProgressStep();
    IgMainSetRetCode(RETCODE_ARCHIVE);
    if (archive.tar_nonzero && !isWholeTar(archive.tar)) {
        IgCmnMsg<ZEPA215_I>(collected);
    } else {
        IgCmnMsgInfo<ZEPA212_I>(collected);
        IgCmnFileRemoveAll(collected);  // reports; the archive is the result either way
    }
    IgCmnProgressStep();
}

// The name under which the compressed archive is reported: without "." and "..", where that still
// means the same file.
char* resultName(const Archive& archive) {
    struct stat made = {};
    struct stat named = {};
    char* name = IgArcMakeName(archive.memoryp, archive.root.output_file, 0);
    const bool same = name != nullptr && ::stat(archive.gz, &made) == 0 &&
                      ::stat(name, &named) == 0 && made.st_dev == named.st_dev &&
                      made.st_ino == named.st_ino;
    return same ? name : archive.gz;
}

// Takes the compressed archive as the run's result. 0, or -1 when it is none.
int acceptCompressed(const Archive& archive) {
    if (IgCmnFileSizeIfThere(archive.gz) <= 0) {
        return -1;
    }
    root_tbl& root = archive.root;
    root.output_file = IgCmnIsAbsPath(root.output_file) != 0 ? resultName(archive) : archive.gz;
    IgCmnProgressStep();
    IgMainSetRetCode(RETCODE_COMPRESSED);
    return 0;
}

// After a compression that failed: its partial file is removed while the ".tar" is there. When gzip
// had finished its work and removed the ".tar", the compressed archive is all there is, and the
// result.
int keepWhatIsThere(const Archive& archive, int result) {
    if (IgCmnFileExists(archive.tar) != 0) {
        removePartial(archive.gz);
    } else {
        acceptCompressed(archive);
    }
    return result;
}

// gzip shortens a name that is too long for the file system, and nobody would find the result.
bool isNameTooLong(const char* path) {
    struct stat st = {};
    if (::lstat(path, &st) == 0 || errno != ENAMETOOLONG) {
        return false;
    }
    IgCmnSysErrPath("lstat", ENAMETOOLONG, path);
    return true;
}

int compress(const Archive& archive) {
    const int as_packed = archive.tar_nonzero ? ARC_TAR_NONZERO : 0;
    if (alreadyExists(archive.gz) || IgMainIsInterrupted() != 0) {
        return as_packed;
    }
    if (isNameTooLong(archive.gz)) {
        return ARC_NOT_COMPRESSED;
    }
    char program[] = "/bin/gzip";
    char* const argv[] = {program, archive.tar, nullptr};
    std::int32_t exit_cd = 0;
    switch (IgCmnExecCommandWords(argv, &exit_cd)) {
        case EXEC_NONZERO:
            gzip_exit_cd = exit_cd;
            return keepWhatIsThere(archive, ARC_NOT_COMPRESSED);
        case EXEC_FAILED:
            return keepWhatIsThere(archive, ARC_NOT_COMPRESSED);
        case EXEC_INTERRUPTED:
            return keepWhatIsThere(archive, ARC_INTERRUPTED);
        default:
            return acceptCompressed(archive) == 0 ? 0 : keepWhatIsThere(archive, -1);
    }
}

int reportMaking(int made) {
    switch (made) {
        case 0:
            return IgMainIsInterrupted() != 0 ? ARC_INTERRUPTED : 0;
        case ARC_INTERRUPTED:
            return ARC_INTERRUPTED;
        case -1:
            IgCmnMsg<ZEPA132_W>();
            return -1;
        default:
            if (gzip_exit_cd != GZIP_WARNING) {
                IgCmnMsg<ZEPA135_W>();
            }
            IgCmnMsg<ZEPA306_I>();
            gzip_exit_cd = 0;
            return -1;
    }
}

}  // namespace

int IgArcMakeOutput(memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    const int copied = copyLogs(memoryp, *root);
    return copied != 0 ? copied : reportMaking(IgArcMake(memoryp, root));
}

int IgArcMake(memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    WorkingDirectory working_directory;
    Archive archive{memoryp, *root, nullptr, nullptr, nullptr, nullptr, false};
    if (!working_directory.remember() || !choosePaths(archive)) {
        return -1;
    }
    if (!claimName(archive.tar)) {
        return 0;
    }
    if (!working_directory.enter(root->output_dir)) {
        removePartial(archive.tar);
        return -1;
    }
    if (const int result = pack(archive); result != 0) {
        return result;
    }
    replaceDirectoryByArchive(archive);
    return working_directory.leave() ? compress(archive) : -1;
}

char* IgArcMakeName(memory_pool* memoryp, const char* name, int flag) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(name);
    char* absolute = nullptr;
    if (IgCmnFileNormPath(memoryp, name, &absolute) != 0) {
        return nullptr;
    }
    return IgCmnStrCat(memoryp, absolute, flag == 0 ? ".tar.gz" : ".tar");
}
