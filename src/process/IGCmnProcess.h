// The process runner: runs one external command at a time, with its output redirected to files and
// with or without a time-out, and returns how it ended.
#ifndef QUENDIL_PROCESS_IGCMNPROCESS_H
#define QUENDIL_PROCESS_IGCMNPROCESS_H

#include <cstdint>

#include "process/IGExecRequest.h"

/// Runs a request and waits for its end.
/// @param exit_cd set to the exit code; to 0 when the command was ended by a signal or not started
/// @param status unless null, set to the wait status from waitpid(2) when the child was started
/// @return EXEC_OK, EXEC_NONZERO, EXEC_TIMEOUT, or EXEC_FAILED: reported, also when the child
/// cannot run the program; not reported when the run was interrupted before the start
int IgCmnExecProcess(exec_req* request, std::int32_t* exit_cd, std::int32_t* status);

/// Splits a command line at blanks and tabs outside double quotes and runs it. With a null command
/// line, runs `path` alone. A command line without words runs nothing: EXEC_OK. Results as above.
/// @param request the output paths and times; its command is set for the call and null afterwards
int IgCmnExecCmdlineStr(const char* path, const char* command_line, exec_req* request,
                        std::int32_t* exit_cd, std::int32_t* status);

/// Runs `command_path` with `options`, standard output to "/dev/null", standard error to the tool
/// error file, without a time-out; error output of a command that fails is copied to the run log.
/// Results as above; EXEC_INTERRUPTED whenever the run was interrupted meanwhile. Only for fixed
/// words; the archive maker, whose words are file names, uses IgCmnExecCommandWords.
/// The program itself never calls it.
int IgCmnExecCommand(const char* command_path, const char* options, std::int32_t* exit_cd);

/// The same for a command as an array of words, ended by a null; the first is its path. No
/// character of a word is special.
int IgCmnExecCommandWords(char* const* argv, std::int32_t* exit_cd);

/// Reports the last failure that the signal handler recorded in `crnt_child`, if any (ZEPA113-E,
/// ZEPA148-W). Called once the run has noticed the interruption.
void IgCmnProcReportDeferred();
/// At the end of the run: warns (ZEPA149-W, ZEPA216-I) when a child could not be waited for or
/// stopped.
void IgCmnProcReportStopFailure();

#endif
