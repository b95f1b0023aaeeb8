#include "collect/IGArcMake.h"

#include "../../support/collect_fixture.h"
#include "collect/IGResult.h"
#include "common/base/IGRunState.h"

namespace {

namespace fs = std::filesystem;

class IGArcMake : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        root_->output_file = root_->output_name;
        IgMainSetRetCode(RETCODE_DIRECTORY);
        writeText(output_ + "/file", "content\n");
        before_ = fs::current_path();
    }
    void TearDown() override {
        EXPECT_EQ(fs::current_path(), before_);
        CollectTest::TearDown();
    }

    std::string deleted() const { return "ZEPA212-I:Deleted data below \"" + output_ + "\".\n"; }

    fs::path before_;
};

TEST_F(IGArcMake, NamesTheArchiveAfterTheOutput) {
    EXPECT_STREQ(IgArcMakeName(pool(), "/a/b", 0), "/a/b.tar.gz");
    EXPECT_STREQ(IgArcMakeName(pool(), "/a/b", 1), "/a/b.tar");
    EXPECT_STREQ(IgArcMakeName(pool(), "/a/./x/../b", 0), "/a/b.tar.gz");
    EXPECT_EQ(IgArcMakeName(pool(), ".", 0), before_.string() + ".tar.gz");
    EXPECT_EQ(IgArcMakeName(pool(), ".", 1), before_.string() + ".tar");
}

TEST_F(IGArcMake, PacksAndCompressesTheOutputDirectoryBesideIt) {
    EXPECT_EQ(IgArcMakeOutput(pool(), root_), 0);
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_COMPRESSED);
    EXPECT_EQ(root_->output_file, output_ + ".tar.gz");
    EXPECT_TRUE(fs::exists(output_ + ".tar.gz"));
    EXPECT_FALSE(fs::exists(output_ + ".tar"));
    EXPECT_FALSE(fs::exists(output_));
    ASSERT_EQ(::system(("cd " + path("") + " && /bin/tar xzf " + output_ + ".tar.gz").c_str()), 0);
    const std::string unpacked = path(root_->output_name);
    EXPECT_EQ(readText(unpacked + "/file"), "content\n");
    EXPECT_TRUE(fs::exists(unpacked + "/quendil.log"));
}

TEST_F(IGArcMake, PutsTheArchiveWhereTheCommandLineNamesIt) {
    std::string plain = path("my archive");
    root_->output_file = plain.data();
    EXPECT_EQ(IgArcMake(pool(), root_), 0);
    EXPECT_EQ(root_->output_file, plain + ".tar.gz");
    EXPECT_TRUE(fs::exists(plain + ".tar.gz"));
    EXPECT_EQ(takeLog(), deleted());
}

TEST_F(IGArcMake, FollowsTheLinksOfTheCollection) {
    writeText(path("source"), "the data itself\n");
    fs::create_symlink(path("source"), output_ + "/link");
    EXPECT_EQ(IgArcMake(pool(), root_), 0);
    ASSERT_EQ(::system(("cd " + path("") + " && /bin/tar xzf " + output_ + ".tar.gz").c_str()), 0);
    const std::string unpacked = path(root_->output_name) + "/link";
    EXPECT_FALSE(fs::is_symlink(unpacked));
    EXPECT_EQ(readText(unpacked), "the data itself\n");
}

TEST_F(IGArcMake, KeepsAnExistingArchive) {
    writeText(output_ + ".tar", "mine");
    Capture errors(stderr);
    EXPECT_EQ(IgArcMake(pool(), root_), 0);
    EXPECT_EQ(takeLog(), "ZEPA109-E:The specified file(" + output_ + ".tar) already exists.\n");
    EXPECT_EQ(readText(output_ + ".tar"), "mine");
    EXPECT_TRUE(fs::exists(output_ + "/file"));
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_DIRECTORY);
}

TEST_F(IGArcMake, KeepsAnExistingCompressedArchiveAndTheTar) {
    writeText(output_ + ".tar.gz", "mine");
    Capture errors(stderr);
    EXPECT_EQ(IgArcMake(pool(), root_), 0);
    EXPECT_EQ(takeLog(),
              deleted() + "ZEPA109-E:The specified file(" + output_ + ".tar.gz) already exists.\n");
    EXPECT_EQ(readText(output_ + ".tar.gz"), "mine");
    EXPECT_TRUE(fs::exists(output_ + ".tar"));
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_ARCHIVE);
}

TEST_F(IGArcMake, KeepsTheOutputWhenPackingFails) {
    std::string file = path("none/archive");
    root_->output_file = file.data();
    Capture errors(stderr);
    EXPECT_EQ(IgArcMakeOutput(pool(), root_), -1);
    EXPECT_THAT(takeLog(),
                ::testing::EndsWith("ZEPA132-W:An error occurred while an archiver was being "
                                    "executed.\n"));
    EXPECT_TRUE(fs::exists(output_ + "/file"));
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_DIRECTORY);
}

TEST_F(IGArcMake, ReportsALogThatCannotBeCopied) {
    fs::create_directory(output_ + "/quendil.log");  // a directory instead of the log
    fs::remove(std::string(LOG_DIR) + "/quendil_hist.log");
    Capture errors(stderr);
    EXPECT_EQ(IgArcMakeOutput(pool(), root_), 0);
    const std::string run_log = "ZEPA133-W:An attempt to copy the logfile (" +
                                std::string(LOG_DIR) + "/quendil.log) has failed.\n";
    EXPECT_EQ(errors.take(), run_log);
    EXPECT_EQ(takeLog(), run_log + "ZEPA142-W:An attempt to copy the logfile (" +
                             std::string(LOG_DIR) + "/quendil_hist.log) has failed.\n" + deleted());
}

TEST_F(IGArcMake, StopsBeforeTheFirstStepOfAnInterruptedRun) {
    run_state.interrupted = 1;
    Capture errors(stderr);
    EXPECT_EQ(IgArcMakeOutput(pool(), root_), RESULT_INTERRUPTED);
    EXPECT_EQ(IgArcMake(pool(), root_), RESULT_INTERRUPTED);
    EXPECT_TRUE(fs::exists(output_ + "/file"));
    EXPECT_FALSE(fs::exists(output_ + "/quendil.log"));
    EXPECT_FALSE(fs::exists(output_ + ".tar"));
}

TEST_F(IGArcMake, FailsWithoutTheBaseDirectory) {
    std::string elsewhere = path("elsewhere");
    root_->output_file = elsewhere.data();
    fs::remove_all(base_);
    Capture errors(stderr);
    EXPECT_EQ(IgArcMake(pool(), root_), -1);
    EXPECT_EQ(takeLog(), trio("chdir", 2, "No such file or directory", base_, "IGCmnFile"));
    EXPECT_FALSE(fs::exists(elsewhere + ".tar"));
}

TEST_F(IGArcMake, AssertsItsArgumentsAreNotNull) {
    EXPECT_DEATH(IgArcMakeName(nullptr, "a", 0), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgArcMakeName(pool(), nullptr, 0), "name != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgArcMake(pool(), nullptr), "root != \\(\\(void \\*\\)0\\)");
}

}  // namespace
