#include "process/IGCmnProcessChild.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "common/base/IGPrintable.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGExecRequest.h"

// The texts come from the catalogue.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

// A run that is killed leaves no program behind that would run on. (The kernel forgets this
// for a program that is set-user-ID.)
void endWith(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const pid_t now = ::getppid();
    if (now != parent && now != 0) {  // 0: our parent is not of our process-id namespace
        ::_exit(255);                 // it was killed before
    }
}

// A tool starts as a shell would start it, whatever this program does with signals for itself.
void restoreSignals(const sigset_t& mask) {
    for (const int signo : {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ}) {
        ::signal(signo, SIG_DFL);
    }
    ::signal(SIGHUP, run_state.hangup_ignored != 0 ? SIG_IGN : SIG_DFL);
    // Only now: what arrived since the fork ends the child here.
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
        ::dprintf(STDERR_FILENO, IgCmnMsgGetText(ZEPA140_W), "execv", error,
                  text == nullptr ? "" : text);
        ::dprintf(STDERR_FILENO, IgCmnMsgGetText(ZEPA141_W), "IGCmnProcess", __LINE__);
    }
    ::_exit(255);  // without flushing: the streams' buffers belong to the parent
}

}  // namespace

[[noreturn]] void procChildRun(const exec_req& request, const sigset_t& mask, bool own_group,
                               pid_t parent) {
    endWith(parent);
    if (own_group) {
        ::setpgid(0, 0);
    }
    ::close_range(STDERR_FILENO + 1, UINT_MAX, 0);  // also what our own caller left open
    restoreSignals(mask);
    ::execv(request.command_path, request.argv);
    leave(request.command_path, errno);
}
