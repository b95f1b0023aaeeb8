// The running child, shared by the process runner and the signal handler. Everything here is
// async-signal-safe.
#ifndef QUENDIL_PROCESS_IGCURRENTCHILD_H
#define QUENDIL_PROCESS_IGCURRENTCHILD_H

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>

/// The running child, shared with the signal handler, which stops it. The handler only records
/// failures; the runner reports them later.
struct CurrentChild {
    std::atomic<pid_t> pid = 0;          // 0 when no child is running
    std::atomic<int> reaped = 0;         // 1 once the handler has reaped the child
    std::atomic<int> reaped_status = 0;  // then: its wait status
    std::atomic<int> stop_failure = 0;   // 1 once waiting for or stopping a child has failed
    // a failure in the handler; a later one overwrites an earlier one
    std::atomic<const char*> failed_call = nullptr;  // null: none
    std::atomic<int> failed_error = 0;
    std::atomic<const char*> failed_file = nullptr;
    std::atomic<int> failed_line = 0;
    std::atomic<pid_t> failed_pid = 0;
};
extern CurrentChild crnt_child;
static_assert(std::atomic<pid_t>::is_always_lock_free &&
                  std::atomic<const char*>::is_always_lock_free,
              "the signal handler writes these");

/// Signals a child by its pid, or a tool and its whole group by the negated pid; a tool that has
/// moved to another group gets the signal alone. Same result as kill(2), and async-signal-safe.
inline int signalProcess(pid_t target, int signo) {
    const int result = ::kill(target, signo);
    return result == -1 && errno == ESRCH && target < 0 ? ::kill(-target, signo) : result;
}

/// Checks whether a child has ended, without reaping it: its pid if so, 0 while it runs, -1 with
/// errno set.
pid_t endedChild(pid_t pid);

/// Reaps the child if it has ended. With `kill_group` it first kills the rest of the child's group:
/// while the child is not reaped, no other group can get its number. A child that ends between the
/// check and the reaping is left for the next call. The caller blocks the interrupting signals or
/// is their handler.
/// @param status as waitpid(2) sets it, when the child was reaped
/// @return the child's pid, 0 while it runs, -1 with errno set
pid_t reapChild(pid_t pid, bool kill_group, int& status);

#endif
