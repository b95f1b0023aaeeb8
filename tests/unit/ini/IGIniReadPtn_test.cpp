#include "ini/IGIniReadPtn.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <sstream>

#include "../../support/run_fixture.h"
#include "../../support/standing_in.h"
#include "ini/IGIniTable.h"

namespace {

const std::string VERSION = "FORMAT_VERSION = 1.0\n";

// --- how the table looks when it is written in one line
// --------------------------------------------

std::string joined(const IgCmnListHeader* list) {
    std::string text;
    for (const char& value : walkStrings(list)) {
        text += (text.empty() ? "" : "|") + std::string(&value);
    }
    return text;
}

std::string orNone(const char* text) {
    return text == nullptr ? "-" : text;
}

std::string toolText(const tool_block& tool) {
    std::ostringstream text;
    text << "tool(" << tool.timeout << ", " << tool.timeout_signal << ", " << tool.wait_termination
         << ", " << orNone(tool.command_line) << ", " << orNone(tool.redirect_path) << ")";
    return text.str();
}

std::string dataText(const data_block& data) {
    std::ostringstream text;
    text << "data(" << data.file_type << ", " << orNone(data.file_type_word) << ", "
         << orNone(data.path_name)
         << (data.description == nullptr ? "" : ", " + joined(data.description)) << ")";
    return text.str();
}

std::string blockText(const ptn_block& block) {
    std::string text = "{";
    if (block.target != nullptr) {
        text += " target=" + joined(block.target);
    }
    for (const collect_item& item : walkList<const collect_item>(block.items)) {
        text += " " + (item.kind == ITEM_TOOL ? toolText(item.tool) : dataText(item.data));
    }
    return text + (text.size() > 1 ? " }" : "}");
}

std::string patternText(const pickptn_tbl& ptn) {
    std::string text;
    const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : " ") + part; };
    if (ptn.vrs != nullptr) {
        add("vrs=" + std::string(ptn.vrs));
    }
    if (ptn.katamei != nullptr) {
        add("katamei=" + joined(ptn.katamei));
    }
    if (ptn.name != nullptr) {
        add("name=" + joined(ptn.name));
    }
    if (ptn.group != nullptr) {
        add("group=" + joined(ptn.group));
    }
    for (const ptn_block& block : walkList<const ptn_block>(ptn.blocks)) {
        add(blockText(block));
    }
    return text;
}

// A text of the file and what becomes of it: the table in one line, or one of
//     "syntax N"   the file is skipped for a syntax error in line N
//     "format"     the file is skipped for its format version
//     "newer"      the file is skipped for a format version beyond ours
struct Case {
    std::string text;
    std::string expected;
};

class IGIniReadPtn : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        file_ = directory_.path("10_pattern");
    }

    // Result of reading the file at hand.
    int readFile() {
        ptn_ = IgIniGetPickPtn(pool());
        root_.crnt_ptn_def = ptn_;
        Capture errors(stderr);
        const int result = IgIniReadPtnDef(file_.c_str(), &root_, pool());
        errors_ = errors.take();
        log_ = takeLog();
        return result;
    }

    std::string read(const std::string& text) {
        writeText(file_, text);
        const int result = readFile();
        const std::string shown = errors_ + "|" + log_;
        if (result == 0 && shown == "|") {
            return patternText(*ptn_);
        }
        if (result != PTN_SKIPPED) {
            return "result " + std::to_string(result) + " " + shown;
        }
        const std::string format = "ZEPA139-W:Invalid format number(" + file_ + ").\n";
        if (shown == format + "|" + format) {
            return "format";
        }
        const std::string newer =
            "ZEPA159-W:quendil command is older than the collection pattern file. skip the file (" +
            file_ + ").\n";
        if (shown == newer + "|" + newer) {
            return "newer";
        }
        const std::string before =
            "|ZEPA137-W:Internal error occurred.\nZEPA138-W:filename = " + file_ + ", line no = ";
        const std::string after = ".\n";
        if (shown.starts_with(before) && shown.ends_with(after)) {
            return "syntax " +
                   shown.substr(before.size(), shown.size() - before.size() - after.size());
        }
        return shown;
    }

    void expectAll(const std::vector<Case>& cases, const std::string& before = "",
                   const std::string& after = "") {
        for (const Case& one : cases) {
            SCOPED_TRACE(before + one.text + after);
            EXPECT_EQ(read(before + one.text + after), one.expected);
        }
    }

    TempDir directory_;
    std::string file_;
    root_tbl root_{};
    pickptn_tbl* ptn_ = nullptr;
    std::string errors_;
    std::string log_;
};

