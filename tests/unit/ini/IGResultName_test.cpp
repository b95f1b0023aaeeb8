#include "ini/IGResultName.h"

#include <filesystem>
#include <string>

#include "../../support/file_fixture.h"
#include "common/base/IGRunState.h"
#include "ini/IGIniTable.h"

namespace {

namespace fs = std::filesystem;

class IGResultName : public FileTest {
  protected:
    IGResultName() {
        root_.output_dir = directory_.data();
        root_.output_name = name_.data();
        root_.output_file = name_.data();
    }

    std::string directory_ = path("base");
    std::string name_ = "host_261123001724";
    std::string absolute_ = path("elsewhere");
    root_tbl root_{};
};

TEST_F(IGResultName, TheResultBelongsToTheReturnCode) {
    const std::string output = directory_ + "/" + name_;
    EXPECT_EQ(resultPath(pool(), root_, RETCODE_DIRECTORY), output);
    EXPECT_EQ(resultPath(pool(), root_, RETCODE_ARCHIVE), output + ".tar");
    root_.output_file = absolute_.data();
    EXPECT_EQ(resultPath(pool(), root_, RETCODE_DIRECTORY), output);
    EXPECT_EQ(resultPath(pool(), root_, RETCODE_ARCHIVE), absolute_ + ".tar");
    EXPECT_EQ(resultPath(pool(), root_, RETCODE_COMPRESSED), absolute_);
}

TEST_F(IGResultName, AnArchiveWithoutADirectoryIsInTheBaseDirectory) {
    EXPECT_EQ(archiveBase(pool(), root_), directory_ + "/" + name_);
    root_.output_file = absolute_.data();
    EXPECT_EQ(archiveBase(pool(), root_), absolute_);
    EXPECT_EQ(outputDirectory(pool(), root_), directory_ + "/" + name_);
}

TEST_F(IGResultName, GzipAppendsItsSuffixToTars) {
    EXPECT_STREQ(tarName(pool(), "/d/x"), "/d/x.tar");
    EXPECT_STREQ(compressedName(pool(), "/d/x"), "/d/x.tar.gz");
}

TEST_F(IGResultName, BothNamesOfTheArchiveMustBeFree) {
    const std::string base = path("x");
    EXPECT_EQ(resultNamesTaken(pool(), base.c_str()), 0);
    writeText(base, "");  // the name alone is none of them
    writeText(base + ".gz", "");
    EXPECT_EQ(resultNamesTaken(pool(), base.c_str()), 0);
    EXPECT_EQ(takeLog(), "");

    Capture errors(stderr);
    fs::create_symlink("nowhere", base + ".tar.gz");
    EXPECT_EQ(resultNamesTaken(pool(), base.c_str()), 1);
    writeText(base + ".tar", "");
    EXPECT_EQ(resultNamesTaken(pool(), base.c_str()), 1);
    const std::string both = "ZEPA109-E:The specified file(" + base +
                             ".tar.gz) already exists.\n"
                             "ZEPA109-E:The specified file(" +
                             base + ".tar) already exists.\n";
    EXPECT_EQ(errors.take(), both);
    EXPECT_EQ(takeLog(), both);
}

}  // namespace
