// The request to the process runner, and its results.
#ifndef QUENDIL_PROCESS_IGEXECREQUEST_H
#define QUENDIL_PROCESS_IGEXECREQUEST_H

#include <sys/types.h>

#include <cstdint>

/// A request to run a program. The caller owns all strings.
struct exec_req {
    const char* command_path = nullptr;  // for execv; also shown in messages
    char* const* argv = nullptr;         // ends in a null; element 0 is the command as written
    const char* stdout_path = nullptr;   // null leaves the standard output as it is
    mode_t directory_mode = 0777;        // of missing directories in stdout_path
    const char* stderr_path = nullptr;   // null leaves the standard error as it is
    std::int32_t timeout = 0;            // seconds; below 1 no time-out
    std::int32_t timeout_signal = -1;    // -1: none given, SIGTERM is sent
    std::int32_t wait_termination = 0;   // seconds from that signal to SIGKILL; 0 or less: none
};

/// Results of the runner.
inline constexpr int EXEC_OK = 0;           ///< exit code 0
inline constexpr int EXEC_NONZERO = 1;      ///< another exit code, or ended by a signal
inline constexpr int EXEC_INTERRUPTED = 2;  ///< IgCmnExecCommand...: the run was interrupted
inline constexpr int EXEC_TIMEOUT = -10;    ///< the time-out passed
inline constexpr int EXEC_FAILED = -1;      ///< the command could not be run (reported)

#endif
