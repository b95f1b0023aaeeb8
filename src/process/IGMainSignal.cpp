#include "process/IGMainSignal.h"

#include <signal.h>
#include <sys/select.h>

#include <cerrno>

#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"
#include "common/base/IGSourcePlace.h"
#include "process/IGCurrentChild.h"

namespace {

enum class Poll {
    RUNNING,
    REAPED,
    FAILED,  // recorded in `crnt_child`
};

void recordFailure(const char* call, int error, SourcePlace place = SourcePlace::current()) {
    crnt_child.failed_error = error;
    crnt_child.failed_file = place.file;
    crnt_child.failed_line = place.line;
    crnt_child.failed_pid = crnt_child.pid.load();
    crnt_child.failed_call = call;
}

// True when the signal was sent, or no process is left to receive it.
bool sendSignal(pid_t target, int signo) {
    if (signalProcess(target, signo) == 0 || errno == ESRCH) {
        return true;
    }
    recordFailure("kill", errno);
    return false;
}

Poll poll() {
    int status = 0;
    const pid_t result = reapChild(crnt_child.pid, !isArchiving(), status);
    if (result > 0) {
        crnt_child.reaped_status = status;
        crnt_child.reaped = 1;
        return Poll::REAPED;
    }
    if (result == -1 && errno != EINTR) {
        recordFailure("waitpid", errno);
        return Poll::FAILED;
    }
    return Poll::RUNNING;
}

Poll sleepAndPoll(long microseconds) {
    struct timeval time = {0, microseconds};
    ::select(0, nullptr, nullptr, nullptr, &time);
    return poll();
}

// The grace period before SIGKILL: one second in short steps, then 1.5 seconds in long ones. True
// when the child ended.
bool endsInTime() {
    constexpr long SHORT_STEP = 200000;  // microseconds
    constexpr long LONG_STEP = 500000;
    constexpr long SHORT_ROUNDS = roundsIn<SECOND, SHORT_STEP>();
    constexpr long LONG_ROUNDS = roundsIn<SECOND * 3 / 2, LONG_STEP>();
    Poll result = poll();
    for (long round = 0; result == Poll::RUNNING && round < SHORT_ROUNDS; ++round) {
        result = sleepAndPoll(SHORT_STEP);
    }
    if (result != Poll::RUNNING) {
        return result == Poll::REAPED;
    }
    for (long round = 0; result != Poll::REAPED && round < LONG_ROUNDS; ++round) {
        result = sleepAndPoll(LONG_STEP);
    }
    return result == Poll::REAPED;
}

// Waits for a child after SIGKILL. One that survives it hangs in the kernel, on a device or a file
// server that does not respond. It is left behind when the run's patience is used up.
void waitForKilled() {
    constexpr long ROUND = 50000;
    Poll result = poll();
    for (long left = run_state.patience; result == Poll::RUNNING && left > 0; left -= ROUND) {
        waitPatiently(0, nullptr, ROUND);
        result = poll();
    }
    if (result == Poll::RUNNING) {
        recordFailure("waitpid", ETIME);
    }
}

}  // namespace

void IgCmnProcStopOnInterrupt() {
    const pid_t pid = crnt_child.pid;
    if (pid == 0 || crnt_child.reaped != 0) {
        return;
    }
    const pid_t target = isArchiving() ? pid : -pid;  // the archiver's programs have no own group
    if (!sendSignal(target, SIGTERM) || endsInTime() || !sendSignal(target, SIGKILL)) {
        return;
    }
    waitForKilled();
}

void signalHandler(int signo) {
    const int kept_errno = errno;
    run_state.interrupted = 1;
    for (const int number : INTERRUPTING_SIGNALS) {
        ::sigaction(number, &run_state.ignore_action, nullptr);
    }
    IgCmnProcStopOnInterrupt();
    run_state.interruption_handled = 1;
    run_state.signal_no = signo;
    errno = kept_errno;
}
