#include "common/IGCmnStr.h"

#include <gmock/gmock.h>

#include <array>
#include <clocale>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"

namespace {

using namespace std::string_literals;

const std::string NOT_CONVERTIBLE = "fine \xff not";  // in no locale of ours

std::string conversionFailure(const std::string& call) {
    return "ZEPA113-E:An error occurred during the following system call. system call name = " +
           call +
           ", error code = 84, msg = Invalid or incomplete multibyte or wide character.\n"
           "ZEPA114-E:source = IGCmnStr, line no = N.\n";
}

class IGCmnStr : public RunTest {
  protected:
    /// A result is a block of its length + 1 bytes: freed with that size, the next request of the
    /// size gets the same block, as long as a neighbour keeps the chunk.
    void expectFreeable(char* text) {
        const std::size_t size = std::strlen(text) + 1;
        if (size > 196) {
            return;  // a chunk of its own
        }
        ASSERT_NE(IgCmnMemoryAlloc(pool(), size), nullptr);
        IgCmnMemoryFree(pool(), text, size);
        EXPECT_EQ(IgCmnMemoryAlloc(pool(), size), text);
    }
    /// What the body reports, as the run log has it.
    template <typename Body>
    std::string reported(Body body) {
        Capture err(stderr);
        body();
        return takeLog();
    }
};

// Copies and joins

TEST_F(IGCmnStr, CopiesAText) {
    for (const std::string& text : {""s, "a"s, "\xc3\xa9"s, "\xff"s, std::string(5000, 'x')}) {
        char* copy = IgCmnStrdup(pool(), text.c_str());
        EXPECT_EQ(copy, text);
        EXPECT_NE(copy, text.c_str());
        expectFreeable(copy);
    }
}

TEST_F(IGCmnStr, CopiesTheBeginningOfAText) {
    EXPECT_STREQ(IgCmnStrndup(pool(), "abcdef", 3), "abc");
    EXPECT_STREQ(IgCmnStrndup(pool(), "abcdef", 6), "abcdef");
    EXPECT_STREQ(IgCmnStrndup(pool(), "abcdef", 0), "");
}

TEST_F(IGCmnStr, CopiesAWideText) {
    for (const std::wstring& text :
         {std::wstring(), std::wstring(L"a\u00e9\u3042"), std::wstring(2000, L'x')}) {
        wchar_t* copy = IgCmnStrdupW(pool(), text.c_str());
        EXPECT_EQ(copy, text);
        EXPECT_NE(copy, text.c_str());
    }
}

TEST_F(IGCmnStr, JoinsTwoTexts) {
    struct Case {
        const char* first;
        const char* second;
        const char* joined;
    };
    for (const Case& c :
         {Case{"ab", "cd", "abcd"}, Case{"", "cd", "cd"}, Case{"ab", "", "ab"}, Case{"", "", ""},
          Case{nullptr, "cd", "cd"}, Case{"ab", nullptr, "ab"}, Case{nullptr, "", ""}}) {
        char* joined = IgCmnStrCat(pool(), c.first, c.second);
        EXPECT_STREQ(joined, c.joined);
        EXPECT_NE(joined, c.first);
        EXPECT_NE(joined, c.second);
        expectFreeable(joined);
    }
}

TEST_F(IGCmnStr, JoinsADirectoryAndAName) {
    struct Case {
        const char* directory;
        const char* name;
        const char* path;
    };
    for (const Case& c :
         {Case{"a", "b", "a/b"}, Case{"a/", "b", "a/b"}, Case{"a", "", "a"}, Case{"a/", "", "a/"},
          Case{"", "b", "/b"}, Case{"", "x", "/x"}, Case{"", "", "/"}, Case{"/", "b", "/b"},
          Case{"/", "", "/"}, Case{"a", "/b", "a//b"}, Case{"a//", "b", "a//b"},
          Case{nullptr, "b", "b"}, Case{"a", nullptr, "a"}, Case{"", nullptr, ""},
          Case{nullptr, "", ""}, Case{"\xff", "\xfe", "\xff/\xfe"}}) {
        char* path = IgCmnStrCatDir(pool(), c.directory, c.name);
        EXPECT_STREQ(path, c.path);
        expectFreeable(path);
    }
}

// Conversions

TEST_F(IGCmnStr, ConvertsBothWays) {
    struct Case {
        const char* bytes;
        const wchar_t* wide;
    };
    for (const Case& c : {Case{"", L""}, Case{"abc", L"abc"}, Case{"a\xc3\xa9z", L"a\u00e9z"},
                          Case{"\xe3\x81\x82\xf0\x9f\x98\x80", L"\u3042\U0001f600"}}) {
        EXPECT_STREQ(IgCmnMBS2WCS(pool(), c.bytes), c.wide);
        char* bytes = IgCmnWCS2MBS(pool(), c.wide);
        EXPECT_STREQ(bytes, c.bytes);
        expectFreeable(bytes);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnStr, ReportsWhatTheLocaleCannotConvert) {
    EXPECT_EQ(
        reported([this] { EXPECT_EQ(IgCmnMBS2WCS(pool(), NOT_CONVERTIBLE.c_str()), nullptr); }),
        conversionFailure("mbstowcs"));
    const std::array<wchar_t, 2> surrogate{static_cast<wchar_t>(0xd800), L'\0'};
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnWCS2MBS(pool(), surrogate.data()), nullptr); }),
              conversionFailure("wcstombs"));
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    EXPECT_EQ(reported([this] { EXPECT_EQ(IgCmnWCS2MBS(pool(), L"\u3042"), nullptr); }),
              conversionFailure("wcstombs"));
}

