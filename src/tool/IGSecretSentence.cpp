#include "tool/IGSecretSentence.h"

#include <algorithm>
#include <iterator>

#include "tool/IGSecretNameValue.h"
#include "tool/IGSecretSentenceRules.h"
#include "tool/IGSecretSettingRules.h"
#include "tool/IGSecretUserPair.h"

std::size_t behindVerb(const SecretLine& line, const secret_name& name) {
    std::size_t place = line.skip(name.to, BLANK);
    const std::size_t verb = line.skip(place, LETTER);
    if (place == name.to || !line.in(verb, BLANK) || !line.isOneOf(place, verb, SAYING_VERBS)) {
        return 0;
    }
    const bool foreign = !line.says(place, "is ") && !line.says(place, "was ");
    place = line.skip(verb, BLANK);
    if (foreign && !line.looksSecret(place, line.wordEnd(place, line.until(place, VALUE_END)))) {
        return 0;
    }
    for (const std::string_view filler : {"now ", "still ", "set to ", "changed to "}) {
        place = line.says(place, filler) ? line.skip(place + filler.size(), BLANK) : place;
    }
    if (line.says(place, "generated for ")) {  // "... for root@localhost: x"
        const std::size_t end = line.until(line.skip(place + 13, BLANK), BLANK);
        place = line.at(end - 1) == ':' ? line.skip(end, BLANK) : place;
    }
    return place;
}

bool isOrdinary(const SecretLine& line, const secret_name& name, std::size_t from) {
    const std::size_t end = line.wordEnd(from, line.until(from, VALUE_END));
    if (line.isOneOf(from, end, ORDINARY_WORDS) || line.isPlain(from, end)) {
        return true;
    }
    bool digits = false;
    bool small = true;
    for (std::size_t place = from; place < end; ++place) {
        digits = digits || line.in(place, DIGIT);
        small = small && line.at(place) >= 'a' && line.at(place) <= 'z';
    }
    if (small && (line.endsWith(from, end, "ed") || line.endsWith(from, end, "ly"))) {
        return true;
    }
    const bool key = line.endsWith(name.from, name.to, "key") && !name.is_second;
    return name.word.from == NOWHERE && (!digits || key);
}

std::size_t SentenceScan::mark(const secret_name& name) {
    const std::size_t rest = line_.skip(name.to, BLANK);
    if (const std::size_t next = argument(name, rest); next != 0) {
        return next;
    }
    if (name.is_short && (quotedAtEnd(name, rest) || quotedSecret(name, rest))) {
        return hideQuotedValue(line_, rest, false);
    }
    const bool password = name.word.from != NOWHERE && line_.says(name.word.from, "password");
    if (rest == name.to || line_.hasEnd(rest) || rest > name.to + 2 ||
        (line_.at(rest) == '(' && line_.at(name.from) != '-') ||
        (password && line_.says(rest, "password") && line_.in(rest + 8, BLANK))) {
        return 0;
    }
    if (takesNextWord(name) || (name.word.to == name.to && line_.in(rest, QUOTE))) {
        return hideValue(line_, rest, name, false);
    }
    if (const std::size_t next = sentence(name); next != 0) {
        return next;
    }
    if (const std::size_t next = remark(name, rest); next != 0) {
        return next;
    }
    const std::size_t next = number(name, rest);
    return next != 0 ? next : nextWord(name, rest);
}

// password("x"), password("x", "y"), ConvertTo-SecureString -String "x"
std::size_t SentenceScan::argument(const secret_name& name, std::size_t rest) {
    if (name.word.to != name.to) {
        return 0;
    }
    const std::size_t quote = line_.skip(rest + 1, BLANK);
    if (line_.at(rest) == '(' && line_.in(quote, QUOTE)) {
        const std::size_t end = hideQuotedValue(line_, quote, false);
        const std::size_t second = line_.skip(end + 1, BLANK);
        return line_.at(end) == ',' && line_.in(second, QUOTE)
                   ? hideQuotedValue(line_, second, false)
                   : end;
    }
    return line_.says(rest, "-string ") ? hideValue(line_, line_.skip(rest + 8, BLANK), name, false)
                                        : 0;
}

