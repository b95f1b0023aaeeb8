// The place in the source that an error report names: the unit (the file's name without directory
// and suffix, such as "IGMain") and the line.
#ifndef QUENDIL_COMMON_BASE_IGSOURCEPLACE_H
#define QUENDIL_COMMON_BASE_IGSOURCEPLACE_H

#include <array>
#include <cstddef>
#include <string_view>

struct SourcePlace {
    const char* file = "";
    int line = 0;

    /// The caller's place, for use as the default value of a last parameter. Replaces
    /// std::source_location, which the older of the two supported compilers lacks.
    static constexpr SourcePlace current(const char* file = __builtin_FILE(),
                                         int line = __builtin_LINE()) {
        return {file, line};
    }

    /// The unit's name as a terminated text, truncated to 63 bytes.
    [[nodiscard]] constexpr std::array<char, 64> unit() const {
        std::string_view name(file);
        name.remove_prefix(name.rfind('/') + 1);  // npos + 1 is 0: no slash, nothing to remove
        name = name.substr(0, name.find('.'));
        std::array<char, 64> text{};
        for (std::size_t i = 0; i < name.size() && i + 1 < text.size(); ++i) {
            text[i] = name[i];
        }
        return text;
    }
};

#endif
