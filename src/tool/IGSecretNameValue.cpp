#include "tool/IGSecretNameValue.h"

#include "tool/IGSecretCommandRules.h"
#include "tool/IGSecretSentenceRules.h"
#include "tool/IGSecretUserPair.h"

namespace {

// Bytes that may follow a value without a blank between them.
constexpr std::string_view VALUE_SIGNS = ",;:)]}";

// Finds the end of one value, and hides it.
class ValueScan {
  public:
    ValueScan(SecretLine& line, const secret_name& name, bool at_start)
        : line_(line), name_(name), at_start_(at_start) {}
    std::size_t hide(std::size_t from);

  private:
    [[nodiscard]] std::size_t behindScheme(std::size_t from) const;
    [[nodiscard]] std::size_t behindPrefix(std::size_t from) const;
    [[nodiscard]] std::size_t behindCredential(std::size_t from) const;
    std::size_t hideList(std::size_t from);
    std::size_t hideAuthorization(std::size_t from);
    [[nodiscard]] std::size_t lineValueEnd(std::size_t from) const;
    [[nodiscard]] bool isInside(std::size_t place) const;
    [[nodiscard]] char listSign(std::size_t from) const;
    [[nodiscard]] bool isNumber(std::size_t from) const;
    [[nodiscard]] std::size_t wordValueEnd(std::size_t from) const;
    std::size_t hideBare(std::size_t from);
    [[nodiscard]] bool inParentheses() const { return isInParentheses(line_, name_); }

