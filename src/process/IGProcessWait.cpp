#include "process/IGProcessWait.h"

#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGCurrentChild.h"
#include "process/IGProcessGroup.h"

namespace {

// Intervals between checks of the child; the numbers of rounds are calculated from these.
constexpr long SHORT_STEP = 100000;  // microseconds
constexpr long LONG_STEP = 500000;
constexpr std::int64_t FIRST_ROUNDS = roundsIn<SECOND, SHORT_STEP>();
constexpr std::int64_t ROUNDS_A_SECOND = roundsIn<SECOND, LONG_STEP>();
constexpr std::int64_t KILL_ROUNDS = roundsIn<SECOND / 2, SHORT_STEP>();  // after SIGKILL

// Reaps the child and stores its status. Reaping and clearing the pid must not be interrupted by
// the signal handler, which would then signal a process that is no longer the child.
pid_t reap(proc_ctl& ctl) {
    const InterruptionBlock block;
    const bool kill_group = ctl.timed_out && !isArchiving();
    const pid_t result = reapChild(ctl.pid, kill_group, ctl.status);
    if (result > 0) {
        crnt_child.pid = 0;
    }
    return result;
}

// Whether the tool has ended but is not reaped, and other processes of its group still run.
bool leavesOthers(pid_t pid) {
    return endedChild(pid) > 0 && processGroupLives(pid);
}

// Signals the child or, with a negative number, its group, unless the handler has reaped the child:
// its number may then belong to another process. 0 or the error.
int signalChild(pid_t target, int signo) {
    const InterruptionBlock block;  // the handler must not reap it between the check and the signal
    return crnt_child.reaped == 0 && signalProcess(target, signo) == -1 ? errno : 0;
}

// The state of a wait.
enum class Wait {
    RUNNING,
    ENDED,
    OVER,  // the wait cannot continue: interrupted, or a reported failure
};

// A wait with a time-out, and the steps when it expires.
class TimedWait {
  public:
    explicit TimedWait(proc_ctl& ctl)
        : ctl_(ctl), child_(static_cast<int>(::syscall(SYS_pidfd_open, ctl.pid, 0U))) {}

    void run() {
        waitForEnd();
        if (state_ != Wait::RUNNING) {
            return;
        }
        ctl_.timed_out = true;
        IgCmnMsg<ZEPA126_W>(ctl_.request->command_path);
        stop();
    }

  private:
    // Checks in short steps during the first second, in long ones for the rest of the time-out.
    void waitForEnd() {
        poll();
        sleepRounds(FIRST_ROUNDS, SHORT_STEP);
        sleepRounds((std::int64_t{ctl_.request->timeout} - 1) * ROUNDS_A_SECOND, LONG_STEP);
    }

    void sleepRounds(std::int64_t rounds, long step) {
        for (std::int64_t round = 0; state_ == Wait::RUNNING && round < rounds; ++round) {
            sleepAndPoll(step);
        }
    }

    void stop() {
        const exec_req& request = *ctl_.request;
        spares_group_ = request.wait_termination > 0;
        send(request.timeout_signal == -1 ? SIGTERM : request.timeout_signal);
        poll();
        sleepRounds(std::int64_t{request.wait_termination} * ROUNDS_A_SECOND, LONG_STEP);
        spares_group_ = only_others_left_ = false;
        if (state_ == Wait::RUNNING) {
            ctl_.killed = true;
            send(SIGKILL);
        }
        sleepRounds(KILL_ROUNDS, SHORT_STEP);
    }

    // Whether the wait must end: the handler has run, or the call failed, which is reported.
    // `error` is 0 for a successful call.
    bool isOver(const char* call, int error, SourcePlace place = runnerPlace()) {
        if (crnt_child.reaped != 0 || run_state.interrupted != 0 || error == EINTR) {
            state_ = Wait::OVER;  // the handler has done all it can
        } else if (error != 0 && error != ESRCH) {
            reportWaitFailure(call, error, ctl_.pid, place);
            state_ = Wait::OVER;
        }
        return state_ == Wait::OVER;
    }

