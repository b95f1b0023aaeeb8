#include "common/file/IGCmnFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGShell.h"
#include "common/report/IGCmnMessage.h"

namespace {

int linkTo(const char* source, const char* destination, int overwrite) {
    const FdGuard readable(openForReading(source));
    if (!readable) {
        return 0;
    }
    if (overwrite == 1) {
        ::unlink(destination);
    }
    return ::symlink(source, destination) == 0 ? 1 : 0;
}

void reportRemoval(int status, int error, const char* command) {
    const bool call_failed = status == -1 && error != 0;
    IgCmnSysErr({.call = "system",
                 .error = call_failed ? error : status,
                 .text = call_failed ? nullptr : "rm command failed",
                 .what = "command",
                 .subject = command});
}

}  // namespace

int IgCmnFileOpen(IgCmnFileHandle* handle, const char* name, const char* mode) {
    IG_ASSERT_NOT_NULL(handle);
    IG_ASSERT_NOT_NULL(name);
    IG_ASSERT_NOT_NULL(mode);
    *handle = IgCmnFileHandle{};
    handle->stream = openStream(name, mode, mode[0] == 'r' ? 0 : O_NOFOLLOW);
    if (handle->stream == nullptr) {
        IgCmnSysErrPath("fopen", errno, name);
        return FILE_FAILED;
    }
    handle->name = IgCmnStrdup(&handle->pool, name);
    if (handle->name == nullptr) {
        IgCmnFileClose(handle);
        return -1;
    }
    handle->line_no = 1;
    return 0;
}

void IgCmnFileClose(IgCmnFileHandle* handle) {
    IG_ASSERT_NOT_NULL(handle);
    if (handle->stream != nullptr) {
        std::fclose(handle->stream);
    }
    IgCmnMemoryFree(&handle->pool, nullptr, 0);
    *handle = IgCmnFileHandle{};
}

int IgCmnFileFlush(IgCmnFileHandle* handle) {
    IG_ASSERT_NOT_NULL(handle);
    if (handle->stream != nullptr && std::fflush(handle->stream) != 0) {
        IgCmnSysErrPath("fflush", errno, handle->name);
        return FILE_FAILED;
    }
    return 0;
}

int IgCmnFileExists(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::stat(path, &st) == 0 ? 1 : 0;
}

int IgCmnFileIsTaken(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::lstat(path, &st) == 0 ? 1 : 0;
}

int IgCmnFileIsDir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? 1 : 0;
}

int IgCmnFileMkdir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    return makeDirectoryWithMode(path, 0777);
}

int makeDirectoryWithMode(const char* path, mode_t mode) {
    const UmaskGuard mask(0);
    if (::mkdir(path, mode) != 0) {
        IgCmnSysErrPath("mkdir", errno, path);
        return 1;
    }
    return 0;
}

int IgCmnFileCreateDirAllPath(const char* dirpath, mode_t mode) {
    IG_ASSERT_NOT_NULL(dirpath);
    if (IgCmnIsAbsPath(dirpath) == 0) {
        return -1;
    }
    LocalPool local;
    char* path = IgCmnStrdup(local.get(), dirpath);
    if (path == nullptr) {
        return -1;
    }
    for (char* slash = std::strchr(path + 1, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        if (IgCmnFileIsDir(path) == 0 && makeDirectoryWithMode(path, mode) != 0) {
            return -1;
        }
        *slash = '/';
    }
    return 0;
}

int IgCmnFileRemoveAll(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    constexpr const char* FORMAT = R"(/bin/rm -rf "%s" 2> /dev/null)";
    LocalPool local;
    const char* escaped = IgCmnStrShellEscape(local.get(), path);
    if (escaped == nullptr) {
        return 1;
    }
    const std::size_t size = std::strlen(FORMAT) + std::strlen(escaped);
    auto* command = newFromPool<char>(local.get(), size);
    if (command == nullptr) {
        return 1;
    }
    std::snprintf(command, size, FORMAT, escaped);
    const int status = runShell(command);
    if (status != 0) {
        reportRemoval(status, errno, command);
        return 1;
    }
    return 0;
}

int IgCmnFileCopy(const char* src, const char* dest, int overwrite, int link) {
    IG_ASSERT_NOT_NULL(src);
    IG_ASSERT_NOT_NULL(dest);
    if (link != 0) {
        return linkTo(src, dest, overwrite);
    }
    if (overwrite != 1 && IgCmnFileExists(dest) != 0) {
        return 0;
    }
    constexpr const char* FORMAT = R"(/bin/cp -p "%s" "%s" 2> /dev/null)";
    LocalPool local;
    const char* from = IgCmnStrShellEscape(local.get(), src);
    const char* to = IgCmnStrShellEscape(local.get(), dest);
    if (from == nullptr || to == nullptr) {
        return 0;
    }
    const std::size_t size = std::strlen(FORMAT) + std::strlen(from) + std::strlen(to);
    auto* command = newFromPool<char>(local.get(), size);
    if (command == nullptr) {
        return 0;
    }
    std::snprintf(command, size, FORMAT, from, to);
    return runShell(command) == 0 ? 1 : 0;
}

int IgCmnFileChdir(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    if (::chdir(path) != 0) {
        IgCmnSysErrPath("chdir", errno, path);
        return -1;
    }
    return 0;
}
