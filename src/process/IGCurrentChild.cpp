#include "process/IGCurrentChild.h"

#include <sys/wait.h>

CurrentChild crnt_child;

pid_t endedChild(pid_t pid) {
    siginfo_t info = {};
    const int result = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return result == 0 ? info.si_pid : -1;
}

pid_t reapChild(pid_t pid, bool kill_group, int& status) {
    if (kill_group) {
        const pid_t ended = endedChild(pid);
        if (ended == 0) {
            return 0;
        }
        if (ended > 0) {
            ::kill(-pid, SIGKILL);
        }
    }
    return ::waitpid(pid, &status, WNOHANG);
}
