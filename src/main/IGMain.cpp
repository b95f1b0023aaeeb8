#include "main/IGMain.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "collect/IGArcMake.h"
#include "collect/IGCollectData.h"
#include "collect/IGExeTool.h"
#include "collect/IGIndex.h"
#include "collect/IGOutput.h"
#include "collect/IGResult.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnProgress.h"
#include "common/report/IGSysErr.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"
#include "main/IGMainOutput.h"
#include "main/IGMainRun.h"
#include "process/IGCmnProcess.h"
#include "process/IGMainSignal.h"

MainRun main_run;

namespace {

// --- collecting ---

std::int32_t countItems(const root_tbl& root) {
    std::int32_t count = 0;
    for (const pickptn_tbl& ptn : walkList<pickptn_tbl>(&root.selected)) {
        for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
            if (block.skip == 0 && block.items != nullptr) {
                count += static_cast<std::int32_t>(block.items->count);
            }
        }
    }
    return count;
}

// Writes the head of the index: the version, then the command and its arguments.
int writeIndexHead(memory_pool* memoryp, const root_tbl& root) {
    const char* path = indexPath(memoryp, root);
    if (path == nullptr) {
        return -1;
    }
    IndexFile index(path, "w");
    index.print("quendil [Ver. %s]\n", QUENDIL_VERSION);
    if (main_run.argument != nullptr) {
        index.print("%s %s\n", IgMainGetCmdName(), main_run.argument);
    } else {
        index.print("%s\n", IgMainGetCmdName());
    }
    return index.finish();
}

Result collectItem(memory_pool* memoryp, root_tbl& root, collect_item& item) {
    if (IgMainIsInterrupted() != 0) {
        return RESULT_INTERRUPTED;
    }
    if (!checkOutput(root)) {
        return RESULT_FAILED;
    }
    const bool is_data = item.kind == ITEM_DATA;
    const char* phase = is_data ? "collecting" : "executing";
    IgCmnMsgInfo<ZEPA202_I>(phase);
    const Result result =
        is_data ? IgCollectData(memoryp, &root, &item.data) : IgExeTool(memoryp, &root, &item.tool);
    // A tool that failed was reported and does not end the collection.
    if (result == RESULT_INTERRUPTED || (is_data && result != RESULT_DONE)) {
        return result;
    }
    IgCmnMsgInfo<ZEPA203_I>(phase);
    IgCmnProgressStep();
    return RESULT_DONE;
}

Result collectBlock(memory_pool* memoryp, root_tbl& root, const ptn_block& block,
                    bool& index_written) {
    if (!index_written) {
        const MessageMode error(MSGMODE_NORMAL);  // an output must have its index: no mere warning
        if (writeIndexHead(memoryp, root) != 0) {
            return RESULT_FAILED;
        }
        index_written = true;
    }
    for (collect_item& item : walkList<collect_item>(block.items)) {
        if (const Result result = collectItem(memoryp, root, item); result != RESULT_DONE) {
            return result;
        }
    }
    return RESULT_DONE;
}

// Collects one pattern. Skips it when its directory cannot be made.
Result collectPattern(memory_pool* memoryp, root_tbl& root, pickptn_tbl& ptn, bool& index_written) {
    char* directory = choosePatternDirectory(memoryp, root, ptn);
    const char* output = outputDirectory(memoryp, root);
    if (directory == nullptr || output == nullptr) {
        return RESULT_DONE;
    }
    if (IgCmnFileIsDir(output) == 0 && !makeOutputDirectory(memoryp, root)) {
        return RESULT_DONE;
    }
    if (!checkOutput(root)) {
        return RESULT_FAILED;
    }
    const char* place = pathInOutput(memoryp, root, directory);
    if (place == nullptr || !makeDirectory(place)) {
        return RESULT_DONE;
    }
    ptn.output_dir = directory;
    root.d = directory;
    Result result = RESULT_DONE;
    for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
        if (block.skip == 0 && result == RESULT_DONE) {
            result = collectBlock(memoryp, root, block, index_written);
        }
    }
    root.d = nullptr;
    return result;
}

Result collectPatterns(memory_pool* memoryp, root_tbl& root) {
    bool index_written = false;
    for (pickptn_tbl& ptn : walkList<pickptn_tbl>(&root.selected)) {
        if (const Result result = collectPattern(memoryp, root, ptn, index_written);
            result != RESULT_DONE) {
            return result;
        }
    }
    return IgMainIsInterrupted() != 0 ? RESULT_INTERRUPTED : RESULT_DONE;
}

Result makeArchive(memory_pool* memoryp, root_tbl& root) {
    IgCmnProgressArchive();
    IgMainSetRetCode(RETCODE_DIRECTORY);
    IgCmnMsgInfo<ZEPA202_I>("making");
    const Result result = IgArcMakeOutput(memoryp, &root);
    IgMainHistOutput();
    IgCmnMsgInfo<ZEPA203_I>("making");
    return result;
}

