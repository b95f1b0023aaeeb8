#include "common/base/IGCmnStr.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"

namespace {

using namespace std::string_literals;

const std::string NOT_CONVERTIBLE = "fine \xff not";  // in no locale of the tests

std::string conversionFailure(const std::string& call) {
    return "ZEPA113-E:An error occurred during the following system call. system call name = " +
           call +
           ", error code = 84, msg = Invalid or incomplete multibyte or wide character.\n"
           "ZEPA114-E:source = IGCmnStr, line no = N.\n";
}

class IGCmnStr : public RunTest {
  protected:
    /// Checks that a result is a block of its length + 1 bytes: after it is freed with that size,
    /// the next request of the size gets the same block. Another block keeps the chunk allocated.
    void expectFreeable(char* text) {
        const std::size_t size = std::strlen(text) + 1;
        if (size > 196) {
            return;  // the block has a chunk of its own, which is freed with it
        }
        ASSERT_NE(IgCmnMemoryAlloc(pool(), size), nullptr);
        IgCmnMemoryFree(pool(), text, size);
        EXPECT_EQ(IgCmnMemoryAlloc(pool(), size), text);
    }
    /// What the body reports, as the run log shows it.
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

TEST_F(IGCmnStr, CopiesAPrefixOfAText) {
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

TEST_F(IGCmnStr, ReportsAConversionThatFailsAfterTheLengthIsKnown) {
    for (const int nth : {1, 2}) {
        SCOPED_TRACE(nth);
        std::string report = reported([&] {
            const FailingCall failing(Call::MBSTOWCS, nth, EILSEQ);
            EXPECT_EQ(IgCmnMBS2WCS(pool(), "text"), nullptr);
        });
        EXPECT_EQ(report, conversionFailure("mbstowcs"));
        report = reported([&] {
            const FailingCall failing(Call::WCSTOMBS, nth, EILSEQ);
            EXPECT_EQ(IgCmnWCS2MBS(pool(), L"text"), nullptr);
        });
        EXPECT_EQ(report, conversionFailure("wcstombs"));
    }
}

// Classes of characters

TEST_F(IGCmnStr, KnowsLettersAndDigitsOfAsciiOnly) {
    const std::wstring alnum = L"0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (wchar_t c = 0; c < 0x3100; ++c) {
        const bool expected = c != 0 && alnum.find(c) != std::wstring::npos;
        ASSERT_EQ(IgCmnStrIsAlnum(c), expected ? 1 : 0) << static_cast<int>(c);
    }
}

TEST_F(IGCmnStr, AllowsLettersDigitsAnd36OtherCharacters) {
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

TEST_F(IGCmnStr, IgnoresTheCaseOfAsciiLettersInComparisons) {
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

TEST_F(IGCmnStr, MakesNoFileNameOfUndecodableText) {
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
        std::string cut = c.path;
        EXPECT_EQ(cutToParent(cut.data()), c.parent != nullptr);
        EXPECT_STREQ(cut.c_str(), c.parent == nullptr ? c.path : c.parent);
    }
    char* parent = nullptr;
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnStrParentDir(pool(), NOT_CONVERTIBLE.c_str(), &parent), -1);
              }),
              conversionFailure("mbstowcs"));
}

TEST_F(IGCmnStr, FindsTheLastComponent) {
    EXPECT_STREQ(lastComponent("/var/log"), "log");
    EXPECT_STREQ(lastComponent("/var/"), "");
    EXPECT_STREQ(lastComponent("name"), "name");
    EXPECT_STREQ(lastComponent(""), "");
}

// Texts for the shell and the terminal