// Classes of characters

TEST_F(IGCmnStr, KnowsLettersAndDigitsOfAsciiOnly) {
    const std::wstring alnum = L"0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (wchar_t c = 0; c < 0x3100; ++c) {
        const bool expected = c != 0 && alnum.find(c) != std::wstring::npos;
        ASSERT_EQ(IgCmnStrIsAlnum(c), expected ? 1 : 0) << static_cast<int>(c);
    }
}

TEST_F(IGCmnStr, AllowsLettersDigitsAnd36Others) {
    const std::string others = "\n\r\t !\"#$%&'()=~|`{}*+;:]-^@[<>?_,./\\";
    ASSERT_EQ(others.size(), 36U);
    int allowed = 0;
    for (wchar_t c = 0; c < 0x3100; ++c) {
        const bool other =
            c > 0 && c < 0x80 && others.find(static_cast<char>(c)) != std::string::npos;
        ASSERT_EQ(IgCmnStrIsAsciiChar(c), other || IgCmnStrIsAlnum(c) != 0 ? 1 : 0)
            << static_cast<int>(c);
        allowed += IgCmnStrIsAsciiChar(c);
    }
    EXPECT_EQ(allowed, 62 + 36);
}

TEST_F(IGCmnStr, KnowsSingleByteCharacters) {
    for (wchar_t c = 0; c < 0x80; ++c) {
        EXPECT_EQ(IgCmnStrIsSingleByte(c), 1) << static_cast<int>(c);
    }
    for (const wchar_t c : {L'\u0080', L'\u00e9', L'\u3042', static_cast<wchar_t>(0xd800)}) {
        EXPECT_EQ(IgCmnStrIsSingleByte(c), 0) << static_cast<int>(c);
    }
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    EXPECT_EQ(IgCmnStrIsSingleByte(L'a'), 1);
    EXPECT_EQ(IgCmnStrIsSingleByte(L'\u3042'), 0);
}

TEST_F(IGCmnStr, KnowsTextsOfAllowedCharacters) {
    struct Case {
        std::string text;
        int ascii;
    };
    for (const Case& c :
         {Case{"", 1}, Case{"abc 123", 1}, Case{"\t\\\r\n", 1}, Case{"a\vb", 0}, Case{"\f", 0},
          Case{"\x1b", 0}, Case{"\x7f", 0}, Case{"caf\xc3\xa9", 0}, Case{"\xe3\x81\x82", 0}}) {
        SCOPED_TRACE(::testing::PrintToString(c.text));
        EXPECT_EQ(IgCmnStrIsAscii(c.text.c_str()), c.ascii);
    }
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(reported([] { EXPECT_EQ(IgCmnStrIsAscii(NOT_CONVERTIBLE.c_str()), -1); }),
              conversionFailure("mbstowcs"));
}

// Quotes

TEST_F(IGCmnStr, RemovesOnePairOfEnclosingDoubleQuotes) {
    struct Case {
        const char* text;
        const char* removed;
    };
    for (const Case& c :
         {Case{"\"abc\"", "abc"}, Case{"abc", "abc"}, Case{"\"abc", "\"abc"},
          Case{"abc\"", "abc\""}, Case{"\"", ""}, Case{"\"\"", ""}, Case{"\"\"\"", "\""},
          Case{"\"\"a\"\"", "\"a\""}, Case{"", ""}, Case{"a\"b\"c", "a\"b\"c"},
          Case{" \"a\"", " \"a\""}, Case{"\"a b\"", "a b"}, Case{"\"\xc3\xa9\"", "\xc3\xa9"},
          Case{"'a'", "'a'"}}) {
        SCOPED_TRACE(c.text);
        char* removed = IgCmnStrRemoveDQ(pool(), c.text);
        EXPECT_STREQ(removed, c.removed);
        EXPECT_NE(removed, c.text);
        expectFreeable(removed);
    }
    EXPECT_EQ(
        reported([this] { EXPECT_EQ(IgCmnStrRemoveDQ(pool(), NOT_CONVERTIBLE.c_str()), nullptr); }),
        conversionFailure("mbstowcs"));
}

