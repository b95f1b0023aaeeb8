// Pattern files: accepted or skipped, never anything else; what is accepted is complete.
#include "fuzz.h"
#include "ini/IGIniReadPtn.h"
#include "ini/IGIniTable.h"

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
        for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
            for (const collect_item& item : walkList<collect_item>(block.items)) {
                fuzzRequire(item.kind == ITEM_TOOL ? item.tool.command_line != nullptr
                                                   : item.data.path_name != nullptr);
            }
        }
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
