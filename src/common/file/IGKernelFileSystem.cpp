#include "common/file/IGKernelFileSystem.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "common/report/IGCmnMessage.h"

namespace {

// Types as statfs(2) returns them. The C library's headers do not name the last ones.
constexpr unsigned long KERNEL_FILE_SYSTEMS[] = {
    PROC_SUPER_MAGIC,     SYSFS_MAGIC,          CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,
    DEBUGFS_MAGIC,        TRACEFS_MAGIC,        SECURITYFS_MAGIC,   SELINUX_MAGIC,
    SMACK_MAGIC,          BPF_FS_MAGIC,         PSTOREFS_MAGIC,     EFIVARFS_MAGIC,
    RDTGROUP_SUPER_MAGIC, OPENPROM_SUPER_MAGIC, XENFS_SUPER_MAGIC,  BINFMTFS_MAGIC,
    0x62656570UL,  // configfs
    0x65735543UL,  // fusectl
};

bool isKernels(unsigned long type) {
    const auto* end = std::end(KERNEL_FILE_SYSTEMS);
    return std::find(std::begin(KERNEL_FILE_SYSTEMS), end, type) != end;
}

}  // namespace

int liesInKernelFileSystem(const char* path) {
    struct statfs fs = {};
    if (::statfs(path, &fs) != 0) {
        IgCmnSysErrPath("statfs", errno, path);
        return -1;
    }
    return isKernels(static_cast<unsigned long>(fs.f_type)) ? 1 : 0;
}

int kernelFileSystemOf(int fd, dev_t device, const char* path) {
    // Of the last device: files are collected directory by directory.
    static dev_t known_device = 0;  // no file system has device 0
    static int known = 0;
    if (device != known_device) {
        struct statfs fs = {};
        if (::fstatfs(fd, &fs) != 0) {
            if (path != nullptr) {
                IgCmnSysErrPath("statfs", errno, path);
            }
            return -1;
        }
        known = isKernels(static_cast<unsigned long>(fs.f_type)) ? 1 : 0;
        known_device = device;
    }
    return known;
}
