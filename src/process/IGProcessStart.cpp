#include "process/IGProcessStart.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGCmnProcessChild.h"
#include "process/IGCurrentChild.h"

namespace {

enum Redirected { STANDARD_OUTPUT = 0, STANDARD_ERROR = 1 };

bool isNullDevice(const char* path) {
    return std::strcmp(path, NULL_DEVICE) == 0;
}

// Replaces a standard descriptor by a copy of `fd`; `saved` gets a copy of the old one. False after
// reporting.
bool replaceDescriptor(int fd, int standard_fd, FdGuard& saved) {
    saved.reset(::fcntl(standard_fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!saved) {
        IgCmnSysErrPlain("dup", errno, runnerPlace());
        return false;
    }
    if (::dup2(fd, standard_fd) == -1) {
        IgCmnSysErrPlain("dup2", errno, runnerPlace());
        return false;
    }
    return true;
}

// Checks that an output may replace a path. Only a regular file, a symlink or a free name may be
// replaced: removing a device or a directory would damage the machine, writing to a device could
// change it or block for ever. 0, or the error number to report.
int checkReplaceable(const char* file) {
    struct stat st = {};
    if (::lstat(file, &st) != 0 || S_ISREG(st.st_mode) || S_ISLNK(st.st_mode)) {
        return 0;
    }
    return S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
}

// Prepares the path of the standard output. `ctl` has no path while it is checked: the caller
// removes the file that `ctl` names after a failure, and this one may not be an output.
bool prepareOutput(proc_ctl& ctl) {
    char* const file = std::exchange(ctl.stdout_file, nullptr);
    if (IgCmnFileCreateDirAllPath(file, ctl.request->directory_mode) != 0) {
        return false;
    }
    if (const int error = isNullDevice(file) ? 0 : checkReplaceable(file); error != 0) {
        IgCmnSysErrPath("open", error, file, runnerPlace());
        return false;
    }
    ctl.stdout_file = file;
    return true;
}

bool IgCmnProcRedirect(proc_ctl& ctl, const char* path, Redirected which) {
    if (path == nullptr) {
        return true;
    }
    FdGuard& saved = which == STANDARD_OUTPUT ? ctl.saved_stdout : ctl.saved_stderr;
    const int standard_fd = which == STANDARD_OUTPUT ? STDOUT_FILENO : STDERR_FILENO;
    char*& file = which == STANDARD_OUTPUT ? ctl.stdout_file : ctl.stderr_file;
    if (IgCmnFileNormPath(ctl.pool.get(), path, &file) != 0) {
        return false;
    }
    if (which == STANDARD_OUTPUT && !prepareOutput(ctl)) {
        return false;
    }
    const bool null_device = isNullDevice(file);
    const bool gone = !null_device && (std::remove(file) == 0 || errno == ENOENT);
    if (which == STANDARD_ERROR && !isArchiving() && ctl.request->stdout_path != nullptr) {
        return replaceDescriptor(STDOUT_FILENO, standard_fd, saved);
    }
    // Never write to a file planted after remove(): a symlink would redirect the output, another
    // user's file would reveal it, a FIFO would block. The mode is given here, because a default
    // ACL of the directory overrides the umask.
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | (null_device ? 0 : O_NOFOLLOW) |
                      (gone ? O_EXCL : O_NONBLOCK);
    const FdGuard fd(::open(file, flags, 0600));
    if (!fd) {
        IgCmnSysErrPath("open", errno, file, runnerPlace());
        return false;
    }
    return replaceDescriptor(fd.get(), standard_fd, saved);
}

void restoreDescriptor(FdGuard& saved, int standard_fd) {
    if (saved) {
        if (::dup2(saved.get(), standard_fd) == -1) {
            IgCmnSysErrPlain("dup2", errno, runnerPlace());
        }
        saved.reset();
    }
}

// Starts the child and records it. Returns its pid; -1 with errno set on failure; 0 when the run
// was interrupted before: the handler has already run and found no child to stop.
pid_t startChild(proc_ctl& ctl) {
    const bool own_group = !isArchiving();
    const InterruptionBlock block;
    if (run_state.interrupted != 0) {
        return 0;
    }
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0) {
        procChildRun(*ctl.request, block.saved(), own_group, parent);
    }
    if (pid > 0) {
        if (own_group) {
            ::setpgid(pid, pid);  // as in the child: the group exists before any signal
        }
        ctl.pid = pid;
        crnt_child.reaped = 0;
        crnt_child.reaped_status = 0;
        crnt_child.pid = pid;
    }
    return pid;
}

}  // namespace

bool startProcess(proc_ctl& ctl) {
    const UmaskGuard mask(PRIVATE_MASK);
    if (!IgCmnProcRedirect(ctl, ctl.request->stdout_path, STANDARD_OUTPUT) ||
        !IgCmnProcRedirect(ctl, ctl.request->stderr_path, STANDARD_ERROR)) {
        return false;
    }
    const pid_t pid = startChild(ctl);
    const int error = errno;
    restoreDescriptor(ctl.saved_stdout, STDOUT_FILENO);
    restoreDescriptor(ctl.saved_stderr, STDERR_FILENO);
    if (pid == -1) {
        IgCmnSysErrPlain("fork", error, runnerPlace());
    }
    return pid > 0;
}

void removeRedirected(const proc_ctl& ctl) {
    if (ctl.stdout_file != nullptr && !isNullDevice(ctl.stdout_file)) {
        std::remove(ctl.stdout_file);
    }
}