    SecretLine& line_;
    const secret_name& name_;
    bool at_start_;  // the name is the first word of its line
};

// Hides the value that begins at a place. The value of a name at the start of its line goes up to
// the end of the line.
std::size_t ValueScan::hide(std::size_t from) {
    secret_state& state = line_.state();
    if (line_.hasEnd(from) || line_.says(from, "# ")) {
        return from;
    }
    if (line_.ends() && line_.at(from) == '\\' && from + 1 == line_.size()) {
        state.next_word = true;
        return line_.size();
    }
    for (const std::string_view quotes : {R"(""")", "'''"}) {
        if (line_.ends() && from + 3 == line_.size() && line_.says(from, quotes)) {
            state.open_until = quotes;
            state.open_lines = 50;
            return line_.size();
        }
    }
    if (const std::size_t prefixed = behindPrefix(from); prefixed != from) {
        return hideQuotedValue(line_, prefixed, at_start_);
    }
    constexpr std::size_t DEEP = 7;  // backslashes before a quote in a text in a text in a text
    const std::size_t quote = line_.skipBytes(from, "\\");
    if (quote <= from + DEEP && line_.in(quote, QUOTE)) {
        return hideQuotedValue(line_, from, at_start_);
    }
    if ((line_.at(from) == '[' || line_.at(from) == '{') && !line_.saysExactly(from, "[^")) {
        return hideList(from);
    }
    if (name_.word.from != NOWHERE && line_.says(name_.word.from, "authorization")) {
        return hideAuthorization(from);
    }
    from = behindCredential(from);
    return hideBare(at_start_ ? from : behindScheme(from));
}

// The place behind the scheme of a login: _auth=basic me:x.
std::size_t ValueScan::behindScheme(std::size_t from) const {
    const std::size_t end = line_.skip(from, LETTER);
    const std::size_t next = line_.skip(end, BLANK);
    const std::size_t colon = line_.skip(next, NAME);
    const bool scheme = line_.isOneOf(from, end, LOGIN_SCHEMES) && next > end;
    const bool pair = line_.at(colon) == ':' && !line_.in(colon + 1, BLANK);
    return scheme && (pair || line_.looksSecret(next, line_.until(next, VALUE_END))) ? next : from;
}

// The place behind a prefix of a quote in some languages: N'x', b'x', string(1) "x".
std::size_t ValueScan::behindPrefix(std::size_t from) const {
    constexpr std::string_view PREFIXES = "NnBbUuRr";
    if (PREFIXES.find(line_.at(from)) != NOWHERE && line_.in(from + 1, QUOTE)) {
        return from + 1;
    }
    if (line_.saysExactly(from, "string(")) {
        const std::size_t end = line_.skip(from + 7, DIGIT);
        return line_.saysExactly(end, ") \"") ? end + 2 : from;
    }
    return from;
}

// The place behind the name in SetCredential=name:x, a setting of systemd.
std::size_t ValueScan::behindCredential(std::size_t from) const {
    const std::size_t colon = line_.skip(from, NAME);
    const bool named = line_.endsWith(name_.from, name_.to, "setcredential") ||
                       line_.endsWith(name_.from, name_.to, "setcredentialencrypted") ||
                       line_.endsWith(name_.from, name_.to, "set_credential");
    return named && colon > from && line_.at(colon) == ':' ? line_.skip(colon + 1, BLANK) : from;
}

// ["x", "y"]; any other value that begins with such a bracket goes up to the end of the line.
std::size_t ValueScan::hideList(std::size_t from) {
    std::size_t place = line_.skip(from + 1, BLANK);
    while (line_.at(from) == '[' && line_.in(place, QUOTE)) {
        place = line_.skip(hideQuotedValue(line_, place, false), BLANK);
        if (line_.at(place) == ']') {
            return place;
        }
        place = line_.at(place) == ',' ? line_.skip(place + 1, BLANK) : place;
    }
    line_.hideToEnd(from);
    return line_.size();
}

std::size_t ValueScan::hideAuthorization(std::size_t from) {
    bool to_end = false;
    for (const std::string_view scheme : {"Digest", "AWS4", "NTLM", "Negotiate"}) {
        to_end = to_end || line_.saysExactly(from, scheme);
    }
    const std::size_t end = to_end ? line_.size() : line_.until(from, QUOTE);
    if (!line_.isPlain(from, end)) {
        line_.hide(from, end, secret_rest::LINE);
    }
    return end;
}

// The end of a value that goes up to the end of its line, unless the line is a command line because
// name=value, a path or an option follows.
std::size_t ValueScan::lineValueEnd(std::size_t from) const {
    const bool joined = line_.at(from - 1) == '=' && line_.in(from - 2, NAME);
    std::size_t place = line_.until(from, BLANK);
    while (joined && !line_.hasEnd(place)) {
        const std::size_t word = line_.skip(place, BLANK);
        const std::size_t name = line_.skip(word, NAME);
        const bool program = line_.isOneOf(word, name, ASSIGNED_PROGRAMS) &&
                             (line_.in(name, BLANK) || line_.hasEnd(name));
        const bool option = line_.at(word) == '-' && (name > word + 1);
        const bool assigns = line_.in(word, LETTER) && line_.at(name) == '=' &&
                             !line_.in(name + 1, BLANK) && !line_.hasEnd(name + 1);
        if (program || option || assigns || line_.isPath(word) || line_.says(word, "export ")) {
            return line_.withoutEnd(from, place, " \t;");
        }
        place = line_.until(word, BLANK);
    }
    return line_.withoutEnd(from, line_.size(), " \t\r");
}

// Whether "&" is a byte of a value and separates no values: it ends no command, and neither the
// name of another value nor that of a character follows it.
bool ValueScan::isInside(std::size_t place) const {
    const std::size_t end = line_.skip(place + 1, NAME);
    return line_.at(place) == '&' && end > place + 1 && line_.at(end) != '=' &&
           line_.at(end) != ';' && line_.at(end) != '[';
}

// The sign between the values of a list; a blank when the value is in no list.
char ValueScan::listSign(std::size_t from) const {
    std::size_t before = name_.from;
    while (before > 0 && line_.at(before - 1) == ' ') {
        --before;
    }
    const char sign = before > 0 && line_.at(from - 1) == '=' ? line_.at(before - 1) : ' ';
    return sign == ',' || sign == ';' ? sign : ' ';
}

// Whether the value of a PIN is one: digits, with only signs behind them. The version to which a
// package is pinned has the same name and is no secret; names in it are checked by themselves.
bool ValueScan::isNumber(std::size_t from) const {
    const char sign = listSign(from);
    std::size_t end = line_.skip(from, DIGIT);
    while (line_.at(end) != sign && VALUE_SIGNS.find(line_.at(end)) != NOWHERE) {
        ++end;
    }
    return line_.hasEnd(end) || line_.at(end) == sign ||
           (line_.in(end, VALUE_END) && !isInside(end));
}

// The end of a value that is a word. In lists of values, such as mount options and connections to
// databases, it is at the sign between them.
std::size_t ValueScan::wordValueEnd(std::size_t from) const {
    const char sign = listSign(from);
    std::size_t end = from;
    while (!line_.hasEnd(end) && (!line_.in(end, VALUE_END) || isInside(end)) &&
           line_.at(end) != sign) {
        ++end;
    }
    return inParentheses() && end > from + 1 && line_.at(end - 1) == ')' ? end - 1 : end;
}

std::size_t ValueScan::hideBare(std::size_t from) {
    const bool pin = name_.is_pin && name_.word.from == NOWHERE;
    if (pin && !isNumber(from)) {
        return from;
    }
    if (!at_start_ && line_.isPath(from)) {  // credentials=/etc/x,password2=y
        std::size_t comma = from;
        while (line_.in(comma, NAME) || line_.at(comma) == '/') {
            ++comma;
        }
        if (line_.at(comma) == ',') {
            return comma;
        }
    }
    const std::size_t end = at_start_ ? lineValueEnd(from) : wordValueEnd(from);
    if (!at_start_ && line_.in(end, QUOTE) && end > from + 1 && line_.at(end - 1) == '(') {
        return hideQuotedValue(line_, end, false);  // password=MD5('x')
    }
    const std::size_t value_end = line_.withoutEnd(from, end, VALUE_SIGNS);
    if (pin && line_.skip(from, DIGIT) < value_end) {
        return from;  // numbers and words, as in a table
    }
    const bool said = inParentheses() && line_.isOneOf(from, value_end, ORDINARY_WORDS);
    if (!said && !line_.isPlain(from, value_end) && !line_.isPlain(from, end)) {
        line_.hide(from, end, at_start_ ? secret_rest::LINE : secret_rest::WORD);
    }
    // credentials: me / x
    const std::size_t second = behindSlash(line_, end);
    if (second != 0 &&
        line_.looksSecret(second, line_.wordEnd(second, line_.until(second, BLANK)))) {
        return line_.hideWord(second);
    }
    return end;
}

}  // namespace

std::size_t hideValue(SecretLine& line, std::size_t from, const secret_name& name, bool at_start) {
    return ValueScan(line, name, at_start).hide(from);
}

std::size_t hideQuotedValue(SecretLine& line, std::size_t from, bool at_start) {
    const bool escaped = line.at(from) == '\\';
    const std::size_t first = line.skipBytes(from, "\\");
    const std::string_view quote = line.text().substr(from, first + 1 - from);
    const std::size_t begin = from + quote.size();
    const std::size_t end = line.closing(begin, quote);
    if (!line.hasEnd(end)) {
        if (!line.isPlain(begin, end)) {
            line.hide(begin, end, secret_rest::LINE);
        }
        return end + quote.size();
    }
    if (at_start && line.ends() && quote.size() <= 2) {
        line.state().open_until = escaped           ? (quote[1] == '"' ? "\\\"" : "\\'")
                                  : quote[0] == '"' ? "\""
                                                    : "'";
        line.state().open_lines = 50;
    }
    line.hide(begin, end,
              quote.back() == '"' ? secret_rest::DOUBLE_QUOTED : secret_rest::SINGLE_QUOTED);
    return end;
}
