#include "ini/IGIniCheck.h"

#include <sys/stat.h>

#include <filesystem>

#include "../../support/file_fixture.h"

namespace {

namespace fs = std::filesystem;

class IGIniCheck : public FileTest {};

TEST_F(IGIniCheck, ComparesTheModeWithTheRequestedBits) {
    struct Case {
        mode_t mode;
        std::uint16_t bits;
        int file;
        int directory;
    };
    for (const Case& c : {Case{0600, 0400, 1, 0}, Case{0600, 0200, 1, 0}, Case{0600, 0100, 0, 0},
                          Case{0600, 0600, 1, 0}, Case{0400, 0600, 0, 0}, Case{0700, 0200, 1, 1},
                          Case{0500, 0200, 0, 0}, Case{0100, 0000, 1, 1}, Case{0000, 0000, 1, 0},
                          Case{0077, 0200, 0, 0}, Case{0077, 0022, 1, 0}, Case{0755, 0055, 1, 1}}) {
        SCOPED_TRACE(::testing::Message() << std::oct << c.mode << " asked for " << c.bits);
        writeText(path("file"), "");
        fs::create_directory(path("directory"));
        ASSERT_EQ(::chmod(path("file").c_str(), c.mode), 0);
        ASSERT_EQ(::chmod(path("directory").c_str(), c.mode), 0);
        EXPECT_EQ(IgCmnFileCheckMode(path("file").c_str(), c.bits), c.file);
        EXPECT_EQ(IgCmnFileCheckMode(path("directory").c_str(), c.bits), c.directory);
    }
    EXPECT_EQ(IgCmnFileCheckMode(path("missing").c_str(), 0), 0);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGIniCheck, KnowsAbsolutePaths) {
    struct Case {
        const char* path;
        int ignoring_quotes;
    };
    for (const Case& c : {
             Case{"/usr/bin/x", 1},
             Case{"/", 1},
             Case{"bin/x", 0},
             Case{"", 0},
             Case{"./x", 0},
             Case{" /x", 0},
             Case{"%HOST%", 1},
             Case{"%", 1},
             Case{"\"/usr/bin/x\"", 1},
             Case{"\"\"\"/x", 1},
             Case{"\"%d%/x\"", 1},
             Case{"\"bin/x\"", 0},
             Case{"\"", 0},
             Case{"'/x'", 0},
             Case{"\" /x\"", 0},
         }) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(IgCmnIsAbsPathIgnoreDQ(c.path), c.ignoring_quotes);
    }
}

TEST(IGIniCheckDeathTest, AssertsPaths) {
    EXPECT_DEATH(IgCmnFileCheckMode(nullptr, 0), nullOf("`path"));
    EXPECT_DEATH(IgCmnIsAbsPathIgnoreDQ(nullptr), nullOf("path"));
}

}  // namespace
