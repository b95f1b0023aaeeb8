#include "main/IGMainRoot.h"

#include <grp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "common/report/IGCmnMessage.h"

namespace {

constexpr const char* OWN_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// The only variables that are kept: the format of times and texts depends on them.
struct Kept {
    const char* name;
    bool is_zone;
};
constexpr Kept KEPT[] = {
    {"TZ", true},
    {"LANG", false},
    {"LANGUAGE", false},
    {"LC_ALL", false},
    {"LC_ADDRESS", false},
    {"LC_COLLATE", false},
    {"LC_CTYPE", false},
    {"LC_IDENTIFICATION", false},
    {"LC_MEASUREMENT", false},
    {"LC_MESSAGES", false},
    {"LC_MONETARY", false},
    {"LC_NAME", false},
    {"LC_NUMERIC", false},
    {"LC_PAPER", false},
    {"LC_TELEPHONE", false},
    {"LC_TIME", false},
};

// Accepts only values that name files of the C library in its own directories, because the library
// opens them. Of these names, only a zone's has a slash ("Europe/Berlin").
bool isHarmless(const char* value, bool is_zone) {
    constexpr const char* LETTERS =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    const bool file_elsewhere =
        std::strstr(value, "..") != nullptr || std::strspn(value, "/:") != 0;
    for (const char* c = value; *c != '\0'; ++c) {
        const bool slash = is_zone && *c == '/';
        if (std::strchr(LETTERS, *c) == nullptr && std::strchr("+-_.,:@<>=", *c) == nullptr &&
            !slash) {
            return false;
        }
    }
    return !file_elsewhere;
}

void makeEnvironment() {
    std::array<const char*, std::size(KEPT)> values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        const char* value = ::getenv(KEPT[i].name);
        values[i] = value != nullptr && isHarmless(value, KEPT[i].is_zone) ? value : nullptr;
    }
    ::clearenv();  // `values` stay valid: the kernel has stored them on the stack
    ::setenv("PATH", OWN_PATH, 1);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] != nullptr) {
            ::setenv(KEPT[i].name, values[i], 1);
        }
    }
}

}  // namespace

RootChange IgMainBecomeRoot() {
    if (::getuid() == 0 || ::geteuid() != 0) {
        return {};
    }
    makeEnvironment();
    // The user last: the other calls need its rights.
    if (::setgroups(0, nullptr) != 0) {
        return {"setgroups", errno};
    }
    if (::setgid(0) != 0) {
        return {"setgid", errno};
    }
    if (::setuid(0) != 0) {
        return {"setuid", errno};
    }
    return {};
}

int IgMainRootFailure(const RootChange& change) {
    if (change.failed_call == nullptr) {
        return 0;
    }
    IgCmnSysErrPlain(change.failed_call, change.error);
    return -1;
}
