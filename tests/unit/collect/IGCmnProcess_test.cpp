#include "collect/IGCmnProcess.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "../../support/child_fixture.h"
#include "../../support/in_child.h"
#include "../../support/standing_in.h"
#include "collect/IGCmnProcessChild.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Words = std::vector<std::string>;

constexpr std::int32_t UNTOUCHED = 12345;

// What the runner made of a request.
struct Outcome {
    int result;
    std::int32_t exit_cd;
    std::int32_t status;
    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "result " << outcome.result << ", exit code " << outcome.exit_cd << ", status "
         << outcome.status;
}

// A signal action or mask of the test's own process, put back in the end.
class SignalAction {
  public:
    SignalAction(int signo, void (*handler)(int)) : signo_(signo) {
        struct sigaction action = {};
        action.sa_handler = handler;
        ::sigaction(signo, &action, &saved_);
    }
    ~SignalAction() { ::sigaction(signo_, &saved_, nullptr); }
    SignalAction(const SignalAction&) = delete;
    SignalAction& operator=(const SignalAction&) = delete;

  private:
    int signo_;
    struct sigaction saved_ = {};
};

bool sameFile(int fd, const struct stat& st) {
    struct stat now = {};
    return ::fstat(fd, &now) == 0 && now.st_dev == st.st_dev && now.st_ino == st.st_ino;
}

mode_t modeOf(const std::string& file) {
    struct stat st = {};
    return ::stat(file.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

class IGCmnProcess : public ChildTest {
  protected:
    void SetUp() override {
        ChildTest::SetUp();
        ASSERT_EQ(::fstat(STDOUT_FILENO, &stdout_), 0);
        ASSERT_EQ(::fstat(STDERR_FILENO, &stderr_), 0);
        descriptors_ = openDescriptors();
    }

    Outcome execute(const std::string& program, const Words& words, exec_req request = {}) {
        Words all = words;
        all.insert(all.begin(), program);
        ::Arguments arguments(all);
        request.command_path = program.c_str();
        request.argv = arguments.vector();
        Outcome outcome{UNTOUCHED, UNTOUCHED, 0};
        const mode_t mask = ::umask(022);
        outcome.result = IgCmnExecProcess(&request, &outcome.exit_cd, &outcome.status);
        EXPECT_EQ(::umask(mask), 022U);  // the parent's own is back
        EXPECT_EQ(crnt_child.pid, 0);
        return outcome;
    }
    Outcome behave(const Words& words, exec_req request = {}) {
        return execute(BEHAVE, words, request);
    }

    // Nothing of a redirection is left in the parent.
    void expectOwnDescriptors() const {
        EXPECT_TRUE(sameFile(STDOUT_FILENO, stdout_));
        EXPECT_TRUE(sameFile(STDERR_FILENO, stderr_));
        EXPECT_EQ(openDescriptors(), descriptors_);
    }

    struct stat stdout_ = {};
    struct stat stderr_ = {};
    std::size_t descriptors_ = 0;
};

// --- the outcome
// ----------------------------------------------------------------------------------

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

TEST_F(IGCmnProcess, NeedsNoRoomForTheStatus) {
    ::Arguments arguments({BEHAVE, "exit", "3"});
    exec_req request;
    request.command_path = BEHAVE;
    request.argv = arguments.vector();
    std::int32_t exit_cd = UNTOUCHED;
    EXPECT_EQ(IgCmnExecProcess(&request, &exit_cd, nullptr), EXEC_NONZERO);
    EXPECT_EQ(exit_cd, 3);
}

TEST_F(IGCmnProcess, TellsItsOwnMessageFromAToolThatEndsWith255) {
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

TEST_F(IGCmnProcess, LooksForItsMessageOnlyInTheFileThatTheErrorOutputWentTo) {
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
        EXPECT_EQ(takeLog(), "");  // the caller says what is missing
    }
    // Another exit code is the tool's own, whatever it wrote.
    EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "254"}, request).result, EXEC_NONZERO);
    // No file, no question.
    Capture errors(stderr);
    EXPECT_EQ(behave({"err", "ZEPA140-W:x\n", "exit", "255"}).result, EXEC_NONZERO);
    EXPECT_EQ(errors.take(), "ZEPA140-W:x\n");
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnProcess, ReportsAnOutputThatIsGoneWhenItIsToBeLookedAt) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"remove", out, "exit", "255"}, request), (Outcome{EXEC_NONZERO, 255, 65280}));
    EXPECT_EQ(takeLog(), trio("fopen", 2, "No such file or directory", out, "IGCmnProcess"));
}

