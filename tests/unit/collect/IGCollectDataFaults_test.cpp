// Attributes that cannot be copied. This file replaces the calls that copy them: they fail for one
// path when a test requests it.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "../../support/collect_fixture.h"
#include "collect/IGCollectData.h"
#include "collect/IGDestination.h"
#include "common/report/IGCmnMessage.h"

namespace {

// The call that fails, and its path.
struct Failing {
    std::string call;
    std::string path;
};
Failing failing;

bool fails(const std::string& call, const std::string& path) {
    if (failing.call != call || failing.path != path) {
        return false;
    }
    errno = EPERM;
    return true;
}

bool failsFor(const std::string& call, int fd) {
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return !failing.call.empty() && fails(call, std::filesystem::read_symlink(link).string());
}

}  // namespace

extern "C" int fchmod(int fd, mode_t mode) noexcept {
    return failsFor("chmod", fd) ? -1 : static_cast<int>(::syscall(SYS_fchmod, fd, mode));
}

extern "C" int fchown(int fd, uid_t owner, gid_t group) noexcept {
    return failsFor("chown", fd) ? -1 : static_cast<int>(::syscall(SYS_fchown, fd, owner, group));
}

extern "C" int futimens(int fd, const struct timespec times[2]) noexcept {
    return failsFor("utime", fd)
               ? -1
               : static_cast<int>(::syscall(SYS_utimensat, fd, nullptr, times, 0));
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    return fails("mkdir", path) ? -1
                                : static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

extern "C" int stat(const char* path, struct stat* st) noexcept {
    return fails("stat", path) ? -1 : ::fstatat(AT_FDCWD, path, st, 0);
}

namespace {

class IGCollectDataFaults : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        IgCmnMsgSetMode(MSGMODE_COLLECTING);
        source_ = path("source");
        std::filesystem::create_directories(source_ + "/below/empty");
        writeText(source_ + "/below/file", "x");
        for (const char* name : {"/below/empty", "/below", ""}) {
            ASSERT_EQ(::chmod((source_ + name).c_str(), 0711), 0);
            ASSERT_EQ(::chown((source_ + name).c_str(), 3, 4), 0);
        }
    }
    void TearDown() override {
        failing = {};
        Destination::forgetComplete();
        CollectTest::TearDown();
    }

    std::string copy(const std::string& name) const { return data_dir_ + source_ + name; }

    // Collects the tree or one file of it while a call fails; returns the reports of that.
    std::string collectWhile(const std::string& call, const std::string& where,
                             const std::string& name) {
        failing = {call, where};
        std::string path_name = source_ + name;
        data_block block{};
        block.path_name = path_name.data();
        EXPECT_EQ(IgCollectData(pool(), root_, &block), 0);
        failing = {};
        const std::string log = takeLog();
        const std::size_t begin = log.find("ZEPA140-W");
        return begin == std::string::npos ? "" : log.substr(begin, log.find("ZEPA210-I") - begin);
    }

    static std::string attributes(const std::string& file) {
        struct stat st = {};
        EXPECT_EQ(::stat(file.c_str(), &st), 0);
        return std::to_string(st.st_mode & 07777) + " " + std::to_string(st.st_uid);
    }

    static std::string times(const std::string& file) {
        struct stat st = {};
        EXPECT_EQ(::stat(file.c_str(), &st), 0);
        return std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
    }

    std::string source_;
};

constexpr const char* AS_THE_SOURCE = "457 3";  // 0711
constexpr const char* AS_MADE = "511 0";        // 0777

TEST_F(IGCollectDataFaults, ReportsADirectoryWhoseAttributesCannotBeSetAndContinues) {
    for (const char* call : {"chmod", "chown", "utime"}) {
        SCOPED_TRACE(call);
        EXPECT_EQ(
            collectWhile(call, copy("/below"), ""),
            trio(call, EPERM, "Operation not permitted", copy("/below"), "IGAttributes", true));
        EXPECT_EQ(attributes(copy("/below/empty")), AS_THE_SOURCE);
        EXPECT_EQ(attributes(copy("")), AS_THE_SOURCE);
        // The step ends for that directory with the call that failed.
        EXPECT_EQ(attributes(copy("/below")), call == std::string("chmod")   ? AS_MADE
                                              : call == std::string("chown") ? "457 0"
                                                                             : AS_THE_SOURCE);
        std::filesystem::remove_all(copy(""));
    }
}

