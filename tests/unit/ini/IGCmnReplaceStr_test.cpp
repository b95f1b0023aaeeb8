#include "ini/IGCmnReplaceStr.h"

#include <array>
#include <ctime>

#include "../../support/run_fixture.h"
#include "ini/IGIniTable.h"

namespace {

class IGCmnReplaceStr : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        root_.YY = yy_.data();
        root_.MM = mm_.data();
        root_.DD = dd_.data();
        root_.hh = hh_.data();
        root_.mm = min_.data();
        root_.ss = ss_.data();
        root_.HOST = host_.data();
    }

    std::string expanded(const std::string& text) {
        const char* result = IgCmnReplaceStrs(text.c_str(), 1, &root_, pool(), nullptr);
        return result == nullptr ? "(failed)" : result;
    }

    // The status of the check, which must not touch a status that is already bad.
    int checked(const std::string& text) {
        int status = 0;
        const char* result = IgCmnReplaceStrs(text.c_str(), 1, &root_, pool(), &status);
        EXPECT_STREQ(result, "");
        return status;
    }

    root_tbl root_{};

  private:
    std::string yy_ = "09";
    std::string mm_ = "01";
    std::string dd_ = "03";
    std::string hh_ = "21";
    std::string min_ = "05";
    std::string ss_ = "07";
    std::string host_ = "web_01";
};

struct Case {
    std::string text;
    std::string expanded;
    int bad;  // status of the check
};

TEST_F(IGCmnReplaceStr, ExpandsAndChecks) {
    std::string directory = "/out/dir";
    root_.d = directory.data();
    const std::vector<Case> cases = {
        {"", "", 0},
        {"plain text", "plain text", 0},
        {"%YY%", "09", 0},
        {"%MM%", "01", 0},
        {"%DD%", "03", 0},
        {"%hh%", "21", 0},
        {"%mm%", "05", 0},
        {"%ss%", "07", 0},
        {"%HOST%", "web_01", 0},
        {"%d%", "/out/dir", 0},
        {"%HOST%_%YY%%MM%", "web_01_0901", 0},
        {OUTPUT_NAME_TEMPLATE, "web_01_090103210507", 0},
        {"a%HOST%b", "aweb_01b", 0},
        {"%d%/%HOST%.txt", "/out/dir/web_01.txt", 0},
        {"%%", "%", 0},
        {"100%%", "100%", 0},
        {"%%%%", "%%", 0},
        {"%%HOST%%", "%HOST%", 0},
        {"%%%HOST%%%", "%web_01%", 0},
        {"a%NONE%b", "ab", 1},
        {"%host%", "", 1},
        {"%yy%", "", 1},
        {"%YYYY%", "", 1},
        {"%Y%", "", 1},
        {"% %", "", 1},
        {"%HOST %", "", 1},
        {"%reg0%", "", 1},
        {"%reg1%", "", 1},
        {"%reg9%", "", 1},
        {"%", "%", 1},
        {"a%", "a%", 1},
        {"%HOST", "%HOST", 1},
        {"50% off", "50% off", 1},
        {"%HOST%_50% off", "web_01_50% off", 1},
        {"%%%", "%%", 1},
        {"%NONE%%HOST%", "web_01", 1},
        {"%HOST%%NONE", "web_01%NONE", 1},
        {"\xc3\xa4%HOST%\xc3\xb6", "\xc3\xa4web_01\xc3\xb6", 0},
        {"%\xc3\xa4%", "", 1},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.text);
        EXPECT_EQ(expanded(one.text), one.expanded);
        EXPECT_EQ(checked(one.text), one.bad);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnReplaceStr, DropsAStringWithoutAValueThatTheCheckAccepts) {
    EXPECT_EQ(expanded("%d%/out"), "/out");
    EXPECT_EQ(checked("%d%/out"), 0);
    std::string empty;
    root_.d = empty.data();
    EXPECT_EQ(expanded("a%d%b"), "ab");
    EXPECT_EQ(checked("a%d%b"), 0);
}

