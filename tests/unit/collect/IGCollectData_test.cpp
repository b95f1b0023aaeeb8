#include "collect/IGCollectData.h"

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "../../support/collect_fixture.h"
#include "../../support/wrapped_calls.h"
#include "collect/IGResult.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"

namespace {

namespace fs = std::filesystem;

std::string copied(const std::string& file, long size) {
    return "ZEPA209-I:It copied collecting data = " + file + ". size = " + std::to_string(size) +
           " bytes.\n";
}
std::string total(long size) {
    return "ZEPA210-I:Total data size: " + std::to_string(size) + " bytes.\n";
}
std::string notFound(const std::string& file) {
    return "ZEPA129-W:A system information(" + file + ") is not found.\n";
}
std::string overLimit(const std::string& file, long size) {
    return "ZEPA153-W:The size of the output data exceeded a limit size. filename = " + file +
           ", size = " + std::to_string(size) + " bytes.\n";
}
std::string failed(const std::string& file) {
    return "ZEPA130-W:An attempt to collect the system information has failed.\n"
           "ZEPA152-W:Additional information, path = " +
           file + ".\n";
}
std::string record(const std::vector<std::string>& files,
                   const std::string& rest = "DESC:\nDATE:STAMP\nTYPE:text\n") {
    std::string text = "\n";
    for (const std::string& file : files) {
        text += "FILE:" + file + "\n";
    }
    return text + rest;
}

// Mode, owner and times, for comparing a directory with its source.
std::string attributes(const std::string& file) {
    struct stat st = {};
    if (::stat(file.c_str(), &st) != 0) {
        return "none";
    }
    return std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " " +
           std::to_string(st.st_gid) + " " + std::to_string(st.st_mtim.tv_sec) + " " +
           std::to_string(st.st_atim.tv_sec);
}

void dress(const std::string& file, mode_t mode, uid_t owner, time_t seconds) {
    ASSERT_EQ(::chown(file.c_str(), owner, owner + 1), 0);
    ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    const struct timespec times[] = {{seconds, 0}, {seconds + 1, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

class IGCollectData : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        source_ = path("source");
        fs::create_directory(source_);
        IgCmnMsgSetMode(MSGMODE_COLLECTING);  // as in a collection
    }

    std::string source(const std::string& name) const { return source_ + "/" + name; }
    // The destination of a source, and its name in the index.
    std::string copy(const std::string& name) const { return data_dir_ + source(name); }
    std::string listed(const std::string& name) const { return source(name).substr(1); }

    void make(const std::string& name, std::size_t size) {
        writeText(source(name), std::string(size, 'x'));
    }

    int collect(const std::string& path_name) {
        path_name_ = path_name;
        block_.path_name = path_name_.data();
        return IgCollectData(pool(), root_, &block_);
    }
    // The same; returns its reports in the run log; the result must be 0.
    std::string collectAndLog(const std::string& path_name) {
        const int result = collect(path_name);
        return (result == 0 ? "" : "result " + std::to_string(result) + " ") + takeLog();
    }

    data_block block_{};
    std::string source_;

  private:
    std::string path_name_;
};

TEST_F(IGCollectData, StopsOrContinuesWhenMemoryRunsOut) {
    root_->max_output_size = 1;
    make("small", 10);
    fs::create_directory(source("directory"));
    make("directory/large", 1000);
    fs::create_directory_symlink("directory", source("link"));
    for (const std::string& wanted : {source_, output_ + "/own", source("*")}) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << wanted << ", allocation " << nth);
            fs::remove_all(output_);
            fs::create_directories(output_ + "/own/below");
            writeText(output_ + "/own/below/large", std::string(1000, 'x'));
            fs::create_directory_symlink("below", output_ + "/own/link");
            collected_size.total = 0;
            Capture errors(stderr);
            const FailingCall failing(Call::POOL, nth, ENOMEM);
            const int result = collect(wanted);
            failed = FailingCall::happened();
            EXPECT_TRUE(result == 0 || (result == -1 && failed)) << result;
            const bool reported = takeLog().find("Memory is insufficient.") != std::string::npos;
            EXPECT_EQ(reported, failed);
            EXPECT_TRUE(fs::exists(source("directory/large")));
            EXPECT_TRUE(failed || nth > 20);
        }
    }
}

// --- files and directories from elsewhere ---

