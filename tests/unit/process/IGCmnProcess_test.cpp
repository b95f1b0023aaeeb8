#include "process/IGCmnProcess.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "../../support/in_child.h"
#include "../../support/process_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGRunState.h"
#include "process/IGCmnProcessChild.h"
#include "process/IGCmnUser.h"
#include "process/IGCurrentChild.h"

namespace {

using Words = std::vector<std::string>;

class IGCmnProcess : public ProcessTest {};

// --- the outcome ---

TEST_F(IGCmnProcess, ClassifiesHowTheChildEnded) {
    const std::vector<std::pair<Words, Outcome>> cases = {
        {{"exit", "0"}, {EXEC_OK, 0, 0}},
        {{"exit", "1"}, {EXEC_NONZERO, 1, 1 << 8}},
        {{"exit", "3"}, {EXEC_NONZERO, 3, 3 << 8}},
        {{"exit", "127"}, {EXEC_NONZERO, 127, 127 << 8}},
        {{"exit", "254"}, {EXEC_NONZERO, 254, 254 << 8}},
        {{"exit", "255"}, {EXEC_NONZERO, 255, 255 << 8}},
        {{"die", "KILL"}, {EXEC_NONZERO, 0, SIGKILL}},
        {{"die", "TERM"}, {EXEC_NONZERO, 0, SIGTERM}},
        {{"die", "INT"}, {EXEC_NONZERO, 0, SIGINT}},
    };
    for (const std::int32_t timeout : {0, -1, 30}) {
        for (const auto& [words, expected] : cases) {
            SCOPED_TRACE(words[0] + " " + words[1]);
            exec_req request;
            request.timeout = timeout;
            EXPECT_EQ(behave(words, request), expected);
        }
    }
    EXPECT_EQ(takeLog(), "");
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, AcceptsANullStatus) {
    ::Arguments arguments({BEHAVE, "exit", "3"});
    exec_req request;
    request.command_path = BEHAVE;
    request.argv = arguments.vector();
    std::int32_t exit_cd = UNTOUCHED;
    EXPECT_EQ(IgCmnExecProcess(&request, &exit_cd, nullptr), EXEC_NONZERO);
    EXPECT_EQ(exit_cd, 3);
}

TEST_F(IGCmnProcess, DistinguishesItsOwnMessageFromAToolThatEndsWith255) {
    struct Case {
        const char* output;
        int result;
        const char* logged;
    };
    const std::vector<Case> cases = {
        {"", EXEC_NONZERO, ""},
        {"sorry\n", EXEC_NONZERO, ""},
        {"ZEP\n", EXEC_NONZERO, ""},
        {"ZEPA", EXEC_NONZERO, ""},  // four characters are no message
        {"zepa140-W:x\n", EXEC_NONZERO, ""},
        {" ZEPA140-W:x\n", EXEC_NONZERO, ""},
        {"x\nZEPA140-W:x\n", EXEC_NONZERO, ""},
        {"ZEPA140-W:x\nmore\n", EXEC_FAILED, "ZEPA140-W:x\nmore\n"},
        {"ZEPAx", EXEC_FAILED, "ZEPAx\n"},
        {"ZEPA125-W:x\n", EXEC_FAILED, "ZEPA125-W:x\n"},  // the return code is 255
    };
    const std::string out = path("out");
    for (const Case& one : cases) {
        SCOPED_TRACE(one.output);
        exec_req request;
        request.stdout_path = out.c_str();
        EXPECT_EQ(
            behave({"out", one.output[0] == '\0' ? "\\z" : one.output, "exit", "255"}, request),
            (Outcome{one.result, 255, 255 << 8}));
        EXPECT_EQ(takeLog(), one.logged);
        EXPECT_EQ(std::filesystem::exists(out), one.result == EXEC_NONZERO);
    }
}

TEST_F(IGCmnProcess, SearchesItsMessageInTheErrorOutputOnly) {
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stderr_path = err.c_str();
    EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "255"}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), "ZEPA140-W:x\n");
    EXPECT_EQ(readText(err), "ZEPA140-W:x\n");

    request.stdout_path = out.c_str();
    for (const int code : {RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(behave({"out", "ZEPA140-W:x\n", "exit", "255"}, request).result, EXEC_NONZERO);
        EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "255"}, request).result, EXEC_FAILED);
        EXPECT_EQ(takeLog(), "ZEPA140-W:x\n");
        EXPECT_FALSE(std::filesystem::exists(out));
        EXPECT_EQ(behave({"err", "ZEPA125-W:x\n", "exit", "255"}, request).result, EXEC_FAILED);
        EXPECT_EQ(takeLog(), "");  // the caller reports what is missing
    }
    // Another exit code is the tool's own, for any output.
    EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "254"}, request).result, EXEC_NONZERO);
    // Without a file there is nothing to check.
    Capture errors(stderr);
    EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "255"}).result, EXEC_NONZERO);
    EXPECT_EQ(errors.take(), "ZEPA140-W:x\n");
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnProcess, ReportsAnOutputThatWasRemovedBeforeItIsRead) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"remove", out, "exit", "255"}, request), (Outcome{EXEC_NONZERO, 255, 65280}));
    EXPECT_EQ(takeLog(), trio("fopen", 2, "No such file or directory", out, "IGCmnProcess"));
}

