#include "common/file/IGCmnFile.h"

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>

#include "../../support/file_fixture.h"

namespace {

namespace fs = std::filesystem;

// Making directories

TEST_F(IGCmnFile, MakesADirectoryForAllUsersUnderEveryUmask) {
    EXPECT_EQ(IgCmnFileMkdir(path("new").c_str()), 0);
    EXPECT_EQ(modeOf(path("new")), 0777U);
    EXPECT_EQ(umaskNow(), 027U);
}

TEST_F(IGCmnFile, ReportsADirectoryThatCannotBeMade) {
    const std::string taken = path();
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileMkdir(taken.c_str()), 1); }),
              failure("mkdir", EEXIST, "File exists", taken));
    const std::string deep = path("a/b");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileMkdir(deep.c_str()), 1); }),
              failure("mkdir", ENOENT, "No such file or directory", deep));
    EXPECT_EQ(umaskNow(), 027U);
}

TEST_F(IGCmnFile, MakesTheDirectoriesOfAPathUpToItsLastSlash) {
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c").c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b")));
    EXPECT_FALSE(fs::exists(path("a/b/c")));
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c/").c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b/c")));
    EXPECT_EQ(modeOf(path("a/b/c")), 0777U);
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c/").c_str()), 0) << "nothing left to make";
}

TEST_F(IGCmnFile, SkipsEmptyComponentsOfAPathToMake) {
    EXPECT_EQ(IgCmnFileCreateDirAllPath(("//" + path("a///b//")).c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b")));
    EXPECT_EQ(IgCmnFileCreateDirAllPath("/"), 0);
    EXPECT_EQ(IgCmnFileCreateDirAllPath("/name"), 0);
    EXPECT_FALSE(fs::exists("/name"));
}

TEST_F(IGCmnFile, MakesDirectoriesOfAbsolutePathsOnly) {
    EXPECT_EQ(reported([] {
                  EXPECT_EQ(IgCmnFileCreateDirAllPath("a/b/"), -1);
                  EXPECT_EQ(IgCmnFileCreateDirAllPath(""), -1);
              }),
              "");
    EXPECT_FALSE(fs::exists("a"));
}

TEST_F(IGCmnFile, StopsAtTheFirstDirectoryThatCannotBeMade) {
    writeText(path("file"), "");
    const std::string deep = path("file/b/c/");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileCreateDirAllPath(deep.c_str()), -1); }),
              failure("mkdir", EEXIST, "File exists", path("file")));
}

// Current directory

TEST_F(IGCmnFile, ChangesTheCurrentDirectory) {
    EXPECT_EQ(IgCmnFileChdir(path().c_str()), 0);
    EXPECT_EQ(fs::current_path(), path());
    fs::current_path("/");
}

TEST_F(IGCmnFile, ReportsADirectoryThatCannotBeEntered) {
    const std::string missing = path("missing");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileChdir(missing.c_str()), -1); }),
              failure("chdir", ENOENT, "No such file or directory", missing));
}

TEST(IGCmnFileDeathTest, AssertsPaths) {
    EXPECT_DEATH(IgCmnFileMkdir(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileChdir(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileCreateDirAllPath(nullptr), nullOf("`dirpath"));
}

}  // namespace
