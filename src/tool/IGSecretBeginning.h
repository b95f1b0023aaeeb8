// Filters that check whether a word of a table may begin at a place, by its first letters: the
// whole table is searched only there. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETBEGINNING_H
#define QUENDIL_TOOL_IGSECRETBEGINNING_H

#include <array>
#include <cstdint>
#include <string_view>

#include "tool/IGSecretLine.h"

/// The pairs of bytes with which the words of a table begin. At most places of a line there is none
/// of them.
class PairFilter {
  public:
    constexpr void add(char first, char second) {
        const unsigned pair = pairOf(first, second);
        bits_[pair / 64] |= std::uint64_t{1} << pair % 64;
    }
    constexpr void addInAnySize(char first, char second) {
        for (const char one : {first, raised(first)}) {
            add(one, second);
            add(one, raised(second));
        }
    }
    constexpr void addInAnySize(std::string_view word) { addInAnySize(word[0], word[1]); }
    [[nodiscard]] constexpr bool has(char first, char second) const {
        const unsigned pair = pairOf(first, second);
        return (bits_[pair / 64] >> pair % 64 & 1) != 0;
    }

  private:
    static constexpr unsigned pairOf(char first, char second) {
        return static_cast<unsigned>(static_cast<unsigned char>(first)) << 8 |
               static_cast<unsigned char>(second);
    }
    static constexpr char raised(char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    std::array<std::uint64_t, 1024> bits_{};
};

/// The first three bytes of the words of a table: the pairs of the first two and of the last two. A
/// word of two bytes may be followed by any byte.
class BeginningFilter {
  public:
    constexpr void add(std::string_view word) {
        first_.add(word[0], word[1]);
        for (int byte = 0; byte < 256; ++byte) {
            if (word.size() == 2 || word[2] == static_cast<char>(byte)) {
                second_.add(word[1], static_cast<char>(byte));
            }
        }
    }
    constexpr void addInAnySize(std::string_view word) {
        first_.addInAnySize(word);
        if (word.size() > 2) {
            second_.addInAnySize(word[1], word[2]);
            return;
        }
        for (int byte = 0; byte < 256; ++byte) {
            second_.addInAnySize(word[1], static_cast<char>(byte));
        }
    }
    [[nodiscard]] constexpr bool has(char front, char middle, char back) const {
        return first_.has(front, middle) && second_.has(middle, back);
    }
    /// Whether one of the words may begin at a place.
    [[nodiscard]] bool has(const SecretLine& line, std::size_t place) const {
        return has(line.at(place), line.at(place + 1), line.at(place + 2));
    }

  private:
    PairFilter first_;
    PairFilter second_;
};

/// Makes the filter for the words of a table, in upper and lower case. It may accept other words
/// too: the caller checks the whole word.
template <typename Filter, std::size_t N>
constexpr Filter filterOf(const std::string_view (&words)[N]) {
    Filter filter;
    for (const std::string_view word : words) {
        filter.addInAnySize(word);
    }
    return filter;
}
/// The same for a table of rows, with the member that has the word.
template <typename Filter, typename Row, std::size_t N>
constexpr Filter filterOf(const Row (&rows)[N], std::string_view Row::*word) {
    Filter filter;
    for (const Row& row : rows) {
        filter.addInAnySize(row.*word);
    }
    return filter;
}

#endif