TEST_F(IGCmnStr, EscapesWhatTheShellInterpretsInDoubleQuotes) {
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

TEST_F(IGCmnStr, ShowsANameThatNeedsNoEscapeAsItIs) {
    for (const char* name : {"", "plain", "back\\slash", "\xc3\xa9", "\xff", "~"}) {
        EXPECT_EQ(IgCmnStrShown(pool(), name), name) << "not a copy";
    }
    for (const char* name :
         {"\t", "a\n", "\x7f", "\x9b", "\xc2\x9b", "\xe3\x81", "\xf4\x90\x80\x80"}) {
        const char* shown = IgCmnStrShown(pool(), name);
        EXPECT_NE(shown, name);
        EXPECT_STREQ(shown, IgCmnStrPrintable(pool(), name));
    }
}

// Without memory

TEST_F(IGCmnStr, ReturnsNothingWhenMemoryRunsOut) {
    const std::string text(1000, 't');  // every copy needs a chunk of its own
    const std::wstring wide(1000, L't');
    char* out = nullptr;
    const std::vector<std::pair<const char*, std::function<bool(memory_pool*)>>> calls = {
        {"Strdup", [&](memory_pool* p) { return IgCmnStrdup(p, text.c_str()) == nullptr; }},
        {"Strndup", [&](memory_pool* p) { return IgCmnStrndup(p, text.c_str(), 900) == nullptr; }},
        {"StrdupW", [&](memory_pool* p) { return IgCmnStrdupW(p, wide.c_str()) == nullptr; }},
        {"StrCat", [&](memory_pool* p) { return IgCmnStrCat(p, text.c_str(), "x") == nullptr; }},
        {"StrCat of one", [&](memory_pool* p) { return IgCmnStrCat(p, nullptr, "x") == nullptr; }},
        {"StrCatDir",
         [&](memory_pool* p) { return IgCmnStrCatDir(p, text.c_str(), "x") == nullptr; }},
        {"WCS2MBS", [&](memory_pool* p) { return IgCmnWCS2MBS(p, wide.c_str()) == nullptr; }},
        {"MBS2WCS", [&](memory_pool* p) { return IgCmnMBS2WCS(p, text.c_str()) == nullptr; }},
        {"IsAscii", [&](memory_pool*) { return IgCmnStrIsAscii(text.c_str()) == -1; }},
        {"RemoveDQ", [&](memory_pool* p) { return IgCmnStrRemoveDQ(p, text.c_str()) == nullptr; }},
        {"ToFileName",
         [&](memory_pool* p) { return IgCmnStrToFileName(p, text.c_str(), &out) == -1; }},
        {"HostToFileName",
         [&](memory_pool* p) { return IgCmnStrHostToFileName(p, text.c_str(), &out) == -1; }},
        {"ParentDir", [&](memory_pool* p) { return IgCmnStrParentDir(p, "/a/b", &out) == -1; }},
        {"ShellEscape",
         [&](memory_pool* p) { return IgCmnStrShellEscape(p, text.c_str()) == nullptr; }},
        {"Printable",
         [&](memory_pool* p) { return IgCmnStrPrintable(p, text.c_str()) == nullptr; }},
        {"Shown",
         [&](memory_pool* p) { return IgCmnStrShown(p, (text + "\n").c_str()) == nullptr; }},
    };
    for (const auto& [name, fails] : calls) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << name << ", allocation " << nth);
            Pool fresh;
            out = nullptr;
            Capture err(stderr);
            const std::size_t before = liveChunks();
            const FailingCall failing(Call::CALLOC, nth, ENOMEM);
            const bool gave_nothing = fails(fresh.get());
            failed = FailingCall::happened();
            EXPECT_EQ(gave_nothing, failed);
            EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_TRUE(failed || nth > 1);
            if (failed) {
                EXPECT_EQ(out, nullptr);
            }
            IgCmnMemoryFree(fresh.get(), nullptr, 0);
            EXPECT_EQ(liveChunks(), before) << "temporaries are freed in every case";
        }
    }
}

// The longest

