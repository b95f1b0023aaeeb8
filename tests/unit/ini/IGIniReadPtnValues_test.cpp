#include "ini/IGIniReadPtn.h"

#include <cerrno>
#include <utility>

#include "../../support/pattern_fixture.h"
#include "../../support/wrapped_calls.h"
#include "ini/IGIniTable.h"

namespace {

class IGIniReadPtn : public PatternTest {};

// --- values ---

TEST_F(IGIniReadPtn, KeepsAValueAsWrittenBetweenTheEqualsSignAndTheEnd) {
    expectAll(
        {
            {"PP_NAME = a\n", "name=a {}"},
            {"PP_NAME=a\n", "name=a {}"},
            {"PP_NAME\t =\t a\n", "name=a {}"},
            {"   PP_NAME = a   \n", "name=a {}"},
            {"\tPP_NAME = a\t\n", "name=a {}"},
            {"PP_NAME = a\r\n", "name=a {}"},
            {"\r\nPP_N\rAME\r =\r a\rb\r\n", "name=ab {}"},
            {"pp_name = a\n", "name=a {}"},
            {"Pp_Name = a\n", "name=a {}"},
            {"PP_NAME = a # note\n", "name=a {}"},
            {"PP_NAME = a\t#note\n", "name=a {}"},
            {"PP_NAME = a #\n", "name=a {}"},
            {"PP_NAME = \"a b\"\n", "name=a b {}"},
            {"PP_NAME = \"a\tb\"\n", "name=a\tb {}"},
            {"PP_NAME = \"a b\" # note\n", "name=a b {}"},
            {"PP_NAME = a\"b c\"d\n", "name=ab cd {}"},
            {"PP_NAME = \"a\"\"b\"\n", "name=ab {}"},
            {"PP_NAME = \"a=b {c} #d\"\n", "name=a=b {c} #d {}"},
            {"PP_NAME = a-b.c:d;e,f/g*h?i(j)k[l]m<n>o|p~q'r`s^t&u!v@w$x+y_z\n",
             "name=a-b.c:d;e,f/g*h?i(j)k[l]m<n>o|p~q'r`s^t&u!v@w$x+y_z {}"},
            {"PP_NAME = a b\n", "syntax 2"},
            {"PP_NAME = \"a\" \"b\"\n", "syntax 2"},
            {"PP_NAME = a \"b\"\n", "syntax 2"},
            {"PP_NAME = a=b\n", "syntax 2"},
            {"PP_NAME = a {\n", "syntax 2"},
            {"PP_NAME = a{b\n", "syntax 2"},
            {"PP_NAME = a}\n", "syntax 2"},
            {"PP_NAME = }\n", "syntax 2"},
            {"PP_NAME = =\n", "syntax 2"},
            {"PP_NAME == a\n", "syntax 2"},
            {"PP_NAME a\n", "syntax 2"},
            {"PP_NAME\n", "syntax 2"},
            {"PP_NAME # note\n", "syntax 2"},
            {"PP_NAME\n= a\n", "syntax 2"},
            {"PP_NAME \"=\" a\n", "syntax 2"},
            {"PP_NAME = \xc3\xa9\n", "syntax 2"},
            {"PP_NAME = \"\xc3\xa9\"\n", "syntax 2"},
            {"PP_NAME = a\xff\n", "syntax 2"},
            {"PP_NAME = a # \xc3\xa9\n", "syntax 2"},
            {"PP_NAME = a\vb\n", "syntax 2"},
            {"PP_NAME = a\fb\n", "syntax 2"},
            {"PP_NAME = a\x01\n", "syntax 2"},
            {"PP_NAME = a\x7f\n", "syntax 2"},
        },
        VERSION, "BLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, ResolvesABackslash) {
    expectAll(
        {
            {R"(PP_NAME = a\"b)", "name=a\"b {}"},
            {R"(PP_NAME = a\#b)", "name=a#b {}"},
            {R"(PP_NAME = a\\b)", "name=a\\b {}"},
            {R"(PP_NAME = a\nb)", "name=a\\nb {}"},
            {R"(PP_NAME = a\ b)", "name=a\\ b {}"},
            {R"(PP_NAME = a\=b)", "name=a\\=b {}"},
            {R"(PP_NAME = a\{b\})", "name=a\\{b\\} {}"},
            {R"(PP_NAME = \"b)", "name=\"b {}"},
            {R"(PP_NAME = \#b)", "name=#b {}"},
            {R"(PP_NAME = \\b)", "name=\\b {}"},
            {R"(PP_NAME = \b)", "name=\\b {}"},
            {R"(PP_NAME = \ b)", "syntax 2"},  // a word of its own, then a blank
            {R"(PP_NAME = a\)", "name=a\\ {}"},
            {R"(PP_NAME = \)", "name=\\ {}"},
            {R"(PP_NAME = a\%HOST%)", "name=a\\%HOST% {}"},
            {R"(PP_NAME = "a\"b")", "name=a\"b {}"},
            {R"(PP_NAME = "a\\")", "name=a\\ {}"},
            {R"(PP_NAME = "a\#b")", "name=a#b {}"},
            {R"(PP_NAME = "a\nb")", "name=a\\nb {}"},
            {R"(PP_NAME = "a\%%b")", "name=a\\%b {}"},
        },
        VERSION, "\nBLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, ChecksSpecialStringsAndKeepsThemAsWritten) {
    expectAll(
        {
            {"%HOST%", "name=%HOST% {}"},
            {"%YY%", "name=%YY% {}"},
            {"%MM%-%DD%", "name=%MM%-%DD% {}"},
            {"%hh%:%mm%:%ss%", "name=%hh%:%mm%:%ss% {}"},
            {"%d%/x", "name=%d%/x {}"},
            {"a%HOST%b", "name=a%HOST%b {}"},
            {"\"a %HOST% b\"", "name=a %HOST% b {}"},
            {"%HOST", "syntax 2"},         // the line end makes it plain text, and its "%" is odd
            {"%HOST ", "name=%HOST% {}"},  // a blank does not
            {"%HOST # note", "name=%HOST% {}"},
            {"%HOST\"b\"", "name=%HOST%b {}"},
            {"%HOST=", "syntax 2"},
            {"%HOST{", "syntax 2"},
            {"%HOST}", "syntax 2"},
            {"100%%", "name=100% {}"},
            {"%%", "name=% {}"},
            {"%%%%", "name=%% {}"},
            {"\"%%\"", "name=% {}"},
            {"\"a%%b%%\"", "name=a%b% {}"},
            {"%YY%%MM%", "name=%YY%MM% {}"},  // collapsed wherever two are adjacent
            {"%", "syntax 2"},
            {"a%", "syntax 2"},
            {"100% x", "syntax 2"},
            {"%%%", "syntax 2"},
            {"\"100%\"", "syntax 2"},
            {"\"%%%\"", "syntax 2"},
            {"\"% %\"", "syntax 2"},
            {"%FOO%", "syntax 2"},
            {"%HOS%", "syntax 2"},
            {"%HOSTS%", "syntax 2"},
            {"%host%", "syntax 2"},
            {"%yy%", "syntax 2"},
            {"%D%", "syntax 2"},
            {"%reg0%", "syntax 2"},
            {"%reg9%", "syntax 2"},
            {"%HOST%%FOO%", "syntax 2"},
        },
        VERSION + "PP_NAME = ", "\nBLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, CountsAnEmptyValueAsGivenButStoresNothing) {
    expectAll(
        {
            {"PP_VRS =\n", "{}"},
            {"PP_VRS = \t \n", "{}"},
            {"PP_VRS = \"\"\n", "{}"},
            {"PP_VRS = \"\" # note\n", "{}"},
            {"PP_KATAMEI =\n", "{}"},
            {"PP_NAME =\n", "{}"},
            {"PP_GROUP =\n", "{}"},
            {"PP_GROUP =\nPP_GROUP = b\n", "group=b {}"},
            {"PP_VRS =\nPP_VRS = 1\n", "syntax 3"},
            {"PP_KATAMEI =\nPP_KATAMEI = a\n", "syntax 3"},
            {"PP_NAME =\nPP_NAME =\n", "syntax 3"},
        },
        VERSION, "BLOCK {\n}\n");
    EXPECT_EQ(read(VERSION + "PP_VRS =\nPP_KATAMEI =\nPP_NAME =\nPP_GROUP =\nBLOCK {\n}\n"), "{}");
    EXPECT_EQ(ptn_->flags, static_cast<std::uint32_t>(PTN_VRS | PTN_KATAMEI | PTN_NAME | PTN_GROUP |
                                                      PTN_FORMAT_VERSION | PTN_BLOCK));
}

TEST_F(IGIniReadPtn, LeavesAStatementOpenBehindACommentWithoutABlank) {
    expectAll(
        {
            {"PP_GROUP = a#note\n\n", "group=a|a {}"},
            {"PP_GROUP = a#note\nb\n", "group=a|ab {}"},
            {"PP_GROUP = a#note\nb#note\nc\n", "group=a|ab|abc {}"},
            {"PP_GROUP = a#note\n#note\nb\n", "group=a|a|ab {}"},
            {"PP_GROUP = a#note\n\"b c\"\n", "group=a|ab c {}"},
            {"PP_GROUP = a#note\nb # note\n", "group=a|ab {}"},
            {"PP_GROUP = a#note\nb c\n", "syntax 3"},
            {"PP_GROUP = a#note\n b\n", "syntax 3"},
            {"PP_GROUP = a#note\n}\n", "syntax 3"},
            {"PP_GROUP = %HOST#note\n\n", "group=%HOST%|%HOST% {}"},
            {"PP_GROUP =#note\nb\n", "group=b {}"},
            {"PP_GROUP = #note\nb\n", "group=b {}"},
            {"PP_GROUP = \"\"#note\nb\n", "group=b {}"},
            {"PP_NAME = a#note\n\n", "syntax 3"},
            {"PP_NAME =#note\nb\n", "syntax 3"},
            {"PP_GROUP = a #note\nPP_GROUP = b\n", "group=a|b {}"},
        },
        VERSION, "BLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, AcceptsABlockKeywordWithoutABraceAtTheEndOfTheFile) {
    const std::string complete = VERSION + "BLOCK {\n}\n";
    expectAll({
        {complete + "BLOCK\n", "{}"},
        {complete + "BLOCK", "{}"},
        {complete + "BLOCK {", "syntax 4"},
        {complete + "BLOCK \n#\n", "{}"},
        {complete + "BLOCK\nPP_NAME = a\n", "syntax 5"},
        {complete + "BLOCK {\nTOOL_BLOCK\n", "syntax 6"},
    });
}

TEST_F(IGIniReadPtn, ClosesASpecialStringThatABackslashEnds) {
    expectAll(
        {
            {"PP_NAME = %HOST\\", "syntax 2"},  // "%HOST\" and a closing "%"
            {"PP_NAME = %HOST\\%", "syntax 2"},
            {"PP_NAME = \\%HOST%", "name=\\%HOST% {}"},
            {"PP_NAME = %HO\\\\ST%", "syntax 2"},
            {"PP_NAME = %HOST\\# note", "syntax 2"},
            {"PP_NAME = %%HOST\\", "name=%HOST\\ {}"},
            {"PP_NAME = %%\\", "name=%\\ {}"},
        },
        VERSION, "\nBLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, ReadsIntegersAsTheCLibraryDoes) {
    const auto file = [](const std::string& value) {
        return VERSION + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\nTIMEOUT_SIGNAL = " + value +
               "\n}\n}\n";
    };
    for (const auto& [value, number] :
         std::vector<std::pair<std::string, std::string>>{{"0", "0"},
                                                          {"-0", "0"},
                                                          {"+0", "0"},
                                                          {"00", "0"},
                                                          {"+15", "15"},
                                                          {"0000000000000000000009", "9"},
                                                          {"\"\t 7\"", "7"},
                                                          {"\" +7\"", "7"},
                                                          {"2147483647", "2147483647"},
                                                          {"4\"2\"", "42"},
                                                          {"\"\"8", "8"}}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(read(file(value)), "{ tool(10, " + number + ", 10, /x, -) }");
    }
    for (const char* value : {"+",
                              "--1",
                              "+-1",
                              "- 1",
                              "\"- 1\"",
                              "\"1 \"",
                              "1,0",
                              "1e3",
                              "0b1",
                              "017x",
                              "0x",
                              "1_000",
                              "2147483648",
                              "4294967296",
                              "9223372036854775807",
                              "9223372036854775808",
                              "18446744073709551616",
                              "-9223372036854775809",
                              "\"1\t\"",
                              "%%1",
                              "1%%",
                              "\\1"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(read(file(value)), "syntax 5");
    }
}

TEST_F(IGIniReadPtn, FailsWhenMemoryRunsOut) {
    // Each text of 200 bytes needs a block of its own.
    writeText(file_, VERSION + "PP_VRS = 1\nPP_KATAMEI = " + times(100, "k") + "\nPP_NAME = " +
                         times(200, "n") + times(25, "\nPP_GROUP = " + times(200, "g")) +
                         "\nBLOCK {" + times(25, "\nTARGET = " + times(200, "t")) +
                         "\nTOOL_BLOCK {\nCOMMAND_LINE = /x%HOST%\nREDIRECT_PATH = /r\n}\n"
                         "DATA_BLOCK {\nPATH_NAME = /p\nFILE_TYPE = text\nDESCRIPTION = a\n"
                         "DESCRIPTION = b\n}\n}\n");
    const std::size_t before = openDescriptors();
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        SCOPED_TRACE(nth);
        Pool fresh;
        root_.crnt_ptn_def = IgIniGetPickPtn(fresh.get());
        ASSERT_NE(root_.crnt_ptn_def, nullptr);
        Capture errors(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        const int result = IgIniReadPtnDef(file_.c_str(), &root_, fresh.get());
        failed = FailingCall::happened();
        EXPECT_EQ(result, failed ? -1 : 0);
        EXPECT_EQ(errors.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_TRUE(failed || nth > 50);
    }
}

TEST_F(IGIniReadPtn, AllocatesForAValueWhatItKeeps) {
    constexpr int ITEMS = 100;
    writeText(file_, VERSION + "BLOCK {\n" +
                         times(ITEMS,
                               "TOOL_BLOCK {\nCOMMAND_LINE = \"%d%/x a b\"\n}\n"
                               "DATA_BLOCK {\nPATH_NAME = %d%/p\nDESCRIPTION = a%%\n}\n") +
                         "}\n");
    // An item is itself, its place in the list and two texts; a description is a list of one.
    constexpr int KEPT = ITEMS * (4 + 4 + 3);
    constexpr int OTHERS = 20;
    const FailingCall failing(Call::POOL, KEPT + OTHERS, ENOMEM);
    EXPECT_EQ(readFile(), 0);
    EXPECT_FALSE(FailingCall::happened());
}

TEST_F(IGIniReadPtn, SkipsAFileWhenAPushedBackCharacterIsRefused) {
    writeText(file_, VERSION + "BLOCK {\n}\n");
    const FailingCall failing(Call::UNGETWC, 3, EIO);
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, trio("ungetwc", EIO, "Input/output error", file_, "IGCmnFileWord"));
}

}  // namespace
