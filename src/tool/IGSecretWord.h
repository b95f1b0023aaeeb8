// Names of secrets: whether a word of a line is one. Shared by the units of the engine, and by
// nothing else.
#ifndef QUENDIL_TOOL_IGSECRETWORD_H
#define QUENDIL_TOOL_IGSECRETWORD_H

#include "tool/IGSecretLine.h"

/// A stretch of a line that is a secret word; `from` is NOWHERE when there is none.
struct secret_word {
    std::size_t from = NOWHERE;
    std::size_t to = 0;
};

/// A word of a line as far as letters, digits, "_", "." and "-" go, and why it names a secret.
struct secret_name {
    std::size_t from;
    std::size_t to;
    secret_word word;                  ///< the last secret word in it
    bool is_short = false;             ///< one of its parts is a short word
    bool is_pin = false;               ///< and that one is "pin"
    std::size_t short_from = NOWHERE;  ///< where a short word begins that ends it
    std::size_t short_to = NOWHERE;    ///< where the last short word ends
    bool ends_in_pass = false;         ///< it ends with "pass" and digits, and is more than that
    bool signs = false;                ///< a signature in an address
    bool is_second = false;            ///< the second word of a name
    [[nodiscard]] bool isSecret() const {
        return word.from != NOWHERE || is_short || ends_in_pass || signs || is_second;
    }
};

/// The last secret word of a stretch.
secret_word lastSecretWord(const SecretLine& line, std::size_t from, std::size_t to);

/// What a word of a line says as a name.
secret_name readSecretName(const SecretLine& line, std::size_t from, std::size_t to);

/// Whether a parenthesis is in front of a name: (pw x).
inline bool isInParentheses(const SecretLine& line, const secret_name& name) {
    return name.from > 0 && line.at(name.from - 1) == '(';
}

/// Whether a name is none of a secret although it is named like one.
bool isHarmlessName(const SecretLine& line, const secret_name& name);

#endif
