// The remaining processes of a tool's process group.
#ifndef QUENDIL_PROCESS_IGPROCESSGROUP_H
#define QUENDIL_PROCESS_IGPROCESSGROUP_H

#include <sys/types.h>

/// Whether processes of a group are still alive. The leader is a child that has ended and is not
/// reaped: until then the group keeps its number, but kill(2) counts the leader and every other
/// dead process as a member. So it reads "/proc".
/// @return true also when "/proc" cannot answer, as on a machine without a "/proc" of its own
bool processGroupLives(pid_t leader);

#endif
