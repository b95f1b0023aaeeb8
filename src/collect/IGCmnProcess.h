// The process runner: one external command at a time, its output pointed at files, waited for with
// or without a time-out, stopped with signals, its outcome classified.
#ifndef QUENDIL_COLLECT_IGCMNPROCESS_H
#define QUENDIL_COLLECT_IGCMNPROCESS_H

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

/// What the caller asks to run.
struct exec_req {
    const char* command_path = nullptr;  // for execv, and the name shown in messages
    char* const* argv = nullptr;         // ends in a null; element 0 is the command as written
    const char* stdout_path = nullptr;   // null leaves the standard output as it is
    mode_t directory_mode = 0777;        // of directories that are made for it
    const char* stderr_path = nullptr;   // null leaves the standard error as it is
    std::int32_t timeout = 0;            // seconds; below 1 none
    std::int32_t timeout_signal = -1;    // -1: not given, SIGTERM is sent
    std::int32_t wait_termination = 0;   // seconds from that signal to SIGKILL; 0 or less none
};

/// Results of the runner.
inline constexpr int EXEC_OK = 0;           ///< exit code 0
inline constexpr int EXEC_NONZERO = 1;      ///< another exit code, or ended by a signal
inline constexpr int EXEC_INTERRUPTED = 2;  ///< IgCmnExecCommand only: the run was interrupted
inline constexpr int EXEC_TIMEOUT = -10;    ///< the time-out passed
inline constexpr int EXEC_FAILED = -1;      ///< the command could not be run

/// The running child, shared with the signal handler, which stops it. The handler only records what
/// went wrong; the runner reports it later.
struct CurrentChild {
    std::atomic<pid_t> pid = 0;          // 0 when no child is running
    std::atomic<int> reaped = 0;         // 1 once the handler has reaped the child itself
    std::atomic<int> reaped_status = 0;  // its wait status then; may well be 0
    std::atomic<int> stop_failure = 0;   // 1 once waiting for or stopping a child has failed
    // a failure of the handler; a later one overwrites an earlier one
    std::atomic<const char*> failed_call = nullptr;  // null: none
    std::atomic<int> failed_error = 0;
    std::atomic<const char*> failed_file = nullptr;
    std::atomic<int> failed_line = 0;
    std::atomic<pid_t> failed_pid = 0;
};
extern CurrentChild crnt_child;

/// Signals a child by its pid, or a tool and all of its group by the negated pid; a tool that has
/// gone over to another group gets the signal alone. As kill(2), and async-signal-safe like it.
inline int signalProcess(pid_t target, int signo) {
    const int result = ::kill(target, signo);
    return result == -1 && errno == ESRCH && target < 0 ? ::kill(-target, signo) : result;
}

/// Runs a request. `exit_cd` (asserted non-null) receives the exit code, 0 when there is none;
/// `status`, unless null, the raw wait status. EXEC_OK, EXEC_NONZERO, EXEC_TIMEOUT, or EXEC_FAILED
/// after a reported failure and when the child found no program to run.
int IgCmnExecProcess(exec_req* request, std::int32_t* exit_cd, std::int32_t* status);

/// Splits a command line at blanks and tabs outside double quotes and runs it; the request brings
/// the paths and times. Without a command line, runs `path` alone. A command line without a word
/// runs nothing: EXEC_OK. Results as above.
int IgCmnExecCmdlineStr(const char* path, const char* command_line, exec_req* request,
                        std::int32_t* exit_cd, std::int32_t* status);

/// Runs `command_path` with `options`, standard output to "/dev/null", standard error to the tool
/// error file, no time-out; error output of a command that fails goes to the run log. Results as
/// above; EXEC_INTERRUPTED whenever the run was interrupted meanwhile. For words that no name can
/// change; the archive maker, whose words are names, uses IgCmnExecCommandWords.
int IgCmnExecCommand(const char* command_path, const char* options, std::int32_t* exit_cd);

/// The same for a command given as its words, ended by a null; the first is its path. No character
/// of a word means anything.
int IgCmnExecCommandWords(char* const* argv, std::int32_t* exit_cd);

/// Reports what the signal handler recorded, once the run has noticed the interruption.
void IgCmnProcReportDeferred();
/// At the end of the run: warns (ZEPA149-W, ZEPA216-I) when a child could not be waited for or
/// stopped.
void IgCmnProcReportStopFailure();

/// The effective user before a change.
struct usr_inf {
    std::uint32_t euid;
};

/// Result of the two functions below: unknown user, or a call failed (reported).
inline constexpr int USER_FAILED = 11;

/// Makes the named user the effective user and keeps the present one in `usr_inf`. 0, USER_FAILED,
/// or -1 when memory runs out.
int IgCmnChangeUser(const char* user_name, usr_inf* usr_inf);
/// Sets the effective user back. 0 or USER_FAILED.
int IgCmnRetoreUser(const usr_inf* usr_inf);

#endif
