#include "common/report/IGCmnLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/mounted.h"
#include "../../support/run_fixture.h"
#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnMessageState.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

const std::string LOG = LOG_DIR + "/quendil.log"s;
const std::string OLD_LOG = LOG_DIR + "/quendil_old.log"s;
const std::string HIST = LOG_DIR + "/quendil_hist.log"s;
const std::string OLD_HIST = LOG_DIR + "/quendil_hist_old.log"s;
const std::string HIST_LOCK = BIN_DIR + "/.quendil_hist.lck"s;
const std::string VAR_TREE = "/var/opt/norvale/quendil";

constexpr const char* TIME = "[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";

// Masks the times, which the clock determines.
std::string timeless(const std::string& text) {
    return replaced(text, TIME, "TIME");
}

mode_t modeOf(const std::string& path) {
    struct stat st = {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

std::string withoutPlace(const std::string& report) {
    return report.substr(0, report.rfind("ZEPA1"));
}

/// A machine whose directories hold no log yet, and a run that has not opened one.
class LogTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* directory : {LOG_DIR, BIN_DIR}) {
            for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
                fs::remove_all(entry);
            }
        }
        std::setlocale(LC_ALL, "C.utf8");
        ::umask(022);
        closeLog();
        resetRunState();
    }
    void TearDown() override {
        closeLog();
        resetRunState();
        std::setlocale(LC_ALL, "C");
    }
    static void closeLog() {
        if (msg_state.log != nullptr) {
            std::fclose(msg_state.log);
        }
        msg_state = MsgState{};
    }
    static std::string umaskNow() {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return std::to_string(mask);
    }
    /// What the body writes to the standard error, places masked.
    template <typename Body>
    static std::string errors(Body body) {
        Capture err(stderr);
        body();
        return masked(err.take());
    }
};

class RunLog : public LogTest {};

TEST_F(RunLog, BeginsWithVersionAndStartTime) {
    EXPECT_EQ(IgCmnMsgLogOpened(), 0);
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    EXPECT_EQ(IgCmnMsgLogOpened(), 1);
    EXPECT_EQ(timeless(readText(LOG)), "ZEPA201-I:quendil [Ver. 01-02] started at TIME.\n");
    EXPECT_STREQ(msg_state.log_path.data(), LOG.c_str());
    EXPECT_FALSE(fs::exists(OLD_LOG));
}

TEST_F(RunLog, IsPrivateToItsOwnerAndKeepsTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        ::umask(mask);
        ASSERT_EQ(IgCmnMsgOpenLog(), 0);
        EXPECT_EQ(modeOf(LOG), 0600U);
        EXPECT_EQ(umaskNow(), std::to_string(mask));
        closeLog();
    }
    ::umask(022);
}

TEST_F(RunLog, IsNotInheritedByTools) {
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    EXPECT_EQ(::fcntl(::fileno(msg_state.log), F_GETFD), FD_CLOEXEC);
}

TEST_F(RunLog, EndsWithTimeAndReturnCode) {
    for (const int code : {255, 20, 10, 0}) {
        ASSERT_EQ(IgCmnMsgOpenLog(), 0);
        IgMainSetRetCode(code);
        IgCmnMsgCloseLog();
        EXPECT_EQ(timeless(readText(LOG)),
                  "ZEPA201-I:quendil [Ver. 01-02] started at TIME.\n"
                  "ZEPA213-I:quendil ended at TIME. return code = " +
                      std::to_string(code) + ".\n");
        EXPECT_EQ(msg_state.log, nullptr);
        EXPECT_EQ(IgCmnMsgLogOpened(), 1) << "it has been opened in this run";
    }
}

TEST_F(RunLog, ClosesOnceOnly) {
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    IgCmnMsgCloseLog();
    const std::string closed = readText(LOG);
    IgCmnMsgCloseLog();
    EXPECT_EQ(readText(LOG), closed);
}

TEST_F(RunLog, DoesNotCloseWhatIsNotOpen) {
    IgCmnMsgCloseLog();
    EXPECT_FALSE(fs::exists(LOG));
}

