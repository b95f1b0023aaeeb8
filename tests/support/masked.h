// Texts that the filter of secrets masks.
#ifndef QUENDIL_TESTS_SUPPORT_MASKED_H
#define QUENDIL_TESTS_SUPPORT_MASKED_H

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tool/IGSecretText.h"

inline const std::string MASK(SECRET_MASK);

/// A line of a private key: 65 characters of Base64.
inline const std::string KEY_LINE =
    "aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+aB3+";

inline bool appendTo(void* result, const char* bytes, std::size_t size) {
    static_cast<std::string*>(result)->append(bytes, size);
    return true;
}

/// The output of the filter for a text that it gets in blocks of `block` bytes, with long lines in
/// parts of `part` bytes.
inline std::string masked(const std::string& given, std::size_t block = SECRET_PART,
                          std::size_t part = SECRET_PART) {
    const auto text = std::make_unique<secret_text>();
    text->part = part;
    std::string result;
    text->write = appendTo;
    text->to = &result;
    for (std::size_t from = 0; from < given.size();) {
        const std::span<char> room = secretRoom(text.get());
        const std::size_t size = given.copy(room.data(), std::min(block, room.size()), from);
        EXPECT_TRUE(secretTake(text.get(), size));
        from += size;
    }
    EXPECT_TRUE(secretEnd(text.get()));
    return result;
}

/// Enough copies of a text to reach a size in bytes.
inline std::string repeated(const std::string& unit, std::size_t size) {
    std::string text;
    while (text.size() < size) {
        text += unit;
    }
    return text;
}

inline std::string lines(const std::vector<std::string>& all) {
    std::string text;
    for (const std::string& line : all) {
        text += line + "\n";
    }
    return text;
}

/// The capital hexadecimal digits of a text.
inline std::string hexadecimal(const std::string& text) {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string digits;
    for (const char c : text) {
        digits += DIGITS[static_cast<unsigned char>(c) / 16];
        digits += DIGITS[static_cast<unsigned char>(c) % 16];
    }
    return digits;
}

/// A line with a value in each place of "{}".
inline std::string withValue(std::string line, const std::string& value) {
    for (std::size_t at = line.find("{}"); at != std::string::npos; at = line.find("{}")) {
        line.replace(at, 2, value);
    }
    return line + "\n";
}

/// Checks that the filter hides the secrets of each line, and nothing else. "{}" is the place of a
/// secret.
template <std::size_t N>
void expectHidden(const char* const (&rows)[N]) {
    for (const char* row : rows) {
        EXPECT_EQ(masked(withValue(row, "Zq7c06pX4w")), withValue(row, MASK));
    }
}

/// Checks that each line is kept as it is.
template <std::size_t N>
void expectKept(const char* const (&rows)[N]) {
    for (const char* row : rows) {
        EXPECT_EQ(masked(std::string(row) + "\n"), std::string(row) + "\n");
    }
}

/// A text and the output of the filter for it.
struct MaskedText {
    std::string given;
    std::string result;
};

inline void expectMasked(const std::vector<MaskedText>& texts) {
    for (const MaskedText& text : texts) {
        EXPECT_EQ(masked(text.given), text.result);
    }
}

#endif
