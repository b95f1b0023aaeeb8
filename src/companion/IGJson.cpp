#include "companion/IGJson.h"

#include <nlohmann/json.hpp>

std::string dumped(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

void ListWriter::add(const nlohmann::ordered_json& value) {
    std::printf("%s\n%s", first_ ? "" : ",", dumped(value).c_str());
    first_ = false;
}

void printBeginning(const nlohmann::ordered_json& object) {
    std::string text = dumped(object);
    text.pop_back();
    std::printf("%s", text.c_str());
}
