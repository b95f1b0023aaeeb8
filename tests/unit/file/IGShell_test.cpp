#include "common/file/IGShell.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <string>
#include <utility>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGRunState.h"

namespace {

std::atomic<int> caught;

class IGShell : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        caught = 0;
        for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
            ::sigaction(SIGNALS[i], nullptr, &actions_[i]);
        }
        handle([](int signo) { caught = signo; });
    }
    void TearDown() override {
        for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
            ::sigaction(SIGNALS[i], &actions_[i], nullptr);
        }
        RunTest::TearDown();
    }

    // What this process does with the signals that interrupt a run.
    static void handle(void (*handler)(int)) {
        for (const int signo : INTERRUPTING_SIGNALS) {
            struct sigaction action = {};
            action.sa_handler = handler;
            ::sigaction(signo, &action, nullptr);
        }
    }

    static constexpr std::array<int, 5> SIGNALS = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD};

  private:
    std::array<struct sigaction, SIGNALS.size()> actions_ = {};
};

int exited(int code) {
    return code << 8;
}

TEST_F(IGShell, ReturnsTheStatusOfTheCommand) {
    EXPECT_EQ(runShell("exit 0"), 0);
    EXPECT_EQ(runShell("exit 3"), exited(3));
    EXPECT_EQ(runShell("/no/such/program 2> /dev/null"), exited(127));
    EXPECT_EQ(runShell("kill -KILL $$"), SIGKILL);
    EXPECT_EQ(runShell("kill -TERM $$"), SIGTERM);  // the handler is not the command's
    EXPECT_EQ(runShell("kill -HUP $$"), SIGHUP);
    EXPECT_EQ(run_state.interrupted, 0);
    EXPECT_EQ(caught, 0);
}

TEST_F(IGShell, ReportsThatItCouldNotBeStarted) {
    const FailingCall failing(Call::FORK, 1, EAGAIN);
    EXPECT_EQ(runShell("exit 0"), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(IGShell, ReportsThatItCouldNotBeWaitedFor) {
    ::signal(SIGCHLD, SIG_IGN);  // the kernel reaps: waiting fails
    EXPECT_EQ(runShell("exit 0"), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(IGShell, HandlesASignalToTheProgramAloneWhileTheCommandContinues) {
    for (const auto& [name, number] :
         {std::pair("INT", SIGINT), {"TERM", SIGTERM}, {"HUP", SIGHUP}}) {
        caught = 0;
        EXPECT_EQ(runShell((std::string("kill -") + name + " $PPID; exit 5").c_str()), exited(5));
        EXPECT_EQ(caught, number);
    }
}

TEST_F(IGShell, InterruptsTheRunWhenAnInterruptEndedTheCommand) {
    for (const char* command : {"kill -INT $$", "exit 130"}) {
        SCOPED_TRACE(command);
        run_state.interrupted = 0;
        run_state.signal_no = 0;
        EXPECT_NE(runShell(command), 0);
        EXPECT_EQ(run_state.interrupted, 1);
        EXPECT_EQ(run_state.signal_no, SIGINT);
        struct sigaction action = {};
        ::sigaction(SIGTERM, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_IGN);
        handle(SIG_DFL);
    }
}

TEST_F(IGShell, KeepsTheSignalThatInterruptedTheRunFirst) {
    run_state.interrupted = 1;
    run_state.signal_no = SIGTERM;
    EXPECT_EQ(runShell("exit 130"), exited(130));
    EXPECT_EQ(run_state.signal_no, SIGTERM);
}

TEST_F(IGShell, StartsTheCommandWithTheIgnoredSignalsIgnored) {
    handle(SIG_IGN);
    EXPECT_EQ(runShell("kill -INT $$; kill -TERM $$; kill -HUP $$; exit 4"), exited(4));
}

TEST_F(IGShell, StartsTheCommandWithTheSignalsOfTheRunsOwnStart) {
    TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ(runShell((std::string(BEHAVE) + " report " + report).c_str()), 0);
    const std::string text = readText(report);
    EXPECT_THAT(text, ::testing::HasSubstr("\nblocked=\nignored=\ncaught=\n"));
}

TEST_F(IGShell, IgnoresSigquitOnlyDuringTheCommand) {
    struct sigaction before = {};
    ::sigaction(SIGQUIT, nullptr, &before);
    sigset_t mask_before;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask_before);
    EXPECT_EQ(runShell("kill -QUIT $PPID; kill -QUIT $$"), SIGQUIT);
    struct sigaction after = {};
    ::sigaction(SIGQUIT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
    sigset_t mask_after;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask_after);
    for (const int signo : SIGNALS) {
        EXPECT_EQ(::sigismember(&mask_after, signo), ::sigismember(&mask_before, signo)) << signo;
    }
}

}  // namespace
