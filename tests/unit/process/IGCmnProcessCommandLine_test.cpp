#include "process/IGCmnProcess.h"

#include <sys/stat.h>

#include <utility>

#include "../../support/process_fixture.h"

namespace {

using Words = std::vector<std::string>;

class CommandLine : public ProcessTest {};

TEST_F(CommandLine, SplitsACommandLineAtBlanksOutsideDoubleQuotes) {
    const std::vector<std::pair<std::string, Words>> cases = {
        {"a b", {"a", "b"}},
        {"  a \t b\t", {"a", "b"}},
        {"\"a b\" c", {"a b", "c"}},
        {"\"a\tb\"", {"a\tb"}},
        {"\"a\"", {"a"}},
        {"a\"b c\"d", {"a\"b c\"d"}},  // quotes enclose the whole word, or stay
        {"\"a b\"c", {"\"a b\"c"}},
        {"\"a \"\"b\"", {"a \"\"b"}},
        {"\"\"", {""}},
        {"\"\" \"\"", {"", ""}},
        {"\"\"a\"\"", {"\"a\""}},  // one pair only
        {"\"unclosed  b", {"\"unclosed  b"}},
        {"a\"b", {"a\"b"}},
        {"'a b'", {"'a", "b'"}},  // no other quote, no escape
        {"a\\ b", {"a\\", "b"}},
        {"$HOME `x` *", {"$HOME", "`x`", "*"}},  // no shell
        {"\xc3\xa4\xe3\x80\x80 \xc3\xb6", {"\xc3\xa4\xe3\x80\x80", "\xc3\xb6"}},
        {"a\nb", {"a\nb"}},
    };
    const std::string report = path("report");
    for (const auto& [line, expected] : cases) {
        SCOPED_TRACE(line);
        const std::string command_line = std::string(BEHAVE) + " \t\"report\" \"-\" -- " + line;
        exec_req request;
        request.stdout_path = report.c_str();
        std::int32_t exit_cd = UNTOUCHED;
        std::int32_t status = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr("unused", command_line.c_str(), &request, &exit_cd, &status),
                  EXEC_OK);
        EXPECT_EQ(exit_cd, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(request.command_path, nullptr);
        EXPECT_EQ(request.argv, nullptr);
        std::string wanted = std::string("arg0=") + BEHAVE + "\narg1=report\narg2=-\narg3=--\n";
        for (std::size_t i = 0; i < expected.size(); ++i) {
            wanted += "arg" + std::to_string(i + 4) + "=" + expected[i] + "\n";
        }
        EXPECT_THAT(readText(report), ::testing::StartsWith(wanted + "pid="));
    }
}

TEST_F(CommandLine, RunsNothingForACommandLineWithoutAWord) {
    for (const char* line : {"", " ", "\t \t"}) {
        exec_req request;
        const std::string out = path("out");
        request.stdout_path = out.c_str();
        std::int32_t exit_cd = UNTOUCHED;
        std::int32_t status = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr(line, line, &request, &exit_cd, &status), EXEC_OK);
        EXPECT_EQ(exit_cd, UNTOUCHED);
        EXPECT_EQ(status, UNTOUCHED);
        EXPECT_FALSE(std::filesystem::exists(out));
    }
}

TEST_F(CommandLine, RunsAPathAloneWithoutACommandLine) {
    const std::string program = path("my tool");
    writeText(program, std::string("#!") + BEHAVE + " play\nexit\n5\n");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    for (const std::string& given : {program, "\"" + program + "\""}) {
        exec_req request;
        std::int32_t exit_cd = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr(given.c_str(), nullptr, &request, &exit_cd, nullptr),
                  EXEC_NONZERO);
        EXPECT_EQ(exit_cd, 5);
    }
    exec_req request;
    std::int32_t exit_cd = UNTOUCHED;
    EXPECT_EQ(
        IgCmnExecCmdlineStr("x", ("\"" + program + "\" a").c_str(), &request, &exit_cd, nullptr),
        EXEC_NONZERO);
    EXPECT_EQ(exit_cd, 5);
}

TEST_F(CommandLine, ReportsACommandLineThatTheLocaleCannotDecode) {
    exec_req request;
    std::int32_t exit_cd = 0;
    Capture errors(stderr);
    EXPECT_EQ(IgCmnExecCmdlineStr("/x", "/x \xff", &request, &exit_cd, nullptr), EXEC_FAILED);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide "
              "character.\nZEPA114-E:source = IGCmnStr, line no = N.\n");
}

}  // namespace
