// Starts a command: redirects its output, forks and records the child.
#ifndef QUENDIL_PROCESS_IGPROCESSSTART_H
#define QUENDIL_PROCESS_IGPROCESSSTART_H

#include "process/IGProcessControl.h"

/// Redirects the output as requested and starts the child, whose pid is stored in `ctl` and
/// `crnt_child`, then restores this program's own output. False after reporting; false without a
/// report when the run was interrupted before. If a redirection fails, this program's own standard
/// descriptors that were already redirected stay so.
bool startProcess(proc_ctl& ctl);

/// Removes the file of the redirected output, unless it is "/dev/null". Reports nothing: the
/// failure that matters is already reported.
void removeRedirected(const proc_ctl& ctl);

#endif
