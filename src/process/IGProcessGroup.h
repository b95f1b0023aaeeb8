// The remaining processes of a tool's process group.
#ifndef QUENDIL_PROCESS_IGPROCESSGROUP_H
#define QUENDIL_PROCESS_IGPROCESSGROUP_H

#include <sys/types.h>

/// Whether processes of a group are still alive. Reads "/proc", because kill(2) counts zombies as
/// members.
/// @param leader a child that has ended and is not reaped, so that no other group gets its number
/// @return true also when "/proc" does not show the leader as such a child: it is missing, or that
/// of another pid namespace
bool processGroupLives(pid_t leader);

#endif