std::string times(std::size_t count, const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

// --- the format version
// ----------------------------------------------------------------------------

TEST_F(IGIniReadPtn, AcceptsItsOwnFormatVersionAndNoOther) {
    expectAll(
        {
            {"1.0", "{}"},
            {"\"1.0\"", "{}"},
            {"\"1\".0", "{}"},
            {"1.0  ", "{}"},
            {"1.0 # note", "{}"},
            {"1.0\r", "{}"},
            {"1.1", "newer"},
            {"1.5", "newer"},
            {"1.10", "newer"},
            {"2.0", "newer"},
            {"2.15", "newer"},
            {"10.0", "newer"},
            {"99.99", "newer"},
            {"1.00", "format"},
            {"1.01", "format"},
            {"01.0", "format"},
            {"00.1", "format"},
            {"0.9", "format"},
            {"0.0", "format"},
            {"1", "format"},
            {"10", "format"},
            {"1.", "format"},
            {".0", "format"},
            {".", "format"},
            {"1..0", "format"},
            {"1.0.0", "format"},
            {"100.0", "format"},
            {"1.100", "format"},
            {"1.0a", "format"},
            {"a.0", "format"},
            {"+1.0", "format"},
            {"-1.0", "format"},
            {"1,0", "format"},
            {"", "format"},
            {"  ", "format"},
            {"\"\"", "format"},
            {"\" \"", "format"},
            {"\" 1.0\"", "format"},  // no blank is trimmed from a quoted
                                     // value
            {"%HOST%", "format"},
            {"%FOO%", "format"},
            {"1.0%%", "format"},
            {"1.0%", "format"},
            {"1.0=", "format"},
            {"1.0{", "format"},
            {"\xc3\xa9", "format"},
            {"1.0 1.0", "syntax 1"},  // stored at the blank: it is accepted
                                      // by now
        },
        "FORMAT_VERSION = ", "\nBLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, WantsTheFormatVersionFirst) {
    const std::string rest = VERSION + "BLOCK {\n}\n";
    expectAll({
        {rest, "{}"},
        {"# a comment\n\n \t\n" + rest, "{}"},
        {"format_version=1.0\nBLOCK {\n}\n", "{}"},
        {"\tFormat_Version\t=\t1.0\t\nBLOCK {\n}\n", "{}"},
        {"PP_NAME = a\n" + rest, "format"},
        {"PP_GROUP = a\n" + rest, "format"},
        {"BLOCK {\n}\n" + rest, "format"},
        {"TARGET = a\n" + rest, "format"},
        {"REG0 = a\n" + rest, "format"},
        {"FOO = a\n" + rest, "format"},
        {"{\n" + rest, "format"},
        {"}\n" + rest, "format"},
        {"= 1.0\n" + rest, "format"},
        {"%HOST%\n" + rest, "format"},
        {"\"FORMAT_VERSION\" = 1.0\nBLOCK {\n}\n", "format"},
        {"FORMAT_VERSION 1.0\nBLOCK {\n}\n", "format"},
        {"FORMAT_VERSION\n= 1.0\nBLOCK {\n}\n", "format"},
        {"FORMAT_VERSION == 1.0\nBLOCK {\n}\n", "format"},
        {"\xc3\xa9\n" + rest, "format"},
        {"\xef\xbb\xbf" + rest, "format"},
        {"# \xc3\xa9\n" + rest, "format"},
    });
}

TEST_F(IGIniReadPtn, RefusesASecondFormatVersionAsASyntaxError) {
    expectAll({
        {VERSION + VERSION + "BLOCK {\n}\n", "syntax 2"},
        {VERSION + "BLOCK {\n}\n" + VERSION, "syntax 4"},
        {VERSION + "FORMAT_VERSION = 2.0\n", "syntax 2"},
        {"FORMAT_VERSION = 1.0# note\n\nBLOCK {\n}\n", "syntax 2"},  // stored again in line 2
    });
}

TEST_F(IGIniReadPtn, RefusesAnIncompleteFileWithTheLineOfItsEnd) {
    expectAll({
        {"", "syntax 1"},
        {"\n", "syntax 2"},
        {"\n\n", "syntax 3"},
        {"# only a comment", "syntax 1"},
        {"# only a comment\n", "syntax 2"},
        {"FORMAT_VERSION", "syntax 1"},
        {"FORMAT_VERSION = 1.0", "syntax 1"},
        {VERSION, "syntax 2"},
        {VERSION + "PP_NAME = a\nPP_GROUP = b\n", "syntax 4"},
        {VERSION + "BLOCK {\n", "syntax 3"},
        {VERSION + "BLOCK {", "syntax 2"},
        {VERSION + "BLOCK\n", "syntax 3"},
        {VERSION + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n}\n", "syntax 6"},
        {VERSION + "BLOCK {\n}\nBLOCK {\n", "syntax 5"},
    });
}

TEST_F(IGIniReadPtn, AcceptsAFileThatEndsInItsLastBrace) {
    expectAll({
        {VERSION + "BLOCK {\n}", "{}"},
        {VERSION + "BLOCK {\n}   ", "{}"},
        {VERSION + "BLOCK {\n}\n# the end", "{}"},
        {VERSION + "BLOCK {\n}\nPP_NAME = lost", "{}"},  // its value never came to an end
    });
}

TEST_F(IGIniReadPtn, ReportsWhatTheReaderRefusesAsASyntaxErrorEvenBeforeTheVersion) {
    const std::string body = "BLOCK {\n}\n";
    expectAll({
        {"#" + times(1023, "x") + "\n" + VERSION + body, "{}"},
        {"#" + times(1024, "x") + "\n" + VERSION + body, "syntax 1"},
        {"FORMAT_VERSION = \"1.0\n" + body, "syntax 1"},
        {VERSION + "#" + times(1023, "x") + "\r\r\r\n" + body, "{}"},
        {VERSION + "#" + times(1024, "x") + "\n" + body, "syntax 2"},
        {VERSION + times(1024, " ") + "\n" + body, "{}"},
        {VERSION + times(1025, " ") + "\n" + body, "syntax 2"},
        {VERSION + "PP_NAME = \"abc\n" + body, "syntax 2"},
        {VERSION + "PP_NAME = \"abc\\\n\"\n" + body, "syntax 2"},
    });
}

// --- values
// ---------------------------------------------------------------------------------------

TEST_F(IGIniReadPtn, TakesAValueAsWrittenBetweenTheEqualsSignAndTheEnd) {
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
            {R"(PP_NAME = \ b)", "syntax 2"},  // a word by itself, then a blank
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
            {"%YY%%MM%", "name=%YY%MM% {}"},  // collapsed wherever two of them meet
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

TEST_F(IGIniReadPtn, TakesAnEmptyValueAsGivenButStoresNothing) {
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

// --- the top level
// ------------------------------------------------------------------------------------

TEST_F(IGIniReadPtn, StoresWhatAProductIs) {
    const std::string full = times(256, "n");
    expectAll(
        {
            {"PP_VRS = 1.0\n", "vrs=1.0 {}"},
            {"PP_VRS = 1234567890\n", "vrs=1234567890 {}"},
            {"PP_VRS = 12345678901\n", "syntax 2"},
            {"PP_VRS = 1%%2\n", "vrs=1%2 {}"},
            {"PP_VRS = 12345678%%\n", "vrs=12345678% {}"},
            {"PP_VRS = 123456789%%\n", "syntax 2"},  // the length counts as written
            {"PP_VRS = 1\nPP_VRS = 1\n", "syntax 3"},
            {"PP_KATAMEI = M-1\n", "katamei=M-1 {}"},
            {"PP_KATAMEI = 50%%\n", "katamei=50% {}"},
            {"PP_KATAMEI = " + full + "\n", "katamei=" + full + " {}"},
            {"PP_KATAMEI = " + full + "n\n", "syntax 2"},
            {"PP_KATAMEI = a\nPP_KATAMEI = b\n", "syntax 3"},
            {"PP_NAME = " + full + "\n", "name=" + full + " {}"},
            {"PP_NAME = " + full + "n\n", "syntax 2"},
            {"PP_NAME = " + times(128, "%%") + "\n", "name=" + times(128, "%") + " {}"},
            {"PP_NAME = " + times(129, "%%") + "\n", "syntax 2"},
            {"PP_NAME = a\nPP_NAME = b\n", "syntax 3"},
            {"PP_GROUP = a\n", "group=a {}"},
            {"PP_GROUP = a\nPP_GROUP = b\nPP_GROUP = a\n", "group=a|b|a {}"},
            {"PP_GROUP = 5%%\n", "group=5% {}"},
            {"PP_GROUP = " + full + "\n", "group=" + full + " {}"},
            {"PP_GROUP = " + full + "n\n", "syntax 2"},
            {"PP_GROUP = a\nPP_GROUP = " + full + "n\n", "syntax 3"},
            {"PP_VRS = 1\nPP_KATAMEI = k\nPP_NAME = n\nPP_GROUP = g\n",
             "vrs=1 katamei=k name=n group=g {}"},
        },
        VERSION, "BLOCK {\n}\n");
}

TEST_F(IGIniReadPtn, KnowsNoOtherKeywordAtTheTop) {
    std::vector<Case> cases = {
        {"FOO = 1\n", "syntax 2"},
        {"PP_NAMES = a\n", "syntax 2"},
        {"PP_NAM = a\n", "syntax 2"},
        {"TARGET = a\n", "syntax 2"},
        {"TIMEOUT = 1\n", "syntax 2"},
        {"COMMAND_LINE = /x\n", "syntax 2"},
        {"PATH_NAME = /x\n", "syntax 2"},
        {"DESCRIPTION = a\n", "syntax 2"},
        {"TOOL_BLOCK {\n", "syntax 2"},
        {"DATA_BLOCK {\n", "syntax 2"},
        {"\"PP_NAME\" = a\n", "syntax 2"},
        {"%HOST% = a\n", "syntax 2"},
        {"%% = a\n", "syntax 2"},
        {"% = a\n", "syntax 2"},
        {"= a\n", "syntax 2"},
        {"{\n", "syntax 2"},
        {"}\n", "syntax 2"},
        {"\\\n", "syntax 2"},
        {"\xc3\xa9 = a\n", "syntax 2"},
        {"\n\n\nFOO = 1\n", "syntax 5"},
        {"# note\nFOO = 1\n", "syntax 3"},
        {"reg3 = x\n", "syntax 2"},
    };
    for (char digit = '0'; digit <= '9'; ++digit) {
        cases.push_back({std::string("REG") + digit + " = x\n", "syntax 2"});
        cases.push_back({std::string("REG") + digit + " =\n", "syntax 2"});
    }
    expectAll(cases, VERSION, "BLOCK {\n}\n");
}

// --- blocks
// ---------------------------------------------------------------------------------------

TEST_F(IGIniReadPtn, OpensAndClosesBlocks) {
    const std::string tool = "TOOL_BLOCK {\nCOMMAND_LINE = /x\n}\n";
    const std::string data = "DATA_BLOCK {\nPATH_NAME = /p\n}\n";
    const std::string tool_text = "tool(10, 15, 10, /x, -)";
    const std::string data_text = "data(0, -, /p)";
    expectAll(
        {
            {"BLOCK {\n}\n", "{}"},
            {"BLOCK{\n}\n", "{}"},
            {"block\t {\t \n\t}\t\n", "{}"},
            {"BLOCK {\r\n}\r\n", "{}"},
            {"BLOCK {\n\n# note\n \n}\n", "{}"},
            {"BLOCK {\n} # note\n", "{}"},
            {"BLOCK {\n}\nBLOCK {\n}\n", "{} {}"},
            {"BLOCK {\n} BLOCK {\n}\n", "{} {}"},
            {"BLOCK {\n}PP_NAME = a\n", "name=a {}"},
            {"BLOCK {\n}\nPP_NAME = a\n", "name=a {}"},
            {"BLOCK {\n" + tool + "}\n", "{ " + tool_text + " }"},
            {"BLOCK {\n" + data + "}\n", "{ " + data_text + " }"},
            {"BLOCK {\n" + tool + data + tool + data + "}\n",
             "{ " + tool_text + " " + data_text + " " + tool_text + " " + data_text + " }"},
            {"BLOCK {\n" + data + "}\nBLOCK {\n" + tool + "}\n",
             "{ " + data_text + " } { " + tool_text + " }"},
            {"BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n} }\n", "{ " + tool_text + " }"},
            {"BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n}} BLOCK {\n}\n",
             "{ " + tool_text + " } {}"},
            {"BLOCK {\nTOOL_BLOCK{\nCOMMAND_LINE = /x\n} DATA_BLOCK{\nPATH_NAME = /p\n}}",
             "{ " + tool_text + " " + data_text + " }"},

            {"BLOCK { # note\n}\n", "syntax 2"},
            {"BLOCK # note\n", "syntax 2"},
            {"BLOCK {}\n", "syntax 2"},
            {"BLOCK { {\n", "syntax 2"},
            {"BLOCK {{\n", "syntax 2"},
            {"BLOCK { TARGET = a\n}\n", "syntax 2"},
            {"BLOCK a {\n}\n", "syntax 2"},
            {"BLOCK \"{\"\n}\n", "syntax 2"},
            {"BLOCK = {\n}\n", "syntax 2"},
            {"BLOCK }\n", "syntax 2"},
            {"BLOCK %HOST%\n", "syntax 2"},
            {"BLOCK\n{\n}\n", "syntax 3"},
            {"BLOCK\n}\n", "syntax 3"},
            {"BLOCK\nBLOCK {\n}\n", "syntax 3"},
            {"BLOCK\nPP_NAME = a\n", "syntax 3"},
            {"BLOCK\nTARGET = a\n", "syntax 3"},
            {"BLOCK\nTOOL_BLOCK {\n", "syntax 3"},
            {"BLOCK {\n} }\n", "syntax 3"},
            {"BLOCK {\n}\n}\n", "syntax 4"},
            {"BLOCK {\n{\n", "syntax 3"},
            {"BLOCK {\nBLOCK {\n", "syntax 3"},
            {"BLOCK {\nPP_NAME = a\n}\n", "syntax 3"},
            {"BLOCK {\nPP_GROUP = a\n}\n", "syntax 3"},
            {"BLOCK {\nFORMAT_VERSION = 1.0\n}\n", "syntax 3"},
            {"BLOCK {\nREG0 = a\n}\n", "syntax 3"},
            {"BLOCK {\nTIMEOUT = 1\n}\n", "syntax 3"},
            {"BLOCK {\nCOMMAND_LINE = /x\n}\n", "syntax 3"},
            {"BLOCK {\nPATH_NAME = /x\n}\n", "syntax 3"},
            {"BLOCK {\nTOOL_BLOCK {\n}\n}\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK {\nTIMEOUT = 1\n}\n}\n", "syntax 5"},
            {"BLOCK {\nDATA_BLOCK {\n}\n}\n", "syntax 4"},
            {"BLOCK {\nDATA_BLOCK {\nFILE_TYPE = text\n}\n}\n", "syntax 5"},
            {"BLOCK {\nTOOL_BLOCK\n}\n}\n", "syntax 4"},
            {"BLOCK {\nDATA_BLOCK\n}\n}\n", "syntax 4"},
            {"BLOCK {\n" + tool + "TOOL_BLOCK\n}\n}\n", "syntax 7"},
            {"BLOCK {\nTOOL_BLOCK\nCOMMAND_LINE = /x\n}\n}\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK\n{\nCOMMAND_LINE = /x\n}\n}\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK { # note\n}\n}\n", "syntax 3"},
            {"BLOCK {\nTOOL_BLOCK { {\n}\n}\n", "syntax 3"},
            {"BLOCK {\nTOOL_BLOCK {\nTOOL_BLOCK {\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK {\nDATA_BLOCK {\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK {\nBLOCK {\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x }\n}\n", "syntax 4"},
            {"BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x}\n}\n", "syntax 4"},
        },
        VERSION);
}

TEST_F(IGIniReadPtn, ListsTheTargetsOfABlock) {
    const std::string full = times(256, "t");
    expectAll(
        {
            {"TARGET = a\n", "{ target=a }"},
            {"target=a\nTARGET = \"b c\"\nTARGET = a\n", "{ target=a|b c|a }"},
            {"TARGET = 5%%\n", "{ target=5% }"},
            {"TARGET =\n", "{}"},
            {"TARGET = " + full + "\n", "{ target=" + full + " }"},
            {"TARGET = " + full + "t\n", "syntax 3"},
            {"TARGET = %FOO%\n", "syntax 3"},
            {"TARGET\n", "syntax 3"},
        },
        VERSION + "BLOCK {\n", "}\n");
}

// --- tool blocks
// ----------------------------------------------------------------------------------

TEST_F(IGIniReadPtn, KeepsTheTimesOfAToolWithinTheirRanges) {
    const auto tool = [](const std::string& times_text) {
        return "{ tool(" + times_text + ", /x, -) }";
    };
    expectAll(
        {
            {"", tool("10, 15, 10")},
            {"TIMEOUT = 0\n", tool("0, 15, 10")},
            {"TIMEOUT = -1\n", tool("-1, 15, 10")},
            {"TIMEOUT = 36000\n", tool("36000, 15, 10")},
            {"timeout=5\n", tool("5, 15, 10")},
            {"TIMEOUT = +5\n", tool("5, 15, 10")},
            {"TIMEOUT = 007\n", tool("7, 15, 10")},
            {"TIMEOUT = \"5\"\n", tool("5, 15, 10")},
            {"TIMEOUT = \" 5\"\n", tool("5, 15, 10")},  // as strtol reads it
            {"TIMEOUT =\n", tool("10, 15, 10")},
            {"TIMEOUT = 5 # s\n", tool("5, 15, 10")},
            {"TIMEOUT_SIGNAL = 0\n", tool("10, 0, 10")},
            {"TIMEOUT_SIGNAL = 9\n", tool("10, 9, 10")},
            {"TIMEOUT_SIGNAL = 2147483647\n", tool("10, 2147483647, 10")},
            {"TIMEOUT_SIGNAL =\n", tool("10, 15, 10")},
            {"WAIT_TERMINATION = 0\n", tool("10, 15, 0")},
            {"WAIT_TERMINATION = 600\n", tool("10, 15, 600")},
            {"WAIT_TERMINATION =\n", tool("10, 15, 10")},
            {"TIMEOUT = 1\nTIMEOUT_SIGNAL = 2\nWAIT_TERMINATION = 3\n", tool("1, 2, 3")},

            {"TIMEOUT = -2\n", "syntax 4"},
            {"TIMEOUT = 36001\n", "syntax 4"},
            {"TIMEOUT = 4294967297\n", "syntax 4"},  // 1, were it narrowed first
            {"TIMEOUT = 18446744073709551617\n", "syntax 4"},
            {"TIMEOUT = -99999999999999999999\n", "syntax 4"},
            {"TIMEOUT = 10s\n", "syntax 4"},
            {"TIMEOUT = 1.5\n", "syntax 4"},
            {"TIMEOUT = 0x10\n", "syntax 4"},
            {"TIMEOUT = s\n", "syntax 4"},
            {"TIMEOUT = -\n", "syntax 4"},
            {"TIMEOUT = \" \"\n", "syntax 4"},
            {"TIMEOUT = \"5 \"\n", "syntax 4"},
            {"TIMEOUT = 5 5\n", "syntax 4"},
            {"TIMEOUT = %ss%\n", "syntax 4"},
            {"TIMEOUT = 1\nTIMEOUT = 1\n", "syntax 5"},
            {"TIMEOUT =\nTIMEOUT = 1\n", "syntax 5"},
            {"TIMEOUT_SIGNAL = -1\n", "syntax 4"},
            {"TIMEOUT_SIGNAL = 2147483648\n", "syntax 4"},
            {"TIMEOUT_SIGNAL = TERM\n", "syntax 4"},
            {"TIMEOUT_SIGNAL = 1\nTIMEOUT_SIGNAL = 1\n", "syntax 5"},
            {"WAIT_TERMINATION = -1\n", "syntax 4"},
            {"WAIT_TERMINATION = 601\n", "syntax 4"},
            {"WAIT_TERMINATION = 1\nWAIT_TERMINATION = 1\n", "syntax 5"},
            {"TARGET = a\n", "syntax 4"},
            {"PATH_NAME = /x\n", "syntax 4"},
            {"FILE_TYPE = text\n", "syntax 4"},
            {"DESCRIPTION = a\n", "syntax 4"},
            {"PP_NAME = a\n", "syntax 4"},
            {"REG1 = a\n", "syntax 4"},
        },
        VERSION + "BLOCK {\nTOOL_BLOCK {\n", "COMMAND_LINE = /x\n}\n}\n");
}

TEST_F(IGIniReadPtn, WantsAnAbsoluteCommand) {
    const auto tool = [](const std::string& command) {
        return "{ tool(10, 15, 10, " + command + ", -) }";
    };
    const std::string full = "/" + times(259, "c");
    expectAll(
        {
            {"/x", tool("/x")},
            {"\"/usr/bin/tool -a\"", tool("/usr/bin/tool -a")},
            {"/usr/bin/tool\" -a\"", tool("/usr/bin/tool -a")},
            {"/x # note", tool("/x")},
            {"\" /x\"", tool(" /x")},
            {R"("\"/opt/my tool\" -a")", tool("\"/opt/my tool\" -a")},
            {R"("\"/opt/my tool\"")", tool("\"/opt/my tool\"")},
            {"%d%/bin/x", tool("%d%/bin/x")},
            {"%HOST%", tool("%HOST%")},  // trusted to expand to a path
            {"%%", tool("%%")},
            {"\"/x %HOST% 100%%\"", tool("/x %HOST% 100%%")},
            {full, tool(full)},

            {full + "c", "syntax 4"},
            {"\"" + full + "c\"", "syntax 4"},
            {"", "syntax 4"},
            {"\"\"", "syntax 4"},
            {"\" \"", "syntax 4"},
            {R"("\"\"")", "syntax 4"},
            {"tool", "syntax 4"},
            {"\"tool -a\"", "syntax 4"},
            {"tool -a", "syntax 4"},
            {"./tool", "syntax 4"},
            {"\"-a /x\"", "syntax 4"},
            {"/x -a", "syntax 4"},
            {"%FOO%/x", "syntax 4"},
            {"/x%", "syntax 4"},
        },
        VERSION + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = ", "\n}\n}\n");
    EXPECT_EQ(read(VERSION + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\nCOMMAND_LINE = /x\n}\n}\n"),
              "syntax 5");
}

