#include "view/IGViewSection.h"

#include <algorithm>

std::string_view hostOf(const Result& result) {
    constexpr std::size_t TIME_DIGITS = 12;  // YYMMDDhhmmss
    const std::string_view name = result.name;
    if (name.size() <= TIME_DIGITS + 1) {
        return name;
    }
    const std::string_view time = name.substr(name.size() - TIME_DIGITS);
    const bool is_time = name[name.size() - TIME_DIGITS - 1] == '_' &&
                         std::all_of(time.begin(), time.end(),
                                     [](char digit) { return digit >= '0' && digit <= '9'; });
    return is_time ? name.substr(0, name.size() - TIME_DIGITS - 1) : name;
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