    void poll() {
        if (state_ != Wait::RUNNING) {
            return;
        }
        only_others_left_ = spares_group_ && !isArchiving() && leavesOthers(ctl_.pid);
        if (only_others_left_) {
            return;  // they get the rest of its time
        }
        const pid_t result = reap(ctl_);
        const int error = result == -1 ? errno : 0;
        if (!isOver("waitpid", error) && result != 0) {
            state_ = Wait::ENDED;
        }
    }

    void send(int signo) {
        const int error = signalChild(-ctl_.pid, signo);
        ctl_.unsent = error != 0;
        isOver("kill", error);
    }

    // Sleeps; if the kernel has pidfd_open, wakes when the child ends. Then checks the child.
    void sleepAndPoll(long microseconds) {
        fd_set ended;
        FD_ZERO(&ended);
        const bool watched = child_ && child_.get() < FD_SETSIZE && !only_others_left_;
        if (watched) {
            FD_SET(child_.get(), &ended);
        }
        struct timeval time = {microseconds / SECOND, microseconds % SECOND};
        const int result =
            ::select(watched ? child_.get() + 1 : 0, &ended, nullptr, nullptr, &time);
        if (!isOver("select", result == -1 ? errno : 0)) {
            poll();
        }
    }

    proc_ctl& ctl_;
    FdGuard child_;
    Wait state_ = Wait::RUNNING;
    bool spares_group_ = false;      // after the tool's end its group has the rest of its time
    bool only_others_left_ = false;  // the tool has ended: its pidfd stays readable
};

// Waits without a limit. The call that sleeps does not reap the child: reaping it and clearing its
// pid must be one step.
void waitWithoutLimit(proc_ctl& ctl) {
    siginfo_t info = {};
    const auto pid = static_cast<id_t>(ctl.pid);
    int error = EINTR;  // after an interruption: a child that the handler could not end may run on
    if (run_state.interrupted == 0) {
        error = ::waitid(P_PID, pid, &info, WEXITED | WNOWAIT) == -1 ? errno : 0;
    }
    if (error == 0 && crnt_child.reaped == 0) {
        error = reap(ctl) == -1 ? errno : 0;
    }
    if (error != 0 && error != EINTR && error != ESRCH && crnt_child.reaped == 0) {
        reportWaitFailure("waitpid", error, ctl.pid, runnerPlace());
    }
}

// Kills a child whose wait failed, so that nothing of it stays running. The archiver's programs
// have no group of their own; one that runs on would change the result unnoticed. True when the
// child has ended.
bool endChild(proc_ctl& ctl) {
    signalChild(isArchiving() ? ctl.pid : -ctl.pid, SIGKILL);
    pid_t reaped = reap(ctl);
    for (int round = 0; round < KILL_ROUNDS && reaped == 0; ++round) {
        waitPatiently(0, nullptr, SHORT_STEP);
        reaped = reap(ctl);
    }
    if (reaped <= 0 && isArchiving()) {
        ctl.status = SIGKILL;  // its end was not seen: its output may be truncated
    }
    return reaped > 0;
}

}  // namespace

void reportWaitFailure(const char* call, int error, pid_t pid, SourcePlace place) {
    IgCmnSysErrPlain(call, error, place);
    IgCmnMsg<ZEPA148_W>(pid);
    crnt_child.stop_failure = 1;
}

void waitForChild(proc_ctl& ctl) {
    const int failed_before = crnt_child.stop_failure;
    if (ctl.request->timeout < 1) {
        waitWithoutLimit(ctl);
    } else {
        TimedWait(ctl).run();
    }
    const bool left = crnt_child.pid != 0 && crnt_child.reaped == 0;
    if (left && !ctl.killed && endChild(ctl) && !ctl.unsent) {
        crnt_child.stop_failure = failed_before;  // the wait failed, but nothing of it is left
    }
    const InterruptionBlock block;
    if (crnt_child.reaped != 0) {
        ctl.status = crnt_child.reaped_status;
    }
    crnt_child.pid = 0;
}
