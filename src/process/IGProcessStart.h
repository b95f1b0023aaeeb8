// Starting a command: its output redirected, the child made and recorded.
#ifndef QUENDIL_PROCESS_IGPROCESSSTART_H
#define QUENDIL_PROCESS_IGPROCESSSTART_H

#include "process/IGProcessControl.h"

/// Redirects the output as the request says and starts the child, whose pid goes to `ctl` and
/// `crnt_child`. False after reporting, and without a report when the run was interrupted before.
/// An output that was redirected already stays when the error output cannot be redirected.
bool startProcess(proc_ctl& ctl);

/// Removes the file that the output went to, unless it is "/dev/null". Reports nothing: the failure
/// that matters was reported.
void removeRedirected(const proc_ctl& ctl);

#endif
