#include "collect/IGCmnProcess.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <utility>

#include "collect/IGCmnProcessChild.h"
#include "collect/IGProcessGroup.h"
#include "common/IGAssert.h"
#include "common/IGCmnFile.h"
#include "common/IGCmnList.h"
#include "common/IGCmnLog.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnStr.h"
#include "common/IGCmnSystem.h"
#include "common/IGGuards.h"
#include "common/IGPatience.h"
#include "common/IGRunState.h"

CurrentChild crnt_child;

namespace {

constexpr const char* NULL_DEVICE = "/dev/null";
constexpr int KILL_ROUNDS = 5;  // of 100 ms, after SIGKILL

enum Redirected { STANDARD_OUTPUT = 0, STANDARD_ERROR = 1 };

// One execution.
struct proc_ctl {
    exec_req* request = nullptr;
    pid_t pid = 0;
    LocalPool pool{};
    char* stdout_file = nullptr;  // the normalised paths, once they are redirected to
    char* stderr_file = nullptr;
    FdGuard saved_stdout{};
    FdGuard saved_stderr{};
    int status = 0;  // as waitpid gives it
    bool timed_out = false;
    bool killed = false;  // SIGKILL was sent: there is nothing more to try
    bool unsent = false;  // a signal of ours could not be sent: that stays a failure to stop it
};

bool isNullDevice(const char* path) {
    return std::strcmp(path, NULL_DEVICE) == 0;
}

void removeOutput(const proc_ctl& ctl) {
    if (ctl.stdout_file != nullptr && !isNullDevice(ctl.stdout_file)) {
        std::remove(ctl.stdout_file);  // already failed: what matters has been reported
    }
}

// --- redirection ---

// Puts `fd` in the place of a standard descriptor, whose old file goes to `saved`.
bool putInPlace(int fd, int standard_fd, FdGuard& saved) {
    saved.reset(::fcntl(standard_fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!saved) {
        IgCmnSysErrPlain("dup", errno);
        return false;
    }
    if (::dup2(fd, standard_fd) == -1) {
        IgCmnSysErrPlain("dup2", errno);
        return false;
    }
    return true;
}

// What replaces an output and is none: removing it would take a device or a directory
// from the machine, writing to it could change one or wait for ever. 0, or the error that tells why
// it is not opened.
int notAnOutput(const char* file) {
    struct stat st = {};
    if (::lstat(file, &st) != 0 || S_ISREG(st.st_mode) || S_ISLNK(st.st_mode)) {
        return 0;
    }
    return S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
}

// Prepares the place of a standard output. Only what stays in `ctl` may be removed after a failure.
bool prepareOutput(proc_ctl& ctl) {
    char* const file = std::exchange(ctl.stdout_file, nullptr);
    if (IgCmnFileCreateDirAllPath(file, ctl.request->directory_mode) != 0) {
        return false;
    }
    if (const int error = isNullDevice(file) ? 0 : notAnOutput(file); error != 0) {
        IgCmnSysErrPath("open", error, file);
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
        return putInPlace(STDOUT_FILENO, standard_fd, saved);
    }
    // What somebody has put in the way since the removal is not written to: a link would lead
    // elsewhere, a file of his own would show him the output, a FIFO would hold us up. The mode is
    // not left to the mask, which does not count where the directory has a default ACL.
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | (null_device ? 0 : O_NOFOLLOW) |
                      (gone ? O_EXCL : O_NONBLOCK);
    const FdGuard fd(::open(file, flags, 0600));
    if (!fd) {
        IgCmnSysErrPath("open", errno, file);
        return false;
    }
    return putInPlace(fd.get(), standard_fd, saved);
}

void restoreDescriptor(FdGuard& saved, int standard_fd) {
    if (saved) {
        if (::dup2(saved.get(), standard_fd) == -1) {
            IgCmnSysErrPlain("dup2", errno);
        }
        saved.reset();
    }
}

// --- waiting ---

void reportWaitFailure(const char* call, int error, pid_t pid,
                       SourcePlace place = SourcePlace::current()) {
    IgCmnSysErrPlain(call, error, place);
    IgCmnMsg<ZEPA148_W>(pid);
    crnt_child.stop_failure = 1;
}

// Looks at the child without reaping it: as waitpid with WNOHANG.
pid_t lookAt(pid_t pid) {
    siginfo_t info = {};
    const int result = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return result == 0 ? info.si_pid : -1;
}

// Takes the finished child's status. The child is reaped and forgotten in one step that the signal
// handler cannot come between: it would signal a process that is no longer ours. What a stopped
// tool leaves of its group ends before the tool is reaped, while the group's number is still its
// own.
pid_t reap(proc_ctl& ctl) {
    const InterruptionBlock block;
    if (ctl.timed_out && !isArchiving()) {
        const pid_t ended = lookAt(ctl.pid);
        if (ended == 0) {
            return 0;  // one that ends from here on is left for the next look
        }
        if (ended > 0) {
            ::kill(-ctl.pid, SIGKILL);
        }
    }
    const pid_t result = ::waitpid(ctl.pid, &ctl.status, WNOHANG);
    if (result > 0) {
        crnt_child.pid = 0;
    }
    return result;
}

// Whether the tool has ended, to be reaped yet, and others of its group have not.
bool leavesOthers(pid_t pid) {
    return lookAt(pid) > 0 && processGroupLives(pid);
}

// Signals the child or, with a negative number, its group, unless the handler has reaped the child:
// the number would then not be its own any more. 0 or the error.
int signalChild(pid_t target, int signo) {
    const InterruptionBlock block;  // it must not be reaped between the look and the signal
    return crnt_child.reaped == 0 && signalProcess(target, signo) == -1 ? errno : 0;
}

// How a wait stands.
enum class Wait {
    RUNNING,
    ENDED,
    OVER,  // nothing more to be had: interrupted, or a failure that was reported
};

// A wait with a time-out, and what follows when it passes.
class TimedWait {
  public:
    explicit TimedWait(proc_ctl& ctl)
        : ctl_(ctl), child_(static_cast<int>(::syscall(SYS_pidfd_open, ctl.pid, 0U))) {}

    void run() {
        waitForEnd();
        if (state_ != Wait::RUNNING) {
            return;
        }
        ctl_.timed_out = true;
        IgCmnMsg<ZEPA126_W>(ctl_.request->command_path);
        stop();
    }

  private:
    static constexpr long TENTH = 100000;  // microseconds
    static constexpr long HALF = 500000;

    // The first second is watched in steps of 100 ms, the rest of the time-out in steps of 500 ms.
    void waitForEnd() {
        const std::int64_t rounds = 2 * static_cast<std::int64_t>(ctl_.request->timeout) + 8;
        poll();
        for (std::int64_t round = 0; state_ == Wait::RUNNING && round < rounds; ++round) {
            sleepAndPoll(round <= 9 ? TENTH : HALF);
        }
    }

    void stop() {
        const exec_req& request = *ctl_.request;
        spares_group_ = request.wait_termination > 0;
        send(request.timeout_signal == -1 ? SIGTERM : request.timeout_signal);
        poll();
        for (std::int64_t round = 0;
             state_ == Wait::RUNNING && round < 2 * std::int64_t{request.wait_termination};
             ++round) {
            sleepAndPoll(HALF);
        }
        spares_group_ = only_others_left_ = false;
        if (state_ == Wait::RUNNING) {
            ctl_.killed = true;
            send(SIGKILL);
        }
        for (int round = 0; state_ == Wait::RUNNING && round < KILL_ROUNDS; ++round) {
            sleepAndPoll(TENTH);
        }
    }

    // True when a call said that the wait is over. `error` is 0 for a call that succeeded.
    bool isOver(const char* call, int error, SourcePlace place = SourcePlace::current()) {
        if (crnt_child.reaped != 0 || run_state.interrupted != 0 || error == EINTR) {
            state_ = Wait::OVER;  // the handler has done what can be done
        } else if (error != 0 && error != ESRCH) {
            reportWaitFailure(call, error, ctl_.pid, place);
            state_ = Wait::OVER;
        }
        return state_ == Wait::OVER;
    }

    void poll() {
        if (state_ != Wait::RUNNING) {
            return;
        }
        only_others_left_ = spares_group_ && !isArchiving() && leavesOthers(ctl_.pid);
        if (only_others_left_) {
            return;  // they have the rest of its time
        }
        const pid_t result = reap(ctl_);
        const int error = result == -1 ? errno : 0;
        if (!isOver("waitpid", error) && result != 0) {
            state_ = Wait::ENDED;
        }
    }

    void send(int signo) {
        const int error = signalChild(-ctl_.pid, signo);
        ctl_.unsent = error != 0;
        isOver("kill", error);
    }

    // Sleeps, but no longer than the child lives where the kernel can tell.
    void sleepAndPoll(long microseconds) {
        fd_set ended;
        FD_ZERO(&ended);
        const bool watched = child_ && child_.get() < FD_SETSIZE && !only_others_left_;
        if (watched) {
            FD_SET(child_.get(), &ended);
        }
        struct timeval time = {microseconds / 1000000, microseconds % 1000000};
        const int result =
            ::select(watched ? child_.get() + 1 : 0, &ended, nullptr, nullptr, &time);
        if (!isOver("select", result == -1 ? errno : 0)) {
            poll();
        }
    }

    proc_ctl& ctl_;
    FdGuard child_;
    Wait state_ = Wait::RUNNING;
    bool spares_group_ = false;      // the tool's group has time left after the tool's own end
    bool only_others_left_ = false;  // which has come: nothing more to watch
};

// Waits without a limit. The child is only looked at while we sleep and reaped in a step of its
// own.
void waitWithoutLimit(proc_ctl& ctl) {
    siginfo_t info = {};
    const auto pid = static_cast<id_t>(ctl.pid);
    int error = EINTR;  // a handler that could not end the child would have us wait for ever
    if (run_state.interrupted == 0) {
        error = ::waitid(P_PID, pid, &info, WEXITED | WNOWAIT) == -1 ? errno : 0;
    }
    if (error == 0 && crnt_child.reaped == 0) {
        error = reap(ctl) == -1 ? errno : 0;
    }
    if (error != 0 && error != EINTR && error != ESRCH && crnt_child.reaped == 0) {
        reportWaitFailure("waitpid", error, ctl.pid);
    }
}

// A wait that failed leaves the child running: nothing of it stays. The archiver's programs have no
// group of their own; one that went on would change the result behind our back. True when the child
// has ended.
bool endChild(proc_ctl& ctl) {
    signalChild(isArchiving() ? ctl.pid : -ctl.pid, SIGKILL);
    pid_t reaped = reap(ctl);
    for (int round = 0; round < KILL_ROUNDS && reaped == 0; ++round) {
        waitPatiently(0, nullptr, 100000);
        reaped = reap(ctl);
    }
    if (reaped <= 0 && isArchiving()) {
        ctl.status = SIGKILL;  // an end that nobody saw: what was made may be cut
    }
    return reaped > 0;
}

void waitForChild(proc_ctl& ctl) {
    const int failed_before = crnt_child.stop_failure;
    if (ctl.request->timeout < 1) {
        waitWithoutLimit(ctl);
    } else {
        TimedWait(ctl).run();
    }
    const bool left = crnt_child.pid != 0 && crnt_child.reaped == 0;
    if (left && !ctl.killed && endChild(ctl) && !ctl.unsent) {
        crnt_child.stop_failure = failed_before;  // the wait failed, and nothing of it is left
    }
    const InterruptionBlock block;
    if (crnt_child.reaped != 0) {
        ctl.status = crnt_child.reaped_status;
    }
    crnt_child.pid = 0;
}

// --- running ---

// Starts the child and records it. Its pid; -1 with errno set when that fails; 0 when the run was
// interrupted before: the handler has come and found nobody to stop.
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
            ::setpgid(pid, pid);  // as the child does itself: a signal then never comes too early
        }
        ctl.pid = pid;
        crnt_child.reaped = 0;
        crnt_child.reaped_status = 0;
        crnt_child.pid = pid;
    }
    return pid;
}

