#include "common/base/IGCmnSystem.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "common/base/IGOpen.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// The content of a buffer that has room for the first part of the path but not for all of it.
struct Partial {
    std::size_t smallest;  // of the buffer, in bytes
    std::string text;
};

struct PathRow {
    const char* name;
    std::size_t (*get)(char* buf, std::size_t size);
    std::string path;
    std::size_t smallest;  // buffer that the path needs, in bytes
    std::vector<Partial> partials;
};

const std::string TOP = "/opt/norvale/quendil";
const std::string VAR = "/var/opt/norvale/quendil";
const std::string ETC = "/etc/opt/norvale/quendil";

const std::vector<PathRow> ROWS{
    {"TopDir", IgCmnGetKestrumTopDir, TOP, 22, {}},
    {"BinDir", IgCmnGetKestrumBinDir, TOP + "/bin", 26, {{22, TOP}}},
    {"ToolDir", IgCmnGetKestrumToolDir, TOP + "/tool", 27, {{22, TOP}}},
    {"TemplateDir", IgCmnGetKestrumTemplateDir, TOP + "/template", 31, {{22, TOP}}},
    {"OutputDir", IgCmnGetKestrumOutputDir, VAR + "/data", 30, {{26, VAR}}},
    {"LogDir", IgCmnGetKestrumLogDir, VAR + "/log", 29, {{26, VAR}}},
    {"ConfigDir", IgCmnGetKestrumConfigDir, ETC + "/config", 33, {{26, ETC}}},
    {"PtnDir", IgCmnGetKestrumPtnDir, ETC + "/pattern", 34, {{26, ETC}}},
    {"ConfigFile",
     IgCmnGetKestrumConfigFile,
     ETC + "/config/quendil_conf",
     46,
     {{26, ETC}, {33, ETC + "/config"}}},
};

class IGCmnSystem : public RunTest {};

class FixedPath : public IGCmnSystem, public ::testing::WithParamInterface<PathRow> {};

