// The handler of SIGINT and SIGTERM, alone in its file with everything it calls: whatever runs
// there may use async-signal-safe calls only.
#ifndef QUENDIL_MAIN_IGMAINSIGNAL_H
#define QUENDIL_MAIN_IGMAINSIGNAL_H

/// Marks the run as interrupted, ignores further signals and stops the running child.
void signalHandler(int signo);

/// Stops the running child, if there is one: SIGTERM, 2.5 seconds of grace, SIGKILL. Writes
/// nothing; what fails is recorded in `crnt_child` for IgCmnProcReportDeferred.
void IgCmnProcStopOnInterrupt();

#endif
