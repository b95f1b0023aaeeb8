// Several items, one after the other: what one of them leaves, the next one finds.
#include "collect/IGCollectData.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "../../support/collect_fixture.h"
#include "../../support/wrapped_calls.h"
#include "collect/IGDestination.h"
#include "collect/IGExeTool.h"
#include "collect/IGSizeLimit.h"
#include "common/report/IGCmnMessage.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// Mode, owner and times of a directory.
std::string attributes(const std::string& path) {
    struct stat st = {};
    if (::lstat(path.c_str(), &st) != 0) {
        return "none";
    }
    return std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " " +
           std::to_string(st.st_gid) + " " + std::to_string(st.st_mtim.tv_sec) + " " +
           std::to_string(st.st_atim.tv_sec);
}

class CollectItems : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        root_->output_file = archive_.data();
        IgCmnMsgSetMode(MSGMODE_COLLECTING);
        fs::create_directories(source("a/b"));
        for (const char* name : {"a/b/one", "a/b/two", "a/b/three", "a/other"}) {
            writeText(source(name), "x");
        }
        dress("a/b", 0705, 31);
        dress("a", 0750, 32);
        dress("", 0711, 33);
    }
    void TearDown() override {
        Destination::forgetComplete();
        CollectTest::TearDown();
    }

    std::string source(const std::string& name = "") const { return source_.path(name); }
    std::string copy(const std::string& name = "") const { return data_dir_ + source(name); }

    void dress(const std::string& name, mode_t mode, gid_t group) {
        ASSERT_EQ(::chown(source(name).c_str(), 0, group), 0);
        ASSERT_EQ(::chmod(source(name).c_str(), mode), 0);
        const struct timespec times[] = {{1000000 + group, 0}, {2000000 + group, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, source(name).c_str(), times, 0), 0);
    }

    // Collects an item; returns its part of the run log. All directories above its first entry have
    // the attributes of their sources afterwards.
    std::string collect(const std::string& path_name) {
        std::string text = path_name;
        data_block block{};
        block.path_name = text.data();
        EXPECT_EQ(IgCollectData(pool(), root_, &block), 0);
        return takeLog();
    }
    void expectRestored() {
        for (const char* name : {"a/b", "a", ""}) {
            EXPECT_EQ(attributes(copy(name)), attributes(source(name))) << name;
        }
        struct stat st = {};
        ASSERT_EQ(::stat((data_dir_ + "/opt").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0755U) << "as /opt itself";
    }
    void runTool(const std::string& command) {
        std::string text = command;
        tool_block block{};
        block.command_line = text.data();
        block.timeout = 30;
        block.timeout_signal = -1;
        ASSERT_EQ(IgExeTool(pool(), root_, &block), RESULT_DONE);
        static_cast<void>(takeLog());
    }

  private:
    TempDir source_{"/opt"};
    std::string archive_ = "archive";
};

// --- directories above the entries ---

TEST_F(CollectItems, OfOneDirectoryLeaveItWithTheAttributesOfItsSource) {
    for (const char* name : {"a/b/one", "a/b/two", "a/b/three", "a/b/one"}) {
        collect(source(name));
        expectRestored();
    }
    for (const char* name : {"a/b/one", "a/b/two", "a/b/three"}) {
        EXPECT_EQ(fs::read_symlink(copy(name)), source(name));
    }
}

TEST_F(CollectItems, OfOtherDirectoriesLeaveThoseAboveWithTheAttributesOfTheirSources) {
    collect(source("a/b/one"));
    collect(source("a/other"));
    expectRestored();
    collect(source("a/b/two"));
    expectRestored();
    fs::create_directories(source("c/d"));
    writeText(source("c/d/file"), "x");
    dress("", 0711, 34);
    collect(source("c/d/file"));
    EXPECT_EQ(attributes(copy("c/d")), attributes(source("c/d")));
    collect(source("a/b/three"));
    expectRestored();
}

TEST_F(CollectItems, OfAWholeTreeLeaveTheDirectoriesWithTheAttributesOfTheirSources) {
    for (const char* name : {"a/b/one", "a", "a/b/two", "a/b", "", "a/b/*"}) {
        collect(source(name));
        EXPECT_EQ(attributes(copy("a")), attributes(source("a")));
        EXPECT_EQ(attributes(copy("")), attributes(source("")));
    }
}

TEST_F(CollectItems, LeaveTheDirectoriesWithTheLastAttributesOfTheirSources) {
    gid_t group = 40;
    for (const char* name : {"a/b", "a", ""}) {
        collect(source("a/b/one"));
        dress(name, 0700, ++group);
        collect(source("a/b/two"));
        expectRestored();
        fs::remove_all(copy("a/b"));
    }
    collect(source("a/b/one"));
    dress("a", 0755, ++group);
    static_cast<void>(collect(source("a/b/none")));
    collect(source("a/b/two"));
    expectRestored();
}

