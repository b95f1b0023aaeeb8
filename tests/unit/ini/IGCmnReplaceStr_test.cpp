#include "ini/IGCmnReplaceStr.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <functional>
#include <map>
#include <utility>

#include "../../support/every_allocation.h"
#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnStr.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

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

    // The status of the check, which must not change a status that is already bad.
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

// A model of the rules: the pieces between percent signs are alternately plain text and names.
struct Model {
    std::string expanded;
    int bad = 0;
};

Model modelOf(const std::string& text, const std::map<std::string, std::string>& values) {
    Model model;
    std::size_t start = 0;
    for (bool name = false;; name = !name) {
        const std::size_t end = text.find('%', start);
        const std::string piece = text.substr(start, end == std::string::npos ? end : end - start);
        if (end == std::string::npos) {
            model.expanded += (name ? "%" : "") + piece;  // it is not closed
            model.bad |= name ? 1 : 0;
            return model;
        }
        if (!name) {
            model.expanded += piece;
        } else if (piece.empty()) {
            model.expanded += '%';
        } else if (const auto value = values.find(piece); value != values.end()) {
            model.expanded += value->second;
        } else {
            model.bad = 1;
        }
        start = end + 1;
    }
}

TEST_F(IGCmnReplaceStr, AcceptsAnyNumberOfPercentSignsBesideAName) {
    const std::map<std::string, std::string> values = {
        {"YY", "09"}, {"MM", "01"}, {"DD", "03"},       {"hh", "21"},
        {"mm", "05"}, {"ss", "07"}, {"HOST", "web_01"}, {"d", ""}};
    for (const char* name :
         {"", "HOST", "YY", "ss", "d", "NONE", "reg0", "host", " ", "a%HOST", "\xc3\xa4"}) {
        for (std::size_t before = 0; before <= 8; ++before) {
            for (std::size_t after = 0; after <= 8; ++after) {
                for (const char* rest : {"", "x", "x%YY%"}) {
                    const std::string text =
                        std::string(before, '%') + name + std::string(after, '%') + rest;
                    SCOPED_TRACE(text);
                    const Model model = modelOf(text, values);
                    ASSERT_EQ(expanded(text), model.expanded);
                    ASSERT_EQ(checked(text), model.bad);
                }
            }
        }
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnReplaceStr, CollapsesRunsOfPercentSignsByHalvesRoundedUp) {
    for (std::size_t first = 0; first <= 8; ++first) {
        for (std::size_t second = 0; second <= 8; ++second) {
            for (const char* end : {"", "\xc3\xa4"}) {
                std::string text = "a" + std::string(first, '%') + "b" + std::string(second, '%');
                const std::string collapsed = "a" + std::string((first + 1) / 2, '%') + "b" +
                                              std::string((second + 1) / 2, '%') + end;
                text += end;
                ASSERT_EQ(IgCmnStrUnescapePercent(text.data()), 0);
                ASSERT_EQ(std::string(text.c_str()), collapsed);
            }
        }
    }
}

TEST_F(IGCmnReplaceStr, HandlesAsciiTextsAsOthers) {
    // An ASCII text is not converted; one with another character is.
    const std::string foreign = "\xc3\xa4";
    const std::vector<std::string> parts{"", "a", "%", "%HOST", "%NO", "%d", "%reg0"};
    for (const std::string& first : parts) {
        for (const std::string& second : parts) {
            for (const std::string& third : parts) {
                const std::string text = first + second + third;
                SCOPED_TRACE(text);
                ASSERT_EQ(foreign + expanded(text), expanded(foreign + text));
                ASSERT_EQ(checked(text), checked(foreign + text));
            }
        }
    }
}

TEST_F(IGCmnReplaceStr, ChecksAnAsciiTextWithoutMemory) {
    const FailingCall failing(Call::POOL, 1, ENOMEM);
    EXPECT_EQ(checked("%HOST%/a/%YY%%%"), 0);
    EXPECT_EQ(checked("%HOST%/a/%YX%"), 1);
    EXPECT_FALSE(FailingCall::happened());
}

TEST_F(IGCmnReplaceStr, ReturnsNothingWhenMemoryRunsOut) {
    std::string text = "%HOST%" + std::string(300, 'x') + "%YY%%%" + std::string(300, 'y') +
                       "%NO%\xc3\xa4";  // which needs a conversion
    const std::vector<std::function<bool(memory_pool*)>> calls = {
        [&](memory_pool* p) {
            return IgCmnReplaceStrs(text.c_str(), 1, &root_, p, nullptr) == nullptr;
        },
        [&](memory_pool* p) {
            int status = 0;
            return IgCmnReplaceStrs(text.c_str(), 1, &root_, p, &status) == nullptr;
        },
        [&](memory_pool* p) { return IgCmnRepSpecialStr("%HOST", 1, &root_, p) == nullptr; },
        [&](memory_pool*) {
            std::string copy = text;
            const bool failed = IgCmnStrUnescapePercent(copy.data()) == -1;
            EXPECT_EQ(copy == text, failed) << "untouched on failure";
            return failed;
        },
        [&](memory_pool* p) {
            root_tbl root{};
            return IgCmnSpecialStrInit(&root, p) == -1;
        },
        [&](memory_pool* p) {
            char* number = nullptr;
            const bool failed = timeIntToStr(1, &number, p) == -1;
            EXPECT_EQ(number == nullptr, failed);
            return failed;
        },
    };
    expectNothingWhenMemoryRunsOut(calls);
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

TEST_F(IGCmnReplaceStr, KeepsABadStatus) {
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

TEST_F(IGCmnReplaceStr, FindsTheCodeOfTheNameAtTheStartOfAText) {
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

TEST_F(IGCmnReplaceStr, ReturnsTheValueOfANameOrTheNameItself) {
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

TEST_F(IGCmnReplaceStr, ReadsTheClockAndTheHostOncePerRun) {
    ::setenv("TZ", "XYZ-5", 1);  // local time is not UTC
    ::tzset();
    const FixedClock clock(1700000040);  // 22:14:00 UTC of the day before
    root_tbl root{};
    ASSERT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
    ::unsetenv("TZ");
    ::tzset();
    EXPECT_EQ(std::string(root.YY) + " " + root.MM + " " + root.DD + " " + root.hh + " " + root.mm +
                  " " + root.ss,
              "23 11 15 03 14 00");
    EXPECT_STREQ(root.HOST, "testhost");
    EXPECT_EQ(root.d, nullptr);
    for (const char* reserved : root.reg) {
        EXPECT_EQ(reserved, nullptr);
    }
}

TEST_F(IGCmnReplaceStr, WritesBothEndsOfEveryUnitOfTimeWithTwoDigits) {
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    const std::vector<std::pair<std::time_t, const char*>> cases = {
        {1230973505, "09 01 03 09 05 05"},  // 3 January 2009
        {946684799, "99 12 31 23 59 59"},   // the last second of a century's year
        {946684800, "00 01 01 00 00 00"},   // and the first
        {951782399, "00 02 28 23 59 59"},  {951782400, "00 02 29 00 00 00"},
        {1609459199, "20 12 31 23 59 59"}, {1609459200, "21 01 01 00 00 00"},
        {1700000039, "23 11 14 22 13 59"}, {1700000040, "23 11 14 22 14 00"},
        {1700002799, "23 11 14 22 59 59"}, {1700002800, "23 11 14 23 00 00"},
        {4102444799, "99 12 31 23 59 59"}, {4102444800, "00 01 01 00 00 00"},
        {0, "70 01 01 00 00 00"},
    };
    for (const auto& [now, expected] : cases) {
        const FixedClock clock(now);
        root_tbl root{};
        ASSERT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
        EXPECT_EQ(std::string(root.YY) + " " + root.MM + " " + root.DD + " " + root.hh + " " +
                      root.mm + " " + root.ss,
                  expected);
    }
    ::unsetenv("TZ");
    ::tzset();
}

TEST_F(IGCmnReplaceStr, HasNoValuesForAHostWithoutAName) {
    root_tbl root{};
    Capture errors(stderr);
    const FailingCall failing(Call::GETHOSTNAME, 1, EFAULT);
    EXPECT_EQ(IgCmnSpecialStrInit(&root, pool()), -1);
    EXPECT_EQ(root.HOST, nullptr);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "gethostname, error code = 14, msg = Bad address.\n"
              "ZEPA114-E:source = IGCmnReplaceStr, line no = N.\n");
}

TEST_F(IGCmnReplaceStr, AcceptsAHostNameOfAnyLengthAndCharacter) {
    const auto host = [this](const std::string& name) {
        const HostNamed named(name);
        root_tbl root{};
        EXPECT_EQ(IgCmnSpecialStrInit(&root, pool()), 0);
        return std::string(root.HOST);
    };
    EXPECT_EQ(host(""), "");
    EXPECT_EQ(host("a"), "a");
    EXPECT_EQ(host("-"), "_");
    EXPECT_EQ(host("Web-01.example.com"), "Web_01_example_com");
    EXPECT_EQ(host("a/../b"), "a____b");
    EXPECT_EQ(host("a\nb\tc\vd"), "a_b_c__d");
    EXPECT_EQ(host("a%HOST%b"), "a_HOST_b");
    EXPECT_EQ(host("\xe3\x81\x82x\xf0\x9f\x98\x80"), "__x__");
    EXPECT_EQ(host(std::string(255, 'h')), std::string(255, 'h'));
    EXPECT_EQ(host(std::string(256, 'h')), std::string(256, 'h'));
    EXPECT_EQ(host(std::string(256, '\v')), std::string(512, '_'));
    EXPECT_EQ(host(std::string(257, 'h')), std::string(256, 'h')) << "a name without a terminator";
    EXPECT_EQ(host(std::string(5000, 'h')), std::string(256, 'h'));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnReplaceStr, HasNoValuesForAHostNameThatTheLocaleCannotDecode) {
    const HostNamed named("web\xff");
    root_tbl root{};
    Capture errors(stderr);
    EXPECT_EQ(IgCmnSpecialStrInit(&root, pool()), -1);
    EXPECT_THAT(takeLog(), ::testing::HasSubstr("system call name = mbstowcs"));
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

TEST_F(IGCmnReplaceStr, AssertsItsArgumentsAreNotNull) {
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