TEST_F(IGCollectDataFaults, ReportsAnAncestorWhoseAttributesCannotBeSetAndContinues) {
    for (const char* call : {"chmod", "chown", "utime"}) {
        SCOPED_TRACE(call);
        EXPECT_EQ(
            collectWhile(call, copy("/below"), "/below/file"),
            trio(call, EPERM, "Operation not permitted", copy("/below"), "IGAttributes", true));
        EXPECT_EQ(attributes(copy("")), AS_THE_SOURCE);
        std::filesystem::remove_all(copy(""));
    }
}

TEST_F(IGCollectDataFaults, ReportsAnAncestorThatCannotBeReadAndContinues) {
    EXPECT_EQ(
        collectWhile("stat", source_ + "/below", "/below/file"),
        trio("stat", EPERM, "Operation not permitted", source_ + "/below", "IGCollectData", true));
    EXPECT_EQ(attributes(copy("/below")), AS_MADE);
    EXPECT_EQ(attributes(copy("")), AS_THE_SOURCE);
}

// The attributes are not taken as set: the next item in the directory tries again.
TEST_F(IGCollectDataFaults, ReportsAnAncestorForEveryItemUntilItsAttributesAreSet) {
    for (const char* name : {"/below/second", "/below/third", "/below/fourth"}) {
        writeText(source_ + name, "x");
    }
    for (const char* above : {"/below", ""}) {
        for (const char* call : {"chmod", "chown", "utime"}) {
            SCOPED_TRACE(std::string(call) + " of \"" + above + "\"");
            const std::string report =
                trio(call, EPERM, "Operation not permitted", copy(above), "IGAttributes", true);
            EXPECT_EQ(collectWhile(call, copy(above), "/below/file"), report);
            EXPECT_EQ(collectWhile(call, copy(above), "/below/second"), report);
            EXPECT_EQ(collectWhile("", "", "/below/third"), "");
            EXPECT_EQ(attributes(copy(above)), AS_THE_SOURCE);
            EXPECT_EQ(times(copy(above)), times(source_ + above));
            std::filesystem::remove_all(copy(""));
            Destination::forgetComplete();
        }
    }
}

TEST_F(IGCollectDataFaults, ReportsAnAncestorThatCannotBeReadForEveryItem) {
    writeText(source_ + "/below/second", "x");
    for (const char* name : {"/below/file", "/below/second"}) {
        EXPECT_EQ(collectWhile("stat", source_, name),
                  trio("stat", EPERM, "Operation not permitted", source_, "IGCollectData", true));
    }
    EXPECT_EQ(attributes(copy("/below")), AS_THE_SOURCE);
    EXPECT_EQ(attributes(copy("")), AS_MADE);
}

TEST_F(IGCollectDataFaults, SetsTheTimeOfAnAncestorAfterAnItemWhoseDirectoryCannotBeMade) {
    std::filesystem::create_directories(source_ + "/other/deep");
    writeText(source_ + "/other/deep/file", "x");
    writeText(source_ + "/below/second", "x");
    EXPECT_EQ(collectWhile("", "", "/below/file"), "");
    EXPECT_EQ(
        collectWhile("mkdir", copy("/other/deep"), "/other/deep/file"),
        trio("mkdir", EPERM, "Operation not permitted", copy("/other/deep"), "IGCmnFile", true));
    ASSERT_TRUE(std::filesystem::exists(copy("/other")));
    EXPECT_EQ(collectWhile("", "", "/below/second"), "");
    EXPECT_EQ(times(copy("")), times(source_));
}

}  // namespace
