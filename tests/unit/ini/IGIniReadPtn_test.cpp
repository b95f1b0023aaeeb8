#include "ini/IGIniReadPtn.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "../../support/pattern_fixture.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

namespace {

class IGIniReadPtn : public PatternTest {};

// --- the format version ---

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

TEST_F(IGIniReadPtn, RequiresTheFormatVersionFirst) {
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
        {VERSION + "BLOCK {\n}\nPP_NAME = lost", "{}"},  // its value is not terminated
    });
}

TEST_F(IGIniReadPtn, ReportsAReadersRefusalAsASyntaxErrorEvenBeforeTheVersion) {
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

// --- flags, files and truncated files ---

TEST_F(IGIniReadPtn, RecordsWhichStatementsWereGiven) {
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
    IgCmnMsgSetMode(MSGMODE_READING);
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
    const std::string report = "ZEPA136-E:quendil was interrupted. signal no = 2.\n";
    EXPECT_EQ(read("a file that is no pattern at all\n"), report + "|" + report);
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
    // Over the limits, but the reader has to hold it before it can refuse it.
    expectAll({
        {VERSION + "BLOCK {\nDATA_BLOCK {\nPATH_NAME = /p\nDESCRIPTION = a\nDESCRIPTION = \"" +
             times(1000, "x") + "\"\n}\n}\n",
         "{ data(0, -, /p, a|" + times(1000, "x") + ") }"},
    });
}

// A file that uses everything, truncated after every byte: accepted exactly where its blocks are
// closed, refused with the line of its end everywhere else.
TEST_F(IGIniReadPtn, ReadsAFileTruncatedAnywhere) {
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
    const std::size_t first_end = good.find("\n}\n") + 2;  // after the first block's brace
    const std::size_t second_begin = good.rfind('{');
    for (std::size_t length = 0; length < good.size(); ++length) {
        const std::string truncated = good.substr(0, length);
        SCOPED_TRACE("truncated after " + std::to_string(length) + " bytes: " + truncated);
        const auto line = 1 + std::count(truncated.begin(), truncated.end(), '\n');
        const std::string shown = read(truncated);
        if (length >= first_end && length <= second_begin) {
            EXPECT_THAT(shown, ::testing::StartsWith("vrs=1.0"));
        } else {
            EXPECT_EQ(shown, "syntax " + std::to_string(line));
        }
    }
}

TEST_F(IGIniReadPtn, AssertsItsArgumentsAreNotNull) {
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
