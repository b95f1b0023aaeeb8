#include "common/file/IGShell.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"

namespace {

constexpr int NO_SHELL = 127;  // the shell's exit status for a command that it cannot run

// The program's own signals while a command runs: a terminal's SIGQUIT is for the command alone,
// and SIGCHLD is blocked because the program waits for the command itself.
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

// Runs the shell in the child. Unlike a tool, it does not end with this program: its removal must
// finish, or half a directory would be left.
[[noreturn]] void execShell(const char* command, const ShellSignals& signals) {
    for (const int signo : INTERRUPTING_SIGNALS) {
        struct sigaction action = {};
        ::sigaction(signo, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            ::signal(signo, SIG_DFL);  // the handler belongs to the run, not to the command
        }
    }
    signals.restore();  // last: a signal that arrived since the fork ends the command
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
        execShell(command, signals);
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

// 0 when the child was reaped. After a failure it waits once more, so that no command is left
// running; it does not kill, because the number may now belong to another process.
int waitForShell(pid_t pid, int& status) {
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
    if (pid == -1 || waitForShell(pid, status) != 0) {
        return -1;
    }
    if (endedByInterrupt(status) && run_state.interrupted == 0) {
        IgMainSetInterrupted(SIGINT);
    }
    return status;
}
