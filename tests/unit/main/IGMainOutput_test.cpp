#include "main/IGMainOutput.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "../../support/collect_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessageState.h"
#include "main/IGMainRun.h"

namespace {

namespace fs = std::filesystem;

class IGMainOutput : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        main_run = MainRun{};
        main_run.root = root_;
        fs::remove(history_);
    }

    void TearDown() override {
        IgCmnMemoryFree(&main_run.memoryp, nullptr, 0);
        CollectTest::TearDown();
    }

    std::string history() const { return readText(history_); }

    // The report of the result on the standard output, which the run log must hold too.
    std::string reported() {
        Capture output(stdout);
        IgMainReportOutput();
        const std::string text = output.take();
        EXPECT_EQ(takeLog(), text);
        return text;
    }

    const std::string history_ = std::string(LOG_DIR) + "/quendil_hist.log";
};

TEST_F(IGMainOutput, CountsUpFromTheEntriesThatBeginWithATakenName) {
    struct Case {
        std::vector<std::string> present;  // after the name
        std::string chosen;
    };
    const std::string name = root_->output_name;
    for (const Case& c :
         {Case{{}, ""}, Case{{"_1"}, ""}, Case{{""}, "_1"}, Case{{"", "_x"}, "_2"},
          Case{{"", "_1", "_2"}, "_3"}, Case{{"", "_3", "_x"}, "_4"}, Case{{"", "*"}, "_2"}}) {
        SCOPED_TRACE(::testing::PrintToString(c.present));
        fs::remove_all(base_);
        fs::create_directory(base_);
        for (const std::string& ending : c.present) {
            fs::create_symlink("nowhere", base_ + "/" + name + ending);  // uses up a name too
        }
        std::string own = name;
        root_->output_name = root_->output_file = own.data();
        EXPECT_TRUE(chooseOutputName(pool(), *root_));
        EXPECT_EQ(root_->output_name, name + c.chosen);
        EXPECT_EQ(takeLog(), "");
    }
}

TEST_F(IGMainOutput, KeepsNoListOfTheEntriesThatItCounts) {
    constexpr int ENTRIES = 1000;
    const std::string name = root_->output_name;
    root_->output_file = root_->output_name;
    for (int n = 1; n < ENTRIES; ++n) {
        fs::create_directory(base_ + "/" + name + "_" + std::to_string(n));
    }
    Pool fresh;
    const std::size_t before = liveChunks();
    ASSERT_TRUE(chooseOutputName(fresh.get(), *root_));
    EXPECT_EQ(root_->output_name, name + "_" + std::to_string(ENTRIES));
    EXPECT_LE(liveChunks(), before + 2) << "a block for the pool and one for the name";
}

TEST_F(IGMainOutput, CountsFromOneWhereTheEntriesCannotBeRead) {
    const std::string name = root_->output_name;
    root_->output_file = root_->output_name;
    Capture err(stderr);
    {
        const FailingCall failing(Call::READDIR, 1, EIO);
        EXPECT_TRUE(chooseOutputName(pool(), *root_));
    }
    EXPECT_EQ(root_->output_name, name + "_1");
    const std::string report = trio("readdir", EIO, "Input/output error", base_, "IGCmnDir");
    EXPECT_EQ(takeLog(), report);
    EXPECT_EQ(err.take(), report.substr(0, report.rfind("ZEPA1")));
}