TEST_F(IGCollectData, CopiesAFileUnderItsFullPathWithItsAttributes) {
    make("file", 100);
    dress(source("file"), 0640, 17, 1000000000);
    const std::string before = attributes(source("file"));
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 100) + total(100));
    EXPECT_FALSE(fs::is_symlink(copy("file")));
    EXPECT_EQ(attributes(copy("file")), before);
    EXPECT_EQ(readText(copy("file")), std::string(100, 'x'));
    EXPECT_EQ(index(), record({listed("file")}));
}

TEST_F(IGCollectData, LinksAFileWhileTheRunMakesAnArchive) {
    std::string archive = "/tmp/archive";
    root_->output_file = archive.data();
    const TempDir own("/opt");
    source_ = own.path();
    make("file", 100);
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 100) + total(100));
    EXPECT_EQ(fs::read_symlink(copy("file")), source("file"));
    EXPECT_EQ(index(), record({listed("file")}));
}

TEST_F(IGCollectData, CopiesAFileThatItsOwnerCouldReplaceBeforeItIsPacked) {
    std::string archive = "/tmp/archive";
    root_->output_file = archive.data();
    make("file", 100);
    dress(source("file"), 0641, 24, 1400000000);
    const std::string before = attributes(source("file"));
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 100) + total(100));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(copy("file"))));
    EXPECT_EQ(attributes(copy("file")), before);
    EXPECT_EQ(readText(copy("file")), std::string(100, 'x'));
}

TEST_F(IGCollectData, CopiesADirectoryBeforeItsEntries) {
    fs::create_directories(source("a/b/c"));
    make("a/one", 10);
    make("a/b/two", 20);
    make("a/.hidden", 5);
    dress(source("a/b/c"), 02711, 21, 1100000000);
    dress(source("a/b"), 0500, 22, 1200000000);
    dress(source("a"), 01777, 23, 1300000000);
    dress(source_, 0711, 24, 1400000000);
    const std::vector<std::string> directories = {"a", "a/b", "a/b/c"};
    std::vector<std::string> before;
    for (const std::string& directory : directories) {
        before.push_back(attributes(source(directory)));
    }
    ASSERT_EQ(collect(source("a") + "///"), 0);
    const std::string log = takeLog();
    EXPECT_THAT(log, ::testing::StartsWith(copied(source("a"), 0)));
    EXPECT_THAT(log, ::testing::EndsWith(total(35)));
    for (const auto& [name, size] : std::vector<std::pair<std::string, long>>{
             {"a/b", 0}, {"a/b/c", 0}, {"a/one", 10}, {"a/b/two", 20}, {"a/.hidden", 5}}) {
        EXPECT_THAT(log, ::testing::HasSubstr(copied(source(name), size)));
    }
    EXPECT_LT(log.find(copied(source("a/b"), 0)), log.find(copied(source("a/b/c"), 0)));
    EXPECT_LT(log.find(copied(source("a/b"), 0)), log.find(copied(source("a/b/two"), 20)));
    const std::string files = index();
    EXPECT_THAT(files, ::testing::StartsWith("\nFILE:" + listed("a") + "\nFILE:"));
    EXPECT_EQ(std::count(files.begin(), files.end(), '\n'), 1 + 6 + 3);
    for (std::size_t i = 0; i < directories.size(); ++i) {
        // Reading the attributes may have changed the time of access.
        EXPECT_EQ(attributes(copy(directories[i])).substr(0, 22), before[i].substr(0, 22));
    }
}