// 0, or -1 after reporting. An output that was already redirected when the error output could not
// be stays where it is.
int IgCmnProcRun(proc_ctl& ctl) {
    const UmaskGuard mask(PRIVATE_MASK);
    if (!IgCmnProcRedirect(ctl, ctl.request->stdout_path, STANDARD_OUTPUT) ||
        !IgCmnProcRedirect(ctl, ctl.request->stderr_path, STANDARD_ERROR)) {
        return -1;
    }
    const pid_t pid = startChild(ctl);
    const int error = errno;
    restoreDescriptor(ctl.saved_stdout, STDOUT_FILENO);
    restoreDescriptor(ctl.saved_stderr, STDERR_FILENO);
    if (pid == -1) {
        IgCmnSysErrPlain("fork", error);
    }
    if (pid <= 0) {
        return -1;
    }
    waitForChild(ctl);
    return 0;
}

// Tells a child that could not become its program from a tool that merely exits with 255: its first
// line is a message of ours.
bool IgCmnProcCheckToolMsg(const char* path) {
    if (path == nullptr) {
        return false;
    }
    std::array<char, 1024> line{};
    {
        const FileGuard stream(IgCmnFileOpenStream(path, "r"));
        if (!stream) {
            IgCmnSysErrPath("fopen", errno, path);
            return false;
        }
        if (IgCmnFileReadLine(stream.get(), line.data(), line.size()) <= 4 ||
            std::strncmp(line.data(), "ZEPA", 4) != 0) {
            return false;
        }
    }
    if (IgMainGetRetCode() != RETCODE_FAILED && std::strncmp(line.data(), "ZEPA125-W:", 10) == 0) {
        return true;
    }
    IgCmnMsgCopyFile(path);
    return true;
}

