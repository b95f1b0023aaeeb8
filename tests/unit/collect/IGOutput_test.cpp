#include "collect/IGOutput.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../../support/collect_fixture.h"
#include "../../support/mounted.h"
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

// A tool has run: it may have made any symlink of the output.
class SettleLinks : public SettleOutput {
  protected:
    void SetUp() override {
        SettleOutput::SetUp();
        root_->tools_ran = true;
        writeText(own("file"), "content");
        writeText(path("his"), "his");  // below /tmp
    }

    std::string own(const std::string& name = "") const { return own_.path(name); }
    std::string link() const { return output_ + "/link"; }

    // Makes a link in the output; returns what settleOutput() makes of it and what it reports.
    std::string settled(const std::string& target, uid_t owner = 0) {
        std::filesystem::remove(link());
        std::filesystem::create_symlink(target, link());
        EXPECT_EQ(::lchown(link().c_str(), owner, owner), 0);
        struct stat before = {};
        EXPECT_EQ(::lstat(link().c_str(), &before), 0);
        const std::size_t descriptors = openDescriptors();
        std::string shown;
        {
            Capture errors(stderr);
            EXPECT_TRUE(settleOutput(*root_));
        }
        EXPECT_EQ(openDescriptors(), descriptors);
        struct stat st = {};
        const std::string log = takeLog();
        if (::lstat(link().c_str(), &st) != 0) {
            return "removed " + log;
        }
        if (!S_ISLNK(st.st_mode)) {
            return "copied " + readText(link()) + log;
        }
        EXPECT_EQ(st.st_ino, before.st_ino);
        EXPECT_EQ(std::filesystem::read_symlink(link()), target);
        return "stays " + log;
    }
    std::string removed() const {
        return "removed ZEPA130-W:An attempt to collect the system information has failed.\n"
               "ZEPA151-E:Additional information, path = " +
               link() + ".\n";
    }

  private:
    TempDir own_{"/opt"};
};

TEST_F(SettleLinks, KeepThoseToFilesThatOnlyRootCanReplace) {
    std::filesystem::create_symlink("file", own("alias"));
    std::filesystem::create_directory_symlink(own(), own("here"));
    const std::string relative = "../../../.." + own("file");
    for (const std::string& target :
         {own("file"), own("alias"), own("here/here/alias"),
          own("./../") + own().substr(std::string("/opt/").size()) + "/file", relative}) {
        EXPECT_EQ(settled(target), "stays ") << target;
    }
    ASSERT_EQ(::chown(own("file").c_str(), 1000, 1000), 0);
    EXPECT_EQ(settled(own("file")), "stays ") << "the file's owner cannot replace it";
    EXPECT_EQ(collected_size.total, 0);
}

TEST_F(SettleLinks, CopyTheFilesThatAUserCanReplace) {
    EXPECT_EQ(settled(path("his")), "copied his");
    std::filesystem::create_symlink(path("his"), own("alias"));
    EXPECT_EQ(settled(own("alias")), "copied his");
    for (const mode_t mode : {0775U, 0757U}) {
        ASSERT_EQ(::chmod(own().c_str(), mode), 0);
        EXPECT_EQ(settled(own("file")), "copied content");
    }
    ASSERT_EQ(::chmod(own().c_str(), 0755), 0);
    ASSERT_EQ(::chown(own().c_str(), 1000, 1000), 0);
    EXPECT_EQ(settled(own("file")), "copied content");
    EXPECT_EQ(collected_size.total, 3 + 3 + 3 * 7);
}

TEST_F(SettleLinks, CopyTheFilesOfTheKernel) {
    const std::string version = readText("/proc/version");
    EXPECT_EQ(settled("/proc/version"), "copied " + version);
    std::filesystem::create_symlink("/proc/version", own("alias"));
    EXPECT_EQ(settled(own("alias")), "copied " + version);
    const Mounted mounted("/proc/version", own("file"));
    EXPECT_EQ(settled(own("file")), "copied " + version);
}

