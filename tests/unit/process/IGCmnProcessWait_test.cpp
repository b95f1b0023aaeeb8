// How long the runner and the signal handler wait, and when they send which signal. The sleeps take
// no time.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "../../support/child_fixture.h"
#include "../../support/fake_wait.h"
#include "common/base/IGRunState.h"
#include "process/IGCurrentChild.h"
#include "process/IGMainSignal.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using Sleeps = std::vector<long>;

constexpr long TENTH = 100000;
constexpr long HALF = 500000;
constexpr long SECOND = 1000000;

void add(Sleeps& sleeps, std::int64_t count, long length) {
    sleeps.insert(sleeps.end(), static_cast<std::size_t>(count), length);
}

// The sleeps of a tool that never ends, up to its time-out.
Sleeps upToTimeOut(std::int32_t timeout) {
    Sleeps sleeps;
    add(sleeps, 10, TENTH);
    add(sleeps, 2 * std::int64_t{timeout} - 2, HALF);
    return sleeps;
}

long sum(const Sleeps& sleeps) {
    return std::accumulate(sleeps.begin(), sleeps.end(), 0L);
}

const std::string TIMED_OUT =
    std::string("ZEPA126-W:A timeout occurred while information collecting tool(") + BEHAVE +
    ") was being executed.\n";

std::string failed(const std::string& call, int error, const std::string& text, pid_t pid) {
    return "ZEPA113-E:An error occurred during the following system call. system call name = " +
           call + ", error code = " + std::to_string(error) + ", msg = " + text +
           ".\nZEPA114-E:source = IGCmnProcess, line no = N.\nZEPA148-W:An attempt to wait or stop "
           "a process (" +
           std::to_string(pid) + ") has failed.\n";
}

class IGCmnProcessWait : public ChildTest {
  protected:
    void SetUp() override {
        ChildTest::SetUp();
        fake_wait = FakeWait{};
    }
    void TearDown() override {
        fake_wait.active = false;
        ChildTest::TearDown();
    }

    // Runs a tool that never ends by itself; returns the result, exit code and status.
    std::vector<int> run(std::int32_t timeout, std::int32_t signo = -1, std::int32_t wait = 0) {
        ::Arguments arguments({BEHAVE, "ready", path("pid"), "forever"});
        return run(arguments, timeout, signo, wait);
    }
    static std::vector<int> run(::Arguments& arguments, std::int32_t timeout, std::int32_t signo,
                                std::int32_t wait) {
        exec_req request;
        request.command_path = BEHAVE;
        request.argv = arguments.vector();
        request.timeout = timeout;
        request.timeout_signal = signo;
        request.wait_termination = wait;
        std::int32_t exit_cd = -1;
        std::int32_t status = -1;
        fake_wait.active = true;
        const int result = IgCmnExecProcess(&request, &exit_cd, &status);
        fake_wait.active = false;
        return {result, exit_cd, status};
    }

    // Kills and reaps a surviving tool; returns its group, which the first signal names.
    static pid_t endSurvivor() {
        const pid_t pid = -fake_wait.sent.front().first;
        reallyKill(pid, SIGKILL);
        EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
        return pid;
    }

    // Ends the tool during this sleep of the wait.
    static void endAtSleep(std::size_t number) {
        fake_wait.on_sleep = [number] {
            if (fake_wait.sleeps.size() == number) {
                endChild(crnt_child.pid);
            }
        };
    }
};

// --- the runner's wait ---

TEST_F(IGCmnProcessWait, LastsExactlyAsLongAsRequested) {
    fake_wait.lost = {SIGTERM, SIGKILL};
    for (const std::int32_t timeout : {1, 2, 5, 36000}) {
        for (const std::int32_t wait : {-1, 0, 1, 600}) {
            SCOPED_TRACE(std::to_string(timeout) + " " + std::to_string(wait));
            fake_wait.sleeps.clear();
            fake_wait.sent.clear();
            EXPECT_THAT(run(timeout, -1, wait), ElementsAre(EXEC_TIMEOUT, 0, 0));
            Sleeps expected = upToTimeOut(timeout);
            EXPECT_EQ(sum(expected), timeout * SECOND);
            add(expected, std::max(0, 2 * wait), HALF);
            add(expected, 5, TENTH);  // after SIGKILL
            EXPECT_EQ(fake_wait.sleeps, expected);
            const pid_t pid = endSurvivor();
            EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(-pid, SIGTERM), Pair(-pid, SIGKILL)));
            // A tool that survives even that is abandoned without a report.
            EXPECT_EQ(takeLog(), TIMED_OUT);
            EXPECT_EQ(crnt_child.stop_failure, 0);
            EXPECT_EQ(crnt_child.pid, 0);
        }
    }
}

