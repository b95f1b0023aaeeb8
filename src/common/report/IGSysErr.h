// The report of a failed system call, for all its destinations: the call with its error, its
// subject, and the place in the source.
#ifndef QUENDIL_COMMON_REPORT_IGSYSERR_H
#define QUENDIL_COMMON_REPORT_IGSYSERR_H

#include "common/base/IGSourcePlace.h"
#include "common/report/IGCmnMessageTable.h"

/// A failed system call and what is known of it.
struct SysErr {
    const char* call;               ///< name of the call
    int error;                      ///< error number
    const char* text = nullptr;     ///< null: the system's text for the number
    const char* what = "path";      ///< what the subject is
    const char* subject = nullptr;  ///< null: the call has no subject
};

/// The system's untranslated text for an error number (static storage); null when `suppress` is
/// non-zero or the locale of messages cannot be read or switched.
const char* IgCmnStrError(int error, int suppress);

/// The messages of the three lines of a report.
struct SysErrTexts {
    MsgNo call;
    MsgNo subject;
    MsgNo place;
};
inline constexpr SysErrTexts SYSERR_ERROR{ZEPA113_E, ZEPA151_E, ZEPA114_E};
inline constexpr SysErrTexts SYSERR_WARNING{ZEPA140_W, ZEPA152_W, ZEPA141_W};

/// The subject with its control characters shown as octal, in static storage; the next call
/// overwrites it.
const char* shownSubject(const char* subject);

/// Writes the lines with `write(MsgNo, arguments of its text...)`. Without a subject there is no
/// line for it, and without a place (line 0) none for that.
template <typename Write>
void writeSysErr(const SysErr& failed, const SourcePlace& place, const SysErrTexts& texts,
                 Write write) {
    const char* text = failed.text != nullptr ? failed.text : IgCmnStrError(failed.error, 0);
    write(texts.call, failed.call, failed.error, text);
    if (failed.subject != nullptr) {
        write(texts.subject, failed.what, shownSubject(failed.subject));
    }
    if (place.line != 0) {
        const auto unit = place.unit();
        write(texts.place, unit.data(), place.line);
    }
}

#endif
