#include <algorithm>
#include <map>
#include <vector>

#include "view/IGViewSection.h"

namespace {

std::string_view targetOf(std::string_view name) {
    const std::size_t slash = name.find('/');
    return slash == std::string_view::npos ? std::string_view() : name.substr(0, slash);
}

// A directory is left out if the next member lies in it: it is a part of the names below it.
bool isListed(const std::vector<Item>& items, std::size_t number) {
    const Item& item = items[number];
    if (item.kind != ItemKind::DIRECTORY) {
        return true;
    }
    if (item.name.empty()) {
        return false;
    }
    return number + 1 == items.size() || !items[number + 1].name.starts_with(item.name + "/");
}

using Numbers = std::vector<std::uint32_t>;

std::map<std::string_view, Numbers> byTarget(const std::vector<Item>& items) {
    std::map<std::string_view, Numbers> targets;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (isListed(items, i)) {
            targets[targetOf(items[i].name)].push_back(static_cast<std::uint32_t>(i));
        }
    }
    for (auto& [target, numbers] : targets) {
        std::stable_sort(numbers.begin(), numbers.end(),
                         [&items](std::uint32_t one, std::uint32_t other) {
                             return items[one].name < items[other].name;
                         });
    }
    return targets;
}

// A line with the name, one with the size or kind, one with the description. The script makes a
// link of the name: without it an item does not open. Elements are few, because the list is the
// largest part of a small page beside the contents.
void writeItem(HtmlWriter& out, const Result& result, std::uint32_t number,
               std::string_view target) {
    const Item& item = result.items[number];
    std::string_view name = item.name;
    name.remove_prefix(target.empty() ? 0 : target.size() + 1);
    out << "<li id=i"_html << number << ">"_html << (name.empty() ? "/" : name) << "\n("_html;
    switch (item.kind) {
        case ItemKind::REGULAR:
            out << sizeText(item.size);
            break;
        case ItemKind::DIRECTORY:
            out << "directory"_html;
            break;
        case ItemKind::LINK:
            out << "link"_html;
            break;
        default:
            out << "special file"_html;
    }
    out << (item.cut ? ", cut)\n"_html : ")\n"_html);
    if (!item.link_target.empty()) {
        out << "to "_html << item.link_target;
    }
    if (item.record < result.records.size()) {
        out << (item.link_target.empty() ? ""_html : " "_html)
            << result.records[item.record].description;
    }
    out << "\n"_html;
}

}  // namespace

void writeItems(HtmlWriter& out, const Result& result) {
    out << "<section id=items><h2>Items</h2><p id=n role=status></p>\n"_html;
    for (const auto& [target, numbers] : byTarget(result.items)) {
        std::uint64_t bytes = 0;
        for (const std::uint32_t number : numbers) {
            bytes += result.items[number].size;
        }
        out << "<details open><summary><h3>"_html << (target.empty() ? "/" : target)
            << "</h3> <small>"_html << countText(numbers.size(), "item") << ", "_html
            << sizeText(bytes) << "</small></summary><ul>\n"_html;
        for (const std::uint32_t number : numbers) {
            writeItem(out, result, number, target);
        }
        out << "</ul></details>\n"_html;
    }
    out << "</section>\n"_html;
}
