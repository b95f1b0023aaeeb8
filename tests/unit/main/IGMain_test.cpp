#include "main/IGMain.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "../../support/collect_fixture.h"
#include "../../support/wrapped_calls.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGRunState.h"
#include "main/IGMainRun.h"
#include "process/IGCurrentChild.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t NOBODY = 65534;

class IGMain : public CollectTest {
  protected:
    void SetUp() override {
        CollectTest::SetUp();
        main_run = MainRun{};
        main_run.root = root_;
        fs::remove(lock_);
        fs::remove(history_);
    }
    void TearDown() override {
        IgMainUnlock();
        fs::remove_all(lock_);
        IgCmnMemoryFree(&main_run.memoryp, nullptr, 0);
        CollectTest::TearDown();
    }

    // What the history log holds, places masked.
    std::string history() const { return masked(readText(history_)); }

    // A selected pattern with one block of these targets that collects a file.
    pickptn_tbl* select(const std::vector<std::string>& targets, const std::string& file) {
        pickptn_tbl* ptn = IgIniGetPickPtn(pool());
        ptn_block* block = IgIniGetPickPtnBlock(pool());
        block->skip = 0;
        for (const std::string& target : targets) {
            IgIniCollectList(target.c_str(), &block->target, pool());
        }
        collect_item* item = IgIniGetPickPtnCmdData(pool(), ITEM_DATA);
        item->data.path_name = strdupInPool(file);
        IgCmnListAppend(pool(), &block->items, item);
        IgCmnListAppend(pool(), &ptn->blocks, block);
        IgCmnListAdd(pool(), &root_->selected, ptn);
        return ptn;
    }

    // Lets the archive fail, so that the output directory stays and can be checked.
    void keepOutput() {
        output_file_ = path("none/archive");
        root_->output_file = output_file_.data();
    }

    // Prepares a run without -o that collects a tree with a symlink in it, in an empty base
    // directory.
    void prepareWholeRun() {
        fs::remove_all(base_);
        TearDown();
        SetUp();
        fs::create_directories(path("source/directory"));
        writeText(path("source/directory/file"), "content");
        fs::remove(path("source/link"));
        fs::create_directory_symlink("directory", path("source/link"));
        root_->output_file = root_->output_name;
        select({"t", "u"}, path("source"));
        select({}, "/proc/self/status");
    }

    int collect() {
        Capture output(stdout);  // the progress line
        Capture errors(stderr);
        return IgMainCollect(0);
    }

    const std::string lock_ = std::string(BIN_DIR) + "/.quendil.lck";
    const std::string history_ = std::string(LOG_DIR) + "/quendil_hist.log";

  private:
    char* strdupInPool(const std::string& text) {
        auto* copy = newFromPool<char>(pool(), text.size() + 1);
        text.copy(copy, text.size());
        return copy;
    }

    std::string output_file_;
};

TEST_F(IGMain, KeepsEveryReportedResultWhenMemoryRunsOut) {
    const fs::path before = fs::current_path();
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        SCOPED_TRACE(nth);
        prepareWholeRun();
        const FailingCall failing(Call::POOL, nth, ENOMEM);
        const int result = collect();
        failed = FailingCall::happened();
        const std::string log = takeLog();
        const bool reported = log.find("Memory is insufficient.") != std::string::npos;
        EXPECT_EQ(reported, failed) << log;
        const std::string output = output_ + "_1";  // the directory itself exists already
        switch (IgMainGetRetCode()) {
            case RETCODE_COMPRESSED:
                EXPECT_TRUE(fs::exists(output + ".tar.gz"));
                break;
            case RETCODE_ARCHIVE:
                EXPECT_TRUE(fs::exists(output + ".tar"));
                break;
            case RETCODE_DIRECTORY:
                EXPECT_TRUE(fs::exists(output + "/quendil_index"));
                break;
            default:
                EXPECT_EQ(result, -1);
        }
        EXPECT_EQ(readText(path("source/directory/file")), "content");
        EXPECT_EQ(fs::current_path(), before);
        EXPECT_TRUE(failed || (nth > 100 && IgMainGetRetCode() == RETCODE_COMPRESSED));
    }
}