// The file that the child's standard error went to.
const char* stderrFile(const proc_ctl& ctl) {
    const bool joined = !isArchiving() && ctl.stdout_file != nullptr;
    return joined ? ctl.stdout_file : ctl.stderr_file;
}

int classify(const proc_ctl& ctl, std::int32_t* exit_cd) {
    const bool exited = WIFEXITED(ctl.status);
    *exit_cd = exited ? WEXITSTATUS(ctl.status) : 0;
    if (ctl.timed_out) {
        return EXEC_TIMEOUT;
    }
    if (exited && *exit_cd == 255 && IgCmnProcCheckToolMsg(stderrFile(ctl))) {
        removeOutput(ctl);
        return EXEC_FAILED;
    }
    return exited && *exit_cd == 0 ? EXEC_OK : EXEC_NONZERO;
}

// --- command lines ---

bool addWord(wchar_t* start, wchar_t* end, IgCmnListHeader** words, memory_pool* memoryp) {
    if (start == end) {
        return true;
    }
    const wchar_t kept = *end;
    *end = L'\0';
    char* word = IgCmnWCS2MBS(memoryp, start);
    *end = kept;
    return word != nullptr && IgCmnListAppend(memoryp, words, word) != -1;
}

// The words of a command line, quotes kept; null in `words` when it holds none.
bool splitWords(const char* command_line, IgCmnListHeader** words, memory_pool* memoryp) {
    wchar_t* start = IgCmnMBS2WCS(memoryp, command_line);
    if (start == nullptr) {
        return false;
    }
    bool quoted = false;
    wchar_t* c = start;
    for (; *c != L'\0'; ++c) {
        if (*c == L'"') {
            quoted = !quoted;
        } else if (!quoted && (*c == L' ' || *c == L'\t')) {
            if (!addWord(start, c, words, memoryp)) {
                return false;
            }
            start = c + 1;
        }
    }
    return addWord(start, c, words, memoryp);
}

