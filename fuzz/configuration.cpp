// Configuration files: each is accepted or rejected, and every setting is valid after it.
#include "common/file/IGCmnPath.h"
#include "fuzz.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniReadCompDef.h"
#include "ini/IGIniTable.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const FuzzFile input(data, size);
    memory_pool pool = nullptr;
    auto* root = newFromPool<root_tbl>(&pool);
    fuzzRequire(IgCmnSpecialStrInit(root, &pool) == 0);
    char start[] = "/start";
    root->output_dir = start;
    root->cleanup = CLEANUP_OFF;
    root->max_output_size = -1;
    const int result = IgIniReadCompDef(input.path(), root, &pool);
    fuzzRequire(result == 0 || result == -1);
    fuzzRequire(IgCmnIsAbsPath(root->output_dir) == 1 && root->max_output_size >= -1 &&
                (root->cleanup == CLEANUP_ON || root->cleanup == CLEANUP_OFF));
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