// --- programs that cannot be run
// -------------------------------------------------------------------

TEST_F(IGCmnProcess, ReportsAProgramThatDoesNotExistOnlyWhileTheRunHasFailedSoFar) {
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

    // With the output going nowhere there is nothing to look at, and nothing to remove.
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
    request.stderr_path = "/dev/null";  // the output file takes its place
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

    // What is missing is not always the file itself.
    writeText(script, "#!/no/such/interpreter\n");
    EXPECT_EQ(execute(script, {}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), "ZEPA125-W:An information collecting tool(" + script +
                             ") that collects system information does not exist.\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

// --- what the child inherits
// -----------------------------------------------------------------------

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

TEST_F(IGCmnProcess, HandsOnAHangupThatWasIgnoredWhenTheRunStarted) {
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

TEST_F(IGCmnProcess, LeavesTheSignalMaskOfTheRunAsItWas) {
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

TEST_F(IGCmnProcess, HandsOnTheStandardDescriptorsOnly) {
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

TEST_F(IGCmnProcess, HandsOnTheStandardDescriptorsOnlyWhereTheKernelClosesNoRange) {
    const std::string report = path("report");
    const InheritedDescriptors inherited;
    const FailingCall unknown(Call::CLOSE_RANGE, 1, ENOSYS);
    EXPECT_EQ(behave({"report", report}).result, EXEC_OK);
    EXPECT_THAT(descriptorsOf(report), ::testing::ElementsAre("fd0", "fd1", "fd2"));
}

TEST_F(IGCmnProcess, HandsOnTheStandardDescriptorsOnlyWhereTheyCannotBeListedEither) {
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

// --- redirection
// ----------------------------------------------------------------------------------

TEST_F(IGCmnProcess, LeavesBothOutputsAloneWithoutAPath) {
    Capture output(stdout);
    Capture errors(stderr);
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}).result, EXEC_OK);
    EXPECT_EQ(errors.take(), "two\n");
    EXPECT_EQ(output.take(), "one\n");
}

TEST_F(IGCmnProcess, JoinsTheErrorOutputToTheOutputFile) {
    const std::string out = path("out");
    const std::string err = path("err");
    writeText(err, "of the tool before\n");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n", "out", "three\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "one\ntwo\nthree\n");
    EXPECT_FALSE(std::filesystem::exists(err));
    EXPECT_EQ(modeOf(out), 0600U);
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, SendsTheErrorOutputAloneToItsFile) {
    const std::string err = path("err");
    exec_req request;
    request.stderr_path = err.c_str();
    Capture output(stdout);
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}, request).result, EXEC_OK);
    EXPECT_EQ(output.take(), "one\n");
    EXPECT_EQ(readText(err), "two\n");
    EXPECT_EQ(modeOf(err), 0600U);
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, KeepsTheArchiversOutputsApart) {
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    for (const int code : {RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}, request).result, EXEC_OK);
        EXPECT_EQ(readText(out), "one\n");
        EXPECT_EQ(readText(err), "two\n");
    }
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, SendsBothOutputsWhereTheRequestAndThePhaseSay) {
    // The paths of a request, and what then is in the output file, the error file, our own output
    // and our own error output. "-" is no path, "0" the null device; "x" stands for no file.
    struct Case {
        const char* stdout_path;
        const char* stderr_path;
        std::array<const char*, 4> collecting;
        std::array<const char*, 4> archiving;
    };
    const std::vector<Case> cases = {
        {"-", "-", {"x", "x", "O", "E"}, {"x", "x", "O", "E"}},
        {"-", "f", {"x", "E", "O", ""}, {"x", "E", "O", ""}},
        {"-", "0", {"x", "x", "O", ""}, {"x", "x", "O", ""}},
        {"f", "-", {"O", "x", "", "E"}, {"O", "x", "", "E"}},
        {"f", "f", {"OE", "x", "", ""}, {"O", "E", "", ""}},
        {"f", "0", {"OE", "x", "", ""}, {"O", "x", "", ""}},
        {"0", "-", {"x", "x", "", "E"}, {"x", "x", "", "E"}},
        {"0", "f", {"x", "x", "", ""}, {"x", "E", "", ""}},
        {"0", "0", {"x", "x", "", ""}, {"x", "x", "", ""}},
    };
    const std::string out = path("out");
    const std::string err = path("err");
    const auto chosen = [](const std::string& word, const std::string& file) {
        return word == "-" ? nullptr : word == "0" ? "/dev/null" : file.c_str();
    };
    for (const Case& one : cases) {
        for (const int code :
             {RETCODE_FAILED, RETCODE_COMPRESSED, RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
            SCOPED_TRACE(std::string(one.stdout_path) + one.stderr_path + std::to_string(code));
            IgMainSetRetCode(code);
            const bool archiving = code == RETCODE_ARCHIVE || code == RETCODE_DIRECTORY;
            exec_req request;
            request.stdout_path = chosen(one.stdout_path, out);
            request.stderr_path = chosen(one.stderr_path, err);
            Capture output(stdout);
            Capture errors(stderr);
            EXPECT_EQ(behave({"out", "O", "err", "E"}, request).result, EXEC_OK);
            const auto content = [](const std::string& file) {
                return std::filesystem::exists(file) ? readText(file) : "x";
            };
            const std::string own_errors = errors.take();
            EXPECT_THAT((std::array{content(out), content(err), output.take(), own_errors}),
                        ::testing::ElementsAreArray(archiving ? one.archiving : one.collecting));
            std::filesystem::remove(out);
            std::filesystem::remove(err);
        }
    }
    EXPECT_EQ(takeLog(), "");
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, WritesANewFileInPlaceOfWhatWasThere) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();

    writeText(out, "a longer text than the new one\n");
    std::filesystem::create_hard_link(out, path("other"));
    EXPECT_EQ(behave({"out", "new\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "new\n");
    EXPECT_EQ(readText(path("other")), "a longer text than the new one\n");

    std::filesystem::remove(out);
    std::filesystem::create_symlink(path("other"), out);
    EXPECT_EQ(behave({"out", "new\n"}, request).result, EXEC_OK);
    EXPECT_FALSE(std::filesystem::is_symlink(out));
    EXPECT_EQ(readText(out), "new\n");
    EXPECT_EQ(readText(path("other")), "a longer text than the new one\n");
}

TEST_F(IGCmnProcess, NeitherRemovesNorWritesWhatIsNoFile) {
    struct Case {
        const char* name;
        mode_t type;
        int error;
        const char* text;
    };
    for (const Case& one :
         {Case{"fifo", S_IFIFO, 17, "File exists"}, Case{"socket", S_IFSOCK, 17, "File exists"},
          Case{"device", S_IFCHR, 17, "File exists"}, Case{"disk", S_IFBLK, 17, "File exists"},
          Case{"directory", S_IFDIR, 21, "Is a directory"}}) {
        SCOPED_TRACE(one.name);
        const std::string out = path(one.name);
        ASSERT_EQ(one.type == S_IFDIR ? ::mkdir(out.c_str(), 0700)
                                      : ::mknod(out.c_str(), one.type | 0600, 0),
                  0);
        exec_req request;
        request.stdout_path = out.c_str();
        Capture errors(stderr);
        EXPECT_EQ(behave({"write", path("ran"), "x"}, request), (Outcome{EXEC_FAILED, 0, 0}));
        EXPECT_EQ(takeLog(), trio("open", one.error, one.text, out, "IGCmnProcess"));
        struct stat st = {};
        ASSERT_EQ(::lstat(out.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & S_IFMT, one.type);
        EXPECT_FALSE(std::filesystem::exists(path("ran")));
    }
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, WritesNothingIntoAFileThatSomebodyPutsInTheWay) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    writeText(out, "mine\n");
    const std::string other = path("other");
    std::filesystem::create_hard_link(out, other);
    Capture errors(stderr);
    {
        const FailingCall back_again(Call::REMOVE, 1, 0);
        EXPECT_EQ(behave({"out", "secret\n"}, request), (Outcome{EXEC_FAILED, 0, 0}));
        EXPECT_TRUE(FailingCall::happened());
    }
    EXPECT_EQ(takeLog(), trio("open", 17, "File exists", out, "IGCmnProcess"));
    EXPECT_EQ(readText(other), "mine\n");
    static_cast<void>(errors.take());
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, MakesTheDirectoriesOfAnOutputFile) {
    const std::string out = path("a/b/out");
    exec_req request;
    request.stdout_path = out.c_str();
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "one\n");
    EXPECT_EQ(modeOf(path("a")), 0777U);
    EXPECT_EQ(modeOf(path("a/b")), 0777U);

    const std::string outside = path("outside/out");
    request.stdout_path = outside.c_str();
    request.directory_mode = 0755;
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    EXPECT_EQ(modeOf(path("outside")), 0755U);

    // Not those of an error output.
    const std::string err = path("c/err");
    request.stdout_path = nullptr;
    request.stderr_path = err.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request), (Outcome{EXEC_FAILED, 0, 0}));
    EXPECT_EQ(takeLog(), trio("open", 2, "No such file or directory", err, "IGCmnProcess"));
}