// A tool may have copied a user's symlink.
TEST_F(SettleLinks, RemoveAUsersToAFileOfAnotherUser) {
    EXPECT_EQ(settled(own("file"), 1000), removed());
    EXPECT_EQ(settled("/proc/version", 1000), removed());
    ASSERT_EQ(::chown(own("file").c_str(), 1000, 1000), 0);
    EXPECT_EQ(settled(own("file"), 1000), "stays ");
    EXPECT_EQ(settled(own("file"), 1001), removed());
}

// A tool has copied the user's symlink into the output, and made one of its own that leads there.
TEST_F(SettleLinks, RemoveThoseThatLeadToAUsersInTheOutput) {
    const std::string his = output_ + "/sub/his";
    std::filesystem::create_directory(output_ + "/sub");
    std::filesystem::create_symlink(own("file"), his);
    ASSERT_EQ(::lchown(his.c_str(), 1000, 1000), 0);
    const std::string log = settled(his);
    EXPECT_THAT(log, ::testing::StartsWith(removed()));
    EXPECT_THAT(log, ::testing::HasSubstr("path = " + his + ".\n"));
    EXPECT_FALSE(std::filesystem::is_symlink(his));
}

TEST_F(SettleLinks, RemoveThoseToOtherThanFiles) {
    std::filesystem::create_directory(own("directory"));
    ASSERT_EQ(::mkfifo(own("fifo").c_str(), 0600), 0);
    for (const std::string& target : {own("directory"), own("fifo"), std::string("/dev/null"),
                                      std::string("/"), std::string("."), output_}) {
        EXPECT_EQ(settled(target), removed()) << target;
    }
}

TEST_F(SettleLinks, ReportThoseThatLeadNowhere) {
    EXPECT_EQ(settled(own("none")), "stays " + missing(own("none")));
    EXPECT_EQ(settled(link()), "stays " + missing(link()));
    EXPECT_EQ(settled(path("none")), "removed " + missing(path("none")));
    const std::string longest(4095, 'x');
    EXPECT_EQ(settled(longest), "stays " + missing(longest));
    const std::string absolute = "/" + longest.substr(1);
    EXPECT_EQ(settled(absolute), "stays " + missing(absolute));
}

TEST_F(SettleLinks, KeepThoseToFilesOfTheOutput) {
    std::filesystem::create_directory(output_ + "/sub");
    writeText(output_ + "/sub/file", "x");
    ASSERT_EQ(::chmod((output_ + "/sub").c_str(), 0777), 0);
    for (const std::string& target : {output_ + "/sub/file", std::string("sub/file")}) {
        EXPECT_EQ(settled(target), "stays ") << target;
    }
}

// No path through the descriptor of such an output is root's own: all its symlinks are replaced.
TEST_F(SettleLinks, CopyAllFilesWhereAnotherUserCanMoveTheOutput) {
    ASSERT_EQ(::chown(base_.c_str(), 1000, 1000), 0);
    ASSERT_TRUE(noteOutput(pool(), *root_, output_.c_str()));
    ASSERT_TRUE(root_->output_held);
    EXPECT_EQ(settled(own("file")), "copied content");
    EXPECT_EQ(collected_size.total, 7);
    ::close(root_->output_fd);
}

// The kernel follows forty symlinks, of which the output's own is one.
TEST_F(SettleLinks, ReportAChainThatTarCannotFollow) {
    std::string target = own("file");
    for (int left = 1; left <= 39; ++left) {
        const std::string name = own(std::to_string(left));
        std::filesystem::create_symlink(target, name);
        target = name;
    }
    EXPECT_EQ(settled(target), "stays ");
    std::filesystem::create_symlink(target, own("40"));
    EXPECT_EQ(settled(own("40")), "stays " + missing(own("40")));
}

}  // namespace
