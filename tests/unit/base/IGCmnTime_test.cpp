#include "common/base/IGCmnTime.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <string>

#include "../../support/wrapped_calls.h"

namespace {

using ::testing::MatchesRegex;

TEST(IGCmnTime, WritesADateAsFourDigitYearMonthDayAndTime) {
    std::array<char, TIME_STR_SIZE> text{};
    IgCmnGetTimeStr(text.data());
    EXPECT_THAT(text.data(),
                MatchesRegex("[0-9]{4}/[01][0-9]/[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]"));
}

TEST(IGCmnTime, WritesAStampOfTwelveDigits) {
    std::array<char, TIME_STAMP_SIZE> stamp{};
    IgCmnGetTimeStamp(stamp.data());
    EXPECT_THAT(stamp.data(), MatchesRegex("[0-9]{12}"));
}

TEST(IGCmnTime, GivesLocalTime) {
    ::setenv("TZ", "XYZ-12", 1);
    ::tzset();
    const FixedClock clock(1700000040);  // 22:14:00 UTC of the day before
    std::array<char, TIME_STR_SIZE> text{};
    IgCmnGetTimeStr(text.data());
    EXPECT_STREQ(text.data(), "2023/11/15 10:14:00");
    std::array<char, TIME_STAMP_SIZE> stamp{};
    IgCmnGetTimeStamp(stamp.data());
    EXPECT_STREQ(stamp.data(), "231115101400");
    ::unsetenv("TZ");
    ::tzset();
}

TEST(IGCmnTime, WritesBothEndsOfEveryUnit) {
    struct Case {
        std::time_t now;
        const char* text;
        const char* stamp;
    };
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    for (const Case& c : {
             Case{0, "1970/01/01 00:00:00", "700101000000"},
             Case{946684799, "1999/12/31 23:59:59", "991231235959"},
             Case{946684800, "2000/01/01 00:00:00", "000101000000"},
             Case{951782400, "2000/02/29 00:00:00", "000229000000"},
             Case{1230973505, "2009/01/03 09:05:05", "090103090505"},
             Case{4102444800, "2100/01/01 00:00:00", "000101000000"},
         }) {
        const FixedClock clock(c.now);
        std::array<char, TIME_STR_SIZE> text{};
        IgCmnGetTimeStr(text.data());
        EXPECT_STREQ(text.data(), c.text);
        std::array<char, TIME_STAMP_SIZE> stamp{};
        IgCmnGetTimeStamp(stamp.data());
        EXPECT_STREQ(stamp.data(), c.stamp);
    }
    ::unsetenv("TZ");
    ::tzset();
}

TEST(IGCmnTimeDeathTest, AssertsItsBuffer) {
    EXPECT_DEATH(IgCmnGetTimeStr(nullptr), "Assertion `buf != \\(\\(void \\*\\)0\\)' failed");
    EXPECT_DEATH(IgCmnGetTimeStamp(nullptr), "Assertion `buf != \\(\\(void \\*\\)0\\)' failed");
}

}  // namespace
