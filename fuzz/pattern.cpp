// Pattern files: each is accepted or skipped; an accepted one is complete and within its limits.
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "fuzz.h"
#include "ini/IGIniCheck.h"
#include "ini/IGIniReadPtn.h"
#include "ini/IGIniTable.h"

namespace {

// Whether a text has at most this many bytes, and only allowed characters.
bool isText(const char* text, std::size_t longest) {
    return text != nullptr && std::string(text).size() <= longest && IgCmnStrIsAscii(text) == 1;
}

bool isPath(const char* bare, const char* written) {
    return isText(written, 260) && isText(bare, 260) && IgCmnIsAbsPathIgnoreDQ(bare) == 1;
}

bool isGood(const tool_block& tool) {
    return isText(tool.command_line, 260) && tool.command_line_copy != tool.command_line &&
           std::string(tool.command_line) == tool.command_line_copy && tool.timeout >= -1 &&
           tool.timeout <= 36000 && tool.timeout_signal >= 0 && tool.wait_termination >= 0 &&
           tool.wait_termination <= 600 &&
           (tool.redirect_path == nullptr ||
            isPath(tool.redirect_path, tool.redirect_path_written));
}

bool isGood(const data_block& data) {
    return isPath(data.path_name, data.path_name_written) && data.file_type >= FILE_TEXT &&
           data.file_type <= FILE_OTHER &&
           (data.file_type_word == nullptr || isText(data.file_type_word, 20));
}

bool areTexts(const IgCmnListHeader* list, std::size_t longest) {
    for (const char& text : walkStrings(list)) {
        if (text == '\0' || !isText(&text, longest)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const FuzzFile input(data, size);
    memory_pool pool = nullptr;
    auto* root = newFromPool<root_tbl>(&pool);
    root->crnt_ptn_def = IgIniGetPickPtn(&pool);
    const int result = IgIniReadPtnDef(input.path(), root, &pool);
    fuzzRequire(result == 0 || result == PTN_SKIPPED);
    if (result == 0) {
        const pickptn_tbl& ptn = *root->crnt_ptn_def;
        fuzzRequire(ptn.blocks != nullptr && (ptn.flags & PTN_FORMAT_VERSION) != 0);
        fuzzRequire(ptn.vrs == nullptr || isText(ptn.vrs, 10));
        fuzzRequire(areTexts(ptn.katamei, 256) && areTexts(ptn.name, 256) &&
                    areTexts(ptn.group, 256));
        for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
            fuzzRequire(areTexts(block.target, 256));
            for (const collect_item& item : walkList<collect_item>(block.items)) {
                fuzzRequire(item.kind == ITEM_TOOL ? isGood(item.tool) : isGood(item.data));
            }
        }
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