TEST_F(IGIniReadPtn, KeepsACommandLineTwice) {
    ASSERT_EQ(read(VERSION + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = \"/x -a\"\n}\n}\n"),
              "{ tool(10, 15, 10, /x -a, -) }");
    const tool_block& tool = ptn_->current->current->tool;
    EXPECT_STREQ(tool.command_line, "/x -a");
    EXPECT_STREQ(tool.command_line_copy, "/x -a");
    EXPECT_NE(tool.command_line, tool.command_line_copy);
}

TEST_F(IGIniReadPtn, WantsAnAbsoluteRedirection) {
    const auto tool = [](const std::string& path) {
        return "{ tool(10, 15, 10, /x, " + path + ") }";
    };
    const std::string full = "/" + times(259, "r");
    expectAll(
        {
            {"/tmp/out", tool("/tmp/out")},
            {"\"/tmp/my out\"", tool("/tmp/my out")},
            {R"("\"/tmp/out\"")", tool("/tmp/out")},
            {R"("\"\"/tmp/out\"\"")", tool("\"/tmp/out\"")},  // one pair only
            {"%d%/out", tool("%d%/out")},
            {"/tmp/100%%", tool("/tmp/100%%")},
            {full, tool(full)},

            {full + "r", "syntax 4"},
            {"", "syntax 4"},
            {"\"\"", "syntax 4"},
            {R"("\"")", "syntax 4"},
            {"out", "syntax 4"},
            {"./out", "syntax 4"},
            {"\" /out\"", "syntax 4"},
            {"%FOO%/out", "syntax 4"},
            {"/out\nREDIRECT_PATH = /out", "syntax 5"},
        },
        VERSION + "BLOCK {\nTOOL_BLOCK {\nREDIRECT_PATH = ", "\nCOMMAND_LINE = /x\n}\n}\n");
    ASSERT_THAT(read(VERSION + "BLOCK {\nTOOL_BLOCK {\nREDIRECT_PATH = \"\\\"/o\\\"\"\n"
                               "COMMAND_LINE = /x\n}\n}\n"),
                ::testing::StartsWith("{"));
    EXPECT_STREQ(ptn_->current->current->tool.redirect_path_written, "\"/o\"");
}