TEST_F(IGCmnProcessWait, SendsTheSignalOfTheRequest) {
    for (const auto& [given, sent] : std::vector<std::pair<int, int>>{{-1, SIGTERM},
                                                                      {SIGTERM, SIGTERM},
                                                                      {SIGINT, SIGINT},
                                                                      {SIGKILL, SIGKILL},
                                                                      {0, 0},
                                                                      {SIGUSR1, SIGUSR1},
                                                                      {64, 64}}) {
        SCOPED_TRACE(given);
        fake_wait.sent.clear();
        fake_wait.lost = {sent, SIGKILL};
        run(1, given);
        const pid_t pid = endSurvivor();
        EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(-pid, sent), Pair(-pid, SIGKILL)));
    }
}

TEST_F(IGCmnProcessWait, EndsWithTheTool) {
    // The last round counts: a tool that ends in it is in time.
    for (const std::size_t number : {1U, 10U, 11U, 18U}) {
        SCOPED_TRACE(number);
        fake_wait.sleeps.clear();
        endAtSleep(number);
        EXPECT_THAT(run(5), ElementsAre(EXEC_NONZERO, 0, SIGKILL));
        EXPECT_EQ(fake_wait.sleeps.size(), number);
        EXPECT_THAT(fake_wait.sent, ElementsAre());
        EXPECT_EQ(takeLog(), "");
    }
}

TEST_F(IGCmnProcessWait, WatchesTheToolWhileItSleeps) {
    const auto child = static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0U));
    if (child == -1) {
        GTEST_SKIP() << "the kernel has no pidfd_open";
    }
    ::close(child);
    std::vector<int> ready;
    const auto poll_tool = [&ready] {
        struct pollfd watched = {fake_wait.watched, POLLIN, 0};
        ready.push_back(::poll(&watched, 1, 0));
    };
    fake_wait.on_sleep = [&poll_tool] {
        poll_tool();
        endChild(crnt_child.pid);
        poll_tool();
    };
    EXPECT_THAT(run(5), ElementsAre(EXEC_NONZERO, 0, SIGKILL));
    EXPECT_THAT(ready, ElementsAre(0, 1));  // a sleep of any length ends with the tool
}

TEST_F(IGCmnProcessWait, SendsNoFurtherTerminationToAToolThatEndsInItsGracePeriod) {
    fake_wait.lost = {SIGTERM};
    // Ten sleeps up to the time-out, two a second of the time given, five after SIGKILL.
    for (const std::size_t number : {11U, 14U}) {
        SCOPED_TRACE(number);
        fake_wait.sleeps.clear();
        fake_wait.sent.clear();
        endAtSleep(number);
        EXPECT_THAT(run(1, -1, 2), ElementsAre(EXEC_TIMEOUT, 0, SIGKILL));
        EXPECT_EQ(fake_wait.sleeps.size(), number);
        const pid_t group = fake_wait.sent.front().first;
        // The SIGKILL is for other processes of the group, when the tool is reaped.
        EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(group, SIGTERM), Pair(group, SIGKILL)));
    }
}

// The signal handler for a scope.
class HandlerInstalled {
  public:
    HandlerInstalled() {
        for (const int signo : INTERRUPTING_SIGNALS) {
            ::signal(signo, signalHandler);
        }
    }
    ~HandlerInstalled() {
        for (const int signo : INTERRUPTING_SIGNALS) {
            ::signal(signo, SIG_DFL);
        }
    }
    HandlerInstalled(const HandlerInstalled&) = delete;
    HandlerInstalled& operator=(const HandlerInstalled&) = delete;
};

// A tool that ends with SIGTERM, and has started one that does not.
class IGCmnProcessGroupWait : public IGCmnProcessWait {
  protected:
    // Runs it with a time-out of one second and `wait` seconds more; calls `other` with the other
    // process at every sleep after the tool's end.
    std::vector<int> runBoth(std::int32_t wait, const std::function<void(pid_t)>& other) {
        const std::string file = path("other");
        fake_wait.on_sleep = [this, file, other] {
            while (!std::filesystem::exists(file)) {
                const struct timespec pause = {0, 1000000};
                ::nanosleep(&pause, nullptr);
            }
            other_ = std::stoi(readText(file));
            if (!fake_wait.sent.empty()) {
                awaitChild(-fake_wait.sent.front().first);
                other(other_);
            }
        };
        ::Arguments arguments(
            {BEHAVE, "child", "ignore", "TERM", "ready", file, "forever", "end", "forever"});
        return run(arguments, 1, -1, wait);
    }

