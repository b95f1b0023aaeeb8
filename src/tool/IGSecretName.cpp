#include <algorithm>
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretRules.h"
#include "tool/IGSecretWord.h"

namespace {

constexpr auto LOGIN_BEGINNINGS = filterOf<BeginningFilter>(LOGIN_WORDS);

// What may follow a value without a blank between.
constexpr std::string_view VALUE_SIGNS = ",;:)]}";

// What may follow the last word of a sentence.
constexpr std::string_view STOPS = ".,;:!?)\r";

// A stretch up to a quote or the end of the line. What looks ahead in it does so once.
struct Region {
    std::size_t from = NOWHERE;
    std::size_t to = 0;
    secret_word word;             // the last secret word in it
    bool part = false;            // it is a short one, in a name of nothing else
    bool divided = false;         // ":" or "=" follows that word
    std::size_t value = NOWHERE;  // the quote of a value: name="password" value="x"
    bool value_sought = false;
    std::size_t element = NOWHERE;  // the text of an element: <entry key="password">x
    bool element_sought = false;
};

// Goes through a line once. A step takes the place where something begins, hides what is secret
// there and returns the place where to go on, or 0 when it found nothing of its kind.
class NameScan {
  public:
    explicit NameScan(SecretLine& line) : line_(line) {
        first_ = line_.skip(0, BLANK);
        const std::size_t marks = line_.skipBytes(first_, " \t#;");
        start_ = line_.skipBytes(behindKeyword(marks), " \t");
        const std::size_t signs =
            line_.skipBytes(line_.skipBytes(line_.skipBytes(0, " \t"), "#;$"), " \t");
        naming_ = behindNaming(signs);
        directive_ = naming_ != 0             ? naming_
                     : line.says(signs, "- ") ? signs
                                              : line_.skipBytes(behindKeyword(signs), " \t");
        account_ = isAccount();
    }
    void run();

  private:
    [[nodiscard]] std::size_t behindKeyword(std::size_t from) const;
    [[nodiscard]] std::size_t behindNaming(std::size_t from) const;
    std::size_t atName(std::size_t from, std::size_t to);
    std::size_t atOther(std::size_t place);
    std::size_t atSecret(const secret_name& name);
    void hideParts(const secret_name& name);

    Region& regionAt(std::size_t place);
    std::size_t attribute(const secret_name& name);
    [[nodiscard]] std::size_t elementBehind(std::size_t quote) const;
    [[nodiscard]] std::size_t behindAttributes(std::size_t quote) const;
    std::size_t valueBehind(std::size_t quote);
    std::size_t element(std::size_t text);

    std::size_t identified(std::size_t to);
    std::size_t define(std::size_t to);
    std::size_t login(std::size_t to);
    std::size_t joined(std::size_t sign);
    [[nodiscard]] std::size_t behindSlash(std::size_t place) const;
    std::size_t listed(const secret_name& name);
    [[nodiscard]] bool isSecretText(std::size_t quote) const;
    std::size_t fallback(const secret_name& name);
    [[nodiscard]] std::size_t behindFiller(std::size_t from) const;
    std::size_t spoken(const secret_name& name, std::size_t rest);
    [[nodiscard]] bool endsInName(const secret_name& name, bool key) const;
    [[nodiscard]] bool isAccount() const;
    [[nodiscard]] bool isHome(std::size_t place) const;
    std::size_t hideSaid(std::size_t from);
    std::size_t remark(const secret_name& name, std::size_t from);
    std::size_t number(const secret_name& name, std::size_t from);
    std::size_t distant(const secret_name& name, std::size_t from);
    [[nodiscard]] bool isApostrophe(std::size_t place) const;
    [[nodiscard]] bool isPassword(const secret_name& name) const;
    [[nodiscard]] bool isOneOfTwo(const secret_name& name);
    [[nodiscard]] std::size_t behindOpening(std::size_t from) const;
    [[nodiscard]] bool inParentheses(const secret_name& name) const {
        return name.from > 0 && line_.at(name.from - 1) == '(';
    }
    std::size_t beforeSign(std::size_t from, std::size_t sign);
    [[nodiscard]] bool ofUser(const secret_name& name) const;
    std::size_t netrc(const secret_name& name);
    [[nodiscard]] bool isNetrc(std::size_t from) const;
    [[nodiscard]] std::size_t wordBefore(std::size_t place) const;
    [[nodiscard]] bool isComment() const {
        return line_.at(first_) == '#' || line_.at(first_) == ';';
    }
    [[nodiscard]] bool tellsNothing(const secret_name& name, std::size_t rest) const;
    std::size_t directive(const secret_name& name);
    std::size_t namedValue(std::size_t from);
    std::size_t table(const secret_name& name);
    std::size_t escaped(const secret_name& name);
    std::size_t property(const secret_name& name);
    std::size_t assigned(const secret_name& name);
    bool isOtherKey(const secret_name& name);
    [[nodiscard]] bool isOtherName(const secret_name& name, std::size_t from) const;
    [[nodiscard]] bool isNameServices(std::size_t from) const;
    [[nodiscard]] std::size_t behindSeparator(std::size_t to) const;
    std::size_t option(const secret_name& name);
    [[nodiscard]] bool quotedAtEnd(const secret_name& name, std::size_t quote);
    [[nodiscard]] bool quotedSecret(const secret_name& name, std::size_t quote) const;
    [[nodiscard]] bool takesNextWord(const secret_name& name) const;
    [[nodiscard]] std::size_t saidOf(const secret_name& name) const;
    [[nodiscard]] std::size_t wordEnd(std::size_t from, std::size_t to) const;
    [[nodiscard]] bool isOrdinary(const secret_name& name, std::size_t from) const;
    std::size_t sentence(const secret_name& name);

    std::size_t value(std::size_t from, const secret_name& name, bool at_start);
    bool opensLines(std::size_t from);
    std::size_t quotedValue(std::size_t from, bool at_start);
    [[nodiscard]] std::size_t lineValueEnd(std::size_t from) const;
    [[nodiscard]] bool isInside(std::size_t place) const;
    [[nodiscard]] char listSign(std::size_t from, const secret_name& name) const;
    [[nodiscard]] bool isNumber(std::size_t from, const secret_name& name) const;
    [[nodiscard]] std::size_t wordValueEnd(std::size_t from, const secret_name& name) const;
    std::size_t bareValue(std::size_t from, const secret_name& name, bool at_start);
    std::size_t authorization(std::size_t from);
    [[nodiscard]] std::size_t behindPrefix(std::size_t from) const;
    [[nodiscard]] std::size_t behindScheme(std::size_t from) const;
    [[nodiscard]] std::size_t behindCredential(const secret_name& name, std::size_t from) const;
    std::size_t list(std::size_t from);

