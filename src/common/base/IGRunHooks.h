// What the lowest layer calls in the layers above it. Only the whole program can handle two events
// that occur here: a run log that cannot be written ends the run, and an interruption is reported
// together with what the signal handler could not stop. This layer must not name the upper ones, or
// no unit could be built and tested alone; so main sets two functions at the start.
#ifndef QUENDIL_COMMON_BASE_IGRUNHOOKS_H
#define QUENDIL_COMMON_BASE_IGRUNHOOKS_H

/// Functions of the upper layers; a null one is skipped.
struct RunHooks {
    /// Ends the run after a failed write to the run log, which is already closed: stops a running
    /// child, removes the output if cleanup is ON, runs the end routine. Returns the exit status.
    int (*end_after_log_failure)() = nullptr;
    /// Reports that the run was interrupted, and what the signal handler could not stop. Called
    /// once.
    void (*report_interruption)() = nullptr;
};
extern RunHooks run_hooks;

#endif
