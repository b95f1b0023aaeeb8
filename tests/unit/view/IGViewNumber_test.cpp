#include "view/IGViewNumber.h"

#include <gmock/gmock.h>

#include <string>

namespace {

TEST(IGViewNumber, ReadsNumbersWithUnits) {
    EXPECT_EQ(readNumber("12"), 12);
    EXPECT_EQ(readNumber(" -3.5 "), -3.5);
    EXPECT_EQ(readNumber("+7"), 7);
    EXPECT_EQ(readNumber("29%"), 29);
    EXPECT_EQ(readNumber("29 %"), 29);
    EXPECT_EQ(readNumber("2K"), 2048);
    EXPECT_EQ(readNumber("2k"), 2048);
    EXPECT_EQ(readNumber("12 kB"), 12288);
    EXPECT_EQ(readNumber("1.5Mi"), 1.5 * 1048576);
    EXPECT_EQ(readNumber("1MiB"), 1048576);
    EXPECT_EQ(readNumber("252G"), 252 * 1073741824.0);
    EXPECT_EQ(readNumber("1T"), 1099511627776.0);
    EXPECT_EQ(readNumber("5B"), 5);
}

TEST(IGViewNumber, RefusesOtherTexts) {
    for (const char* text : {"", " ", "-", "x", "1 2", "1x", "1Kx", "1iB", "nan", "inf", "1e5",
                             "0x5", "1,5", "5 GiBs", "--5", "+-5"}) {
        EXPECT_EQ(readNumber(text), std::nullopt) << text;
    }
    EXPECT_EQ(readNumber(std::string(100, '1')), std::nullopt);
    EXPECT_EQ(readNumber(std::string("1\0", 2)), std::nullopt);
}

TEST(IGViewNumber, ReadsDates) {
    EXPECT_EQ(readDate("1970-01-02", "%Y-%m-%d"), 86400);
    EXPECT_EQ(readDate("Nov 23 16:25:38 2026", "%b %e %H:%M:%S %Y"), 1795451138);
    EXPECT_EQ(readDate("Nov  3 16:25:38 2026", "%b %e %H:%M:%S %Y"), 1793723138);
    EXPECT_EQ(readDate("1970-01-02 x", "%Y-%m-%d"), std::nullopt);
    EXPECT_EQ(readDate("never", "%Y-%m-%d"), std::nullopt);
    EXPECT_EQ(readDate(std::string(100, '1'), "%Y"), std::nullopt);
}

TEST(IGViewNumber, ShowsNumbersAndSizes) {
    EXPECT_EQ(shortNumber(5), "5");
    EXPECT_EQ(shortNumber(12.34), "12.3");
    EXPECT_EQ(shortNumber(-0.01), "0");
    EXPECT_EQ(shortNumber(1234.5), "1234");
    EXPECT_EQ(shortNumber(1e300).size(), 301U);
    EXPECT_EQ(shownBytes(10), "10 B");
    EXPECT_EQ(shownBytes(1536), "1.5 KiB");
    EXPECT_EQ(shownBytes(24684084.0 * 1024), "23.5 GiB");
    EXPECT_EQ(shownBytes(1e30), "867361737988 EiB");
}

}  // namespace