TEST_F(IGCmnProcess, TakesAPathFromTheCurrentDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    exec_req request;
    request.stdout_path = "x/../out";
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    std::filesystem::current_path(before);
    EXPECT_EQ(readText(path("out")), "one\n");
    EXPECT_FALSE(std::filesystem::exists(path("x")));
}

TEST_F(IGCmnProcess, NeverRemovesTheNullDevice) {
    exec_req request;
    request.stdout_path = "/dev/null";
    request.stderr_path = "/dev/null";
    for (const int code : {RETCODE_FAILED, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(behave({"out", "one\n", "err", "two\n", "exit", "255"}, request).result,
                  EXEC_NONZERO);
        struct stat st = {};
        ASSERT_EQ(::stat("/dev/null", &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnProcess, ReportsAnOutputFileThatCannotBeMade) {
    const std::string out = path("out");
    std::filesystem::create_directory(out);
    writeText(out + "/file", "");
    exec_req request;
    request.stdout_path = out.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request), (Outcome{EXEC_FAILED, 0, 0}));
    EXPECT_EQ(takeLog(), trio("open", 21, "Is a directory", out, "IGCmnProcess"));
    EXPECT_TRUE(std::filesystem::exists(out + "/file"));

    const std::string below = out + "/file/x";
    request.stdout_path = below.c_str();
    EXPECT_EQ(behave({"exit", "0"}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), trio("mkdir", 17, "File exists", out + "/file", "IGCmnFile"));
    static_cast<void>(errors.take());
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, LeavesTheOutputRedirectedWhenTheErrorOutputCannotBe) {
    const std::string out = path("out");
    const std::string err = path("err");
    std::filesystem::create_directory(err);
    writeText(err + "/file", "");
    IgMainSetRetCode(RETCODE_DIRECTORY);
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    Capture output(stdout);
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request).result, EXEC_FAILED);
    struct stat st = {};
    ASSERT_EQ(::fstat(STDOUT_FILENO, &st), 0);
    EXPECT_EQ(st.st_nlink, 0U);  // the file that the failed request has left and removed
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(output.take(), "");
    EXPECT_EQ(takeLog(), trio("open", 21, "Is a directory", err, "IGCmnProcess"));
}

