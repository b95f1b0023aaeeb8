// The run log, with everything that one run reports, and the history log, with a few lines of every
// run.
#ifndef QUENDIL_COMMON_REPORT_IGCMNLOG_H
#define QUENDIL_COMMON_REPORT_IGCMNLOG_H

#include "common/base/IGSourcePlace.h"

/// Renames the previous run log to "quendil_old.log", opens a new "quendil.log" (readable only by
/// its owner) and writes ZEPA201-I. 0, or -1 after reporting on the standard error.
int IgCmnMsgOpenLog();

/// Writes ZEPA213-I with the return code and closes the run log, if it is open.
void IgCmnMsgCloseLog();

/// Appends the text file `path` to the run log, up to its size when it is opened, and ends its last
/// line if needed. 0, or -1 when the run log is not open, the file does not exist, or after
/// reporting a failure. An interruption stops the copy, ends its last line, is then reported
/// (ZEPA136-E), and gives -1 too.
int IgCmnMsgCopyFile(const char* path);

/// Renames a history log of 97 % of 10240 bytes or more to "quendil_hist_old.log", under the
/// history lock, which it waits for. Only the super user's runs do this.
void IgCmnMsgHistRotate();

/// Appends the catalogue text `number` with printf-style arguments to the history log, under the
/// history lock. It waits for the lock without limit; an interrupted run waits only for the rest of
/// its patience. Only the super user's runs do this. Failures are reported and have no other
/// effect.
void IgCmnMsgHist(int number, ...);

/// Reports a failed system call of the history log as warnings, with the error in errno: to the run
/// log when it is open, else to the standard error. Null texts are shown as "(null)".
void IgCmnMsgHistSysErr(const char* call, const char* path,
                        SourcePlace place = SourcePlace::current());

#endif
