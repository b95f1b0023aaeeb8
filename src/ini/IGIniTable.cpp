#include "ini/IGIniTable.h"

#include "common/base/IGCmnList.h"

namespace {

constexpr std::int32_t DEFAULT_TIMEOUT = 10;           // seconds
constexpr std::int32_t DEFAULT_TIMEOUT_SIGNAL = 15;    // SIGTERM
constexpr std::int32_t DEFAULT_WAIT_TERMINATION = 10;  // seconds

}  // namespace

pickptn_tbl* IgIniGetPickPtn(memory_pool* memoryp) {
    return newFromPool<pickptn_tbl>(memoryp);
}

ptn_block* IgIniGetPickPtnBlock(memory_pool* memoryp) {
    auto* block = newFromPool<ptn_block>(memoryp);
    if (block != nullptr) {
        block->skip = 1;
    }
    return block;
}

collect_item* IgIniGetPickPtnCmdData(memory_pool* memoryp, ItemKind kind) {
    auto* item = newFromPool<collect_item>(memoryp);
    if (item == nullptr) {
        return nullptr;
    }
    item->kind = kind;
    if (kind == ITEM_TOOL) {
        item->tool.timeout = DEFAULT_TIMEOUT;
        item->tool.timeout_signal = DEFAULT_TIMEOUT_SIGNAL;
        item->tool.wait_termination = DEFAULT_WAIT_TERMINATION;
    } else {
        item->data.file_type = FILE_TEXT;
    }
    return item;
}

int IgIniCollectList(const char* value, IgCmnListHeader** list, memory_pool* memoryp) {
    return makeList(value, list, memoryp);
}