    pid_t other_ = 0;
};

TEST_F(IGCmnProcessGroupWait, GivesTheRestOfTheGroupTheRemainingTime) {
    EXPECT_THAT(runBoth(3, [](pid_t) {}), ElementsAre(EXEC_TIMEOUT, 0, SIGTERM));
    Sleeps expected = upToTimeOut(1);
    add(expected, 6, HALF);
    add(expected, 1, TENTH);  // after SIGKILL: the tool's pidfd would end it at once
    EXPECT_EQ(fake_wait.sleeps, expected);
    const pid_t group = fake_wait.sent.front().first;
    EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(group, SIGTERM), Pair(group, SIGKILL),
                                            Pair(group, SIGKILL)));  // once more when it is reaped
    EXPECT_TRUE(awaitEnd(other_));
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(crnt_child.stop_failure, 0);
}

TEST_F(IGCmnProcessGroupWait, WaitsNoLongerThanTheGroupLives) {
    const auto end_later = [](pid_t other) {
        if (fake_wait.sleeps.size() == 13) {
            reallyKill(other, SIGKILL);
            EXPECT_TRUE(awaitEnd(other));
        }
    };
    EXPECT_THAT(runBoth(600, end_later), ElementsAre(EXEC_TIMEOUT, 0, SIGTERM));
    EXPECT_EQ(fake_wait.sleeps.size(), 13U);
}

TEST_F(IGCmnProcessGroupWait, AllowsNoTimeWhereTheRequestHasNone) {
    EXPECT_THAT(runBoth(0, [](pid_t) {}).front(), EXEC_TIMEOUT);
    EXPECT_TRUE(awaitEnd(other_));
}

TEST_F(IGCmnProcessGroupWait, KillsTheRestOfTheGroupOfAToolThatEndsWithTheSignal) {
    fake_wait.on_signal = [] { endChild(crnt_child.pid); };
    EXPECT_THAT(runBoth(0, [](pid_t) {}), ElementsAre(EXEC_TIMEOUT, 0, SIGKILL));
    const pid_t group = fake_wait.sent.front().first;
    EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(group, SIGTERM), Pair(group, SIGKILL)));
    EXPECT_TRUE(awaitEnd(other_));
}

TEST_F(IGCmnProcessGroupWait, LeavesTheGroupToAHandlerThatRunsMeanwhile) {
    const HandlerInstalled handler;
    const auto interrupt = [](pid_t) {
        if (run_state.interrupted == 0) {
            ::raise(SIGHUP);
        }
    };
    EXPECT_THAT(runBoth(600, interrupt), ElementsAre(EXEC_TIMEOUT, 0, SIGTERM));
    EXPECT_TRUE(awaitEnd(other_));
    EXPECT_EQ(crnt_child.stop_failure, 0);
    EXPECT_EQ(takeLog(), TIMED_OUT);
}

TEST_F(IGCmnProcessWait, ReportsASleepThatFailsAndLeavesNothingRunning) {
    for (const auto& [error, text] : std::vector<std::pair<int, std::string>>{
             {EINVAL, "Invalid argument"}, {EBADF, "Bad file descriptor"}, {EINTR, ""}}) {
        SCOPED_TRACE(error);
        const int failed_before = error == EBADF ? 1 : 0;  // another tool's failure stays
        crnt_child.stop_failure = failed_before;
        fake_wait.sleeps.clear();
        fake_wait.sent.clear();
        fake_wait.select_error = error;
        // The pauses of the clean-up fail too, so the tool ends at the first of them.
        fake_wait.on_sleep = [] {
            if (!fake_wait.sent.empty()) {
                endChild(-fake_wait.sent.front().first);
            }
        };
        Capture errors(stderr);
        EXPECT_THAT(run(5), ElementsAre(EXEC_NONZERO, 0, SIGKILL));
        ASSERT_EQ(fake_wait.sent.size(), 1U);
        const pid_t pid = -fake_wait.sent.front().first;
        EXPECT_EQ(fake_wait.sent.front().second, SIGKILL);
        EXPECT_EQ(takeLog(), error == EINTR ? "" : failed("select", error, text, pid));
        EXPECT_EQ(crnt_child.stop_failure, failed_before);  // nothing is left running
        EXPECT_EQ(::waitpid(pid, nullptr, 0), -1);
    }
}