TEST_F(IGCmnStr, HandlesTextsLongerThanAnyPath) {
    const std::size_t length = 1 << 20;
    const std::string text = "\"" + std::string(length, 'a') + "-\xc3\xa9\"";
    const std::string inner = text.substr(1, text.size() - 2);
    EXPECT_EQ(IgCmnStrRemoveDQ(pool(), text.c_str()), inner);
    EXPECT_EQ(IgCmnStrCat(pool(), text.c_str(), inner.c_str()), text + inner);
    EXPECT_EQ(IgCmnStrCatDir(pool(), text.c_str(), inner.c_str()), text + "/" + inner);
    const wchar_t* wide = IgCmnMBS2WCS(pool(), text.c_str());
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::wcslen(wide), length + 4);
    EXPECT_EQ(IgCmnWCS2MBS(pool(), wide), text);
    EXPECT_EQ(IgCmnStrIsAscii(text.c_str()), 0);
    EXPECT_EQ(IgCmnStrIsAscii(std::string(length, '~').c_str()), 1);
    EXPECT_EQ(IgCmnStrCmpi(std::string(length, 'a').c_str(), std::string(length, 'A').c_str()), 0);
    char* name = nullptr;
    ASSERT_EQ(IgCmnStrToFileName(pool(), inner.c_str(), &name), 0);
    EXPECT_EQ(name, std::string(length, 'a') + "_\xc3\xa9");
    ASSERT_EQ(IgCmnStrHostToFileName(pool(), inner.c_str(), &name), 0);
    EXPECT_EQ(name, std::string(length, 'a') + "___");
    ASSERT_EQ(IgCmnStrParentDir(pool(), (inner + "/x").c_str(), &name), 0);
    EXPECT_EQ(name, inner);
}

TEST_F(IGCmnStr, TreatsEveryCharacterOfAHostNameByItsClass) {
    const std::string marks = "\n\r\t !\"#$%&'()=~|`{}*+;:]-^@[<>?_,./\\";
    for (int byte = 1; byte < 0x80; ++byte) {
        const auto c = static_cast<char>(byte);
        const bool alnum = IgCmnStrIsAlnum(static_cast<wchar_t>(byte)) != 0;
        const std::string shown = alnum                                ? std::string(1, c)
                                  : marks.find(c) != std::string::npos ? "_"
                                                                       : "__";
        char* name = nullptr;
        ASSERT_EQ(IgCmnStrHostToFileName(pool(), ("a" + std::string(1, c) + "b").c_str(), &name),
                  0);
        EXPECT_EQ(name, "a" + shown + "b") << byte;
        ASSERT_EQ(IgCmnStrToFileName(pool(), ("a" + std::string(1, c) + "b").c_str(), &name), 0);
        EXPECT_EQ(name, "a" + (alnum ? shown : "_") + "b") << byte;
    }
}

// What must not be null

constexpr const char* NULL_POOL = "Assertion `memoryp != \\(\\(void \\*\\)0\\)";

std::string nullOf(const std::string& name) {
    return "Assertion `" + name + " != \\(\\(void \\*\\)0\\)' failed";
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
    memory_pool pool = nullptr;
    char* out = nullptr;
    EXPECT_DEATH(static_cast<void>(IgCmnStrdup(&pool, nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrndup(&pool, nullptr, 0)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrdupW(&pool, nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrCat(&pool, nullptr, nullptr)), nullOf("second"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrCatDir(&pool, nullptr, nullptr)), nullOf("second"));
    EXPECT_DEATH(static_cast<void>(IgCmnWCS2MBS(&pool, nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnMBS2WCS(&pool, nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrIsAscii(nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrRemoveDQ(&pool, nullptr)), nullOf("text"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrCmpi(nullptr, "x")), nullOf("first"));
    EXPECT_DEATH(static_cast<void>(IgCmnStrCmpi("x", nullptr)), nullOf("second"));
    EXPECT_DEATH(IgCmnStrToFileName(&pool, nullptr, &out), nullOf("text"));
    EXPECT_DEATH(IgCmnStrHostToFileName(&pool, nullptr, &out), nullOf("text"));
    EXPECT_DEATH(IgCmnStrParentDir(&pool, nullptr, &out), nullOf("path"));
}

TEST(IGCmnStrDeathTest, AssertsItsResult) {
    memory_pool pool = nullptr;
    EXPECT_DEATH(IgCmnStrToFileName(&pool, "x", nullptr), nullOf("result"));
    EXPECT_DEATH(IgCmnStrHostToFileName(&pool, "x", nullptr), nullOf("result"));
    EXPECT_DEATH(IgCmnStrParentDir(&pool, "x", nullptr), nullOf("result"));
}

}  // namespace