TEST_F(IGCmnProcess, ReportsADescriptorThatCannotBeSaved) {
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    Capture errors(stderr);
    const int lowest_free = ::fcntl(0, F_DUPFD, 3);
    ASSERT_NE(lowest_free, -1);
    ::close(lowest_free);
    // Room for the new file, none for the saved descriptor.
    const struct rlimit tight = {static_cast<rlim_t>(lowest_free) + 1, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    const Outcome outcome = behave({"exit", "0"}, request);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(outcome.result, EXEC_FAILED);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "dup, error code = 24, msg = Too many open files.\n"
              "ZEPA114-E:source = IGCmnProcess, line no = N.\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

// --- time-outs
// ------------------------------------------------------------------------------------

const std::string TIMED_OUT =
    std::string("ZEPA126-W:A timeout occurred while information collecting tool(") + BEHAVE +
    ") was being executed.\n";

TEST_F(IGCmnProcess, SendsTerminateWhenTheTimePassesWithoutASignalOfItsOwn) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    request.timeout = 1;
    request.wait_termination = 10;
    const auto start = steady_clock::now();
    EXPECT_EQ(behave({"exiton", "TERM", "7", "out", "one\n", "forever"}, request),
              (Outcome{EXEC_TIMEOUT, 7, 7 << 8}));
    const auto took = steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(1000));
    EXPECT_LT(took, milliseconds(9000));  // it did not wait for the termination time
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(readText(out), "one\n");  // what a tool has written stays
    expectOwnDescriptors();
}

