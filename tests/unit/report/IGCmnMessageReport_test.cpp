#include "common/base/IGCmnList.h"
#include "common/base/IGPrintable.h"
#include "common/report/IGCmnMessage.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "../../support/message_fixture.h"
#include "../../support/wrapped_calls.h"

namespace {

class IGCmnMessage : public MessageTest {};

// Error texts and reports

TEST_F(IGCmnMessage, DescribesAnErrorInPlainEnglish) {
    EXPECT_STREQ(IgCmnStrError(ENOENT, 0), "No such file or directory");
    EXPECT_STREQ(IgCmnStrError(ENOSPC, 0), "No space left on device");
    EXPECT_STREQ(IgCmnStrError(0, 0), "Success");
    EXPECT_EQ(IgCmnStrError(ENOENT, 1), nullptr);
    EXPECT_EQ(IgCmnStrError(ENOENT, -1), nullptr);
}

TEST_F(IGCmnMessage, RestoresTheLocaleOfMessages) {
    ASSERT_NE(std::setlocale(LC_MESSAGES, "C.utf8"), nullptr);
    static_cast<void>(IgCmnStrError(ENOENT, 0));
    EXPECT_STREQ(std::setlocale(LC_MESSAGES, nullptr), "C.utf8");
}

TEST_F(IGCmnMessage, HasNoTextForAnErrorWhenTheLocaleCannotBeSet) {
    for (const int nth : {1, 2}) {  // the query, the change
        const FailingCall failing(Call::SETLOCALE, nth, 0);
        EXPECT_EQ(IgCmnStrError(ENOENT, 0), nullptr) << nth;
    }
    EXPECT_STREQ(IgCmnStrError(ENOENT, 0), "No such file or directory");
}

constexpr SourcePlace SOME_PLACE{"/some/where/IGSomeUnit.cpp", 42};

TEST_F(IGCmnMessage, ReportsAFailedCallAsCallSubjectAndPlace) {
    const Outputs o = outputs([] { IgCmnSysErrPath("fopen", ENOENT, "/some/file", SOME_PLACE); });
    const std::string report =
        trio("fopen", ENOENT, "No such file or directory", "/some/file", "IGSomeUnit");
    EXPECT_EQ(o, (Outputs{"", report.substr(0, report.find("ZEPA114-E")), report}));
}

TEST_F(IGCmnMessage, NamesTheLineOfTheCallerInAReport) {
    const int line = __LINE__ + 1;
    outputs([] { IgCmnSysErrPlain("getcwd", ERANGE); });
    EXPECT_THAT(readText(std::string(LOG_DIR) + "/quendil.log"),
                ::testing::EndsWith("ZEPA114-E:source = IGCmnMessageReport_test, line no = " +
                                    std::to_string(line) + ".\n"));
}

TEST_F(IGCmnMessage, ReportsAFailedCallWithASubjectOfAnyName) {
    const Outputs o = outputs([] {
        IgCmnSysErr({.call = "system", .error = 256, .what = "command", .subject = "/bin/rm"});
    });
    EXPECT_EQ(o.err,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = Unknown error 256.\n"
              "ZEPA151-E:Additional information, command = /bin/rm.\n");
}

TEST_F(IGCmnMessage, ReportsAFailedCallWithoutASubject) {
    const Outputs o = outputs([] { IgCmnSysErrPlain("getcwd", ERANGE, SOME_PLACE); });
    EXPECT_EQ(o.log,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "getcwd, error code = 34, msg = Numerical result out of range.\n"
              "ZEPA114-E:source = IGSomeUnit, line no = N.\n");
}

TEST_F(IGCmnMessage, ReportsAFailedCallAsWarningsDuringACollection) {
    for (const int mode : {1, 2}) {
        IgCmnMsgSetMode(static_cast<MsgMode>(mode));
        const Outputs o =
            outputs([] { IgCmnSysErrPath("stat", ENOENT, "/some/file", SOME_PLACE); });
        EXPECT_EQ(o, (Outputs{"", "",
                              trio("stat", ENOENT, "No such file or directory", "/some/file",
                                   "IGSomeUnit", true)}));
    }
}

TEST_F(IGCmnMessage, ReportsAFailedCallWithTheCallersText) {
    const Outputs o = outputs([] {
        IgCmnSysErr({.call = "system", .error = 256, .text = "rm command failed"}, SOME_PLACE);
    });
    EXPECT_EQ(o.log,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA114-E:source = IGSomeUnit, line no = N.\n");
}

TEST_F(IGCmnMessage, LetsNoFileNameForgeALineInAReport) {
    const Outputs o = outputs([] { IgCmnSysErrPath("stat", ENOENT, "/x\nZEPA999-E:\x1b[2J"); });
    EXPECT_THAT(o.err,
                ::testing::EndsWith(
                    "ZEPA151-E:Additional information, path = /x\\012ZEPA999-E:\\033[2J.\n"));
}

TEST_F(IGCmnMessage, TruncatesASubjectThatIsLongerThanAnyPath) {
    const std::string subject(20000, 's');
    const Outputs o = outputs([&] { IgCmnSysErrPath("stat", ENOENT, subject.c_str()); });
    EXPECT_THAT(o.err, ::testing::HasSubstr("path = " + std::string(4 * 4096 - 1, 's') + ".\n"));
}

// Texts in messages

TEST(IGCmnMsgPrintable, WritesControlCharactersAsThreeOctalDigits) {
    struct Case {
        std::string name;
        std::string shown;
    };
    const std::vector<Case> cases{
        {"", ""},
        {"plain name-1.txt", "plain name-1.txt"},
        {"\x01", "\\001"},
        {"a\tb\nc\rd", "a\\011b\\012c\\015d"},
        {"\x1f \x7f~", "\\037 \\177~"},
        {"back\\slash", "back\\slash"},
        {"\xc3\xa9", "\xc3\xa9"},
        {"\xe3\x81\x82", "\xe3\x81\x82"},
        {"\xff\xfe", "\xff\xfe"},
        {"\xc2\x9bK", "\\302\\233K"},
        {"\xc2\x80\xc2\x9f", "\\302\\200\\302\\237"},
        {"\xc2\xa0", "\xc2\xa0"},
        {"\xc2", "\xc2"},
        // C1 bytes outside a sequence, and invalid sequences.
        {"\x9b"
         "2J",
         "\\2332J"},
        {"\x7f\x80\x9f\xa0", "\\177\\200\\237\xa0"},
        {"\xc3\x9b\x9b", "\xc3\x9b\\233"},
        {"\xe3\x81", "\xe3\\201"},
        {"\xe3\x81/\x82", "\xe3\\201/\\202"},
        {"\xc1\x9b", "\xc1\\233"},
        {"\xe0\x82\x9b", "\xe0\\202\\233"},
        {"\xe0\xa0\x80", "\xe0\xa0\x80"},
        {"\xed\x9f\xbf", "\xed\x9f\xbf"},
        {"\xed\xa0\x80", "\xed\xa0\\200"},
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
        {"\xf0\x8f\xbf\xbf", "\xf0\\217\xbf\xbf"},
        {"\xf4\x8f\xbf\x9f", "\xf4\x8f\xbf\x9f"},
        {"\xf4\x90\x80\x80", "\xf4\\220\\200\\200"},
        {"\xf5\x80\x80\x80", "\xf5\\200\\200\\200"},
        {"\xc2\xc2\x9b", "\xc2\\302\\233"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.name));
        std::array<char, 64> out{};
        IgCmnMsgPrintable(c.name.c_str(), out.data(), out.size());
        EXPECT_EQ(out.data(), c.shown);
        EXPECT_EQ(IgCmnMsgPrintableSize(c.name.c_str()), c.shown.size() + 1);
    }
}

TEST(IGCmnMsgPrintable, KeepsTheTabsOfWhatWasTyped) {
    const char* typed = "a\tb\x1b\t\n";
    std::array<char, 64> out{};
    IgCmnMsgPrintable(typed, out.data(), out.size(), Tabs::KEPT);
    EXPECT_STREQ(out.data(), "a\tb\\033\t\\012");
    EXPECT_EQ(IgCmnMsgPrintableSize(typed, Tabs::KEPT), std::strlen(out.data()) + 1);
}

TEST(IGCmnMsgPrintable, TruncatesNoCharacterOfSeveralBytes) {
    for (const auto& [size, shown] : std::vector<std::pair<std::size_t, std::string>>{
             {2, "a"}, {4, "a"}, {5, "a\xe3\x81\x82"}, {6, "a\xe3\x81\x82z"}}) {
        std::array<char, 8> out{};
        IgCmnMsgPrintable("a\xe3\x81\x82z", out.data(), size);
        EXPECT_EQ(out.data(), shown);
    }
}

TEST_F(IGCmnMessage, LetsNoTextForgeALine) {
    const std::string text = "x\nZEPA999-E:\x1b[2J\x9b\t\xc3\xa9";
    const Outputs o = outputs([&] {
        IgCmnMsg<ZEPA101_E>(text.c_str());
        IgCmnMsg<ZEPA120_E>(text.data(), 7);
        IgCmnListHeader* list = nullptr;
        Pool pool;
        std::string element = text;
        IgCmnListAppend(pool.get(), &list, element.data());
        IgCmnListPrint(ZEPA205_I_TARGET, list);
    });
    const std::string shown = "x\\012ZEPA999-E:\\033[2J\\233\t\xc3\xa9";
    EXPECT_EQ(o.log, "ZEPA101-E:The specified option(" + shown + ") is invalid.\n" +
                         "ZEPA120-E:filename = " + shown + ", line no = 7.\n" +
                         "    TARGET = " + shown + "\n");
}

TEST_F(IGCmnMessage, OmitsATextThatItHasNoMemoryToEscape) {
    const Outputs o = outputs([&] {
        const FailingCall failing(Call::POOL, 1, ENOMEM);
        errno = EPERM;
        IgCmnMsg<ZEPA101_E>("\x1b");
        EXPECT_EQ(errno, EPERM);
    });
    EXPECT_THAT(o.log, ::testing::EndsWith("ZEPA101-E:The specified option(?) is invalid.\n"));
}

TEST(IGCmnMsgPrintable, TruncatesAtWholeCharactersAndAlwaysTerminates) {
    struct Case {
        std::size_t size;
        const char* shown;
    };
    // "a", "\001", "b", "\302\233", "c" take 1, 4, 1, 8 and 1 bytes.
    for (const Case& c : {Case{1, ""}, Case{2, "a"}, Case{3, "a"}, Case{5, "a"}, Case{6, "a\\001"},
                          Case{7, "a\\001b"}, Case{14, "a\\001b"}, Case{15, "a\\001b\\302\\233"},
                          Case{16, "a\\001b\\302\\233c"}}) {
        SCOPED_TRACE(c.size);
        std::array<char, 20> out{};
        out.fill('#');
        IgCmnMsgPrintable(
            "a\x01"
            "b\xc2\x9b"
            "c",
            out.data(), c.size);
        EXPECT_STREQ(out.data(), c.shown);
        EXPECT_EQ(out[c.size], '#') << "nothing is written behind the buffer";
    }
}

}  // namespace