Result collectAndMake(memory_pool* memoryp, root_tbl& root) {
    if (IgMainIsInterrupted() != 0) {
        return RESULT_INTERRUPTED;
    }
    IgCmnProgressCollect(countItems(root));
    if (!chooseOutputName(memoryp, root) || !makeOutputDirectory(memoryp, root)) {
        return RESULT_FAILED;
    }
    const MessageMode warn(MSGMODE_COLLECTING);
    const Result collected = collectPatterns(memoryp, root);
    if (collected != RESULT_DONE) {
        return collected;
    }
    return checkOutput(root) ? makeArchive(memoryp, root) : RESULT_FAILED;
}

// --- the end routine, step by step ---

void endSizeLimit() {
    if (collected_size.exceeded == 1) {
        IgCmnMsg<ZEPA131_W>();
    }
}

void endResult() {
    switch (IgMainGetRetCode()) {
        case RETCODE_COMPRESSED:
        case RETCODE_ARCHIVE:
        case RETCODE_DIRECTORY:
            IgMainReportOutput();
            break;
        case RETCODE_FAILED:
            IgCmnMsgReprint();
            break;
        default:
            break;
    }
}

void endMemory() {
    IgCmnMsgFree();
    main_run.root = nullptr;
    main_run.argument = nullptr;
    run_state.cmd_name = nullptr;
    IgCmnMemoryFree(&main_run.memoryp, nullptr, 0);
}

void endHistory() {
    IgCmnMsgHist(ZEPA304_I, IgMainGetRetCode());
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgHist(ZEPA305_I, now.data());
}

}  // namespace

// --- checks ---

int IgMainIsSuperUser(int quiet) {
    if (isSuperUser()) {
        return 0;
    }
    if (quiet == 0) {
        IgCmnMsg<ZEPA117_E>();
        IgCmnMsgHist(ZEPA117_E);
    }
    return -1;
}

namespace {

void reportLockFailure(const char* call, int error, const char* path,
                       SourcePlace place = SourcePlace::current()) {
    IgCmnSysErrPath(call, error, path, place);
    // The history log does not repeat the path.
    writeSysErr({.call = call, .error = error}, place, SYSERR_ERROR,
                [](MsgNo number, auto... args) { IgCmnMsgHist(number, args...); });
}

}  // namespace

int IgMainLock() {
    std::array<char, PATH_MAX + 1> path{};
    if (IgCmnGetKestrumFile(IgCmnGetKestrumBinDir, RUN_LOCK_NAME, path.data(), path.size()) == 0) {
        return -1;
    }
    main_run.lock_fd = ::open(path.data(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (main_run.lock_fd == -1) {
        reportLockFailure("open", errno, path.data());
        return -1;
    }
    noteLockFile(LOCK_RUN, main_run.lock_fd);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(main_run.lock_fd, F_SETLK, &lock) != -1) {
        return 0;
    }
    if (errno == EACCES || errno == EAGAIN) {
        IgCmnMsg<ZEPA116_E>();
        IgCmnMsgHist(ZEPA116_E);
        return LOCK_HELD;
    }
    reportLockFailure("fcntl", errno, path.data());
    return -1;
}

void IgMainUnlock() {
    if (main_run.lock_fd != -1) {
        ::close(main_run.lock_fd);
        noteLockFile(LOCK_RUN, -1);
        main_run.lock_fd = -1;
    }
}

// --- phases ---

Result IgMainCollect(int /*unused*/) {
    root_tbl& root = *main_run.root;
    const Result result = collectAndMake(&main_run.memoryp, root);
    if (result == RESULT_SIZE_LIMIT) {
        IgMainSetRetCode(RETCODE_DIRECTORY);
    }
    return result;
}

bool wantsCleanup(Result collected) {
    switch (collected) {
        case RESULT_DONE:
            return true;
        case RESULT_SIZE_LIMIT:
            return false;
        default:
            return main_run.root->cleanup == CLEANUP_ON;
    }
}

void IgMainStopChild() {
    const InterruptionBlock block;  // the handler must not stop it at the same time
    IgCmnProcStopOnInterrupt();
}

// --- the end ---

int IgMainEnd() {
    using EndStep = void (*)();
    static constexpr std::array<EndStep, 8> STEPS{
        endSizeLimit,   endResult,        IgCmnProcReportStopFailure,
        endMemory,      IgCmnMsgCloseLog, endHistory,
        IgCmnMemoryEnd, IgMainUnlock,
    };
    static std::size_t next = 0;
    while (next < STEPS.size()) {
        STEPS[next++]();  // counted first: a step that calls this again is not repeated
    }
    return IgMainGetRetCode();
}

int IgMainEndAfterLogFailure() {
    IgMainStopChild();
    if (IgMainGetRetCode() != RETCODE_DIRECTORY) {
        IgMainRemoveOutput();
    }
    return IgMainEnd();
}

void IgMainReportInterruption() {
    IgCmnMsg<ZEPA136_E>(run_state.signal_no.load());
    IgCmnProcReportDeferred();
}
