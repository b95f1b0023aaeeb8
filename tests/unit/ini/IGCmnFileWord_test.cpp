#include "ini/IGCmnFileWord.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/file/IGCmnFile.h"

namespace {

using namespace std::string_literals;

const char* typeName(std::int32_t type) {
    constexpr std::array<const char*, 12> NAMES{"QUOTED",  "EQUAL",   "COMMENT", "TEXT",
                                                "4",       "OPEN",    "CLOSE",   "BLANK",
                                                "SPECIAL", "NEWLINE", "PERCENT", "INVALID"};
    return type >= 0 && type < 12 ? NAMES[static_cast<std::size_t>(type)] : "?";
}

class IGCmnFileWord : public RunTest {
  protected:
    ~IGCmnFileWord() override { IgCmnFileClose(&handle_); }

    void open(const std::string& content) {
        IgCmnFileClose(&handle_);
        word_ = read_word{};
        writeText(dir_.path("words"), content);
        ASSERT_EQ(IgCmnFileOpen(&handle_, dir_.path("words").c_str(), "r"), 0);
    }
    int read() { return IgCmnFileWordRead(nullptr, &handle_, &word_, pool()); }

    /// One line per word, "TYPE(text) line:column", and how the reading ended.
    std::string words(const std::string& content) {
        open(content);
        std::string result;
        int code = read();
        for (; code == 0; code = read()) {
            result += std::string(typeName(word_.type)) + "(" + word_.text + ") " + place() + "\n";
        }
        return result + (code == 1 ? "END" : "RESULT " + std::to_string(code)) + " " + place();
    }
    std::string place() const {
        return std::to_string(handle_.line_no) + ":" + std::to_string(handle_.column);
    }

