// How long a run that was interrupted still waits for others: for the reader of its terminal, for
// the history lock, for a process that even SIGKILL does not end. It is to end, whatever they do.
#ifndef QUENDIL_COMMON_BASE_IGPATIENCE_H
#define QUENDIL_COMMON_BASE_IGPATIENCE_H

#include <sys/select.h>

#include <algorithm>

#include "common/base/IGRunState.h"

/// Microseconds in a second.
inline constexpr long SECOND = 1000000;

/// How many steps make up a span of time, both in microseconds; the span must be a multiple of the
/// step, so that a changed step never changes how long is waited.
template <long SPAN, long STEP>
consteval long roundsIn() {
    static_assert(STEP > 0 && SPAN % STEP == 0, "the steps do not make up the span");
    return SPAN / STEP;
}

/// True once the run is interrupted and has waited for as long as it does in all.
inline bool isPatienceOver() {
    return run_state.interrupted != 0 && run_state.patience <= 0;
}

/// Waits until one of the descriptors can be written, as select(2) does, or sleeps where there are
/// none. A run that was interrupted takes the time from its patience, and waits no longer than that
/// lasts. For the signal handler too.
/// @param count one more than the highest descriptor of the set; 0 without a set
/// @param longest in microseconds
/// @return as select(2): 0 when the time is over
inline int waitPatiently(int count, fd_set* writable, long longest) {
    const bool interrupted = run_state.interrupted != 0;
    const long span = interrupted ? std::min(longest, run_state.patience.load()) : longest;
    struct timeval time = {span / SECOND, span % SECOND};
    const int result = ::select(count, nullptr, writable, nullptr, &time);
    if (interrupted) {
        // The kernel leaves there what it has not waited. A wait that fails must not be repeated
        // for ever.
        const long left = result == -1 ? 0 : time.tv_sec * SECOND + time.tv_usec;
        run_state.patience -= span - left;
    }
    return result;
}

#endif