TEST_F(IGCmnProcessWait, ReportsASignalThatCannotBeSent) {
    fake_wait.lost = {SIGTERM};
    fake_wait.kill_error = EPERM;
    fake_wait.on_sleep = [] {
        if (fake_wait.sent.size() == 2) {
            endChild(-fake_wait.sent.front().first);
        }
    };
    Capture errors(stderr);
    EXPECT_THAT(run(1, -1, 1), ElementsAre(EXEC_TIMEOUT, 0, SIGKILL));
    EXPECT_EQ(takeLog(), TIMED_OUT + failed("kill", EPERM, "Operation not permitted",
                                            -fake_wait.sent.front().first));
    EXPECT_EQ(crnt_child.stop_failure, 1);
}

TEST_F(IGCmnProcessWait, WaitsWithoutLimitWithoutATimeOut) {
    for (const std::int32_t timeout : {0, -1}) {
        ::Arguments arguments({BEHAVE, "nap", "50", "exit", "3"});
        EXPECT_THAT(run(arguments, timeout, -1, 0), ElementsAre(EXEC_NONZERO, 3, 3 << 8));
        EXPECT_EQ(fake_wait.sleeps, Sleeps{});
        EXPECT_THAT(fake_wait.sent, ElementsAre());
    }
}

TEST_F(IGCmnProcessWait, ContinuesWhenNoProcessTakesTheSignal) {
    fake_wait.lost = {SIGTERM, SIGKILL};
    fake_wait.kill_error = ESRCH;
    EXPECT_THAT(run(1, -1, 1), ElementsAre(EXEC_TIMEOUT, 0, 0));
    endSurvivor();
    EXPECT_EQ(fake_wait.sleeps.size(), 10U + 2U + 5U);
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(crnt_child.stop_failure, 0);
}

TEST_F(IGCmnProcessWait, SendsNoSignalToAToolThatTheHandlerHasReaped) {
    const HandlerInstalled handler;
    // The handler runs just before the tool gets its signal, and has to wait for the tool.
    fake_wait.on_signal = [] { ::raise(SIGINT); };
    fake_wait.on_sleep = [] {
        if (run_state.interrupted != 0) {
            awaitChild(crnt_child.pid);  // it got SIGTERM, and the sleeps take no time
        }
    };
    EXPECT_THAT(run(1, SIGWINCH), ElementsAre(EXEC_TIMEOUT, 0, SIGTERM));
    const pid_t group = fake_wait.sent.front().first;
    EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(group, SIGWINCH), Pair(group, SIGTERM),
                                            Pair(group, SIGKILL)));  // the last for its group
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(crnt_child.stop_failure, 0);
}

TEST_F(IGCmnProcessWait, SendsNothingMoreAfterAWaitThatTheHandlerEnded) {
    const HandlerInstalled handler;
    fake_wait.select_error = EINVAL;
    // The second sleep is the handler's.
    fake_wait.on_sleep = [] {
        if (fake_wait.sleeps.size() == 1) {
            ::raise(SIGTERM);
        } else {
            awaitChild(crnt_child.pid);
        }
    };
    EXPECT_THAT(run(5), ElementsAre(EXEC_NONZERO, 0, SIGTERM));
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(crnt_child.stop_failure, 0);
    const pid_t group = fake_wait.sent.front().first;
    EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(group, SIGTERM), Pair(group, SIGKILL)));
}

// --- the handler's wait ---

class IGMainSignalWait : public IGCmnProcessWait {
  protected:
    void SetUp() override {
        IGCmnProcessWait::SetUp();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setpgid(0, 0);
            for (;;) {
                ::pause();
            }
        }
        ::setpgid(pid_, pid_);
        crnt_child.pid = pid_;
    }
    void TearDown() override {
        reallyKill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        crnt_child.pid = 0;
        IGCmnProcessWait::TearDown();
    }

    static void stop() {
        fake_wait.active = true;
        IgCmnProcStopOnInterrupt();
        fake_wait.active = false;
    }

    static Sleeps grace() {
        Sleeps sleeps;
        add(sleeps, 5, 200000);
        add(sleeps, 3, HALF);
        return sleeps;
    }

    // The sleeps before SIGKILL.
    static Sleeps graceGiven() {
        Sleeps given = fake_wait.sleeps;
        given.resize(std::min(given.size(), grace().size()));
        return given;
    }

    // Waits for the end of the killed child, as the sleeps take no time.
    void endOnceKilled() {
        fake_wait.on_sleep = [this] {
            if (fake_wait.sleeps.size() > grace().size()) {
                awaitChild(pid_);
            }
        };
    }

    pid_t pid_ = 0;
};

