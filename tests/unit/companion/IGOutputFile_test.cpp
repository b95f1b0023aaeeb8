#include "companion/IGOutputFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "../../support/file_fixture.h"
#include "../../support/mounted.h"
#include "common/base/IGGuards.h"

namespace {

int fsync_error = 0;  // with which fsync fails

}  // namespace

// In the place of the function of the C library.
extern "C" int fsync(int fd) {
    errno = fsync_error;
    return fsync_error == 0 ? ::fdatasync(fd) : -1;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class IGOutputFile : public FileTest {
  protected:
    std::vector<std::string> names() {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(path())) {
            found.push_back(entry.path().filename());
        }
        return found;
    }

    // Without /proc, a file needs a name from its beginning.
    struct WithoutProc {
        explicit WithoutProc(const std::string& empty) : mounted(made(empty), "/proc") {}
        static const std::string& made(const std::string& empty) {
            std::filesystem::create_directory(empty);
            return empty;
        }
        Mounted mounted;
    };

    std::string temporaryName() { return ".page." + std::to_string(::getpid()); }
};

TEST_F(IGOutputFile, GivesTheFileItsNameWhenItIsComplete) {
    OutputFile file;
    ASSERT_TRUE(file.open(path("page"))) << file.error();
    EXPECT_TRUE(file.write("one "));
    EXPECT_TRUE(file.write(std::string(200000, 'x')));
    EXPECT_THAT(names(), IsEmpty());
    ASSERT_TRUE(file.commit()) << file.error();
    EXPECT_THAT(names(), ElementsAre("page"));
    EXPECT_EQ(readText(path("page")), "one " + std::string(200000, 'x'));
}

TEST_F(IGOutputFile, LetsNobodyElseReadTheFileWhateverTheUmask) {
    for (const mode_t mask : {0U, 0777U}) {
        ::umask(mask);
        const std::string name = path("page" + std::to_string(mask));
        OutputFile file;
        EXPECT_TRUE(file.open(name) && file.commit());
        EXPECT_EQ(modeOf(name), 0600U);
    }
}

TEST_F(IGOutputFile, LeavesNothingWithoutTheLastStep) {
    {
        OutputFile file;
        ASSERT_TRUE(file.open(path("page")));
        EXPECT_TRUE(file.write(std::string(200000, 'x')));
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(IGOutputFile, NeverTakesTheNameOfAnother) {
    writeText(path("page"), "mine");
    std::filesystem::create_symlink("nowhere", path("link"));
    for (const char* name : {"page", "link"}) {
        OutputFile file;
        EXPECT_FALSE(file.open(path(name)));
        EXPECT_EQ(file.error(), "File exists");
    }
    OutputFile late;
    ASSERT_TRUE(late.open(path("late")));
    writeText(path("late"), "mine");
    EXPECT_FALSE(late.commit());
    EXPECT_EQ(late.error(), "File exists");
    EXPECT_EQ(readText(path("late")), "mine");
}

TEST_F(IGOutputFile, SaysWhyThereCanBeNoFile) {
    OutputFile file;
    EXPECT_FALSE(file.open(path("missing/page")));
    EXPECT_EQ(file.error(), "No such file or directory");
    EXPECT_FALSE(file.open(path() + "/"));
    EXPECT_EQ(file.error(), "Is a directory");
}

TEST_F(IGOutputFile, ReportsAFileThatCannotGrow) {
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = before;
    small.rlim_cur = 1000;
    auto file = std::make_unique<OutputFile>();
    EXPECT_TRUE(file->open(path("page")));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool written = file->write(std::string(200000, 'x'));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_FALSE(written);
    EXPECT_EQ(file->error(), "File too large");
    file.reset();
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(IGOutputFile, SaysWhyAFileIsNotOnTheDisk) {
    OutputFile file;
    ASSERT_TRUE(file.open(path("page")));
    fsync_error = EIO;
    EXPECT_FALSE(file.commit());
    fsync_error = 0;
    EXPECT_EQ(file.error(), "Input/output error");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(IGOutputFile, TakesFilesThatCannotBeSynchronised) {
    OutputFile file;
    ASSERT_TRUE(file.open(path("page")));
    fsync_error = EINVAL;
    EXPECT_TRUE(file.commit());
    fsync_error = 0;
}

TEST_F(IGOutputFile, MakesAFileInAnOpenDirectoryWhereverItsNameLeadsThen) {
    std::filesystem::create_directory(path("one"));
    const FdGuard directory(::open(path("one").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::filesystem::rename(path("one"), path("two"));
    OutputFile file;
    ASSERT_TRUE(file.openIn(directory.get(), "page"));
    EXPECT_TRUE(file.commit());
    EXPECT_TRUE(std::filesystem::exists(path("two/page")));
}

TEST_F(IGOutputFile, GivesAFileItsNameWithoutProc) {
    const std::string place = path("place");
    std::filesystem::create_directory(place);
    const WithoutProc without_proc(path("empty"));
    {
        OutputFile file;
        ASSERT_TRUE(file.open(place + "/page")) << file.error();
        EXPECT_TRUE(std::filesystem::exists(place + "/" + temporaryName()));
        EXPECT_TRUE(file.write("text"));
        ASSERT_TRUE(file.commit()) << file.error();
        EXPECT_EQ(readText(place + "/page"), "text");
        OutputFile other;
        ASSERT_TRUE(other.open(place + "/other"));
    }
    {
        OutputFile late;
        ASSERT_TRUE(late.open(place + "/late"));
        writeText(place + "/late", "mine");
        EXPECT_FALSE(late.commit());
        EXPECT_EQ(late.error(), "File exists");
        EXPECT_EQ(readText(place + "/late"), "mine");
    }
    EXPECT_FALSE(std::filesystem::exists(place + "/" + temporaryName()));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 2);
}

TEST_F(IGOutputFile, LeavesNoTemporaryNameIfASignalEndsTheProgram) {
    const WithoutProc without_proc(path("empty"));
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            std::signal(signal, SIG_DFL);
            OutputFile one;
            OutputFile two;
            const bool opened = one.open(path("one")) && two.open(path("two")) &&
                                std::filesystem::exists(path(".one." + std::to_string(::getpid())));
            ::raise(opened ? signal : SIGKILL);
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_THAT(names(), ElementsAre("empty"));
    }
}

TEST_F(IGOutputFile, DoesNotEndByASignalThatIsIgnored) {
    const auto former = std::signal(SIGHUP, SIG_IGN);
    {
        const WithoutProc without_proc(path("empty"));
        OutputFile file;
        ASSERT_TRUE(file.open(path("page")));
        ::raise(SIGHUP);
        EXPECT_TRUE(file.commit()) << file.error();
    }
    EXPECT_TRUE(std::filesystem::exists(path("page")));
    std::signal(SIGHUP, former);
}

TEST_F(IGOutputFile, DoesNotTouchAFileOfAnotherAfterItsOwnIsMade) {
    const WithoutProc without_proc(path("empty"));
    const pid_t pid = ::fork();
    if (pid == 0) {
        OutputFile file;
        const bool made = file.open(path("page")) && file.commit();
        ::unlink(path(temporaryName()).c_str());
        {
            OutputFile gone;
            static_cast<void>(gone.open(path("gone")));
        }
        writeText(path(".gone." + std::to_string(::getpid())), "another's");
        ::raise(made ? SIGTERM : SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_TRUE(std::filesystem::exists(path(".gone." + std::to_string(pid))));
    EXPECT_TRUE(std::filesystem::exists(path("page")));
}

}  // namespace
