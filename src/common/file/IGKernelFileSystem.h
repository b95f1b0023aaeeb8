// The kernel's own file systems: proc, sysfs and the like.
#ifndef QUENDIL_COMMON_FILE_IGKERNELFILESYSTEM_H
#define QUENDIL_COMMON_FILE_IGKERNELFILESYSTEM_H

#include <sys/types.h>

/// 1 when the path (links followed) lies in proc, sysfs, a cgroup hierarchy, debugfs or the like:
/// files there have sizes that say nothing, and links that lead from everywhere to everywhere. 0
/// when it lies elsewhere, -1 after reporting "statfs".
int liesInKernelFileSystem(const char* path);

/// The same of an open file. One call of the system serves all files in a row on one device.
/// @param device the descriptor's, as fstat(2) gives it
/// @param path its path, for the report
int kernelFileSystemOf(int fd, dev_t device, const char* path);

#endif
