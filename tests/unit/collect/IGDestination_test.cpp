// This file replaces mkdir: it records which directories were made.
#include "collect/IGDestination.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "common/file/IGSource.h"

namespace {

std::vector<std::string> made;

}  // namespace

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    made.emplace_back(path);
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct stat statusOf(const std::string& path) {
    struct stat st = {};
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    return st;
}

class IGDestination : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        Destination::forgetComplete();
        begin();
        made.clear();
    }
    void TearDown() override {
        Destination::forgetComplete();
        RunTest::TearDown();
    }

    // The next item.
    void begin() {
        destination_ = std::make_unique<Destination>();
        destination_->begin(place_.c_str());
    }

    // Prepares a path of the data directory; returns the directories made for it.
    std::vector<std::string> prepare(const std::string& name) {
        made.clear();
        const std::string path = place_ + name;
        const bool prepared = destination_->prepare(path.c_str()) == Destination::Prepared::READY;
        EXPECT_TRUE(prepared) << name;
        if (prepared) {
            expectOpen(path);
        }
        for (std::string& directory : made) {
            EXPECT_EQ(directory.substr(0, place_.size()), place_);
            directory.erase(0, place_.size());
        }
        return made;
    }
    // The directory of a path that was prepared is open, and the file is named in it.
    void expectOpen(const std::string& path) {
        const NewFile file = destination_->file(path.c_str());
        const std::size_t slash = path.rfind('/');
        struct stat st = {};
        ASSERT_EQ(::fstat(file.directory, &st), 0);
        EXPECT_EQ(st.st_ino, statusOf(path.substr(0, slash)).st_ino) << path;
        EXPECT_EQ(file.name, path.substr(slash + 1));
        EXPECT_STREQ(file.path, path.c_str());
        EXPECT_EQ(destination_->directoryOf(path.c_str()), file.directory);
    }
    // The reports of a path that cannot be prepared.
    std::string failure(const std::string& name) {
        const std::string path = place_ + name;
        Capture err(stderr);
        EXPECT_EQ(destination_->prepare(path.c_str()), Destination::Prepared::NOT_MADE);
        EXPECT_EQ(destination_->directoryOf(path.c_str()), -1);
        return takeLog();
    }
    void record(const std::string& name) {
        const std::string path = place_ + name;
        destination_->recordComplete(path.c_str());
    }
    // Collects an item whose first entry has this path, up to its end.
    void complete(const std::string& name) {
        begin();
        static_cast<void>(prepare(name));
        record(name);
        begin();
    }
    bool resume(const std::string& source) {
        begin();
        return destination_->resume(place_.c_str(), source.c_str());
    }

    TempDir out_{"/opt"};
    std::string place_ = out_.path();
    std::unique_ptr<Destination> destination_;
};

// Directories

TEST_F(IGDestination, MakesTheMissingDirectoriesAboveAFileOnce) {
    EXPECT_THAT(prepare("/a/b/file"), ElementsAre("/a", "/a/b"));
    EXPECT_THAT(prepare("/a/b/other"), IsEmpty());
    EXPECT_THAT(prepare("/a/b/c/file"), ElementsAre("/a/b/c"));
    EXPECT_THAT(prepare("/file"), IsEmpty());
    EXPECT_THAT(prepare("/a/b/c/file"), IsEmpty());
    EXPECT_EQ(statusOf(place_ + "/a/b").st_mode, S_IFDIR | 0777U);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGDestination, MakesNoDirectoryThatExists) {
    fs::create_directories(place_ + "/a/b");
    EXPECT_THAT(prepare("/a/b/c/file"), ElementsAre("/a/b/c"));
    begin();
    EXPECT_THAT(prepare("/a/b/c/file"), IsEmpty());
}

TEST_F(IGDestination, DistinguishesNamesWithACommonBeginning) {
    const std::vector<std::string> names = {"/a", "/ab", "/a/b", "/a/bc", "/abc/d", "/b", "/a/b/c"};
    for (const std::string& first : names) {
        for (const std::string& second : names) {
            SCOPED_TRACE(first + " and " + second);
            begin();
            static_cast<void>(prepare(first + "/file"));
            static_cast<void>(prepare(second + "/file"));
            EXPECT_THAT(prepare(first + "/file"), IsEmpty());
            EXPECT_THAT(prepare(second + "/file"), IsEmpty());
            EXPECT_TRUE(fs::is_directory(place_ + first));
            EXPECT_TRUE(fs::is_directory(place_ + second));
            for (const fs::directory_entry& entry : fs::directory_iterator(place_)) {
                fs::remove_all(entry);
            }
        }
    }
}