TEST_F(IGCollectData, CopiesTheAttributesOfTheDirectoriesAboveTheFirstEntry) {
    fs::create_directories(source("a/b"));
    make("a/b/file", 1);
    dress(source("a/b"), 0705, 31, 1100000000);
    dress(source("a"), 0750, 32, 1200000000);
    dress(source_, 0711, 33, 1300000000);
    const std::vector<std::string> wanted = {attributes(source("a/b")), attributes(source("a")),
                                             attributes(source_)};
    EXPECT_EQ(collect(source("a/b/file")), 0);
    EXPECT_EQ(attributes(copy("a/b")), wanted[0]);
    EXPECT_EQ(attributes(copy("a")), wanted[1]);
    EXPECT_EQ(attributes(data_dir_ + source_), wanted[2]);
    struct stat st = {};
    ASSERT_EQ(::stat((data_dir_ + "/tmp").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 01777U);  // as /tmp itself, the first level below the root
}

// A child process whose root directory is a directory of the test.
TEST_F(IGCollectData, KeepsTheOutputPrivateForAnyModeOfTheRootDirectory) {
    const std::string world = path("world");
    fs::create_directories(world + "/data/output");
    writeText(world + "/file", "x");
    ASSERT_EQ(::chmod(world.c_str(), 0755), 0);
    ASSERT_EQ(::chmod((world + "/data/output").c_str(), 0700), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char base[] = "/data";
        char name[] = "output";
        char directory[] = "/data/output";
        char root[] = "/";
        root_->output_dir = base;
        root_->output_name = name;
        root_->output_file = name;
        root_->d = directory;
        block_.path_name = root;
        const bool entered = ::chroot(world.c_str()) == 0 && ::chdir("/") == 0;
        const bool collected = entered && IgCollectData(pool(), root_, &block_) == 0;
        struct stat st = {};
        const bool closed = ::stat(directory, &st) == 0 && (st.st_mode & 07777) == 0700;
        ::_exit(!collected ? 1 : !closed ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(takeLog(), ::testing::HasSubstr(copied("/file", 1)));
}

TEST_F(IGCollectData, AcceptsAWildcardInTheLastComponent) {
    make("one.log", 1);
    make("two.log", 2);
    make(".three.log", 4);
    make("other", 8);
    fs::create_directory(source("sub.log"));
    make("sub.log/inner", 16);
    ASSERT_EQ(collect(source("*.log")), 0);
    EXPECT_THAT(takeLog(), ::testing::EndsWith(total(23)));
    for (const char* name : {"one.log", "two.log", ".three.log", "sub.log/inner"}) {
        EXPECT_TRUE(fs::exists(copy(name))) << name;
    }
    EXPECT_FALSE(fs::exists(copy("other")));
}

TEST_F(IGCollectData, ReportsAMissingFileAndRecordsNothing) {
    make("file", 1);
    fs::create_symlink("/nowhere", source("broken"));
    for (const std::string name : {"none", "*.none", "file?", "broken"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(collectAndLog(source(name)), notFound(source(name)) + total(0));
    }
    EXPECT_EQ(collectAndLog(source("no/where/*")), trio("opendir", 2, "No such file or directory",
                                                        source("no/where"), "IGCmnTree", true) +
                                                       notFound(source("no/where/*")) + total(0));
    EXPECT_FALSE(fs::exists(output_ + "/quendil_index"));
}

TEST_F(IGCollectData, KeepsTheFirstCopyOfAName) {
    make("file", 10);
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 10) + total(10));
    writeText(source("file"), "changed");
    EXPECT_EQ(collectAndLog(source("file")), total(10));
    EXPECT_EQ(readText(copy("file")), std::string(10, 'x'));
    make("more", 1);
    EXPECT_EQ(collectAndLog(source("*")), copied(source("more"), 1) + total(11));
    EXPECT_EQ(index(), record({listed("file")}) + record({""}) + record({listed("more")}));

    // A link to a file that was removed since counts as a copy too.
    std::string archive = "archive";
    root_->output_file = archive.data();
    fs::remove(copy("file"));
    fs::create_symlink("/nowhere", copy("file"));
    EXPECT_EQ(collectAndLog(source("file")), total(11));
}

TEST_F(IGCollectData, ReportsAFifoSocketOrDeviceAndCollectsNothing) {
    ASSERT_EQ(::mkfifo(source("pipe").c_str(), 0600), 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    source("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(server, reinterpret_cast<const struct sockaddr*>(&address), sizeof address),
              0);
    std::string archive = "archive";
    for (char* output_file : {static_cast<char*>(nullptr), archive.data()}) {
        root_->output_file = output_file;
        for (const std::string& name :
             {source("pipe"), source("socket"), std::string("/dev/null")}) {
            EXPECT_EQ(collectAndLog(name), failed(name) + total(0));
            EXPECT_FALSE(fs::exists(fs::symlink_status(data_dir_ + name)));
        }
    }
    ::close(server);
    EXPECT_THAT(index(), ::testing::StartsWith(record({""})));
}

TEST_F(IGCollectData, NeverOpensALockFile) {
    const std::string bin = BIN_DIR;
    for (const std::string name : {"/.quendil.lck", "/.quendil_hist.lck"}) {
        writeText(bin + name, "");
        EXPECT_EQ(collectAndLog(bin + name), failed(bin + name) + total(0));
        fs::create_symlink(bin + name, source("link"));
        EXPECT_EQ(collectAndLog(source("link")), failed(source("link")) + total(0));
        fs::remove(source("link"));
        fs::remove(bin + name);
    }
}

TEST_F(IGCollectData, SkipsABrokenLinkInADirectoryAndContinues) {
    fs::create_directory(source("a"));
    fs::create_symlink("/nowhere", source("a/broken"));
    make("a/file", 3);
    ASSERT_EQ(collect(source("a")), 0);
    const std::string log = takeLog();
    EXPECT_THAT(log, ::testing::HasSubstr(notFound(source("a/broken"))));
    EXPECT_THAT(log, ::testing::EndsWith(total(3)));
    EXPECT_EQ(index(), record({listed("a"), listed("a/file")}));
}

TEST_F(IGCollectData, DoesNotReenterAnAncestorDirectory) {
    fs::create_directory(source("a"));
    fs::create_symlink("..", source("a/up"));
    fs::create_symlink(".", source("a/self"));
    make("a/file", 3);
    ASSERT_EQ(collect(source("a/*")), 0);
    const std::string log = takeLog();
    EXPECT_THAT(log, ::testing::HasSubstr(copied(source("a/file"), 3)));
    EXPECT_TRUE(fs::is_directory(copy("a/up")));
    EXPECT_FALSE(fs::exists(copy("a/up/a/up/a")));
}

TEST_F(IGCollectData, StoresAKernelFileAsARegularFile) {
    std::string archive = "archive";
    root_->output_file = archive.data();
    // Its reported size is 0; the bytes that were read count.
    const auto read = static_cast<long>(readText("/proc/version").size());
    EXPECT_EQ(collectAndLog("/proc/version"), copied("/proc/version", 0) + total(read));
    EXPECT_FALSE(fs::is_symlink(data_dir_ + "/proc/version"));
    EXPECT_EQ(readText(data_dir_ + "/proc/version"), readText("/proc/version"));
    EXPECT_NE(readText(data_dir_ + "/proc/version"), "");
}

TEST_F(IGCollectData, CollectsANameOfAnyBytesAndShowsItEscaped) {
    const std::string name = "a\nFILE:forged\x1b[2J\xff";
    const std::string shown = "a\\012FILE:forged\\033[2J\xff";
    make(name, 2);
    EXPECT_EQ(collectAndLog(source("*")), copied(source(shown), 2) + total(2));
    EXPECT_TRUE(fs::exists(copy(name)));
    EXPECT_EQ(index(), record({listed(shown)}));
}

TEST_F(IGCollectData, RunsNoCommandInAFileName) {
    const std::string name = "$(touch ran)`touch ran`\";touch \"ran";
    make(name, 2);
    const fs::path before = fs::current_path();
    fs::current_path(directory_.path());
    EXPECT_EQ(collect(source("*")), 0);
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(copy(name)));
    EXPECT_FALSE(fs::exists(path("ran")));
}

TEST_F(IGCollectData, ExpandsAndNormalisesThePath) {
    make("testhost", 1);
    EXPECT_EQ(collectAndLog(source(".//x/../%HOST%")), copied(source("testhost"), 1) + total(1));
    EXPECT_TRUE(fs::exists(copy("testhost")));
}

TEST_F(IGCollectData, SkipsAnEntryWhoseDirectoryCannotBeMade) {
    make("file", 1);
    writeText(data_dir_ + "/tmp", "in the way");
    EXPECT_EQ(collectAndLog(source("file")),
              trio("mkdir", 17, "File exists", data_dir_ + "/tmp", "IGCmnFile", true) + total(0));
    EXPECT_EQ(index(), record({""}));
}

// --- the size limit ---

TEST_F(IGCollectData, RejectsDataBeyondTheLimit) {
    root_->max_output_size = 2;  // 1024 bytes
    make("a600", 600);
    make("b425", 425);
    make("c424", 424);
    make("d1", 1);
    make("e0", 0);
    EXPECT_EQ(collectAndLog(source("a600")), copied(source("a600"), 600) + total(600));
    EXPECT_EQ(collected_size.exceeded, 0);
    EXPECT_EQ(collectAndLog(source("b425")), overLimit(source("b425"), 425) + total(600));
    EXPECT_EQ(collected_size.exceeded, 1);
    EXPECT_FALSE(fs::exists(copy("b425")));
    EXPECT_EQ(collectAndLog(source("c424")), copied(source("c424"), 424) + total(1024));
    EXPECT_EQ(collectAndLog(source("d1")), overLimit(source("d1"), 1) + total(1024));
    EXPECT_EQ(collectAndLog(source("e0")), copied(source("e0"), 0) + total(1024));
    EXPECT_EQ(index(), record({listed("a600")}) + record({""}) + record({listed("c424")}) +
                           record({""}) + record({listed("e0")}));
    EXPECT_EQ(collect(source_), 0);  // directories are never over it
    EXPECT_EQ(readText(source("b425")).size(), 425U);
}

TEST_F(IGCollectData, CountsWithoutALimitOfZeroOrLess) {
    make("file", 2000);
    long sum = 0;
    for (const std::int64_t limit : {std::int64_t{0}, std::int64_t{-1}}) {
        root_->max_output_size = limit;
        fs::remove(copy("file"));
        sum += 2000;
        EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 2000) + total(sum));
    }
    root_->max_output_size = 2147483647;
    fs::remove(copy("file"));
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 2000) + total(sum + 2000));
    EXPECT_EQ(collected_size.exceeded, 0);
}

