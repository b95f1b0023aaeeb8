// Properties of values: whether one is no secret, or looks like one.
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretSentenceRules.h"
#include "tool/IGSecretValueRules.h"

namespace {

// Whether a byte may follow the name of a top directory in a path.
bool endsDirectory(char c) {
    return c == '/' || c == ';' || c == ',' || c == ')' || c == '\n' || isIn(c, BLANK | QUOTE);
}

// ${NAME}, ${NAME:-x} and ${NAME}x are variables unless x looks like a secret.
bool isBraced(const SecretLine& line, std::size_t from, std::size_t to) {
    const std::size_t name = from + 2;
    std::size_t sign = name;
    while (sign < to && (line.in(sign, LETTER | DIGIT) || line.at(sign) == '_')) {
        ++sign;
    }
    const std::size_t begin = line.at(sign) == ':' ? sign + 2 : sign + 1;
    std::size_t end = sign;
    while (end < to && line.at(end) != '}') {
        ++end;
    }
    const bool filled = sign > name && begin < end && line.looksSecret(begin, end);
    return !filled && (end + 1 >= to || !line.looksSecret(end + 1, to));
}

// $1, $NAME, ${NAME}, $(program): the shell puts a value there when the script runs. Any other word
// that begins with "$" is a password.
bool isExpansion(const SecretLine& line, std::size_t from, std::size_t to) {
    if (line.at(from) != '$') {
        return false;
    }
    if (line.at(from + 1) == '{') {
        return isBraced(line, from, to);
    }
    if (line.at(from + 1) == '(') {
        return true;
    }
    std::size_t end = from + 1;
    while ((line.at(end) >= 'A' && line.at(end) <= 'Z') || line.at(end) == '_') {
        ++end;
    }
    if ((end > from + 1 && end == to) || (line.in(from + 1, DIGIT) && to == from + 2)) {
        return true;
    }
    std::size_t small = from + 1;  // key=$val: few small letters
    while ((line.at(small) >= 'a' && line.at(small) <= 'z') || line.at(small) == '_') {
        ++small;
    }
    return small > from + 1 && small == to;
}

// Whether a value is the name of a file with a key or certificate: client.key, ${dir}/ca.pem.
bool isKeyFile(const SecretLine& line, std::size_t from, std::size_t to) {
    const std::string_view value = line.text().substr(from, to - from);
    return value.find_first_of(" \t") == std::string_view::npos &&
           std::any_of(std::begin(KEY_FILES), std::end(KEY_FILES),
                       [&](std::string_view ending) { return line.endsWith(from, to, ending); });
}

// Whether a value is the address of a page: an address with a secret has digits.
bool isPage(const SecretLine& line, std::size_t from, std::size_t to) {
    if (!line.says(from, "http://") && !line.says(from, "https://") && !line.says(from, "//")) {
        return false;
    }
    const std::string_view value = line.text().substr(from, to - from);
    return value.find_first_of("0123456789@? \t\"'") == std::string_view::npos;
}

// xxxxx, (hidden), <path>, (252:10): a placeholder for a value, or only numbers.
bool isPlaceholder(const SecretLine& line, std::size_t from, std::size_t to) {
    if (line.isCrossedOut(from, to)) {
        return true;
    }
    const char first = line.at(from);
    const char last = first == '(' ? ')' : first == '<' ? '>' : '\0';
    std::size_t place = from + 1;
    while (line.in(place, LETTER | DIGIT) || line.at(place) == ':' || line.at(place) == '-') {
        ++place;
    }
    return last != '\0' && line.at(place) == last && place + 1 == to && place > from + 1;
}

// "0 172032 crypt": two numbers and a word, as behind the name of a device.
bool isDeviceRow(const SecretLine& line, std::size_t from) {
    const std::size_t second = line.skip(line.skip(from, DIGIT), BLANK);
    const std::size_t word = line.skip(line.skip(second, DIGIT), BLANK);
    return line.in(from, DIGIT) && line.in(second, DIGIT) && line.in(second - 1, BLANK) &&
           line.in(word, LETTER) && line.in(word - 1, BLANK);
}

// Whether a byte may be in a value that looks like a secret. Values with other bytes are paths,
// hosts, versions, times, lists.
bool isSecretByte(char c) {
    return isIn(c, LETTER | DIGIT) ||
           std::string_view("+-_!#%^~?@$*").find(c) != std::string_view::npos;
}

// Whether a value is a variable of a program: $name1. A name that begins with a digit is none: $3x.
bool isReference(const SecretLine& line, std::size_t from, std::size_t to) {
    return line.at(from) == '$' && !line.in(from + 1, DIGIT) && line.skip(from + 1, KEY) == to;
}

// How a stretch mixes its letters and digits.
struct Mixture {
    bool lower = false;
    bool upper = false;
    bool digit = false;
    bool sign = false;  // isOddSign() of a byte inside
    int changes = 0;    // from letters to digits and back
};

// Whether a sign is one that only passwords have inside.
bool isOddSign(char c) {
    return c == '!' || c == '$' || c == '^';
}

Mixture mixtureOf(const SecretLine& line, std::size_t from, std::size_t to) {
    Mixture found;
    bool was_digit = line.in(line.at(from) == '$' ? from + 1 : from, DIGIT);
    for (std::size_t place = from; place < to; ++place) {
        if (!line.in(place, LETTER | DIGIT)) {
            found.sign =
                found.sign || (place > from && place + 1 < to && isOddSign(line.at(place)));
            continue;
        }
        const bool is_digit = line.in(place, DIGIT);
        found.digit = found.digit || is_digit;
        found.upper = found.upper || (line.at(place) >= 'A' && line.at(place) <= 'Z');
        found.lower = found.lower || (line.at(place) >= 'a' && line.at(place) <= 'z');
        found.changes += is_digit != was_digit ? 1 : 0;
        was_digit = is_digit;
    }
    return found;
}

// \S+, [^ ]*, (?:a|b), <HOST>: an expression of a filter of logs.
bool isExpression(const SecretLine& line, std::size_t from) {
    constexpr std::string_view BEGINNINGS[] = {".*", ".+",  "\\S",    "\\w", "\\d",   "[^",
                                               "(?", "(.*", "<HOST>", "<F-", "<ADDR>"};
    return std::any_of(std::begin(BEGINNINGS), std::end(BEGINNINGS),
                       [&](std::string_view one) { return line.saysExactly(from, one); });
}

}  // namespace