    SecretLine& line_;
    std::size_t first_ = 0;      // where the line begins to say something
    std::size_t start_ = 0;      // where a name would be the first thing of the line
    std::size_t directive_ = 0;  // where one would be a directive
    std::size_t naming_ = 0;     // the same, behind a word that is followed by a name; or 0
    bool account_ = false;       // the line is one of /etc/passwd
    Region region_;
    enum class Tag { NONE, NAME, INSIDE } tag_ = Tag::NONE;
    std::size_t tag_value_ = NOWHERE;    // the quote of the attribute "value" that it has had
    bool secret_element_ = false;        // the tag that is open names a secret
    std::size_t password_to_ = NOWHERE;  // where a name that ends like "root-password" has ended
    FirstPlace audit_;                   // the mark of a record of the audit system
    FirstPlace put_;                     // " put "
    FirstPlace user_;                    // "user "
};

std::size_t NameScan::behindKeyword(std::size_t from) const {
    for (const std::string_view keyword : {"export ", "set ", "- "}) {
        if (line_.says(from, keyword)) {
            return from + keyword.size();
        }
    }
    return from;
}

// Where the name begins in "SetEnv NAME x" and "set $name x"; 0 when this is no such line.
std::size_t NameScan::behindNaming(std::size_t from) const {
    if (!line_.in(from, LETTER)) {
        return 0;
    }
    for (const std::string_view word : NAMING_DIRECTIVES) {
        if (line_.says(from, word)) {
            return line_.skipBytes(from + word.size(), " \t\"'");
        }
    }
    return line_.says(from, "set $") ? from + 5 : 0;
}

void NameScan::run() {
    for (std::size_t place = 0; place < line_.size();) {
        if (line_.in(place, NAME)) {
            place = atName(place, line_.skip(place, NAME));
        } else {
            place = atOther(place);
        }
    }
    if (secret_element_ && tag_ == Tag::NONE && line_.ends() && line_.starts() &&
        line_.at(line_.skip(0, BLANK)) == '<') {
        line_.state().open_until = "</";
        line_.state().open_lines = 50;
    }
}

std::size_t NameScan::atOther(std::size_t place) {
    const char c = line_.at(place);
    if (c == '<') {
        tag_ = Tag::NAME;
        tag_value_ = NOWHERE;
        secret_element_ = false;
    } else if (c == '>' && tag_ != Tag::NONE) {
        tag_ = Tag::NONE;
        secret_element_ = secret_element_ && line_.at(place - 1) != '/';
        return secret_element_ ? element(line_.skip(place + 1, BLANK)) : place + 1;
    } else if (tag_ == Tag::NAME && c != ':') {
        tag_ = Tag::INSIDE;
    }
    return place + 1;
}

// The text of an element, up to the next tag. One that is in the next lines is left to them.
std::size_t NameScan::element(std::size_t text) {
    if (line_.hasEnd(text)) {
        return text;
    }
    secret_element_ = false;
    const std::size_t end = line_.untilByte(text, '<');
    // A quote behind "<key>" is one of a command line with a place for a key.
    const bool is_element = !line_.in(text, QUOTE) || line_.hasEnd(end) || line_.at(end + 1) == '/';
    if (is_element && !line_.isPlain(text, end)) {
        line_.hide(text, end, secret_rest::ELEMENT);
    }
    return end;
}

std::size_t NameScan::atName(std::size_t from, std::size_t to) {
    const secret_name name = readSecretName(line_, from, to);
    const bool secret = name.isSecret();
    const bool after_password = password_to_ != NOWHERE && line_.skip(password_to_, BLANK) == from;
    password_to_ =
        name.word.from != NOWHERE && line_.says(name.word.from, "password") ? to : NOWHERE;
    if (tag_ == Tag::NAME && name.word.from != NOWHERE && !isHarmlessName(line_, name)) {
        secret_element_ = true;
    }
    if (const std::size_t next = attribute(name); next != 0) {
        return next;
    }
    if (!secret) {
        const std::size_t next =
            line_.is(from, to, "identified") ? identified(to)
            : line_.is(from, to, "define")   ? define(to)
            : LOGIN_BEGINNINGS.has(line_, from) && line_.isOneOf(from, to, LOGIN_WORDS) ? login(to)
                                                                                        : 0;
        return next != 0 ? next : to;
    }
    if (line_.is(from, to, "password") && line_.in(to, BLANK) && from > 0 &&
        line_.in(from - 1, BLANK) && (after_password || isNetrc(from))) {
        return netrc(name);
    }
    hideParts(name);
    const std::size_t next = atSecret(name);
    return next != 0 ? next : to;
}

// backup-token-x.timer: what is named in the name of a unit or a file.
void NameScan::hideParts(const secret_name& name) {
    constexpr std::size_t SHORTEST = 8;
    const auto ends = [&](std::string_view ending) {
        return line_.endsWith(name.from, name.to, ending);
    };
    const std::size_t named = name.word.from != NOWHERE ? name.word.to : name.short_to;
    if (named >= name.to || std::none_of(std::begin(NAME_ENDINGS), std::end(NAME_ENDINGS), ends)) {
        return;
    }
    for (std::size_t from = named; from < name.to; ++from) {
        const std::size_t to = line_.skip(from, LETTER | DIGIT);
        if (to >= from + SHORTEST && line_.looksSecret(from, to)) {
            line_.hide(from, to, secret_rest::WORD);
        }
        from = to;
    }
}

std::size_t NameScan::atSecret(const secret_name& name) {
    if (const std::size_t next = escaped(name); next != 0) {
        return next;
    }
    if (const std::size_t next = directive(name); next != 0) {
        return next;
    }
    if (const std::size_t next = assigned(name); next != 0) {
        return next;
    }
    if (isHarmlessName(line_, name)) {
        return 0;
    }
    for (const auto step :
         {&NameScan::listed, &NameScan::fallback, &NameScan::table, &NameScan::property}) {
        if (const std::size_t next = (this->*step)(name); next != 0) {
            return next;
        }
    }
    return option(name);
}

// | db_password | x |: the first two cells of a row.
std::size_t NameScan::table(const secret_name& name) {
    const std::size_t sign = line_.skip(name.to, BLANK);
    if (line_.at(sign) != '|' || sign == name.to || !line_.starts()) {
        return 0;
    }
    const bool framed = line_.at(first_) == '|' && name.from == line_.skip(first_ + 1, BLANK);
    const std::size_t from = line_.skip(sign + 1, BLANK);
    const std::size_t bar = line_.untilByte(from, '|');
    const std::size_t end = line_.withoutEnd(from, bar, " \t\r");
    const bool word = line_.until(from, BLANK) >= end;
    if ((!framed && name.from != first_) || from == sign + 1 || line_.hasEnd(bar) == framed ||
        !word || line_.isPlain(from, end) || (!framed && !line_.looksSecret(from, end))) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return bar;
}

// <key>password</key><string>x</string>
std::size_t NameScan::property(const secret_name& name) {
    constexpr std::string_view END = "</key>";
    if (!line_.says(name.to, END)) {
        return 0;
    }
    const std::size_t from = line_.skip(name.to + END.size(), BLANK);
    return line_.says(from, "<string>") ? element(from + 8) : 0;
}

// foo@password\x3dx.service: in names of units blanks and signs are escaped.
std::size_t NameScan::escaped(const secret_name& name) {
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

// ---- Pairs of a name and a value ----------------------------------------------------------------

Region& NameScan::regionAt(std::size_t place) {
    if (region_.from > place || region_.to < place) {
        region_ = Region{};
        region_.from = place;
        region_.to = line_.until(place, QUOTE);
        region_.word = lastSecretWord(line_, place, region_.to);
        if (region_.word.from == NOWHERE && line_.skip(place, NAME) == region_.to) {
            const secret_name name = readSecretName(line_, place, region_.to);
            const bool part = (name.is_short || name.ends_in_pass) && region_.to > place + 4;
            region_.word = part ? secret_word{place, region_.to} : region_.word;
            region_.part = part;
        }
        if (region_.word.from != NOWHERE) {
            region_.divided = line_.until(region_.word.to, SEPARATOR) < region_.to;
        }
    }
    return region_;
}

// name="password" value="x", "key": "password", "value": "x", <entry key="password">x</entry>, and
// name: password, with the value in the next line.
std::size_t NameScan::attribute(const secret_name& name) {
    if (tag_ != Tag::NONE && line_.is(name.from, name.to, "value") && line_.at(name.to) == '=' &&
        line_.in(name.to + 1, QUOTE)) {
        tag_value_ = name.to + 1;
    }
    const bool id = line_.endsWith(name.from, name.to, "id");
    const std::size_t size = id ? 2 : line_.endsWith(name.from, name.to, "key") ? 3 : 4;
    if ((size == 4 && !line_.endsWith(name.from, name.to, "name")) ||
        (name.to - size > name.from && line_.in(name.to - size - 1, LETTER | DIGIT))) {
        return 0;
    }
    std::size_t place = line_.skip(line_.skipOne(name.to, QUOTE), BLANK);
    if (!line_.in(place, SEPARATOR)) {
        return 0;
    }
    place = line_.skip(place + 1, BLANK);
    place = line_.skipOne(place, QUOTE);
    Region& region = regionAt(place);
    if (region.word.from == NOWHERE || region.word.from < place || (id && region.part)) {
        return 0;
    }
    if (tag_ != Tag::NONE && tag_value_ != NOWHERE) {
        const std::size_t value = tag_value_;  // <a value="x" name="password"/>
        tag_value_ = NOWHERE;
        quotedValue(value, false);
    }
    if (tag_ != Tag::NONE && line_.at(name.to) == '=' && line_.in(name.to + 1, QUOTE) &&
        !region.element_sought) {
        region.element_sought = true;
        region.element = elementBehind(region.to);
        if (region.element != NOWHERE) {
            tag_ = Tag::NONE;
            return element(region.element);
        }
    }
    return id || region.divided ? 0 : valueBehind(region.to);
}

// The text of an element whose tag has only plain words behind this quote; NOWHERE when it has
// none.
std::size_t NameScan::elementBehind(std::size_t quote) const {
    int attributes = 0;
    for (std::size_t place = quote + 1; place < line_.size(); ++place) {
        const char c = line_.at(place);
        if (c == '>') {
            place = line_.skip(place + 1, BLANK);
            const bool closed = line_.at(place - 2) == '/';
            if (!closed && line_.says(place, "<value>")) {
                place += 7;
            }
            return line_.at(place) == '<' || line_.hasEnd(place) ? NOWHERE : place;
        }
        if (c == '=' && line_.in(place + 1, QUOTE) && ++attributes < 4 &&
            !line_.endsWith(quote, place, "value")) {
            place = line_.untilByte(place + 2, line_.at(place + 1));
        } else if (c == '<' || c == '=') {
            break;
        }
    }
    return NOWHERE;
}

// Behind a quote, the place behind the attributes of a tag in front of "value": a few at most.
std::size_t NameScan::behindAttributes(std::size_t quote) const {
    constexpr int MOST = 4;
    std::size_t place = line_.skip(quote + 1, BLANK);
    for (int count = 0; count < MOST && tag_ != Tag::NONE && !line_.says(place, "value=");
         ++count) {
        const std::size_t sign = line_.skip(place, NAME);
        if (sign == place || line_.at(sign) != '=' || !line_.in(sign + 1, QUOTE)) {
            break;
        }
        const std::size_t end = line_.untilByte(sign + 2, line_.at(sign + 1));
        place = line_.skip(end + 1, BLANK);
    }
    return line_.says(place, "value=") ? place : quote + 1;
}

std::size_t NameScan::valueBehind(std::size_t quote) {
    if (!region_.value_sought) {
        region_.value_sought = true;
        std::size_t place = behindAttributes(quote);
        place = line_.skipByte(place, ',');
        place = line_.skip(place, BLANK);
        if (line_.hasEnd(place)) {
            line_.state().after_name = line_.ends();
            return 0;
        }
        place = line_.skipOne(place, QUOTE);
        if (line_.says(place, "value")) {
            place = line_.skipOne(place + 5, QUOTE);
            place = line_.skip(place, BLANK);
            if (line_.in(place, SEPARATOR)) {
                place = line_.skip(place + 1, BLANK);
                region_.value = line_.in(place, QUOTE) ? place : NOWHERE;
            }
        }
    }
    return region_.value != NOWHERE ? quotedValue(region_.value, false) : 0;
}

// ---- What is before a quoted value ------------------------------------------------------

// IDENTIFIED BY 'x', IDENTIFIED BY PASSWORD 'x', IDENTIFIED WITH a AS 'x'
std::size_t NameScan::identified(std::size_t to) {
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
        return quotedValue(place, false);
    }
    const std::size_t word = line_.skip(place, LETTER | DIGIT | NAME);
    const bool secret = line_.says(by, "by ") && line_.looksSecret(place, word);
    return secret ? line_.hideWord(place) : 0;
}

// define('DB_PASSWORD', 'x')
std::size_t NameScan::define(std::size_t to) {
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
    return line_.in(place, QUOTE) ? quotedValue(place, false) : 0;
}

// login: me / x; and login me / x, where x looks like a secret
std::size_t NameScan::login(std::size_t to) {
    const bool divided = line_.at(to) == ':';
    std::size_t user = line_.skip(divided ? to + 1 : to, BLANK);
    user = line_.says(user, "with ") ? line_.skip(user + 5, BLANK) : user;
    const std::size_t behind = line_.skip(user, NAME);
    const std::size_t from = behindSlash(behind);
    if (!line_.in(user, LETTER)) {
        return 0;
    }
    if (from == 0) {
        return joined(behind);
    }
    const std::size_t end = line_.until(from, BLANK);
    const bool number = line_.skip(from, DIGIT) == end;
    const bool secret = divided ? !number : line_.looksSecret(from, wordEnd(from, end));
    return secret ? line_.hideWord(from) : 0;
}

// login with me/x, credentials me:x, where x looks like a secret.
std::size_t NameScan::joined(std::size_t sign) {
    constexpr std::size_t LONGEST = 128;
    std::size_t end = sign;
    while (end < sign + LONGEST && !line_.hasEnd(end) && !line_.in(end, VALUE_END)) {
        ++end;
    }
    const std::size_t value_end = wordEnd(sign + 1, end);
    if ((line_.at(sign) != '/' && line_.at(sign) != ':') || end <= sign ||
        !line_.looksSecret(sign + 1, value_end)) {
        return 0;
    }
    line_.hideWithoutEnd(sign + 1, end, STOPS);
    return end;
}

// Where the word behind " / " begins; 0 when these are not there.
std::size_t NameScan::behindSlash(std::size_t place) const {
    const std::size_t sign = line_.skip(place, BLANK);
    const std::size_t from = line_.skip(sign + 1, BLANK);
    return line_.at(sign) != '/' || from == sign + 1 || line_.hasEnd(from) ? 0 : from;
}

// ---- Lists --------------------------------------------------------------------------------------

// ['--password', 'x'], [\"--password\", \"x\"], "--password" "x", with the value in the next line
// perhaps
std::size_t NameScan::listed(const secret_name& name) {
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
        const bool secret = name.from > 0 && line_.in(name.from - 1, QUOTE) && isSecretText(next);
        return secret ? quotedValue(next, false) : 0;
    }
    if (line_.hasEnd(next) && line_.ends()) {
        line_.state().next_word = true;
        return next;
    }
    const bool escaped = line_.at(next) == '\\' && line_.in(next + 1, QUOTE);
    if (line_.at(next) != line_.at(name.to) || (!escaped && !line_.in(next, QUOTE))) {
        return 0;
    }
    return quotedValue(next, false);
}

