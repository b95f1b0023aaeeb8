#include "collect/IGOutput.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../../support/collect_fixture.h"
#include "collect/IGSizeLimit.h"

namespace {

class NoteOutput : public CollectTest {
  protected:
    // Replaces the output by another directory of its name.
    void exchange(uid_t owner, mode_t mode) {
        std::filesystem::remove(output_);
        std::filesystem::create_directory(output_);
        ASSERT_EQ(::chmod(output_.c_str(), mode), 0);
        ASSERT_EQ(::chown(output_.c_str(), owner, owner), 0);
    }
    bool note() { return noteOutput(pool(), *root_, output_.c_str()); }
    struct stat status() const {
        struct stat st = {};
        EXPECT_EQ(::lstat(output_.c_str(), &st), 0);
        return st;
    }
};

TEST_F(NoteOutput, RecognisesTheDirectory) {
    EXPECT_TRUE(note());
    EXPECT_TRUE(outputIsOurs(*root_));
    EXPECT_FALSE(root_->output_held);
    std::filesystem::rename(output_, output_ + ".away");
    std::filesystem::create_directory(output_);
    EXPECT_FALSE(outputIsOurs(*root_));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(NoteOutput, TakesOverAnEmptyDirectoryOfAnotherUser) {
    for (const auto& [owner, mode] :
         std::vector<std::pair<uid_t, mode_t>>{{1000, 0700}, {0, 0777}, {1000, 0777}, {0, 0}}) {
        exchange(owner, mode);
        EXPECT_TRUE(note());
        EXPECT_EQ(status().st_uid, 0U);
        EXPECT_EQ(status().st_mode & 077U, 0U);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(NoteOutput, RefusesADirectoryThatIsNotEmpty) {
    exchange(1000, 0755);
    writeText(output_ + "/planted", "x");
    Capture errors(stderr);
    EXPECT_FALSE(note());
    EXPECT_EQ(takeLog(), trio("lstat", ESTALE, "Stale file handle", output_, "IGOutput"));
}

TEST_F(NoteOutput, RefusesALink) {
    std::filesystem::rename(output_, output_ + ".away");
    std::filesystem::create_directory_symlink(output_ + ".away", output_);
    Capture errors(stderr);
    EXPECT_FALSE(note());
    EXPECT_EQ(takeLog(), trio("lstat", ESTALE, "Stale file handle", output_, "IGOutput"));
}

TEST_F(NoteOutput, HoldsADirectoryThatAnotherUserCanMove) {
    ASSERT_EQ(::chown(base_.c_str(), 1000, 1000), 0);
    EXPECT_TRUE(note());
    ASSERT_TRUE(root_->output_held);
    const std::string away = base_ + "/away";
    std::filesystem::rename(output_, away);
    std::filesystem::create_directory(output_);
    const std::string dotted = base_ + "/./" + output_.substr(base_.size() + 1);
    for (const std::string* spelt : std::vector<const std::string*>{&dotted, &output_}) {
        root_->output_path = spelt->c_str();
        for (const std::string& name : {output_ + "/file", *spelt + "/file"}) {
            const char* path = pathInOutput(pool(), *root_, name.c_str());
            ASSERT_NE(path, nullptr);
            writeText(path, "x");
            EXPECT_EQ(readText(away + "/file"), "x");
            EXPECT_EQ(::unlink((away + "/file").c_str()), 0);
        }
    }
    for (const std::string& other : {output_ + "2", base_, std::string("/")}) {
        EXPECT_STREQ(pathInOutput(pool(), *root_, other.c_str()), other.c_str());
    }
    ::close(root_->output_fd);
}

class SettleOutput : public CollectTest {
  protected:
    // Makes a link in the output; returns whether it is still a link after settleOutput().
    bool staysAsLink(const std::string& target) {
        const std::string link = output_ + "/link";
        std::filesystem::remove(link);
        std::filesystem::create_symlink(target, link);
        EXPECT_TRUE(settleOutput(*root_));
        return std::filesystem::is_symlink(link);
    }
    static std::string missing(const std::string& path) {
        return "ZEPA129-W:A system information(" + path + ") is not found.\n";
    }
};

TEST_F(SettleOutput, ReportsALinkWhoseFileIsMissing) {
    for (const bool tools_ran : {false, true}) {
        root_->tools_ran = tools_ran;
        EXPECT_TRUE(staysAsLink("/opt/none"));
        EXPECT_EQ(takeLog(), missing("/opt/none"));
    }
}

TEST_F(SettleOutput, RemovesABrokenLinkWhoseTargetAUserCanCreate) {
    root_->tools_ran = true;
    EXPECT_FALSE(staysAsLink(path("none")));
    EXPECT_EQ(takeLog(), missing(path("none")));
    EXPECT_FALSE(std::filesystem::exists(output_ + "/link"));
}

TEST_F(SettleOutput, ReplacesALinkToAUsersFileByACopy) {
    writeText(path("file"), "content");
    root_->tools_ran = true;
    EXPECT_FALSE(staysAsLink(path("file")));
    EXPECT_EQ(readText(output_ + "/link"), "content");
    EXPECT_EQ(collected_size.total, 7);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(SettleOutput, RemovesALinkToADirectory) {
    Capture errors(stderr);
    for (const bool tools_ran : {false, true}) {
        root_->tools_ran = tools_ran;
        EXPECT_FALSE(staysAsLink("/opt"));
        EXPECT_FALSE(std::filesystem::exists(output_ + "/link"));
        EXPECT_THAT(takeLog(), ::testing::StartsWith("ZEPA130-W"));
    }
}

}  // namespace
