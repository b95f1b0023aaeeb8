#include "common/report/IGSysErr.h"

#include <array>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "common/base/IGPrintable.h"

const char* IgCmnStrError(int error, int suppress) {
    if (suppress != 0) {
        return nullptr;
    }
    const char* current = std::setlocale(LC_MESSAGES, nullptr);
    if (current == nullptr) {
        return nullptr;
    }
    std::array<char, 256> locale{};  // the next setlocale may overwrite the returned name
    if (std::strlen(current) >= locale.size()) {
        return nullptr;
    }
    std::snprintf(locale.data(), locale.size(), "%s", current);
    if (std::setlocale(LC_MESSAGES, "C") == nullptr) {
        return nullptr;
    }
    const char* text = std::strerror(error);
    std::setlocale(LC_MESSAGES, locale.data());
    return text;
}

const char* shownSubject(const char* subject) {
    // No allocation: memory may be what failed.
    static std::array<char, std::size_t{4} * PATH_MAX> shown;
    IgCmnMsgPrintable(subject, shown.data(), shown.size());
    return shown.data();
}
