// The filter "mask", which lies beside the commands that print through it.
#ifndef QUENDIL_TOOL_IGMASKPIPE_H
#define QUENDIL_TOOL_IGMASKPIPE_H

#include <sys/resource.h>
#include <sys/types.h>

/// A started filter. It reads what is written to `fd` and prints it to the standard output.
struct MaskPipe {
    int fd = -1;
    pid_t pid = -1;
};

/// Starts it. It ignores SIGTERM, so that it outlives a time limit and prints all that it was
/// given; it is ended when it has printed so many bytes. 0, or -1 with errno set.
int maskStart(MaskPipe& mask, const char* command, rlim_t most_bytes);

enum class MaskEnd { ALL, CUT, FAILED };

/// Ends its input and waits for it: whether it printed all, was ended by the limit or failed.
MaskEnd maskFinish(MaskPipe& mask);

#endif
