// What every floor must know of the run: its return code, whether it was interrupted, and the few
// process-wide values around them. What the common library must set off in the floors above it is
// handed down at start as functions, so that nothing here calls upwards by name.
#ifndef QUENDIL_COMMON_IGRUNSTATE_H
#define QUENDIL_COMMON_IGRUNSTATE_H

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "common/IGCmnMemory.h"

struct root_tbl;

// The return codes, which are the exit statuses: what the run leaves behind.
inline constexpr int RETCODE_FAILED = 255;    ///< nothing usable; the start value
inline constexpr int RETCODE_DIRECTORY = 20;  ///< the output directory, not packed
inline constexpr int RETCODE_ARCHIVE = 10;    ///< the ".tar" archive, not compressed
inline constexpr int RETCODE_COMPRESSED = 0;  ///< the compressed archive

/// The file-creation mask of everything that the program makes for itself.
inline constexpr mode_t PRIVATE_MASK = 066;

/// Value of the super-user cache before the first test.
inline constexpr int SUPER_USER_NOT_TESTED = 104;

/// The signals that interrupt a run: a terminal's key, an operator, a terminal or connection that
/// is closed.
inline constexpr std::array<int, 3> INTERRUPTING_SIGNALS = {SIGINT, SIGTERM, SIGHUP};

/// These signals as a set.
inline sigset_t interruptingSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signo : INTERRUPTING_SIGNALS) {
        ::sigaddset(&set, signo);
    }
    return set;
}

/// Microseconds that a run which was interrupted still waits for others, in all; IGPatience.h.
inline constexpr long PATIENCE = 3000000;

/// The action that ignores a signal.
inline struct sigaction ignoringAction() {
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    ::sigemptyset(&action.sa_mask);
    return action;
}

/// Process-wide variables of one run. The atomic ones are shared with the signal handler.
struct RunState {
    memory_pool memoryp = nullptr;    // the run's main pool
    const char* cmd_name = nullptr;   // file-name part of argv[0]
    char* argument = nullptr;         // all arguments joined, as shown; null without any
    std::uint32_t argument_size = 0;  // capacity of `argument` in bytes
    struct root_tbl* root = nullptr;  // the run's configuration; null until built
    std::atomic<int> ret_code = RETCODE_FAILED;
    std::atomic<int> interrupted = 0;           // 1 once a signal arrived
    std::atomic<int> interruption_handled = 0;  // 1 once the handler has stopped the child
    std::atomic<int> signal_no = 0;             // the signal that interrupted the run
    std::atomic<long> patience = PATIENCE;      // what is left of it, once the run is interrupted
    int interruption_reported = 0;              // 1 once ZEPA136-E has been issued
    int cleanup_wanted = 0;                     // 1 when the cleanup phase is to run
    int size_exceeded = 0;                      // 1 once a file was left out for the size limit
    std::int64_t total_size = 0;                // bytes collected so far
    int tools_ran = 0;                          // 1 once a tool may have written into the output
    int lock_fd = -1;                           // descriptor of the single-run lock
    int super_user = SUPER_USER_NOT_TESTED;     // then 0 (super user) or -1
    int hangup_ignored = 0;                     // 1 when SIGHUP was ignored at the start: nohup(1)
    const struct sigaction ignore_action = ignoringAction();  // ready for the handler
};
extern RunState run_state;
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler writes these");

/// What the common library asks of the floors above; a null one is left out.
struct RunHooks {
    int (*end)() = nullptr;               // the end routine; returns the exit status
    void (*remove_output)() = nullptr;    // removes the incomplete output directory
    void (*stop_child)() = nullptr;       // stops and reaps a running child
    void (*report_deferred)() = nullptr;  // reports what the signal handler could not do
    int (*is_super_user)() = nullptr;     // 0 for the super user
};
extern RunHooks run_hooks;

/// True while the archiver runs: its programs get no process group and no joined output of their
/// own.
inline bool isArchiving() {
    const int code = run_state.ret_code;
    return code == RETCODE_ARCHIVE || code == RETCODE_DIRECTORY;
}

void IgMainSetRetCode(int code);
int IgMainGetRetCode();

/// 1 once the run has been interrupted, else 0. The first call that answers 1 also issues ZEPA136-E
/// with the signal number and reports what the handler failed to stop.
int IgMainIsInterrupted();

/// The command name as the usage text and the index header show it.
const char* IgMainGetCmdName();

/// Records that a file was left out (1) because of the output size limit.
void IgMainSetSizeOver(int flag);

/// Ignores the interrupting signals from now on.
void IgMainIgnoreSignals();

/// Records an interruption that a child died of: a shell command that SIGINT ended.
void IgMainSetInterrupted(int signal_no);

#endif
