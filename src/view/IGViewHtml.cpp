#include "view/IGViewHtml.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr std::size_t PIECE_BYTES = std::size_t{32} * 1024;
constexpr std::uint32_t NO_CHARACTER = 0xffffffff;

struct Utf8Character {
    std::uint32_t code = NO_CHARACTER;
    std::size_t size = 1;  // bytes
};

// How many bytes a sequence has by its first one; 0 if none begins with it.
std::size_t sequenceSize(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xc2 && first < 0xe0) {
        return 2;
    }
    if ((first & 0xf0) == 0xe0) {
        return 3;
    }
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

// The first character of a text that is not empty, or its first byte if that is none (RFC 3629).
Utf8Character firstCharacter(std::string_view text) {
    constexpr std::array<std::uint32_t, 5> LEAST{0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t size = sequenceSize(first);
    if (size == 1) {
        return {first, 1};
    }
    if (size == 0 || size > text.size()) {
        return {};
    }
    std::uint32_t code = first & (0xffU >> (size + 1));
    for (std::size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0U) != 0x80) {
            return {};
        }
        code = code << 6U | (next & 0x3fU);
    }
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    return code < LEAST[size] || code > 0x10ffff || surrogate ? Utf8Character{}
                                                              : Utf8Character{code, size};
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// Control characters but the tab, marks of writing direction, line separators, the byte order mark,
// and others without a picture. The script of the page has the same ranges.
constexpr std::array<Range, 11> INVISIBLE{{{0x00, 0x08},
                                           {0x0a, 0x1f},
                                           {0x7f, 0x9f},
                                           {0x061c, 0x061c},
                                           {0x200e, 0x200f},
                                           {0x2028, 0x202e},
                                           {0x2066, 0x2069},
                                           {0xfeff, 0xfeff},
                                           {0xfff9, 0xfffb},
                                           {0xfffe, 0xffff},
                                           {0xe0000, 0xe007f}}};

bool isInvisible(std::uint32_t code) {
    return std::any_of(INVISIBLE.begin(), INVISIBLE.end(), [code](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

std::string_view entityOf(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&#34;";
        case '\'':
            return "&#39;";
        default:
            return {};
    }
}

std::string hexadecimal(std::uint32_t number, std::size_t digits) {
    std::array<char, 8> text{};
    char* end = std::to_chars(text.data(), text.data() + text.size(), number, 16).ptr;
    const std::string result(text.data(), end);
    return std::string(digits - std::min(digits, result.size()), '0') + result;
}

// An escape as JavaScript knows it, if the character needs one.
std::string visibleEscape(const Utf8Character& character, unsigned char first) {
    if (character.code == NO_CHARACTER) {
        return "\\x" + hexadecimal(first, 2);
    }
    if (!isInvisible(character.code)) {
        return {};
    }
    if (character.code < 0x80) {
        return "\\x" + hexadecimal(character.code, 2);
    }
    return character.code < 0x10000 ? "\\u" + hexadecimal(character.code, 4)
                                    : "\\u{" + hexadecimal(character.code, 1) + "}";
}

constexpr std::string_view BASE64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Printable ASCII without the blank and the characters of markup.
constexpr std::string_view BASE91 =
    "!\"#$%'()*+,-./0123456789:;=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";
static_assert(BASE91.size() == 91);

std::uint32_t digitValue(char digit) {
    return static_cast<std::uint32_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

}  // namespace

std::string escapedHtml(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Utf8Character character = firstCharacter(text);
        const std::string escape =
            visibleEscape(character, static_cast<unsigned char>(text.front()));
        const std::string_view entity = entityOf(text.front());
        if (!escape.empty()) {
            result += escape;
        } else if (!entity.empty()) {
            result += entity;
        } else {
            result += text.substr(0, character.size);
        }
        text.remove_prefix(character.size);
    }
    return result;
}

std::string sizeText(std::uint64_t bytes) {
    constexpr std::array<const char*, 6> UNITS{" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; value >= 1023.5 && unit + 1 < UNITS.size(); ++unit) {
        value /= 1024;
    }
    return decimalText(value, value < 9.95 ? 1 : 0) + UNITS[unit];
}

std::string groupedNumber(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t end = digits.size(); end > 3;) {
        end -= 3;
        digits.insert(end, ",");
    }
    return digits;
}

std::string decimalText(double value, int digits) {
    std::array<char, 400> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value,
                                            std::chars_format::fixed, digits);
    std::string result = error == std::errc() ? std::string(text.data(), end) : "?";
    if (result.find('.') != std::string::npos) {
        result.erase(result.find_last_not_of('0') + 1);
        result.erase(result.find_last_not_of('.') + 1);
    }
    return result == "-0" ? "0" : result;
}

std::string countText(std::uint64_t number, std::string_view what) {
    return groupedNumber(number) + " " + std::string(what) + (number == 1 ? "" : "s");
}

std::string encodedBytes(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size() * 16 / 13 + 2);
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char byte : bytes) {
        bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(byte)) << count;
        count += 8;
        if (count >= 13) {
            const std::uint32_t value = bits & 0x1fffU;
            result += BASE91[value % 91];
            result += BASE91[value / 91];
            bits >>= 13U;
            count -= 13;
        }
    }
    if (count > 0) {
        result += BASE91[bits % 91];
    }
    if (count > 6) {
        result += BASE91[bits / 91];
    }
    return result;
}

std::string policyHash(std::string_view hexadecimal) {
    std::string result;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char digit : hexadecimal) {
        bits = bits << 4U | digitValue(digit);
        count += 4;
        if (count >= 6) {
            count -= 6;
            result += BASE64[bits >> count & 0x3fU];
        }
    }
    if (count > 0) {
        result += BASE64[bits << (6 - count) & 0x3fU];
    }
    result.append((4 - result.size() % 4) % 4, '=');
    return result;
}

HtmlWriter& HtmlWriter::add(std::string_view piece) {
    if (good_) {
        buffer_ += piece;
        if (buffer_.size() >= PIECE_BYTES) {
            good_ = sink_(buffer_);
            buffer_.clear();
        }
    }
    return *this;
}

bool HtmlWriter::flush() {
    if (good_ && !buffer_.empty()) {
        good_ = sink_(buffer_);
        buffer_.clear();
    }
    return good_;
}
