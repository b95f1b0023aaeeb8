#include "common/base/IGCmnTime.h"

#include <cstdio>
#include <ctime>

#include "common/base/IGAssert.h"

namespace {

struct tm localNow() {
    const std::time_t now = std::time(nullptr);
    struct tm parts = {};
    ::localtime_r(&now, &parts);
    return parts;
}

}  // namespace

void IgCmnGetTimeStr(char* buf) {
    IG_ASSERT_NOT_NULL(buf);
    const struct tm now = localNow();
    std::snprintf(buf, TIME_STR_SIZE, "%d/%02d/%02d %02d:%02d:%02d", now.tm_year + 1900,
                  now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
}

void IgCmnGetTimeStamp(char* buf) {
    IG_ASSERT_NOT_NULL(buf);
    const struct tm now = localNow();
    std::snprintf(buf, TIME_STAMP_SIZE, "%02d%02d%02d%02d%02d%02d", now.tm_year % 100,
                  now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
}
