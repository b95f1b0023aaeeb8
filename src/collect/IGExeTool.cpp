#include "collect/IGExeTool.h"

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include "collect/IGDestination.h"
#include "collect/IGOutput.h"
#include "collect/IGResult.h"
#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"
#include "process/IGCmnProcess.h"

namespace {

// One tool with its special strings expanded.
struct Tool {
    const char* command_line;
    const char* redirect_path;  // null when the block has none
    mode_t directory_mode;      // of directories made for it
    std::array<char, PATH_MAX + 1> stderr_path;
};

// Chooses the mode of directories made for a tool's output. In the output directory, which other
// users cannot enter, they get every permission, and the path is that of pathInOutput(). Elsewhere
// only root may write to them. False after a reported failure.
bool chooseDirectoryMode(memory_pool* memoryp, const root_tbl& root, Tool& tool) {
    constexpr mode_t INSIDE = 0777;
    constexpr mode_t OUTSIDE = 0755;
    LocalPool local;
    char* output = outputDirectory(local.get(), root);
    char* file = nullptr;
    tool.directory_mode = OUTSIDE;
    if (output == nullptr || IgCmnIsAbsPath(tool.redirect_path) == 0) {
        return output != nullptr;
    }
    if (IgCmnFileNormPath(memoryp, tool.redirect_path, &file) != 0 ||
        IgCmnFileNormPath(local.get(), output, &output) != 0) {
        return false;
    }
    const std::size_t length = std::strlen(output);
    if (std::strncmp(file, output, length) == 0 && file[length] == '/') {
        tool.directory_mode = INSIDE;
        tool.redirect_path = pathInOutput(memoryp, root, file);
    }
    return tool.redirect_path != nullptr;
}

bool expandTool(memory_pool* memoryp, const root_tbl& root, const tool_block& block, Tool& tool) {
    tool.command_line = IgCmnReplaceStrs(block.command_line, 1, &root, memoryp, nullptr);
    if (tool.command_line == nullptr ||
        IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, TOOL_STDERR_NAME, tool.stderr_path.data(),
                            tool.stderr_path.size()) == 0) {
        return false;
    }
    tool.redirect_path = nullptr;
    if (block.redirect_path != nullptr) {
        tool.redirect_path = IgCmnReplaceStrs(block.redirect_path, 1, &root, memoryp, nullptr);
        return tool.redirect_path != nullptr && chooseDirectoryMode(memoryp, root, tool);
    }
    return true;
}

void announceStart(const Tool& tool, tool_block& block) {
    std::array<char, TIME_STAMP_SIZE> stamp{};
    IgCmnGetTimeStamp(stamp.data());
    std::memcpy(block.start_stamp.data(), stamp.data(), block.start_stamp.size() - 1);
    block.start_stamp.back() = '\0';
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgInfo<ZEPA206_I>(tool.command_line, static_cast<const char*>(now.data()), block.timeout);
}

void announceEnd(std::int32_t exit_cd, std::int32_t status) {
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgInfo<ZEPA207_I>(exit_cd, status, static_cast<const char*>(now.data()));
}

// Checks that the command line can be split, and sets `names_program` to whether it names a
// program.
bool canBeSplit(memory_pool* memoryp, const char* command_line, bool& names_program) {
    char* command = nullptr;
    char* options = nullptr;
    if (IgCmnFileSplitCmdOpt(command_line, &command, &options, memoryp) != 0) {
        return false;
    }
    names_program = command != nullptr;
    return command == nullptr || IgCmnStrRemoveDQ(memoryp, command) != nullptr;
}

void showErrorOutput(const char* path) {
    if (IgCmnFileSizeIfThere(path) > 0) {
        IgCmnMsgInfo<ZEPA208_W>();
        IgCmnMsgCopyFile(path);
    }
}

}  // namespace

Result IgExeTool(memory_pool* memoryp, root_tbl* root_tblp, tool_block* tool_block) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root_tblp);
    IG_ASSERT_NOT_NULL(tool_block);
    Tool tool{};
    if (!expandTool(memoryp, *root_tblp, *tool_block, tool)) {
        return RESULT_FAILED;
    }
    if (IgMainIsInterrupted() != 0) {
        return RESULT_INTERRUPTED;
    }
    announceStart(tool, *tool_block);
    bool names_program = false;
    if (!canBeSplit(memoryp, tool.command_line, names_program)) {
        return RESULT_FAILED;
    }
    exec_req request;
    request.stdout_path = tool.redirect_path;
    request.directory_mode = tool.directory_mode;
    request.stderr_path = tool.stderr_path.data();
    request.timeout = tool_block->timeout;
    request.timeout_signal = tool_block->timeout_signal;
    request.wait_termination = tool_block->wait_termination;
    std::int32_t exit_cd = 0;
    std::int32_t status = 0;
    root_tblp->tools_ran = true;
    Destination::forgetComplete();
    sourceForget();
    const int result =
        IgCmnExecCmdlineStr(tool.command_line, tool.command_line, &request, &exit_cd, &status);
    if (result == EXEC_FAILED) {
        exit_cd = 255;
        status = 0;
    }
    announceEnd(exit_cd, status);
    if (result != EXEC_FAILED && names_program && tool.redirect_path == nullptr) {
        showErrorOutput(tool.stderr_path.data());
    }
    return RESULT_DONE;
}
