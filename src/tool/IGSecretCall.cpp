// Calls of functions with a password among their arguments, in stack traces and sources:
// mysqli_connect('host', 'me', 'x'). And rows that are inserted into a database.
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretLoginRules.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretWord.h"

namespace {

// Whether a byte may be in the name of a function and its class: PDO->__construct, A\B::c.
bool isCallee(char c) {
    return isIn(c, NAME) || c == '>' || c == ':' || c == '\\' || c == '$';
}

class CallScan {
  public:
    explicit CallScan(SecretLine& line) : line_(line) {}
    void run() {
        std::size_t seen = 0;
        for (std::size_t sign = line_.untilByte(0, '('); !line_.hasEnd(sign);) {
            const secret_call* call = calledAt(calleeBefore(sign, seen), sign);
            seen = call == nullptr ? sign + 1 : arguments(sign + 1, *call);
            sign = line_.untilByte(seen, '(');
        }
    }

  private:
    // Where the name of a function begins that ends at a sign.
    [[nodiscard]] std::size_t calleeBefore(std::size_t sign, std::size_t seen) const {
        while (sign > seen && isCallee(line_.at(sign - 1))) {
            --sign;
        }
        return sign;
    }
    [[nodiscard]] const secret_call* calledAt(std::size_t from, std::size_t to) const {
        const secret_call* const found =
            std::find_if(std::begin(SECRET_CALLS), std::end(SECRET_CALLS),
                         [&](const secret_call& one) { return isCalled(one, from, to); });
        return found == std::end(SECRET_CALLS) ? nullptr : found;
    }
    [[nodiscard]] bool isCalled(const secret_call& call, std::size_t from, std::size_t to) const {
        const std::size_t size = call.word.size();
        if (!call.inside) {
            const std::size_t begin = to - size;
            return line_.endsWith(from, to, call.word) &&
                   (begin == from || !line_.in(begin - 1, LETTER));
        }
        while (to >= from + size && line_.in(to - 1, NAME) && line_.at(to - 1) != '.') {
            if (line_.says(to - size, call.word)) {
                return true;
            }
            --to;
        }
        return false;
    }
    // Hides the texts in quotes, from the argument that is the password.
    // @return the place where to continue
    std::size_t arguments(std::size_t place, const secret_call& call) {
        int quoted = 0;
        std::size_t seen = place;
        while (!line_.hasEnd(place) && line_.at(place) != ')') {
            if (line_.in(place, QUOTE)) {
                place = seen = text(place, ++quoted >= call.quoted);
            } else if (line_.at(place) == '(') {
                const std::size_t end = behindObject(place);
                if (end == 0) {
                    return calleeBefore(place, seen);  // another call
                }
                place = end;
            } else {
                ++place;
            }
        }
        return place;
    }
    // Hides the text that a quote opens, when it is a secret.
    // @return the place behind it
    std::size_t text(std::size_t quote, bool secret) {
        const std::size_t end = line_.closing(quote + 1, line_.text().substr(quote, 1));
        return secret && !line_.isPlain(quote + 1, end) ? line_.hideQuoted(quote)
                                                        : line_.behindQuoted(quote);
    }
    // The place behind Object(mysqli), an argument that is no text; 0 for any other argument.
    [[nodiscard]] std::size_t behindObject(std::size_t place) const {
        const bool object = line_.endsWith(0, place, "object") || line_.endsWith(0, place, "array");
        std::size_t end = place + 1;
        while (isCallee(line_.at(end)) || line_.at(end) == ' ') {
            ++end;
        }
        return object && line_.at(end) == ')' ? end + 1 : 0;
    }

    SecretLine& line_;
};

// INSERT INTO users (name, password) VALUES ('me', 'x'), ('you', 'y'): the values of columns that
// are named like secrets.
class InsertScan {
  public:
    explicit InsertScan(SecretLine& line) : line_(line) {}
    void run() {
        for (std::size_t at = line_.untilByte(0, '('); !line_.hasEnd(at);) {
            const std::size_t end = readColumns(at + 1);
            const std::size_t values = line_.skip(line_.skipByte(end, ')'), BLANK);
            const bool follows =
                end > at + 1 && line_.at(end) == ')' && line_.says(values, "value");
            std::size_t next = end;
            if (follows && columns_ != 0) {
                next = hideRows(line_.skip(line_.skip(values, LETTER), BLANK));
            }
            at = line_.untilByte(next, '(');
        }
    }

  private:
    static constexpr unsigned MOST = 64;  // columns
    // Reads the names of columns, and sets the bits of those of secrets in columns_.
    // @return the place behind the last one
    std::size_t readColumns(std::size_t place) {
        columns_ = 0;
        for (unsigned column = 0; column < MOST; ++column) {
            const std::size_t from = skipMarks(line_.skip(place, BLANK));
            const std::size_t to = line_.skip(from, NAME);
            if (to == from) {
                return place;
            }
            const secret_name name = readSecretName(line_, from, to);
            const bool secret = name.isSecret() && !isHarmlessName(line_, name);
            columns_ |= std::uint64_t{secret ? 1U : 0U} << column;
            place = line_.skip(skipMarks(to), BLANK);
            if (line_.at(place) != ',') {
                return place;
            }
            ++place;
        }
        return place;
    }
    [[nodiscard]] std::size_t skipMarks(std::size_t place) const {
        return line_.skipByte(line_.skipOne(place, QUOTE), '`');
    }
    // @return the place behind the rows
    std::size_t hideRows(std::size_t place) {
        while (line_.at(place) == '(') {
            place = line_.skip(hideRow(place + 1), BLANK);
            place = line_.skip(line_.skipByte(place, ','), BLANK);
        }
        return place;
    }
    std::size_t hideRow(std::size_t place) {
        int depth = 0;
        for (unsigned column = 0; !line_.hasEnd(place);) {
            const char c = line_.at(place);
            if (isIn(c, QUOTE)) {
                const bool secret = column < MOST && (columns_ >> column & 1) != 0;
                place = secret ? line_.hideQuoted(place) : line_.behindQuoted(place);
                continue;
            }
            if (c == ')' && depth-- == 0) {
                return place + 1;
            }
            depth += c == '(' ? 1 : 0;
            column += c == ',' && depth == 0 ? 1 : 0;
            ++place;
        }
        return place;
    }

    SecretLine& line_;
    std::uint64_t columns_ = 0;
};

}  // namespace

void markCalls(SecretLine& line) {
    if (line.hasEnd(line.until(0, QUOTE))) {
        return;
    }
    CallScan(line).run();
    if (line.find("VALUE") != NOWHERE || line.find("value") != NOWHERE) {
        InsertScan(line).run();
    }
}
