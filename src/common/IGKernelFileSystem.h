// The kernel's own file systems: proc, sysfs and the like.
#ifndef QUENDIL_COMMON_IGKERNELFILESYSTEM_H
#define QUENDIL_COMMON_IGKERNELFILESYSTEM_H

/// True when the path (links followed) lies in proc, sysfs, a cgroup hierarchy, debugfs or the
/// like: files there have sizes that say nothing, and links that lead from everywhere to
/// everywhere.
bool liesInKernelFileSystem(const char* path);

#endif
