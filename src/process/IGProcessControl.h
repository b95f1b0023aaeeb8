// One execution, as shared by the units of the process runner.
#ifndef QUENDIL_PROCESS_IGPROCESSCONTROL_H
#define QUENDIL_PROCESS_IGPROCESSCONTROL_H

#include <sys/types.h>

#include "common/base/IGGuards.h"
#include "common/base/IGSourcePlace.h"
#include "process/IGExecRequest.h"

/// One execution.
struct proc_ctl {
    exec_req* request = nullptr;
    pid_t pid = 0;
    LocalPool pool{};
    char* stdout_file = nullptr;  // the normalised paths, once redirected; from the pool
    char* stderr_file = nullptr;
    FdGuard saved_stdout{};  // this program's own, until the child is started
    FdGuard saved_stderr{};
    int status = 0;  // as returned by waitpid
    bool timed_out = false;
    bool killed = false;  // SIGKILL was sent after the time-out: there is no stronger signal
    bool unsent = false;  // a signal could not be sent: the stop counts as failed
};

inline constexpr const char* NULL_DEVICE = "/dev/null";

/// The place in reports of the process runner: readers of a log know it as one unit.
constexpr SourcePlace runnerPlace(int line = __builtin_LINE()) {
    return {"IGCmnProcess", line};
}

#endif