char** makeArgv(const IgCmnListHeader& words, memory_pool* memoryp) {
    auto** argv = newFromPool<char*>(memoryp, words.count + 1);
    if (argv == nullptr) {
        return nullptr;
    }
    std::size_t count = 0;
    for (const char& word : walkStrings(&words)) {
        argv[count] = IgCmnStrRemoveDQ(memoryp, &word);
        if (argv[count++] == nullptr) {
            return nullptr;
        }
    }
    return argv;
}

}  // namespace

int IgCmnExecProcess(exec_req* request, std::int32_t* exit_cd, std::int32_t* status) {
    IG_ASSERT_NOT_NULL(request);
    IG_ASSERT_NOT_NULL(exit_cd);
    *exit_cd = 0;
    proc_ctl ctl;
    ctl.request = request;
    if (IgCmnProcRun(ctl) != 0) {
        removeOutput(ctl);
        return EXEC_FAILED;
    }
    if (status != nullptr) {
        *status = ctl.status;
    }
    return classify(ctl, exit_cd);
}

int IgCmnExecCmdlineStr(const char* path, const char* command_line, exec_req* request,
                        std::int32_t* exit_cd, std::int32_t* status) {
    IG_ASSERT_NOT_NULL(path);
    IG_ASSERT_NOT_NULL(request);
    IG_ASSERT_NOT_NULL(exit_cd);
    LocalPool local;
    IgCmnListHeader* words = nullptr;
    const bool split = command_line == nullptr ? makeList(path, &words, local.get()) == 0
                                               : splitWords(command_line, &words, local.get());
    if (!split) {
        return EXEC_FAILED;
    }
    if (words == nullptr) {
        return EXEC_OK;
    }
    char** argv = makeArgv(*words, local.get());
    if (argv == nullptr) {
        return EXEC_FAILED;
    }
    request->command_path = argv[0];
    request->argv = argv;
    const int result = IgCmnExecProcess(request, exit_cd, status);
    request->command_path = nullptr;
    request->argv = nullptr;
    return result;
}

