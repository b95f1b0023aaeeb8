// Run control: the checks that a run must pass, the collection driver and the end routine.
#ifndef QUENDIL_MAIN_IGMAIN_H
#define QUENDIL_MAIN_IGMAIN_H

#include "collect/IGResult.h"

/// 0 for the super user (real or effective user ID 0); otherwise -1, after ZEPA117-E unless `quiet`
/// is non-zero.
int IgMainIsSuperUser(int quiet);

/// Result of IgMainLock when another run holds the lock.
inline constexpr int LOCK_HELD = 5;
/// Takes the single-run lock, which is held at most until the process ends. Returns 0, or LOCK_HELD
/// or -1 after reporting on the terminal and in the history log.
int IgMainLock();
/// Closes the lock's descriptor.
void IgMainUnlock();

/// The collection driver: makes the output directory, collects item by item and makes the archive.
/// The argument is not used. Returns RESULT_DONE, RESULT_FAILED, RESULT_INTERRUPTED, or
/// RESULT_SIZE_LIMIT when a file over the size limit cannot be removed.
Result IgMainCollect(int unused);
/// Whether the cleanup phase follows a collection with this result: always when done, never after
/// the size limit, else if the configuration says so.
bool wantsCleanup(Result collected);

/// Stops a running child (a tool with its process group), for a run that ends at once.
void IgMainStopChild();

/// The end routine: reports the result, frees the main pool, closes the run log, writes the end to
/// the history log and releases the lock. Returns the return code. When a step's own report cannot
/// be written, the routine is called again and continues after that step.
int IgMainEnd();

/// Ends the run after a failed write to the run log: stops a running child, removes the output
/// directory if cleanup is ON and it is not the result, and runs the end routine. Returns the
/// return code.
int IgMainEndAfterLogFailure();
/// Reports the interruption with its signal (ZEPA136-E) and what the signal handler could not stop.
void IgMainReportInterruption();

#endif
