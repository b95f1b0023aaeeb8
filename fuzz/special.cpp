// Special strings: checking and expanding agree, and "%%" only ever makes a text shorter.
#include <algorithm>

#include "fuzz.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const std::string text = fuzzText(data, size);
    memory_pool pool = nullptr;
    auto* root = newFromPool<root_tbl>(&pool);
    fuzzRequire(IgCmnSpecialStrInit(root, &pool) == 0);
    int bad = 0;
    const char* checked = IgCmnReplaceStrs(text.c_str(), 1, root, &pool, &bad);
    const char* expanded = IgCmnReplaceStrs(text.c_str(), 1, root, &pool, nullptr);
    fuzzRequire((checked == nullptr) == (expanded == nullptr));
    if (expanded != nullptr) {
        const bool odd = std::count(text.begin(), text.end(), '%') % 2 != 0;
        fuzzRequire(!odd || bad == 1);
        fuzzRequire(text.find('%') != std::string::npos || text == expanded);
        std::string collapsed = text;
        fuzzRequire(IgCmnStrUnescapePercent(collapsed.data()) == 0);
        fuzzRequire(std::string(collapsed.c_str()).size() <= text.size());
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