bool NameScan::isSecretText(std::size_t quote) const {
    return line_.in(quote, QUOTE) && line_.looksSecret(quote + 1, line_.until(quote + 1, QUOTE));
}

// env('PASSWORD') ?: 'x', env.PASSWORD || 'x'
std::size_t NameScan::fallback(const secret_name& name) {
    constexpr std::string_view SIGNS[] = {"?:", "??", "||", "or"};
    const std::size_t closed = line_.skipBytes(line_.skipOne(name.to, QUOTE), ")]");
    const std::size_t sign = line_.skip(closed, BLANK);
    const std::size_t next = line_.skip(sign + 2, BLANK);
    const bool chooses = std::any_of(std::begin(SIGNS), std::end(SIGNS), [&](std::string_view one) {
        return line_.saysExactly(sign, one);
    });
    return chooses && isSecretText(next) ? quotedValue(next, false) : 0;
}

// ---- Directives ---------------------------------------------------------------------------------

// Whether the line begins as one of ".netrc" does, or "login me" is before the name.
bool NameScan::isNetrc(std::size_t from) const {
    const std::size_t login = wordBefore(wordBefore(from));
    return (line_.starts() && line_.says(first_, "machine")) ||
           (login != NOWHERE && line_.says(login, "login") && line_.in(login + 5, BLANK));
}