// --- data that a tool wrote into the data directory ---

TEST_F(IGCollectData, CountsAndIndexesAToolsDataWithoutCopyingIt) {
    writeText(data_dir_ + "/df.txt", "12345");
    fs::create_directory(data_dir_ + "/sub");
    writeText(data_dir_ + "/sub/inner", "123");
    EXPECT_EQ(collectAndLog("%d%/df.txt"), copied(data_dir_ + "/df.txt", 5) + total(5));
    EXPECT_EQ(collectAndLog("%d%/sub"),
              copied(data_dir_ + "/sub", 0) + copied(data_dir_ + "/sub/inner", 3) + total(8));
    EXPECT_EQ(collectAndLog("%d%/none*"), notFound(data_dir_ + "/none*") + total(8));
    EXPECT_EQ(index(), record({"df.txt"}) + record({"sub", "sub/inner"}));
    EXPECT_FALSE(fs::exists(data_dir_ + data_dir_));
}

TEST_F(IGCollectData, RemovesAToolsDataBeyondTheLimit) {
    root_->max_output_size = 1;
    writeText(data_dir_ + "/big", std::string(513, 'x'));
    writeText(data_dir_ + "/fits", std::string(512, 'x'));
    EXPECT_EQ(collectAndLog("%d%/big"), overLimit(data_dir_ + "/big", 513) + total(0));
    EXPECT_FALSE(fs::exists(data_dir_ + "/big"));
    EXPECT_EQ(collected_size.exceeded, 1);
    EXPECT_EQ(collectAndLog("%d%/fits"), copied(data_dir_ + "/fits", 512) + total(512));
    EXPECT_EQ(index(), record({""}) + record({"fits"}));
}

