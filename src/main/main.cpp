// The program's entry: the steps of a run, in their order.
#include <fcntl.h>
#include <langinfo.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "collect/IGCmnProcess.h"
#include "common/IGCmnLog.h"
#include "common/IGCmnMemory.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnProgress.h"
#include "common/IGCmnStr.h"
#include "common/IGCmnTime.h"
#include "common/IGGuards.h"
#include "common/IGRunState.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniOption.h"
#include "ini/IGIniTable.h"
#include "main/IGMain.h"
#include "main/IGMainOutput.h"
#include "main/IGMainRoot.h"
#include "main/IGMainSignal.h"

namespace {

struct Arguments {
    int argc;
    char** argv;
};

// A step of the run: false ends the run.
using RunStep = bool (*)(const Arguments& arguments);

// The two parts of argv[0], until the command name is a string of its own.
char* command_directory;
char* command_file;

// A closed standard descriptor would be given to the next file that is opened, and messages would
// go into that file.
void openStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // What is opened takes the lowest free descriptor: this one. Where there is no null device,
        // anything that cannot be written serves.
        if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", O_RDWR) == -1) {
            static_cast<void>(::open("/", O_RDONLY | O_DIRECTORY));
        }
    }
}

// What a caller may have left behind must not end the run or lose its children: a closed pipe or a
// file-size limit makes a write fail, and finished children wait to be asked for.
void settleSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    ::signal(SIGCHLD, SIG_DFL);
    struct sigaction hangup = {};
    ::sigaction(SIGHUP, nullptr, &hangup);
    run_state.hangup_ignored = hangup.sa_handler == SIG_IGN ? 1 : 0;
    const sigset_t interrupting = interruptingSignals();
    ::sigprocmask(SIG_UNBLOCK, &interrupting, nullptr);
}

void chooseLocale() {
    std::setlocale(LC_ALL, "");
#ifdef QUENDIL_STATIC
    // A static C library converts other character sets than these two with modules that it loads,
    // and one of another version ends the process.
    const std::string_view characters = ::nl_langinfo(CODESET);
    if (characters != "UTF-8" && characters != "ANSI_X3.4-1968" &&
        std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        std::setlocale(LC_CTYPE, "C");
    }
#endif
}

void prepareProcess() {
    openStandardDescriptors();
    settleSignals();
    IgMainBecomeRoot();
    // The archiver's programs take options from these; a run's result must not depend on them.
    ::unsetenv("TAR_OPTIONS");
    ::unsetenv("GZIP");
    run_hooks = {IgMainEnd, IgMainRemoveOutput, IgMainStopChild, IgCmnProcReportDeferred,
                 IgMainIsSuperUserCached};
    run_state.memoryp = nullptr;
    chooseLocale();
    IgCmnMemoryInit();
    IgCmnMsgHistRotate();
}

bool historyStart(const Arguments& /*arguments*/) {
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgHist(ZEPA301_I, QUENDIL_VERSION, now.data());
    return true;
}

// Makes room for `needed` bytes, and some to spare.
bool growArgument(std::uint32_t needed) {
    if (run_state.argument != nullptr && run_state.argument_size >= needed) {
        return true;
    }
    auto* grown = static_cast<char*>(IgCmnMemoryRealloc(&run_state.memoryp, run_state.argument,
                                                        run_state.argument_size, needed + 32));
    if (grown == nullptr) {
        return false;
    }
    run_state.argument = grown;
    run_state.argument_size = needed + 32;
    return true;
}

// All arguments in one string, as they are shown; one with a blank in it is in single quotes.
bool joinArguments(const Arguments& arguments) {
    std::size_t present = 0;  // counted, for there may be very many of them
    for (int i = 1; i < arguments.argc; ++i) {
        LocalPool local;
        const char* argument = IgCmnStrPrintable(local.get(), arguments.argv[i], Tabs::KEPT);
        if (argument == nullptr ||
            !growArgument(static_cast<std::uint32_t>(std::strlen(argument) + 8 + present))) {
            return false;
        }
        const char* quote = std::strchr(argument, ' ') != nullptr ? "'" : "";
        present += static_cast<std::size_t>(
            std::snprintf(run_state.argument + present, run_state.argument_size - present,
                          "%s%s%s%s", present > 0 ? " " : "", quote, argument, quote));
    }
    return true;
}

