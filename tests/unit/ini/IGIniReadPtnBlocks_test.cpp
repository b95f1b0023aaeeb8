#include "ini/IGIniReadPtn.h"

#include "../../support/pattern_fixture.h"
#include "ini/IGIniTable.h"

namespace {

class IGIniReadPtn : public PatternTest {};

// --- the top level ---

TEST_F(IGIniReadPtn, StoresTheStatementsOfAProduct) {
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

TEST_F(IGIniReadPtn, AcceptsNoOtherKeywordAtTheTop) {
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

// --- blocks ---

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

// --- tool blocks ---

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
            {"TIMEOUT = \" 5\"\n", tool("5, 15, 10")},  // as strtol parses it
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
            {"TIMEOUT = 4294967297\n", "syntax 4"},  // would be 1 if it were narrowed first
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

TEST_F(IGIniReadPtn, RequiresAnAbsoluteCommand) {
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

TEST_F(IGIniReadPtn, RequiresAnAbsoluteRedirection) {
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

// --- data blocks ---

TEST_F(IGIniReadPtn, KnowsFourFileTypesAndAcceptsAnyOtherWord) {
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

TEST_F(IGIniReadPtn, RequiresAnAbsolutePath) {
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

}  // namespace
