// State shared by the message function and the run log.
#ifndef QUENDIL_COMMON_REPORT_IGCMNMESSAGESTATE_H
#define QUENDIL_COMMON_REPORT_IGCMNMESSAGESTATE_H

#include <array>
#include <climits>
#include <cstdio>

#include "common/report/IGCmnMessageTable.h"

struct MsgState {
    std::FILE* log;                           // null while no run log is open
    std::array<char, PATH_MAX + 1> log_path;  // the open run log's path, kept for error reports
    int log_opened;                           // 1 once the run log has been opened, never cleared
    int stderr_used;                          // 1 once a message went to the standard error
    MsgMode mode;
};
extern MsgState msg_state;

/// Ends the process after a failed write to the run log: reports the call on the standard error,
/// closes the run log and ends the run (RunHooks).
[[noreturn]] void msgLogFailed(const char* call, int error);

#endif