TEST_F(IGDestination, ReturnsToAParentAndToTheDataDirectory) {
    EXPECT_THAT(prepare("/a/b/c/file"), ElementsAre("/a", "/a/b", "/a/b/c"));
    for (const char* name : {"/a/b/file", "/a/file", "/file", "/a/b/c/file", "/file", "/a/file"}) {
        EXPECT_THAT(prepare(name), IsEmpty()) << name;
    }
    EXPECT_THAT(prepare("/a/d/file"), ElementsAre("/a/d"));
    EXPECT_THAT(prepare("/"), IsEmpty());
}

TEST_F(IGDestination, ReachesADataDirectoryThroughALink) {
    const std::string link = out_.path("link");
    fs::create_directory(out_.path("real"));
    fs::create_directory_symlink("real", link);
    place_ = link;  // as the path of a descriptor is
    begin();
    EXPECT_THAT(prepare("/a/file"), ElementsAre("/a"));
    EXPECT_TRUE(fs::is_directory(out_.path("real/a")));
    EXPECT_THAT(prepare("/file"), IsEmpty());
}

TEST_F(IGDestination, NeitherFollowsNorReplacesAnEntryThatIsNoDirectory) {
    fs::create_directories(place_ + "/elsewhere");
    fs::create_directory_symlink(place_ + "/elsewhere", place_ + "/link");
    fs::create_symlink("none", place_ + "/dangling");
    writeText(place_ + "/file", "content");
    for (const std::string name : {"/link", "/dangling", "/file"}) {
        for (const std::string below : {"/x", "/b/x"}) {
            begin();
            EXPECT_EQ(failure(name + below),
                      trio("mkdir", EEXIST, "File exists", place_ + name, "IGCmnFile"));
        }
    }
    EXPECT_EQ(fs::read_symlink(place_ + "/link"), place_ + "/elsewhere");
    EXPECT_EQ(fs::read_symlink(place_ + "/dangling"), "none");
    EXPECT_EQ(readText(place_ + "/file"), "content");
    EXPECT_TRUE(fs::is_empty(place_ + "/elsewhere"));
}

TEST_F(IGDestination, NeitherFollowsNorReplacesALinkBelowADirectoryThatIsOpen) {
    EXPECT_THAT(prepare("/a/file"), ElementsAre("/a"));
    fs::create_directory(place_ + "/elsewhere");
    fs::create_directory_symlink("../elsewhere", place_ + "/a/link");
    EXPECT_EQ(failure("/a/link/x"),
              trio("mkdir", EEXIST, "File exists", place_ + "/a/link", "IGCmnFile"));
    EXPECT_THAT(prepare("/a/file"), IsEmpty()) << "the next entry has its directory again";
}

TEST_F(IGDestination, ReportsADirectoryWhoseParentIsGone) {
    static_cast<void>(prepare("/a/b/file"));
    fs::remove_all(place_ + "/a");
    EXPECT_NE(failure("/a/b/c/file"), "");
    EXPECT_FALSE(fs::exists(place_ + "/a"));
    EXPECT_THAT(prepare("/a/b/c/file"), ElementsAre("/a", "/a/b", "/a/b/c"));
}

// Long paths

TEST_F(IGDestination, ReportsAPathThatIsTooLongAsMkdirDoes) {
    std::string longest = place_;
    while (longest.size() + 1 + NAME_MAX < PATH_MAX) {
        longest += "/" + std::string(NAME_MAX - 55, 'x');
    }
    const std::string name = longest.substr(place_.size());
    longest += "/" + std::string(PATH_MAX - 2 - longest.size(), 'y');  // the longest directory
    ASSERT_EQ(longest.size(), std::size_t{PATH_MAX} - 1);
    const std::string fits = longest.substr(place_.size());
    const std::size_t before = openDescriptors();
    static_cast<void>(prepare(name + "/file"));
    EXPECT_EQ(failure(fits + "z/file"),
              trio("mkdir", ENAMETOOLONG, "File name too long", longest + "z", "IGCmnFile"));
    begin();
    EXPECT_EQ(failure(fits + "z/below/file"),
              trio("mkdir", ENAMETOOLONG, "File name too long", longest + "z", "IGCmnFile"));
    EXPECT_EQ(openDescriptors(), before);
    begin();
    EXPECT_THAT(prepare(fits + "/f"), ElementsAre(fits));
    record(fits + "/f");
    EXPECT_TRUE(resume(fits + "/g"));
    const int directory = destination_->directoryOf((longest + "/g").c_str());
    ASSERT_EQ(::mkdirat(directory, "below", 0700), 0) << "as a tool can make it";
    EXPECT_EQ(failure(fits + "/below/file"),
              trio("mkdir", ENAMETOOLONG, "File name too long", longest + "/below", "IGCmnFile"));
    EXPECT_FALSE(resume(fits + "z/g"));
}

