// The filter "mask", which is in the same directory as the commands that print through it.
#ifndef QUENDIL_TOOL_IGMASKPIPE_H
#define QUENDIL_TOOL_IGMASKPIPE_H

#include <sys/resource.h>
#include <sys/types.h>

/// A filter that runs. It reads from the other end of `fd` and prints to the standard output.
struct MaskPipe {
    int fd = -1;
    pid_t pid = -1;
};

/// Starts the filter. It ignores SIGTERM, so that it outlives a time limit and prints all of its
/// input.
/// @param mask set on success; maskFinish() ends it
/// @param command argv[0] of the caller, for a machine without /proc
/// @param most_bytes the filter ends when it has printed so many bytes
/// @return 0, or -1 with errno set. A filter that cannot be executed fails later, in maskFinish()
int maskStart(MaskPipe& mask, const char* command, rlim_t most_bytes);

enum class MaskEnd {
    ALL,      ///< the filter printed its whole input
    LIMITED,  ///< the output reached the limit
    FAILED    ///< the filter was not executed, or failed
};

/// Closes the input of the filter and waits for its end.
MaskEnd maskFinish(MaskPipe& mask);

#endif
