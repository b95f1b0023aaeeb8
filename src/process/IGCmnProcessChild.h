// The code that runs in the child between fork and execv, alone in its file: it must use no log and
// allocate nothing.
#ifndef QUENDIL_PROCESS_IGCMNPROCESSCHILD_H
#define QUENDIL_PROCESS_IGCMNPROCESSCHILD_H

#include <signal.h>
#include <sys/types.h>

struct exec_req;

/// Runs the requested program in this process, with default signal actions and no descriptor but 0,
/// 1 and 2. On failure writes this program's message to the standard error and exits with 255.
/// @param mask the signal mask of the program
/// @param own_group whether the program gets a process group of its own
/// @param parent the caller of fork: the program is killed when it ends
[[noreturn]] void procChildRun(const exec_req& request, const sigset_t& mask, bool own_group,
                               pid_t parent);

#endif