// --- data blocks
// ----------------------------------------------------------------------------------

TEST_F(IGIniReadPtn, KnowsFourFileTypesAndTakesAnyOtherWord) {
    const auto data = [](const std::string& type) { return "{ data(" + type + ", /p) }"; };
    expectAll(
        {
            {"", data("0, -")},
            {"FILE_TYPE = text\n", data("0, text")},
            {"FILE_TYPE = binary\n", data("1, binary")},
            {"FILE_TYPE = archive\n", data("2, archive")},
            {"FILE_TYPE = directory\n", data("3, directory")},
            {"file_type=\"text\"\n", data("0, text")},
            {"FILE_TYPE = Text\n", data("4, Text")},
            {"FILE_TYPE = TEXT\n", data("4, TEXT")},
            {"FILE_TYPE = texts\n", data("4, texts")},
            {"FILE_TYPE = \"core dump\"\n", data("4, core dump")},
            {"FILE_TYPE = 5%%\n", data("4, 5%")},
            {"FILE_TYPE = 12345678901234567890\n", data("4, 12345678901234567890")},
            {"FILE_TYPE =\n", data("0, -")},
            {"FILE_TYPE = 123456789012345678901\n", "syntax 4"},
            {"FILE_TYPE = %FOO%\n", "syntax 4"},
            {"FILE_TYPE = text\nFILE_TYPE = text\n", "syntax 5"},
            {"FILE_TYPE =\nFILE_TYPE = text\n", "syntax 5"},
            {"TIMEOUT = 1\n", "syntax 4"},
            {"COMMAND_LINE = /x\n", "syntax 4"},
            {"REDIRECT_PATH = /x\n", "syntax 4"},
            {"TARGET = a\n", "syntax 4"},
            {"REG2 = a\n", "syntax 4"},
        },
        VERSION + "BLOCK {\nDATA_BLOCK {\n", "PATH_NAME = /p\n}\n}\n");
}

