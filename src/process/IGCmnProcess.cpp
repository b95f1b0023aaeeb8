#include "process/IGCmnProcess.h"

#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnTree.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGCommandLine.h"
#include "process/IGCurrentChild.h"
#include "process/IGProcessControl.h"
#include "process/IGProcessStart.h"
#include "process/IGProcessWait.h"

namespace {

int IgCmnProcRun(proc_ctl& ctl) {
    if (!startProcess(ctl)) {
        return -1;
    }
    waitForChild(ctl);
    return 0;
}

// Distinguishes a child that could not run its program from a tool that merely exits with 255: the
// first line of its error output is a message of this program. Copies that output to the run log,
// except for a missing tar or gzip, which the archive maker reports itself.
bool IgCmnProcCheckToolMsg(const char* path) {
    if (path == nullptr) {
        return false;
    }
    std::array<char, 1024> line{};
    {
        const FileGuard stream(openStream(path, "r"));
        if (!stream) {
            IgCmnSysErrPath("fopen", errno, path);
            return false;
        }
        if (readTextLine(stream.get(), line.data(), line.size()) <= 4 ||
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

// The file of the child's standard error.
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
        removeRedirected(ctl);
        return EXEC_FAILED;
    }
    return exited && *exit_cd == 0 ? EXEC_OK : EXEC_NONZERO;
}

}  // namespace

int IgCmnExecProcess(exec_req* request, std::int32_t* exit_cd, std::int32_t* status) {
    IG_ASSERT_NOT_NULL(request);
    IG_ASSERT_NOT_NULL(exit_cd);
    *exit_cd = 0;
    proc_ctl ctl;
    ctl.request = request;
    if (IgCmnProcRun(ctl) != 0) {
        removeRedirected(ctl);
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

// Common part of IgCmnExecCommand and IgCmnExecCommandWords: sets the output paths of a request and
// runs it with `run`.
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