bool historyArguments(const Arguments& /*arguments*/) {
    IgCmnMsgHist(ZEPA302_I, run_state.argument == nullptr ? "(null)" : run_state.argument);
    return true;
}

bool installSignalHandler(const Arguments& /*arguments*/) {
    struct sigaction action = {};
    action.sa_handler = signalHandler;
    ::sigemptyset(&action.sa_mask);
    for (const int signo : INTERRUPTING_SIGNALS) {
        if (signo != SIGHUP || run_state.hangup_ignored == 0) {
            ::sigaction(signo, &action, nullptr);  // no SA_RESTART: waiting calls must come back
        }
    }
    return true;
}

bool splitCommandName(const Arguments& arguments) {
    const char* path = arguments.argc > 0 ? arguments.argv[0] : "";
    if (IgCmnFileSplitPath(path, &command_directory, &command_file, &run_state.memoryp) != 0) {
        return false;
    }
    run_state.cmd_name = command_file != nullptr ? command_file : command_directory;
    return true;
}

bool notHelp(const Arguments& arguments) {
    return IgIniCkHelp(arguments.argc, arguments.argv) == 0;
}

bool superUser(const Arguments& /*arguments*/) {
    return IgMainIsSuperUser(0) == 0 && IgMainRootFailure() == 0;
}

bool onlyRun(const Arguments& /*arguments*/) {
    return IgMainLock() == 0;
}

bool openRunLog(const Arguments& /*arguments*/) {
    IgCmnProgressEnable();
    return IgCmnMsgOpenLog() == 0;
}

bool startInitializing(const Arguments& /*arguments*/) {
    const char* argument = run_state.argument;
    IgCmnMsgInfo<ZEPA204_I>(argument == nullptr ? "" : argument);
    IgCmnMsgInfo<ZEPA202_I>("initializing");
    IgCmnProgressInit();
    return true;
}

void freePart(char** part) {
    if (*part != nullptr) {
        IgCmnMemoryFree(&run_state.memoryp, *part, std::strlen(*part) + 1);
        *part = nullptr;
    }
}

bool keepCommandName(const Arguments& /*arguments*/) {
    const char* name = IgCmnStrPrintable(&run_state.memoryp, run_state.cmd_name, Tabs::KEPT);
    run_state.cmd_name = name;
    freePart(&command_directory);
    freePart(&command_file);
    return name != nullptr;
}

bool readConfiguration(const Arguments& arguments) {
    run_state.root = IgIniGetCmnRoot(&run_state.memoryp);
    return run_state.root != nullptr &&
           IgIniCtrl(arguments.argc, arguments.argv, &run_state.memoryp, run_state.root) == 0;
}

bool endInitializing(const Arguments& /*arguments*/) {
    IgCmnMsgInfo<ZEPA203_I>("initializing");
    return true;
}

void clean() {
    IgMainIgnoreSignals();
    IgCmnProgressCleanup();
    IgCmnMsgInfo<ZEPA202_I>("cleaning");
    IgCmnMsgSetMode(1);  // what cannot be removed is a warning
    IgMainCleanup();
    IgCmnMsgSetMode(0);
    IgCmnMsgInfo<ZEPA203_I>("cleaning");
    IgCmnProgressStep();
    IgCmnProgressEnd();
}

bool collectAndClean(const Arguments& /*arguments*/) {
    const int collected = IgMainCollect(0);
    if (run_state.cleanup_wanted == 1) {
        clean();
    } else if (collected == 0) {
        IgCmnProgressEnd();
    }
    return true;
}

constexpr RunStep RUN_STEPS[] = {
    historyStart,    joinArguments,     historyArguments, installSignalHandler, splitCommandName,
    notHelp,         superUser,         onlyRun,          openRunLog,           startInitializing,
    keepCommandName, readConfiguration, endInitializing,  collectAndClean,
};

}  // namespace

int main(int argc, char** argv) {
    prepareProcess();
    const Arguments arguments{argc, argv};
    for (const RunStep step : RUN_STEPS) {
        if (!step(arguments)) {
            break;
        }
    }
    IgCmnProgressNewline();
    return IgMainEnd();
}
