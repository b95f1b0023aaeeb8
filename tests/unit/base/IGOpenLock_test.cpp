#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>

#include "../../support/run_fixture.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"

namespace {

namespace fs = std::filesystem;

class LockFiles : public RunTest {
  protected:
    void TearDown() override {
        noteLockFile(LOCK_RUN, -1);
        noteLockFile(LOCK_HISTORY, -1);
        for (const char* name : {RUN, HISTORY}) {
            fs::remove(bin(name));
        }
        RunTest::TearDown();
    }

    static constexpr const char* RUN = ".quendil.lck";
    static constexpr const char* HISTORY = ".quendil_hist.lck";
    static std::string bin(const std::string& name) { return std::string(BIN_DIR) + "/" + name; }

    static struct stat make(const std::string& path) {
        writeText(path, "");
        return statusOf(path);
    }
    static struct stat statusOf(const std::string& path) {
        struct stat st = {};
        EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
        return st;
    }
    static int openLock(const std::string& path) {
        return ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    }

    TempDir dir_{"/opt"};
};

TEST_F(LockFiles, AreKnownByTheirPathsUntilTheyAreOpened) {
    const struct stat other = make(dir_.path("other"));
    EXPECT_FALSE(isLockFile(other));
    for (const char* name : {RUN, HISTORY}) {
        const struct stat lock = make(bin(name));
        EXPECT_TRUE(isLockFile(lock)) << name;
        EXPECT_FALSE(isLockFile(other));
        fs::remove(bin(name));
        EXPECT_FALSE(isLockFile(lock)) << name;
    }
}

TEST_F(LockFiles, AreKnownUnderAnyNameWhileTheyAreOpen) {
    for (const auto& [which, name] :
         {std::pair<LockFile, const char*>{LOCK_RUN, RUN}, {LOCK_HISTORY, HISTORY}}) {
        SCOPED_TRACE(name);
        const struct stat lock = make(bin(name));
        const FdGuard fd(openLock(bin(name)));
        noteLockFile(which, fd.get());
        EXPECT_TRUE(isLockFile(lock));
        fs::create_hard_link(bin(name), dir_.path("alias"));
        EXPECT_TRUE(isLockFile(statusOf(dir_.path("alias"))));
        fs::rename(bin(name), dir_.path("moved"));
        EXPECT_TRUE(isLockFile(statusOf(dir_.path("moved"))));
        fs::remove(dir_.path("moved"));
        EXPECT_TRUE(isLockFile(statusOf(dir_.path("alias"))));
        fs::remove(dir_.path("alias"));
        EXPECT_TRUE(isLockFile(lock)) << "closing any descriptor would drop the lock";
    }
}

TEST_F(LockFiles, AreNotTheFilesThatTakeTheirNames) {
    make(bin(RUN));
    const FdGuard fd(openLock(bin(RUN)));
    noteLockFile(LOCK_RUN, fd.get());
    fs::rename(bin(RUN), bin("away"));
    EXPECT_FALSE(isLockFile(make(bin(RUN))));
    EXPECT_TRUE(isLockFile(statusOf(bin("away"))));
    fs::remove(bin("away"));
}

TEST_F(LockFiles, AreForgottenWhenTheyAreClosedForGood) {
    const struct stat lock = make(bin(RUN));
    {
        const FdGuard fd(openLock(bin(RUN)));
        noteLockFile(LOCK_RUN, fd.get());
    }
    fs::remove(bin(RUN));
    EXPECT_TRUE(isLockFile(lock));
    noteLockFile(LOCK_RUN, -1);
    EXPECT_FALSE(isLockFile(lock));
    EXPECT_TRUE(isLockFile(make(bin(RUN)))) << "by its path again";
}

TEST_F(LockFiles, DoNotHideOneAnother) {
    const struct stat run = make(bin(RUN));
    const struct stat history = make(bin(HISTORY));
    const FdGuard fd(openLock(bin(HISTORY)));
    noteLockFile(LOCK_HISTORY, fd.get());
    EXPECT_TRUE(isLockFile(run));
    EXPECT_TRUE(isLockFile(history));
    noteLockFile(LOCK_RUN, 9999);  // no descriptor
    EXPECT_TRUE(isLockFile(run));
}

TEST_F(LockFiles, AreNotReadAsStreams) {
    make(dir_.path("lock"));
    const FdGuard fd(openLock(dir_.path("lock")));
    noteLockFile(LOCK_RUN, fd.get());
    fs::create_hard_link(dir_.path("lock"), dir_.path("alias"));
    EXPECT_EQ(openStream(dir_.path("alias").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, EACCES);
    noteLockFile(LOCK_RUN, -1);
    const FileGuard stream(openStream(dir_.path("alias").c_str(), "r"));
    EXPECT_TRUE(stream);
}

}  // namespace
