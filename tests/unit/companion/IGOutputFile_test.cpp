#include "companion/IGOutputFile.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "../../support/file_fixture.h"

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

}  // namespace