TEST_F(IGDestination, ReportsADirectoryThatCannotBeOpened) {
    begin();
    const std::string path = place_ + "/a/file";
    Capture err(stderr);
    struct rlimit saved = {};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    const FdGuard lowest(::open("/", O_PATH | O_CLOEXEC));
    const struct rlimit none = {static_cast<rlim_t>(lowest.get()), saved.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    const Destination::Prepared prepared = destination_->prepare(path.c_str());
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(prepared, Destination::Prepared::NOT_OPENED);
    EXPECT_EQ(takeLog(), trio("open", EMFILE, "Too many open files", place_, "IGDestination"));
}

TEST_F(IGDestination, ReportsANameThatIsTooLongAsMkdirDoes) {
    const std::string name = "/" + std::string(NAME_MAX + 1, 'x');
    EXPECT_EQ(failure(name + "/file"),
              trio("mkdir", ENAMETOOLONG, "File name too long", place_ + name, "IGCmnFile"));
}

// The next item

TEST_F(IGDestination, ResumesTheDirectoryThatWasRecorded) {
    EXPECT_FALSE(resume("/a/b/file"));
    complete("/a/b/file");
    for (const char* source : {"/a/b/file", "/a/b/other", "/a/b/*", "/a/b/"}) {
        EXPECT_TRUE(resume(source)) << source;
    }
    EXPECT_THAT(prepare("/a/b/new"), IsEmpty());
    EXPECT_TRUE(destination_->wasComplete());
    EXPECT_THAT(prepare("/a/c/new"), ElementsAre("/a/c"));
    EXPECT_TRUE(destination_->wasComplete()) << "as the first path was";
}

// The directories above the sources may have changed: a file was followed to name by name.
TEST_F(IGDestination, IsNotCompleteWhenAPathWasWalkedAlongSince) {
    complete("/a/b/file");
    ASSERT_TRUE(resume("/a/b/file"));
    static_cast<void>(prepare("/a/b/file"));
    EXPECT_TRUE(destination_->wasComplete());
    Source source;
    ASSERT_TRUE(sourceFollow("/", source));
    EXPECT_FALSE(destination_->wasComplete());
    record("/a/b/file");
    ASSERT_TRUE(resume("/a/b/file"));
    static_cast<void>(prepare("/a/b/file"));
    EXPECT_TRUE(destination_->wasComplete()) << "recorded again";
}

TEST_F(IGDestination, IsNotCompleteWhenTheFirstPathIsElsewhere) {
    complete("/a/b/file");
    ASSERT_TRUE(resume("/a/b/file"));
    static_cast<void>(prepare("/a/b/c/file"));
    EXPECT_FALSE(destination_->wasComplete());
    static_cast<void>(prepare("/a/b/file"));
    EXPECT_FALSE(destination_->wasComplete());
    begin();
    static_cast<void>(prepare("/a/b/file"));
    EXPECT_FALSE(destination_->wasComplete()) << "it was not resumed";
}

TEST_F(IGDestination, ResumesNothingElse) {
    complete("/a/b/file");
    for (const char* source :
         {"/a/file", "/a/b/c/file", "/a/bc/file", "/a/b", "/file", "a/b/file", "a/b/../b/file",
          "/a/./b/file", "/a//b/file", "/a/b//file", "/x/../a/b/file", "//a/b/file", "", "file"}) {
        EXPECT_FALSE(resume(source)) << source;
        EXPECT_THAT(prepare("/a/b/file"), IsEmpty());
        EXPECT_FALSE(destination_->wasComplete());
    }
    EXPECT_TRUE(resume("/a/b/file"));
}

TEST_F(IGDestination, ResumesInTheSameDataDirectoryOnly) {
    complete("/a/b/file");
    const std::string first = place_;
    for (const std::string& other : {first + "2", first + "/", first + "/a/b", std::string("/opt"),
                                     first.substr(0, first.size() - 1), std::string()}) {
        place_ = other;
        EXPECT_FALSE(resume("/a/b/file")) << other;
    }
}

// Both items copy to the same directory, but from different ones.
TEST_F(IGDestination, ResumesForTheSameSourceDirectoryOnly) {
    complete("/a/b/file");
    const std::string first = place_;
    place_ = first + "/a";
    EXPECT_FALSE(resume("/b/file"));
    complete("/b/file");
    place_ = first;
    EXPECT_FALSE(resume("/a/b/file"));
}

TEST_F(IGDestination, ResumesOnlyTheLastDirectoryThatWasRecorded) {
    complete("/a/b/file");
    complete("/a/c/file");
    EXPECT_FALSE(resume("/a/b/file"));
    EXPECT_TRUE(resume("/a/c/file"));
    Destination::forgetComplete();
    EXPECT_FALSE(resume("/a/c/file"));
}

TEST_F(IGDestination, RecordsOnlyTheDirectoryPreparedLast) {
    static_cast<void>(prepare("/a/b/file"));
    static_cast<void>(prepare("/a/c/file"));
    record("/a/b/file");
    EXPECT_FALSE(resume("/a/b/file"));
    EXPECT_FALSE(resume("/a/c/file"));
}

TEST_F(IGDestination, ForgetsTheLastDirectoryWhenAnItemEndsElsewhere) {
    complete("/a/b/file");
    static_cast<void>(prepare("/a/c/file"));
    static_cast<void>(prepare("/a/c/d/file"));
    record("/a/c/file");
    EXPECT_FALSE(resume("/a/b/file"));
}

// A tree: its first entry is in one directory, its last in another.
TEST_F(IGDestination, StaysRecordedAfterAnItemThatResumedIt) {
    complete("/a/b/file");
    ASSERT_TRUE(resume("/a/b/tree"));
    static_cast<void>(prepare("/a/b/tree"));
    fs::create_directory(place_ + "/a/b/tree");
    static_cast<void>(prepare("/a/b/tree/file"));
    record("/a/b/tree");
    EXPECT_TRUE(resume("/a/b/file"));
}

// What an item changed stays changed when none of its entries could be copied: its second
// directory could not be made.
TEST_F(IGDestination, ForgetsTheLastDirectoryWhenAnItemChangesTheOnesAboveIt) {
    complete("/a/b/file");
    static_cast<void>(failure("/a/c/" + std::string(NAME_MAX + 1, 'x') + "/file"));
    ASSERT_TRUE(fs::exists(place_ + "/a/c"));
    EXPECT_FALSE(resume("/a/b/file")) << "/a has another time now";
}

TEST_F(IGDestination, ResumesNoDirectoryThatWasExchanged) {
    const std::string directory = place_ + "/a/b";
    const std::string away = place_ + "/away";
    complete("/a/b/file");
    fs::rename(directory, away);
    EXPECT_FALSE(resume("/a/b/file")) << "moved";
    fs::create_directory(directory);
    EXPECT_FALSE(resume("/a/b/file")) << "replaced";
    fs::remove(directory);
    fs::create_directory_symlink(away, directory);
    EXPECT_FALSE(resume("/a/b/file")) << "a link to it";
    fs::remove(directory);
    writeText(directory, "x");
    EXPECT_FALSE(resume("/a/b/file")) << "a file";
    fs::remove(directory);
    fs::rename(away, directory);
    EXPECT_TRUE(resume("/a/b/file")) << "put back";
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGDestination, KeepsOneDescriptorAtMost) {
    const std::size_t before = openDescriptors();
    for (const char* name : {"/a/b/c/file", "/a/file", "/d/e/file", "/file", "/a/b/file"}) {
        static_cast<void>(prepare(name));
        EXPECT_EQ(openDescriptors(), before + 1) << name;
    }
    record("/a/b/file");
    for (const char* name : {"/a/b/file", "/a/c/file"}) {
        static_cast<void>(resume(name));
        static_cast<void>(prepare(name));
        EXPECT_EQ(openDescriptors(), before + 1) << name;
    }
    writeText(place_ + "/a/file", "x");
    static_cast<void>(failure("/a/file/below"));
    EXPECT_EQ(openDescriptors(), before);
    fs::remove_all(place_ + "/a");
    EXPECT_FALSE(resume("/a/b/file"));
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