// Comparison

TEST_F(IGCmnStr, ComparesWithoutRegardToTheCaseOfAsciiLetters) {
    struct Case {
        const char* first;
        const char* second;
        int sign;
    };
    for (const Case& c : {
             Case{"", "", 0},
             Case{"abc", "ABC", 0},
             Case{"MiXeD_1", "mIxEd_1", 0},
             Case{"abc", "abd", -1},
             Case{"ABD", "abc", 1},
             Case{"abc", "ab", 1},
             Case{"", "a", -1},
             Case{"Z", "a", 1},
             Case{"z", "A", 1},
             Case{"_", "a", -1},
             Case{"_", "A", -1},
             Case{"[", "a", -1},
             Case{"@", "`", -1},
             Case{"\xc3\xa9", "\xc3\x89", 1},
             Case{"a", "\xff", -1},
             Case{"\xe9", "\xc9", 1},
         }) {
        SCOPED_TRACE(c.first + " with "s + c.second);
        for (const char* locale : {"C", "C.utf8"}) {
            ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
            const int result = IgCmnStrCmpi(c.first, c.second);
            EXPECT_EQ(result < 0 ? -1 : (result > 0 ? 1 : 0), c.sign);
        }
    }
}

// Names of files

TEST_F(IGCmnStr, MakesAFileNameOfAText) {
    struct Case {
        const char* text;
        const char* name;
        const char* host_name;
    };
    for (const Case& c : {
             Case{"", "", ""},
             Case{"web01", "web01", "web01"},
             Case{"web-01.lan", "web_01_lan", "web_01_lan"},
             Case{"a b\tc/d\\e_f", "a_b_c_d_e_f", "a_b_c_d_e_f"},
             Case{"..", "__", "__"},
             Case{"host.", "host_", "host_"},
             Case{"-", "_", "_"},
             Case{"host\xc3\xa9", "host\xc3\xa9", "host__"},
             Case{"a\nb", "a_b", "a_b"},
             Case{"a\x01\x7f", "a__", "a____"},
             Case{"caf\xc3\xa9", "caf\xc3\xa9", "caf__"},
             Case{"\xe3\x81\x82-\xe3\x81\x84", "\xe3\x81\x82_\xe3\x81\x84", "_____"},
         }) {
        SCOPED_TRACE(::testing::PrintToString(c.text));
        char* name = nullptr;
        ASSERT_EQ(IgCmnStrToFileName(pool(), c.text, &name), 0);
        EXPECT_STREQ(name, c.name);
        expectFreeable(name);
        ASSERT_EQ(IgCmnStrHostToFileName(pool(), c.text, &name), 0);
        EXPECT_STREQ(name, c.host_name);
        expectFreeable(name);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnStr, MakesNoFileNameOfWhatTheLocaleCannotDecode) {
    char* name = nullptr;
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnStrToFileName(pool(), NOT_CONVERTIBLE.c_str(), &name), -1);
                  EXPECT_EQ(IgCmnStrHostToFileName(pool(), NOT_CONVERTIBLE.c_str(), &name), -1);
              }),
              conversionFailure("mbstowcs") + conversionFailure("mbstowcs"));
    EXPECT_EQ(name, nullptr);
}

TEST_F(IGCmnStr, FindsTheParentDirectory) {
    struct Case {
        const char* path;
        const char* parent;
    };
    for (const Case& c :
         {Case{"/var/log", "/var"}, Case{"/var/log/x", "/var/log"}, Case{"/var/", "/var"},
          Case{"a/b", "a"}, Case{"a//b", "a/"}, Case{"//a", "/"}, Case{"/var", nullptr},
          Case{"/", nullptr}, Case{"name", nullptr}, Case{"", nullptr},
          Case{"/\xc3\xa9/x", "/\xc3\xa9"}}) {
        SCOPED_TRACE(c.path);
        char stale[] = "stale";
        char* parent = stale;
        EXPECT_EQ(IgCmnStrParentDir(pool(), c.path, &parent), 0);
        EXPECT_STREQ(parent, c.parent);
    }
    char* parent = nullptr;
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnStrParentDir(pool(), NOT_CONVERTIBLE.c_str(), &parent), -1);
              }),
              conversionFailure("mbstowcs"));
}

// Texts for the shell and the terminal

