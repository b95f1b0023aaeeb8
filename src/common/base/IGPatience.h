// How long an interrupted run still waits: for the reader of its terminal, for the history lock,
// for a process that not even SIGKILL ends. The run must end even if they do not respond.
#ifndef QUENDIL_COMMON_BASE_IGPATIENCE_H
#define QUENDIL_COMMON_BASE_IGPATIENCE_H

#include <sys/select.h>

#include <algorithm>

#include "common/base/IGRunState.h"

/// Microseconds in a second.
inline constexpr long SECOND = 1000000;

/// The number of steps in a span of time, both in microseconds. The span must be a multiple of the
/// step, so that another step does not change the total wait.
template <long SPAN, long STEP>
consteval long roundsIn() {
    static_assert(STEP > 0 && SPAN % STEP == 0, "the steps do not make up the span");
    return SPAN / STEP;
}

/// True when the run is interrupted and has used up its patience, the time that it may still wait.
inline bool isPatienceOver() {
    return run_state.interrupted != 0 && run_state.patience <= 0;
}

/// Waits until one of the descriptors is writable, as select(2) does; without a set it sleeps. An
/// interrupted run deducts the time from its patience and waits no longer than that. The signal
/// handler may call it.
/// @param count one more than the highest descriptor of the set; 0 without a set
/// @param longest in microseconds
/// @return as select(2): 0 when the time is over
inline int waitPatiently(int count, fd_set* writable, long longest) {
    const bool interrupted = run_state.interrupted != 0;
    const long span = interrupted ? std::min(longest, run_state.patience.load()) : longest;
    struct timeval time = {span / SECOND, span % SECOND};
    const int result = ::select(count, nullptr, writable, nullptr, &time);
    if (interrupted) {
        // The kernel stores the unused time there. A failed wait uses it all up: a retry must not
        // loop for ever.
        const long left = result == -1 ? 0 : time.tv_sec * SECOND + time.tv_usec;
        run_state.patience -= span - left;
    }
    return result;
}

#endif