// Where the word in front of a place begins; NOWHERE when none does.
std::size_t NameScan::wordBefore(std::size_t place) const {
    if (place == NOWHERE) {
        return NOWHERE;
    }
    while (place > 0 && line_.in(place - 1, BLANK)) {
        --place;
    }
    const std::size_t end = place;
    while (place > 0 && !line_.in(place - 1, BLANK)) {
        --place;
    }
    return place < end ? place : NOWHERE;
}

// machine h login me password x, and passwd/root-password password x: a password may hold blanks.
std::size_t NameScan::netrc(const secret_name& name) {
    line_.hideToEnd(line_.skip(name.to, BLANK));
    return line_.size();
}

// Whether what follows a name at the beginning of a line is none of its values: "kpasswd 464/tcp"
// in a list of services, "passwd 1:4.13-1" in one of packages, "NoToken 0 0.0" in one of counters,
// a sentence in a comment.
bool NameScan::tellsNothing(const secret_name& name, std::size_t rest) const {
    if (line_.isPlain(rest, line_.withoutEnd(rest, line_.size(), "; \t\r")) ||
        line_.isArchitecture(rest)) {
        return true;
    }
    const std::size_t port = line_.skip(rest, DIGIT);
    if (port > rest && (line_.says(port, "/tcp") || line_.says(port, "/udp"))) {
        return true;
    }
    if (line_.at(name.from) == '-' && rest > name.to + 2) {
        return true;  // an option and what it does
    }
    const bool more = name.to - name.from > name.word.to - name.word.from;
    const std::size_t second = line_.skip(line_.until(rest, BLANK), BLANK);
    if (line_.says(second, "not ")) {
        return true;  // Token SecPageTables not in hash table
    }
    if (line_.isVersion(rest) && (more || line_.endsWith(name.from, name.to, "passwd"))) {
        return true;
    }
    const bool comment = isComment();
    constexpr std::size_t LONG = 7;  // no passphrase has so many words
    return line_.isOneOf(rest, line_.until(rest, BLANK), PACKAGE_STATES) ||
           line_.isSentence(rest, comment ? 2 : LONG);
}

