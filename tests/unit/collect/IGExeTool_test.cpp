#include "collect/IGExeTool.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "../../support/collect_fixture.h"
#include "collect/IGResult.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"

namespace {

const std::string TIME = "YYYY/MM/DD hh:mm:ss";

std::string started(const std::string& command, int timeout) {
    return "ZEPA206-I:Information collecting tool start.\n    Command  = \"" + command +
           "\"\n    Start time = " + TIME + "\n    Timeout = " + std::to_string(timeout) + "\n";
}
std::string ended(int code, int status) {
    return "ZEPA207-I:Information collecting tool end.\n    Return code = " + std::to_string(code) +
           "\n    Status code = " + std::to_string(status) + "\n    End time = " + TIME + "\n";
}
const std::string ERROR_OUTPUT = "ZEPA208-W:Information collecting tool error message.\n";

class IGExeTool : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        IgCmnMsgSetMode(MSGMODE_COLLECTING);  // as in a collection
        tool_ = &IgIniGetPickPtnCmdData(pool(), ITEM_TOOL)->tool;
    }

    int run(const std::string& command_line) {
        command_line_ = command_line;
        tool_->command_line = command_line_.data();
        return IgExeTool(pool(), root_, tool_);
    }
    void redirect(const std::string& path) {
        redirect_path_ = path;
        tool_->redirect_path = redirect_path_.data();
    }
    std::string takeTimedLog() {
        return replaced(takeLog(), "time = [0-9]{4}/[0-9]{2}/[0-9]{2} [0-9:]{8}", "time = " + TIME);
    }
    static std::string behave(const std::string& words) {
        return std::string(BEHAVE) + " " + words;
    }

    tool_block* tool_ = nullptr;
    std::string stderr_ = std::string(LOG_DIR) + "/quendil_stderr.log";

  private:
    std::string command_line_;
    std::string redirect_path_;
};

TEST_F(IGExeTool, AnnouncesTheToolAndItsEnd) {
    const std::string line = behave("exit 3");
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(takeTimedLog(), started(line, 10) + ended(3, 3 << 8));
    EXPECT_THAT(tool_->start_stamp.data(), ::testing::MatchesRegex("[0-9]{12}"));
    EXPECT_EQ(readText(stderr_), "");
    const std::string killed = behave("die KILL");
    EXPECT_EQ(run(killed), 0);
    EXPECT_EQ(takeTimedLog(), started(killed, 10) + ended(0, 9));
}

TEST_F(IGExeTool, ShowsTheErrorOutputOfAToolWithoutARedirection) {
    const std::string line = behave("out one\\n err two\\nthree");
    Capture output(stdout);
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(output.take(), "one\n");  // the tool writes to the run's own output
    EXPECT_EQ(takeTimedLog(), started(line, 10) + ended(0, 0) + ERROR_OUTPUT + "two\nthree\n");
    EXPECT_EQ(readText(stderr_), "two\nthree");

    const std::string silent = behave("exit 0");
    EXPECT_EQ(run(silent), 0);
    EXPECT_EQ(takeTimedLog(), started(silent, 10) + ended(0, 0));  // not the previous tool's
}

TEST_F(IGExeTool, SendsBothOutputsToARedirection) {
    redirect("%d%/sub/%HOST%.txt");
    const std::string line = behave("out one\\n err two\\n exit 1");
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(takeTimedLog(), started(line, 10) + ended(1, 256));
    EXPECT_EQ(readText(data_dir_ + "/sub/testhost.txt"), "one\ntwo\n");
    EXPECT_FALSE(std::filesystem::exists(stderr_));
}

TEST_F(IGExeTool, ExpandsTheCommandLine) {
    const std::string line = behave("write \"%d%/out\" \"%HOST% 100%%\"");
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(readText(data_dir_ + "/out"), "testhost 100%");
    EXPECT_EQ(
        takeTimedLog(),
        started(behave("write \"" + data_dir_ + "/out\" \"testhost 100%\""), 10) + ended(0, 0));
}

TEST_F(IGExeTool, RunsAQuotedCommandWithABlankInItsPath) {
    const std::string program = path("my tool");
    writeText(program, std::string("#!") + BEHAVE + " play\nexit\n5\n");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    EXPECT_EQ(run("\"" + program + "\" -a"), 0);
    EXPECT_EQ(takeTimedLog(), started("\"" + program + "\" -a", 10) + ended(5, 1280));
}