// Whether the next word is the value without a sign between them: --password x, auth_pass x.
bool SentenceScan::takesNextWord(const secret_name& name) const {
    const bool dash = line_.at(name.from) == '-';
    if (name.word.from != NOWHERE && dash) {
        return true;
    }
    if (name.short_from != NOWHERE && name.short_from >= name.from + 2 &&
        line_.at(name.short_from - 1) == '-' && line_.at(name.short_from - 2) == '-') {
        return true;
    }
    if (dash && line_.endsWith(name.from + 1, name.to, "pass")) {
        return true;
    }
    for (const std::string_view word : SECRET_VALUED) {
        if (line_.endsWith(name.from, name.to, word)) {
            return true;
        }
    }
    const bool wireless = name.word.to == name.to && line_.endsWith(name.from, name.to, "key") &&
                          line_.says(name.word.from, "w");
    return wireless || line_.isExactly(name.from, name.to, "-pw");
}

// store pass 'x': where x looks like a secret.
bool SentenceScan::quotedSecret(const secret_name& name, std::size_t quote) const {
    return quote > name.to && name.short_from == name.from && line_.isSecretText(quote);
}

// pass "x" at the end of a line, as the first word of the line or behind a user.
bool SentenceScan::quotedAtEnd(const secret_name& name, std::size_t quote) {
    if (!line_.in(quote, QUOTE) || quote == name.to || !line_.is(name.from, name.to, "pass")) {
        return false;
    }
    if (name.from != named_.first() && user_.of(line_, {"user "}) > name.from) {
        return false;
    }
    const std::size_t end = line_.closing(quote + 1, line_.text().substr(quote, 1));
    return line_.hasEnd(line_.skipBytes(end + 1, " \t\r;"));
}

std::size_t SentenceScan::sentence(const secret_name& name) {
    const std::size_t from = behindVerb(line_, name);
    if (from == 0 || line_.hasEnd(from)) {
        return 0;
    }
    if (line_.in(from, QUOTE)) {
        return hideQuotedValue(line_, from, false);
    }
    if (isOrdinary(line_, name, from)) {
        return from;
    }
    return hideSentenceWord(from);
}

// Hides a word of a sentence. A stop behind it is not part of it; a sign such as "!", with which
// many passwords end, is.
std::size_t SentenceScan::hideSentenceWord(std::size_t from) {
    std::size_t end = from;
    while (!line_.hasEnd(end) && !line_.in(end, BLANK | QUOTE) && line_.at(end) != '<' &&
           !named_.isHome(end)) {
        ++end;
    }
    line_.hideWithoutEnd(from, end, ".,;:)\r");
    return end;
}

// (pw x), as in a comment or beside the name of a user: one word that is no word of a sentence.
std::size_t SentenceScan::remark(const secret_name& name, std::size_t from) {
    const std::size_t end = line_.untilOneOf(from, BLANK | QUOTE, ")");
    if (!isInParentheses(line_, name) || line_.at(end) != ')' || end == from || !isPassword(name) ||
        (name.word.from == NOWHERE && name.short_from != name.from) ||
        line_.endsWith(name.from, name.to, "key") || line_.looksOrdinary(from, end) ||
        line_.isPlain(from, end)) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return end;
}

// PIN 1234
std::size_t SentenceScan::number(const secret_name& name, std::size_t from) {
    const std::size_t end = line_.skip(from, DIGIT);
    const bool pin = line_.saysExactly(name.from, "PIN") || line_.saysExactly(name.from, "PUK");
    if (!pin || name.to != name.from + 3 || end < from + 4 || end > from + 10 ||
        line_.in(end, NAME) || line_.in(line_.skip(end, BLANK), DIGIT)) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return end;
}