// "rocommunity x" at the beginning of a line: all that follows the name. In a sentence, what
// follows "the password is".
std::size_t NameScan::directive(const secret_name& name) {
    const std::size_t rest = line_.skip(name.to, BLANK);
    if (!line_.starts() || name.from != directive_ || rest == name.to || line_.hasEnd(rest) ||
        line_.in(rest, SEPARATOR) || isHarmlessName(line_, name)) {
        return 0;
    }
    const bool valued = line_.text().substr(name.from, name.to - name.from).find("auth_pass") !=
                        std::string_view::npos;
    if ((name.word.from == NOWHERE && !valued && naming_ == 0) || tellsNothing(name, rest)) {
        return 0;
    }
    if (naming_ != 0) {
        return namedValue(rest);
    }
    if (line_.isOneOf(name.from, name.to, SECRET_COMMUNITIES)) {
        return line_.hideWord(rest);
    }
    for (const std::string_view control : PAM_CONTROLS) {
        if (line_.endsWith(name.from, name.to, "password") && name.to - name.from <= 9 &&
            line_.says(rest, control)) {
            return name.to;
        }
    }
    if (const std::size_t said = saidOf(name); said != 0 && isOrdinary(name, said)) {
        return said;
    }
    std::size_t end = line_.size();
    if (line_.ends() && line_.at(end - 1) == '\\' && line_.in(end - 2, BLANK)) {
        line_.state().next_word = true;
        end = line_.withoutEnd(rest, end - 1, " \t");
    }
    line_.hide(rest, end, secret_rest::LINE);
    return line_.size();
}

// The value of a directive that has a name in front of it: in quotes, or a word.
std::size_t NameScan::namedValue(std::size_t from) {
    if (line_.in(from, QUOTE)) {
        return quotedValue(from, false);
    }
    const std::size_t end = line_.until(from, BLANK);
    line_.hideWithoutEnd(from, end, ";");
    return end;
}

// ---- Assignments --------------------------------------------------------------------------------

// password = x, "password": x, password for me: x
std::size_t NameScan::assigned(const secret_name& name) {
    const std::size_t from = behindSeparator(name.to);
    if (from == NOWHERE) {
        return 0;
    }
    if (isHarmlessName(line_, name) || isOtherKey(name) || isOtherName(name, from)) {
        return from;
    }
    const bool at_start =
        line_.starts() && line_.at(name.from) != '-' && name.from == line_.skipByte(start_, '$');
    if (opensLines(from)) {
        return line_.size();
    }
    return value(from, name, at_start);
}

// A key that names something else: a rule of the audit system (-F key=x, key="x" in its records),
// the keys of a keyboard (B: KEY=x), a property of an element (<annotate key="a.b">).
bool NameScan::isOtherKey(const secret_name& name) {
    if (!line_.is(name.from, name.to, "key")) {
        return false;
    }
    if (line_.endsWith(0, name.from, "-f ") ||
        (name.from == 3 && (line_.saysExactly(0, "B: KEY=") || line_.saysExactly(0, "E: KEY=")))) {
        return true;
    }
    if (tag_ != Tag::NONE && line_.in(name.to + 1, QUOTE)) {
        const std::size_t end = line_.until(name.to + 2, QUOTE);
        const std::size_t word = line_.skip(name.to + 2, NAME);
        return end == word && !line_.looksSecret(name.to + 2, end);
    }
    return audit_.of(line_, {"audit(", "audit["}) != NOWHERE && name.from > 0 &&
           line_.in(name.from - 1, BLANK);
}

// A name that is none of a secret although it is followed by a sign: passwd:amd64 and passwd:
// /usr/bin/passwd in lists of packages, APT::Key::x, "passwd: files" where names are looked up,
// "passwd: password updated" of the program.
bool NameScan::isOtherName(const secret_name& name, std::size_t from) const {
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
    if (name.from != start_ || line_.at(name.to) != ':') {
        return false;
    }
    if (isComment() && line_.isSentence(from, 3)) {
        return true;
    }
    if (!line_.says(name.from, "passwd")) {
        return false;
    }
    return isNameServices(from) || line_.says(from, "password ") || line_.isSentence(from, 3);
}

bool NameScan::isNameServices(std::size_t from) const {
    while (!line_.hasEnd(from)) {
        const std::size_t end = line_.until(from, BLANK);
        if (!line_.isOneOf(from, end, NAME_SERVICES)) {
            return false;
        }
        from = line_.skip(end, BLANK);
    }
    return true;
}

