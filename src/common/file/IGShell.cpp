#include "common/file/IGShell.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"

namespace {

constexpr int NO_SHELL = 127;  // what the shell says of a command that it cannot run

// The program's own signals while a command runs: a terminal's SIGQUIT is for the command, and its
// end is for us to ask for.
class ShellSignals {
  public:
    ShellSignals() {
        const struct sigaction ignore = ignoringAction();
        ::sigaction(SIGQUIT, &ignore, &quit_);
        sigset_t child;
        ::sigemptyset(&child);
        ::sigaddset(&child, SIGCHLD);
        ::sigprocmask(SIG_BLOCK, &child, &mask_);
    }
    ~ShellSignals() {
        const ErrnoKeeper keeper;
        restore();
    }
    ShellSignals(const ShellSignals&) = delete;
    ShellSignals& operator=(const ShellSignals&) = delete;
    void restore() const {
        ::sigaction(SIGQUIT, &quit_, nullptr);
        ::sigprocmask(SIG_SETMASK, &mask_, nullptr);
    }

  private:
    struct sigaction quit_ = {};
    sigset_t mask_{};
};

// The child becomes the shell. Unlike a tool it does not end with this program: what it removes is
// to go in any case, and half a directory would stay.
[[noreturn]] void becomeShell(const char* command, const ShellSignals& signals) {
    for (const int signo : INTERRUPTING_SIGNALS) {
        struct sigaction action = {};
        ::sigaction(signo, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            ::signal(signo, SIG_DFL);  // the handler is the run's, not the command's
        }
    }
    signals.restore();  // only now: what arrived since the fork ends the command
    char name[] = "sh";
    char option[] = "-c";
    char* const argv[] = {name, option, const_cast<char*>(command), nullptr};
    ::execv("/bin/sh", argv);
    ::_exit(NO_SHELL);
}

pid_t startShell(const char* command, const ShellSignals& signals) {
    const InterruptionBlock block;  // the handler must not run in the child
    const pid_t pid = ::fork();
    if (pid == 0) {
        becomeShell(command, signals);
    }
    return pid;
}

bool reapShell(pid_t pid, int& status) {
    while (::waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// 0 when it was waited for. After a failure it is waited for once more, so that no command is left
// running behind us; it is not killed, for the number may not be a child's any more.
int awaitShell(pid_t pid, int& status) {
    if (reapShell(pid, status)) {
        return 0;
    }
    const ErrnoKeeper keeper;
    reapShell(pid, status);
    return -1;
}

bool endedByInterrupt(int status) {
    return (WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) ||
           (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGINT);
}

}  // namespace

int runShell(const char* command) {
    errno = 0;
    int status = 0;
    const ShellSignals signals;
    const pid_t pid = startShell(command, signals);
    if (pid == -1 || awaitShell(pid, status) != 0) {
        return -1;
    }
    if (endedByInterrupt(status) && run_state.interrupted == 0) {
        IgMainSetInterrupted(SIGINT);
    }
    return status;
}
