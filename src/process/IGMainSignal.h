// The handler of the interrupting signals, alone in its file with everything it calls: this code
// may only make async-signal-safe calls.
#ifndef QUENDIL_PROCESS_IGMAINSIGNAL_H
#define QUENDIL_PROCESS_IGMAINSIGNAL_H

/// Marks the run as interrupted, ignores further signals and stops the running child.
void signalHandler(int signo);

/// Stops the running child, if any: SIGTERM, 2.5 seconds of grace, SIGKILL; a child that survives
/// this is left behind when the run's patience is used up. Writes nothing; failures are recorded in
/// `crnt_child` for IgCmnProcReportDeferred.
void IgCmnProcStopOnInterrupt();

#endif
