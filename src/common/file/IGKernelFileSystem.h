// Kernel file systems: proc, sysfs and similar.
#ifndef QUENDIL_COMMON_FILE_IGKERNELFILESYSTEM_H
#define QUENDIL_COMMON_FILE_IGKERNELFILESYSTEM_H

#include <sys/types.h>

/// 1 when the path (symlinks followed) is in proc, sysfs, a cgroup hierarchy, debugfs or similar,
/// where file sizes are meaningless and symlinks point anywhere. 0 when it is not, -1 after
/// reporting "statfs".
int liesInKernelFileSystem(const char* path);

/// The same for an open file. Caches the result for the last device, so consecutive files on one
/// device need one system call.
/// @param device the descriptor's, from fstat(2)
/// @param path its path, for the report; null for no report
int kernelFileSystemOf(int fd, dev_t device, const char* path);

#endif
