#include "common/IGCmnTime.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>

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
    // The clock may move on between two readings: one of the two must agree.
    std::array<std::string, 2> expected;
    std::array<char, TIME_STR_SIZE> text{};
    for (std::string& reading : expected) {
        const std::time_t now = std::time(nullptr) + 12 * 3600;
        struct tm parts = {};
        ::gmtime_r(&now, &parts);
        std::array<char, TIME_STR_SIZE> buffer{};
        std::strftime(buffer.data(), buffer.size(), "%Y/%m/%d %H:%M:%S", &parts);
        reading = buffer.data();
        if (&reading == &expected[0]) {
            IgCmnGetTimeStr(text.data());
        }
    }
    EXPECT_THAT(expected, ::testing::Contains(std::string(text.data())));
}

}  // namespace