// --- who may run, and how many ---

TEST_F(IGMain, LetsTheSuperUserRun) {
    EXPECT_EQ(IgMainIsSuperUser(0), 0);
    EXPECT_EQ(IgMainIsSuperUserCached(), 0);
    EXPECT_EQ(run_state.super_user, 0);
    EXPECT_EXIT(
        {
            // Effective rights are enough.
            if (::setresuid(NOBODY, 0, 0) != 0) {
                std::_Exit(2);
            }
            std::_Exit(IgMainIsSuperUser(0) == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST_F(IGMain, LetsNoOtherUserRun) {
    // The saved user id stays root so that the process can write its coverage.
    const auto exit_as_nobody = [](bool (*refused)()) {
        const bool left = ::setresuid(NOBODY, NOBODY, 0) == 0;
        const bool right = left && refused();
        std::exit(::setresuid(0, 0, 0) == 0 && right ? 0 : 1);
    };
    EXPECT_EXIT(exit_as_nobody([] { return IgMainIsSuperUser(0) == -1; }),
                ::testing::ExitedWithCode(0),
                "^ZEPA117-E:This cannot be executed because the user is not a super user\\.\n$");
    EXPECT_EXIT(exit_as_nobody([] {
                    return IgMainIsSuperUser(1) == -1 && IgMainIsSuperUserCached() == -1 &&
                           run_state.super_user == -1;
                }),
                ::testing::ExitedWithCode(0), "^$");
}

TEST_F(IGMain, ChecksTheUserOnce) {
    run_state.super_user = -1;
    EXPECT_EQ(IgMainIsSuperUserCached(), -1);
}

TEST_F(IGMain, LocksAndUnlocks) {
    const mode_t mask = ::umask(0);
    EXPECT_EQ(IgMainLock(), 0);
    ::umask(mask);
    ASSERT_NE(main_run.lock_fd, -1);
    EXPECT_EQ(::fcntl(main_run.lock_fd, F_GETFD), FD_CLOEXEC);
    struct stat st = {};
    ASSERT_EQ(::stat(lock_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600U);
    EXPECT_EQ(st.st_size, 0);
    IgMainUnlock();
    EXPECT_EQ(main_run.lock_fd, -1);
    IgMainUnlock();
    EXPECT_TRUE(fs::exists(lock_));
    EXPECT_EQ(IgMainLock(), 0);  // the file of an earlier run does not matter
    EXPECT_EQ(history(), "");
}

TEST_F(IGMain, RefusesASecondRunAtOnce) {
    int ready[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    const pid_t other = ::fork();
    if (other == 0) {
        if (IgMainLock() == 0 && ::write(ready[1], "x", 1) == 1) {
            ::pause();
        }
        std::_Exit(1);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    const std::string message = "ZEPA116-E:Another quendil is already running. Please try later.\n";
    Capture errors(stderr);
    EXPECT_EQ(IgMainLock(), LOCK_HELD);
    EXPECT_EQ(errors.take(), message);
    EXPECT_EQ(history(), message);
    IgMainUnlock();
    ::kill(other, SIGKILL);
    ::waitpid(other, nullptr, 0);
    EXPECT_EQ(IgMainLock(), 0);  // the lock of a killed run ends with it
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(IGMain, ReportsALockFileThatCannotBeOpened) {
    fs::create_directory(lock_);
    Capture errors(stderr);
    EXPECT_EQ(IgMainLock(), -1);
    const std::string call =
        "ZEPA113-E:An error occurred during the following system call. system call name = open, "
        "error code = 21, msg = Is a directory.\n";
    EXPECT_EQ(errors.take(), call + "ZEPA151-E:Additional information, path = " + lock_ + ".\n");
    EXPECT_EQ(history(), call + "ZEPA114-E:source = IGMain, line no = N.\n");
    EXPECT_EQ(main_run.lock_fd, -1);
}

// --- the collection ---

TEST_F(IGMain, FindsAFreeNameForTheOutput) {
    const std::string name = root_->output_name;
    for (const std::string suffix : {"_1", "_2", "_3"}) {
        keepOutput();
        std::string given = name;
        root_->output_name = given.data();
        EXPECT_EQ(collect(), -1);
        EXPECT_EQ(root_->output_name, name + suffix);
        EXPECT_TRUE(fs::exists(output_ + suffix));
        EXPECT_EQ(root_->output_file, path("none/archive"));  // -o is not changed
        EXPECT_EQ(IgMainGetRetCode(), RETCODE_DIRECTORY);
    }
    fs::remove_all(output_);
    std::string given = name;
    root_->output_name = given.data();
    EXPECT_EQ(collect(), -1);
    EXPECT_EQ(root_->output_name, name);
}

TEST_F(IGMain, RenamesTheDefaultArchiveWithItsDirectory) {
    root_->output_file = root_->output_name;
    EXPECT_EQ(collect(), 0);
    EXPECT_EQ(root_->output_file, output_ + "_1.tar.gz");
    EXPECT_TRUE(fs::exists(output_ + "_1.tar.gz"));
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_COMPRESSED);
}

TEST_F(IGMain, GivesPatternsWithEqualTargetsOneDirectory) {
    fs::remove_all(output_);
    keepOutput();
    writeText(path("a"), "a");
    const pickptn_tbl* first = select({"web server", "db"}, path("a"));
    const pickptn_tbl* same = select({"web server", "db"}, path("a"));
    const pickptn_tbl* other = select({"web-server"}, path("a"));
    const pickptn_tbl* none = select({}, path("a"));
    EXPECT_EQ(collect(), -1);  // the test lets the archive fail
    EXPECT_EQ(first->output_dir, output_ + "/web_server");
    EXPECT_EQ(same->output_dir, output_ + "/web_server");
    EXPECT_EQ(other->output_dir, output_ + "/web_server_1");
    EXPECT_EQ(none->output_dir, output_);
    EXPECT_THAT(strings(first->targets), ::testing::ElementsAre("web server", "db"));
    EXPECT_EQ(none->targets, nullptr);
    const std::string file = path("a").substr(1);
    const std::string rest = "\nDESC:\nDATE:STAMP\nTYPE:text\n";
    EXPECT_EQ(index(), "quendil [Ver. 01-02]\n\n\nFILE:web_server/" + file + rest + "\nFILE:" +
                           rest + "\nFILE:web_server_1/" + file + rest + "\nFILE:" + file + rest);
    EXPECT_EQ(root_->d, nullptr);
}

TEST_F(IGMain, WritesTheCommandLineIntoTheIndexHeader) {
    fs::remove_all(output_);
    keepOutput();
    writeText(path("a"), "a");
    select({}, path("a"));
    run_state.cmd_name = "quendil";
    std::string argument = "-g 'a b'";
    main_run.argument = argument.data();
    EXPECT_EQ(collect(), -1);
    EXPECT_THAT(index(), ::testing::StartsWith("quendil [Ver. 01-02]\nquendil -g 'a b'\n\nFILE:"));
    main_run.argument = nullptr;
}

TEST_F(IGMain, EndsAnInterruptedCollectionBeforeItBegins) {
    fs::remove_all(output_);
    run_state.interrupted = 1;
    EXPECT_EQ(collect(), 2);
    EXPECT_FALSE(fs::exists(output_));
    EXPECT_EQ(IgMainGetRetCode(), RETCODE_FAILED);
}

TEST_F(IGMain, CleansUpAfterAFailedCollectionIfConfigured) {
    for (const std::int32_t cleanup : {CLEANUP_ON, CLEANUP_OFF}) {
        root_->cleanup = cleanup;
        EXPECT_TRUE(wantsCleanup(RESULT_DONE));
        EXPECT_FALSE(wantsCleanup(RESULT_SIZE_LIMIT));
        EXPECT_EQ(wantsCleanup(RESULT_FAILED), cleanup == CLEANUP_ON);
        EXPECT_EQ(wantsCleanup(RESULT_INTERRUPTED), cleanup == CLEANUP_ON);
    }
}

// --- the end ---

TEST_F(IGMain, EndsTheRunWithItsResultAndBothLogs) {
    std::string absolute = path("archive.tar.gz");
    writeText(absolute, "12345");
    root_->output_file = absolute.data();
    collected_size.exceeded = 1;
    IgMainSetRetCode(RETCODE_COMPRESSED);
    Capture output(stdout);
    // It can be done only once in a process.
    EXPECT_EXIT(std::_Exit(IgMainEnd() == 0 && IgMainEnd() == 0 && main_run.root == nullptr &&
                                   main_run.lock_fd == -1
                               ? 0
                               : 1),
                ::testing::ExitedWithCode(0),
                "^ZEPA131-W:The size of the output data exceeded a limit size\\.\n$");
    EXPECT_THAT(takeLog(),
                ::testing::MatchesRegex("ZEPA214-I:Output file = " + absolute +
                                        "\\. size = 5 bytes\\.\n"
                                        "ZEPA213-I:quendil ended at [0-9/]* [0-9:]*\\. return code "
                                        "= 0\\.\n"));
    EXPECT_THAT(history(), ::testing::MatchesRegex("ZEPA304-I:quendil exit code = 0\\.\n"
                                                   "ZEPA305-I:quendil ended at [0-9/]* [0-9:]*\\."
                                                   "\n"));
}

// --- the hooks of the base library ---

TEST_F(IGMain, ReportsTheInterruptionBeforeWhatTheHandlerCouldNotStop) {
    run_state.signal_no = SIGINT;
    run_state.interrupted = 1;
    crnt_child.failed_call = "kill";
    crnt_child.failed_error = EPERM;
    crnt_child.failed_file = "IGMainSignal.cpp";
    crnt_child.failed_line = 7;
    crnt_child.failed_pid = 17;
    Capture err(stderr);
    IgMainReportInterruption();
    EXPECT_EQ(
        takeLog(),
        "ZEPA136-E:quendil was interrupted. signal no = 2.\n"
        "ZEPA113-E:An error occurred during the following system call. system call name = kill, "
        "error code = 1, msg = Operation not permitted.\n"
        "ZEPA114-E:source = IGMainSignal, line no = N.\n"
        "ZEPA148-W:An attempt to wait or stop a process (17) has failed.\n");
    crnt_child.failed_call = nullptr;
    crnt_child.stop_failure = 0;
}

TEST_F(IGMain, KeepsOnlyAnOutputThatIsTheResultWhenTheRunLogFails) {
    root_->cleanup = CLEANUP_ON;
    root_->output_made = true;
    for (const int code : {RETCODE_FAILED, RETCODE_DIRECTORY}) {
        fs::create_directory(output_);
        fs::permissions(output_, fs::perms::owner_all);
        ASSERT_TRUE(noteOutput(pool(), *root_, output_.c_str()));
        // The end routine can be run only once in a process.
        const pid_t other = ::fork();
        if (other == 0) {
            IgMainSetRetCode(code);
            std::_Exit(IgMainEndAfterLogFailure());
        }
        int status = -1;
        EXPECT_EQ(::waitpid(other, &status, 0), other);
        EXPECT_EQ(WEXITSTATUS(status), code);
        EXPECT_EQ(fs::exists(output_), code == RETCODE_DIRECTORY);
    }
}

}  // namespace
