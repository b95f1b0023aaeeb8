#include "collect/IGCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../../support/run_fixture.h"
#include "common/base/IGRunState.h"
#include "common/file/IGKernelFileSystem.h"

namespace {

class IGCopy : public RunTest {
  protected:
    static constexpr std::int64_t MUCH = 1 << 20;

    Copied copy(const std::string& path, const std::string& destination, std::int64_t most = MUCH) {
        Source source;
        bytes_ = -1;
        return sourceFollow(path.c_str(), source)
                   ? copySource(source, byPath(destination.c_str()), most, bytes_)
                   : Copied::FAILED;
    }

    TempDir directory_;
    std::int64_t bytes_ = 0;
};

TEST_F(IGCopy, KnowsTheFileSystemsOfTheKernel) {
    EXPECT_EQ(1, liesInKernelFileSystem("/proc/version"));
    EXPECT_EQ(1, liesInKernelFileSystem("/proc/self/status"));
    EXPECT_EQ(1, liesInKernelFileSystem("/sys"));
    EXPECT_EQ(0, liesInKernelFileSystem(directory_.path().c_str()));
    EXPECT_EQ(0, liesInKernelFileSystem("/dev/null"));
    EXPECT_EQ(-1, liesInKernelFileSystem(directory_.path("none").c_str()));
}

TEST_F(IGCopy, FollowsALinkIntoAKernelFileSystem) {
    const std::string link = directory_.path("link");
    std::filesystem::create_symlink("/proc/version", link);
    EXPECT_EQ(1, liesInKernelFileSystem(link.c_str()));
}

TEST_F(IGCopy, CopiesContentAndAttributes) {
    const std::string copy = directory_.path("copy");
    ASSERT_EQ(this->copy("/proc/version", copy), Copied::ALL);
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

TEST_F(IGCopy, CopiesUpToALimitAndReportsWhetherThereAreMoreBytes) {
    const std::string source = directory_.path("source");
    const std::string copy = directory_.path("copy");
    writeText(source, std::string(700000, 'a') + "b");
    EXPECT_EQ(this->copy(source, copy, 700000), Copied::TRUNCATED);
    EXPECT_EQ(bytes_, 700000);
    EXPECT_EQ(readText(copy), std::string(700000, 'a'));
    std::filesystem::remove(copy);
    EXPECT_EQ(this->copy(source, copy, 700001), Copied::ALL);
    EXPECT_EQ(bytes_, 700001);
    std::filesystem::remove(copy);
    EXPECT_EQ(this->copy(source, copy, 0), Copied::TRUNCATED);
    EXPECT_EQ(std::filesystem::file_size(copy), 0U);
}

TEST_F(IGCopy, CopiesRegularFilesOnly) {
    // A pipe that another process still holds open: reading it does not end.
    const std::string pipe = directory_.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0640), 0);
    const int both = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(both, "now", 3), 3);
    const std::string copy = directory_.path("copy");
    EXPECT_EQ(this->copy(pipe, copy), Copied::FAILED);
    EXPECT_FALSE(std::filesystem::exists(copy));
    ::close(both);
}

TEST_F(IGCopy, FailsWithoutAReportAndLeavesNoFile) {
    const std::string copy = directory_.path("copy");
    EXPECT_EQ(this->copy("/proc/none", copy), Copied::FAILED);
    EXPECT_EQ(this->copy("/proc/self", copy), Copied::FAILED);      // a directory cannot be read
    EXPECT_EQ(this->copy("/proc/self/mem", copy), Copied::FAILED);  // nothing at offset 0
    EXPECT_FALSE(std::filesystem::exists(copy));
    EXPECT_EQ(this->copy("/proc/version", directory_.path("none/copy")), Copied::FAILED);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCopy, DoesNotOverwrite) {
    const std::string copy = directory_.path("copy");
    writeText(copy, "mine");
    EXPECT_EQ(this->copy("/proc/version", copy), Copied::FAILED);
    EXPECT_EQ(readText(copy), "mine");
    const std::string link = directory_.path("link");
    std::filesystem::create_symlink(directory_.path("elsewhere"), link);
    EXPECT_EQ(this->copy("/proc/version", link), Copied::FAILED);
    EXPECT_FALSE(std::filesystem::exists(directory_.path("elsewhere")));
}

TEST_F(IGCopy, EndsWhenTheRunIsInterrupted) {
    const std::string copy = directory_.path("copy");
    run_state.interrupted = 1;
    Capture errors(stderr);
    EXPECT_EQ(this->copy("/proc/version", copy), Copied::FAILED);
    EXPECT_FALSE(std::filesystem::exists(copy));
}

}  // namespace
