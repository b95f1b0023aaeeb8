// The handler of the interrupting signals, alone in its file with everything it calls: whatever
// runs there may use async-signal-safe calls only.
#ifndef QUENDIL_PROCESS_IGMAINSIGNAL_H
#define QUENDIL_PROCESS_IGMAINSIGNAL_H

/// Marks the run as interrupted, ignores further signals and stops the running child.
void signalHandler(int signo);

/// Stops the running child, if there is one: SIGTERM, 2.5 seconds of grace, SIGKILL; one that does
/// not even end then is left behind when the run's patience is over. Writes nothing; what fails is
/// recorded in `crnt_child` for IgCmnProcReportDeferred.
void IgCmnProcStopOnInterrupt();

#endif
