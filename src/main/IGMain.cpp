#include "main/IGMain.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "collect/IGArcMake.h"
#include "collect/IGCollectData.h"
#include "collect/IGExeTool.h"
#include "collect/IGIndex.h"
#include "collect/IGOutput.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnProgress.h"
#include "ini/IGIniTable.h"
#include "main/IGMainOutput.h"
#include "main/IGMainRun.h"
#include "process/IGCmnProcess.h"
#include "process/IGMainSignal.h"

MainRun main_run;

namespace {

// Results of the driver and its steps.
constexpr int DONE = 0;
constexpr int FAILED = -1;
constexpr int INTERRUPTED = 2;
constexpr int SIZE_LIMIT = 4;

// Message mode 1 for a scope: what fails while data is collected is a warning.
class CollectingMode {
  public:
    CollectingMode() { IgCmnMsgSetMode(1); }
    ~CollectingMode() { IgCmnMsgSetMode(0); }
    CollectingMode(const CollectingMode&) = delete;
    CollectingMode& operator=(const CollectingMode&) = delete;
};

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

// The head of the index: the version, then the command and its arguments.
int writeIndexHead(memory_pool* memoryp, const root_tbl& root) {
    const char* path = indexPath(memoryp, root);
    if (path == nullptr) {
        return FAILED;
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

int collectItem(memory_pool* memoryp, root_tbl& root, collect_item& item) {
    if (IgMainIsInterrupted() != 0) {
        return INTERRUPTED;
    }
    if (!checkOutput(root)) {
        return FAILED;
    }
    const bool is_data = item.kind == ITEM_DATA;
    const char* phase = is_data ? "collecting" : "executing";
    IgCmnMsgInfo<ZEPA202_I>(phase);
    const int result =
        is_data ? IgCollectData(memoryp, &root, &item.data) : IgExeTool(memoryp, &root, &item.tool);
    // What becomes of a tool is told by messages; only an interruption ends the collection there.
    if (result == INTERRUPTED || (is_data && result != DONE)) {
        return result;
    }
    IgCmnMsgInfo<ZEPA203_I>(phase);
    IgCmnProgressStep();
    return DONE;
}

int collectBlock(memory_pool* memoryp, root_tbl& root, const ptn_block& block,
                 bool& index_written) {
    if (!index_written) {
        IgCmnMsgSetMode(0);  // no output without its index: this failure is an error
        if (writeIndexHead(memoryp, root) != 0) {
            return FAILED;
        }
        IgCmnMsgSetMode(1);
        index_written = true;
    }
    for (collect_item& item : walkList<collect_item>(block.items)) {
        if (const int result = collectItem(memoryp, root, item); result != DONE) {
            return result;
        }
    }
    return DONE;
}

// One pattern. A directory that cannot be had leaves the pattern out.
int collectPattern(memory_pool* memoryp, root_tbl& root, pickptn_tbl& ptn, bool& index_written) {
    IgCmnMsgSetMode(1);
    char* directory = choosePatternDirectory(memoryp, root, ptn);
    const char* output = outputDirectory(memoryp, root);
    if (directory == nullptr || output == nullptr) {
        return DONE;
    }
    if (IgCmnFileIsDir(output) == 0 && !makeOutputDirectory(memoryp, root)) {
        return DONE;
    }
    if (!checkOutput(root)) {
        return FAILED;
    }
    const char* place = pathInOutput(memoryp, root, directory);
    if (place == nullptr || !makeDirectory(place)) {
        return DONE;
    }
    ptn.output_dir = directory;
    root.d = directory;
    int result = DONE;
    for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
        if (block.skip == 0 && result == DONE) {
            result = collectBlock(memoryp, root, block, index_written);
        }
    }
    root.d = nullptr;
    return result;
}

int collectPatterns(memory_pool* memoryp, root_tbl& root) {
    bool index_written = false;
    for (pickptn_tbl& ptn : walkList<pickptn_tbl>(&root.selected)) {
        if (const int result = collectPattern(memoryp, root, ptn, index_written); result != DONE) {
            return result;
        }
    }
    return IgMainIsInterrupted() != 0 ? INTERRUPTED : DONE;
}

int makeArchive(memory_pool* memoryp, root_tbl& root) {
    IgCmnProgressArchive();
    IgMainSetRetCode(RETCODE_DIRECTORY);
    IgCmnMsgInfo<ZEPA202_I>("making");
    const int result = IgArcMakeOutput(memoryp, &root);
    IgMainHistOutput();
    IgCmnMsgInfo<ZEPA203_I>("making");
    main_run.cleanup_wanted = 1;
    return result;
}

int collectAndMake(memory_pool* memoryp, root_tbl& root) {
    if (IgMainIsInterrupted() != 0) {
        return INTERRUPTED;
    }
    IgCmnProgressCollect(countItems(root));
    if (!chooseOutputName(memoryp, root) || !makeOutputDirectory(memoryp, root)) {
        return FAILED;
    }
    const CollectingMode mode;
    const int collected = collectPatterns(memoryp, root);
    if (collected != DONE) {
        return collected;
    }
    return checkOutput(root) ? makeArchive(memoryp, root) : FAILED;
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

// When the run log broke in the middle of the result's line, the terminal still gets the rest.
void endHalfResult() {
    if (outputHalfReported()) {
        IgMainReportOutput();
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
    IgCmnMsgHist(ZEPA113_E, call, error, IgCmnStrError(error, 0));
    const auto unit = place.unit();
    IgCmnMsgHist(ZEPA114_E, unit.data(), place.line);
}

}  // namespace

int IgMainLock() {
    std::array<char, PATH_MAX + 1> path{};
    if (IgCmnGetKestrumFile(IgCmnGetKestrumBinDir, RUN_LOCK_NAME, path.data(), path.size()) == 0) {
        return FAILED;
    }
    main_run.lock_fd = ::open(path.data(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (main_run.lock_fd == -1) {
        reportLockFailure("open", errno, path.data());
        return FAILED;
    }
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(main_run.lock_fd, F_SETLK, &lock) != -1) {
        return DONE;
    }
    if (errno == EACCES || errno == EAGAIN) {
        IgCmnMsg<ZEPA116_E>();
        IgCmnMsgHist(ZEPA116_E);
        return LOCK_HELD;
    }
    reportLockFailure("fcntl", errno, path.data());
    return FAILED;
}

void IgMainUnlock() {
    if (main_run.lock_fd != -1) {
        ::close(main_run.lock_fd);
        main_run.lock_fd = -1;
    }
}

// --- phases ---

int IgMainCollect(int /*unused*/) {
    root_tbl& root = *main_run.root;
    const int result = collectAndMake(&main_run.memoryp, root);
    if (result == INTERRUPTED || result == FAILED) {
        main_run.cleanup_wanted = root.cleanup == CLEANUP_ON ? 1 : 0;
    } else if (result == SIZE_LIMIT) {
        IgMainSetRetCode(RETCODE_DIRECTORY);
        main_run.cleanup_wanted = 0;
    }
    return result;
}

void IgMainStopChild() {
    const InterruptionBlock block;  // the handler must not do the same in the middle of it
    IgCmnProcStopOnInterrupt();
}

// --- the end ---

int IgMainEnd() {
    using EndStep = void (*)();
    static constexpr std::array<EndStep, 9> STEPS{
        endSizeLimit, endResult,        endHalfResult, IgCmnProcReportStopFailure,
        endMemory,    IgCmnMsgCloseLog, endHistory,    IgCmnMemoryEnd,
        IgMainUnlock,
    };
    static std::size_t next = 0;
    while (next < STEPS.size()) {
        STEPS[next++]();  // counted first: a second entry must not repeat the step it came from
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
