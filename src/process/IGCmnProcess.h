// The process runner: runs one external command at a time, with its output redirected to files and
// with or without a time-out, and returns how it ended.
#ifndef QUENDIL_PROCESS_IGCMNPROCESS_H
#define QUENDIL_PROCESS_IGCMNPROCESS_H

#include <cstdint>

#include "process/IGExecRequest.h"

/// Runs a request. `exit_cd` (asserted non-null) receives the exit code, 0 when there is none;
/// `status`, unless null, the raw wait status. EXEC_OK, EXEC_NONZERO, EXEC_TIMEOUT, or EXEC_FAILED
/// after a reported failure, also when the child cannot run the program.
int IgCmnExecProcess(exec_req* request, std::int32_t* exit_cd, std::int32_t* status);

/// Splits a command line at blanks and tabs outside double quotes and runs it; the request has the
/// paths and times. With a null command line, runs `path` alone. A command line without words runs
/// nothing: EXEC_OK. Results as above.
int IgCmnExecCmdlineStr(const char* path, const char* command_line, exec_req* request,
                        std::int32_t* exit_cd, std::int32_t* status);

/// Runs `command_path` with `options`, standard output to "/dev/null", standard error to the tool
/// error file, without a time-out; error output of a command that fails is copied to the run log.
/// Results as above; EXEC_INTERRUPTED whenever the run was interrupted meanwhile. Only for fixed
/// words; the archive maker, whose words are file names, uses IgCmnExecCommandWords.
/// The program itself never calls it.
int IgCmnExecCommand(const char* command_path, const char* options, std::int32_t* exit_cd);

/// The same for a command given as its words, ended by a null; the first is its path. No character
/// of a word is special.
int IgCmnExecCommandWords(char* const* argv, std::int32_t* exit_cd);

/// Reports what the signal handler recorded. Called when the run has noticed the interruption.
void IgCmnProcReportDeferred();
/// At the end of the run: warns (ZEPA149-W, ZEPA216-I) when a child could not be waited for or
/// stopped.
void IgCmnProcReportStopFailure();

#endif
