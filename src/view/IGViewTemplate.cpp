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

// A number as a size; what is no number stays as it is.
std::string sizeOf(const std::string& value, double factor) {
    const auto number = readNumber(value);
    return number ? shownBytes(*number * factor) : value;
}

bool isName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_';
    });
}

}  // namespace

Template::Part Template::plainPart(std::string text) {
    Part part;
    part.text = std::move(text);
    return part;
}

// {NAME}, {NAME KiB}
Template::Part Template::capture(std::string_view inside, std::string* mistake) {
    const std::size_t blank = inside.find(' ');
    const std::string_view name = inside.substr(0, blank);
    const std::string_view unit =
        blank == std::string_view::npos ? std::string_view() : inside.substr(blank + 1);
    Part part;
    part.text = name;
    part.kind = Part::Kind::CAPTURE;
    if (unit == "bytes" || unit == "KiB" || unit == "MiB") {
        part.kind = Part::Kind::BYTES;
        part.factor = unit == "bytes" ? 1 : unit == "KiB" ? 1024.0 : 1024.0 * 1024;
    } else if ((!unit.empty() || !isName(name)) && mistake != nullptr) {
        *mistake = "{" + std::string(inside) + "} is no place for a capture";
    }
    return part;
}

// What follows "each": one name, or a text with names in square brackets.
std::vector<Template::Part> Template::partsOfEach(std::string_view inside, std::string* mistake) {
    std::vector<Part> parts;
    while (!inside.empty()) {
        const std::size_t open = inside.find('[');
        const std::size_t close = inside.find(']', open);
        parts.push_back(plainPart(std::string(inside.substr(0, open))));
        if (close == std::string_view::npos) {
            break;
        }
        parts.push_back(capture(inside.substr(open + 1, close - open - 1), mistake));
        inside.remove_prefix(close + 1);
    }
    if (parts.size() < 2 && mistake != nullptr) {
        *mistake = "{each ...} needs a name, or names in square brackets";
    }
    return parts;
}

Template::Part Template::place(std::string_view inside, std::string* mistake) {
    const std::size_t blank = inside.find(' ');
    const std::string_view first = inside.substr(0, blank);
    const std::string_view rest =
        blank == std::string_view::npos ? std::string_view() : inside.substr(blank + 1);
    Part part;
    if (first == "count") {
        const std::size_t bar = rest.find('|');
        part.kind = Part::Kind::COUNT;
        part.one = rest.substr(0, bar);
        part.many = bar == std::string_view::npos ? part.one : rest.substr(bar + 1);
    } else if (first == "each" && isName(rest)) {
        part.kind = Part::Kind::EACH;
        part.inside = {capture(rest, mistake)};
    } else if (first == "each" && !rest.empty()) {
        part.kind = Part::Kind::EACH;
        part.inside = partsOfEach(rest, mistake);
    } else {
        part = capture(inside, mistake);
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
        parts_.push_back(plainPart(std::exchange(plain, {})));
        parts_.push_back(place(text.substr(0, end), mistake));
        text.remove_prefix(end + 1);
    }
    parts_.push_back(plainPart(plain));
}

// The texts of all matches. The text before an empty capture is left out, so that no "a of " stays;
// a text whose captures are all empty is empty.
std::vector<std::string> Template::valuesOf(const Part& each, const TemplateValues& values) {
    std::vector<std::string> texts;
    std::vector<bool> filled;
    std::string between;
    for (const Part& part : each.inside) {
        if (part.kind == Part::Kind::TEXT) {
            between = part.text;
            continue;
        }
        const std::vector<std::string> all = values.all(part.text);
        texts.resize(all.size());
        filled.resize(all.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (!all[i].empty()) {
                texts[i] += between;
                texts[i] += part.kind == Part::Kind::BYTES ? sizeOf(all[i], part.factor) : all[i];
                filled[i] = true;
            }
        }
        between.clear();
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        texts[i] += filled[i] ? between : "";
    }
    return texts;
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
            case Part::Kind::BYTES:
                text += sizeOf(values.one(part.text), part.factor);
                break;
            case Part::Kind::EACH:
                text += listed(valuesOf(part, values));
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
    const auto add = [&](const Part& part) {
        if (part.kind == Part::Kind::CAPTURE || part.kind == Part::Kind::BYTES) {
            names.push_back(part.text);
        }
    };
    for (const Part& part : parts_) {
        add(part);
        std::for_each(part.inside.begin(), part.inside.end(), add);
    }
    return names;
}

bool Template::needsAll() const {
    return std::any_of(parts_.begin(), parts_.end(), [](const Part& part) {
        return part.kind == Part::Kind::EACH || part.kind == Part::Kind::COUNT;
    });
}
