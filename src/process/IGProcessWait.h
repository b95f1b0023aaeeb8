// Waits for the child, with or without a time-out, and stops it.
#ifndef QUENDIL_PROCESS_IGPROCESSWAIT_H
#define QUENDIL_PROCESS_IGPROCESSWAIT_H

#include "process/IGProcessControl.h"

/// Waits for the end of the child; after its time-out, stops it. Stores its wait status and whether
/// it timed out in `ctl`. Failures are reported; a child that cannot be waited for is killed.
void waitForChild(proc_ctl& ctl);

/// Reports that a child could not be waited for or stopped: the failed call (ZEPA113-E) and the pid
/// (ZEPA148-W). Records it for IgCmnProcReportStopFailure.
void reportWaitFailure(const char* call, int error, pid_t pid, SourcePlace place);

#endif
