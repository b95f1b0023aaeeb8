#include "process/IGMainSignal.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <sstream>
#include <utility>

#include "../../support/child_fixture.h"
#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGCurrentChild.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class IGMainSignal : public ChildTest {
  protected:
    void SetUp() override {
        ChildTest::SetUp();
        struct sigaction action = {};
        action.sa_handler = signalHandler;
        for (const int signo : INTERRUPTING_SIGNALS) {
            ::sigaction(signo, &action, nullptr);
        }
        run_hooks.report_interruption = [] {
            IgCmnMsg<ZEPA136_E>(run_state.signal_no.load());
            IgCmnProcReportDeferred();
        };
    }
    void TearDown() override {
        for (const int signo : INTERRUPTING_SIGNALS) {
            ::signal(signo, SIG_DFL);
        }
        ChildTest::TearDown();
    }

    // Runs a tool; returns its result, exit code and status.
    std::vector<int> run(std::vector<std::string> words, std::int32_t timeout) {
        words.insert(words.begin(), BEHAVE);
        ::Arguments arguments(words);
        exec_req request;
        request.command_path = BEHAVE;
        request.argv = arguments.vector();
        request.timeout = timeout;
        std::int32_t exit_cd = -1;
        std::int32_t status = -1;
        const int result = IgCmnExecProcess(&request, &exit_cd, &status);
        return {result, exit_cd, status};
    }

    // The state in which the next run starts.
    void settle() {
        SetUp();
        run_state.interrupted = 0;
        run_state.interruption_handled = 0;
        run_state.signal_no = 0;
    }

    static bool isIgnored(int signo) {
        struct sigaction action = {};
        return ::sigaction(signo, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
    }
};

using ::testing::ElementsAre;

TEST_F(IGMainSignal, StopsTheRunningToolAndRecordsTheSignal) {
    for (const auto& [name, number] : std::vector<std::pair<std::string, int>>{
             {"INT", SIGINT}, {"TERM", SIGTERM}, {"HUP", SIGHUP}}) {
        for (const std::int32_t timeout : {0, 60}) {
            SCOPED_TRACE(name + " " + std::to_string(timeout));
            settle();
            EXPECT_THAT(run({"kill", name, "parent", "forever"}, timeout),
                        ElementsAre(EXEC_NONZERO, 0, SIGTERM));
            EXPECT_EQ(run_state.interrupted, 1);
            EXPECT_EQ(run_state.signal_no, number);
            EXPECT_EQ(run_state.interruption_handled, 1);
            EXPECT_EQ(crnt_child.reaped, 1);
            EXPECT_EQ(crnt_child.pid, 0);
            EXPECT_EQ(crnt_child.stop_failure, 0);
            EXPECT_TRUE(isIgnored(SIGINT));
            EXPECT_TRUE(isIgnored(SIGTERM));
            EXPECT_TRUE(isIgnored(SIGHUP));
            EXPECT_EQ(takeLog(), "");  // reported later, at the run's next check
        }
    }
}

TEST_F(IGMainSignal, CountsASuccessfulToolAsReaped) {
    for (const std::int32_t timeout : {0, 60}) {
        settle();
        EXPECT_THAT(run({"exiton", "TERM", "0", "kill", "INT", "parent", "forever"}, timeout),
                    ElementsAre(EXEC_OK, 0, 0));
        EXPECT_EQ(crnt_child.reaped, 1);
        EXPECT_EQ(crnt_child.stop_failure, 0);
        EXPECT_EQ(takeLog(), "");
    }
}

TEST_F(IGMainSignal, KillsAToolAfterItsGracePeriod) {
    const auto start = steady_clock::now();
    EXPECT_THAT(run({"ignore", "TERM", "kill", "INT", "parent", "forever"}, 60),
                ElementsAre(EXEC_NONZERO, 0, SIGKILL));
    const auto took = steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(2500));
    EXPECT_LT(took, milliseconds(30000));
}

TEST_F(IGMainSignal, StopsAllProcessesOfTheTool) {
    const std::string pid = path("pid");
    run({"child", "ready", pid, "forever", "end", "await", pid, "kill", "INT", "parent", "forever"},
        60);
    EXPECT_TRUE(awaitEnd(std::stoi(readText(pid))));
}