TEST_F(IGCmnReplaceStr, DoesNotExpandAValueAgain) {
    std::string directory = "/out/50%/%HOST%/%%";
    root_.d = directory.data();
    EXPECT_EQ(expanded("%d%/x"), "/out/50%/%HOST%/%%/x");
}

TEST_F(IGCmnReplaceStr, LeavesABadStatusAsItIs) {
    int status = 1;
    EXPECT_STREQ(IgCmnReplaceStrs("%HOST%", 1, &root_, pool(), &status), "");
    EXPECT_EQ(status, 1);
}

TEST_F(IGCmnReplaceStr, ExpandsATextThatIsLargerThanAPoolBlock) {
    std::string text;
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        text += "%HOST%/";
        expected += "web_01/";
    }
    EXPECT_EQ(expanded(text), expected);
}

TEST_F(IGCmnReplaceStr, ReportsATextThatTheLocaleCannotDecode) {
    const std::string report =
        "ZEPA113-E:An error occurred during the following system call. system call name = "
        "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide character.\n"
        "ZEPA114-E:source = IGCmnStr, line no = N.\n";
    int status = 0;
    Capture errors(stderr);
    EXPECT_EQ(IgCmnReplaceStrs("a\xff%HOST%", 1, &root_, pool(), nullptr), nullptr);
    EXPECT_EQ(takeLog(), report);
    EXPECT_EQ(IgCmnReplaceStrs("a\xff", 1, &root_, pool(), &status), nullptr);
    EXPECT_EQ(takeLog(), report);
    EXPECT_EQ(status, 0);
    std::string text = "\xff%%";
    EXPECT_EQ(IgCmnStrUnescapePercent(text.data()), -1);
    EXPECT_EQ(takeLog(), report);
    EXPECT_EQ(text, "\xff%%");
}

TEST_F(IGCmnReplaceStr, KnowsTheNamesWithTheirOpeningPercent) {
    for (const char* name : {"%YY", "%MM", "%DD", "%hh", "%mm", "%ss", "%d", "%HOST"}) {
        EXPECT_EQ(IgCmnIsSpecialStr(name), 1) << name;
    }
    for (const char* name : {"", "%", "YY", "%YY%", "%yy", "%Y", "%YYY", "%host", "%HOS", "%D",
                             "%reg0", "%reg5", "%reg9", "%reg"}) {
        EXPECT_EQ(IgCmnIsSpecialStr(name), 0) << name;
    }
}

TEST_F(IGCmnReplaceStr, FindsTheCodeOfTheFirstNameThatBeginsAText) {
    const std::vector<std::pair<const char*, int>> cases = {
        {"%YY", 1},     {"%YY%", 1},    {"%YYabc", 1}, {"%MM", 2}, {"%DD", 3},   {"%hh", 4},
        {"%mm", 5},     {"%ss", 6},     {"%d", 7},     {"%dd", 7}, {"%reg0", 8}, {"%reg1x", 9},
        {"%reg9%", 17}, {"%HOST%", 18}, {"", 0},       {"%", 0},   {"YY", 0},    {"%yy", 0},
        {"%reg", 0},    {"%HOS", 0},    {" %YY", 0},
    };
    for (const auto& [text, code] : cases) {
        EXPECT_EQ(IgCmnGetSpecialStrCode(text), code) << text;
    }
}

TEST_F(IGCmnReplaceStr, GivesTheValueOfOneNameOrTheNameItself) {
    EXPECT_STREQ(IgCmnRepSpecialStr("%YY", 1, &root_, pool()), "09");
    EXPECT_STREQ(IgCmnRepSpecialStr("%HOST", 0, &root_, pool()), "web_01");
    EXPECT_STREQ(IgCmnRepSpecialStr("%d", 1, &root_, pool()), "%d");
    EXPECT_STREQ(IgCmnRepSpecialStr("%reg1", 1, &root_, pool()), "%reg1");
    EXPECT_STREQ(IgCmnRepSpecialStr("%FOO", 1, &root_, pool()), "%FOO");
    EXPECT_STREQ(IgCmnRepSpecialStr("%", 1, &root_, pool()), "%");
    EXPECT_NE(IgCmnRepSpecialStr("%YY", 1, &root_, pool()), root_.YY);
}

