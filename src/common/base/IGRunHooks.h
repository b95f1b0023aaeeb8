// What the ground floor asks of the floors above it. Two events happen here that only the whole
// program can deal with: a run log that cannot be written ends the run, and an interruption is
// reported together with what the signal handler could not stop. The ground floor must not name
// those floors, or no unit could be built and tested without the whole program: so main hands two
// functions down at the start.
#ifndef QUENDIL_COMMON_BASE_IGRUNHOOKS_H
#define QUENDIL_COMMON_BASE_IGRUNHOOKS_H

/// Functions of the floors above; one that is null is left out.
struct RunHooks {
    /// Ends the run after a failed write to the run log, which is closed by then: stops a running
    /// child, removes an incomplete output, runs the end routine. Returns the exit status.
    int (*end_after_log_failure)() = nullptr;
    /// Reports that the run was interrupted, and what the signal handler could not stop. Called
    /// once.
    void (*report_interruption)() = nullptr;
};
extern RunHooks run_hooks;

#endif
