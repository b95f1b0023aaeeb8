#include "tool/IGSecretDirective.h"

#include <algorithm>
#include <iterator>

#include "tool/IGSecretNameValue.h"
#include "tool/IGSecretSentence.h"
#include "tool/IGSecretSettingRules.h"
#include "tool/IGSecretValueRules.h"

std::size_t DirectiveScan::mark(const secret_name& name) {
    const std::size_t rest = line_.skip(name.to, BLANK);
    if (!isDirective(name, rest) || isNoValue(name, rest)) {
        return 0;
    }
    if (named_.isNaming()) {
        return namedValue(rest);
    }
    if (line_.isOneOf(name.from, name.to, SECRET_COMMUNITIES)) {
        return line_.hideWord(rest);
    }
    if (isPamType(name, rest)) {
        return name.to;
    }
    if (const std::size_t value = behindVerb(line_, name);
        value != 0 && isOrdinary(line_, name, value)) {
        return value;
    }
    return lineValue(rest);
}

// Whether a name begins its line, and something follows that may be its value.
bool DirectiveScan::isDirective(const secret_name& name, std::size_t rest) const {
    if (!line_.starts() || name.from != named_.directive() || rest == name.to ||
        line_.hasEnd(rest) || line_.in(rest, SEPARATOR) || isHarmlessName(line_, name)) {
        return false;
    }
    const std::string_view word = line_.text().substr(name.from, name.to - name.from);
    return name.word.from != NOWHERE || word.find("auth_pass") != NOWHERE || named_.isNaming();
}

// password required x.so: the type of a directive of PAM.
bool DirectiveScan::isPamType(const secret_name& name, std::size_t rest) const {
    return line_.endsWith(name.from, name.to, "password") && name.to - name.from <= 9 &&
           std::any_of(std::begin(PAM_CONTROLS), std::end(PAM_CONTROLS),
                       [&](std::string_view control) { return line_.says(rest, control); });
}

// Whether the text behind a name at the start of a line is not its value: "kpasswd 464/tcp" in a
// list of services, "passwd 1:4.13-1" in a list of packages, "NoToken 0 0.0" in a list of counters,
// a sentence in a comment.
bool DirectiveScan::isNoValue(const secret_name& name, std::size_t rest) const {
    if (line_.isPlain(rest, line_.withoutEnd(rest, line_.size(), "; \t\r")) ||
        line_.isArchitecture(rest)) {
        return true;
    }
    const std::size_t port = line_.skip(rest, DIGIT);
    if (port > rest && (line_.says(port, "/tcp") || line_.says(port, "/udp"))) {
        return true;
    }
    if (line_.at(name.from) == '-' && rest > name.to + 2) {
        return true;  // an option and its description
    }
    const bool more = name.to - name.from > name.word.to - name.word.from;
    const std::size_t second = line_.skip(line_.until(rest, BLANK), BLANK);
    if (line_.says(second, "not ")) {
        return true;  // Token SecPageTables not in hash table
    }
    if (line_.isVersion(rest) && (more || line_.endsWith(name.from, name.to, "passwd"))) {
        return true;
    }
    const bool comment = named_.isComment();
    constexpr std::size_t LONG = 7;  // words: no passphrase has so many
    return line_.isOneOf(rest, line_.until(rest, BLANK), PACKAGE_STATES) ||
           line_.isSentence(rest, comment ? 2 : LONG);
}

// The value of a directive that has a name in front of it: in quotes, or a word.
std::size_t DirectiveScan::namedValue(std::size_t from) {
    if (line_.in(from, QUOTE)) {
        return hideQuotedValue(line_, from, false);
    }
    const std::size_t end = line_.until(from, BLANK);
    line_.hideWithoutEnd(from, end, ";");
    return end;
}

// The value of a directive: the rest of its line, which a backslash continues in the next line.
std::size_t DirectiveScan::lineValue(std::size_t from) {
    std::size_t end = line_.size();
    if (line_.ends() && line_.at(end - 1) == '\\' && line_.in(end - 2, BLANK)) {
        line_.state().next_word = true;
        end = line_.withoutEnd(from, end - 1, " \t");
    }
    line_.hide(from, end, secret_rest::LINE);
    return line_.size();
}

bool DirectiveScan::isNetrc(std::size_t from) const {
    const std::size_t login = line_.wordBefore(line_.wordBefore(from));
    return (line_.starts() && line_.says(named_.first(), "machine")) ||
           (login != NOWHERE && line_.says(login, "login") && line_.in(login + 5, BLANK));
}

// machine h login me password x, and passwd/root-password password x: a password may have blanks.
std::size_t DirectiveScan::netrc(const secret_name& name) {
    line_.hideToEnd(line_.skip(name.to, BLANK));
    return line_.size();
}
