#include "collect/IGKernelFile.h"

#include <sys/stat.h>

#include "../../support/run_fixture.h"
#include "common/IGKernelFileSystem.h"

namespace {

class IGKernelFile : public RunTest {
  protected:
    TempDir directory_;
};

TEST_F(IGKernelFile, KnowsTheFileSystemsOfTheKernel) {
    EXPECT_EQ(1, liesInKernelFileSystem("/proc/version"));
    EXPECT_EQ(1, liesInKernelFileSystem("/proc/self/status"));
    EXPECT_EQ(1, liesInKernelFileSystem("/sys"));
    EXPECT_EQ(0, liesInKernelFileSystem(directory_.path().c_str()));
    EXPECT_EQ(0, liesInKernelFileSystem("/dev/null"));
    EXPECT_EQ(-1, liesInKernelFileSystem(directory_.path("none").c_str()));
}

TEST_F(IGKernelFile, FollowsALinkIntoThem) {
    const std::string link = directory_.path("link");
    std::filesystem::create_symlink("/proc/version", link);
    EXPECT_EQ(1, liesInKernelFileSystem(link.c_str()));
}

TEST_F(IGKernelFile, CopiesContentAndAttributes) {
    const std::string copy = directory_.path("copy");
    ASSERT_TRUE(kernelFileCopy("/proc/version", copy.c_str()));
    EXPECT_EQ(readText(copy), readText("/proc/version"));
    struct stat source = {};
    struct stat made = {};
    ASSERT_EQ(::stat("/proc/version", &source), 0);
    ASSERT_EQ(::stat(copy.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode, source.st_mode);
    EXPECT_EQ(made.st_uid, source.st_uid);
    EXPECT_EQ(made.st_gid, source.st_gid);
    EXPECT_EQ(made.st_mtim.tv_sec, source.st_mtim.tv_sec);
}

TEST_F(IGKernelFile, CopiesUpToSixteenMebibytes) {
    constexpr std::size_t LIMIT = std::size_t{16} << 20;
    const std::string source = directory_.path("source");
    const std::string copy = directory_.path("copy");
    writeText(source, std::string(LIMIT, 'a') + "b");
    ASSERT_TRUE(kernelFileCopy(source.c_str(), copy.c_str()));
    EXPECT_EQ(std::filesystem::file_size(copy), LIMIT);
    std::filesystem::resize_file(source, LIMIT);
    std::filesystem::remove(copy);
    ASSERT_TRUE(kernelFileCopy(source.c_str(), copy.c_str()));
    EXPECT_EQ(std::filesystem::file_size(copy), LIMIT);
}

TEST_F(IGKernelFile, TakesNothingButRegularFiles) {
    // A pipe that somebody still holds open: its end would not come.
    const std::string pipe = directory_.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0640), 0);
    const int both = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(both, "now", 3), 3);
    const std::string copy = directory_.path("copy");
    EXPECT_FALSE(kernelFileCopy(pipe.c_str(), copy.c_str()));
    EXPECT_FALSE(std::filesystem::exists(copy));
    ::close(both);
}

TEST_F(IGKernelFile, FailsSilentlyAndLeavesNothing) {
    const std::string copy = directory_.path("copy");
    EXPECT_FALSE(kernelFileCopy("/proc/none", copy.c_str()));
    EXPECT_FALSE(kernelFileCopy("/proc/self", copy.c_str()));      // a directory cannot be read
    EXPECT_FALSE(kernelFileCopy("/proc/self/mem", copy.c_str()));  // nothing at its beginning
    EXPECT_FALSE(std::filesystem::exists(copy));
    EXPECT_FALSE(kernelFileCopy("/proc/version", directory_.path("none/copy").c_str()));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGKernelFile, DoesNotOverwrite) {
    const std::string copy = directory_.path("copy");
    writeText(copy, "mine");
    EXPECT_FALSE(kernelFileCopy("/proc/version", copy.c_str()));
    EXPECT_EQ(readText(copy), "mine");
    const std::string link = directory_.path("link");
    std::filesystem::create_symlink(directory_.path("elsewhere"), link);
    EXPECT_FALSE(kernelFileCopy("/proc/version", link.c_str()));
    EXPECT_FALSE(std::filesystem::exists(directory_.path("elsewhere")));
}

TEST_F(IGKernelFile, EndsWhenTheRunIsInterrupted) {
    const std::string copy = directory_.path("copy");
    run_state.interrupted = 1;
    Capture errors(stderr);
    EXPECT_FALSE(kernelFileCopy("/proc/version", copy.c_str()));
    EXPECT_FALSE(std::filesystem::exists(copy));
}

}  // namespace
