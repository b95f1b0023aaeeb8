#include "tool/IGSecretNotation.h"

#include <algorithm>
#include <iterator>

#include "tool/IGSecretNameValue.h"

// IDENTIFIED BY 'x', IDENTIFIED BY PASSWORD 'x', IDENTIFIED WITH a AS 'x'
std::size_t NotationScan::identified(std::size_t to) {
    std::size_t by = line_.skip(to, BLANK);
    if (line_.says(by, "with ") || line_.says(by, "via ")) {
        by = line_.skip(line_.until(by, BLANK), BLANK);
        by = line_.skip(line_.until(by, BLANK), BLANK);
    }
    const std::size_t end = line_.skip(by, LETTER);
    const bool known = line_.says(by, "by ") || line_.says(by, "as ") || line_.says(by, "using ");
    if (by == to || !known) {
        return 0;
    }
    std::size_t place = line_.skip(end, BLANK);
    if (line_.says(place, "password") && line_.in(place + 8, BLANK)) {
        place = line_.skip(place + 8, BLANK);
    }
    if (line_.in(place, QUOTE)) {
        return hideQuotedValue(line_, place, false);
    }
    const std::size_t word = line_.skip(place, LETTER | DIGIT | NAME);
    const bool secret = line_.says(by, "by ") && line_.looksSecret(place, word);
    return secret ? line_.hideWord(place) : 0;
}

// define('DB_PASSWORD', 'x')
std::size_t NotationScan::define(std::size_t to) {
    if (line_.at(to) != '(') {
        return 0;
    }
    std::size_t place = line_.skip(to + 1, BLANK);
    if (!line_.in(place, QUOTE)) {
        return 0;
    }
    const std::size_t end = line_.skip(place + 1, NAME);
    const secret_name name = readSecretName(line_, place + 1, end);
    if (!name.isSecret() || isHarmlessName(line_, name) || !line_.in(end, QUOTE) ||
        line_.at(end + 1) != ',') {
        return 0;
    }
    place = line_.skip(end + 2, BLANK);
    return line_.in(place, QUOTE) ? hideQuotedValue(line_, place, false) : 0;
}

// foo@password\x3dx.service
std::size_t NotationScan::escaped(const secret_name& name) {
    if (!line_.says(name.to, "\\x3d") && !line_.says(name.to, "\\x20")) {
        return 0;
    }
    const std::size_t from = name.to + 4;
    std::size_t end = from;
    while (!line_.hasEnd(end) && !line_.in(end, BLANK | QUOTE) && !line_.says(end, "\\x20")) {
        ++end;
    }
    std::size_t last = end;
    for (const std::string_view unit : {".service", ".scope", ".mount", ".device"}) {
        last = line_.endsWith(from, end, unit) ? end - unit.size() : last;
    }
    if (isHarmlessName(line_, name) || line_.isPlain(from, last)) {
        return end;
    }
    line_.hide(from, last, secret_rest::WORD);
    return end;
}

std::size_t NotationScan::mark(const secret_name& name) {
    for (const auto notation : {&NotationScan::listed, &NotationScan::fallback,
                                &NotationScan::table, &NotationScan::property}) {
        if (const std::size_t next = (this->*notation)(name); next != 0) {
            return next;
        }
    }
    return 0;
}

// ['--password', 'x'], [\"--password\", \"x\"], "--password" "x". The value may be in the next
// line.
std::size_t NotationScan::listed(const secret_name& name) {
    const std::size_t quote = line_.skipByte(name.to, '\\');
    if (line_.at(name.from) == '-' && line_.hasEnd(line_.skip(name.to, BLANK)) && line_.ends() &&
        line_.says(line_.skip(0, BLANK), "- -") && name.from == line_.skip(0, BLANK) + 2) {
        line_.state().next_word = true;  // "- --password", and "- x" in the next line
        return line_.size();
    }
    const bool apart = line_.in(quote + 1, BLANK) && line_.in(quote + 2, QUOTE);
    if (!line_.in(quote, QUOTE) || (line_.at(quote + 1) != ',' && !apart)) {
        return 0;
    }
    const std::size_t next = line_.skip(quote + 2, BLANK);
    if (line_.at(name.from) != '-') {  // env("PASSWORD", "x")
        const bool secret =
            name.from > 0 && line_.in(name.from - 1, QUOTE) && line_.isSecretText(next);
        return secret ? hideQuotedValue(line_, next, false) : 0;
    }
    if (line_.hasEnd(next) && line_.ends()) {
        line_.state().next_word = true;
        return next;
    }
    const bool escaped = line_.at(next) == '\\' && line_.in(next + 1, QUOTE);
    if (line_.at(next) != line_.at(name.to) || (!escaped && !line_.in(next, QUOTE))) {
        return 0;
    }
    return hideQuotedValue(line_, next, false);
}

// env('PASSWORD') ?: 'x', env.PASSWORD || 'x'
std::size_t NotationScan::fallback(const secret_name& name) {
    constexpr std::string_view SIGNS[] = {"?:", "??", "||", "or"};
    const std::size_t closed = line_.skipBytes(line_.skipOne(name.to, QUOTE), ")]");
    const std::size_t sign = line_.skip(closed, BLANK);
    const std::size_t next = line_.skip(sign + 2, BLANK);
    const bool chooses = std::any_of(std::begin(SIGNS), std::end(SIGNS), [&](std::string_view one) {
        return line_.saysExactly(sign, one);
    });
    return chooses && line_.isSecretText(next) ? hideQuotedValue(line_, next, false) : 0;
}

// | db_password | x |: the first two cells of a row.
std::size_t NotationScan::table(const secret_name& name) {
    const std::size_t sign = line_.skip(name.to, BLANK);
    if (line_.at(sign) != '|' || sign == name.to || !line_.starts()) {
        return 0;
    }
    const bool framed =
        line_.at(named_.first()) == '|' && name.from == line_.skip(named_.first() + 1, BLANK);
    const std::size_t from = line_.skip(sign + 1, BLANK);
    const std::size_t bar = line_.untilByte(from, '|');
    const std::size_t end = line_.withoutEnd(from, bar, " \t\r");
    const bool word = line_.until(from, BLANK) >= end;
    if ((!framed && name.from != named_.first()) || from == sign + 1 ||
        line_.hasEnd(bar) == framed || !word || line_.isPlain(from, end) ||
        (!framed && !line_.looksSecret(from, end))) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return bar;
}

// <key>password</key><string>x</string>
std::size_t NotationScan::property(const secret_name& name) {
    constexpr std::string_view END = "</key>";
    if (!line_.says(name.to, END)) {
        return 0;
    }
    const std::size_t from = line_.skip(name.to + END.size(), BLANK);
    return line_.says(from, "<string>") ? elements_.element(from + 8) : 0;
}