TEST_F(IGIniReadPtn, LimitsAndCollapsesTheFirstDescriptionOnly) {
    const auto data = [](const std::string& description) {
        return "{ data(0, -, /p" + description + ") }";
    };
    const std::string full = times(256, "d");
    expectAll(
        {
            {"DESCRIPTION = a\n", data(", a")},
            {"description=\"system log\"\nDESCRIPTION = b\nDESCRIPTION = c\n",
             data(", system log|b|c")},
            {"DESCRIPTION = " + full + "\n", data(", " + full)},
            {"DESCRIPTION = " + full + "d\n", "syntax 4"},
            {"DESCRIPTION = a\nDESCRIPTION = " + full + "d\n", data(", a|" + full + "d")},
            {"DESCRIPTION = 5%%\nDESCRIPTION = 5%%\n", data(", 5%|5%%")},
            {"DESCRIPTION =\n", data("")},
            {"DESCRIPTION =\nDESCRIPTION = 5%%" + full + "\n", data(", 5%%" + full)},
            {"DESCRIPTION = a\nDESCRIPTION =\nDESCRIPTION = c\n", data(", a|c")},
            {"DESCRIPTION = %HOST%\nDESCRIPTION = %HOST%\n", data(", %HOST%|%HOST%")},
            {"DESCRIPTION = %FOO%\n", "syntax 4"},
            {"DESCRIPTION = a\nDESCRIPTION = %FOO%\n", "syntax 5"},
            {"DESCRIPTION = a\nDESCRIPTION = \"5%\"\n", "syntax 5"},
            {"DESCRIPTION = a#note\n\n", data(", a|a")},
        },
        VERSION + "BLOCK {\nDATA_BLOCK {\n", "PATH_NAME = /p\n}\n}\n");
    // Every data block has a first one.
    EXPECT_EQ(read(VERSION + "BLOCK {\nDATA_BLOCK {\nPATH_NAME = /p\nDESCRIPTION = 1%%\n}\n"
                             "DATA_BLOCK {\nPATH_NAME = /p\nDESCRIPTION = 2%%\n}\n}\n"),
              "{ data(0, -, /p, 1%) data(0, -, /p, 2%) }");
}

TEST_F(IGIniReadPtn, WantsAnAbsolutePath) {
    const auto data = [](const std::string& path) { return "{ data(0, -, " + path + ") }"; };
    const std::string full = "/" + times(259, "p");
    expectAll(
        {
            {"/var/log/messages", data("/var/log/messages")},
            {"/var/log/*", data("/var/log/*")},
            {"\"/var/my log\"", data("/var/my log")},
            {R"("\"/var/my log\"")", data("/var/my log")},
            {"%d%/out", data("%d%/out")},
            {"/var/%HOST%/5%%", data("/var/%HOST%/5%%")},
            {"%", "syntax 4"},
            {full, data(full)},
            {full + "p", "syntax 4"},
            {"", "syntax 4"},
            {"\"\"", "syntax 4"},
            {"log", "syntax 4"},
            {"./log", "syntax 4"},
            {"%FOO%/x", "syntax 4"},
            {"/a /b", "syntax 4"},
            {"/a\nPATH_NAME = /a", "syntax 5"},
        },
        VERSION + "BLOCK {\nDATA_BLOCK {\nPATH_NAME = ", "\n}\n}\n");
    ASSERT_THAT(read(VERSION + "BLOCK {\nDATA_BLOCK {\nPATH_NAME = \"\\\"/p\\\"\"\n}\n}\n"),
                ::testing::StartsWith("{"));
    EXPECT_STREQ(ptn_->current->current->data.path_name_written, "\"/p\"");
}