TEST_F(RunLog, KeepsExactlyOnePreviousLog) {
    writeText(LOG, "first\n");
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    EXPECT_EQ(readText(OLD_LOG), "first\n");
    closeLog();
    writeText(LOG, "second\n");
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    EXPECT_EQ(readText(OLD_LOG), "second\n");
    EXPECT_EQ(timeless(readText(LOG)), "ZEPA201-I:quendil [Ver. 01-02] started at TIME.\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(LOG_DIR), fs::directory_iterator()), 2);
}

TEST_F(RunLog, KeepsTheOldLogWhenThereIsNoCurrentOne) {
    writeText(OLD_LOG, "old\n");
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    EXPECT_EQ(readText(OLD_LOG), "old\n");
}

TEST_F(RunLog, ReportsAnOldLogThatCannotBeRemoved) {
    writeText(LOG, "current\n");
    fs::create_directories(OLD_LOG + "/full");
    int result = 0;
    EXPECT_EQ(errors([&] { result = IgCmnMsgOpenLog(); }),
              withoutPlace(trio("remove", ENOTEMPTY, "Directory not empty", OLD_LOG, "")));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(msg_state.log, nullptr);
    EXPECT_EQ(IgCmnMsgLogOpened(), 0);
    EXPECT_EQ(readText(LOG), "current\n");
    EXPECT_EQ(umaskNow(), std::to_string(022));
}

TEST_F(RunLog, ReportsACurrentLogThatCannotBeRenamed) {
    writeText(LOG, "current\n");
    const ReadOnly read_only(LOG_DIR);
    int result = 0;
    EXPECT_EQ(errors([&] { result = IgCmnMsgOpenLog(); }),
              withoutPlace(trio("rename", EROFS, "Read-only file system", LOG, "")));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(msg_state.log, nullptr);
}

TEST_F(RunLog, ReportsALogThatCannotBeCreated) {
    const ReadOnly read_only(LOG_DIR);
    int result = 0;
    EXPECT_EQ(errors([&] { result = IgCmnMsgOpenLog(); }),
              withoutPlace(trio("fopen", EROFS, "Read-only file system", LOG, "")));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(msg_state.log, nullptr);
    EXPECT_EQ(IgCmnMsgLogOpened(), 0);
    EXPECT_EQ(umaskNow(), std::to_string(022));
}

TEST_F(RunLog, NeedsTheTreeOfVariableData) {
    fs::rename(VAR_TREE, VAR_TREE + ".away");
    int result = 0;
    const std::string shown = errors([&] { result = IgCmnMsgOpenLog(); });
    fs::rename(VAR_TREE + ".away", VAR_TREE);
    EXPECT_EQ(shown,
              "ZEPA104-E:The specified directory(/var/opt/norvale/quendil) does not exist.\n");
    EXPECT_EQ(result, -1);
}

TEST_F(RunLog, NeedsItsDirectoryToo) {
    fs::rename(LOG_DIR, LOG_DIR + ".away"s);
    int result = 0;
    const std::string shown = errors([&] { result = IgCmnMsgOpenLog(); });
    fs::rename(LOG_DIR + ".away"s, LOG_DIR);
    EXPECT_EQ(shown, withoutPlace(trio("fopen", ENOENT, "No such file or directory", LOG, "")));
    EXPECT_EQ(result, -1);
}

// Copying a tool's error output

class CopyIntoRunLog : public LogTest {
  protected:
    void SetUp() override {
        LogTest::SetUp();
        ASSERT_EQ(IgCmnMsgOpenLog(), 0);
        start_ = readText(LOG).size();
    }
    int copy(const std::string& content) {
        writeText(dir_.path("text"), content);
        return IgCmnMsgCopyFile(dir_.path("text").c_str());
    }
    std::string gained() { return masked(readText(LOG).substr(start_)); }

    TempDir dir_;
    std::size_t start_ = 0;
};

TEST_F(CopyIntoRunLog, CopiesTheTextUnchanged) {
    const std::string text = "one\n\n two\t%s\r\n\xc3\xa9\n";
    EXPECT_EQ(copy(text), 0);
    EXPECT_EQ(gained(), text);
}

TEST_F(CopyIntoRunLog, TerminatesAnUnterminatedLastLine) {
    EXPECT_EQ(copy("one\ntwo"), 0);
    IgCmnMsg<ZEPA137_W>();
    EXPECT_EQ(gained(), "one\ntwo\nZEPA137-W:Internal error occurred.\n");
}

TEST_F(CopyIntoRunLog, AddsNothingForAnEmptyFile) {
    EXPECT_EQ(copy(""), 0);
    EXPECT_EQ(gained(), "");
}

TEST_F(CopyIntoRunLog, CopiesLinesOfEveryLength) {
    // Around the 1023 bytes that one piece holds, with and without a line feed.
    for (const std::size_t length : {1021U, 1022U, 1023U, 1024U, 2046U, 2047U, 100000U}) {
        for (const char* end : {"", "\n"}) {
            SCOPED_TRACE(length);
            start_ = readText(LOG).size();
            const std::string line(length, 'x');
            EXPECT_EQ(copy(line + end), 0);
            EXPECT_EQ(gained(), line + "\n");
        }
    }
}

TEST_F(CopyIntoRunLog, CopiesTheTextBehindANul) {
    EXPECT_EQ(copy("one\0two\n"s), 0);
    EXPECT_EQ(copy("\0\n"s), 0);
    EXPECT_EQ(gained(), "one\0two\n\0\n"s);
}

TEST_F(CopyIntoRunLog, CopiesAndThenReportsALastLineThatTheLocaleCannotDecode) {
    int result = 0;
    const std::string shown = errors([&] { result = copy("fine\n\xff\xfe"); });
    EXPECT_EQ(result, -1);
    const std::string report =
        "ZEPA113-E:An error occurred during the following system call. system call name = "
        "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide character.\n";
    EXPECT_EQ(shown, report);
    EXPECT_EQ(gained(),
              "fine\n\xff\xfe\n" + report + "ZEPA114-E:source = IGCmnStr, line no = N.\n");
}

TEST_F(CopyIntoRunLog, AcceptsAnUndecodableLineBeforeTheLastOne) {
    EXPECT_EQ(copy("\xff\nfine\n"), 0);
    EXPECT_EQ(gained(), "\xff\nfine\n");
}

TEST_F(CopyIntoRunLog, ChecksOnlyTheLastPiece) {
    // A piece ends with its line or holds 1023 bytes, wherever a block that is read ends.
    struct Case {
        std::size_t before;  // plain bytes, then one that the locale cannot decode
        std::size_t after;   // plain bytes after it
        int result;
    };
    for (const Case& c : {Case{0, 1021, -1}, Case{0, 1022, -1}, Case{0, 1023, 0}, Case{1022, 0, -1},
                          Case{1023, 0, -1}, Case{65535, 500, -1}, Case{65536, 500, -1},
                          Case{65471, 63, 0}, Case{65472, 63, -1}, Case{131071, 900, 0}}) {
        for (const char* end : {"", "\n"}) {
            SCOPED_TRACE(::testing::Message() << c.before << " " << c.after << " " << end);
            start_ = readText(LOG).size();
            const std::string line =
                std::string(c.before, 'x') + "\xff" + std::string(c.after, 'y');
            // With its line feed the line may take one piece more.
            const bool last_piece_is_the_feed =
                end[0] != '\0' && (c.before + 1 + c.after) % 1023 == 0;
            int result = 0;
            errors([&] { result = copy("first\n" + line + end); });
            EXPECT_EQ(result, last_piece_is_the_feed ? 0 : c.result);
            EXPECT_EQ(gained().substr(0, 7 + line.size()), "first\n" + line + "\n");
        }
    }
}

TEST_F(CopyIntoRunLog, EndsEvenIfTheFileGrowsAsFastAsItIsRead) {
    std::fputs((std::string(100000, 'x') + "\n").c_str(), msg_state.log);
    std::fflush(msg_state.log);
    const std::string whole = readText(LOG);
    const ChildResult child = inChild([] {
        const struct rlimit enough = {1 << 20, 1 << 20};
        ::setrlimit(RLIMIT_FSIZE, &enough);
        ::signal(SIGXFSZ, SIG_IGN);
        ::_exit(IgCmnMsgCopyFile(LOG.c_str()));  // the copy can read what it has written
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(readText(LOG), whole + whole);
}

// A run log that a signal interrupts at its first write.
std::string interrupted_log;

ssize_t interruptAndKeep(void* /*cookie*/, const char* bytes, std::size_t length) {
    run_state.signal_no = SIGTERM;
    run_state.interrupted = 1;
    interrupted_log.append(bytes, length);
    return static_cast<ssize_t>(length);
}

TEST_F(CopyIntoRunLog, EndsWithAWholeLineWhenTheRunIsInterrupted) {
    const std::string interruption =
        "ZEPA136-E:quendil was interrupted. signal no = " + std::to_string(SIGTERM) + ".\n";
    const std::string first(65536, 'x');
    writeText(dir_.path("text"), first + std::string(200000, 'y'));
    const ChildResult child = inChild([&] {
        msg_state.log = ::fopencookie(nullptr, "w", {nullptr, interruptAndKeep, nullptr, nullptr});
        const int result = IgCmnMsgCopyFile(dir_.path("text").c_str());
        std::fputs(interrupted_log == first + "\n" + interruption ? "as expected" : "otherwise",
                   stdout);
        std::fflush(stdout);
        ::_exit(result & 0xff);
    });
    EXPECT_EQ(child.status, 255);
    EXPECT_EQ(child.out, "as expected");
    EXPECT_EQ(child.err, interruption);
}

TEST_F(CopyIntoRunLog, ReportsNoErrorInATextThatAnInterruptionTruncated) {
    // A character of two bytes crosses the end of the first block.
    writeText(dir_.path("text"), std::string(65535, 'x') + "\xc3\xa9" + std::string(9999, 'y'));
    const ChildResult child = inChild([&] {
        msg_state.log = ::fopencookie(nullptr, "w", {nullptr, interruptAndKeep, nullptr, nullptr});
        IgCmnMsgCopyFile(dir_.path("text").c_str());
    });
    EXPECT_THAT(child.err, ::testing::Not(::testing::HasSubstr("mbstowcs")));
}

TEST_F(CopyIntoRunLog, DoesNothingWithoutAFile) {
    EXPECT_EQ(errors([&] { EXPECT_EQ(IgCmnMsgCopyFile(dir_.path("missing").c_str()), -1); }), "");
    EXPECT_EQ(gained(), "");
}

TEST_F(CopyIntoRunLog, DoesNothingWithoutAnOpenRunLog) {
    closeLog();
    EXPECT_EQ(errors([&] { EXPECT_EQ(copy("text\n"), -1); }), "");
    EXPECT_EQ(gained(), "");
}

TEST_F(CopyIntoRunLog, ReportsAFileThatCannotBeOpened) {
    writeText(dir_.path("text"), "x\n");
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit none = {0, before.rlim_max};
    int result = 0;
    Capture err(stderr);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    result = IgCmnMsgCopyFile(dir_.path("text").c_str());
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    const std::string report =
        trio("fopen", EMFILE, "Too many open files", dir_.path("text"), "IGCmnLog");
    EXPECT_EQ(err.take(), withoutPlace(report));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(gained(), report);
}

TEST_F(CopyIntoRunLog, ReportsAFileThatCannotBeRead) {
    int result = 0;
    const std::string report = trio("fgets", EISDIR, "Is a directory", dir_.path(), "IGCmnLog");
    EXPECT_EQ(errors([&] { result = IgCmnMsgCopyFile(dir_.path().c_str()); }),
              withoutPlace(report));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(gained(), report);
}

TEST_F(CopyIntoRunLog, LeavesNoFileOpen) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(copy("text\n"), 0);
    errors([&] { EXPECT_EQ(IgCmnMsgCopyFile(dir_.path().c_str()), -1); });
    EXPECT_EQ(openDescriptors(), before);
}

std::string noSpace(const std::string& call) {
    return "ZEPA113-E:An error occurred during the following system call. system call name = " +
           call + ", error code = 28, msg = No space left on device.\n";
}
const std::string LOG_PATH_LINE = "ZEPA151-E:Additional information, path = " + LOG + ".\n";

void breakRunLog(bool unbuffered) {
    std::fclose(msg_state.log);
    msg_state.log = std::fopen("/dev/full", "w");
    if (unbuffered) {
        std::setvbuf(msg_state.log, nullptr, _IONBF, 0);
    }
    run_hooks.end_after_log_failure = [] { return 77; };
}

TEST_F(CopyIntoRunLog, ReportsARunLogThatCannotBeWrittenAndEndsTheRun) {
    writeText(dir_.path("text"), "text\n");
    for (const bool unbuffered : {true, false}) {
        const ChildResult child = inChild([&] {
            breakRunLog(unbuffered);
            IgCmnMsgCopyFile(dir_.path("text").c_str());
        });
        EXPECT_EQ(child.status, 77);
        EXPECT_EQ(child.err, unbuffered ? noSpace("fputs") + noSpace("vfprintf") + LOG_PATH_LINE
                                        : noSpace("fflush") + noSpace("fflush") + LOG_PATH_LINE);
    }
}

TEST(IGCmnLogDeathTest, AssertsThePathToCopy) {
    EXPECT_DEATH(IgCmnMsgCopyFile(nullptr), "path != \\(\\(void \\*\\)0\\)");
}

// The history log

class HistoryLog : public LogTest {
  protected:
    static std::string warning(const std::string& call, int error, const std::string& text,
                               const std::string& path) {
        return trio(call, error, text, path, "IGCmnLog", true);
    }
};

TEST_F(HistoryLog, AppendsEachLine) {
    IgCmnMsgHist(ZEPA301_I, "01-02", "2026/11/15 09:53:18");
    EXPECT_EQ(readText(HIST), "ZEPA301-I:quendil [Ver. 01-02] started at 2026/11/15 09:53:18.\n");
    IgCmnMsgHist(ZEPA302_I, "-g net");
    IgCmnMsgHist(ZEPA303_I, "/data/x.tar.gz");
    IgCmnMsgHist(ZEPA304_I, 0);
    IgCmnMsgHist(ZEPA305_I, "2026/11/15 09:53:20");
    EXPECT_EQ(readText(HIST),
              "ZEPA301-I:quendil [Ver. 01-02] started at 2026/11/15 09:53:18.\n"
              "ZEPA302-I:quendil argument is -g net.\n"
              "ZEPA303-I:Output = /data/x.tar.gz.\n"
              "ZEPA304-I:quendil exit code = 0.\n"
              "ZEPA305-I:quendil ended at 2026/11/15 09:53:20.\n");
}

TEST_F(HistoryLog, AcceptsMessagesOfEveryKindInEveryMode) {
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    errors([] {
        IgCmnMsgHist(ZEPA116_E);
        IgCmnMsgHist(ZEPA113_E, "fcntl", 9, "Bad file descriptor");
        IgCmnMsgHist(ZEPA114_E, "IGMain", 7);
    });
    EXPECT_EQ(readText(HIST),
              "ZEPA116-E:Another quendil is already running. Please try later.\n"
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "fcntl, error code = 9, msg = Bad file descriptor.\n"
              "ZEPA114-E:source = IGMain, line no = 7.\n");
}

TEST_F(HistoryLog, WritesNothingToTheTerminalAndTheRunLog) {
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    const std::string before = readText(LOG);
    Capture out(stdout);
    EXPECT_EQ(errors([] { IgCmnMsgHist(ZEPA304_I, 20); }), "");
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(readText(LOG), before);
}

TEST_F(HistoryLog, IsPrivateToItsOwnerLikeItsLock) {
    ::umask(0);
    IgCmnMsgHist(ZEPA304_I, 0);
    EXPECT_EQ(umaskNow(), "0");
    ::umask(022);
    EXPECT_EQ(modeOf(HIST), 0600U);
    EXPECT_EQ(modeOf(HIST_LOCK), 0600U);
    EXPECT_EQ(fs::file_size(HIST_LOCK), 0U);
}

TEST_F(HistoryLog, StaysClosedBetweenLines) {
    const std::size_t before = openDescriptors();
    IgCmnMsgHist(ZEPA304_I, 0);
    IgCmnMsgHistRotate();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(HistoryLog, IsForTheSuperUserOnly) {
    run_state.super_user = -1;
    writeText(HIST, std::string(20000, 'x'));
    IgCmnMsgHist(ZEPA117_E);
    IgCmnMsgHistRotate();
    EXPECT_EQ(fs::file_size(HIST), 20000U);
    EXPECT_FALSE(fs::exists(OLD_HIST));
    EXPECT_FALSE(fs::exists(HIST_LOCK));
}

TEST_F(HistoryLog, HasNoLineForAnUnknownMessage) {
    IgCmnMsgHist(60);
    IgCmnMsgHist(93);
    EXPECT_FALSE(fs::exists(HIST));
}

TEST_F(HistoryLog, IsMovedFrom9933BytesOn) {
    struct Case {
        std::size_t size;
        bool moved;
    };
    for (const Case& c : {Case{0, false}, Case{9932, false}, Case{9933, true}, Case{10240, true},
                          Case{5000000, true}}) {
        SCOPED_TRACE(c.size);
        fs::remove(OLD_HIST);
        writeText(HIST, std::string(c.size, 'x'));
        IgCmnMsgHistRotate();
        EXPECT_EQ(fs::exists(HIST), !c.moved);
        EXPECT_EQ(fs::exists(OLD_HIST), c.moved);
        EXPECT_EQ(fs::file_size(c.moved ? OLD_HIST : HIST), c.size);
    }
}

TEST_F(HistoryLog, ReplacesTheOldOneWhenItIsMoved) {
    writeText(OLD_HIST, "old\n");
    writeText(HIST, std::string(9933, 'x'));
    IgCmnMsgHistRotate();
    EXPECT_EQ(fs::file_size(OLD_HIST), 9933U);
    EXPECT_FALSE(fs::exists(HIST));
}

TEST_F(HistoryLog, KeepsTheOldOneWhileTheCurrentOneIsSmall) {
    writeText(OLD_HIST, "old\n");
    writeText(HIST, "current\n");
    IgCmnMsgHistRotate();
    EXPECT_EQ(readText(OLD_HIST), "old\n");
    EXPECT_EQ(readText(HIST), "current\n");
}

TEST_F(HistoryLog, IsNotMovedWhenThereIsNone) {
    EXPECT_EQ(errors(IgCmnMsgHistRotate), "");
    EXPECT_FALSE(fs::exists(HIST));
    EXPECT_EQ(modeOf(HIST_LOCK), 0600U);
}

TEST_F(HistoryLog, KeepsGrowingWhenTheOldOneCannotBeRemoved) {
    fs::create_directories(OLD_HIST + "/full");
    writeText(HIST, std::string(9933, 'x'));
    EXPECT_EQ(errors(IgCmnMsgHistRotate),
              warning("remove", ENOTEMPTY, "Directory not empty", OLD_HIST));
    EXPECT_EQ(fs::file_size(HIST), 9933U);
    IgCmnMsgHist(ZEPA304_I, 0);
    EXPECT_GT(fs::file_size(HIST), 9933U);
}

TEST_F(HistoryLog, ReportsThatItCannotBeMoved) {
    writeText(HIST, std::string(9933, 'x'));
    const ReadOnly read_only(LOG_DIR);
    EXPECT_EQ(errors(IgCmnMsgHistRotate), warning("rename", EROFS, "Read-only file system", HIST));
}

TEST_F(HistoryLog, ReportsALockFileThatCannotBeOpened) {
    fs::create_directory(HIST_LOCK);
    writeText(HIST, std::string(9933, 'x'));
    const std::string report = warning("open", EISDIR, "Is a directory", HIST_LOCK);
    EXPECT_EQ(errors(IgCmnMsgHistRotate), report);
    EXPECT_EQ(errors([] { IgCmnMsgHist(ZEPA304_I, 0); }), report);
    EXPECT_EQ(fs::file_size(HIST), 9933U);
    EXPECT_FALSE(fs::exists(OLD_HIST));
    fs::remove(HIST_LOCK);
}

TEST_F(HistoryLog, ReportsToTheRunLogOnceItIsOpen) {
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    const std::size_t start = readText(LOG).size();
    fs::create_directory(HIST);
    EXPECT_EQ(errors([] { IgCmnMsgHist(ZEPA304_I, 0); }), "");
    EXPECT_EQ(masked(readText(LOG).substr(start)),
              warning("fopen", EISDIR, "Is a directory", HIST));
    EXPECT_EQ(IgMainGetRetCode(), 255);
    EXPECT_EQ(umaskNow(), std::to_string(022));
}

TEST_F(HistoryLog, ReportsALineThatCannotBeWritten) {
    fs::create_symlink("/dev/full", HIST);
    EXPECT_EQ(errors([] { IgCmnMsgHist(ZEPA304_I, 0); }),
              warning("fflush", ENOSPC, "No space left on device", HIST));
    const std::string longer_than_a_buffer(100000, 'a');
    EXPECT_EQ(errors([&] { IgCmnMsgHist(ZEPA302_I, longer_than_a_buffer.c_str()); }),
              warning("vfprintf", ENOSPC, "No space left on device", HIST));
    EXPECT_EQ(umaskNow(), std::to_string(022));
}

TEST_F(HistoryLog, WritesNothingWithoutTheTreeOfVariableData) {
    const std::string missing =
        "ZEPA104-E:The specified directory(/var/opt/norvale/quendil) does not exist.\n";
    fs::rename(VAR_TREE, VAR_TREE + ".away");
    const std::string written = errors([] { IgCmnMsgHist(ZEPA304_I, 0); });
    const std::string rotated = errors(IgCmnMsgHistRotate);
    fs::rename(VAR_TREE + ".away", VAR_TREE);
    EXPECT_EQ(written, missing);
    EXPECT_EQ(rotated, missing);
}

TEST_F(HistoryLog, ShowsMissingNamesInAReport) {
    EXPECT_EQ(errors([] {
                  errno = ENOENT;
                  IgCmnMsgHistSysErr(nullptr, nullptr, {"x/IGSome.cpp", 3});
              }),
              trio("(null)", ENOENT, "No such file or directory", "(null)", "IGSome", true));
}

TEST_F(HistoryLog, EndsTheRunWhenItsReportCannotBeWrittenIntoTheRunLog) {
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    for (const bool unbuffered : {true, false}) {
        const ChildResult child = inChild([&] {
            breakRunLog(unbuffered);
            errno = ENOENT;
            IgCmnMsgHistSysErr("open", "/x");
        });
        EXPECT_EQ(child.status, 77);
        EXPECT_EQ(child.err, noSpace(unbuffered ? "fprintf" : "fflush") + LOG_PATH_LINE);
    }
}

// Locking

/// The lock of another run, held until the owner ends.
class OtherRun {
  public:
    OtherRun() {
        std::array<int, 2> ready{};
        if (::pipe2(ready.data(), O_CLOEXEC) != 0 || (pid_ = ::fork()) == -1) {
            std::abort();
        }
        if (pid_ == 0) {
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            const int fd = ::open(HIST_LOCK.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            if (::fcntl(fd, F_SETLK, &lock) == 0 && ::write(ready[1], "x", 1) == 1) {
                ::pause();
            }
            std::_Exit(1);
        }
        char byte = 0;
        ::close(ready[1]);
        if (::read(ready[0], &byte, 1) != 1) {
            std::abort();
        }
        ::close(ready[0]);
    }
    ~OtherRun() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    OtherRun(const OtherRun&) = delete;
    OtherRun& operator=(const OtherRun&) = delete;

  private:
    pid_t pid_ = -1;
};

template <typename Body>
pid_t start(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        std::_Exit(0);
    }
    return pid;
}

// How often a process has slept voluntarily; -1 when it has ended.
long sleeps(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("State:\tZ", 0) == 0) {
            return -1;
        }
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
            return std::stol(line.substr(line.find('\t') + 1));
        }
    }
    return -1;
}