TEST_F(IGCmnProcess, SendsTheSignalGivenToAllThatTheToolHasStarted) {
    const std::string noted = path("noted");
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = SIGUSR1;
    request.wait_termination = 10;
    EXPECT_EQ(behave({"child", "note",   "USR1", noted,  "exiton", "USR1",   "0",         "forever",
                      "end",   "child",  "note", "USR1", noted,    "ready",  path("pid"), "forever",
                      "end",   "exiton", "USR1", "8",    "wait",   "forever"},
                     request),
              (Outcome{EXEC_TIMEOUT, 8, 8 << 8}));
    EXPECT_EQ(takeLog(), TIMED_OUT);
    // The child that wanted to live on has been swept up with its group.
    EXPECT_TRUE(awaitEnd(std::stoi(readText(path("pid")))));
}

TEST_F(IGCmnProcess, KillsAToolThatIgnoresTheSignal) {
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = SIGTERM;
    const auto start = steady_clock::now();
    EXPECT_EQ(behave({"ignore", "TERM", "forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_GE(steady_clock::now() - start, milliseconds(1000));
    EXPECT_EQ(takeLog(), TIMED_OUT);

    request.wait_termination = 1;
    const auto second_start = steady_clock::now();
    EXPECT_EQ(behave({"ignore", "TERM", "forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_GE(steady_clock::now() - second_start, milliseconds(2000));
    EXPECT_EQ(takeLog(), TIMED_OUT);
}

TEST_F(IGCmnProcess, GoesOnWaitingWhenTheSignalIsNone) {
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = 0;  // tests for existence only
    EXPECT_EQ(behave({"forever"}, request), (Outcome{EXEC_TIMEOUT, 0, SIGKILL}));
    EXPECT_EQ(takeLog(), TIMED_OUT);
    EXPECT_EQ(crnt_child.stop_failure, 0);
}

TEST_F(IGCmnProcess, ReportsASignalThatDoesNotExistAndLeavesNothingRunning) {
    const std::string ready = path("ready");
    exec_req request;
    request.timeout = 1;
    request.timeout_signal = 2147483647;
    Capture errors(stderr);
    EXPECT_EQ(behave({"ready", ready, "forever"}, request).result, EXEC_TIMEOUT);
    const pid_t pid = std::stoi(readText(ready));
    EXPECT_EQ(takeLog(),
              TIMED_OUT +
                  "ZEPA113-E:An error occurred during the following system call. system call name "
                  "= kill, error code = 22, msg = Invalid argument.\n"
                  "ZEPA114-E:source = IGCmnProcess, line no = N.\n"
                  "ZEPA148-W:An attempt to wait or stop a process (" +
                  std::to_string(pid) + ") has failed.\n");
    EXPECT_EQ(crnt_child.stop_failure, 1);
    EXPECT_EQ(::kill(pid, 0) == -1 ? errno : 0, ESRCH);
}

TEST_F(IGCmnProcess, DoesNotWaitForWhatAFinishedToolHasLeftBehind) {
    const std::string out = path("out");
    const std::string left = path("left");
    for (const std::int32_t timeout : {0, 30}) {
        exec_req request;
        request.stdout_path = out.c_str();
        request.timeout = timeout;
        EXPECT_EQ(behave({"child", "ready", left, "forever", "end", "await", left}, request).result,
                  EXEC_OK);
        const pid_t pid = std::stoi(readText(left));
        EXPECT_EQ(::kill(pid, SIGKILL), 0);  // it is the tool's own business, and still there
        std::filesystem::remove(left);
    }
}

TEST_F(IGCmnProcess, WaitsAlsoWhereItsDescriptorsAreTooManyForASelect) {
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit wide = {4 * FD_SETSIZE, std::max<rlim_t>(before.rlim_max, 4 * FD_SETSIZE)};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &wide), 0);
    std::vector<int> taken;
    while (taken.empty() || taken.back() < FD_SETSIZE) {
        taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_NE(taken.back(), -1);
    }
    exec_req request;
    request.timeout = 30;
    EXPECT_EQ(behave({"nap", "1", "exit", "7"}, request), (Outcome{EXEC_NONZERO, 7, 7 << 8}));
    for (const int fd : taken) {
        ::close(fd);
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnProcess, ReportsAWaitThatFails) {
    const SignalAction children(SIGCHLD, SIG_IGN);  // the kernel reaps them: nobody to wait for
    const std::string ready = path("ready");
    for (const std::int32_t timeout : {0, 30}) {
        SCOPED_TRACE(timeout);
        crnt_child.stop_failure = 0;
        exec_req request;
        request.timeout = timeout;
        Capture errors(stderr);
        EXPECT_EQ(behave({"ready", ready, "exit", "3"}, request), (Outcome{EXEC_OK, 0, 0}));
        const std::string pid = std::to_string(std::stoi(readText(ready)));
        EXPECT_EQ(takeLog(),
                  "ZEPA113-E:An error occurred during the following system call. system call name "
                  "= waitpid, error code = 10, msg = No child processes.\n"
                  "ZEPA114-E:source = IGCmnProcess, line no = N.\n"
                  "ZEPA148-W:An attempt to wait or stop a process (" +
                      pid + ") has failed.\n");
        EXPECT_EQ(crnt_child.stop_failure, 1);
    }
}

// --- command lines
// --------------------------------------------------------------------------------

TEST_F(IGCmnProcess, SplitsACommandLineAtBlanksOutsideDoubleQuotes) {
    const std::vector<std::pair<std::string, Words>> cases = {
        {"a b", {"a", "b"}},
        {"  a \t b\t", {"a", "b"}},
        {"\"a b\" c", {"a b", "c"}},
        {"\"a\tb\"", {"a\tb"}},
        {"\"a\"", {"a"}},
        {"a\"b c\"d", {"a\"b c\"d"}},  // quotes enclose the whole word, or stay
        {"\"a b\"c", {"\"a b\"c"}},
        {"\"a \"\"b\"", {"a \"\"b"}},
        {"\"\"", {""}},
        {"\"\" \"\"", {"", ""}},
        {"\"\"a\"\"", {"\"a\""}},  // one pair only
        {"\"unclosed  b", {"\"unclosed  b"}},
        {"a\"b", {"a\"b"}},
        {"'a b'", {"'a", "b'"}},  // no other quote, no escape
        {"a\\ b", {"a\\", "b"}},
        {"$HOME `x` *", {"$HOME", "`x`", "*"}},  // no shell
        {"\xc3\xa4\xe3\x80\x80 \xc3\xb6", {"\xc3\xa4\xe3\x80\x80", "\xc3\xb6"}},
        {"a\nb", {"a\nb"}},
    };
    const std::string report = path("report");
    for (const auto& [line, expected] : cases) {
        SCOPED_TRACE(line);
        const std::string command_line = std::string(BEHAVE) + " \t\"report\" \"-\" -- " + line;
        exec_req request;
        request.stdout_path = report.c_str();
        std::int32_t exit_cd = UNTOUCHED;
        std::int32_t status = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr("unused", command_line.c_str(), &request, &exit_cd, &status),
                  EXEC_OK);
        EXPECT_EQ(exit_cd, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(request.command_path, nullptr);
        EXPECT_EQ(request.argv, nullptr);
        std::string wanted = std::string("arg0=") + BEHAVE + "\narg1=report\narg2=-\narg3=--\n";
        for (std::size_t i = 0; i < expected.size(); ++i) {
            wanted += "arg" + std::to_string(i + 4) + "=" + expected[i] + "\n";
        }
        EXPECT_THAT(readText(report), ::testing::StartsWith(wanted + "pid="));
    }
}

TEST_F(IGCmnProcess, RunsNothingForACommandLineWithoutAWord) {
    for (const char* line : {"", " ", "\t \t"}) {
        exec_req request;
        const std::string out = path("out");
        request.stdout_path = out.c_str();
        std::int32_t exit_cd = UNTOUCHED;
        std::int32_t status = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr(line, line, &request, &exit_cd, &status), EXEC_OK);
        EXPECT_EQ(exit_cd, UNTOUCHED);
        EXPECT_EQ(status, UNTOUCHED);
        EXPECT_FALSE(std::filesystem::exists(out));
    }
}

TEST_F(IGCmnProcess, RunsAPathAloneWithoutACommandLine) {
    const std::string program = path("my tool");
    writeText(program, std::string("#!") + BEHAVE + " play\nexit\n5\n");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    for (const std::string& given : {program, "\"" + program + "\""}) {
        exec_req request;
        std::int32_t exit_cd = UNTOUCHED;
        EXPECT_EQ(IgCmnExecCmdlineStr(given.c_str(), nullptr, &request, &exit_cd, nullptr),
                  EXEC_NONZERO);
        EXPECT_EQ(exit_cd, 5);
    }
    exec_req request;
    std::int32_t exit_cd = UNTOUCHED;
    EXPECT_EQ(
        IgCmnExecCmdlineStr("x", ("\"" + program + "\" a").c_str(), &request, &exit_cd, nullptr),
        EXEC_NONZERO);
    EXPECT_EQ(exit_cd, 5);
}

TEST_F(IGCmnProcess, ReportsACommandLineThatTheLocaleCannotDecode) {
    exec_req request;
    std::int32_t exit_cd = 0;
    Capture errors(stderr);
    EXPECT_EQ(IgCmnExecCmdlineStr("/x", "/x \xff", &request, &exit_cd, nullptr), EXEC_FAILED);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide "
              "character.\nZEPA114-E:source = IGCmnStr, line no = N.\n");
}

// --- the archiver's commands
// ------------------------------------------------------------------------

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

// --- what is reported later
// ------------------------------------------------------------------------

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

// --- the effective user
// ---------------------------------------------------------------------------

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

TEST_F(IGCmnProcess, DoesNotChangeToAUserThatIsNotThereOrNotAllowed) {
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

TEST_F(IGCmnProcess, MustNotBeGivenNull) {
    exec_req request;
    std::int32_t exit_cd = 0;
    EXPECT_DEATH(IgCmnExecProcess(nullptr, &exit_cd, nullptr), "request != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnExecProcess(&request, nullptr, nullptr), "exit_cd != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgCmnChangeUser(nullptr, nullptr), "user_name != \\(\\(void \\*\\)0\\)");
}

}  // namespace