// --- every keyword in every place, every word in every state
// ----------------------------------------------------

struct KeywordRow {
    std::string name;
    std::string place;  // where it is valid: "top", "block", "tool" or "data"
    std::string value;  // a good one; "{" opens a block
    bool only_once;
    bool may_be_empty;
    std::size_t longest;  // bytes of a value; 0 no limit
    std::uint32_t flag;   // in the flags of its place
};

const std::vector<KeywordRow> KEYWORDS = {
    {"FORMAT_VERSION", "top", "1.0", true, false, 0, PTN_FORMAT_VERSION},
    {"PP_VRS", "top", "v", true, true, 10, PTN_VRS},
    {"PP_KATAMEI", "top", "k", true, true, 256, PTN_KATAMEI},
    {"PP_NAME", "top", "n", true, true, 256, PTN_NAME},
    {"PP_GROUP", "top", "g", false, true, 256, PTN_GROUP},
    {"BLOCK", "top", "{\n}", false, false, 0, PTN_BLOCK},
    {"TARGET", "block", "t", false, true, 256, BLOCK_TARGET},
    {"TOOL_BLOCK", "block", "{\nCOMMAND_LINE = /x\n}", false, false, 0, 0},
    {"DATA_BLOCK", "block", "{\nPATH_NAME = /x\n}", false, false, 0, 0},
    {"TIMEOUT", "tool", "1", true, true, 0, TOOL_TIMEOUT},
    {"TIMEOUT_SIGNAL", "tool", "2", true, true, 0, TOOL_TIMEOUT_SIGNAL},
    {"WAIT_TERMINATION", "tool", "3", true, true, 0, TOOL_WAIT_TERMINATION},
    {"COMMAND_LINE", "tool", "/c", true, false, 260, TOOL_COMMAND_LINE},
    {"REDIRECT_PATH", "tool", "/r", true, false, 260, TOOL_REDIRECT_PATH},
    {"DESCRIPTION", "data", "d", false, true, 256, DATA_DESCRIPTION},
    {"FILE_TYPE", "data", "text", true, true, 20, DATA_FILE_TYPE},
    {"PATH_NAME", "data", "/p", true, false, 260, DATA_PATH_NAME},
};

struct Place {
    std::string name;
    std::string before;
    std::string required;  // a statement without which the place cannot be closed
    std::string after;
    std::size_t line;  // of the first statement
};

const std::vector<Place> PLACES = {
    {"top", "", "", "BLOCK {\n}\n", 2},
    {"block", "BLOCK {\n", "", "}\n", 3},
    {"tool", "BLOCK {\nTOOL_BLOCK {\n", "COMMAND_LINE = /x\n", "}\n}\n", 4},
    {"data", "BLOCK {\nDATA_BLOCK {\n", "PATH_NAME = /x\n", "}\n}\n", 4},
};

const Place& placeOf(const KeywordRow& keyword) {
    return *std::find_if(PLACES.begin(), PLACES.end(),
                         [&](const Place& place) { return place.name == keyword.place; });
}

std::string statement(const std::string& keyword, const std::string& value) {
    return keyword + (value.starts_with("{") ? " " : " = ") + value + "\n";
}

// A file with the statements in a place, complete but for what they bring themselves.
std::string fileWith(const Place& place, const std::string& statements,
                     const std::string& keyword = "") {
    const bool given = !keyword.empty() && place.required.starts_with(keyword + " ");
    return VERSION + place.before + statements + (given ? "" : place.required) + place.after;
}

class EveryKeyword : public IGIniReadPtn {
  protected:
    // What is said of a file whose given line is at fault, and of one without a fault.
    static std::string syntax(std::size_t line) { return "syntax " + std::to_string(line); }
    void expectGood(const std::string& text) {
        SCOPED_TRACE(text);
        EXPECT_THAT(read(text), ::testing::EndsWith("}"));
    }
    void expectFault(const std::string& text, std::size_t line) {
        SCOPED_TRACE(text);
        EXPECT_EQ(read(text), syntax(line));
    }
};

TEST_F(EveryKeyword, IsKnownInItsOwnPlaceOnly) {
    for (const KeywordRow& keyword : KEYWORDS) {
        for (const Place& place : PLACES) {
            const std::string text =
                fileWith(place, statement(keyword.name, keyword.value), keyword.name);
            if (place.name == keyword.place && keyword.name != "FORMAT_VERSION") {
                expectGood(text);
            } else {
                expectFault(text, place.line);
            }
        }
    }
    for (const Place& place : PLACES) {
        for (char digit = '0'; digit <= '9'; ++digit) {
            expectFault(fileWith(place, std::string("REG") + digit + " = x\n"), place.line);
        }
        expectFault(fileWith(place, "UNKNOWN = x\n"), place.line);
    }
}

TEST_F(EveryKeyword, IsMatchedInAnyCase) {
    for (const KeywordRow& keyword : KEYWORDS) {
        std::string lower = keyword.name;
        std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
        std::string mixed = lower;
        mixed[0] = keyword.name[0];
        const Place& place = placeOf(keyword);
        for (const std::string& name : {lower, mixed}) {
            if (keyword.name == "FORMAT_VERSION") {
                expectGood(name + " = 1.0\nBLOCK {\n}\n");
            } else {
                expectGood(fileWith(place, statement(name, keyword.value), keyword.name));
            }
        }
        expectFault(fileWith(place, statement(keyword.name + "S", "x")), place.line);
        expectFault(fileWith(place, statement(keyword.name.substr(1), "x")), place.line);
    }
}

TEST_F(EveryKeyword, IsGivenOnceOrAsOftenAsItMay) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        const std::string once = statement(keyword.name, keyword.value);
        const std::string text = fileWith(place, once + once, keyword.name);
        if (keyword.name == "FORMAT_VERSION") {
            expectFault(VERSION + once, 2);
        } else if (keyword.only_once) {
            expectFault(text, place.line + 1);
        } else {
            expectGood(text);
            // As often as in the file, also where another statement stands between.
            expectGood(fileWith(place, once + "\n# note\n" + once + once, keyword.name));
        }
    }
}

