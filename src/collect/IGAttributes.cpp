#include "collect/IGAttributes.h"

#include <unistd.h>

#include <cerrno>

#include "common/report/IGCmnMessage.h"

namespace {

// Returns the call's result and sets `call` to its name for the report.
int give(Attribute attribute, int fd, const struct stat& source, const char** call) {
    switch (attribute) {
        case Attribute::MODE:
            *call = "chmod";
            return ::fchmod(fd, source.st_mode & 07777);
        case Attribute::OWNER:
            *call = "chown";
            return ::fchown(fd, source.st_uid, source.st_gid);
        case Attribute::TIMES:
            break;
    }
    const struct timespec times[] = {source.st_atim, source.st_mtim};
    *call = "utime";
    return ::futimens(fd, times);
}

}  // namespace

bool giveAttribute(Attribute attribute, int fd, const struct stat& source, const char* path) {
    const char* call = nullptr;
    if (give(attribute, fd, source, &call) == 0) {
        return true;
    }
    IgCmnSysErrPath(call, errno, path);
    return false;
}
