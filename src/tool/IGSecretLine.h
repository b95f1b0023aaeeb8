// One line: its text, and which of its bytes are hidden. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETLINE_H
#define QUENDIL_TOOL_IGSECRETLINE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "tool/IGSecret.h"

/// No place in a line.
inline constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

/// What may follow the last word of a sentence.
inline constexpr std::string_view SENTENCE_STOPS = ".,;:!?)\r";

/// Sets of bytes.
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
constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// A line, or a part of a very long one. A place is an offset in bytes. Any place can be read:
/// behind the end there is a line feed, which no line has inside. No function fails.
class SecretLine {
  public:
    SecretLine(const secret_part& part, secret_state* state)
        : text_(part.text),
          hidden_(part.hidden),
          starts_(part.starts),
          ends_(part.ends),
          state_(state) {}

    [[nodiscard]] std::size_t size() const { return text_.size(); }
    [[nodiscard]] std::string_view text() const { return text_; }
    [[nodiscard]] bool starts() const { return starts_; }
    [[nodiscard]] bool ends() const { return ends_; }
    [[nodiscard]] secret_state& state() const { return *state_; }
    [[nodiscard]] char at(std::size_t place) const {
        return place < text_.size() ? text_[place] : '\n';
    }
    [[nodiscard]] bool in(std::size_t place, unsigned sets) const { return isIn(at(place), sets); }
    [[nodiscard]] bool hasEnd(std::size_t place) const { return place >= text_.size(); }

    /// The first place at or behind `from` whose byte is not in the sets.
    [[nodiscard]] std::size_t skip(std::size_t from, unsigned sets) const {
        while (in(from, sets)) {
            ++from;
        }
        return from;
    }
    /// The place behind a byte of the sets; the same place when the byte is in none of them.
    [[nodiscard]] std::size_t skipOne(std::size_t place, unsigned sets) const {
        return in(place, sets) ? place + 1 : place;
    }
    [[nodiscard]] std::size_t skipByte(std::size_t place, char c) const {
        return at(place) == c ? place + 1 : place;
    }
    /// The first place at or behind `from` that has none of the bytes.
    [[nodiscard]] std::size_t skipBytes(std::size_t from, std::string_view bytes) const {
        while (bytes.find(at(from)) != NOWHERE) {
            ++from;
        }
        return from;
    }
    /// The first place at or behind `from` whose byte is in the sets, or the end.
    [[nodiscard]] std::size_t until(std::size_t from, unsigned sets) const {
        while (from < text_.size() && !isIn(text_[from], sets)) {
            ++from;
        }
        return from;
    }
    /// The first place at or behind `from` whose byte is in the sets or one of `bytes`, or the end.
    [[nodiscard]] std::size_t untilOneOf(std::size_t from, unsigned sets,
                                         std::string_view bytes) const {
        while (!hasEnd(from) && !in(from, sets) && bytes.find(at(from)) == NOWHERE) {
            ++from;
        }
        return from;
    }
    /// The end of a stretch when such bytes at its end are left out.
    [[nodiscard]] std::size_t withoutEnd(std::size_t from, std::size_t to,
                                         std::string_view bytes) const {
        while (to > from && bytes.find(at(to - 1)) != NOWHERE) {
            --to;
        }
        return to;
    }
    /// The end of a word of a sentence, without the stop behind it.
    [[nodiscard]] std::size_t wordEnd(std::size_t from, std::size_t to) const {
        return withoutEnd(from, to, SENTENCE_STOPS);
    }
    /// Where the word in front of a place begins; NOWHERE when there is none, or for NOWHERE.
    [[nodiscard]] std::size_t wordBefore(std::size_t place) const;
    /// Whether a stretch has a byte of the sets.
    [[nodiscard]] bool has(std::size_t from, std::size_t to, unsigned sets) const {
        while (from < to && !in(from, sets)) {
            ++from;
        }
        return from < to;
    }
    /// The first place at or behind `from` that has the byte, or the end.
    [[nodiscard]] std::size_t untilByte(std::size_t from, char c) const {
        const void* found =
            from < size() ? std::memchr(text_.data() + from, c, size() - from) : nullptr;
        return found == nullptr
                   ? size()
                   : static_cast<std::size_t>(static_cast<const char*>(found) - text_.data());
    }
    /// The first place at or behind `from` where the words begin, or NOWHERE.
    [[nodiscard]] std::size_t find(std::string_view words, std::size_t from = 0) const {
        return text_.find(words, from);
    }
    /// Whether these words, given in small letters, begin at a place in letters of any size.
    [[nodiscard]] bool says(std::size_t place, std::string_view words) const {
        std::size_t i = 0;
        while (i < words.size() && lowered(at(place + i)) == words[i]) {
            ++i;
        }
        return i == words.size();
    }
    /// Whether exactly these bytes begin at a place.
    [[nodiscard]] bool saysExactly(std::size_t place, std::string_view words) const {
        std::size_t i = 0;
        while (i < words.size() && at(place + i) == words[i]) {
            ++i;
        }
        return i == words.size();
    }
    [[nodiscard]] bool endsWith(std::size_t from, std::size_t to, std::string_view words) const {
        return to - from >= words.size() && says(to - words.size(), words);
    }
    /// Whether a stretch is this word, given in small letters, in letters of any size.
    [[nodiscard]] bool is(std::size_t from, std::size_t to, std::string_view word) const {
        return to - from == word.size() && says(from, word);
    }
    /// Whether a stretch is exactly this word.
    [[nodiscard]] bool isExactly(std::size_t from, std::size_t to, std::string_view word) const {
        return to - from == word.size() && saysExactly(from, word);
    }
    /// Whether a stretch is one of the words of a table, in letters of any size.
    template <std::size_t N>
    [[nodiscard]] bool isOneOf(std::size_t from, std::size_t to,
                               const std::string_view (&words)[N]) const {
        return std::any_of(words, words + N,
                           [&](std::string_view word) { return is(from, to, word); });
    }

