// One line: its text, and which of its bytes are hidden. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETLINE_H
#define QUENDIL_TOOL_IGSECRETLINE_H

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "tool/IGSecretByte.h"
#include "tool/IGSecretState.h"

/// No place in a line.
inline constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

/// What may follow the last word of a sentence.
inline constexpr std::string_view SENTENCE_STOPS = ".,;:!?)\r";

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
    /// The end of a stretch without any of `bytes` at its end.
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
    /// Whether these words, given in lower case, begin at a place, in upper or lower case.
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
    /// Whether a stretch ends with these words, given in lower case, in upper or lower case.
    [[nodiscard]] bool endsWith(std::size_t from, std::size_t to, std::string_view words) const {
        return to - from >= words.size() && says(to - words.size(), words);
    }
    /// Whether a stretch is this word, given in lower case, in upper or lower case.
    [[nodiscard]] bool is(std::size_t from, std::size_t to, std::string_view word) const {
        return to - from == word.size() && says(from, word);
    }
    /// Whether a stretch is exactly this word.
    [[nodiscard]] bool isExactly(std::size_t from, std::size_t to, std::string_view word) const {
        return to - from == word.size() && saysExactly(from, word);
    }
    /// Whether a stretch is one of the words of a table, in upper or lower case.
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

    /// Hides a stretch. If it ends where a part ends that is not the last of its line, `rest` is
    /// hidden at the start of the next part.
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

    /// Hides a word without any of `bytes` at its end. A word that may continue in the next part of
    /// the line is hidden as a whole.
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

#endif
