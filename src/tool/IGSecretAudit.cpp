// Records of the audit system. There, a text of a user or a program is in hexadecimal digits when
// it has a blank or a quote, and each word of a command line is in a field of its own. Such a text
// is put together again and goes through the same rules, once.
#include <cstring>

#include "tool/IGSecret.h"
#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"

namespace {

constexpr std::size_t SHORTEST = 16;  // number of digits that are checked

unsigned digitOf(char c) {
    return static_cast<unsigned>(isIn(c, DIGIT) ? c - '0' : lowered(c) - 'a' + 10);
}

char byteAt(const SecretLine& line, std::size_t place) {
    return static_cast<char>(digitOf(line.at(place)) << 4 | digitOf(line.at(place + 1)));
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

// A text that was put together from a line, with the stretch of that line that each byte was made
// from. Records are not longer than ROOM bytes; of a longer text, each part is checked by itself.
class Decoded {
  public:
    explicit Decoded(SecretLine& line) : line_(line) {}

    /// Adds a byte that was made from a stretch. A control character separates words.
    void put(char c, std::size_t from, std::size_t to) {
        if (size_ == ROOM) {
            mark();
        }
        text_[size_] = isControl(c) ? ' ' : c;
        stretches_[size_] = {from, to};
        ++size_;
    }
    /// Adds the bytes of a stretch of digits, which is hidden as a whole or not at all.
    void putDigits(std::size_t from, std::size_t to) {
        for (std::size_t place = from; place + 1 < to; place += 2) {
            put(byteAt(line_, place), from, to);
        }
    }
    /// Hides the stretches of the line from which the secrets of the text were made, and begins a
    /// new text.
    /// @param typed the text was typed at a terminal, where a password has no name in front
    void mark(bool typed = false) {
        if (size_ == 0) {
            return;
        }
        std::memset(hidden_, 0, size_);
        secret_state state;
        state.decoded = true;
        const secret_part part{{text_, size_}, hidden_, false, true};
        markSecrets(part, &state);
        if (typed) {
            markTyped(part, &state);
        }
        hideStretches();
        size_ = 0;
    }

  private:
    static void markTyped(const secret_part& part, secret_state* state) {
        SecretLine typed(part, state);
        for (std::size_t from = 0; from < typed.size();) {
            const std::size_t end = typed.until(from, BLANK);
            if (typed.looksSecret(from, end)) {
                typed.hide(from, end, secret_rest::NOTHING);
            }
            from = typed.skip(end, BLANK);
        }
    }
    void hideStretches() {
        std::size_t last = NOWHERE;  // where the last hidden stretch begins
        for (std::size_t place = 0; place < size_; ++place) {
            const Stretch& stretch = stretches_[place];
            if (hidden_[place] != 0 && stretch.from != last && stretch.from < stretch.to) {
                line_.hide(stretch.from, stretch.to, secret_rest::WORD);
                last = stretch.from;
            }
        }
    }

    static constexpr std::size_t ROOM = 4096;
    struct Stretch {
        std::size_t from;
        std::size_t to;
    };
    SecretLine& line_;
    std::size_t size_ = 0;
    char text_[ROOM];
    unsigned char hidden_[ROOM];
    Stretch stretches_[ROOM];
};

// Whether digits are those of a text: at least three of four bytes are printable ASCII.
bool isText(const SecretLine& line, std::size_t from, std::size_t to) {
    std::size_t printed = 0;
    for (std::size_t place = from; place < to; place += 2) {
        const char c = byteAt(line, place);
        printed += !isControl(c) && static_cast<unsigned char>(c) < 0x80 ? 1U : 0U;
    }
    return (to - from) % 2 == 0 && printed * 8 >= (to - from) * 3;
}

// Hides a stretch of digits when their text has a secret.
void markText(SecretLine& line, std::size_t from, std::size_t to, bool typed) {
    Decoded decoded(line);
    decoded.putDigits(from, to);
    decoded.mark(typed);
}

// proctitle=6D7973716C..., cmd=..., data=...: any field.
void markDigits(SecretLine& line) {
    const bool terminal = line.find("TTY") != NOWHERE;
    for (std::size_t sign = line.untilByte(0, '='); !line.hasEnd(sign);) {
        const std::size_t from = sign + 1;
        const std::size_t end = line.skip(from, ANY_HEXADECIMAL);
        if (end - from >= SHORTEST && !line.in(end, NAME | BASE64) && isText(line, from, end)) {
            markText(line, from, end, terminal && line.endsWith(0, sign, " data"));
        }
        sign = line.untilByte(end, '=');
    }
}

// A field of a command line: a0="x", a1=78, a2[1]="x" for a part of a very long word.
struct Argument {
    std::size_t value = NOWHERE;
    bool goes_on = false;  // it is not the first part of its word
};

Argument argumentAt(const SecretLine& line, std::size_t place) {
    const std::size_t number = line.skip(place + 1, DIGIT);
    if (number == place + 1 || (place > 0 && !line.in(place - 1, BLANK))) {
        return {};
    }
    if (line.at(number) != '[') {
        return line.at(number) == '=' ? Argument{number + 1, false} : Argument{};
    }
    const std::size_t part = line.skip(number + 1, DIGIT);
    return line.saysExactly(part, "]=") ? Argument{part + 2, !line.saysExactly(number, "[0]")}
                                        : Argument{};
}

bool hasBlank(const SecretLine& line, std::size_t from, std::size_t to, bool digits) {
    for (std::size_t place = from; place + 1 < to; place += digits ? 2 : 1) {
        if (isIn(digits ? byteAt(line, place) : line.at(place), BLANK)) {
            return true;
        }
    }
    return false;
}

// Adds the word of a field, in quotes when it has blanks, as on a command line.
// @return where the field ends
std::size_t putArgument(const SecretLine& line, std::size_t value, Decoded* decoded) {
    const bool digits = line.at(value) != '"';
    const std::size_t from = digits ? value : value + 1;
    const std::size_t end = digits ? line.skip(from, ANY_HEXADECIMAL) : line.untilByte(from, '"');
    const bool quoted = hasBlank(line, from, end, digits);
    if (quoted) {
        decoded->put('"', 0, 0);
    }
    if (digits) {
        decoded->putDigits(from, end);
    } else {
        for (std::size_t byte = from; byte < end; ++byte) {
            decoded->put(line.at(byte), byte, byte + 1);
        }
    }
    if (quoted) {
        decoded->put('"', 0, 0);
    }
    return end;
}

// The words of a command line, one a field: a0="mysql" a1="-p" a2="x".
void markArguments(SecretLine& line) {
    Decoded decoded(line);
    for (std::size_t place = line.untilByte(0, 'a'); !line.hasEnd(place);) {
        const Argument argument = argumentAt(line, place);
        if (argument.value == NOWHERE) {
            place = line.untilByte(place + 1, 'a');
            continue;
        }
        if (!argument.goes_on) {
            decoded.put(' ', 0, 0);
        }
        place = line.untilByte(putArgument(line, argument.value, &decoded), 'a');
    }
    decoded.mark();
}

}  // namespace

void markAudit(SecretLine& line) {
    if (line.state().decoded || line.hasEnd(line.untilByte(0, '='))) {
        return;
    }
    markDigits(line);
    if (line.find("argc=") != NOWHERE || line.find("EXECVE") != NOWHERE) {
        markArguments(line);
    }
}