TEST_F(IGExeTool, ReportsAMissingProgramByItsReturnCode) {
    const std::string message =
        "ZEPA125-W:An information collecting tool(/none) that collects "
        "system information does not exist.\n";
    EXPECT_EQ(run("/none -a"), 0);
    EXPECT_EQ(takeTimedLog(), started("/none -a", 10) + message + ended(255, 0));
    IgMainSetRetCode(RETCODE_COMPRESSED);
    EXPECT_EQ(run("/none -a"), 0);
    EXPECT_EQ(takeTimedLog(), started("/none -a", 10) + ended(255, 0));
    redirect("%d%/out");
    EXPECT_EQ(run("/none -a"), 0);
    EXPECT_EQ(takeTimedLog(), started("/none -a", 10) + ended(255, 0));
    EXPECT_FALSE(std::filesystem::exists(data_dir_ + "/out"));
}

TEST_F(IGExeTool, ReportsATimeOut) {
    tool_->timeout = 1;
    tool_->wait_termination = 5;
    const std::string line = behave("exiton TERM 4 err slow forever");
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(takeTimedLog(),
              started(line, 1) + "ZEPA126-W:A timeout occurred while information collecting tool(" +
                  BEHAVE + ") was being executed.\n" + ended(4, 4 << 8) + ERROR_OUTPUT + "slow\n");
}

TEST_F(IGExeTool, RunsNothingForALineThatExpandsToNothing) {
    writeText(stderr_, "of the tool before\n");
    for (const std::string line : {"%FOO%", " ", ""}) {
        EXPECT_EQ(run(line), 0);
        EXPECT_EQ(takeTimedLog(), started(line == "%FOO%" ? "" : line, 10) + ended(0, 0));
    }
    EXPECT_EQ(readText(stderr_), "of the tool before\n");
}

TEST_F(IGExeTool, ContinuesWhenTheOutputFileCannotBeMade) {
    std::filesystem::create_directories(data_dir_ + "/out/sub");
    redirect("%d%/out");
    const std::string line = behave("exit 0");
    EXPECT_EQ(run(line), 0);
    EXPECT_EQ(takeTimedLog(),
              started(line, 10) +
                  trio("open", 21, "Is a directory", data_dir_ + "/out", "IGCmnProcess", true) +
                  ended(255, 0));
}

TEST_F(IGExeTool, WritesIntoTheOriginalOutputDirectoryEvenIfItIsReplaced) {
    const std::string away = base_ + "/away";
    const FdGuard held(::open(output_.c_str(), O_PATH | O_CLOEXEC));
    root_->output_held = true;
    root_->output_fd = held.get();
    std::filesystem::rename(output_, away);
    std::filesystem::create_directory(output_);
    redirect("%d%/own/out");
    EXPECT_EQ(run(behave("out x")), 0);
    EXPECT_TRUE(std::filesystem::is_empty(output_));
    EXPECT_EQ(readText(away + "/own/out"), "x");
}

TEST_F(IGExeTool, StartsNothingInAnInterruptedRun) {
    run_state.interrupted = 1;
    run_state.signal_no = 15;
    Capture errors(stderr);
    EXPECT_EQ(run(behave("exit 0")), RESULT_INTERRUPTED);
    EXPECT_EQ(takeLog(), "ZEPA136-E:quendil was interrupted. signal no = 15.\n");
    EXPECT_EQ(tool_->start_stamp[0], '\0');
}

TEST_F(IGExeTool, FailsWhenALineCannotBeExpanded) {
    const std::string report =
        "ZEPA140-W:An error occurred during the following system call. system call name = "
        "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide character.\n"
        "ZEPA141-W:source = IGCmnStr, line no = N.\n";
    EXPECT_EQ(run("/x \xff"), -1);
    EXPECT_EQ(takeLog(), report);
    redirect("/tmp/\xff");
    EXPECT_EQ(run("/x"), -1);
    EXPECT_EQ(takeLog(), report);
}

TEST_F(IGExeTool, AssertsItsArgumentsAreNotNull) {
    EXPECT_DEATH(IgExeTool(nullptr, root_, tool_), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgExeTool(pool(), nullptr, tool_), "root_tblp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgExeTool(pool(), root_, nullptr), "tool_block != \\(\\(void \\*\\)0\\)");
}

}  // namespace
