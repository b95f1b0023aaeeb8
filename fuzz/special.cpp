// Special strings: checking and expanding agree with a second implementation of their rules, and
// each "%%" makes a text shorter by one character.
#include <map>

#include "common/base/IGCmnStr.h"
#include "fuzz.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"

namespace {

struct Model {
    std::string expanded;
    bool bad = false;
};

// The pieces between percent signs are alternately plain text and names.
Model modelOf(const std::string& text, const std::map<std::string, std::string>& values) {
    Model model;
    std::size_t start = 0;
    for (bool name = false;; name = !name) {
        const std::size_t end = text.find('%', start);
        const std::string piece = text.substr(start, end == std::string::npos ? end : end - start);
        if (end == std::string::npos) {
            model.expanded += (name ? "%" : "") + piece;
            model.bad = model.bad || name;
            return model;
        }
        if (!name) {
            model.expanded += piece;
        } else if (piece.empty()) {
            model.expanded += '%';
        } else if (const auto value = values.find(piece); value != values.end()) {
            model.expanded += value->second;
        } else {
            model.bad = true;
        }
        start = end + 1;
    }
}

std::string collapsed(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        result += text[i];
        i += text.compare(i, 2, "%%") == 0 ? 1 : 0;
    }
    return result;
}

}  // namespace

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
        const Model model = modelOf(text, {{"YY", root->YY},
                                           {"MM", root->MM},
                                           {"DD", root->DD},
                                           {"hh", root->hh},
                                           {"mm", root->mm},
                                           {"ss", root->ss},
                                           {"HOST", root->HOST},
                                           {"d", ""}});
        fuzzRequire(expanded == model.expanded && (bad == 1) == model.bad);
        std::string in_place = text;
        fuzzRequire(IgCmnStrUnescapePercent(in_place.data()) == 0);
        fuzzRequire(in_place.c_str() == collapsed(text));
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
