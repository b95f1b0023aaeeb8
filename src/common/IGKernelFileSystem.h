// The kernel's own file systems: proc, sysfs and the like.
#ifndef QUENDIL_COMMON_IGKERNELFILESYSTEM_H
#define QUENDIL_COMMON_IGKERNELFILESYSTEM_H

/// 1 when the path (links followed) lies in proc, sysfs, a cgroup hierarchy, debugfs or the like:
/// files there have sizes that say nothing, and links that lead from everywhere to everywhere. 0
/// when it lies elsewhere, -1 after reporting "statfs".
int liesInKernelFileSystem(const char* path);

#endif
