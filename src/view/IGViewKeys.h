// Reads the keys of a JSON object that a user has written, and reports every mistake.
#ifndef QUENDIL_VIEW_IGVIEWKEYS_H
#define QUENDIL_VIEW_IGVIEWKEYS_H

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

/// Reads the keys of one object. The first mistake is kept, and later ones are not looked for.
class Keys {
  public:
    /// @param object must be a JSON object and outlive this one
    /// @param owner what the object describes, such as `rule "full-disk"`: it begins every mistake
    Keys(const nlohmann::json& object, std::string owner)
        : object_(object), owner_(std::move(owner)) {}

    /// A text that is not empty; "" if the key is not there.
    std::string text(const char* key);
    std::string neededText(const char* key);
    /// A text, or a list of texts; none of them is empty.
    std::vector<std::string> texts(const char* key);
    std::vector<std::string> neededTexts(const char* key);
    std::optional<double> number(const char* key);
    /// A whole number from 1 to a million.
    std::size_t count(const char* key, std::size_t otherwise);
    /// true or false; false if the key is not there.
    bool flag(const char* key);
    /// Whether the key is there with an object.
    [[nodiscard]] bool isObject(const char* key) const;
    /// An object or null if the key is not there.
    const nlohmann::json* object(const char* key);
    /// A list or null if the key is not there.
    const nlohmann::json* list(const char* key);
    /// Which of the words the text is; the first one if the key is not there.
    std::size_t word(const char* key, std::initializer_list<const char*> words, bool needed);

    /// Notes a mistake that its caller has found.
    void fail(const std::string& mistake);
    /// Reports keys that were not read: they are unknown.
    /// @param why is set to the first mistake
    /// @return false if there is one
    bool end(std::string& why);
    [[nodiscard]] bool failed() const { return !mistake_.empty(); }
    [[nodiscard]] const std::string& owner() const { return owner_; }

  private:
    const nlohmann::json* find(const char* key);
    std::string textOf(const nlohmann::json& value, const char* key);
    bool need(const char* key);

    const nlohmann::json& object_;
    std::string owner_;
    std::string mistake_;
    std::vector<std::string> known_;
};

#endif