TEST_F(IGMainSignal, StopsTheArchiverAloneBecauseItSharesTheRunsGroup) {
    for (const int code : {RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        settle();
        IgMainSetRetCode(code);
        const std::string pid = path("pid" + std::to_string(code));
        EXPECT_THAT(run({"child", "ready", pid, "forever", "end", "await", pid, "kill", "TERM",
                         "parent", "forever"},
                        0),
                    ElementsAre(EXEC_NONZERO, 0, SIGTERM));
        EXPECT_EQ(::kill(std::stoi(readText(pid)), SIGKILL), 0);  // not stopped, still running
    }
}

TEST_F(IGMainSignal, DoesNothingWithoutAChild) {
    IgCmnProcStopOnInterrupt();
    EXPECT_EQ(crnt_child.reaped, 0);
    EXPECT_EQ(crnt_child.failed_call.load(), nullptr);
    errno = 77;
    signalHandler(SIGTERM);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(run_state.interrupted, 1);
    EXPECT_EQ(run_state.interruption_handled, 1);
    EXPECT_EQ(run_state.signal_no, SIGTERM);
}

TEST_F(IGMainSignal, IgnoresASecondSignal) {
    ASSERT_EQ(::raise(SIGINT), 0);
    ASSERT_EQ(::raise(SIGTERM), 0);
    ASSERT_EQ(::raise(SIGHUP), 0);
    EXPECT_EQ(run_state.signal_no, SIGINT);
}

TEST_F(IGMainSignal, KeepsErrnoOfTheInterruptedCode) {
    errno = 33;
    ASSERT_EQ(::raise(SIGINT), 0);
    EXPECT_EQ(errno, 33);
}

TEST_F(IGMainSignal, RecordsAFailureThatTheRunReportsOnce) {
    ::signal(SIGCHLD, SIG_IGN);  // the kernel reaps: waiting for the child must fail
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::signal(SIGTERM, SIG_DFL);
        for (;;) {
            ::pause();
        }
    }
    ::setpgid(pid, pid);
    crnt_child.pid = pid;
    signalHandler(SIGINT);
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_TRUE(awaitEnd(pid));  // waitpid fails shortly before it has ended
    EXPECT_EQ(crnt_child.reaped, 0);
    EXPECT_STREQ(crnt_child.failed_call, "waitpid");
    EXPECT_EQ(crnt_child.failed_error, ECHILD);
    EXPECT_EQ(crnt_child.failed_pid, pid);
    EXPECT_EQ(crnt_child.stop_failure, 0);
    EXPECT_EQ(takeLog(), "");

    Capture errors(stderr);
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(takeLog(),
              "ZEPA136-E:quendil was interrupted. signal no = 2.\n"
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "waitpid, error code = 10, msg = No child processes.\n"
              "ZEPA114-E:source = IGMainSignal, line no = N.\n"
              "ZEPA148-W:An attempt to wait or stop a process (" +
                  std::to_string(pid) + ") has failed.\n");
    EXPECT_EQ(crnt_child.stop_failure, 1);
    crnt_child.pid = 0;
}

// The handler may run between any two instructions: every function that its object file and the
// object file of the running child call must be safe in a handler. The list names the safe
// functions of the C library, the two records that the handler shares with the run, and the one
// function that it calls in the other file.
TEST_F(IGMainSignal, CallsOnlySignalSafeFunctions) {
    const fs::path build = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
    const fs::path library = build / "src" / "libquendil_process.a";
    ASSERT_TRUE(fs::exists(library)) << library;
    const std::string listing = path("symbols");
    ASSERT_EQ(::system(("nm -A -u " + library.string() + " > " + listing).c_str()), 0);
    const std::set<std::string> safe = {
        "kill",       "waitid",    "waitpid",          "select",           "sigaction",
        "crnt_child", "run_state", "__errno_location", "__stack_chk_fail", "_Z9reapChildibRi"};
    const auto isInstrumentation = [](const std::string& symbol) {
        const std::vector<std::string> prefixes = {"__asan_", "__ubsan_", "__gcov", "__sanitizer_",
                                                   "_GLOBAL_OFFSET_TABLE_"};
        return std::any_of(prefixes.begin(), prefixes.end(), [&symbol](const std::string& prefix) {
            return symbol.starts_with(prefix);
        });
    };
    std::set<std::string> used;
    std::istringstream lines(readText(listing));
    for (std::string line; std::getline(lines, line);) {
        if (line.find("IGMainSignal.cpp.o:") != std::string::npos ||
            line.find("IGCurrentChild.cpp.o:") != std::string::npos) {
            const std::string symbol = line.substr(line.rfind(' ') + 1);
            if (!isInstrumentation(symbol)) {
                used.insert(symbol);
            }
        }
    }
    EXPECT_THAT(used, ::testing::IsSupersetOf({std::string("kill"), std::string("waitpid")}));
    for (const std::string& symbol : used) {
        EXPECT_EQ(safe.count(symbol), 1U) << symbol;
    }
}

}  // namespace
