// What is left of a tool's process group.
#ifndef QUENDIL_PROCESS_IGPROCESSGROUP_H
#define QUENDIL_PROCESS_IGPROCESSGROUP_H

#include <sys/types.h>

/// Whether processes of a group still live behind its leader, a child of ours that has ended and is
/// not reaped: as long as it is not, the group's number stays its own, but kill(2) counts it and
/// every other dead process as a member. So "/proc" is asked.
/// @return true also when that cannot tell, on a machine without a "/proc" of its own
bool processGroupLives(pid_t leader);

#endif
