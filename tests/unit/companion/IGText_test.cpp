#include "companion/IGText.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(IGText, ShowsNoCharacterThatTurnsOrBreaksALine) {
    EXPECT_EQ(shown("a\u061cb"), "a\\330\\234b");
    EXPECT_EQ(shown("\u200e\u200f"), "\\342\\200\\216\\342\\200\\217");
    EXPECT_EQ(shown("\u2028\u2029"), "\\342\\200\\250\\342\\200\\251");
    EXPECT_EQ(shown("\u202a\u202e"), "\\342\\200\\252\\342\\200\\256");
    EXPECT_EQ(shown("\u2066\u2069"), "\\342\\201\\246\\342\\201\\251");
}

TEST(IGText, ShowsTheirNeighboursAndAllOtherTextAsItIs) {
    for (const char* text : {"\u061b\u061d", "\u200d\u2010", "\u2027\u202f", "\u2065\u206a",
                             "plain \t text", "\u00e4\U0001f600", "\xe2", "\xd8", ""}) {
        EXPECT_EQ(shown(text), text);
    }
}

TEST(IGText, EscapesWhatControlsATerminal) {
    EXPECT_EQ(shown(std::string("a\0b\x1b[31m\n\u009b\x9b", 12)),
              "a\\000b\\033[31m\\012\\302\\233\\233");
    EXPECT_EQ(shown("a\tb", Tabs::ESCAPED), "a\\011b");
}

TEST(IGText, ShowsATextBehindAByteThatIsZero) {
    EXPECT_EQ(shown("\0a\0\0\x1b\0"s), "\\000a\\000\\000\\033\\000");
}

TEST(IGText, CountsInWords) {
    EXPECT_EQ(counted(0, "rule"), "no rules");
    EXPECT_EQ(counted(1, "rule"), "1 rule");
    EXPECT_EQ(counted(2, "rule"), "2 rules");
}

TEST(IGText, RefusesUsageWithoutTheControlCharactersOfAValue) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(refuseUsage("program", "no number", "\x1b[31m\u202e\n"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "program: no number: \\033[31m\\342\\200\\256\\012\n"
              "Try 'program --help'.\n");
}

}  // namespace
