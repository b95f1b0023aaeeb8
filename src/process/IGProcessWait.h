// Waiting for the child, with or without a time-out, and stopping it.
#ifndef QUENDIL_PROCESS_IGPROCESSWAIT_H
#define QUENDIL_PROCESS_IGPROCESSWAIT_H

#include "process/IGProcessControl.h"

/// Waits until the child has ended or was given up, as the request says, and records its wait
/// status and whether it timed out. What fails is reported, and a child that cannot be waited for
/// is killed.
void waitForChild(proc_ctl& ctl);

/// Reports that a child could not be waited for or stopped (ZEPA148-W), and marks the run with it.
void reportWaitFailure(const char* call, int error, pid_t pid, SourcePlace place);

#endif
