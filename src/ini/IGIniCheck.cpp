#include "ini/IGIniCheck.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"

namespace {

constexpr std::uint16_t OWNER_WRITE = 0200;

}  // namespace

int IgCmnFileCheckMode(const char* path, std::uint16_t bits) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    if (::stat(path, &st) != 0) {
        return 0;
    }
    const mode_t wanted = S_ISDIR(st.st_mode) ? bits | S_IXUSR : bits;
    return (st.st_mode & wanted) == wanted ? 1 : 0;
}

int IgCmnIsAbsPathIgnoreDQ(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    path += std::strspn(path, "\"");
    return path[0] == '%' ? 1 : IgCmnIsAbsPath(path);
}

bool isWritableDirectory(const char* path, const char* shown) {
    if (IgCmnFileIsDir(path) == 0) {
        IgCmnMsg<ZEPA104_E>(shown);
        return false;
    }
    if (IgCmnFileCheckMode(path, OWNER_WRITE) == 0) {
        IgCmnMsg<ZEPA105_E>(shown);
        return false;
    }
    return true;
}
