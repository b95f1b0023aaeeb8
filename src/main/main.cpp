// The program's entry: the steps of a run, in their order.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGLocale.h"
#include "common/base/IGPrintable.h"
#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnProgress.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniOption.h"
#include "main/IGMain.h"
#include "main/IGMainOutput.h"
#include "main/IGMainRoot.h"
#include "main/IGMainRun.h"
#include "process/IGMainSignal.h"

namespace {

// Opens the standard descriptors that are closed. Otherwise the next file that is opened would get
// one of their numbers, and messages would be written to that file.
void openStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // open() returns the lowest free descriptor, which is `fd`. Without a null device, it is
        // the root directory, which cannot be written to.
        if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", O_RDWR) == -1) {
            static_cast<void>(::open("/", O_RDONLY | O_DIRECTORY));
        }
    }
}

// Replaces signal settings of the caller that could end the run or lose the status of its children:
// a closed pipe or a file-size limit only makes a write fail, and a child that has ended stays
// until it is waited for.
void setSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    ::signal(SIGCHLD, SIG_DFL);
    struct sigaction hangup = {};
    ::sigaction(SIGHUP, nullptr, &hangup);
    run_state.hangup_ignored = hangup.sa_handler == SIG_IGN ? 1 : 0;
    const sigset_t interrupting = interruptingSignals();
    ::sigprocmask(SIG_UNBLOCK, &interrupting, nullptr);
}

RootChange prepareProcess() {
    openStandardDescriptors();
    setSignals();
    const RootChange change = IgMainBecomeRoot();
    // tar and gzip read options from these; a run's result must not depend on them.
    ::unsetenv("TAR_OPTIONS");
    ::unsetenv("GZIP");
    run_hooks = {IgMainEndAfterLogFailure, IgMainReportInterruption};
    chooseLocale();
    IgCmnMemoryInit();
    IgCmnMsgHistRotate();
    return change;
}

void recordStart() {
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgHist(ZEPA301_I, QUENDIL_VERSION, now.data());
}

// Grows `main_run.argument` to at least `needed` bytes; the spare ones save reallocations.
bool growArgument(std::uint32_t needed) {
    if (main_run.argument != nullptr && main_run.argument_size >= needed) {
        return true;
    }
    auto* grown = static_cast<char*>(IgCmnMemoryRealloc(&main_run.memoryp, main_run.argument,
                                                        main_run.argument_size, needed + 32));
    if (grown == nullptr) {
        return false;
    }
    main_run.argument = grown;
    main_run.argument_size = needed + 32;
    return true;
}

// Joins all arguments in one printable string; one that contains a blank is put in single quotes.
bool joinArguments(int argc, char** argv) {
    std::size_t present = 0;  // length so far: a strlen for each of very many would be slow
    for (int i = 1; i < argc; ++i) {
        LocalPool local;
        const char* argument = IgCmnStrPrintable(local.get(), argv[i], Tabs::KEPT);
        if (argument == nullptr ||
            !growArgument(static_cast<std::uint32_t>(std::strlen(argument) + 8 + present))) {
            return false;
        }
        const char* quote = std::strchr(argument, ' ') != nullptr ? "'" : "";
        present += static_cast<std::size_t>(
            std::snprintf(main_run.argument + present, main_run.argument_size - present, "%s%s%s%s",
                          present > 0 ? " " : "", quote, argument, quote));
    }
    return true;
}

void recordArguments() {
    IgCmnMsgHist(ZEPA302_I, main_run.argument == nullptr ? "(null)" : main_run.argument);
}

void installSignalHandler() {
    struct sigaction action = {};
    action.sa_handler = signalHandler;
    ::sigemptyset(&action.sa_mask);
    for (const int signo : INTERRUPTING_SIGNALS) {
        if (signo != SIGHUP || run_state.hangup_ignored == 0) {
            ::sigaction(signo, &action, nullptr);  // no SA_RESTART: waiting calls must return
        }
    }
}

// Stores the command's name for messages and the index, without its directory.
bool keepCommandName(int argc, char** argv) {
    LocalPool local;
    char* directory = nullptr;
    char* file = nullptr;
    if (IgCmnFileSplitPath(argc > 0 ? argv[0] : "", &directory, &file, local.get()) != 0) {
        return false;
    }
    run_state.cmd_name =
        IgCmnStrPrintable(&main_run.memoryp, file != nullptr ? file : directory, Tabs::KEPT);
    return run_state.cmd_name != nullptr;
}

bool isAllowed(const RootChange& change) {
    return IgMainIsSuperUser(0) == 0 && IgMainRootFailure(change) == 0;
}

bool openRunLog() {
    IgCmnProgressEnable();
    return IgCmnMsgOpenLog() == 0;
}

bool initialize(int argc, char** argv) {
    const char* argument = main_run.argument;
    IgCmnMsgInfo<ZEPA204_I>(argument == nullptr ? "" : argument);
    IgCmnMsgInfo<ZEPA202_I>("initializing");
    IgCmnProgressInit();
    main_run.root = IgIniGetCmnRoot(&main_run.memoryp);
    if (main_run.root == nullptr || IgIniCtrl(argc, argv, &main_run.memoryp, main_run.root) != 0) {
        return false;
    }
    IgCmnMsgInfo<ZEPA203_I>("initializing");
    return true;
}

void clean() {
    IgMainIgnoreSignals();
    IgCmnProgressCleanup();
    IgCmnMsgInfo<ZEPA202_I>("cleaning");
    {
        const MessageMode warn(MSGMODE_COLLECTING);  // a file that cannot be removed is a warning
        IgMainCleanup();
    }
    IgCmnMsgInfo<ZEPA203_I>("cleaning");
    IgCmnProgressStep();
    IgCmnProgressEnd();
}

void collectAndClean() {
    if (wantsCleanup(IgMainCollect(0))) {
        clean();
    }
}

// Runs the steps in their order. A step that fails has reported it, and ends the run.
void run(int argc, char** argv) {
    const RootChange change = prepareProcess();
    recordStart();
    if (!joinArguments(argc, argv)) {
        return;
    }
    recordArguments();
    installSignalHandler();
    if (!keepCommandName(argc, argv) || IgIniCkHelp(argc, argv) != 0 || !isAllowed(change) ||
        IgMainLock() != 0 || !openRunLog() || !initialize(argc, argv)) {
        return;
    }
    collectAndClean();
}

}  // namespace

int main(int argc, char** argv) {
    run(argc, argv);
    IgCmnProgressNewline();
    return IgMainEnd();
}