// --- programs that cannot be run ---

TEST_F(IGCmnProcess, ReportsAMissingProgramOnlyWhileTheRunCountsAsFailed) {
    const std::string none = path("none");
    const std::string message = "ZEPA125-W:An information collecting tool(" + none +
                                ") that collects system information does not exist.\n";
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    EXPECT_EQ(execute(none, {}, request), (Outcome{EXEC_FAILED, 255, 65280}));
    EXPECT_EQ(takeLog(), message);
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(err));

    request.stdout_path = nullptr;
    EXPECT_EQ(execute(none, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message);
    EXPECT_EQ(readText(err), message);

    IgMainSetRetCode(RETCODE_DIRECTORY);
    EXPECT_EQ(execute(none, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(readText(err), message);

    // Without an output file there is nothing to read and nothing to remove.
    IgMainSetRetCode(RETCODE_FAILED);
    request.stdout_path = "/dev/null";
    EXPECT_EQ(execute(none, {}, request).result, EXEC_NONZERO);
    struct stat st = {};
    ASSERT_EQ(::stat("/dev/null", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, ReportsAProgramThatCannotBeRun) {
    const std::string script = path("script");
    writeText(script, "not a program\n");
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = "/dev/null";  // the output file is used instead
    const auto message = [](int error, const std::string& text) {
        return "ZEPA140-W:An error occurred during the following system call. system call name = "
               "execv, error code = " +
               std::to_string(error) + ", msg = " + text +
               ".\nZEPA141-W:source = IGCmnProcess, line no = N.\n";
    };
    EXPECT_EQ(execute(script, {}, request), (Outcome{EXEC_FAILED, 255, 65280}));
    EXPECT_EQ(takeLog(), message(13, "Permission denied"));
    EXPECT_FALSE(std::filesystem::exists(out));

    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
    EXPECT_EQ(execute(script, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(8, "Exec format error"));

    EXPECT_EQ(execute(directory_.path(), {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(13, "Permission denied"));

    EXPECT_EQ(execute(script + "/x", {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(20, "Not a directory"));

    const std::string loop = path("loop");
    std::filesystem::create_symlink(loop, loop);
    EXPECT_EQ(execute(loop, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(40, "Too many levels of symbolic links"));

    EXPECT_EQ(execute(path(std::string(256, 'x')), {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(36, "File name too long"));

    EXPECT_EQ(execute(BEHAVE, {std::string(1 << 20, 'x')}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), message(7, "Argument list too long"));

    // The missing file is not always the program itself.
    writeText(script, "#!/no/such/interpreter\n");
    EXPECT_EQ(execute(script, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), "ZEPA125-W:An information collecting tool(" + script +
                             ") that collects system information does not exist.\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

// --- inheritance of the child ---

TEST_F(IGCmnProcess, LeadsAGroupOfItsOwnExceptWhileTheArchiverRuns) {
    const std::string report = path("report");
    ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
    auto child = readReport(report);
    EXPECT_EQ(child["pgid"], child["pid"]);
    EXPECT_EQ(child["ppid"], std::to_string(::getpid()));
    EXPECT_EQ(child["sid"], std::to_string(::getsid(0)));
    for (const int code : {RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
        EXPECT_EQ(readReport(report)["pgid"], std::to_string(::getpgrp()));
    }
    IgMainSetRetCode(RETCODE_COMPRESSED);
    ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
    child = readReport(report);
    EXPECT_EQ(child["pgid"], child["pid"]);
}

TEST_F(IGCmnProcess, StartsTheChildWithAPrivateMaskAndSignalsAsAShellWould) {
    const std::string report = path("report");
    const SignalAction interrupt(SIGINT, SIG_IGN);
    const SignalAction terminate(SIGTERM, [](int) {});
    const SignalAction pipe(SIGPIPE, SIG_IGN);
    const SignalAction size(SIGXFSZ, SIG_IGN);
    const SignalAction hangup(SIGHUP, [](int) {});
    ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
    auto child = readReport(report);
    EXPECT_EQ(child["umask"], "0066");
    EXPECT_EQ(child["ignored"], "");
    EXPECT_EQ(child["caught"], "");
    EXPECT_EQ(child["blocked"], "");
    EXPECT_EQ(child["cwd"], std::filesystem::current_path().string());
    EXPECT_EQ(child["euid"], "0");
}

TEST_F(IGCmnProcess, PassesOnAHangupThatWasIgnoredWhenTheRunStarted) {
    const std::string report = path("report");
    run_state.hangup_ignored = 1;
    const SignalAction hangup(SIGHUP, SIG_IGN);
    ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
    EXPECT_EQ(readReport(report)["ignored"], std::to_string(SIGHUP));
    run_state.hangup_ignored = 0;  // ignored by the run itself, since a first signal
    ASSERT_EQ(behave({"report", report}).result, EXEC_OK);
    EXPECT_EQ(readReport(report)["ignored"], "");
}

TEST_F(IGCmnProcess, EndsItsChildWithItself) {
    for (const int code : {RETCODE_FAILED, RETCODE_DIRECTORY}) {
        SCOPED_TRACE(code);
        const std::string ready = path("ready" + std::to_string(code));
        const pid_t runner = ::fork();
        if (runner == 0) {
            IgMainSetRetCode(code);
            behave({"ready", ready, "forever"});
            ::_exit(0);
        }
        while (!std::filesystem::exists(ready)) {
            const struct timespec pause = {0, 1000000};
            ::nanosleep(&pause, nullptr);
        }
        ASSERT_EQ(::kill(runner, SIGKILL), 0);
        ASSERT_EQ(::waitpid(runner, nullptr, 0), runner);
        EXPECT_TRUE(awaitEnd(std::stoi(readText(ready))));
    }
}

TEST_F(IGCmnProcess, RestoresTheSignalMaskOfTheRun) {
    sigset_t usr;
    ::sigemptyset(&usr);
    ::sigaddset(&usr, SIGUSR2);
    sigset_t before;
    ASSERT_EQ(::sigprocmask(SIG_BLOCK, &usr, &before), 0);
    const std::string report = path("report");
    EXPECT_EQ(behave({"report", report}).result, EXEC_OK);
    sigset_t after;
    ASSERT_EQ(::sigprocmask(SIG_SETMASK, &before, &after), 0);
    EXPECT_EQ(::sigismember(&after, SIGUSR2), 1);
    EXPECT_EQ(::sigismember(&after, SIGINT), 0);
    EXPECT_EQ(::sigismember(&after, SIGTERM), 0);
    EXPECT_EQ(readReport(report)["blocked"], std::to_string(SIGUSR2));
}

// Descriptors that are not closed at an exec, many and one far away.
class InheritedDescriptors {
  public:
    InheritedDescriptors() {
        opened_.push_back(::open("/dev/null", O_RDONLY));  // not close-on-exec, on purpose
        for (int i = 0; i < 300; ++i) {
            opened_.push_back(::dup(opened_[0]));
        }
        opened_.push_back(::dup2(opened_[0], FAR));
        EXPECT_EQ(std::count(opened_.begin(), opened_.end(), -1), 0);
    }
    ~InheritedDescriptors() { std::for_each(opened_.begin(), opened_.end(), ::close); }
    InheritedDescriptors(const InheritedDescriptors&) = delete;
    InheritedDescriptors& operator=(const InheritedDescriptors&) = delete;

  private:
    static constexpr int FAR = 900;
    std::vector<int> opened_;
};

// The descriptors that a program had, as it reported them.
std::vector<std::string> descriptorsOf(const std::string& report) {
    std::vector<std::string> descriptors;
    for (const auto& [key, value] : readReport(report)) {
        if (key.starts_with("fd")) {
            descriptors.push_back(key);
        }
    }
    return descriptors;
}

TEST_F(IGCmnProcess, PassesOnTheStandardDescriptorsOnly) {
    const std::string report = path("report");
    const std::string err = path("err");
    const InheritedDescriptors inherited;
    exec_req request;
    request.stderr_path = err.c_str();
    request.timeout = 30;
    EXPECT_EQ(behave({"report", report}, request).result, EXEC_OK);
    EXPECT_THAT(descriptorsOf(report), ::testing::ElementsAre("fd0", "fd1", "fd2"));
    auto child = readReport(report);
    EXPECT_EQ(child["fd0"], "r /dev/null");
    EXPECT_EQ(child["fd2"], "w " + err);
}

TEST_F(IGCmnProcess, PassesOnTheStandardDescriptorsOnlyWithoutCloseRange) {
    const std::string report = path("report");
    const InheritedDescriptors inherited;
    const FailingCall unknown(Call::CLOSE_RANGE, 1, ENOSYS);
    EXPECT_EQ(behave({"report", report}).result, EXEC_OK);
    EXPECT_THAT(descriptorsOf(report), ::testing::ElementsAre("fd0", "fd1", "fd2"));
}

TEST_F(IGCmnProcess, PassesOnTheStandardDescriptorsOnlyWithoutAListEither) {
    const std::string report = path("report");
    const ChildResult child = inChild([&report] {
        const InheritedDescriptors inherited;
        const FailingCall unknown(Call::CLOSE_RANGE, 1, ENOSYS);
        const struct rlimit few = {16, 16};  // all in use: no directory can be opened
        ::Arguments words({BEHAVE, "report", report});
        exec_req request;
        request.command_path = BEHAVE;
        request.argv = words.vector();
        ::setrlimit(RLIMIT_NOFILE, &few);
        sigset_t none;
        sigemptyset(&none);
        procChildRun(request, none, false, ::getppid());
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_THAT(descriptorsOf(report), ::testing::ElementsAre("fd0", "fd1", "fd2"));
}

// --- the archiver's commands ---

TEST_F(IGCmnProcess, PutsTheErrorOutputOfAFailedCommandIntoTheRunLog) {
    const std::string err = std::string(LOG_DIR) + "/quendil_stderr.log";
    IgMainSetRetCode(RETCODE_DIRECTORY);
    std::int32_t exit_cd = UNTOUCHED;
    Capture output(stdout);
    EXPECT_EQ(IgCmnExecCommand(BEHAVE, "out lost err why\\n exit 3", &exit_cd), EXEC_NONZERO);
    EXPECT_EQ(output.take(), "");
    EXPECT_EQ(exit_cd, 3);
    EXPECT_EQ(takeLog(), "why\n");
    EXPECT_EQ(readText(err), "why\n");

    EXPECT_EQ(IgCmnExecCommand(BEHAVE, "exit 3", &exit_cd), EXEC_NONZERO);
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(readText(err), "");
    EXPECT_EQ(IgCmnExecCommand(BEHAVE, "err note\\n exit 0", &exit_cd), EXEC_OK);
    EXPECT_EQ(exit_cd, 0);
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(IgCmnExecCommand(path("none").c_str(), "", &exit_cd), EXEC_FAILED);
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(IgCmnExecCommand(BEHAVE, "", &exit_cd), EXEC_OK);
}

TEST_F(IGCmnProcess, StartsNothingOnceTheRunWasInterrupted) {
    IgMainSetRetCode(RETCODE_DIRECTORY);
    run_state.interrupted = 1;
    run_state.signal_no = SIGTERM;
    Capture errors(stderr);
    std::int32_t exit_cd = UNTOUCHED;
    EXPECT_EQ(IgCmnExecCommand(BEHAVE, "exit 4", &exit_cd), EXEC_INTERRUPTED);
    EXPECT_EQ(exit_cd, 0);
    EXPECT_EQ(takeLog(), "ZEPA136-E:quendil was interrupted. signal no = 15.\n");
}

// --- later reports ---

TEST_F(IGCmnProcess, ReportsWhatTheSignalHandlerRecorded) {
    Capture errors(stderr);
    IgCmnProcReportDeferred();
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(crnt_child.stop_failure, 0);
    crnt_child.failed_error = 1;
    crnt_child.failed_file = "/somewhere/IGMainSignal.cpp";
    crnt_child.failed_line = 77;
    crnt_child.failed_pid = 4711;
    crnt_child.failed_call = "kill";
    IgCmnProcReportDeferred();
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "kill, error code = 1, msg = Operation not permitted.\n"
              "ZEPA114-E:source = IGMainSignal, line no = N.\n"
              "ZEPA148-W:An attempt to wait or stop a process (4711) has failed.\n");
    EXPECT_EQ(crnt_child.stop_failure, 1);
}

TEST_F(IGCmnProcess, WarnsAtTheEndOfAChildThatCouldNotBeStopped) {
    Capture errors(stderr);
    IgCmnProcReportStopFailure();
    crnt_child.stop_failure = 1;
    IgCmnProcReportStopFailure();
    EXPECT_EQ(errors.take(),
              "ZEPA149-W:There were one or more information collection tools which could not be "
              "waited or be stopped.\n"
              "ZEPA216-I:Look at /var/opt/norvale/quendil/log/quendil.log.\n");
    EXPECT_EQ(takeLog(), "");
}

// --- the effective user ---

TEST_F(IGCmnProcess, ChangesTheEffectiveUserAndBack) {
    const struct passwd* nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    usr_inf before{UINT32_MAX};
    EXPECT_EQ(IgCmnChangeUser("nobody", &before), 0);
    EXPECT_EQ(::geteuid(), nobody->pw_uid);
    EXPECT_EQ(before.euid, 0U);
    EXPECT_EQ(IgCmnRetoreUser(&before), 0);
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnProcess, DoesNotChangeToAMissingOrForbiddenUser) {
    usr_inf before{UINT32_MAX};
    EXPECT_EQ(IgCmnChangeUser("no such user", &before), USER_FAILED);
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(before.euid, 0U);

    ASSERT_EQ(IgCmnChangeUser("nobody", &before), 0);
    Capture errors(stderr);
    const usr_inf other{12345};
    EXPECT_EQ(IgCmnRetoreUser(&other), USER_FAILED);
    EXPECT_EQ(IgCmnRetoreUser(&before), 0);
    EXPECT_EQ(errors.take(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "seteuid, error code = 1, msg = Operation not permitted.\n");
}

TEST_F(IGCmnProcess, AssertsItsArgumentsAreNotNull) {
    exec_req request;
    std::int32_t exit_cd = 0;
    EXPECT_DEATH(IgCmnExecProcess(nullptr, &exit_cd, nullptr), "request != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnExecProcess(&request, nullptr, nullptr), "exit_cd != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnChangeUser(nullptr, nullptr), "user_name != \\(\\(void \\*\\)0\\)");
}

}  // namespace