bool waitsForALock(pid_t pid) {
    const std::string locks = readText("/proc/locks");
    const ::testing::Matcher<std::string> waiter =
        ::testing::ContainsRegex("-> POSIX +ADVISORY +WRITE " + std::to_string(pid));
    return waiter.Matches(locks);
}

TEST_F(HistoryLog, WaitsForTheLockAndThenWritesItsLine) {
    pid_t writer = 0;
    {
        const OtherRun other;
        writer = start([] { IgCmnMsgHist(ZEPA304_I, 0); });
        // It tries again after each sleep: after three sleeps it has still not written.
        const long first = sleeps(writer);
        while (sleeps(writer) != -1 && sleeps(writer) < first + 3) {
            ::sched_yield();
        }
        EXPECT_NE(sleeps(writer), -1) << "it has not waited";
        EXPECT_FALSE(fs::exists(HIST));
    }
    int status = -1;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readText(HIST), "ZEPA304-I:quendil exit code = 0.\n");
}

TEST_F(HistoryLog, StopsWaitingWhenAnInterruptedRunHasWaitedLongEnough) {
    const OtherRun other;
    run_state.interrupted = 1;
    for (const long patience : {250000L, 0L}) {
        run_state.patience = patience;
        EXPECT_EQ(errors([] { IgCmnMsgHist(ZEPA304_I, 0); }),
                  warning("fcntl", EAGAIN, "Resource temporarily unavailable", HIST_LOCK));
        EXPECT_EQ(run_state.patience, 0);
    }
    EXPECT_FALSE(fs::exists(HIST));
}

