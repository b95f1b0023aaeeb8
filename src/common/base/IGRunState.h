// The state of the run that every layer needs: its return code, whether it was interrupted, and a
// few process-wide values.
#ifndef QUENDIL_COMMON_BASE_IGRUNSTATE_H
#define QUENDIL_COMMON_BASE_IGRUNSTATE_H

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <atomic>

// The return codes, which are also the exit statuses: named after the result of the run.
inline constexpr int RETCODE_FAILED = 255;    ///< nothing usable; the start value
inline constexpr int RETCODE_DIRECTORY = 20;  ///< the output directory, not packed
inline constexpr int RETCODE_ARCHIVE = 10;    ///< the ".tar" archive, not compressed
inline constexpr int RETCODE_COMPRESSED = 0;  ///< the compressed archive

/// The file-creation mask for the files that the program makes for itself: only the owner may read
/// and write them.
inline constexpr mode_t PRIVATE_MASK = 066;

/// Value of the super-user cache before the first check.
inline constexpr int SUPER_USER_NOT_TESTED = 104;

/// The signals that interrupt a run: a terminal's key, an operator, a terminal or connection that
/// closes.
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

/// The total time in microseconds that an interrupted run still waits; see IGPatience.h.
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
    const char* cmd_name = nullptr;  // file-name part of argv[0]
    std::atomic<int> ret_code = RETCODE_FAILED;
    std::atomic<int> interrupted = 0;           // 1 once a signal arrived
    std::atomic<int> interruption_handled = 0;  // 1 once the handler has stopped the child
    std::atomic<int> signal_no = 0;             // the signal that interrupted the run
    std::atomic<long> patience = PATIENCE;      // what remains of it once the run is interrupted
    int interruption_reported = 0;              // 1 once the interruption has been reported
    int super_user = SUPER_USER_NOT_TESTED;     // then 0 (super user) or -1
    int hangup_ignored = 0;                     // 1 when SIGHUP was ignored at the start: nohup(1)
    const struct sigaction ignore_action = ignoringAction();  // ready for the handler
};
extern RunState run_state;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<long>::is_always_lock_free,
              "the signal handler writes these");

/// True from the start of the archive phase, by the return code. The archiver's programs stay in
/// our process group, and their standard error is not joined to their standard output.
inline bool isArchiving() {
    const int code = run_state.ret_code;
    return code == RETCODE_ARCHIVE || code == RETCODE_DIRECTORY;
}

void IgMainSetRetCode(int code);
int IgMainGetRetCode();

/// 1 once the run has been interrupted, else 0. The first call that returns 1 also triggers the
/// report (RunHooks).
int IgMainIsInterrupted();

/// The command name as the usage text and the index header show it.
const char* IgMainGetCmdName();

/// True for the super user: real or effective user ID 0.
bool isSuperUser();
/// 0 for the super user, else -1; checked once and cached.
int IgMainIsSuperUserCached();

/// Ignores the interrupting signals from now on.
void IgMainIgnoreSignals();

/// Records an interruption by a signal that ended a shell command, and ignores further ones.
void IgMainSetInterrupted(int signal_no);

#endif
