// The filter "mask", which is in the same directory as the commands that print through it.
#ifndef QUENDIL_TOOL_IGMASKPIPE_H
#define QUENDIL_TOOL_IGMASKPIPE_H

#include <sys/resource.h>
#include <sys/types.h>

/// A running filter, which prints to the standard output of its caller.
struct MaskPipe {
    int fd = -1;  ///< the writing end of the pipe that it reads
    pid_t pid = -1;
};

/// Starts the filter. It ignores SIGTERM, so that it outlives a time limit and prints all of its
/// input.
/// @param mask set on success; the caller must then call maskFinish()
/// @param command argv[0] of the caller, for a machine without /proc
/// @param most_bytes the size in bytes at which the filter ends when its output is a regular file
/// (RLIMIT_FSIZE); a pipe has no limit
/// @return 0, or -1 with errno set. If the filter cannot be executed, maskFinish() returns FAILED
int maskStart(MaskPipe& mask, const char* command, rlim_t most_bytes);

enum class MaskEnd {
    ALL,      ///< the filter printed its whole input
    LIMITED,  ///< the output reached the limit
    FAILED    ///< the filter was not executed, or failed
};

/// Closes the pipe to the filter and waits for its end.
MaskEnd maskFinish(MaskPipe& mask);

#endif