bool SecretLine::isCrossedOut(std::size_t from, std::size_t to) const {
    const char first = at(from);
    return to >= from + 3 && (first == 'x' || first == 'X' || first == '*') &&
           text_.substr(from, to - from).find_first_not_of(first) == NOWHERE;
}

bool SecretLine::isPath(std::size_t from) const {
    return at(from) == '/' && std::any_of(std::begin(TOP_DIRECTORIES), std::end(TOP_DIRECTORIES),
                                          [&](std::string_view directory) {
                                              return saysExactly(from, directory) &&
                                                     endsDirectory(at(from + directory.size()));
                                          });
}

bool SecretLine::isPlain(std::size_t from, std::size_t to) const {
    return (to == from + 1 && in(from, DIGIT)) || isOneOf(from, to, PLAIN_VALUES) ||
           isExpansion(*this, from, to) || isExpression(*this, from) ||
           isPlaceholder(*this, from, to) || isDeviceRow(*this, from) ||
           (isPath(from) && text_.substr(from, to - from).find_first_of(" \t") == NOWHERE) ||
           isPage(*this, from, to) || isKeyFile(*this, from, to) ||
           (says(from, "pam_") && skip(from, LETTER | NAME) == to);
}

bool SecretLine::isArchitecture(std::size_t from) const {
    std::size_t end = skip(from, LETTER | DIGIT);
    end = at(end) == '_' ? skip(end + 1, DIGIT) : end;
    const bool stop = at(end) == '.' && !in(end + 1, NAME | BASE64);
    return isOneOf(from, end, PACKAGE_ARCHITECTURES) && (stop || !in(end, NAME | BASE64));
}

bool SecretLine::isVersion(std::size_t from) const {
    const std::size_t first = skip(from, DIGIT);
    std::size_t end = at(first) == ':' ? skip(first + 1, DIGIT) : first;
    if (first == from || at(end) != '.' || !in(end + 1, DIGIT)) {
        return false;
    }
    while (in(end, DIGIT) || (at(end) >= 'a' && at(end) <= 'z') ||
           std::string_view(".:+~-").find(at(end)) != std::string_view::npos) {
        ++end;
    }
    return hasEnd(end) || in(end, BLANK);
}

bool SecretLine::isSentence(std::size_t from, std::size_t fewest) const {
    std::size_t words = 0;
    bool joined = false;
    char last = '\0';
    while (from < size()) {
        const std::size_t end = until(from, BLANK);
        std::size_t place = from;
        while (place < end && std::string_view("('\"`").find(at(place)) != std::string_view::npos) {
            ++place;
        }
        const std::size_t letters = place;
        while (in(place, LETTER) || at(place) == '-' || at(place) == '_' || at(place) == '\'') {
            ++place;
        }
        joined = joined || isOneOf(letters, place, SENTENCE_WORDS);
        while (place < end &&
               std::string_view(".,;:!?)\"'`").find(at(place)) != std::string_view::npos) {
            ++place;
        }
        if (place < end) {
            return false;
        }
        last = at(end - 1);
        ++words;
        from = skip(end, BLANK);
    }
    const bool ends = fewest == 2 && (last == '.' || last == ':');
    return words >= fewest && ((joined && words > 2) || ends);
}

bool SecretLine::looksSecret(std::size_t from, std::size_t to) const {
    constexpr std::size_t SHORTEST = 6;
    if (to < from + SHORTEST || (!in(from, LETTER | DIGIT) && !isOddSign(at(from))) ||
        saysExactly(from, "0x") || isReference(*this, from, to)) {
        return false;
    }
    for (std::size_t place = from; place < to; ++place) {
        if (!isSecretByte(at(place))) {
            return false;
        }
    }
    const Mixture found = mixtureOf(*this, from, to);
    const bool letters = found.lower || found.upper;
    return found.digit && letters &&
           (found.changes > 1 || (found.upper && found.lower) || found.sign);
}

bool SecretLine::looksOrdinary(std::size_t from, std::size_t to) const {
    if (skip(from, DIGIT) >= to) {
        return true;
    }
    std::size_t capitals = 0;
    std::size_t letters = 0;
    for (std::size_t place = from; place < to; ++place) {
        const char c = at(place);
        if (!isIn(c, LETTER) && static_cast<unsigned char>(c) < 0x80 && c != '-' && c != '\'') {
            return false;
        }
        letters += isIn(c, LETTER) ? 1U : 0U;
        capitals += c >= 'A' && c <= 'Z' ? 1U : 0U;
    }
    const bool first = at(from) >= 'A' && at(from) <= 'Z';
    return capitals == 0 || capitals == letters || (capitals == 1 && first);
}
