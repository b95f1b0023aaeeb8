#include "collect/IGAttributes.h"

#include <unistd.h>

#include <cerrno>

#include "common/report/IGCmnMessage.h"

namespace {

constexpr mode_t MODE_BITS = 07777;

// Returns the call's result and sets `call` to its name for the report.
int give(Attribute attribute, int fd, const Attributes& source, const char** call) {
    switch (attribute) {
        case Attribute::MODE:
            *call = "chmod";
            return ::fchmod(fd, source.mode & MODE_BITS);
        case Attribute::OWNER:
            *call = "chown";
            return ::fchown(fd, source.owner, source.group);
        case Attribute::TIMES:
            break;
    }
    const struct timespec times[] = {source.accessed, source.modified};
    *call = "utime";
    return ::futimens(fd, times);
}

}  // namespace

bool hasAttribute(Attribute attribute, const struct stat& st, const Attributes& source) {
    const auto same = [](const struct timespec& a, const struct timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    switch (attribute) {
        case Attribute::MODE:
            return ((st.st_mode ^ source.mode) & MODE_BITS) == 0;
        case Attribute::OWNER:
            return st.st_uid == source.owner && st.st_gid == source.group;
        default:
            return same(st.st_atim, source.accessed) && same(st.st_mtim, source.modified);
    }
}

bool giveAttribute(Attribute attribute, int fd, const Attributes& source, const char* path) {
    const char* call = nullptr;
    if (give(attribute, fd, source, &call) == 0) {
        return true;
    }
    IgCmnSysErrPath(call, errno, path);
    return false;
}