namespace {

// What the two forms of IgCmnExecCommand share: `run` starts the request, which says where its
// output goes.
template <typename Run>
int runCommand(Run run) {
    std::array<char, PATH_MAX + 1> stderr_path{};
    if (IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, TOOL_STDERR_NAME, stderr_path.data(),
                            stderr_path.size()) == 0) {
        return EXEC_FAILED;
    }
    exec_req request;
    request.stdout_path = NULL_DEVICE;
    request.stderr_path = stderr_path.data();
    const int result = run(request);
    if (result == EXEC_NONZERO && IgCmnFileSizeIfThere(stderr_path.data()) > 0) {
        IgCmnMsgCopyFile(stderr_path.data());
    }
    return IgMainIsInterrupted() != 0 ? EXEC_INTERRUPTED : result;
}

}  // namespace

int IgCmnExecCommand(const char* command_path, const char* options, std::int32_t* exit_cd) {
    IG_ASSERT_NOT_NULL(command_path);
    IG_ASSERT_NOT_NULL(options);
    IG_ASSERT_NOT_NULL(exit_cd);
    LocalPool local;
    const char* command = IgCmnStrCat(local.get(), command_path, " ");
    const char* command_line =
        command == nullptr ? nullptr : IgCmnStrCat(local.get(), command, options);
    if (command_line == nullptr) {
        return EXEC_FAILED;
    }
    return runCommand([&](exec_req& request) {
        return IgCmnExecCmdlineStr(command_path, command_line, &request, exit_cd, nullptr);
    });
}

int IgCmnExecCommandWords(char* const* argv, std::int32_t* exit_cd) {
    IG_ASSERT_NOT_NULL(argv);
    IG_ASSERT_NOT_NULL(exit_cd);
    return runCommand([&](exec_req& request) {
        request.command_path = argv[0];
        request.argv = argv;
        return IgCmnExecProcess(&request, exit_cd, nullptr);
    });
}

void IgCmnProcReportDeferred() {
    const char* call = crnt_child.failed_call;
    if (call == nullptr) {
        return;
    }
    reportWaitFailure(call, crnt_child.failed_error, crnt_child.failed_pid,
                      {crnt_child.failed_file, crnt_child.failed_line});
}

void IgCmnProcReportStopFailure() {
    if (crnt_child.stop_failure == 0) {
        return;
    }
    IgCmnMsg<ZEPA149_W>();
    std::array<char, PATH_MAX + 1> path{};
    if (IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, RUN_LOG_NAME, path.data(), path.size()) != 0) {
        IgCmnMsg<ZEPA216_I>(static_cast<const char*>(path.data()));
    }
}
