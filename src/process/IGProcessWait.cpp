#include "process/IGProcessWait.h"

#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGCurrentChild.h"
#include "process/IGProcessGroup.h"

namespace {

// How often the child is checked: the numbers of rounds follow from these.
constexpr long SHORT_STEP = 100000;  // microseconds
constexpr long LONG_STEP = 500000;
constexpr std::int64_t FIRST_ROUNDS = roundsIn<SECOND, SHORT_STEP>();
constexpr std::int64_t ROUNDS_A_SECOND = roundsIn<SECOND, LONG_STEP>();
constexpr std::int64_t KILL_ROUNDS = roundsIn<SECOND / 2, SHORT_STEP>();  // after SIGKILL

// Takes the finished child's status. The child is reaped and forgotten in one step that the signal
// handler cannot come between: it would signal a process that is no longer ours.
pid_t reap(proc_ctl& ctl) {
    const InterruptionBlock block;
    const bool kill_group = ctl.timed_out && !isArchiving();
    const pid_t result = reapChild(ctl.pid, kill_group, ctl.status);
    if (result > 0) {
        crnt_child.pid = 0;
    }
    return result;
}

// Whether the tool has ended, is not reaped yet, and has left others of its group running.
bool leavesOthers(pid_t pid) {
    return endedChild(pid) > 0 && processGroupLives(pid);
}

// Signals the child or, with a negative number, its group, unless the handler has reaped the child:
// the number would then not be its own any more. 0 or the error.
int signalChild(pid_t target, int signo) {
    const InterruptionBlock block;  // it must not be reaped between the look and the signal
    return crnt_child.reaped == 0 && signalProcess(target, signo) == -1 ? errno : 0;
}

// How a wait stands.
enum class Wait {
    RUNNING,
    ENDED,
    OVER,  // nothing more to be had: interrupted, or a failure that was reported
};

// A wait with a time-out, and what follows when it passes.
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
    // The first second is watched in short steps, the rest of the time-out in long ones.
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

    // True when a call said that the wait is over. `error` is 0 for a call that succeeded.
    bool isOver(const char* call, int error, SourcePlace place = runnerPlace()) {
        if (crnt_child.reaped != 0 || run_state.interrupted != 0 || error == EINTR) {
            state_ = Wait::OVER;  // the handler has done what can be done
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
            return;  // they have the rest of its time
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

    // Sleeps, but no longer than the child lives where the kernel can tell.
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
    bool spares_group_ = false;      // the tool's group has time left after the tool's own end
    bool only_others_left_ = false;  // which has come: nothing more to watch
};

// Waits without a limit. The child is not reaped by the call that sleeps: reaping it and forgetting
// it are one step.
void waitWithoutLimit(proc_ctl& ctl) {
    siginfo_t info = {};
    const auto pid = static_cast<id_t>(ctl.pid);
    int error = EINTR;  // a handler that could not end the child would have us wait for ever
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

// A wait that failed leaves the child running: nothing of it stays. The archiver's programs have no
// group of their own; one that went on would change the result behind our back. True when the child
// has ended.
bool endChild(proc_ctl& ctl) {
    signalChild(isArchiving() ? ctl.pid : -ctl.pid, SIGKILL);
    pid_t reaped = reap(ctl);
    for (int round = 0; round < KILL_ROUNDS && reaped == 0; ++round) {
        waitPatiently(0, nullptr, SHORT_STEP);
        reaped = reap(ctl);
    }
    if (reaped <= 0 && isArchiving()) {
        ctl.status = SIGKILL;  // an end that nobody saw: what was made may be cut
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
        crnt_child.stop_failure = failed_before;  // the wait failed, and nothing of it is left
    }
    const InterruptionBlock block;
    if (crnt_child.reaped != 0) {
        ctl.status = crnt_child.reaped_status;
    }
    crnt_child.pid = 0;
}