TEST_F(IGCmnStr, EscapesWhatTheShellObeysInsideDoubleQuotes) {
    struct Case {
        const char* text;
        const char* escaped;
    };
    for (const Case& c :
         {Case{"", ""}, Case{"/plain/name 1.txt", "/plain/name 1.txt"}, Case{"$HOME", "\\$HOME"},
          Case{"`id`", "\\`id\\`"}, Case{"a\"b", "a\\\"b"}, Case{"a\\b", "a\\\\b"},
          Case{"'!*?;&|<>()#~\n", "'!*?;&|<>()#~\n"}, Case{"$`\"\\", "\\$\\`\\\"\\\\"},
          Case{"\xff", "\xff"}}) {
        EXPECT_STREQ(IgCmnStrShellEscape(pool(), c.text), c.escaped);
    }
}

TEST_F(IGCmnStr, ShowsANameWithoutControlCharacters) {
    EXPECT_STREQ(IgCmnStrPrintable(pool(), ""), "");
    EXPECT_STREQ(IgCmnStrPrintable(pool(), "plain"), "plain");
    EXPECT_STREQ(IgCmnStrPrintable(pool(), "\x01\x02\x1b"), "\\001\\002\\033");
    EXPECT_EQ(IgCmnStrPrintable(pool(), std::string(3000, '\n').c_str()), [] {
        std::string shown;
        for (int i = 0; i < 3000; ++i) {
            shown += "\\012";
        }
        return shown;
    }());
}

// Without memory

TEST_F(IGCmnStr, GivesNothingWhenMemoryRunsOut) {
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer's allocator does not obey limits";
    }
    const std::string text(1000, 't');
    const std::wstring wide(1000, L't');
    const ChildResult child = inChild([&] {
        memory_pool* p = pool();
        char* out = nullptr;
        exhaustMemory();
        const bool nothing =
            IgCmnStrdup(p, text.c_str()) == nullptr && IgCmnStrdupW(p, wide.c_str()) == nullptr &&
            IgCmnStrCat(p, text.c_str(), "x") == nullptr &&
            IgCmnStrCatDir(p, text.c_str(), "x") == nullptr &&
            IgCmnWCS2MBS(p, wide.c_str()) == nullptr && IgCmnMBS2WCS(p, text.c_str()) == nullptr &&
            IgCmnStrIsAscii(text.c_str()) == -1 && IgCmnStrRemoveDQ(p, text.c_str()) == nullptr &&
            IgCmnStrToFileName(p, text.c_str(), &out) == -1 &&
            IgCmnStrHostToFileName(p, text.c_str(), &out) == -1 &&
            IgCmnStrParentDir(p, text.c_str(), &out) == -1 &&
            IgCmnStrShellEscape(p, text.c_str()) == nullptr &&
            IgCmnStrPrintable(p, text.c_str()) == nullptr && out == nullptr;
        std::exit(nothing ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    std::string reports;
    for (int i = 0; i < 13; ++i) {
        reports += "ZEPA122-E:Memory is insufficient.\n";
    }
    EXPECT_EQ(child.err, reports) << "once each, by the pool";
}

// What must not be null

constexpr const char* NULL_POOL = "Assertion `memoryp != \\(\\(void \\*\\)0\\)";

template <typename Call>
void expectAssertsItsText(Call call) {
    EXPECT_DEATH(call(), "Assertion `[a-z]+ != \\(\\(void \\*\\)0\\)");
}

TEST(IGCmnStrDeathTest, AssertsItsPool) {
    char* out = nullptr;
    EXPECT_DEATH(static_cast<void>(IgCmnStrdup(nullptr, "x")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnStrdupW(nullptr, L"x")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnStrCat(nullptr, "x", "y")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnStrCatDir(nullptr, "x", "y")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnWCS2MBS(nullptr, L"x")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnMBS2WCS(nullptr, "x")), NULL_POOL);
    EXPECT_DEATH(static_cast<void>(IgCmnStrRemoveDQ(nullptr, "x")), NULL_POOL);
    EXPECT_DEATH(IgCmnStrToFileName(nullptr, "x", &out), NULL_POOL);
    EXPECT_DEATH(IgCmnStrHostToFileName(nullptr, "x", &out), NULL_POOL);
    EXPECT_DEATH(IgCmnStrParentDir(nullptr, "x", &out), NULL_POOL);
}

TEST(IGCmnStrDeathTest, AssertsItsText) {
    static memory_pool pool = nullptr;
    static char* out = nullptr;
    expectAssertsItsText([] { static_cast<void>(IgCmnStrdup(&pool, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrdupW(&pool, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrCat(&pool, nullptr, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrCatDir(&pool, nullptr, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnWCS2MBS(&pool, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnMBS2WCS(&pool, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrIsAscii(nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrRemoveDQ(&pool, nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrCmpi(nullptr, "x")); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrCmpi("x", nullptr)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrToFileName(&pool, nullptr, &out)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrHostToFileName(&pool, nullptr, &out)); });
    expectAssertsItsText([] { static_cast<void>(IgCmnStrParentDir(&pool, nullptr, &out)); });
}

}  // namespace