TEST_F(IGMainOutput, CreatesTheDirectoryAsPrivate) {
    std::string name = "fresh";
    root_->output_name = name.data();
    const FdGuard watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_NE(::inotify_add_watch(watch.get(), base_.c_str(), IN_CREATE | IN_ATTRIB), -1);
    ASSERT_TRUE(makeOutputDirectory(pool(), *root_));
    struct stat st = {};
    ASSERT_EQ(::stat((base_ + "/fresh").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777U, 0700U);
    alignas(struct inotify_event) std::array<char, 4096> events{};
    const auto length = ::read(watch.get(), events.data(), events.size());
    ASSERT_GT(length, 0);
    const auto* made = reinterpret_cast<const struct inotify_event*>(events.data());
    EXPECT_EQ(made->mask, IN_CREATE | IN_ISDIR);
    EXPECT_EQ(static_cast<std::size_t>(length), sizeof *made + made->len)
        << "its mode was changed after that";
}

TEST_F(IGMainOutput, NamesTheResultByTheReturnCode) {
    std::string relative = "archive.tar.gz";
    std::string absolute = "/elsewhere/archive";
    root_->output_file = relative.data();
    IgMainSetRetCode(RETCODE_DIRECTORY);
    EXPECT_EQ(IgMainGetOutputPath(pool()), output_);
    IgMainSetRetCode(RETCODE_COMPRESSED);
    EXPECT_EQ(IgMainGetOutputPath(pool()), base_ + "/archive.tar.gz");
    IgMainSetRetCode(RETCODE_ARCHIVE);
    EXPECT_EQ(IgMainGetOutputPath(pool()), base_ + "/archive.tar.gz.tar");
    root_->output_file = absolute.data();
    EXPECT_STREQ(IgMainGetOutputPath(pool()), "/elsewhere/archive.tar");
    IgMainSetRetCode(RETCODE_COMPRESSED);
    EXPECT_STREQ(IgMainGetOutputPath(pool()), "/elsewhere/archive");
    main_run.root = nullptr;
    EXPECT_EQ(IgMainGetOutputPath(pool()), nullptr);
}

TEST_F(IGMainOutput, WritesTheResultIntoTheHistoryUnlessTheRunFailed) {
    std::string absolute = "/elsewhere/archive";
    root_->output_file = absolute.data();
    IgMainHistOutput();
    EXPECT_EQ(history(), "");
    std::string expected;
    for (const auto& [code, result] :
         std::vector<std::pair<int, std::string>>{{RETCODE_COMPRESSED, absolute},
                                                  {RETCODE_ARCHIVE, absolute + ".tar"},
                                                  {RETCODE_DIRECTORY, output_}}) {
        IgMainSetRetCode(code);
        IgMainHistOutput();
        expected += "ZEPA303-I:Output = " + result + ".\n";
        EXPECT_EQ(history(), expected);
    }
}

TEST_F(IGMainOutput, CleansUpTheOutputOfAFailedRunOnly) {
    root_->output_made = true;
    for (const int code : {RETCODE_COMPRESSED, RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        IgMainCleanup();
        EXPECT_TRUE(fs::exists(output_));
    }
    IgMainSetRetCode(RETCODE_FAILED);
    IgMainCleanup();
    EXPECT_FALSE(fs::exists(output_));
    EXPECT_EQ(takeLog(), "ZEPA212-I:Deleted data below \"" + output_ + "\".\n");
    IgMainCleanup();
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(msg_state.mode, 0);
}

TEST_F(IGMainOutput, RemovesTheOutputOfARunWithoutALogWhenCleanupIsOn) {
    root_->output_made = true;
    IgMainRemoveOutput();
    EXPECT_TRUE(fs::exists(output_));
    root_->cleanup = CLEANUP_ON;
    IgMainRemoveOutput();
    EXPECT_FALSE(fs::exists(output_));
    EXPECT_EQ(takeLog(), "");
    main_run.root = nullptr;
    IgMainRemoveOutput();
}

TEST_F(IGMainOutput, RemovesNoDirectoryThatItDidNotCreate) {
    root_->cleanup = CLEANUP_ON;
    IgMainRemoveOutput();
    IgMainCleanup();
    EXPECT_TRUE(fs::exists(output_));
}

TEST_F(IGMainOutput, ReportsAnExistingResult) {
    std::string absolute = path("archive");
    root_->output_file = absolute.data();
    IgMainSetRetCode(RETCODE_DIRECTORY);
    EXPECT_EQ(reported(), "ZEPA215-I:Output = " + output_ + ".\n");
    writeText(absolute, "12345");
    writeText(absolute + ".tar", "1234567");
    IgMainSetRetCode(RETCODE_COMPRESSED);
    EXPECT_EQ(reported(), "ZEPA214-I:Output file = " + absolute + ". size = 5 bytes.\n");
    IgMainSetRetCode(RETCODE_ARCHIVE);
    EXPECT_EQ(reported(), "ZEPA211-I:Archive file = " + absolute + ".tar. size = 7 bytes.\n");
    writeText(absolute + ".tar", "");
    EXPECT_EQ(reported(), "");
}

}  // namespace