TEST_F(IGMainSignalWait, AbandonsAToolThatSigkillDoesNotEndInTime) {
    fake_wait.lost = {SIGTERM, SIGKILL};
    for (const long patience : {PATIENCE, PATIENCE / 10, 0L}) {
        SCOPED_TRACE(patience);
        crnt_child.failed_call = nullptr;
        fake_wait.sleeps.clear();
        run_state.interrupted = 1;
        run_state.patience = patience;
        stop();
        EXPECT_EQ(graceGiven(), grace());
        EXPECT_EQ(sum(fake_wait.sleeps), sum(grace()) + patience);
        EXPECT_EQ(run_state.patience, 0);
        EXPECT_EQ(crnt_child.reaped, 0);
        EXPECT_STREQ(crnt_child.failed_call, "waitpid");
        EXPECT_EQ(crnt_child.failed_error, ETIME);
        EXPECT_EQ(crnt_child.failed_pid, pid_);
    }
}

TEST_F(IGMainSignalWait, AbandonsAToolThatSigkillDoesNotEndInAnUninterruptedRunToo) {
    fake_wait.lost = {SIGTERM, SIGKILL};
    stop();
    EXPECT_EQ(sum(fake_wait.sleeps), sum(grace()) + PATIENCE);
    EXPECT_EQ(run_state.patience, PATIENCE);
    EXPECT_EQ(crnt_child.reaped, 0);
}

TEST_F(IGMainSignalWait, WaitsTwoAndAHalfSecondsBeforeItKillsATool) {
    fake_wait.lost = {SIGTERM};
    endOnceKilled();
    stop();
    EXPECT_EQ(graceGiven(), grace());
    EXPECT_EQ(sum(grace()), 5 * HALF);
    // The last one is for the rest of the dead tool's group.
    EXPECT_THAT(fake_wait.sent,
                ElementsAre(Pair(-pid_, SIGTERM), Pair(-pid_, SIGKILL), Pair(-pid_, SIGKILL)));
    EXPECT_EQ(crnt_child.reaped, 1);
    EXPECT_EQ(crnt_child.reaped_status, SIGKILL);
    EXPECT_EQ(crnt_child.failed_call.load(), nullptr);
}

TEST_F(IGMainSignalWait, StopsTheArchiversProgramsAlone) {
    fake_wait.lost = {SIGTERM};
    endOnceKilled();
    IgMainSetRetCode(RETCODE_ARCHIVE);
    stop();
    EXPECT_THAT(fake_wait.sent, ElementsAre(Pair(pid_, SIGTERM), Pair(pid_, SIGKILL)));
}

TEST_F(IGMainSignalWait, EndsWithTheTool) {
    fake_wait.lost = {SIGTERM};
    endAtSleep(7);
    stop();
    EXPECT_EQ(fake_wait.sleeps.size(), 7U);
    EXPECT_EQ(crnt_child.reaped, 1);
}

TEST_F(IGMainSignalWait, RecordsASignalThatCannotBeSentAndStops) {
    for (const int number : {SIGTERM, SIGKILL}) {
        SCOPED_TRACE(number);
        fake_wait = FakeWait{};
        fake_wait.lost = {SIGTERM, SIGKILL};
        crnt_child.failed_call = nullptr;
        if (number == SIGTERM) {
            fake_wait.kill_error = EPERM;
        } else {
            fake_wait.on_sleep = [] { fake_wait.kill_error = EPERM; };  // the first one was sent
        }
        stop();
        EXPECT_STREQ(crnt_child.failed_call, "kill");
        EXPECT_EQ(crnt_child.failed_error, EPERM);
        EXPECT_EQ(crnt_child.failed_pid, pid_);
        EXPECT_EQ(fake_wait.sleeps, number == SIGTERM ? Sleeps{} : grace());
        EXPECT_EQ(fake_wait.sent.back(), std::pair(-pid_, number));
        EXPECT_EQ(crnt_child.reaped, 0);
        EXPECT_EQ(takeLog(), "");
    }
}

TEST_F(IGMainSignalWait, ContinuesWhenNoProcessTakesTheSignal) {
    fake_wait.lost = {SIGTERM};
    endOnceKilled();
    fake_wait.kill_error = ESRCH;
    stop();
    EXPECT_EQ(graceGiven(), grace());
    EXPECT_EQ(crnt_child.reaped, 1);
    EXPECT_EQ(crnt_child.failed_call.load(), nullptr);
}

}  // namespace
