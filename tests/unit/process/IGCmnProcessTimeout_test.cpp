#include "process/IGCmnProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "../../support/process_fixture.h"
#include "process/IGCurrentChild.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class Timeout : public ProcessTest {};

const std::string TIMED_OUT =
    std::string("ZEPA126-W:A timeout occurred while information collecting tool(") + BEHAVE +
    ") was being executed.\n";

TEST_F(Timeout, SendsSigtermAfterTheTimeOutByDefault) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    request.timeout = 1;
    request.wait_termination = 10;
    const auto start = steady_clock::now();
    EXPECT_EQ(behave({"exiton", "TERM", "7", "out", "one\n", "forever"}, request),
              (Outcome{EXEC_TIMEOUT, 7, 7 << 8}));
    const auto took = steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(1000));
    EXPECT_LT(took, milliseconds(9000));  // it did not wait for the termination time
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(readText(out), "one\n");  // the output of a tool is kept
    expectOwnDescriptors();
}

TEST_F(Timeout, SendsTheGivenSignalToAllProcessesOfTheTool) {
    const std::string noted = path("noted");
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = SIGUSR1;
    request.wait_termination = 10;
    EXPECT_EQ(behave({"child", "note",   "USR1", noted,  "exiton", "USR1",   "0",         "forever",
                      "end",   "child",  "note", "USR1", noted,    "ready",  path("pid"), "forever",
                      "end",   "exiton", "USR1", "8",    "wait",   "forever"},
                     request),
              (Outcome{EXEC_TIMEOUT, 8, 8 << 8}));
    EXPECT_EQ(takeLog(), TIMED_OUT);
    // The child that survived the signal has been killed with its group.
    EXPECT_TRUE(awaitEnd(std::stoi(readText(path("pid")))));
}

TEST_F(Timeout, KillsAToolThatIgnoresTheSignal) {
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = SIGTERM;
    const auto start = steady_clock::now();
    EXPECT_EQ(behave({"ignore", "TERM", "forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_GE(steady_clock::now() - start, milliseconds(1000));
    EXPECT_EQ(takeLog(), TIMED_OUT);

    request.wait_termination = 1;
    const auto second_start = steady_clock::now();
    EXPECT_EQ(behave({"ignore", "TERM", "forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_GE(steady_clock::now() - second_start, milliseconds(2000));
    EXPECT_EQ(takeLog(), TIMED_OUT);
}

TEST_F(Timeout, KeepsWaitingWhenTheSignalIsZero) {
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = 0;  // a check for existence only
    EXPECT_EQ(behave({"forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(crnt_child.stop_failure, 0);
}

TEST_F(Timeout, ReportsASignalThatDoesNotExistAndLeavesNothingRunning) {
    const std::string ready = path("ready");
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = 2147483647;
    Capture errors(stderr);
    EXPECT_EQ(behave({"ready", ready, "forever"}, request).result, EXEC_TIMEOUT);
    const pid_t pid = std::stoi(readText(ready));
    EXPECT_EQ(takeLog(),
              TIMED_OUT +
                  "ZEPA113-E:An error occurred during the following system call. system call name "
                  "= kill, error code = 22, msg = Invalid argument.\n"
                  "ZEPA114-E:source = IGCmnProcess, line no = N.\n"
                  "ZEPA148-W:An attempt to wait or stop a process (" +
                  std::to_string(pid) + ") has failed.\n");
    EXPECT_EQ(crnt_child.stop_failure, 1);
    EXPECT_EQ(::kill(pid, 0) == -1 ? errno : 0, ESRCH);
}

TEST_F(Timeout, DoesNotWaitForProcessesThatAFinishedToolLeft) {
    const std::string out = path("out");
    const std::string left = path("left");
    for (const std::int32_t timeout : {0, 30}) {
        exec_req request;
        request.stdout_path = out.c_str();
        request.timeout = timeout;
        EXPECT_EQ(behave({"child", "ready", left, "forever", "end", "await", left}, request).result,
                  EXEC_OK);
        const pid_t pid = std::stoi(readText(left));
        EXPECT_EQ(::kill(pid, SIGKILL), 0);  // it is still running
        std::filesystem::remove(left);
    }
}

TEST_F(Timeout, WaitsWithTooManyDescriptorsForASelectToo) {
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit wide = {4 * FD_SETSIZE, std::max<rlim_t>(before.rlim_max, 4 * FD_SETSIZE)};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &wide), 0);
    std::vector<int> taken;
    while (taken.empty() || taken.back() < FD_SETSIZE) {
        taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_NE(taken.back(), -1);
    }
    exec_req request;
    request.timeout = 30;
    EXPECT_EQ(behave({"nap", "1", "exit", "7"}, request), (Outcome{EXEC_NONZERO, 7, 7 << 8}));
    for (const int fd : taken) {
        ::close(fd);
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(Timeout, ReportsAWaitThatFails) {
    const SignalAction children(SIGCHLD, SIG_IGN);  // the kernel reaps them: waiting fails
    const std::string ready = path("ready");
    for (const std::int32_t timeout : {0, 30}) {
        SCOPED_TRACE(timeout);
        crnt_child.stop_failure = 0;
        exec_req request;
        request.timeout = timeout;
        Capture errors(stderr);
        EXPECT_EQ(behave({"ready", ready, "exit", "3"}, request), (Outcome{EXEC_OK, 0, 0}));
        const std::string pid = std::to_string(std::stoi(readText(ready)));
        EXPECT_EQ(takeLog(),
                  "ZEPA113-E:An error occurred during the following system call. system call name "
                  "= waitpid, error code = 10, msg = No child processes.\n"
                  "ZEPA114-E:source = IGCmnProcess, line no = N.\n"
                  "ZEPA148-W:An attempt to wait or stop a process (" +
                      pid + ") has failed.\n");
        EXPECT_EQ(crnt_child.stop_failure, 1);
    }
}

}  // namespace
