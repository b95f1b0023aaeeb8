#include <sys/resource.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "../../support/file_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnTree.h"

namespace {

namespace fs = std::filesystem;

/// Allows no new descriptor in a scope: opening a file fails with EMFILE.
class NoDescriptors {
  public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const struct rlimit none = {0, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    struct rlimit before_ = {};
};

class IGCmnFileGetSize : public FileTest {
  protected:
    static std::string failure(const std::string& call, int error, const std::string& text,
                               const std::string& file) {
        return trio(call, error, text, file, "IGCmnTree");
    }
};

TEST_F(IGCmnFileGetSize, ReturnsTheSizeOfAFile) {
    writeText(path("file"), std::string(1234, 'x'));
    fs::create_symlink("file", path("link"));
    EXPECT_EQ(IgCmnFileGetSize(path("file").c_str()), 1234);
    EXPECT_EQ(IgCmnFileGetSize(path("link").c_str()), 1234);
    writeText(path("large"), "");
    fs::resize_file(path("large"), std::uintmax_t{5} << 30);
    EXPECT_EQ(IgCmnFileGetSize(path("large").c_str()), std::int64_t{5} << 30);
}

TEST_F(IGCmnFileGetSize, AddsUpTheFilesBelowADirectory) {
    fs::create_directories(path("tree/a/b"));
    fs::create_directories(path("tree/empty"));
    writeText(path("tree/one"), "1");
    writeText(path("tree/.hidden"), "12");
    writeText(path("tree/a/three"), "123");
    writeText(path("tree/a/b/four"), "1234");
    writeText(path("outside"), std::string(100, 'x'));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 10);
    EXPECT_EQ(IgCmnFileGetSize(path("tree/").c_str()), 10);
    EXPECT_EQ(IgCmnFileGetSize(path("tree/empty").c_str()), 0);
    fs::create_symlink(path("outside"), path("tree/link"));
    fs::create_directory(path("other"));
    writeText(path("other/file"), std::string(1000, 'x'));
    fs::create_symlink(path("other"), path("tree/a/dirlink"));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 1110) << "links are followed";
}

TEST_F(IGCmnFileGetSize, DoesNotWalkInCircles) {
    fs::create_directories(path("tree/a"));
    writeText(path("tree/a/file"), "12345");
    fs::create_symlink("..", path("tree/a/up"));
    fs::create_symlink(".", path("tree/self"));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 5);
}

TEST_F(IGCmnFileGetSize, EntersEachDirectoryOfAGraphOfLinksOnce) {
    // 2^18 ways through it. Not more: the kernel follows 40 symlinks in one path, and counts those
    // of a walk again that a change elsewhere on the machine has made it repeat.
    constexpr int LEVELS = 18;
    for (int level = 0; level < LEVELS; ++level) {
        const std::string here = path(std::to_string(level));
        fs::create_directory(here);
        writeText(here + "/file", "x");
        for (const char* name : {"/a", "/b"}) {
            fs::create_directory_symlink(path(std::to_string((level + 1) % LEVELS)), here + name);
        }
    }
    EXPECT_EQ(IgCmnFileGetSize(path("0").c_str()), LEVELS);
}

TEST_F(IGCmnFileGetSize, StopsCountingWhenTheRunIsInterrupted) {
    fs::create_directories(path("tree/a"));
    writeText(path("tree/a/file"), "12345");
    run_state.signal_no = 2;
    run_state.interrupted = 1;
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 0);
}

TEST_F(IGCmnFileGetSize, CountsNamesThatTheLocaleCannotDecode) {
    fs::create_directory(path("tree"));
    writeText(path("tree/\xff\xfe"), "123");
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 3);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFileGetSize, ReportsAnEntryWithoutASizeAndCountsTheRest) {
    const std::string missing = path("missing");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetSize(missing.c_str()), 0); }),
              failure("stat", ENOENT, "No such file or directory", missing));
    fs::create_directory(path("tree"));
    writeText(path("tree/file"), "12");
    fs::create_symlink("nowhere", path("tree/dangling"));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 2); }),
              failure("stat", ENOENT, "No such file or directory", path("tree/dangling")));
}

TEST_F(IGCmnFileGetSize, ReportsADirectoryThatCannotBeListedAsEmpty) {
    writeText(path("file"), "12");
    const std::string tree = path();
    std::int64_t size = -1;
    Capture err(stderr);
    {
        const NoDescriptors none;
        size = IgCmnFileGetSize(tree.c_str());
    }
    EXPECT_EQ(size, 0);
    EXPECT_EQ(takeLog(), trio("opendir", EMFILE, "Too many open files", tree, "IGCmnDir"));
}

TEST_F(IGCmnFileGetSize, CountsTheEntriesReadBeforeReadingFailed) {
    for (const char* name : {"a", "b", "c"}) {
        writeText(path(name), "x");
    }
    const FailingCall failing(Call::READDIR, 5, EIO);  // "." and ".." are entries too
    EXPECT_EQ(reported([&] {
                  // Two of the three, unless "." or ".." would have been the last.
                  const std::int64_t size = IgCmnFileGetSize(path().c_str());
                  EXPECT_GE(size, 2);
                  EXPECT_LE(size, 3);
              }),
              trio("readdir", EIO, "Input/output error", path(), "IGCmnDir"));
}

TEST(IGCmnFileGetSizeDeathTest, AssertsAPath) {
    EXPECT_DEATH(IgCmnFileGetSize(nullptr), nullOf("`path"));
}

}  // namespace
