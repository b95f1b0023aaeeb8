#include "view/IGViewTemplate.h"

#include <algorithm>
#include <utility>

#include "view/IGViewNumber.h"

namespace {

constexpr std::size_t MOST_LISTED = 5;

// The values that differ, in their order.
std::string listed(std::vector<std::string> values) {
    std::string text;
    std::vector<std::string> distinct;
    for (std::string& value : values) {
        if (!value.empty() &&
            std::find(distinct.begin(), distinct.end(), value) == distinct.end()) {
            distinct.push_back(std::move(value));
        }
    }
    for (std::size_t i = 0; i < std::min(distinct.size(), MOST_LISTED); ++i) {
        text += (i == 0 ? "" : ", ") + distinct[i];
    }
    return distinct.size() > MOST_LISTED ? text + ", ..." : text;
}

bool isName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_';
    });
}

}  // namespace

Template::Part Template::place(std::string_view inside, std::string* mistake) {
    const std::size_t blank = inside.find(' ');
    const std::string_view first = inside.substr(0, blank);
    const std::string_view rest =
        blank == std::string_view::npos ? std::string_view() : inside.substr(blank + 1);
    Part part;
    part.text = first;
    part.kind = Part::Kind::CAPTURE;
    if (first == "count") {
        const std::size_t bar = rest.find('|');
        part.kind = Part::Kind::COUNT;
        part.one = rest.substr(0, bar);
        part.many = bar == std::string_view::npos ? part.one : rest.substr(bar + 1);
    } else if (first == "each" && isName(rest)) {
        part.kind = Part::Kind::EACH;
        part.text = rest;
    } else if (rest == "bytes" || rest == "KiB" || rest == "MiB") {
        part.kind = Part::Kind::BYTES;
        part.factor = rest == "bytes" ? 1 : rest == "KiB" ? 1024.0 : 1024.0 * 1024;
    } else if (!rest.empty() || !isName(first)) {
        if (mistake != nullptr) {
            *mistake = "{" + std::string(inside) + "} is no place for a capture";
        }
    }
    return part;
}

Template::Template(std::string_view text, std::string* mistake) {
    std::string plain;
    while (!text.empty()) {
        const std::size_t brace = text.find('{');
        plain += text.substr(0, brace);
        if (brace == std::string_view::npos) {
            break;
        }
        text.remove_prefix(brace + 1);
        if (text.starts_with('{')) {
            plain += '{';
            text.remove_prefix(1);
            continue;
        }
        const std::size_t end = text.find('}');
        if (end == std::string_view::npos) {
            if (mistake != nullptr) {
                *mistake = R"(a "{" without its "}"; "{{" is a brace)";
            }
            return;
        }
        parts_.push_back({.text = std::exchange(plain, {}), .one = {}, .many = {}});
        parts_.push_back(place(text.substr(0, end), mistake));
        text.remove_prefix(end + 1);
    }
    parts_.push_back({.text = plain, .one = {}, .many = {}});
}

std::string Template::filled(const TemplateValues& values) const {
    std::string text;
    for (const Part& part : parts_) {
        switch (part.kind) {
            case Part::Kind::TEXT:
                text += part.text;
                break;
            case Part::Kind::CAPTURE:
                text += values.one(part.text);
                break;
            case Part::Kind::BYTES: {
                const std::string value = values.one(part.text);
                const auto number = readNumber(value);
                text += number ? shownBytes(*number * part.factor) : value;
                break;
            }
            case Part::Kind::EACH:
                text += listed(values.all(part.text));
                break;
            case Part::Kind::COUNT:
                text += std::to_string(values.count);
                text += part.one.empty() ? "" : " " + (values.count == 1 ? part.one : part.many);
                break;
        }
    }
    return text;
}

std::vector<std::string> Template::names() const {
    std::vector<std::string> names;
    for (const Part& part : parts_) {
        if (part.kind != Part::Kind::TEXT && part.kind != Part::Kind::COUNT) {
            names.push_back(part.text);
        }
    }
    return names;
}

bool Template::needsAll() const {
    return std::any_of(parts_.begin(), parts_.end(), [](const Part& part) {
        return part.kind == Part::Kind::EACH || part.kind == Part::Kind::COUNT;
    });
}
