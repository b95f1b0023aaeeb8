#include "view/IGViewQuery.h"

#include <fnmatch.h>

#include <algorithm>

namespace {

// Characters that fnmatch(3) does not take literally.
constexpr const char* SPECIAL = "*?[\\";

}  // namespace

Query readQuery(Keys& keys) {
    Query query;
    query.items = keys.neededTexts("items");
    query.find = keys.neededTexts("find");
    query.unless = keys.texts("unless");
    query.after = keys.text("after");
    query.context = keys.text("context");
    query.needs = keys.text("needs");
    query.empty = keys.flag("empty");
    return query;
}

std::string_view Match::operator[](std::string_view name) const {
    for (const auto& [known, value] : captures_) {
        if (known == name) {
            return value;
        }
    }
    return {};
}

// --- which queries read an item ---

QueryIndex::QueryIndex(std::span<const Query* const> queries) {
    for (std::uint32_t query = 0; query < queries.size(); ++query) {
        const std::vector<std::string>& items = queries[query]->items;
        for (std::uint32_t wildcard = 0; wildcard < items.size(); ++wildcard) {
            const std::string& pattern = items[wildcard];
            const std::size_t literal = pattern.find_first_of(SPECIAL);
            if (literal == std::string::npos) {
                names_[pattern].push_back({query, wildcard});
            } else {
                wildcards_.push_back({pattern, literal, {query, wildcard}});
            }
        }
    }
}

const std::vector<QueryIndex::Use>& QueryIndex::find(std::string_view item) {
    item_ = item;
    found_.clear();
    if (const auto named = names_.find(item_); named != names_.end()) {
        found_ = named->second;
    }
    for (const Wildcard& wildcard : wildcards_) {
        if (item_.compare(0, wildcard.literal, wildcard.pattern, 0, wildcard.literal) == 0 &&
            ::fnmatch(wildcard.pattern.c_str(), item_.c_str(), 0) == 0) {
            found_.push_back(wildcard.use);
        }
    }
    std::sort(found_.begin(), found_.end(), [](const Use& one, const Use& other) {
        return std::pair(one.query, one.wildcard) < std::pair(other.query, other.wildcard);
    });
    found_.erase(
        std::unique(found_.begin(), found_.end(),
                    [](const Use& one, const Use& other) { return one.query == other.query; }),
        found_.end());
    return found_;
}