TEST_F(IGCollectData, RemovesNothingOutsideTheDataDirectory) {
    root_->max_output_size = 1;
    // Its name begins with the data directory's name, as the output of another run may.
    fs::create_directory(output_ + "_1");
    writeText(output_ + "_1/big", std::string(513, 'x'));
    EXPECT_EQ(collectAndLog(output_ + "_1/big"), overLimit(output_ + "_1/big", 513) + total(0));
    EXPECT_TRUE(fs::exists(output_ + "_1/big"));

    make("big", 513);
    fs::create_directory_symlink(source_, data_dir_ + "/link");
    EXPECT_EQ(collectAndLog("%d%/link/big"), overLimit(data_dir_ + "/link/big", 513) + total(0));
    EXPECT_TRUE(fs::exists(source("big")));
}

TEST_F(IGCollectData, StopsTheCollectionWhenAToolsDataCannotBeRemoved) {
    root_->max_output_size = 1;
    const std::string fixed = data_dir_ + "/fixed";
    fs::create_directory(fixed);
    ASSERT_EQ(::mount("none", fixed.c_str(), "tmpfs", 0, nullptr), 0);
    writeText(fixed + "/big", std::string(513, 'x'));
    ASSERT_EQ(::mount("none", fixed.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    const int result = collect("%d%/fixed/big");
    ASSERT_EQ(::umount(fixed.c_str()), 0);
    EXPECT_EQ(result, RESULT_SIZE_LIMIT);
    EXPECT_EQ(takeLog(),
              overLimit(fixed + "/big", 513) + trio("remove", 30, "Read-only file system",
                                                    fixed + "/big", "IGCollectData", true));
    EXPECT_FALSE(fs::exists(output_ + "/quendil_index"));
}

// --- the index and the directories ---

TEST_F(IGCollectData, PrefixesTheFilesOfATargetWithTheDataDirectory) {
    useSubdirectory("target_1");
    make("file", 1);
    EXPECT_EQ(collectAndLog(source("file")), copied(source("file"), 1) + total(1));
    EXPECT_EQ(readText(output_ + "/target_1" + source("file")), "x");
    struct stat st = {};
    ASSERT_EQ(::stat(data_dir_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777U);
    EXPECT_EQ(index(), record({"target_1/" + listed("file")}));
    fs::remove(copy("file"));
    make("file", 0);
    root_->max_output_size = 1;
    make("big", 600);
    EXPECT_EQ(collect(source("big")), 0);
    EXPECT_EQ(index(), record({"target_1/" + listed("file")}) + record({""}));
}

TEST_F(IGCollectData, DescribesTheDataInTheIndex) {
    make("file", 1);
    IgIniCollectList("system log", &block_.description, pool());
    IgIniCollectList("second line", &block_.description, pool());
    std::string word = "core dump";
    block_.file_type = FILE_OTHER;
    block_.file_type_word = word.data();
    EXPECT_EQ(collect(source("file")), 0);
    EXPECT_EQ(index(), record({listed("file")},
                              "DESC:system log\nDESC:second line\nDATE:STAMP\nTYPE:core dump\n"));
}

// The configuration may spell the base directory in another way than the normal one; the output
// directory is still the data directory.
TEST_F(IGCollectData, AddsNoPrefixForAnySpellingOfTheBaseDirectory) {
    make("file", 1);
    std::string base = base_ + "/./../base";
    data_dir_ = base + "/" + root_->output_name;
    root_->output_dir = base.data();
    root_->d = data_dir_.data();
    EXPECT_EQ(collect(source("file")), 0);
    EXPECT_EQ(index(), record({listed("file")}));
}

TEST_F(IGCollectData, NeedsTheOutputDirectory) {
    make("file", 1);
    fs::remove_all(base_);
    Capture errors(stderr);
    EXPECT_EQ(collectAndLog(source("file")),
              "result -1 ZEPA104-E:The specified directory(" + base_ + ") does not exist.\n");
    writeText(base_, "");
    EXPECT_EQ(collect(source("file")), -1);
}

TEST_F(IGCollectData, FailsWhenTheDataDirectoryCannotBeMade) {
    make("file", 1);
    useSubdirectory("a/b");
    EXPECT_EQ(
        collectAndLog(source("file")),
        "result -1 " + trio("mkdir", 2, "No such file or directory", data_dir_, "IGCmnFile", true));
}

TEST_F(IGCollectData, FailsWhenTheIndexCannotBeWritten) {
    make("file", 1);
    fs::create_directory(output_ + "/quendil_index");
    EXPECT_EQ(
        collectAndLog(source("file")),
        "result -1 " + copied(source("file"), 1) + total(1) +
            trio("fopen", 21, "Is a directory", output_ + "/quendil_index", "IGCmnFile", true));
}

TEST_F(IGCollectData, EndsWithoutARecordWhenTheRunIsInterrupted) {
    make("file", 1);
    run_state.interrupted = 1;
    run_state.signal_no = 2;
    Capture errors(stderr);
    EXPECT_EQ(collectAndLog(source("file")),
              "ZEPA136-E:quendil was interrupted. signal no = 2.\n" + total(0));
    EXPECT_EQ(collectAndLog(source("*")), total(0));
    EXPECT_FALSE(fs::exists(copy("file")));
    EXPECT_FALSE(fs::exists(output_ + "/quendil_index"));
    writeText(data_dir_ + "/own", "1");
    EXPECT_EQ(collectAndLog("%d%/own"), total(0));
}

TEST_F(IGCollectData, AssertsItsArgumentsAreNotNull) {
    EXPECT_DEATH(IgCollectData(nullptr, root_, &block_), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCollectData(pool(), nullptr, &block_), "root_tblp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCollectData(pool(), root_, nullptr), "data_block != \\(\\(void \\*\\)0\\)");
}

}  // namespace
