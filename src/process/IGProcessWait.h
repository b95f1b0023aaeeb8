// Waits for the child, with or without a time-out, and stops it.
#ifndef QUENDIL_PROCESS_IGPROCESSWAIT_H
#define QUENDIL_PROCESS_IGPROCESSWAIT_H

#include "process/IGProcessControl.h"

/// Waits until the child has ended or was given up, as requested, and records its wait status and
/// whether it timed out. Failures are reported; a child that cannot be waited for is killed.
void waitForChild(proc_ctl& ctl);

/// Reports that a child could not be waited for or stopped (ZEPA148-W), and marks the run
/// accordingly.
void reportWaitFailure(const char* call, int error, pid_t pid, SourcePlace place);

#endif