    TempDir dir_;
    IgCmnFileHandle handle_{};
    read_word word_{};
};

struct Case {
    std::string input;
    std::vector<std::string> words;  // the last one is how the reading ended
};

const std::vector<Case> PLAIN_CASES{
    {"", {"END 1:0"}},
    {"\n", {"NEWLINE() 1:1", "END 2:0"}},
    {"\n\n\n", {"NEWLINE() 1:1", "NEWLINE() 2:1", "NEWLINE() 3:1", "END 4:0"}},
    {"KEY=value\n",
     {"TEXT(KEY) 1:3", "EQUAL(=) 1:4", "TEXT(value) 1:9", "NEWLINE() 1:10", "END 2:0"}},
    {"KEY = value\n",
     {"TEXT(KEY) 1:3", "BLANK( ) 1:4", "EQUAL(=) 1:5", "BLANK( ) 1:6", "TEXT(value) 1:11",
      "NEWLINE() 1:12", "END 2:0"}},
    {"TOOL {\n}\n",
     {"TEXT(TOOL) 1:4", "BLANK( ) 1:5", "OPEN({) 1:6", "NEWLINE() 1:7", "CLOSE(}) 2:1",
      "NEWLINE() 2:2", "END 3:0"}},
    {"{{}}==\n",
     {"OPEN({) 1:1", "OPEN({) 1:2", "CLOSE(}) 1:3", "CLOSE(}) 1:4", "EQUAL(=) 1:5", "EQUAL(=) 1:6",
      "NEWLINE() 1:7", "END 2:0"}},
    {" \t \n", {"BLANK( \t ) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"a{b}c\n",
     {"TEXT(a) 1:1", "OPEN({) 1:2", "TEXT(b) 1:3", "CLOSE(}) 1:4", "TEXT(c) 1:5", "NEWLINE() 1:6",
      "END 2:0"}},
    {"_a1_Z9\n", {"TEXT(_a1_Z9) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"/etc/x-1.0,*?;:\n", {"TEXT(/etc/x-1.0,*?;:) 1:15", "NEWLINE() 1:16", "END 2:0"}},
    {"!$&'()~|`+]^@[<>\n", {"TEXT(!$&'()~|`+]^@[<>) 1:16", "NEWLINE() 1:17", "END 2:0"}},
    {"1.0\n", {"TEXT(1.0) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"a\nb\n", {"TEXT(a) 1:1", "NEWLINE() 1:2", "TEXT(b) 2:1", "NEWLINE() 2:2", "END 3:0"}},
};

const std::vector<Case> COMMENTS{
    {"#\n", {"COMMENT() 1:2", "END 2:0"}},
    {"# a = \"b\" {%c%} \\\n", {"COMMENT( a = \"b\" {%c%} \\) 1:18", "END 2:0"}},
    {"a#b\nc\n", {"TEXT(a) 1:1", "COMMENT(b) 1:4", "TEXT(c) 2:1", "NEWLINE() 2:2", "END 3:0"}},
    {"##\n#\n", {"COMMENT(#) 1:3", "COMMENT() 2:2", "END 3:0"}},
    {"# lost", {"END 1:6"}},
};

const std::vector<Case> ESCAPES_AT_THE_START{
    {"\\#a\n", {"TEXT(#a) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"\\\"a\n", {"TEXT(\"a) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"\\\\a\n", {"TEXT(\\a) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"\\a\n", {"TEXT(\\) 1:1", "TEXT(a) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\\%\n", {"TEXT(\\) 1:1", "PERCENT(%) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\\ {\n", {"TEXT(\\) 1:1", "BLANK( ) 1:2", "OPEN({) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"\\{\n", {"TEXT(\\) 1:1", "OPEN({) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\\\n", {"TEXT(\\) 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"\\\\\n", {"TEXT(\\) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\\", {"END 1:1"}},
};

const std::vector<Case> ESCAPES_IN_A_WORD{
    {"a\\#b\n", {"TEXT(a#b) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\\"b\n", {"TEXT(a\"b) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\\\b\n", {"TEXT(a\\b) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\nb\n", {"TEXT(a\\nb) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\ b\n", {"TEXT(a\\ b) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\\tb\n", {"TEXT(a\\\tb) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\{\\}\\=b\n", {"TEXT(a\\{\\}\\=b) 1:8", "NEWLINE() 1:9", "END 2:0"}},
    {"a\\\n", {"TEXT(a\\) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"a\\%b%\n", {"TEXT(a\\) 1:2", "SPECIAL(%b) 1:5", "NEWLINE() 1:6", "END 2:0"}},
    {"a\\\\%\n", {"TEXT(a\\) 1:3", "PERCENT(%) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"a\\", {"END 1:2"}},
};

const std::vector<Case> QUOTES{
    {"\"\"\n", {"QUOTED() 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\"a b\"\n", {"QUOTED(a b) 1:5", "NEWLINE() 1:6", "END 2:0"}},
    {"\"%a% {b} = #c\t'\"\n", {"QUOTED(%a% {b} = #c\t') 1:16", "NEWLINE() 1:17", "END 2:0"}},
    {"\"a\\\"b\"\n", {"QUOTED(a\"b) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"\"a\\\\b\"\n", {"QUOTED(a\\b) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"\"a\\#b\"\n", {"QUOTED(a#b) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"\"a\\nb\"\n", {"QUOTED(a\\nb) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"\"\\%\\ \"\n", {"QUOTED(\\%\\ ) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"\"\\\\\"\n", {"QUOTED(\\) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"\"a\"\"b\"\n", {"QUOTED(a) 1:3", "QUOTED(b) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"a\"b\"c\n", {"TEXT(a) 1:1", "QUOTED(b) 1:4", "TEXT(c) 1:5", "NEWLINE() 1:6", "END 2:0"}},
    {"\"a\n", {"RESULT 9 1:3"}},
    {"\"a\\\n", {"RESULT 9 1:4"}},
    {"x\n\"\n", {"TEXT(x) 1:1", "NEWLINE() 1:2", "RESULT 9 2:2"}},
    {"\"a", {"END 1:2"}},
    {"\"a\\\"", {"END 1:4"}},
};

const std::vector<Case> PERCENTS{
    {"%HOST%\n", {"SPECIAL(%HOST) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"a%HOST%b\n",
     {"TEXT(a) 1:1", "SPECIAL(%HOST) 1:7", "TEXT(b) 1:8", "NEWLINE() 1:9", "END 2:0"}},
    {"%YY%%MM%\n", {"SPECIAL(%YY) 1:4", "SPECIAL(%MM) 1:8", "NEWLINE() 1:9", "END 2:0"}},
    {"%_x%\n", {"SPECIAL(%_x) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"%9%\n", {"SPECIAL(%9) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"%a-b/c%\n", {"SPECIAL(%a-b/c) 1:7", "NEWLINE() 1:8", "END 2:0"}},
    {"%NOPE%\n", {"SPECIAL(%NOPE) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"%a b%\n",
     {"SPECIAL(%a) 1:2", "BLANK( ) 1:3", "TEXT(b) 1:4", "PERCENT(%) 1:5", "NEWLINE() 1:6",
      "END 2:0"}},
    {"%a{\n", {"SPECIAL(%a) 1:2", "OPEN({) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"%a#b\n", {"SPECIAL(%a) 1:2", "COMMENT(b) 1:5", "END 2:0"}},
    {"%HOST\n", {"TEXT(%HOST) 1:5", "NEWLINE() 1:6", "END 2:0"}},
    {"%HOST", {"END 1:5"}},
    {"%a\\#b\\xc%\n", {"SPECIAL(%a#b\\xc) 1:9", "NEWLINE() 1:10", "END 2:0"}},
    {"%a\\%b%\n", {"SPECIAL(%a\\) 1:3", "SPECIAL(%b) 1:6", "NEWLINE() 1:7", "END 2:0"}},
    {"%%\n", {"TEXT(%%) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"%%a\n", {"TEXT(%%a) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"a%%\n", {"TEXT(a) 1:1", "TEXT(%%) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"%%%\n", {"TEXT(%%) 1:2", "PERCENT(%) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"%%a%%\n", {"TEXT(%%a) 1:3", "TEXT(%%) 1:5", "NEWLINE() 1:6", "END 2:0"}},
    {"% \n", {"PERCENT(%) 1:1", "BLANK( ) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"%\n", {"PERCENT(%) 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"%-x%\n", {"PERCENT(%) 1:1", "TEXT(-x) 1:3", "PERCENT(%) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"%=\"\"\n", {"PERCENT(%) 1:1", "EQUAL(=) 1:2", "QUOTED() 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"%\\a\n", {"PERCENT(%) 1:1", "TEXT(\\) 1:2", "TEXT(a) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"%", {"END 1:1"}},
};

const std::vector<Case> ENDS{
    {"a\nlost", {"TEXT(a) 1:1", "NEWLINE() 1:2", "END 2:4"}},
    {"a lost", {"TEXT(a) 1:1", "BLANK( ) 1:2", "END 1:6"}},
    {"a ", {"TEXT(a) 1:1", "END 1:2"}},
    {"a\n}", {"TEXT(a) 1:1", "NEWLINE() 1:2", "CLOSE(}) 2:1", "END 2:1"}},
    {"a=", {"TEXT(a) 1:1", "EQUAL(=) 1:2", "END 1:2"}},
    {"%a%", {"SPECIAL(%a) 1:3", "END 1:3"}},
    {"\"a\"", {"QUOTED(a) 1:3", "END 1:3"}},
};

const std::vector<Case> CARRIAGE_RETURNS{
    {"a=b\r\n", {"TEXT(a) 1:1", "EQUAL(=) 1:2", "TEXT(b) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"a\rb\n", {"TEXT(ab) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\r\r\n", {"NEWLINE() 1:1", "END 2:0"}},
    {" \r \n", {"BLANK(  ) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\"a\rb\"\r\n", {"QUOTED(ab) 1:4", "NEWLINE() 1:5", "END 2:0"}},
    {"#a\r\n", {"COMMENT(a) 1:3", "END 2:0"}},
    {"a\\\r#\n", {"TEXT(a#) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"a\\\r\n", {"TEXT(a\\) 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"%\rH%\r\n", {"SPECIAL(%H) 1:3", "NEWLINE() 1:4", "END 2:0"}},
    {"\r", {"END 1:0"}},
};

const std::vector<Case> INVALID_CHARACTERS{
    {"\xc3\xa9\n", {"INVALID() 1:0", "NEWLINE() 1:1", "END 2:0"}},
    {"ab\xc3\xa9\n", {"INVALID() 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {"\"a\xc3\xa9\"\n", {"INVALID() 1:2", "RESULT 9 1:4"}},
    {"#a\xc3\xa9\n", {"INVALID() 1:2", "NEWLINE() 1:3", "END 2:0"}},
    {" \xe3\x81\x82\n", {"INVALID() 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"%\xc3\xa9\n", {"INVALID() 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"\\\xc3\xa9\n", {"INVALID() 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"a\v\n", {"INVALID() 1:1", "NEWLINE() 1:2", "END 2:0"}},
    {"\f\n", {"INVALID() 1:0", "NEWLINE() 1:1", "END 2:0"}},
    {"\x1b\n", {"INVALID() 1:0", "NEWLINE() 1:1", "END 2:0"}},
    {"\x7f\n", {"INVALID() 1:0", "NEWLINE() 1:1", "END 2:0"}},
    {"a\0b\n"s, {"INVALID() 1:1", "TEXT(b) 1:2", "NEWLINE() 1:3", "END 2:0"}},
};

struct Table {
    const char* name;
    std::vector<Case> cases;
};

class WordTable : public IGCmnFileWord, public ::testing::WithParamInterface<Table> {};

TEST_P(WordTable, ReturnsTheseWords) {
    for (const Case& c : GetParam().cases) {
        SCOPED_TRACE(::testing::PrintToString(c.input));
        std::string expected;
        for (const std::string& word : c.words) {
            expected += (expected.empty() ? "" : "\n") + word;
        }
        EXPECT_EQ(words(c.input), expected);
    }
    EXPECT_EQ(takeLog(), "");
}

INSTANTIATE_TEST_SUITE_P(
    IGCmnFileWord, WordTable,
    ::testing::Values(Table{"PlainWordsAndMarks", PLAIN_CASES}, Table{"Comments", COMMENTS},
                      Table{"BackslashAtTheStart", ESCAPES_AT_THE_START},
                      Table{"BackslashInAWord", ESCAPES_IN_A_WORD}, Table{"Quotes", QUOTES},
                      Table{"Percents", PERCENTS}, Table{"UnfinishedLastLines", ENDS},
                      Table{"CarriageReturns", CARRIAGE_RETURNS},
                      Table{"InvalidCharacters", INVALID_CHARACTERS}),
    [](const ::testing::TestParamInfo<Table>& table) { return std::string(table.param.name); });

// One character of every class in every mode: the first word that results, and the column after
// that word. The prefix selects the mode, the tail ends a word that the character does not end.
struct ModeRow {
    const char* prefix;
    const char* tail;
    std::array<const char*, 14> words;  // for each of CHARACTERS
};

constexpr std::string_view CHARACTERS = "\n\r{}=\\\"#% \t_7/";

const std::array<ModeRow, 11> MODES{{
    {"",
     " \n",
     {"NEWLINE() 1", "BLANK( ) 1", "OPEN({) 1", "CLOSE(}) 1", "EQUAL(=) 1", "TEXT(\\) 1",
      "RESULT 9 3", "COMMENT( ) 3", "PERCENT(%) 1", "BLANK(  ) 2", "BLANK(\t ) 2", "TEXT(_) 1",
      "TEXT(7) 1", "TEXT(/) 1"}},
    {"\\",
     " \n",
     {"TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 2",
      "TEXT(\") 2", "TEXT(#) 2", "TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 1", "TEXT(\\) 1",
      "TEXT(\\) 1", "TEXT(\\) 1"}},
    {"%",
     " \n",
     {"PERCENT(%) 1", "PERCENT(%) 1", "PERCENT(%) 1", "PERCENT(%) 1", "PERCENT(%) 1",
      "PERCENT(%) 1", "PERCENT(%) 1", "PERCENT(%) 1", "TEXT(%%) 2", "PERCENT(%) 1", "PERCENT(%) 1",
      "SPECIAL(%_) 2", "SPECIAL(%7) 2", "PERCENT(%) 1"}},
    {"a",
     " \n",
     {"TEXT(a) 1", "TEXT(a) 1", "TEXT(a) 1", "TEXT(a) 1", "TEXT(a) 1", "TEXT(a\\ ) 3", "TEXT(a) 1",
      "TEXT(a) 1", "TEXT(a) 1", "TEXT(a) 1", "TEXT(a) 1", "TEXT(a_) 2", "TEXT(a7) 2",
      "TEXT(a/) 2"}},
    {"a\\",
     " \n",
     {"TEXT(a\\) 2", "TEXT(a\\ ) 3", "TEXT(a\\{) 3", "TEXT(a\\}) 3", "TEXT(a\\=) 3", "TEXT(a\\) 3",
      "TEXT(a\") 3", "TEXT(a#) 3", "TEXT(a\\) 2", "TEXT(a\\ ) 3", "TEXT(a\\\t) 3", "TEXT(a\\_) 3",
      "TEXT(a\\7) 3", "TEXT(a\\/) 3"}},
    {"%a",
     " \n",
     {"TEXT(%a) 2", "SPECIAL(%a) 2", "SPECIAL(%a) 2", "SPECIAL(%a) 2", "SPECIAL(%a) 2",
      "TEXT(%a\\ ) 4", "SPECIAL(%a) 2", "SPECIAL(%a) 2", "SPECIAL(%a) 3", "SPECIAL(%a) 2",
      "SPECIAL(%a) 2", "SPECIAL(%a_) 3", "SPECIAL(%a7) 3", "SPECIAL(%a/) 3"}},
    {"%a\\",
     " \n",
     {"SPECIAL(%a\\) 3", "TEXT(%a\\ ) 4", "SPECIAL(%a\\{) 4", "SPECIAL(%a\\}) 4",
      "SPECIAL(%a\\=) 4", "SPECIAL(%a\\) 4", "SPECIAL(%a\") 4", "SPECIAL(%a#) 4", "SPECIAL(%a\\) 3",
      "SPECIAL(%a\\ ) 4", "SPECIAL(%a\\\t) 4", "SPECIAL(%a\\_) 4", "SPECIAL(%a\\7) 4",
      "SPECIAL(%a\\/) 4"}},
    {"\"a",
     "\"\n",
     {"RESULT 9 3", "QUOTED(a) 3", "QUOTED(a{) 4", "QUOTED(a}) 4", "QUOTED(a=) 4", "RESULT 9 5",
      "QUOTED(a) 3", "QUOTED(a#) 4", "QUOTED(a%) 4", "QUOTED(a ) 4", "QUOTED(a\t) 4",
      "QUOTED(a_) 4", "QUOTED(a7) 4", "QUOTED(a/) 4"}},
    {"\"a\\",
     "\"\n",
     {"RESULT 9 4", "RESULT 9 5", "QUOTED(a\\{) 5", "QUOTED(a\\}) 5", "QUOTED(a\\=) 5",
      "QUOTED(a\\) 5", "QUOTED(a\") 5", "QUOTED(a#) 5", "QUOTED(a\\%) 5", "QUOTED(a\\ ) 5",
      "QUOTED(a\\\t) 5", "QUOTED(a\\_) 5", "QUOTED(a\\7) 5", "QUOTED(a\\/) 5"}},
    {"#a",
     " \n",
     {"COMMENT(a) 3", "COMMENT(a ) 4", "COMMENT(a{ ) 5", "COMMENT(a} ) 5", "COMMENT(a= ) 5",
      "COMMENT(a\\ ) 5", "COMMENT(a\" ) 5", "COMMENT(a# ) 5", "COMMENT(a% ) 5", "COMMENT(a  ) 5",
      "COMMENT(a\t ) 5", "COMMENT(a_ ) 5", "COMMENT(a7 ) 5", "COMMENT(a/ ) 5"}},
    {" ",
     " \n",
     {"BLANK( ) 1", "BLANK(  ) 2", "BLANK( ) 1", "BLANK( ) 1", "BLANK( ) 1", "BLANK( ) 1",
      "BLANK( ) 1", "BLANK( ) 1", "BLANK( ) 1", "BLANK(   ) 3", "BLANK( \t ) 3", "BLANK( ) 1",
      "BLANK( ) 1", "BLANK( ) 1"}},
}};

TEST_F(IGCmnFileWord, HandlesACharacterOfEveryClassInEveryMode) {
    static_assert(CHARACTERS.size() == std::tuple_size_v<decltype(ModeRow::words)>);
    for (const ModeRow& mode : MODES) {
        for (std::size_t i = 0; i < CHARACTERS.size(); ++i) {
            const std::string content = std::string(mode.prefix) + CHARACTERS[i] + mode.tail;
            SCOPED_TRACE(::testing::PrintToString(content));
            open(content);
            const int code = read();
            const std::string word =
                code == 0 ? std::string(typeName(word_.type)) + "(" + word_.text + ")"
                          : "RESULT " + std::to_string(code);
            EXPECT_EQ(word + " " + std::to_string(handle_.column), mode.words[i]);
            EXPECT_EQ(handle_.line_no, 1);
        }
    }
}

TEST_F(IGCmnFileWord, DropsTheWordAtTheEndOfTheFileInAnyMode) {
    for (const ModeRow& mode : MODES) {
        for (const std::string& before : {""s, "x\n"s, "\r"s}) {
            SCOPED_TRACE(::testing::PrintToString(before + mode.prefix));
            const std::string start = before == "x\n" ? "TEXT(x) 1:1\nNEWLINE() 1:2\n" : "";
            const std::string line = before == "x\n" ? "2:" : "1:";
            EXPECT_EQ(words(before + mode.prefix),
                      start + "END " + line + std::to_string(std::strlen(mode.prefix)));
        }
    }
}

TEST_F(IGCmnFileWord, EndsAtAForbiddenCharacterInAnyMode) {
    for (const char* locale : {"C", "C.utf8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        for (const ModeRow& mode : MODES) {
            for (const std::string& bad : {"\0"s, "\v"s, "\x7f"s, "\x80"s, "\xff"s, "\xc3\xa9"s,
                                           "\xf0\x9f\x98\x80"s, "\xc3("s}) {
                SCOPED_TRACE(locale + ::testing::PrintToString(mode.prefix + bad));
                open(mode.prefix + bad + mode.tail);
                ASSERT_EQ(read(), 0);
                EXPECT_EQ(word_.type, WORD_INVALID);
                EXPECT_STREQ(word_.text, "");
                EXPECT_EQ(place(), "1:" + std::to_string(std::strlen(mode.prefix)));
            }
        }
    }
    EXPECT_EQ(takeLog(), "");
}

// The C library reports an end or an undecodable sequence, depending on its buffer.
TEST_F(IGCmnFileWord, ReturnsNoWordForATruncatedCharacterAtTheEndOfTheFile) {
    for (const ModeRow& mode : MODES) {
        for (const char* truncated : {"\xc3", "\xe3\x81", "\xf0\x9f\x98"}) {
            SCOPED_TRACE(::testing::PrintToString(mode.prefix + std::string(truncated)));
            open(mode.prefix + std::string(truncated));
            const int code = read();
            EXPECT_TRUE(code == 1 || (code == 0 && word_.type == WORD_INVALID)) << code;
        }
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFileWord, KeepsTheNumbersOfItsWordTypes) {
    EXPECT_EQ(WORD_QUOTED, 0);
    EXPECT_EQ(WORD_EQUAL, 1);
    EXPECT_EQ(WORD_COMMENT, 2);
    EXPECT_EQ(WORD_TEXT, 3);
    EXPECT_EQ(WORD_OPEN, 5);
    EXPECT_EQ(WORD_CLOSE, 6);
    EXPECT_EQ(WORD_BLANK, 7);
    EXPECT_EQ(WORD_SPECIAL, 8);
    EXPECT_EQ(WORD_NEWLINE, 9);
    EXPECT_EQ(WORD_PERCENT, 10);
    EXPECT_EQ(WORD_INVALID, 11);
}

TEST_F(IGCmnFileWord, ClassifiesEveryByteAtTheStartOfAWord) {
    const std::string other = "!$&'()~|`*+;:]-^@[<>?,./";
    for (int byte = 0; byte < 0x80; ++byte) {
        SCOPED_TRACE(byte);
        const auto c = static_cast<char>(byte);
        const bool alnum =
            (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        std::int32_t expected = WORD_INVALID;
        switch (c) {
            case '\n':
            case '\r':  // it is skipped: the line feed after it is read
                expected = WORD_NEWLINE;
                break;
            case ' ':
            case '\t':
                expected = WORD_BLANK;
                break;
            case '{':
                expected = WORD_OPEN;
                break;
            case '}':
                expected = WORD_CLOSE;
                break;
            case '=':
                expected = WORD_EQUAL;
                break;
            case '"':
                continue;  // in the table of quotes
            case '#':
                expected = WORD_COMMENT;
                break;
            case '%':
                expected = WORD_PERCENT;
                break;
            default:
                if (alnum || c == '_' || c == '\\' ||
                    (c != '\0' && other.find(c) != std::string::npos)) {
                    expected = WORD_TEXT;
                }
        }
        open(std::string(1, c) + "\n");
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(word_.type, expected);
    }
}

TEST_F(IGCmnFileWord, AcceptsALineOf1025CharactersWithItsLineFeed) {
    EXPECT_EQ(words(std::string(1024, 'a') + "\n"),
              "TEXT(" + std::string(1024, 'a') + ") 1:1024\nNEWLINE() 1:1025\nEND 2:0");
    EXPECT_EQ(words("#" + std::string(1023, ' ') + "\n"),
              "COMMENT(" + std::string(1023, ' ') + ") 1:1025\nEND 2:0");
    EXPECT_EQ(words("\"" + std::string(1022, '=') + "\"\n"),
              "QUOTED(" + std::string(1022, '=') + ") 1:1024\nNEWLINE() 1:1025\nEND 2:0");
}

TEST_F(IGCmnFileWord, RefusesALineOf1026Characters) {
    for (const std::string& line :
         {std::string(1025, 'a'), std::string(1025, ' '), "#" + std::string(1024, 'b'),
          "\"" + std::string(1023, 'c') + "\"", "%" + std::string(1024, 'd'),
          "\\#" + std::string(1023, 'e'), std::string(1025, 'f') + "\\"}) {
        SCOPED_TRACE(line.substr(0, 3));
        open("first\n" + line + "\n");
        int code = 0;
        while (code == 0) {
            code = read();
        }
        EXPECT_EQ(code, 9);
        EXPECT_EQ(place(), "2:1026");
    }
}

TEST_F(IGCmnFileWord, CountsAPushedBackCharacterOnce) {
    // Every word of this line ends with a character that is pushed back for the next one.
    std::string line;
    std::string expected;
    for (int i = 0; i < 512; ++i) {
        line += "a ";
        expected += "TEXT(a) 1:" + std::to_string(2 * i + 1) +
                    "\nBLANK( ) 1:" + std::to_string(2 * i + 2) + "\n";
    }
    EXPECT_EQ(words(line + "\n"), expected + "NEWLINE() 1:1025\nEND 2:0");
    open(line + "b\n");
    int code = 0;
    while (code == 0) {
        code = read();
    }
    EXPECT_EQ(code, 9);
    EXPECT_EQ(place(), "1:1026");
}

TEST_F(IGCmnFileWord, DoesNotCountCarriageReturns) {
    EXPECT_EQ(words(std::string(3000, '\r') + std::string(1024, 'a') + "\r\r\n"),
              "TEXT(" + std::string(1024, 'a') + ") 1:1024\nNEWLINE() 1:1025\nEND 2:0");
}

TEST_F(IGCmnFileWord, CountsTheLineFeedBehindACarriageReturn) {
    open(std::string(1025, 'a') + "\r\n");
    EXPECT_EQ(read(), 9);
    EXPECT_EQ(place(), "1:1026");
    open("#" + std::string(1024, 'a') + "\r\n");
    EXPECT_EQ(read(), 9);
    EXPECT_EQ(place(), "1:1026");
    open("\"" + std::string(1023, 'a') + "\r\"\r\n");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(read(), 9);
    EXPECT_EQ(place(), "1:1026");
}

TEST_F(IGCmnFileWord, DoesNotCountForbiddenCharacters) {
    open(std::string(1025, '{') + "\xc3\xa9\n");
    for (int i = 0; i < 1025; ++i) {
        ASSERT_EQ(read(), 0);
    }
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.type, WORD_INVALID);
    EXPECT_EQ(place(), "1:1025");
    EXPECT_EQ(read(), 9);
}

TEST_F(IGCmnFileWord, ReachesTheEndOfTheFileBeforeTheLineLimit) {
    EXPECT_EQ(words(std::string(1025, 'a')), "END 1:1025");
}

TEST_F(IGCmnFileWord, CountsEveryLineFromOne) {
    std::string content;
    for (int i = 0; i < 5000; ++i) {
        content += i % 2 == 0 ? "# comment\n" : "\n";
    }
    open(content);
    for (int line = 1; line <= 5000; ++line) {
        ASSERT_EQ(read(), 0);
        ASSERT_EQ(handle_.line_no, line);
    }
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(handle_.line_no, 5001);
}

TEST_F(IGCmnFileWord, ReturnsAnUndecodableSequenceAsInvalid) {
    for (const std::string& content : {"\xff\n"s, "a\xff\n"s, "\"\xc3\"\n"s, "# \x80\n"s}) {
        SCOPED_TRACE(::testing::PrintToString(content));
        open(content);
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(word_.type, WORD_INVALID);
        EXPECT_STREQ(word_.text, "");
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFileWord, ReturnsANonAsciiByteAsInvalidInThePlainLocaleToo) {
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    open("\xc3\xa9\n");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.type, WORD_INVALID);
}

TEST_F(IGCmnFileWord, KeepsTheTextAndItsSizeOfAQuotedString) {
    open("\"first one\" x\n");
    EXPECT_EQ(word_.quoted, nullptr);
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.quoted, word_.text);
    EXPECT_EQ(word_.quoted_size, word_.text_size);
    EXPECT_EQ(word_.text_size, sizeof("first one"));
    EXPECT_STREQ(word_.quoted, "first one");
}

TEST_F(IGCmnFileWord, GrowsItsBufferToTheLongestWordAndClearsItForEachWord) {
    open("abc longest d\n");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.text_size, 4U);
    ASSERT_EQ(read(), 0);
    EXPECT_STREQ(word_.text, " ");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.text_size, 8U);
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.text_size, 8U);
    EXPECT_EQ(std::string(word_.text, 8), "d\0\0\0\0\0\0\0"s);
}

TEST_F(IGCmnFileWord, AllocatesForAWordAndNotForItsCharacters) {
    open(std::string(1000, 'a') + "\n#" + std::string(999, 'b') + "\n\"" + std::string(998, 'c') +
         "\"\n");
    const FailingCall failing(Call::POOL, 4, ENOMEM);
    EXPECT_EQ(read(), 0) << "a character, an empty text and the word";
    for (int code = 0; code == 0;) {
        code = read();
    }
    EXPECT_FALSE(FailingCall::happened());
}

TEST_F(IGCmnFileWord, HasRoomForOneCharacterOfTheLocale) {
    open("a\n");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(word_.character_size, MB_CUR_MAX + 1);
    EXPECT_NE(word_.character, nullptr);
}

TEST_F(IGCmnFileWord, ReportsAStreamThatCannotBeRead) {
    ASSERT_EQ(IgCmnFileOpen(&handle_, dir_.path().c_str(), "r"), 0);
    Capture error(stderr);
    EXPECT_EQ(read(), 17);
    const std::string report =
        trio("fgetwc", EISDIR, "Is a directory", dir_.path(), "IGCmnFileWord");
    EXPECT_EQ(takeLog(), report);
    EXPECT_EQ(error.take(), report.substr(0, report.find("ZEPA114")));
}

TEST_F(IGCmnFileWord, ReportsARefusedPushBack) {
    const std::string report =
        trio("ungetwc", ENOMEM, "Cannot allocate memory", dir_.path("words"), "IGCmnFileWord");
    for (const char* content :
         {"\\a\n", "% \n", "a \n", "a%\n", "a\\%\n", "a\\\n", "%a \n", "%a\\%\n", " a\n"}) {
        SCOPED_TRACE(content);
        open(content);
        Capture error(stderr);
        const FailingCall failing(Call::UNGETWC, 1, ENOMEM);
        EXPECT_EQ(read(), 17);
        EXPECT_EQ(takeLog(), report);
        EXPECT_EQ(error.take(), report.substr(0, report.find("ZEPA114")));
    }
}

TEST_F(IGCmnFileWord, FailsWhenMemoryRunsOut) {
    // From 200 bytes on, each longer word needs a block of its own.
    std::string content = "a \"b\" %c% #d\n";
    for (std::size_t length = 200; length < 250; ++length) {
        content += std::string(length, 'e') + "\n";
    }
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        SCOPED_TRACE(nth);
        open(content);
        Capture error(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        int code = 0;
        while (code == 0) {
            code = read();
        }
        failed = FailingCall::happened();
        EXPECT_EQ(code, failed ? -1 : 1);
        EXPECT_EQ(error.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
        EXPECT_TRUE(failed || nth > 50) << "every growth of the text is a point of its own";
    }
}

TEST(IGCmnFileWordDeathTest, AssertsItsHandleAndItsRecord) {
    IgCmnFileHandle handle{};
    read_word word{};
    EXPECT_DEATH(IgCmnFileWordRead(nullptr, nullptr, &word, nullptr),
                 "handle != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnFileWordRead(nullptr, &handle, nullptr, nullptr),
                 "word != \\(\\(void \\*\\)0\\)");
}

}  // namespace
