// Names of secrets: whether a word of a line is one. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETWORD_H
#define QUENDIL_TOOL_IGSECRETWORD_H

#include "tool/IGSecretLine.h"

/// A stretch of a line that is a word of SECRET_WORDS; `from` is NOWHERE when there is none.
struct secret_word {
    std::size_t from = NOWHERE;
    std::size_t to = 0;
};

/// A word of a line, of letters, digits, "_", "." and "-", and why it names a secret.
struct secret_name {
    std::size_t from;
    std::size_t to;
    secret_word word;       ///< the last secret word in it
    bool is_short = false;  ///< one of its parts is in SECRET_SHORTS, or is "auth" behind "_"
    bool is_pin = false;    ///< one of these parts is "pin"
    std::size_t short_from = NOWHERE;  ///< where the short word at its end begins
    std::size_t short_to = NOWHERE;    ///< where the last short word ends
    bool ends_in_pass = false;  ///< it ends with a word of SECRET_ENDINGS, or has "Pwd" inside
    bool signs = false;         ///< it is a signature in an address
    bool is_second = false;     ///< it is the second word of SECRET_PAIRS
    [[nodiscard]] bool isSecret() const {
        return word.from != NOWHERE || is_short || ends_in_pass || signs || is_second;
    }
};

/// The last word of SECRET_WORDS in a stretch.
secret_word lastSecretWord(const SecretLine& line, std::size_t from, std::size_t to);

/// Reads a stretch as a name; secret_name::isSecret() is whether it names a secret.
secret_name readSecretName(const SecretLine& line, std::size_t from, std::size_t to);

/// Whether a parenthesis is in front of a name: (pw x).
inline bool isInParentheses(const SecretLine& line, const secret_name& name) {
    return name.from > 0 && line.at(name.from - 1) == '(';
}

/// Whether a name looks like that of a secret and is not: password_file, public_key.
bool isHarmlessName(const SecretLine& line, const secret_name& name);

#endif