TEST_F(EveryKeyword, MarksItsOwnFlagWithAValueOrWithout) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        if (keyword.name == "FORMAT_VERSION" || keyword.value.starts_with("{")) {
            continue;
        }
        for (const std::string& value : {keyword.value, std::string()}) {
            if (value.empty() && !keyword.may_be_empty) {
                continue;
            }
            const std::string text = fileWith(place, statement(keyword.name, value), keyword.name);
            SCOPED_TRACE(text);
            ASSERT_THAT(read(text), ::testing::EndsWith("}"));
            const std::uint32_t top = PTN_FORMAT_VERSION | PTN_BLOCK;
            EXPECT_EQ(ptn_->flags, top | (place.name == "top" ? keyword.flag : 0));
            const ptn_block& block = *ptn_->current;
            EXPECT_EQ(block.flags, place.name == "block" ? keyword.flag : 0);
            if (place.name == "tool") {
                EXPECT_EQ(block.current->flags, keyword.flag | TOOL_COMMAND_LINE);
            } else if (place.name == "data") {
                EXPECT_EQ(block.current->flags, keyword.flag | DATA_PATH_NAME);
            }
        }
    }
}

TEST_F(EveryKeyword, TakesAnEmptyValueOrRefusesIt) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        for (const char* empty : {"", "\"\"", "  ", "\"\"\"\"", "\t\"\"\t# note"}) {
            const std::string text =
                fileWith(place, keyword.name + " =" + empty + "\n", keyword.name);
            if (keyword.name == "FORMAT_VERSION") {
                SCOPED_TRACE(empty);
                EXPECT_EQ(read(keyword.name + " =" + empty + "\nBLOCK {\n}\n"), "format");
            } else if (keyword.may_be_empty) {
                expectGood(text);
            } else {
                expectFault(text, place.line);
            }
        }
    }
}

TEST_F(EveryKeyword, TakesAValueUpToItsLimit) {
    for (const KeywordRow& keyword : KEYWORDS) {
        if (keyword.longest == 0) {
            continue;
        }
        const Place& place = placeOf(keyword);
        const std::string start = keyword.value.substr(0, 1);
        const std::string full = start + times(keyword.longest - 1, "x");
        expectGood(fileWith(place, statement(keyword.name, full), keyword.name));
        expectGood(fileWith(place, statement(keyword.name, '"' + full + '"'), keyword.name));
        expectFault(fileWith(place, statement(keyword.name, full + "x"), keyword.name), place.line);
        expectFault(fileWith(place, statement(keyword.name, '"' + full + "\"x"), keyword.name),
                    place.line);
        // Percent signs and what the backslash leaves count as the value is written.
        const std::string percents = start + times(keyword.longest / 2, "%%");
        expectFault(fileWith(place, statement(keyword.name, percents), keyword.name), place.line);
        expectGood(fileWith(place, statement(keyword.name, start + "\\\\" + full.substr(2)),
                            keyword.name));
    }
}

TEST_F(EveryKeyword, ChecksTheSpecialStringsOfItsValue) {
    for (const KeywordRow& keyword : KEYWORDS) {
        if (keyword.value.starts_with("{") || keyword.name == "FORMAT_VERSION") {
            continue;
        }
        const Place& place = placeOf(keyword);
        const std::string start = keyword.value.substr(0, 1);
        for (const char* bad : {"%FOO%", "%", "%%%", "%reg0%", "%host%", "\"% %\"", "%HOST"}) {
            expectFault(fileWith(place, statement(keyword.name, start + bad), keyword.name),
                        place.line);
        }
        if (keyword.longest > 0) {
            for (const char* good : {"%%", "%YY%", "%ss%\"%MM%\"", "%d%", "%%%%"}) {
                expectGood(fileWith(place, statement(keyword.name, start + good), keyword.name));
            }
        }
    }
}

// Rows: states; columns: the words that may come. "+" and a text: what the file then is; a number:
// the line that is at fault.
TEST_F(IGIniReadPtn, TakesOrRefusesEveryWordInEveryState) {
    constexpr std::array<const char*, 11> WORDS{"\"x\"", "=",      "#x", "x", "{", "}",
                                                " ",     "%HOST%", "\n", "%", "\v"};
    struct State {
        const char* before;
        const char* after;
        std::array<const char*, WORDS.size()> outcomes;
    };
    const std::string block = "\nBLOCK {\n}\n";
    const std::vector<State> states = {
        {"",
         block.c_str(),  // a statement
         {"2", "2", "+{}", "2", "2", "2", "+{}", "2", "+{}", "2", "2"}},
        {"PP_GROUP ",
         block.c_str(),  // its equals sign
         {"2", "+{}", "2", "2", "2", "2", "2", "2", "2", "2", "2"}},
        {"PP_GROUP =",
         block.c_str(),  // its value
         {"+group=x {}", "2", "3", "+group=x {}", "2", "2", "+{}", "+group=%HOST% {}", "+{}", "2",
          "2"}},
        {"PP_GROUP =\"a\"",
         block.c_str(),  // more of its value
         {"+group=ax {}", "2", "3", "+group=ax {}", "2", "2", "+group=a {}", "+group=a%HOST% {}",
          "+group=a {}", "2", "2"}},
        {"PP_GROUP =\"a\" ",
         block.c_str(),  // behind its value
         {"2", "2", "+group=a {}", "2", "2", "2", "+group=a {}", "2", "+group=a {}", "2", "2"}},
        {"BLOCK ",
         "\n}\n",  // its brace
         {"2", "2", "2", "2", "+{}", "2", "3", "2", "4", "2", "2"}},
        {"BLOCK { ",
         "\n}\n",  // behind its brace
         {"2", "2", "2", "2", "2", "2", "+{}", "2", "+{}", "2", "2"}},
    };
    for (const State& state : states) {
        for (std::size_t i = 0; i < WORDS.size(); ++i) {
            const std::string text = VERSION + state.before + WORDS[i] + state.after;
            SCOPED_TRACE(text);
            const std::string outcome = state.outcomes[i];
            EXPECT_EQ(read(text), outcome[0] == '+' ? outcome.substr(1) : "syntax " + outcome);
        }
    }
}

