// One execution, as the parts of the process runner share it.
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
    char* stdout_file = nullptr;  // the normalised paths, once they are redirected to
    char* stderr_file = nullptr;
    FdGuard saved_stdout{};
    FdGuard saved_stderr{};
    int status = 0;  // as waitpid gives it
    bool timed_out = false;
    bool killed = false;  // SIGKILL was sent: there is nothing more to try
    bool unsent = false;  // a signal of ours could not be sent: that stays a failure to stop it
};

inline constexpr const char* NULL_DEVICE = "/dev/null";

/// The place that a report of the process runner names: readers of a log know it as one unit.
constexpr SourcePlace runnerPlace(int line = __builtin_LINE()) {
    return {"IGCmnProcess", line};
}

#endif