// A tool may change anything in the output.
TEST_F(CollectItems, RestoreTheDirectoriesThatAToolHasChanged) {
    collect(source("a/b/one"));
    runTool("/bin/chmod 0700 " + copy("a") + " " + copy(""));
    runTool("/bin/touch " + copy("a/file"));
    ASSERT_NE(attributes(copy("a")), attributes(source("a")));
    collect(source("a/b/two"));
    expectRestored();
}

TEST_F(CollectItems, RestoreTheDirectoriesThatWereForgotten) {
    collect(source("a/b/one"));
    ASSERT_EQ(::chmod(copy("a").c_str(), 0700), 0);
    Destination::forgetComplete();
    collect(source("a/b/two"));
    expectRestored();
}

// The item that counts a tool's files may replace a symlink by a directory.
TEST_F(CollectItems, RestoreTheDirectoriesThatAnItemOfToolFilesHasChanged) {
    collect(source("a/b/one"));
    fs::create_directory_symlink("b", copy("a/link"));
    collect("%d%" + source("a/link/one"));
    ASSERT_TRUE(fs::is_directory(fs::symlink_status(copy("a/link"))));
    collect(source("a/b/two"));
    expectRestored();
}

TEST_F(CollectItems, MakeADirectoryAgainThatWasRemoved) {
    for (const std::string& name : {copy("a/b"), copy("a"), copy(), data_dir_ + "/opt"}) {
        collect(source("a/b/one"));
        fs::remove_all(name);
        EXPECT_THAT(collect(source("a/b/two")), HasSubstr("ZEPA209-I")) << name;
        expectRestored();
        EXPECT_EQ(fs::read_symlink(copy("a/b/two")), source("a/b/two"));
        fs::remove(copy("a/b/two"));
    }
}

TEST_F(CollectItems, DoNotWriteThroughALinkInTheDirectorysPlace) {
    collect(source("a/b/one"));
    fs::create_directory(source("victim"));
    fs::remove_all(copy("a/b"));
    fs::create_directory_symlink(source("victim"), copy("a/b"));
    EXPECT_EQ(collect(source("a/b/two")),
              trio("mkdir", EEXIST, "File exists", copy("a/b"), "IGCmnFile", true) +
                  "ZEPA210-I:Total data size: 1 bytes.\n");
    EXPECT_TRUE(fs::is_empty(source("victim")));
}

// Files below that directory could be exchanged until tar runs.
TEST_F(CollectItems, CopyTheFilesOfADirectoryThatAToolHasGivenToAUser) {
    collect(source("a/b/one"));
    ASSERT_TRUE(fs::is_symlink(copy("a/b/one")));
    runTool("/bin/chown 1000 " + source("a"));
    collect(source("a/b/two"));
    EXPECT_FALSE(fs::is_symlink(copy("a/b/two")));
    EXPECT_EQ(readText(copy("a/b/two")), "x");
}

TEST_F(CollectItems, AreCheckedAgainAfterAToolHasGivenTheirDirectoryToAUser) {
    collect(source("a/b/one"));
    runTool("/bin/chown 1000 " + source("a"));
    EXPECT_TRUE(settleOutput(*root_));
    EXPECT_FALSE(fs::is_symlink(copy("a/b/one")));
    EXPECT_EQ(readText(copy("a/b/one")), "x");
}