std::size_t NameScan::behindSeparator(std::size_t to) const {
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

// Whether the value is in the next lines: an open list, a block of indented lines.
bool NameScan::opensLines(std::size_t from) {
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

// ---- Words behind a name ------------------------------------------------------------------------

// Whether the next word is the value without any sign between them: --password x, auth_pass x.
bool NameScan::takesNextWord(const secret_name& name) const {
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
    return name.to - name.from == 3 && line_.saysExactly(name.from, "-pw");
}

std::size_t NameScan::option(const secret_name& name) {
    const std::size_t rest = line_.skip(name.to, BLANK);
    const bool whole_word = name.word.to == name.to;
    if (line_.at(rest) == '(' && whole_word) {
        const std::size_t quote = line_.skip(rest + 1, BLANK);
        if (line_.in(quote, QUOTE)) {
            const std::size_t end = quotedValue(quote, false);
            const std::size_t second = line_.skip(end + 1, BLANK);
            return line_.at(end) == ',' && line_.in(second, QUOTE) ? quotedValue(second, false)
                                                                   : end;
        }
    }
    if (line_.says(rest, "-string ") && whole_word) {  // ConvertTo-SecureString -String "x"
        return value(line_.skip(rest + 8, BLANK), name, false);
    }
    if (name.is_short && (quotedAtEnd(name, rest) || quotedSecret(name, rest))) {
        return quotedValue(rest, false);
    }
    if (rest == name.to || line_.hasEnd(rest) || rest > name.to + 2 ||
        (line_.at(rest) == '(' && line_.at(name.from) != '-') ||
        (password_to_ != NOWHERE && line_.says(rest, "password") && line_.in(rest + 8, BLANK))) {
        return 0;
    }
    const bool wireless =
        whole_word && line_.endsWith(name.from, name.to, "key") && line_.says(name.word.from, "w");
    if (takesNextWord(name) || wireless || (whole_word && line_.in(rest, QUOTE))) {
        return value(rest, name, false);
    }
    if (const std::size_t next = sentence(name); next != 0) {
        return next;
    }
    if (const std::size_t next = remark(name, rest); next != 0) {
        return next;
    }
    if (const std::size_t next = number(name, rest); next != 0) {
        return next;
    }
    return spoken(name, rest);
}

// store pass 'x': where x looks like a secret.
bool NameScan::quotedSecret(const secret_name& name, std::size_t quote) const {
    return quote > name.to && name.short_from == name.from && isSecretText(quote);
}

// pass "x" at the end of a line, as the first thing of it or of a user.
bool NameScan::quotedAtEnd(const secret_name& name, std::size_t quote) {
    if (!line_.in(quote, QUOTE) || quote == name.to || !line_.is(name.from, name.to, "pass")) {
        return false;
    }
    if (name.from != first_ && user_.of(line_, {"user "}) > name.from) {
        return false;
    }
    const std::size_t end = line_.closing(quote + 1, line_.text().substr(quote, 1));
    return line_.hasEnd(line_.skipBytes(end + 1, " \t\r;"));
}

// Whether "user me" is before the name.
bool NameScan::ofUser(const secret_name& name) const {
    const std::size_t word = wordBefore(wordBefore(name.from));
    return word != NOWHERE && line_.says(word, "user") && line_.in(word + 4, BLANK);
}

// Where a value would be behind a name without any sign: with token x, password to x, key 1: x.
std::size_t NameScan::behindFiller(std::size_t from) const {
    for (const std::string_view filler : {"to ", "set to ", "changed to ", "-v ", "--value "}) {
        if (line_.says(from, filler)) {
            return line_.skip(from + filler.size(), BLANK);
        }
    }
    const std::size_t number = line_.skip(from, DIGIT);
    return number > from && line_.says(number, ": ") ? line_.skip(number + 2, BLANK) : from;
}

// with token x, user me password x: a word behind a name that is the whole of a word, where it
// looks like a secret. Of keys there are too many.
std::size_t NameScan::spoken(const secret_name& name, std::size_t rest) {
    const bool key =
        name.word.from == NOWHERE && line_.endsWith(name.from, name.to, "key") && !name.is_second;
    const char sign = name.from > 0 ? line_.at(name.from - 1) : ' ';
    if (!endsInName(name, key) || sign == '@' || (sign == '/' && !isOneOfTwo(name))) {
        return 0;
    }
    const std::size_t from = behindFiller(rest);
    const std::size_t whole = line_.until(from, VALUE_END);
    const std::size_t home = line_.text().substr(from, whole - from).find(":/");
    const std::size_t end = home != NOWHERE && isHome(from + home) ? from + home : whole;
    const std::size_t before = wordBefore(name.from);
    const bool with = !key || from != rest || (before != NOWHERE && line_.says(before, "with "));
    const bool user = line_.at(name.from) != '-' && first_ == wordBefore(before) && ofUser(name) &&
                      !isOrdinary(name, from);
    if (!user && (!with || !line_.looksSecret(from, wordEnd(from, end)))) {
        if (key) {
            return 0;
        }
        const std::size_t middle = line_.skip(from, NAME);
        if (const std::size_t next = joined(middle); next != 0) {  // credentials me:x
            return next;
        }
        const std::size_t next = beforeSign(from, middle);
        return next != 0 ? next : distant(name, rest);
    }
    return hideSaid(from);
}

// login/password x, kv put shop/password x
bool NameScan::isOneOfTwo(const secret_name& name) {
    std::size_t from = name.from - 1;
    while (from > 0 && line_.in(from - 1, LETTER) && name.from - from < 20) {
        --from;
    }
    return put_.of(line_, {" put "}) < name.from ||
           line_.isOneOf(from, name.from - 1, ACCESS_WORDS);
}

// What people put in front of a value: an arrow, a sign, a quote of their language.
std::size_t NameScan::behindOpening(std::size_t from) const {
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
bool NameScan::isApostrophe(std::size_t place) const {
    const bool letter =
        line_.in(place + 1, LETTER) || static_cast<unsigned char>(line_.at(place + 1)) >= 0x80;
    return line_.at(place) == '\'' && place > 0 && line_.in(place - 1, LETTER) && letter;
}

// pw -> x, the password of bob is x, mot de passe du site : x: where no more than a few words
// are between the two, and what looks like a secret is not the object of one: password for x.
std::size_t NameScan::distant(const secret_name& name, std::size_t from) {
    constexpr int MOST = 4;
    constexpr std::size_t SHORTEST = 8;
    const bool verb = line_.isOneOf(name.from, name.to, SECRET_VERBS) &&
                      !line_.saysExactly(from, "->") && !line_.saysExactly(from, "→");
    bool object = false;
    bool behind_colon = false;
    if (verb || !isPassword(name) || line_.at(name.from) == '-') {
        return 0;
    }
    for (int words = 0; words < MOST && !line_.hasEnd(from); ++words) {
        from = behindOpening(from);
        std::size_t end = from;
        while (!line_.hasEnd(end) && line_.at(end) != '`' && line_.at(end) != ']' &&
               (!line_.in(end, BLANK | QUOTE) || isApostrophe(end))) {
            ++end;
        }
        std::size_t value_end = wordEnd(from, end);
        while (value_end > from && static_cast<unsigned char>(line_.at(value_end - 1)) >= 0x80) {
            --value_end;  // a closing quote
        }
        // Behind a colon a stop may belong to it: it ends no sentence there.
        const std::size_t stop = line_.text().substr(from, value_end - from).find('.');
        const std::size_t part = behind_colon && stop != NOWHERE ? from + stop : value_end;
        if (value_end >= from + SHORTEST && line_.looksSecret(from, part)) {
            if (object) {
                return 0;
            }
            const bool cut = line_.hasEnd(end) && !line_.ends();
            line_.hide(from, cut ? end : value_end, secret_rest::WORD);
            return end;
        }
        const bool divided = line_.at(end - 1) == ':' && end > from + 1;
        const std::size_t word = divided ? end - 1 : end;
        const std::size_t letters = line_.skip(from, NAME);
        const bool joins = isApostrophe(letters) && line_.skip(letters + 1, NAME) >= word;
        if (word == from || (letters < word && !joins) || line_.has(from, word, DIGIT)) {
            return 0;
        }
        behind_colon = divided;
        object = !divided && line_.isOneOf(from, word, OBJECT_WORDS);
        from = line_.skip(end, BLANK);
    }
    return 0;
}

// Whether a name is that of a password: of no token, community or other credential.
bool NameScan::isPassword(const secret_name& name) const {
    constexpr std::string_view OTHERS[] = {"secret", "token", "credential", "community", "auth"};
    return std::none_of(std::begin(OTHERS), std::end(OTHERS),
                        [&](std::string_view word) { return line_.says(name.word.from, word); });
}

// Whether a name is the whole of a word, or the last part of one: the password, db-pw, storepass.
bool NameScan::endsInName(const secret_name& name, bool key) const {
    const std::size_t last = line_.says(name.word.to, "s") ? name.word.to + 1 : name.word.to;
    return (name.word.from == name.from && (name.word.to == name.to || last == name.to)) ||
           line_.saysExactly(name.from, "_auth") ||
           (name.is_short && (key ? name.short_from == name.from : name.short_from != NOWHERE)) ||
           name.ends_in_pass || name.is_second ||
           (name.word.to == name.to && name.word.from > name.from && isPassword(name) &&
            !line_.in(name.word.from - 1, LETTER | DIGIT));
}

// Whether the line is one of /etc/passwd: bob:x:1000:1000:
bool NameScan::isAccount() const {
    const std::size_t name = line_.skip(0, NAME);
    if (!line_.starts() || line_.at(name) != ':' || line_.at(name + 2) != ':') {
        return false;
    }
    const std::size_t user = line_.skip(name + 3, DIGIT);
    return user > name + 3 && line_.at(user) == ':' && line_.at(line_.skip(user + 1, DIGIT)) == ':';
}

// Whether the home directory of a user begins there: behind his comment.
bool NameScan::isHome(std::size_t place) const {
    return account_ && line_.saysExactly(place, ":/");
}

// Hides a word of a sentence. A stop behind it is none of it, and a sign that many a password ends
// with is.
std::size_t NameScan::hideSaid(std::size_t from) {
    std::size_t end = from;
    while (!line_.hasEnd(end) && !line_.in(end, BLANK | QUOTE) && line_.at(end) != '<' &&
           !isHome(end)) {
        ++end;
    }
    line_.hideWithoutEnd(from, end, ".,;:)\r");
    return end;
}

// PIN 1234
std::size_t NameScan::number(const secret_name& name, std::size_t from) {
    const std::size_t end = line_.skip(from, DIGIT);
    const bool pin = line_.saysExactly(name.from, "PIN") || line_.saysExactly(name.from, "PUK");
    if (!pin || name.to != name.from + 3 || end < from + 4 || end > from + 10 ||
        line_.in(end, NAME) || line_.in(line_.skip(end, BLANK), DIGIT)) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return end;
}

// (pw x), as in a comment or beside the name of a user: one word that is none of a sentence.
std::size_t NameScan::remark(const secret_name& name, std::size_t from) {
    const std::size_t end = line_.untilOneOf(from, BLANK | QUOTE, ")");
    if (!inParentheses(name) || line_.at(end) != ')' || end == from || !isPassword(name) ||
        (name.word.from == NOWHERE && name.short_from != name.from) ||
        line_.endsWith(name.from, name.to, "key") || line_.looksOrdinary(from, end) ||
        line_.isPlain(from, end)) {
        return 0;
    }
    line_.hide(from, end, secret_rest::WORD);
    return end;
}

// pw x: in a field of a line that goes on behind ":" or ",".
std::size_t NameScan::beforeSign(std::size_t from, std::size_t sign) {
    if ((line_.at(sign) != ':' && line_.at(sign) != ',') || !line_.looksSecret(from, sign)) {
        return 0;
    }
    line_.hide(from, sign, secret_rest::WORD);
    return sign;
}

// Where the value begins in "the token is x"; 0 when this is no such sentence.
std::size_t NameScan::saidOf(const secret_name& name) const {
    std::size_t place = line_.skip(name.to, BLANK);
    const std::size_t verb = line_.skip(place, LETTER);
    if (place == name.to || !line_.in(verb, BLANK) || !line_.isOneOf(place, verb, SAYING_VERBS)) {
        return 0;
    }
    const bool foreign = !line_.says(place, "is ") && !line_.says(place, "was ");
    place = line_.skip(verb, BLANK);
    if (foreign && !line_.looksSecret(place, wordEnd(place, line_.until(place, VALUE_END)))) {
        return 0;
    }
    for (const std::string_view filler : {"now ", "still ", "set to ", "changed to "}) {
        place = line_.says(place, filler) ? line_.skip(place + filler.size(), BLANK) : place;
    }
    if (line_.says(place, "generated for ")) {  // "... for root@localhost: x"
        const std::size_t end = line_.until(line_.skip(place + 13, BLANK), BLANK);
        place = line_.at(end - 1) == ':' ? line_.skip(end, BLANK) : place;
    }
    return place;
}

// The end of a word of a sentence, without the stop behind it.
std::size_t NameScan::wordEnd(std::size_t from, std::size_t to) const {
    return line_.withoutEnd(from, to, STOPS);
}

// Whether a word that follows "is" is none but that of a sentence: one of the table, or one like
// "moved" and "usually". Behind a short name it is unless a digit says otherwise; the length of a
// key is no secret.
bool NameScan::isOrdinary(const secret_name& name, std::size_t from) const {
    const std::size_t end = wordEnd(from, line_.until(from, VALUE_END));
    if (line_.isOneOf(from, end, ORDINARY_WORDS) || line_.isPlain(from, end)) {
        return true;
    }
    bool digits = false;
    bool small = true;
    for (std::size_t place = from; place < end; ++place) {
        digits = digits || line_.in(place, DIGIT);
        small = small && line_.at(place) >= 'a' && line_.at(place) <= 'z';
    }
    if (small && (line_.endsWith(from, end, "ed") || line_.endsWith(from, end, "ly"))) {
        return true;
    }
    const bool key = line_.endsWith(name.from, name.to, "key") && !name.is_second;
    return name.word.from == NOWHERE && (!digits || key);
}

std::size_t NameScan::sentence(const secret_name& name) {
    const std::size_t from = saidOf(name);
    if (from == 0 || line_.hasEnd(from)) {
        return 0;
    }
    if (line_.in(from, QUOTE)) {
        return quotedValue(from, false);
    }
    if (isOrdinary(name, from)) {
        return from;
    }
    return hideSaid(from);
}

// ---- Values -------------------------------------------------------------------------------------

// The value that begins there, of a name that is the first thing of its line to the end of that.
std::size_t NameScan::value(std::size_t from, const secret_name& name, bool at_start) {
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
        return quotedValue(prefixed, at_start);
    }
    constexpr std::size_t DEEP = 7;  // a text in a text in a text
    const std::size_t quote = line_.skipBytes(from, "\\");
    if (quote <= from + DEEP && line_.in(quote, QUOTE)) {
        return quotedValue(from, at_start);
    }
    if ((line_.at(from) == '[' || line_.at(from) == '{') && !line_.saysExactly(from, "[^")) {
        return list(from);
    }
    if (name.word.from != NOWHERE && line_.says(name.word.from, "authorization")) {
        return authorization(from);
    }
    from = behindCredential(name, from);
    return bareValue(at_start ? from : behindScheme(from), name, at_start);
}

// _auth=basic me:x
std::size_t NameScan::behindScheme(std::size_t from) const {
    const std::size_t end = line_.skip(from, LETTER);
    const std::size_t next = line_.skip(end, BLANK);
    const std::size_t colon = line_.skip(next, NAME);
    const bool scheme = line_.isOneOf(from, end, LOGIN_SCHEMES) && next > end;
    const bool pair = line_.at(colon) == ':' && !line_.in(colon + 1, BLANK);
    return scheme && (pair || line_.looksSecret(next, line_.until(next, VALUE_END))) ? next : from;
}

// What some languages put in front of a quote: N'x', b'x', string(1) "x".
std::size_t NameScan::behindPrefix(std::size_t from) const {
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

// SetCredential=name:x
std::size_t NameScan::behindCredential(const secret_name& name, std::size_t from) const {
    const std::size_t colon = line_.skip(from, NAME);
    const bool named = line_.endsWith(name.from, name.to, "setcredential") ||
                       line_.endsWith(name.from, name.to, "setcredentialencrypted") ||
                       line_.endsWith(name.from, name.to, "set_credential");
    return named && colon > from && line_.at(colon) == ':' ? line_.skip(colon + 1, BLANK) : from;
}

// ["x", "y"], and all else that begins with such a sign to the end of the line.
std::size_t NameScan::list(std::size_t from) {
    std::size_t place = line_.skip(from + 1, BLANK);
    while (line_.at(from) == '[' && line_.in(place, QUOTE)) {
        place = line_.skip(quotedValue(place, false), BLANK);
        if (line_.at(place) == ']') {
            return place;
        }
        place = line_.at(place) == ',' ? line_.skip(place + 1, BLANK) : place;
    }
    line_.hideToEnd(from);
    return line_.size();
}

std::size_t NameScan::authorization(std::size_t from) {
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

std::size_t NameScan::quotedValue(std::size_t from, bool at_start) {
    const bool escaped = line_.at(from) == '\\';
    const std::size_t first = line_.skipBytes(from, "\\");
    const std::string_view quote = line_.text().substr(from, first + 1 - from);
    const std::size_t begin = from + quote.size();
    const std::size_t end = line_.closing(begin, quote);
    if (!line_.hasEnd(end)) {
        if (!line_.isPlain(begin, end)) {
            line_.hide(begin, end, secret_rest::LINE);
        }
        return end + quote.size();
    }
    if (at_start && line_.ends() && quote.size() <= 2) {
        line_.state().open_until = escaped           ? (quote[1] == '"' ? "\\\"" : "\\'")
                                   : quote[0] == '"' ? "\""
                                                     : "'";
        line_.state().open_lines = 50;
    }
    line_.hide(begin, end,
               quote.back() == '"' ? secret_rest::DOUBLE_QUOTED : secret_rest::SINGLE_QUOTED);
    return end;
}

// The end of a value that goes on to the end of its line, unless something follows that shows that
// this is a command line: name=value, a path, an option.
std::size_t NameScan::lineValueEnd(std::size_t from) const {
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

// Whether "&" is a byte of a value and parts none: it ends no command, and neither the name of
// another value nor that of a character follows it.
bool NameScan::isInside(std::size_t place) const {
    const std::size_t end = line_.skip(place + 1, NAME);
    return line_.at(place) == '&' && end > place + 1 && line_.at(end) != '=' &&
           line_.at(end) != ';' && line_.at(end) != '[';
}

// The sign between the values of the list that a value is in; a blank when it is in none.
char NameScan::listSign(std::size_t from, const secret_name& name) const {
    std::size_t before = name.from;
    while (before > 0 && line_.at(before - 1) == ' ') {
        --before;
    }
    const char sign = before > 0 && line_.at(from - 1) == '=' ? line_.at(before - 1) : ' ';
    return sign == ',' || sign == ';' ? sign : ' ';
}

// Whether the value of a PIN is one: digits, with no more than signs behind them. Other things of
// that name, such as the choice of a package version, are not, and what is in their value is
// checked by itself.
bool NameScan::isNumber(std::size_t from, const secret_name& name) const {
    const char sign = listSign(from, name);
    std::size_t end = line_.skip(from, DIGIT);
    while (line_.at(end) != sign && VALUE_SIGNS.find(line_.at(end)) != NOWHERE) {
        ++end;
    }
    return line_.hasEnd(end) || line_.at(end) == sign ||
           (line_.in(end, VALUE_END) && !isInside(end));
}

// The end of a value that is a word: in a list of such values, as mount options and connections to
// databases have them, at the sign between them.
std::size_t NameScan::wordValueEnd(std::size_t from, const secret_name& name) const {
    const char sign = listSign(from, name);
    std::size_t end = from;
    while (!line_.hasEnd(end) && (!line_.in(end, VALUE_END) || isInside(end)) &&
           line_.at(end) != sign) {
        ++end;
    }
    return inParentheses(name) && end > from + 1 && line_.at(end - 1) == ')' ? end - 1 : end;
}

std::size_t NameScan::bareValue(std::size_t from, const secret_name& name, bool at_start) {
    const bool pin = name.is_pin && name.word.from == NOWHERE;
    if (pin && !isNumber(from, name)) {
        return from;
    }
    if (!at_start && line_.isPath(from)) {  // credentials=/etc/x,password2=y
        std::size_t comma = from;
        while (line_.in(comma, NAME) || line_.at(comma) == '/') {
            ++comma;
        }
        if (line_.at(comma) == ',') {
            return comma;
        }
    }
    const std::size_t end = at_start ? lineValueEnd(from) : wordValueEnd(from, name);
    if (!at_start && line_.in(end, QUOTE) && end > from + 1 && line_.at(end - 1) == '(') {
        return quotedValue(end, false);  // password=MD5('x')
    }
    const std::size_t value_end = line_.withoutEnd(from, end, VALUE_SIGNS);
    if (pin && line_.skip(from, DIGIT) < value_end) {
        return from;  // numbers and words, as in a table
    }
    const bool said = inParentheses(name) && line_.isOneOf(from, value_end, ORDINARY_WORDS);
    if (!said && !line_.isPlain(from, value_end) && !line_.isPlain(from, end)) {
        line_.hide(from, end, at_start ? secret_rest::LINE : secret_rest::WORD);
    }
    // credentials: me / x
    const std::size_t second = behindSlash(end);
    if (second != 0 && line_.looksSecret(second, wordEnd(second, line_.until(second, BLANK)))) {
        return line_.hideWord(second);
    }
    return end;
}

}  // namespace

void markNames(SecretLine& line) {
    NameScan(line).run();
}