TEST_F(IGIniReadPtn, TakesABlockKeywordWithoutABraceAtTheEndOfTheFile) {
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

TEST_F(IGIniReadPtn, GivesUpWhereverMemoryRunsOut) {
    writeText(file_, VERSION + "PP_VRS = 1\nPP_KATAMEI = " + times(100, "k") +
                         "\nPP_NAME = " + times(200, "n") + "\nPP_GROUP = " + times(60, "g") +
                         "\nBLOCK {\nTARGET = " + times(30, "t") +
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

TEST_F(IGIniReadPtn, SkipsAFileWhoseStreamDoesNotTakeBackACharacter) {
    writeText(file_, VERSION + "BLOCK {\n}\n");
    const FailingCall failing(Call::UNGETWC, 3, EIO);
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, trio("ungetwc", EIO, "Input/output error", file_, "IGCmnFileWord"));
}

// --- flags, files and cut files
// -------------------------------------------------------------------------

TEST_F(IGIniReadPtn, RemembersWhatWasGiven) {
    ASSERT_EQ(read(VERSION + "BLOCK {\n}\n"), "{}");
    EXPECT_EQ(ptn_->flags, static_cast<std::uint32_t>(PTN_FORMAT_VERSION | PTN_BLOCK));
    EXPECT_EQ(ptn_->current->flags, 0U);
    EXPECT_EQ(ptn_->current->skip, 1);

    ASSERT_THAT(read(VERSION + "PP_NAME = a\nPP_GROUP = b\nBLOCK {\nTARGET =\n"
                               "DATA_BLOCK {\nPATH_NAME = /p\nDESCRIPTION =\n}\n"
                               "TOOL_BLOCK {\nCOMMAND_LINE = /x\nTIMEOUT =\n"
                               "WAIT_TERMINATION = 3\n}\n}\n"),
                ::testing::EndsWith("}"));
    EXPECT_EQ(ptn_->flags,
              static_cast<std::uint32_t>(PTN_NAME | PTN_GROUP | PTN_FORMAT_VERSION | PTN_BLOCK));
    EXPECT_EQ(ptn_->current->flags, static_cast<std::uint32_t>(BLOCK_TARGET));
    ASSERT_EQ(ptn_->current->items->count, 2U);
    const auto* data = static_cast<const collect_item*>(ptn_->current->items->first->value);
    EXPECT_EQ(data->flags, static_cast<std::uint32_t>(DATA_DESCRIPTION | DATA_PATH_NAME));
    EXPECT_EQ(ptn_->current->current->flags,
              static_cast<std::uint32_t>(TOOL_COMMAND_LINE | TOOL_TIMEOUT | TOOL_WAIT_TERMINATION));
}

TEST_F(IGIniReadPtn, SkipsAFileThatCannotBeOpened) {
    file_ = directory_.path("none");
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, trio("fopen", 2, "No such file or directory", file_, "IGCmnFile"));
    EXPECT_EQ(errors_ + "ZEPA114-E:source = IGCmnFile, line no = N.\n", log_);
}

TEST_F(IGIniReadPtn, WarnsInTheRunLogOnlyWhilePatternFilesAreRead) {
    file_ = directory_.path("none");
    IgCmnMsgSetMode(2);
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, trio("fopen", 2, "No such file or directory", file_, "IGCmnFile", true));
    EXPECT_EQ(errors_, "");
}

TEST_F(IGIniReadPtn, SkipsADirectory) {
    file_ = directory_.path();
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, trio("fgetwc", 21, "Is a directory", file_, "IGCmnFileWord"));
}

TEST_F(IGIniReadPtn, EndsWhenTheRunIsInterrupted) {
    run_state.signal_no = SIGINT;
    run_state.interrupted = 1;
    const std::string told = "ZEPA136-E:quendil was interrupted. signal no = 2.\n";
    EXPECT_EQ(read("a file that is no pattern at all\n"), told + "|" + told);
}

TEST_F(IGIniReadPtn, DoesNotWaitForTheOtherEndOfAPipe) {
    file_ = directory_.path("pipe");
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(log_, "ZEPA137-W:Internal error occurred.\nZEPA138-W:filename = " + file_ +
                        ", line no = 1.\n");
}

TEST_F(IGIniReadPtn, KeepsNoDescriptorOfAnyFile) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(read(VERSION + "BLOCK {\n}\n"), "{}");
    EXPECT_EQ(read(VERSION + "FOO\n"), "syntax 2");
    EXPECT_EQ(read("FOO\n"), "format");
    EXPECT_EQ(read(""), "syntax 1");
    file_ = directory_.path();
    EXPECT_EQ(readFile(), PTN_SKIPPED);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(IGIniReadPtn, ReadsAValueLargerThanAPoolBlock) {
    // Over the limits, but the reader has to hold it before it can say so.
    expectAll({
        {VERSION + "BLOCK {\nDATA_BLOCK {\nPATH_NAME = /p\nDESCRIPTION = a\nDESCRIPTION = \"" +
             times(1000, "x") + "\"\n}\n}\n",
         "{ data(0, -, /p, a|" + times(1000, "x") + ") }"},
    });
}

// A file that uses everything, cut after every byte: accepted exactly where its blocks are closed,
// refused with the line of its end everywhere else.
TEST_F(IGIniReadPtn, StandsAFileCutAnywhere) {
    const std::string good =
        "# a product\r\n"
        "FORMAT_VERSION = 1.0 # first\n"
        "PP_VRS = 1.0\n"
        "PP_KATAMEI = \"M 1\"\n"
        "PP_NAME = a%HOST%b\\\"\n"
        "PP_GROUP = g1#glued\n"
        "x\n"
        "PP_GROUP =\n"
        "\n"
        "BLOCK {\n"
        "  TARGET = \"t {1}\"\n"
        "  TOOL_BLOCK {\n"
        "    COMMAND_LINE = \"/bin/x -a \\\"} {\\\"\" # }\n"
        "    TIMEOUT = -1\n"
        "    REDIRECT_PATH = %d%/out\n"
        "  } DATA_BLOCK {\n"
        "    PATH_NAME = /p/100%%\n"
        "    FILE_TYPE = other\n"
        "    DESCRIPTION = one\n"
        "    DESCRIPTION = \"two #\"\n"
        "  }\n"
        "}\n"
        "PP_GROUP = g3\n"
        "BLOCK {\n"
        "}";
    ASSERT_EQ(read(good),
              "vrs=1.0 katamei=M 1 name=a%HOST%b\" group=g1|g1x|g3 { target=t {1} "
              "tool(-1, 15, 10, /bin/x -a \"} {\", %d%/out) data(4, other, /p/100%%, one|two #) } "
              "{}");
    const std::size_t first_end = good.find("\n}\n") + 2;  // behind the first block's brace
    const std::size_t second_begin = good.rfind('{');
    for (std::size_t length = 0; length < good.size(); ++length) {
        const std::string cut = good.substr(0, length);
        SCOPED_TRACE("cut after " + std::to_string(length) + " bytes: " + cut);
        const auto line = 1 + std::count(cut.begin(), cut.end(), '\n');
        const std::string shown = read(cut);
        if (length >= first_end && length <= second_begin) {
            EXPECT_THAT(shown, ::testing::StartsWith("vrs=1.0"));
        } else {
            EXPECT_EQ(shown, "syntax " + std::to_string(line));
        }
    }
}

TEST_F(IGIniReadPtn, MustNotBeGivenNull) {
    writeText(file_, VERSION + "BLOCK {\n}\n");
    root_.crnt_ptn_def = IgIniGetPickPtn(pool());
    EXPECT_DEATH(IgIniReadPtnDef(nullptr, &root_, pool()), "file_name != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniReadPtnDef(file_.c_str(), nullptr, pool()), "root != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniReadPtnDef(file_.c_str(), &root_, nullptr),
                 "memoryp != \\(\\(void \\*\\)0\\)");
    root_.crnt_ptn_def = nullptr;
    EXPECT_DEATH(IgIniReadPtnDef(file_.c_str(), &root_, pool()),
                 "crnt_ptn_def != \\(\\(void \\*\\)0\\)");
}

}  // namespace