    /// Whether an absolute path begins at a place.
    [[nodiscard]] bool isPath(std::size_t from) const;
    /// Whether a value is no secret: yes, 1, a path, a variable of a script.
    [[nodiscard]] bool isPlain(std::size_t from, std::size_t to) const;
    /// Whether a stretch is three or more of "x", "X" or "*", which programs write in place of a
    /// secret.
    [[nodiscard]] bool isCrossedOut(std::size_t from, std::size_t to) const;
    /// Whether the name of a processor architecture begins at a place.
    [[nodiscard]] bool isArchitecture(std::size_t from) const;
    /// Whether the version of a package begins at a place.
    [[nodiscard]] bool isVersion(std::size_t from) const;
    /// Whether the rest of the line is a sentence of at least `fewest` words. A sentence of two
    /// words ends with "." or ":".
    [[nodiscard]] bool isSentence(std::size_t from, std::size_t fewest) const;
    /// Whether a word of 6 bytes or more mixes letters and digits as secrets do, unlike names,
    /// paths, hosts, numbers and versions.
    [[nodiscard]] bool looksSecret(std::size_t from, std::size_t to) const;

    /// Whether a place has a quote that opens a text that looks like a secret.
    [[nodiscard]] bool isSecretText(std::size_t quote) const {
        return in(quote, QUOTE) && looksSecret(quote + 1, until(quote + 1, QUOTE));
    }

    /// Whether a word is a number or looks like a word of a sentence: letters, of which no letter,
    /// the first alone or all are capitals.
    [[nodiscard]] bool looksOrdinary(std::size_t from, std::size_t to) const;

    /// Hides a stretch. When it ends with a part of its line, `rest` is hidden in the next part.
    void hide(std::size_t from, std::size_t to, secret_rest rest) {
        if (from >= to || from >= size()) {
            return;
        }
        std::memset(hidden_ + from, 1, to - from);
        if (to == size() && !ends_ && rest > state_->rest) {
            state_->rest = rest;
        }
    }
    void hideToEnd(std::size_t from) { hide(from, size(), secret_rest::LINE); }

