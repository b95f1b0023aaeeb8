#include "view/IGViewSection.h"

#include <algorithm>

namespace {

constexpr const char* INDEX = "quendil_index";

// The bytes of the time at the end of a result's name, "_YYMMDDhhmmss"; 0 without one.
std::size_t timeLength(std::string_view name) {
    constexpr std::size_t LENGTH = 13;
    if (name.size() <= LENGTH || name[name.size() - LENGTH] != '_') {
        return 0;
    }
    name.remove_prefix(name.size() - LENGTH + 1);
    const bool is_time = std::all_of(name.begin(), name.end(),
                                     [](char digit) { return digit >= '0' && digit <= '9'; });
    return is_time ? LENGTH : 0;
}

}  // namespace

std::string_view hostOf(const Result& result) {
    const std::string_view name = result.name;
    return name.substr(0, name.size() - timeLength(name));
}

bool isResult(const Result& result) {
    return result.run.log != NONE || timeLength(result.name) > 0 ||
           std::any_of(result.items.begin(), result.items.end(),
                       [](const Item& item) { return item.name == INDEX; });
}

bool opens(const Result& result, std::uint32_t item) {
    return item < result.items.size() && result.items[item].kind == ItemKind::REGULAR;
}

void writeLink(HtmlWriter& out, const Result& result, std::uint32_t item, std::uint64_t line,
               std::string_view text) {
    if (!opens(result, item)) {
        out << text;
        return;
    }
    out << "<a href=#i"_html << item;
    if (line > 0) {
        out << "L"_html << line;
    }
    out << ">"_html << text << "</a>"_html;
}

void writePlace(HtmlWriter& out, const Result& result, const Place& place) {
    if (place.item >= result.items.size()) {
        return;
    }
    std::string where = result.items[place.item].name;
    if (place.line > 0) {
        where += ":" + std::to_string(place.line);
    }
    writeLink(out, result, place.item, place.line, where);
    if (!place.text.empty()) {
        out << " <code>"_html << place.text << "</code>"_html;
    }
}