// with token x, user me password x: the word behind a name that is a whole word, where it looks
// like a secret. Behind "key" the word needs "with" or a filler, because there are many other keys.
std::size_t SentenceScan::nextWord(const secret_name& name, std::size_t rest) {
    const bool key =
        name.word.from == NOWHERE && line_.endsWith(name.from, name.to, "key") && !name.is_second;
    const char sign = name.from > 0 ? line_.at(name.from - 1) : ' ';
    if (!endsInName(name, key) || sign == '@' || (sign == '/' && !followsPairWord(name))) {
        return 0;
    }
    const std::size_t from = behindFiller(rest);
    const std::size_t whole = line_.until(from, VALUE_END);
    const std::size_t home = line_.text().substr(from, whole - from).find(":/");
    const std::size_t end = home != NOWHERE && named_.isHome(from + home) ? from + home : whole;
    const std::size_t before = line_.wordBefore(name.from);
    const bool with = !key || from != rest || (before != NOWHERE && line_.says(before, "with "));
    const bool user = line_.at(name.from) != '-' && named_.first() == line_.wordBefore(before) &&
                      followsUser(name) && !isOrdinary(line_, name, from);
    if (!user && (!with || !line_.looksSecret(from, line_.wordEnd(from, end)))) {
        if (key) {
            return 0;
        }
        const std::size_t middle = line_.skip(from, NAME);
        if (const std::size_t next = hideJoined(line_, middle); next != 0) {  // credentials me:x
            return next;
        }
        const std::size_t next = beforeSign(from, middle);
        return next != 0 ? next : laterWord(name, rest);
    }
    return hideSentenceWord(from);
}

// Where a value may begin behind a name without a sign: with token x, password to x, key 1: x.
std::size_t SentenceScan::behindFiller(std::size_t from) const {
    for (const std::string_view filler : {"to ", "set to ", "changed to ", "-v ", "--value "}) {
        if (line_.says(from, filler)) {
            return line_.skip(from + filler.size(), BLANK);
        }
    }
    const std::size_t number = line_.skip(from, DIGIT);
    return number > from && line_.says(number, ": ") ? line_.skip(number + 2, BLANK) : from;
}

// Whether "user me" is in front of the name.
bool SentenceScan::followsUser(const secret_name& name) const {
    const std::size_t word = line_.wordBefore(line_.wordBefore(name.from));
    return word != NOWHERE && line_.says(word, "user") && line_.in(word + 4, BLANK);
}

// login/password x, kv put shop/password x
bool SentenceScan::followsPairWord(const secret_name& name) {
    std::size_t from = name.from - 1;
    while (from > 0 && line_.in(from - 1, LETTER) && name.from - from < 20) {
        --from;
    }
    return put_.of(line_, {" put "}) < name.from ||
           line_.isOneOf(from, name.from - 1, ACCESS_WORDS);
}

// Whether a name is a whole word, or the last part of one: the password, db-pw, storepass.
bool SentenceScan::endsInName(const secret_name& name, bool key) const {
    const std::size_t last = line_.says(name.word.to, "s") ? name.word.to + 1 : name.word.to;
    return (name.word.from == name.from && (name.word.to == name.to || last == name.to)) ||
           line_.saysExactly(name.from, "_auth") ||
           (name.is_short && (key ? name.short_from == name.from : name.short_from != NOWHERE)) ||
           name.ends_in_pass || name.is_second ||
           (name.word.to == name.to && name.word.from > name.from && isPassword(name) &&
            !line_.in(name.word.from - 1, LETTER | DIGIT));
}

// pw x: in a field of a line that continues behind ":" or ",".
std::size_t SentenceScan::beforeSign(std::size_t from, std::size_t sign) {
    if ((line_.at(sign) != ':' && line_.at(sign) != ',') || !line_.looksSecret(from, sign)) {
        return 0;
    }
    line_.hide(from, sign, secret_rest::WORD);
    return sign;
}

