#include "main/IGMainSignal.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/wait.h>

#include <cerrno>

#include "collect/IGCmnProcess.h"
#include "common/IGPatience.h"
#include "common/IGRunState.h"
#include "common/IGSourcePlace.h"

namespace {

enum class Poll {
    RUNNING,
    REAPED,
    FAILED,  // recorded
};

void recordFailure(const char* call, int error, SourcePlace place = SourcePlace::current()) {
    crnt_child.failed_error = error;
    crnt_child.failed_file = place.file;
    crnt_child.failed_line = place.line;
    crnt_child.failed_pid = crnt_child.pid.load();
    crnt_child.failed_call = call;
}

// True when the signal was sent or there was nobody left to take it.
bool sendSignal(pid_t target, int signo) {
    if (signalProcess(target, signo) == 0 || errno == ESRCH) {
        return true;
    }
    recordFailure("kill", errno);
    return false;
}

// A look comes before the reaping: what a tool that has ended leaves of its group is killed while
// the group's number is still its own, and a tool that ends just behind the look is left for the
// next.
Poll reapChild() {
    const pid_t pid = crnt_child.pid;
    int status = 0;
    siginfo_t info = {};
    if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0) {
        if (info.si_pid == 0) {
            return Poll::RUNNING;
        }
        if (!isArchiving()) {
            ::kill(-pid, SIGKILL);
        }
    }
    const pid_t result = ::waitpid(pid, &status, WNOHANG);
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

Poll sleepAndPoll(long milliseconds) {
    struct timeval time = {0, milliseconds * 1000};
    ::select(0, nullptr, nullptr, nullptr, &time);
    return reapChild();
}

// The grace period before SIGKILL: five short rounds, then three long ones. True when the child
// ended.
bool endsInTime() {
    Poll poll = reapChild();
    for (int round = 0; poll == Poll::RUNNING && round < 5; ++round) {
        poll = sleepAndPoll(200);
    }
    if (poll != Poll::RUNNING) {
        return poll == Poll::REAPED;
    }
    for (int round = 0; poll != Poll::REAPED && round < 3; ++round) {
        poll = sleepAndPoll(500);
    }
    return poll == Poll::REAPED;
}

// A process that even SIGKILL does not end hangs in the kernel, on a device or a file server that
// is gone. It is left behind when the run has waited for it long enough.
void awaitKilled() {
    constexpr long ROUND = 50000;
    Poll poll = reapChild();
    for (long left = run_state.patience; poll == Poll::RUNNING && left > 0; left -= ROUND) {
        waitPatiently(0, nullptr, ROUND);
        poll = reapChild();
    }
    if (poll == Poll::RUNNING) {
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
    awaitKilled();
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
