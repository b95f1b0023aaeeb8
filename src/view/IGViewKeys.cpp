#include "view/IGViewKeys.h"

#include <algorithm>

namespace {

constexpr double MOST_COUNT = 1e6;

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    result += text;
    return result + '"';
}

}  // namespace

const nlohmann::json* Keys::find(const char* key) {
    known_.emplace_back(key);
    const auto found = object_.find(key);
    return found == object_.end() ? nullptr : &*found;
}

void Keys::fail(const std::string& mistake) {
    if (mistake_.empty()) {
        mistake_ = owner_ + ": " + mistake;
    }
}

bool Keys::need(const char* key) {
    const bool there = object_.contains(key);
    if (!there) {
        fail("it has no " + inQuotes(key));
    }
    return there;
}

std::string Keys::textOf(const nlohmann::json& value, const char* key) {
    if (!value.is_string()) {
        fail(inQuotes(key) + " must be a text");
        return {};
    }
    const auto& text = value.get_ref<const std::string&>();
    if (text.empty()) {
        fail(inQuotes(key) + " must not be empty");
    }
    return text;
}

std::string Keys::text(const char* key) {
    const nlohmann::json* value = find(key);
    return value == nullptr ? std::string() : textOf(*value, key);
}

std::string Keys::neededText(const char* key) {
    need(key);
    return text(key);
}

std::vector<std::string> Keys::texts(const char* key) {
    const nlohmann::json* value = find(key);
    if (value == nullptr) {
        return {};
    }
    if (value->is_string()) {
        return {textOf(*value, key)};
    }
    if (!value->is_array() || value->empty()) {
        fail(inQuotes(key) + " must be a text or a list of texts");
        return {};
    }
    std::vector<std::string> result;
    for (const nlohmann::json& element : *value) {
        result.push_back(textOf(element, key));
    }
    return result;
}

std::vector<std::string> Keys::neededTexts(const char* key) {
    need(key);
    return texts(key);
}

std::optional<double> Keys::number(const char* key) {
    const nlohmann::json* value = find(key);
    if (value == nullptr) {
        return {};
    }
    if (!value->is_number()) {
        fail(inQuotes(key) + " must be a number");
        return {};
    }
    return value->get<double>();
}

std::size_t Keys::count(const char* key, std::size_t otherwise) {
    const std::optional<double> value = number(key);
    if (!value) {
        return otherwise;
    }
    if (!(*value >= 1 && *value <= MOST_COUNT)) {
        fail(inQuotes(key) + " must be a number from 1 to 1000000");
        return otherwise;
    }
    return static_cast<std::size_t>(*value);
}

bool Keys::flag(const char* key) {
    const nlohmann::json* value = find(key);
    if (value != nullptr && !value->is_boolean()) {
        fail(inQuotes(key) + " must be true or false");
        return false;
    }
    return value != nullptr && value->get<bool>();
}

bool Keys::isObject(const char* key) const {
    const auto found = object_.find(key);
    return found != object_.end() && found->is_object();
}

const nlohmann::json* Keys::object(const char* key) {
    const nlohmann::json* value = find(key);
    if (value != nullptr && !value->is_object()) {
        fail(inQuotes(key) + " must be an object in braces");
        return nullptr;
    }
    return value;
}

const nlohmann::json* Keys::list(const char* key) {
    const nlohmann::json* value = find(key);
    if (value != nullptr && !value->is_array()) {
        fail(inQuotes(key) + " must be a list");
        return nullptr;
    }
    return value;
}

std::size_t Keys::word(const char* key, std::initializer_list<const char*> words, bool needed) {
    const std::string given = needed ? neededText(key) : text(key);
    if (given.empty()) {
        return 0;
    }
    std::size_t position = 0;
    std::string choice;
    for (const char* word : words) {
        if (given == word) {
            return position;
        }
        choice += (position == 0                  ? ""
                   : position + 1 == words.size() ? " or "
                                                  : ", ") +
                  inQuotes(word);
        ++position;
    }
    fail(inQuotes(key) + " must be " + choice);
    return 0;
}

bool Keys::end(std::string& why) {
    for (const auto& [key, value] : object_.items()) {
        if (std::find(known_.begin(), known_.end(), key) == known_.end()) {
            fail("unknown key " + inQuotes(key));
        }
    }
    if (failed()) {
        why = mistake_;
    }
    return !failed();
}
