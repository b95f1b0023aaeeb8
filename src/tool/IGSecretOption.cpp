#include "tool/IGSecretOption.h"

#include <algorithm>
#include <iterator>

#include "tool/IGSecretCommandRules.h"

namespace {

// Bytes that may follow a secret on a command line.
constexpr std::string_view STOPS = ",;)]}\\";

}  // namespace

std::size_t OptionScan::mark(std::size_t from, std::size_t to) {
    if (state_.commands == NO_PROGRAM && isBind(from, to)) {
        return optionValue(to, false);
    }
    if (const std::size_t next = doubtful(from, to); next != 0) {
        return next;
    }
    if (line_.isExactly(from, to, "--from-literal")) {
        return literal(to);
    }
    for (const std::string_view name : AUTH_OPTIONS) {
        if (line_.isExactly(from, to, name) && (line_.in(to, BLANK) || line_.at(to) == '=')) {
            return optionValue(to, true);
        }
    }
    if (const std::size_t next = doubtfulPair(from, to); next != 0) {
        return next;
    }
    return state_.commands == NO_PROGRAM || state_.commands == OPEN_PROGRAM
               ? 0
               : programOption(from, to);
}

// An option of the program that was named last.
std::size_t OptionScan::programOption(std::size_t from, std::size_t to) {
    const secret_program& program = SECRET_PROGRAMS[state_.commands - 1];
    std::size_t letter = from + 1;
    if ((program.letters == "w" && line_.at(letter) == 'x') ||
        (program.name == "rar" && line_.at(letter) == 'h')) {
        ++letter;  // ldapsearch -xw, rar -hp
    }
    while (program.name == "curl" && line_.at(letter) != '\0' &&
           std::string_view("sSkLvifgIjN").find(line_.at(letter)) != NOWHERE) {
        ++letter;  // curl -sku
    }
    if (program.letters.find(line_.at(letter)) != NOWHERE &&
        (!program.apart || line_.in(letter + 1, BLANK))) {
        return optionValue(letter + 1, program.with_user);
    }
    for (const std::string_view name : USER_OPTIONS) {
        if (program.with_user && line_.isExactly(from + 1, to, name)) {
            return optionValue(to, true);
        }
    }
    return 0;
}

// Whether an option takes the password of an LDAP directory: -D cn=me -w x. The line may lack the
// name of the program.
bool OptionScan::isBind(std::size_t from, std::size_t to) {
    return line_.isExactly(from, to, "-w") &&
           bind_.of(line_, {"-D cn=", "-D uid=", "-D \"cn=", "-D \"uid=", "-D 'cn=", "-D 'uid="}) <
               from;
}

// -k x of a program that is not known, and --license x, where x looks like a secret. In rules of
// the audit system -k names the rule.
std::size_t OptionScan::doubtful(std::size_t from, std::size_t to) {
    const bool is_short = to - from == 2;
    if (!line_.isOneOf(from, to, DOUBTFUL_OPTIONS) || (is_short && state_.commands != NO_PROGRAM)) {
        return 0;
    }
    const std::size_t value = valueOf(to);
    const std::size_t begin = line_.skipOne(value, QUOTE);
    const std::size_t end = line_.until(begin, BLANK | QUOTE);
    if (value == to || !line_.looksSecret(begin, line_.withoutEnd(begin, end, STOPS)) ||
        line_.isOneOf(begin, line_.skip(begin, LETTER), DEVICE_NAMES) ||
        (is_short && line_.at(from + 1) == 'k' && isAuditRule())) {
        return 0;
    }
    line_.hideWithoutEnd(begin, end, STOPS);
    return end;
}

// -u me:x, --user me%x of any program, where x looks like a secret.
std::size_t OptionScan::doubtfulPair(std::size_t from, std::size_t to) {
    const auto says = [&](std::string_view name) { return line_.isExactly(from, to, name); };
    if (std::none_of(std::begin(DOUBTFUL_PAIRS), std::end(DOUBTFUL_PAIRS), says)) {
        return 0;
    }
    const std::size_t user = line_.skipOne(valueOf(to), QUOTE);
    const std::size_t sign = line_.skip(user, NAME);
    const std::size_t end = line_.until(sign, BLANK | QUOTE);
    if ((line_.at(sign) != ':' && line_.at(sign) != '%') || sign == user ||
        !line_.looksSecret(sign + 1, line_.withoutEnd(sign + 1, end, STOPS))) {
        return 0;
    }
    line_.hideWithoutEnd(sign + 1, end, STOPS);
    return end;
}

// --from-literal=name=x
std::size_t OptionScan::literal(std::size_t from) {
    const std::size_t value = valueOf(from);
    const std::size_t sign = line_.skip(line_.skipOne(value, QUOTE), NAME);
    return value > from && line_.at(sign) == '=' ? line_.hideWord(sign + 1) : 0;
}

bool OptionScan::isAuditRule() {
    return audit_.of(line_, {"-a always,", "-a exit,", "-w /"}) != NOWHERE;
}

// Where the value of an option begins: -k x, -k=x, and "-k", "x" in a list. The same place when
// none follows.
std::size_t OptionScan::valueOf(std::size_t from) const {
    const std::size_t quote = from + (line_.at(from) == '\\' ? 1 : 0);
    if (line_.in(quote, QUOTE) && line_.at(quote + 1) == ',') {
        const std::size_t next = line_.skip(quote + 2, BLANK);
        const std::size_t begin = line_.skipByte(next, '\\');
        return line_.in(begin, QUOTE) ? begin : from;
    }
    while (line_.in(from, BLANK) || line_.at(from) == '=') {
        ++from;
    }
    return from;
}

std::size_t OptionScan::optionValue(std::size_t from, bool with_user) {
    from = valueOf(from);
    if (line_.hasEnd(from)) {
        return from;
    }
    return with_user ? userAndPassword(from) : line_.hideWord(from);
}

std::size_t OptionScan::userAndPassword(std::size_t from) {
    const bool quoted = line_.in(from, QUOTE);
    const std::size_t begin = quoted ? from + 1 : from;
    const std::size_t end =
        quoted ? line_.closing(begin, line_.text().substr(from, 1)) : line_.until(begin, BLANK);
    for (std::size_t place = begin; place < end; ++place) {
        const char c = line_.at(place);
        if (c == ':' || c == ',' || c == '%' || c == '=') {
            const std::size_t last =
                !quoted && line_.in(end - 1, QUOTE) && end > place + 1 ? end - 1 : end;
            line_.hide(place + 1, last, secret_rest::WORD);
            break;
        }
    }
    return quoted && !line_.hasEnd(end) ? end + 1 : end;
}
