// Sets of bytes. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETBYTE_H
#define QUENDIL_TOOL_IGSECRETBYTE_H

#include <array>
#include <cstdint>
#include <string_view>

/// Sets of bytes. Each is a bit, and sets can be combined with "|".
enum byte_set : std::uint16_t {
    BLANK = 1,               ///< blank, tab
    DIGIT = 2,               ///< 0 to 9
    LETTER = 4,              ///< A to Z, a to z
    NAME = 8,                ///< bytes of names: letters of any language, digits, "_", ".", "-"
    QUOTE = 16,              ///< " and '
    BASE64 = 32,             ///< letters, digits, "+", "/", "="
    VALUE_END = 64,          ///< bytes that end a value in the middle of a line
    ADDRESS_END = 128,       ///< bytes that end an address
    KEY = 256,               ///< letters, digits, "_", "-"
    HASH = 512,              ///< bytes of hashes of passwords
    SEPARATOR = 1024,        ///< : and =
    HEXADECIMAL = 2048,      ///< 0 to 9, A to F
    ANY_HEXADECIMAL = 4096,  ///< 0 to 9, A to F, a to f
};

/// The sets of each byte.
constexpr std::array<std::uint16_t, 256> makeByteSets() {
    std::array<std::uint16_t, 256> sets{};
    const auto add = [&sets](std::string_view bytes, unsigned set) {
        for (const char c : bytes) {
            auto& of = sets[static_cast<unsigned char>(c)];
            of = static_cast<std::uint16_t>(of | set);
        }
    };
    add("0123456789", DIGIT | NAME | BASE64 | KEY | HASH | HEXADECIMAL);
    add("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz",
        LETTER | NAME | BASE64 | KEY | HASH);
    add("ABCDEF", HEXADECIMAL);
    add("0123456789ABCDEFabcdef", ANY_HEXADECIMAL);
    add("_.-", NAME);
    for (std::size_t byte = 0x80; byte < sets.size(); ++byte) {
        sets[byte] = NAME;  // letters of other languages
    }
    add("_-", KEY);
    add(" \t", BLANK | VALUE_END | ADDRESS_END);
    add("\"'", QUOTE | VALUE_END | ADDRESS_END);
    add("&<", VALUE_END);
    add("<>", ADDRESS_END);
    add("+/=", BASE64);
    add("./$=,+", HASH);
    add(":=", SEPARATOR);
    return sets;
}
inline constexpr std::array<std::uint16_t, 256> BYTE_SETS = makeByteSets();

/// Whether a byte is in one of the sets.
constexpr bool isIn(char c, unsigned sets) {
    return (BYTE_SETS[static_cast<unsigned char>(c)] & sets) != 0;
}
/// An ASCII letter in lower case; any other byte as it is.
constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

#endif