TEST_P(FixedPath, FitsItsBufferOrReturnsNothing) {
    const PathRow& row = GetParam();
    for (std::size_t size = 0; size <= 64; ++size) {
        SCOPED_TRACE(size);
        std::array<char, 80> buffer{};
        buffer.fill('#');
        std::string expected(buffer.size(), '#');
        std::string written;
        for (const Partial& partial : row.partials) {
            written = size >= partial.smallest ? partial.text : written;
        }
        written = size >= row.smallest ? row.path : written;
        if (!written.empty()) {
            expected.replace(0, written.size() + 1, written + '\0');
        }
        EXPECT_EQ(row.get(buffer.data(), size), size >= row.smallest ? row.path.size() + 1 : 0);
        EXPECT_EQ(std::string(buffer.data(), written.size()), written);
        EXPECT_EQ(std::string(buffer.data() + size, buffer.size() - size),
                  std::string(buffer.size() - size, '#'))
            << "nothing is written behind the buffer";
        if (written.empty()) {
            EXPECT_EQ(std::string(buffer.data(), buffer.size()), expected) << "untouched";
        } else {
            EXPECT_EQ(buffer[written.size()], '\0');
        }
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_P(FixedPath, FitsTheBuffersThatCallersPass) {
    const PathRow& row = GetParam();
    std::array<char, 4097> buffer{};
    for (const std::size_t size : {std::size_t{4096}, buffer.size()}) {
        EXPECT_EQ(row.get(buffer.data(), size), row.path.size() + 1);
        EXPECT_EQ(buffer.data(), row.path);
    }
}

TEST_P(FixedPath, AssertsItsBuffer) {
    EXPECT_DEATH(GetParam().get(nullptr, 4096), "Assertion `buf != \\(\\(void \\*\\)0\\)");
}

INSTANTIATE_TEST_SUITE_P(IGCmnSystem, FixedPath, ::testing::ValuesIn(ROWS),
                         [](const ::testing::TestParamInfo<PathRow>& row) {
                             return std::string(row.param.name);
                         });

TEST_F(IGCmnSystem, ReturnsTheLengthOfThePathAndOne) {
    // The numbers that existing callers rely on.
    std::array<char, 4096> buffer{};
    std::vector<std::size_t> results;
    for (const PathRow& row : ROWS) {
        results.push_back(row.get(buffer.data(), buffer.size()));
    }
    EXPECT_THAT(results, ::testing::ElementsAre(21, 25, 26, 30, 30, 29, 32, 33, 45));
}

TEST_F(IGCmnSystem, NeedsTheTreeOfVariableDataForItsDirectories) {
    Capture err(stderr);
    std::array<char, 4096> buffer{};
    fs::rename(VAR, VAR + ".away");
    const std::size_t output = IgCmnGetKestrumOutputDir(buffer.data(), buffer.size());
    const std::string left = buffer.data();
    const std::size_t log = IgCmnGetKestrumLogDir(buffer.data(), buffer.size());
    const std::size_t too_small = IgCmnGetKestrumLogDir(buffer.data(), 25);
    fs::rename(VAR + ".away", VAR);
    EXPECT_EQ(output, 0U);
    EXPECT_EQ(log, 0U);
    EXPECT_EQ(too_small, 0U) << "and that is not worth a message";
    EXPECT_EQ(left, VAR);
    const std::string missing =
        "ZEPA104-E:The specified directory(/var/opt/norvale/quendil) does not exist.\n";
    EXPECT_EQ(err.take(), missing + missing);
}

TEST_F(IGCmnSystem, ChecksNoOtherDirectory) {
    std::array<char, 4096> buffer{};
    fs::rename(LOG_DIR, LOG_DIR + std::string(".away"));
    const std::size_t log = IgCmnGetKestrumLogDir(buffer.data(), buffer.size());
    fs::rename(LOG_DIR + std::string(".away"), LOG_DIR);
    EXPECT_EQ(log, 29U);
    for (const std::string& tree : {TOP, ETC}) {
        fs::rename(tree, tree + ".away");
    }
    const std::size_t bin = IgCmnGetKestrumBinDir(buffer.data(), buffer.size());
    const std::size_t file = IgCmnGetKestrumConfigFile(buffer.data(), buffer.size());
    for (const std::string& tree : {TOP, ETC}) {
        fs::rename(tree + ".away", tree);
    }
    EXPECT_EQ(bin, 25U);
    EXPECT_EQ(file, 45U);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnSystem, JoinsADirectoryAndAFileName) {
    std::array<char, 4096> buffer{};
    EXPECT_EQ(IgCmnGetKestrumFile(IgCmnGetKestrumBinDir, RUN_LOCK_NAME, buffer.data(), 4096), 38U);
    EXPECT_STREQ(buffer.data(), "/opt/norvale/quendil/bin/.quendil.lck");
    EXPECT_EQ(IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, RUN_LOG_NAME, buffer.data(), 20), 0U);
    const auto no_directory = [](char*, std::size_t) -> std::size_t { return 0; };
    EXPECT_EQ(IgCmnGetKestrumFile(no_directory, "x", buffer.data(), 4096), 0U);
}

TEST_F(IGCmnSystem, RecognisesALockFileUnderAnyName) {
    TempDir dir;
    for (const char* name : {RUN_LOCK_NAME, HISTORY_LOCK_NAME}) {
        const std::string lock = BIN_DIR + "/"s + name;
        const std::string other = BIN_DIR + "/other"s;
        writeText(lock, "");
        fs::create_hard_link(lock, other);
        fs::create_symlink(lock, dir.path(name));
        for (const std::string& path : {lock, other, dir.path(name)}) {
            struct stat st = {};
            ASSERT_EQ(::stat(path.c_str(), &st), 0);
            EXPECT_TRUE(isLockFile(st)) << path;
        }
        fs::remove(lock);
        struct stat st = {};
        ASSERT_EQ(::stat(other.c_str(), &st), 0);
        EXPECT_FALSE(isLockFile(st)) << "a lock file of that name is no longer there";
        fs::remove(other);
    }
}

TEST_F(IGCmnSystem, NamesTheFilesInItsDirectories) {
    EXPECT_STREQ(RUN_LOG_NAME, "quendil.log");
    EXPECT_STREQ(OLD_RUN_LOG_NAME, "quendil_old.log");
    EXPECT_STREQ(HISTORY_NAME, "quendil_hist.log");
    EXPECT_STREQ(OLD_HISTORY_NAME, "quendil_hist_old.log");
    EXPECT_STREQ(TOOL_STDERR_NAME, "quendil_stderr.log");
    EXPECT_STREQ(RUN_LOCK_NAME, ".quendil.lck");
    EXPECT_STREQ(HISTORY_LOCK_NAME, ".quendil_hist.lck");
}

}  // namespace