    /// Hides a word without such bytes at its end. A word that may continue in the next part of the
    /// line is hidden whole.
    void hideWithoutEnd(std::size_t from, std::size_t to, std::string_view bytes) {
        const bool goes_on = hasEnd(to) && !ends();
        hide(from, goes_on ? to : withoutEnd(from, to, bytes), secret_rest::WORD);
    }

    /// The place of the quote that closes a text that begins at `from`: it has no backslash in
    /// front and no second quote behind it. The end of the line when there is none.
    /// @param quote one byte, or the quote with the backslashes in front of it
    [[nodiscard]] std::size_t closing(std::size_t from, std::string_view quote) const;
    /// The place behind the text that a quote opens, and behind the closing quote.
    [[nodiscard]] std::size_t behindQuoted(std::size_t quote) const {
        const std::size_t end = closing(quote + 1, text_.substr(quote, 1));
        return hasEnd(end) ? end : end + 1;
    }
    /// Hides the text that a quote opens.
    /// @return the place behind the closing quote, or the end of the line
    std::size_t hideQuoted(std::size_t quote);
    /// Hides a word, in quotes or not.
    /// @return the place behind it
    std::size_t hideWord(std::size_t from);

  private:
    std::string_view text_;
    unsigned char* hidden_;
    bool starts_;
    bool ends_;
    secret_state* state_;
};

/// The first place of one of some words in a line. The line is searched once, at the first call.
class FirstPlace {
  public:
    /// @param all the words, the same in each call
    /// @return the place, or NOWHERE
    [[nodiscard]] std::size_t of(const SecretLine& line,
                                 std::initializer_list<std::string_view> all) {
        if (!searched_) {
            searched_ = true;
            for (const std::string_view words : all) {
                place_ = std::min(place_, line.find(words));
            }
        }
        return place_;
    }

  private:
    bool searched_ = false;
    std::size_t place_ = NOWHERE;
};

/// The first two letters of the words of a table. At most places of a line none of them begins.
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

/// The first three letters of the words of a table.
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

/// The first letters of the words of a table. The filter may have other pairs too: the caller
/// checks the whole word.
template <typename Filter, std::size_t N>
constexpr Filter filterOf(const std::string_view (&words)[N]) {
    Filter filter;
    for (const std::string_view word : words) {
        filter.addInAnySize(word);
    }
    return filter;
}
/// The same for the words of its rows.
template <typename Filter, typename Row, std::size_t N>
constexpr Filter filterOf(const Row (&rows)[N], std::string_view Row::*word) {
    Filter filter;
    for (const Row& row : rows) {
        filter.addInAnySize(row.*word);
    }
    return filter;
}

// Each of these functions marks one kind of secret in a line as hidden. None fails.

/// Values of names of secrets: password = x, "token": "x", <secret>x</secret>, --password x.
void markNames(SecretLine& line);
/// Passwords in command lines, and in settings that look like them.
void markCommands(SecretLine& line);
/// Passwords that a command writes to a pipe, for a program that reads one.
void markPipes(SecretLine& line);
/// Passwords in settings of programs that are written like words of a command line.
void markSettings(SecretLine& line);
/// Names that were typed at a login and that no user has: people often type their password there.
void markLogins(SecretLine& line);
/// Passwords of addresses: user:x@host.
void markAddresses(SecretLine& line);
/// Fields of lines of known files.
void markFields(SecretLine& line);
/// Values of a known format: hashes of passwords, the keys of well known services.
void markShapes(SecretLine& line);
/// Passwords among the arguments of calls of functions.
void markCalls(SecretLine& line);
/// Passwords that a client sends to a server.
void markDialogs(SecretLine& line);
/// Secrets in remarks of administrators, and tokens of log services.
void markRemarks(SecretLine& line);
/// Secrets in command lines and other texts in the records of the audit system.
void markAudit(SecretLine& line);
/// Private keys that begin in the line.
/// @return whether the last one may continue in the next lines
bool markKeys(SecretLine& line);
/// Whether the line continues the private key of the lines before.
bool continuesKey(const SecretLine& line);
/// Where the last line of a key ends; text behind it is no part of the key.
/// @return the end of the line when no words are behind it, NOWHERE for any other line
std::size_t behindKeyEnd(const SecretLine& line);

#endif