// pw -> x, the password of bob is x, mot de passe du site : x: a value that looks like a secret,
// with a few words between it and the name at most. In "password for x" it is no password.
std::size_t SentenceScan::laterWord(const secret_name& name, std::size_t from) {
    constexpr int MOST = 4;
    const bool verb = line_.isOneOf(name.from, name.to, SECRET_VERBS) &&
                      !line_.saysExactly(from, "->") && !line_.saysExactly(from, "→");
    bool object = false;
    bool behind_colon = false;
    if (verb || !isPassword(name) || line_.at(name.from) == '-') {
        return 0;
    }
    for (int words = 0; words < MOST && !line_.hasEnd(from); ++words) {
        from = behindOpening(from);
        const std::size_t end = laterWordEnd(from);
        const std::size_t value_end = withoutClosing(from, end);
        if (isLaterValue(from, value_end, behind_colon)) {
            return object ? 0 : hideLaterValue(from, value_end, end);
        }
        const bool divided = line_.at(end - 1) == ':' && end > from + 1;
        const std::size_t word = divided ? end - 1 : end;
        if (!mayPrecedeValue(from, word)) {
            return 0;
        }
        behind_colon = divided;
        object = !divided && line_.isOneOf(from, word, OBJECT_WORDS);
        from = line_.skip(end, BLANK);
    }
    return 0;
}

// The end of a word of a sentence, which may have an apostrophe inside.
std::size_t SentenceScan::laterWordEnd(std::size_t from) const {
    std::size_t end = from;
    while (!line_.hasEnd(end) && line_.at(end) != '`' && line_.at(end) != ']' &&
           (!line_.in(end, BLANK | QUOTE) || isApostrophe(end))) {
        ++end;
    }
    return end;
}

// The end of a word without a stop and without a closing quote, whose bytes are not ASCII.
std::size_t SentenceScan::withoutClosing(std::size_t from, std::size_t end) const {
    std::size_t value_end = line_.wordEnd(from, end);
    while (value_end > from && static_cast<unsigned char>(line_.at(value_end - 1)) >= 0x80) {
        --value_end;
    }
    return value_end;
}

bool SentenceScan::isLaterValue(std::size_t from, std::size_t to, bool behind_colon) const {
    constexpr std::size_t SHORTEST = 8;
    // Behind a colon a stop may belong to the value: it ends no sentence there.
    const std::size_t stop = line_.text().substr(from, to - from).find('.');
    const std::size_t end = behind_colon && stop != NOWHERE ? from + stop : to;
    return to >= from + SHORTEST && line_.looksSecret(from, end);
}

// Hides a value. One that may continue in the next part of the line is hidden whole.
std::size_t SentenceScan::hideLaterValue(std::size_t from, std::size_t value_end, std::size_t end) {
    const bool goes_on = line_.hasEnd(end) && !line_.ends();
    line_.hide(from, goes_on ? end : value_end, secret_rest::WORD);
    return end;
}

// Whether a word may be between a name and its value: a word of letters, such as d'ordine.
bool SentenceScan::mayPrecedeValue(std::size_t from, std::size_t to) const {
    const std::size_t letters = line_.skip(from, NAME);
    const bool joins = isApostrophe(letters) && line_.skip(letters + 1, NAME) >= to;
    return to != from && (letters >= to || joins) && !line_.has(from, to, DIGIT);
}

// The place behind an arrow, a sign or a quote in front of a value.
std::size_t SentenceScan::behindOpening(std::size_t from) const {
    constexpr std::string_view SIGNS[] = {"->", "→", ":", "="};
    constexpr std::string_view QUOTES[] = {"„", "“", "”", "«", "‘", "`", "["};
    for (const std::string_view sign : SIGNS) {
        if (line_.saysExactly(from, sign) && line_.in(from + sign.size(), BLANK)) {
            from = line_.skip(from + sign.size(), BLANK);
            break;
        }
    }
    for (const std::string_view quote : QUOTES) {
        if (line_.saysExactly(from, quote)) {
            return line_.skip(from + quote.size(), BLANK);
        }
    }
    return from;
}

// d'ordine, d'accès
bool SentenceScan::isApostrophe(std::size_t place) const {
    const bool letter =
        line_.in(place + 1, LETTER) || static_cast<unsigned char>(line_.at(place + 1)) >= 0x80;
    return line_.at(place) == '\'' && place > 0 && line_.in(place - 1, LETTER) && letter;
}

// Whether a name is that of a password, and not of a token, a community or another credential.
bool SentenceScan::isPassword(const secret_name& name) const {
    constexpr std::string_view OTHERS[] = {"secret", "token", "credential", "community", "auth"};
    return std::none_of(std::begin(OTHERS), std::end(OTHERS),
                        [&](std::string_view word) { return line_.says(name.word.from, word); });
}