TEST_F(IGCmnReplaceStr, CollapsesEveryDoublePercent) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"%", "%"},
        {"a", "a"},
        {"%%", "%"},
        {"%%%", "%%"},
        {"%%%%", "%%"},
        {"%%%%%", "%%%"},
        {"a%%b%%c", "a%b%c"},
        {"%a%", "%a%"},
        {"%HOST%%YY%", "%HOST%YY%"},
        {"\xc3\xa4%%\xc3\xb6", "\xc3\xa4%\xc3\xb6"},
    };
    for (const auto& [text, expected] : cases) {
        std::array<char, 32> buffer{};
        text.copy(buffer.data(), buffer.size() - 1);
        EXPECT_EQ(IgCmnStrUnescapePercent(buffer.data()), 0);
        EXPECT_EQ(std::string(buffer.data()), expected) << text;
    }
}

TEST_F(IGCmnReplaceStr, WritesANumberWithTwoDigitsAtLeast) {
    const std::vector<std::pair<int, const char*>> cases = {
        {0, "00"}, {9, "09"}, {10, "10"}, {60, "60"}, {123, "123"}};
    for (const auto& [number, expected] : cases) {
        char* text = nullptr;
        EXPECT_EQ(timeIntToStr(number, &text, pool()), 0);
        EXPECT_STREQ(text, expected);
    }
}

TEST_F(IGCmnReplaceStr, TakesTheValuesOfARunFromTheClockAndTheHostOnce) {
    ::setenv("TZ", "XYZ-5", 1);  // local time is not the time of the world
    ::tzset();
    // The clock may move on between two readings: one of the two must agree.
    std::array<std::string, 2> readings;
    root_tbl root{};
    for (std::string& reading : readings) {
        const std::time_t now = std::time(nullptr) + 5 * 3600;
        struct tm parts = {};
        ::gmtime_r(&now, &parts);
        std::array<char, 32> text{};
        std::strftime(text.data(), text.size(), "%Y %m %d %H %M %S", &parts);
        reading = text.data() + 2;  // the year of the century
        if (&reading == &readings[0]) {
            ASSERT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
        }
    }
    ::unsetenv("TZ");
    ::tzset();
    const std::string given = std::string(root.YY) + " " + root.MM + " " + root.DD + " " + root.hh +
                              " " + root.mm + " " + root.ss;
    EXPECT_THAT(readings, ::testing::Contains(given));
    EXPECT_STREQ(root.HOST, "testhost");
    EXPECT_EQ(root.d, nullptr);
    for (const char* reserved : root.reg) {
        EXPECT_EQ(reserved, nullptr);
    }
}

TEST_F(IGCmnReplaceStr, MakesAHostNameSafeForFileNames) {
    ASSERT_EQ(::sethostname("web-01.lan", 10), 0);
    root_tbl root{};
    EXPECT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
    EXPECT_STREQ(root.HOST, "web_01_lan");
    ASSERT_EQ(::sethostname("w\xc3\xa4"
                            "b/",
                            5),
              0);
    EXPECT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
    EXPECT_STREQ(root.HOST, "w__b_");
    ASSERT_EQ(::sethostname("testhost", 8), 0);
}

TEST_F(IGCmnReplaceStr, MustNotBeGivenNull) {
    char* out = nullptr;
    EXPECT_DEATH(IgCmnReplaceStrs(nullptr, 1, &root_, pool(), nullptr),
                 "text != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnReplaceStrs("a", 1, nullptr, pool(), nullptr),
                 "root != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnReplaceStrs("a", 1, &root_, nullptr, nullptr),
                 "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnIsSpecialStr(nullptr), "name != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnGetSpecialStrCode(nullptr), "text != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnStrUnescapePercent(nullptr), "text != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnSpecialStrInit(nullptr, pool()), "root != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnSpecialStrInit(&root_, nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnRepSpecialStr(nullptr, 1, &root_, pool()), "name != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(timeIntToStr(1, &out, nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(timeIntToStr(1, nullptr, pool()), "out != \\(\\(void \\*\\)0\\)");
}

}  // namespace
