// What runs in the child between fork and execv, alone in its file: it must touch no log and
// allocate nothing.
#ifndef QUENDIL_PROCESS_IGCMNPROCESSCHILD_H
#define QUENDIL_PROCESS_IGCMNPROCESSCHILD_H

#include <signal.h>
#include <sys/types.h>

struct exec_req;

/// Becomes the requested program with default signal actions, the signal mask given and no
/// descriptor but 0, 1 and 2; it ends with its `parent`, the caller of fork. Where that fails,
/// writes this program's message to the standard error and leaves with 255.
[[noreturn]] void procChildRun(const exec_req& request, const sigset_t& mask, bool own_group,
                               pid_t parent);

#endif
