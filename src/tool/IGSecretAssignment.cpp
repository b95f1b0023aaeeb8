#include "tool/IGSecretAssignment.h"

#include "tool/IGSecretNameValue.h"
#include "tool/IGSecretValueRules.h"

std::size_t AssignmentScan::mark(const secret_name& name) {
    const std::size_t from = behindSeparator(name.to);
    if (from == NOWHERE) {
        return 0;
    }
    if (isHarmlessName(line_, name) || isOtherKey(name) || isOtherName(name, from)) {
        return from;
    }
    const bool at_start = line_.starts() && line_.at(name.from) != '-' &&
                          name.from == line_.skipByte(named_.start(), '$');
    if (opensLines(from)) {
        return line_.size();
    }
    return hideValue(line_, from, name, at_start);
}

// Whether "key" names something else: a rule of the audit system (-F key=x, key="x" in its
// records), the keys of a keyboard (B: KEY=x), a property of an element (<annotate key="a.b">).
bool AssignmentScan::isOtherKey(const secret_name& name) {
    if (!line_.is(name.from, name.to, "key")) {
        return false;
    }
    if (line_.endsWith(0, name.from, "-f ") ||
        (name.from == 3 && (line_.saysExactly(0, "B: KEY=") || line_.saysExactly(0, "E: KEY=")))) {
        return true;
    }
    if (elements_.inTag() && line_.in(name.to + 1, QUOTE)) {
        const std::size_t end = line_.until(name.to + 2, QUOTE);
        const std::size_t word = line_.skip(name.to + 2, NAME);
        return end == word && !line_.looksSecret(name.to + 2, end);
    }
    return audit_.of(line_, {"audit(", "audit["}) != NOWHERE && name.from > 0 &&
           line_.in(name.from - 1, BLANK);
}

// Whether a name is not that of a secret although a sign follows it: passwd:amd64 and passwd:
// /usr/bin/passwd in lists of packages, APT::Key::x, "passwd: files" of nsswitch.conf,
// "passwd: password updated" of the program.
bool AssignmentScan::isOtherName(const secret_name& name, std::size_t from) const {
    if (line_.at(from - 1) == ':' && line_.at(name.to) == ':' && line_.isArchitecture(from)) {
        return true;
    }
    if (name.from > 0 && line_.at(name.from - 1) == ':' && line_.says(name.to, "::")) {
        return true;
    }
    const std::size_t number = line_.skip(from, DIGIT);
    if (number > from && line_.says(number, " bit")) {
        return true;
    }
    if (name.signs && name.to - name.from == 4) {
        const std::size_t end = line_.until(from, VALUE_END | SEPARATOR);
        if (line_.in(end, SEPARATOR) || !line_.looksSecret(from, end)) {
            return true;  // code=404, auth=basic
        }
    }
    if (name.from != named_.start() || line_.at(name.to) != ':') {
        return false;
    }
    if (named_.isComment() && line_.isSentence(from, 3)) {
        return true;
    }
    if (!line_.says(name.from, "passwd")) {
        return false;
    }
    return isNameServices(from) || line_.says(from, "password ") || line_.isSentence(from, 3);
}

// Whether the rest of the line is a list of services of nsswitch.conf.
bool AssignmentScan::isNameServices(std::size_t from) const {
    while (!line_.hasEnd(from)) {
        const std::size_t end = line_.until(from, BLANK);
        if (!line_.isOneOf(from, end, NAME_SERVICES)) {
            return false;
        }
        from = line_.skip(end, BLANK);
    }
    return true;
}

// Where the value begins behind the name that ends at a place and its sign: password = x,
// "password": x, password for me: x, token (str) = x; NOWHERE when no sign follows.
std::size_t AssignmentScan::behindSeparator(std::size_t to) const {
    std::size_t place = to;
    if (line_.in(to, BLANK)) {
        const std::size_t word = line_.skip(to, BLANK);
        const std::size_t size = line_.says(word, "for") || line_.says(word, "von") ? 3
                                 : line_.says(word, "of") || line_.says(word, "de") ? 2
                                                                                    : 0;
        std::size_t whose = line_.skip(word + size, BLANK);
        if (size != 0 && whose > word + size) {
            const std::size_t begun = whose;
            while (line_.in(whose, NAME) || line_.at(whose) == '@') {
                ++whose;
            }
            place = whose > begun ? whose : to;
        } else if (line_.at(word) == '(') {  // token (str) = x
            const std::size_t end = line_.skip(word + 1, LETTER | DIGIT);
            place = line_.saysExactly(end, ") = ") ? end + 1 : to;
        }
    } else {
        place = line_.skipBytes(place, "\\");
        place = line_.skipOne(place, QUOTE);
        place = line_.skipByte(place, ']');
    }
    place = line_.skip(place, BLANK);
    if (!line_.in(place, SEPARATOR)) {
        return NOWHERE;
    }
    while (line_.in(place, SEPARATOR) || line_.at(place) == '>') {
        ++place;
    }
    return line_.skip(place, BLANK);
}

// Checks whether the value is in the next lines, as an open list or a block of indented lines, and
// then sets the state for them.
bool AssignmentScan::opensLines(std::size_t from) {
    if (!line_.ends()) {
        return false;
    }
    secret_state& state = line_.state();
    if (line_.at(from) == '[' && line_.hasEnd(line_.skip(from + 1, BLANK))) {
        state.open_until = "]";
        state.open_lines = 50;
        return true;
    }
    const char c = line_.at(from);
    std::size_t place = from + (c == '|' || c == '>' || c == '{' ? 1 : 0);
    place = line_.skipByte(line_.skipByte(place, '-'), '+');
    if (!line_.hasEnd(line_.skip(place, BLANK))) {
        return false;
    }
    state.in_block = true;
    const std::size_t indent = line_.skip(0, BLANK);
    state.block_indent = line_.at(indent) == '-' && line_.at(indent + 1) == ' '
                             ? line_.skipBytes(indent + 1, " ")
                             : indent;
    return true;
}
