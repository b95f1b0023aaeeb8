#include "process/IGCmnProcessChild.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "common/base/IGPrintable.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGSysErr.h"
#include "process/IGExecRequest.h"
#include "process/IGProcessControl.h"

// The texts are in the catalogue.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

// Lets the kernel kill the program when this run is killed, so that it does not run on. The kernel
// clears this setting when a set-user-ID program is executed.
void dieWithParent(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const pid_t now = ::getppid();
    if (now != parent && now != 0) {  // 0: the parent is in another process-id namespace
        ::_exit(255);                 // the parent was killed before prctl
    }
}

// The number that a name consists of; -1 when the name has another character.
int descriptorOf(const char* name) {
    int number = 0;
    for (; *name != '\0'; ++name) {
        if (*name < '0' || *name > '9') {
            return -1;
        }
        number = number * 10 + (*name - '0');
    }
    return number;
}

// Closes the descriptors from `first` on that /proc lists. False when it cannot be read.
bool closeNamed(int first) {
    const int directory = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory == -1) {
        return false;
    }
    std::array<char, 4096> entries;
    ssize_t length = 0;
    // Closing does not move other entries: the kernel continues after the last number it returned.
    while ((length = ::getdents64(directory, entries.data(), entries.size())) > 0) {
        const char* end = entries.data() + length;
        for (const char* entry = entries.data(); entry < end;) {
            const int number = descriptorOf(entry + offsetof(struct dirent64, d_name));
            if (number >= first && number != directory) {
                ::close(number);
            }
            decltype(dirent64::d_reclen) size = 0;
            std::memcpy(&size, entry + offsetof(struct dirent64, d_reclen), sizeof size);
            entry += size;
        }
    }
    ::close(directory);
    return length == 0;
}

// Closes every descriptor from `first` on, also those that this program inherited. It must not
// allocate, so it cannot use readdir.
void closeFrom(int first) {
    constexpr int MOST = 1048576;  // the kernel's default limit of descriptors
    // Kernels before 5.9, and some sandboxes, lack the call.
    if (::close_range(static_cast<unsigned>(first), UINT_MAX, 0) == 0 || closeNamed(first)) {
        return;
    }
    for (int number = first; number < MOST; ++number) {
        ::close(number);
    }
}

// Sets the signal actions that a shell would give a tool, regardless of this program's own.
void restoreSignals(const sigset_t& mask) {
    for (const int signo : {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ}) {
        ::signal(signo, SIG_DFL);
    }
    ::signal(SIGHUP, run_state.hangup_ignored != 0 ? SIG_IGN : SIG_DFL);
    // Last: a signal that arrived since the fork ends the child here.
    ::sigprocmask(SIG_SETMASK, &mask, nullptr);
}

[[noreturn]] void leave(const char* command, int error) {
    if (error == ENOENT) {
        static std::array<char, std::size_t{4} * PATH_MAX>
            shown;  // no allocation between fork and exec
        IgCmnMsgPrintable(command, shown.data(), shown.size(), Tabs::KEPT);
        ::dprintf(STDERR_FILENO, IgCmnMsgGetText(ZEPA125_W), shown.data());
    } else {
        const char* text = ::strerrordesc_np(error);  // untranslated, and no allocation
        writeSysErr({.call = "execv", .error = error, .text = text == nullptr ? "" : text},
                    runnerPlace(), SYSERR_WARNING, [](MsgNo number, auto... args) {
                        ::dprintf(STDERR_FILENO, IgCmnMsgGetText(number), args...);
                    });
    }
    ::_exit(255);  // without flushing: the streams' buffers belong to the parent
}

}  // namespace

[[noreturn]] void procChildRun(const exec_req& request, const sigset_t& mask, bool own_group,
                               pid_t parent) {
    dieWithParent(parent);
    if (own_group) {
        ::setpgid(0, 0);
    }
    closeFrom(STDERR_FILENO + 1);
    restoreSignals(mask);
    ::execv(request.command_path, request.argv);
    leave(request.command_path, errno);
}
