#include "view/IGViewManual.h"

#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "../../support/run_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(IGViewManual, HasTheEntryOfEveryMessageInPlainText) {
    const std::string page = readText("../man/quendil_messages.7");
    const std::regex entry(R"(\.It Sy "(ZEPA\d\d\d)\\-([EWI]):)");
    std::set<std::string> seen;
    for (std::sregex_iterator at(page.begin(), page.end(), entry), end; at != end; ++at) {
        const std::string id = (*at)[1].str() + "-" + (*at)[2].str();
        const std::string help = messageHelp(id);
        seen.insert(id);
        EXPECT_THAT(help, testing::ContainsRegex("[A-Za-z0-9')]\\.$")) << id;
        EXPECT_THAT(help, Not(testing::ContainsRegex("(^|\n| )\\.[A-Z][a-z] "))) << id << help;
        EXPECT_THAT(help, Not(HasSubstr("\\"))) << id;
        EXPECT_THAT(help, Not(HasSubstr("(run log)"))) << id;
    }
    EXPECT_GT(seen.size(), 60U);
}

TEST(IGViewManual, KeepsParagraphsAndQuotesWhatThePageQuotes) {
    EXPECT_EQ(messageHelp("ZEPA102-E"),
              "The option is the last argument, or the next argument begins with a '-'.\n\n"
              "Action: Give the option its value.");
    EXPECT_THAT(messageHelp("ZEPA105-E"), HasSubstr("with chmod(1)."));
    EXPECT_THAT(messageHelp("ZEPA205-I"), HasSubstr("\n    PP_GROUP = %s\n"));
    EXPECT_THAT(messageHelp("ZEPA205-I"), HasSubstr("(in units of 512 bytes, -1 for none)"));
}

TEST(IGViewManual, HasNoEntryForAnotherText) {
    for (const char* id : {"ZEPA999-W", "", "ZEPA126", "Sy"}) {
        EXPECT_EQ(messageHelp(id), "") << id;
    }
}

}  // namespace
