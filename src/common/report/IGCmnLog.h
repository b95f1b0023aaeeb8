// The run log, which holds everything that one run reports, and the history log, which gathers a
// few lines of every run.
#ifndef QUENDIL_COMMON_REPORT_IGCMNLOG_H
#define QUENDIL_COMMON_REPORT_IGCMNLOG_H

#include "common/base/IGSourcePlace.h"

/// Keeps the previous run log as "quendil_old.log", opens a new "quendil.log" (readable by its
/// owner alone) and writes ZEPA201-I. 0, or -1 after reporting on the standard error.
int IgCmnMsgOpenLog();

/// Writes ZEPA213-I with the return code and closes the run log; does nothing when it is not open.
void IgCmnMsgCloseLog();

/// Appends the text file `path`, as long as it is when it is opened, to the run log and ends its
/// last line when it has no end. 0, or -1 when the run log is not open, the file does not exist, or
/// after reporting what failed. An interruption ends the copy with a whole line, is then reported
/// (ZEPA136-E), and gives -1 too.
int IgCmnMsgCopyFile(const char* path);

/// Moves a history log of 97 % of 10240 bytes or more to "quendil_hist_old.log", under the history
/// lock, which it waits for. Nothing for anybody but the super user.
void IgCmnMsgHistRotate();

/// Appends the catalogue text `number` with printf-style arguments to the history log, under the
/// history lock, which it waits for: without limit, until the run is interrupted. Nothing for
/// anybody but the super user. Failures are reported and change nothing else.
void IgCmnMsgHist(int number, ...);

/// Reports a failed system call of the history log as warnings, with the error in errno: into the
/// run log when it is open, else on the standard error. Null texts are shown as "(null)".
void IgCmnMsgHistSysErr(const char* call, const char* path,
                        SourcePlace place = SourcePlace::current());

#endif