// Two targets: the second one's directory is among the copies of the first one.
TEST_F(CollectItems, OfTwoDataDirectoriesHaveTheAttributesOfTheirOwnSources) {
    const std::string inner = "/tmp" + source("a/b");
    fs::create_directories(inner);
    writeText(inner + "/file", "x");
    useSubdirectory("tmp");
    collect(source("a/b/one"));
    expectRestored();
    data_dir_ = output_;
    root_->d = data_dir_.data();
    collect(inner + "/file");
    EXPECT_EQ(attributes(output_ + inner), attributes(inner));
    struct stat st = {};
    ASSERT_EQ(::stat((output_ + "/tmp").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 01777U) << "as /tmp itself";
    fs::remove_all("/tmp/opt");
}

// --- the index ---

TEST_F(CollectItems, ListNamesWithControlCharactersAsTheyShowThem) {
    const std::string directory = source("names");
    fs::create_directory(directory);
    const std::vector<std::pair<std::string, std::string>> names = {{"line\nfeed", "line\\012feed"},
                                                                    {"tab\there", "tab\\011here"},
                                                                    {"\x80", "\\200"},
                                                                    {"\x7f", "\\177"},
                                                                    {"\xc3\xa9", "\xc3\xa9"},
                                                                    {"\xff", "\xff"},
                                                                    {"plain", "plain"}};
    for (const auto& [name, shown] : names) {
        writeText(directory + "/" + name, "x");
        const std::string log = collect(directory + "/*");
        EXPECT_THAT(log, HasSubstr("data = " + directory + "/" + shown + ". size"));
        EXPECT_THAT(index(), HasSubstr("\nFILE:" + directory.substr(1) + "/" + shown + "\nDESC:"));
    }
    fs::remove_all(copy("names"));
    fs::remove(output_ + "/quendil_index");
    collect(directory);
    for (const auto& [name, shown] : names) {
        EXPECT_THAT(index(), HasSubstr("\nFILE:" + directory.substr(1) + "/" + shown + "\n"));
    }
}

TEST_F(CollectItems, ListOnlyWhatIsInTheOutput) {
    const std::string directory = source("mixed");
    const std::string lock = std::string(BIN_DIR) + "/.quendil.lck";
    fs::create_directory(directory);
    writeText(lock, "");
    fs::create_hard_link(lock, source("hard"));
    ASSERT_EQ(::mkfifo((directory + "/fifo").c_str(), 0600), 0);
    writeText(directory + "/large", std::string(600, 'x'));
    writeText(directory + "/good", "x");
    fs::create_symlink("none", directory + "/dangling");
    fs::create_symlink(source("hard"), directory + "/lock");
    fs::create_symlink(source("a/other"), directory + "/refused");
    ASSERT_EQ(::lchown((directory + "/refused").c_str(), 1000, 1000), 0);
    ASSERT_EQ(::chown(directory.c_str(), 1000, 1000), 0);
    root_->max_output_size = 1;
    collect(source("a/other"));
    fs::remove(output_ + "/quendil_index");
    collect(directory + "/*");
    EXPECT_EQ(index(), "\nFILE:" + directory.substr(1) + "/good\nDESC:\nDATE:STAMP\nTYPE:text\n");
    writeText(directory + "/more", "x");
    collect(directory + "/*");
    EXPECT_THAT(index(), ::testing::EndsWith("\n\nFILE:" + directory.substr(1) +
                                             "/more\nDESC:\nDATE:STAMP\nTYPE:text\n"))
        << "the first copy of a name is in the first record only";
    fs::remove(lock);
}

// --- an entry that is in its directory twice ---

class CollectTwice : public CollectItems {
  protected:
    void SetUp() override {
        CollectItems::SetUp();
        fs::create_directories(source("dir/empty"));
        writeText(source("dir/file"), "12345");
    }
    static int count(const std::string& text, const std::string& part) {
        int found = 0;
        for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
            ++found;
        }
        return found;
    }
    std::string collectTwice(const std::string& name) {
        const TwiceRead twice(name);
        return collect(source("dir"));
    }
    // Collects the directory, which has one of its entries twice; the second one must not matter.
    void expectOnce(const std::string& name) {
        const std::string log = collectTwice(name);
        EXPECT_EQ(count(log, "ZEPA"), 4) << log;
        EXPECT_THAT(log, ::testing::EndsWith("ZEPA210-I:Total data size: 5 bytes.\n"));
        EXPECT_EQ(count(log, source("dir/" + name)), 1);
        EXPECT_EQ(count(index(), source("dir/" + name).substr(1) + "\n"), 1);
        EXPECT_EQ(count(index(), "FILE:"), 3);
        EXPECT_EQ(collected_size.exceeded, 0);
        EXPECT_EQ(attributes(copy("dir")), attributes(source("dir")));
        EXPECT_EQ(attributes(copy("dir/empty")), attributes(source("dir/empty")));
    }
};

TEST_F(CollectTwice, AFileIsLinkedAndCountedOnce) {
    expectOnce("file");
    EXPECT_EQ(fs::read_symlink(copy("dir/file")), source("dir/file"));
}

TEST_F(CollectTwice, AFileIsCopiedAndCountedOnce) {
    ASSERT_EQ(::chown(source("dir").c_str(), 1000, 1000), 0);
    expectOnce("file");
    EXPECT_EQ(readText(copy("dir/file")), "12345");
}

TEST_F(CollectTwice, AFileIsCountedOnceWhereTheSecondDoesNotFit) {
    root_->max_output_size = 1;
    writeText(source("dir/file"), std::string(400, 'x'));
    const std::string log = collectTwice("file");
    EXPECT_THAT(log, Not(HasSubstr("ZEPA153-W")));
    EXPECT_EQ(collected_size.total, 400);
    EXPECT_EQ(collected_size.exceeded, 0);
}

TEST_F(CollectTwice, ADirectoryIsMadeOnce) {
    expectOnce("empty");
}

TEST_F(CollectTwice, ADirectoryWithEntriesIsMadeOnce) {
    writeText(source("dir/empty/file"), "");
    const std::string log = collectTwice("empty");
    EXPECT_EQ(count(log, "ZEPA"), 5) << log;
    EXPECT_EQ(count(index(), "FILE:"), 4);
}

}  // namespace