TEST_F(HistoryLog, WaitsForTheLockBeforeItIsMoved) {
    writeText(HIST, std::string(9933, 'x'));
    pid_t mover = 0;
    {
        const OtherRun other;
        mover = start(IgCmnMsgHistRotate);
        while (!waitsForALock(mover) && sleeps(mover) != -1) {
            ::sched_yield();
        }
        EXPECT_NE(sleeps(mover), -1) << "it has not waited";
        EXPECT_TRUE(fs::exists(HIST));
    }
    int status = -1;
    ASSERT_EQ(::waitpid(mover, &status, 0), mover);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(fs::exists(HIST));
}

TEST_F(HistoryLog, HoldsWholeLinesOfRunsThatWriteAtTheSameTime) {
    std::vector<pid_t> writers;
    for (int run = 0; run < 4; ++run) {
        writers.push_back(start([run] {
            const std::string argument(3000, static_cast<char>('a' + run));
            for (int line = 0; line < 5; ++line) {
                IgCmnMsgHist(ZEPA302_I, argument.c_str());
            }
        }));
    }
    for (const pid_t writer : writers) {
        int status = -1;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        EXPECT_EQ(status, 0);
    }
    std::ifstream history(HIST);
    std::string line;
    int lines = 0;
    while (std::getline(history, line)) {
        const std::string argument(3000, line.empty() ? ' ' : line[line.size() / 2]);
        EXPECT_EQ(line, "ZEPA302-I:quendil argument is " + argument + ".");
        ++lines;
    }
    EXPECT_EQ(lines, 20);
}

}  // namespace
