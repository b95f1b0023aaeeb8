// Values that are known by their format: hashes of passwords, keys of well known services.
#include "tool/IGSecretBeginning.h"
#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretShapeRules.h"

namespace {

// The first two bytes of every format: ShapeScan::at() decides by the first which one it may be.
constexpr PairFilter makeShapeFilter() {
    PairFilter filter;
    for (const secret_shape& shape : SECRET_SHAPES) {
        filter.add(shape.beginning[0], shape.beginning[1]);
    }
    for (const std::string_view address : HOOK_ADDRESSES) {
        filter.add(address[0], address[1]);
    }
    filter.add('g', 'h');  // ghp_, gho_, ...
    filter.add('x', 'o');  // xoxb-, xoxp-, ...
    filter.add('/', 'b');  // /bot12:x
    filter.add('B', 'e');
    filter.add('B', 'a');
    filter.add('o', 'o');  // Cookie
    filter.add('S', 'C');  // SCRAM-SHA-256$
    filter.add('H', 'E');  // HEX:12AB
    filter.add('m', 'd');  // md5 and a number
    filter.add('a', 'u');
    filter.add('e', 'n');
    for (const std::string_view scheme : CRYPT_SCHEMES) {
        filter.add('$', scheme[0]);
    }
    for (const std::string_view scheme : DIRECTORY_SCHEMES) {
        filter.add('{', scheme[0]);
    }
    for (const std::string_view scheme : CLEAR_SCHEMES) {
        filter.add(scheme[0], scheme[1]);
    }
    filter.add(':', 'A');  // 123456789:AAx
    filter.add('b', '3');  // the beginning of a key, without its first line
    for (const char digit : std::string_view("0123456789ABCDEF")) {
        filter.add('*', digit);
    }
    return filter;
}
constexpr PairFilter SHAPE_BEGINNINGS = makeShapeFilter();

constexpr auto KEY_BEGINNINGS = filterOf<BeginningFilter>(SECRET_SHAPES, &secret_shape::beginning);

// Goes through a line once. Each function hides a value of its format that begins at a place, and
// returns the place where to continue, or 0 when no such value begins there.
class ShapeScan {
  public:
    explicit ShapeScan(SecretLine& line) : line_(line) {}
    void run() {
        for (std::size_t place = 0; place < line_.size();) {
            const std::size_t next =
                SHAPE_BEGINNINGS.has(line_.at(place), line_.at(place + 1)) ? at(place) : 0;
            place = next > place ? next : place + 1;
        }
    }

  private:
    std::size_t at(std::size_t place) {
        switch (line_.at(place)) {
            case '$':
                return crypt(place);
            case '{':
                return directory(place);
            case '*':
                return stars(place);
            case '/':
                return line_.at(place + 1) == 'b' ? bot(place) : hook(place);
            case 'B':
                return scheme(place);
            case 'o':
                return cookie(place);
            case 'S':
                return line_.at(place + 1) == 'C' ? scram(place) : shape(place);
            case ':':
                return botKey(place);
            case 'b':
                return keyText(place);
            case 'H':
                return hexadecimal(place, "HEX:");
            case 'm':
                return hexadecimal(place, "md5");
            case 'a':
            case 'e':
                return line_.at(place + 1) == 'y' ? shape(place) : base64(place);
            case 'h':
                return line_.at(place + 1) == 'o' ? hook(place) : shape(place);
            default:
                return shape(place);
        }
    }
    std::size_t crypt(std::size_t place);
    std::size_t directory(std::size_t place);
    std::size_t stars(std::size_t place);
    std::size_t bot(std::size_t place);
    std::size_t botKey(std::size_t place);
    std::size_t keyText(std::size_t place);
    std::size_t hook(std::size_t place);
    std::size_t scheme(std::size_t place);
    std::size_t cookie(std::size_t place);
    std::size_t scram(std::size_t place);
    std::size_t hexadecimal(std::size_t place, std::string_view beginning);
    std::size_t base64(std::size_t place);
    std::size_t shape(std::size_t place);
    std::size_t service(std::size_t place);
    std::size_t key(std::size_t place, const secret_shape& shape);
    std::size_t stretchEnd(std::size_t place);
    [[nodiscard]] bool isMixed(std::size_t from, std::size_t to) const;
    [[nodiscard]] bool isApart(std::size_t place) const;
    // Hides a stretch of at least `shortest` bytes.
    // @return the end of the stretch, hidden or not
    std::size_t hideLong(std::size_t from, std::size_t to, std::size_t shortest) {
        if (to - from >= shortest) {
            line_.hide(from, to, secret_rest::WORD);
        }
        return to;
    }
    SecretLine& line_;
    std::size_t stretch_from_ = 0;
    std::size_t stretch_to_ = 0;
};

std::size_t ShapeScan::crypt(std::size_t place) {
    const std::size_t end = line_.skip(place + 1, LETTER | DIGIT);
    for (const std::string_view name : CRYPT_SCHEMES) {
        if (name.size() == end - place - 1 && line_.saysExactly(place + 1, name) &&
            line_.at(end) == '$' && line_.in(end + 1, HASH)) {
            const std::size_t last = line_.skip(end + 1, HASH);
            line_.hide(place, last, secret_rest::WORD);
            return last;
        }
    }
    return end;
}

std::size_t ShapeScan::directory(std::size_t place) {
    for (const std::string_view scheme : CLEAR_SCHEMES) {
        const std::size_t from = place + scheme.size();
        std::size_t end = from;
        while (line_.saysExactly(place, scheme) && !line_.hasEnd(end) &&
               !line_.in(end, BLANK | QUOTE) && line_.at(end) != ':') {
            ++end;
        }
        if (end > from) {
            line_.hide(from, end, secret_rest::WORD);
            return end;
        }
    }
    for (const std::string_view name : DIRECTORY_SCHEMES) {
        if (!line_.saysExactly(place + 1, name)) {
            continue;
        }
        std::size_t end = place + 1 + name.size();
        while (line_.in(end, DIGIT) || line_.at(end) == '-' ||
               (line_.at(end) >= 'A' && line_.at(end) <= 'Z')) {
            ++end;
        }
        if (line_.at(end) == '}' && line_.in(end + 1, HASH)) {
            const std::size_t last = line_.skip(end + 1, HASH);
            line_.hide(place, last, secret_rest::WORD);
            return last;
        }
    }
    return 0;
}

// The hash of a password of MySQL: a star and forty digits.
std::size_t ShapeScan::stars(std::size_t place) {
    return hideLong(place, line_.skip(place + 1, HEXADECIMAL), 41);
}

std::size_t ShapeScan::bot(std::size_t place) {
    const std::size_t number = place + 4;
    const std::size_t colon = line_.skip(number, DIGIT);
    if (!line_.saysExactly(place, "/bot") || colon == number || line_.at(colon) != ':' ||
        !line_.in(colon + 1, KEY)) {
        return 0;
    }
    const std::size_t end = line_.skip(colon + 1, KEY);
    line_.hide(number, end, secret_rest::WORD);
    return end;
}

// 123456789:AAx
std::size_t ShapeScan::botKey(std::size_t place) {
    constexpr std::size_t SIZE = 35;
    const std::size_t end = stretchEnd(place + 1);
    std::size_t digits = place;
    while (digits > 0 && place - digits < 11 && line_.in(digits - 1, DIGIT)) {
        --digits;
    }
    if (end - place - 1 != SIZE || place - digits < 8 || place - digits > 10) {
        return 0;
    }
    line_.hide(place + 1, end, secret_rest::WORD);
    return end;
}

// The first line of a key of OpenSSH without a title. Its other lines follow.
std::size_t ShapeScan::keyText(std::size_t place) {
    secret_state& state = line_.state();
    if (!line_.saysExactly(place, "b3BlbnNzaC1rZXktdjE") || !isApart(place)) {
        return 0;
    }
    const std::size_t end = line_.skip(place, BASE64);
    line_.hide(place, end, secret_rest::WORD);
    if (line_.hasEnd(line_.skip(end, BLANK)) && line_.ends() && !state.in_key) {
        state.in_key = state.key_seen = true;
        state.key_headers = false;
        state.key_alone = place == line_.skip(0, BLANK);
        state.key_column = place;
        state.key_blank_lines = 0;
    }
    return end;
}

std::size_t ShapeScan::hook(std::size_t place) {
    for (const std::string_view address : HOOK_ADDRESSES) {
        if (line_.saysExactly(place, address)) {
            const std::size_t from = place + address.size();
            const std::size_t end = line_.until(from, BLANK | QUOTE);
            line_.hide(from, end, secret_rest::WORD);
            return end;
        }
    }
    return 0;
}

// Bearer x, Basic x
std::size_t ShapeScan::scheme(std::size_t place) {
    const std::size_t word = line_.saysExactly(place, "Bearer ")  ? 6
                             : line_.saysExactly(place, "Basic ") ? 5
                                                                  : 0;
    if (word == 0) {
        return 0;
    }
    std::size_t from = place + word;
    while (line_.at(from) == ' ') {
        ++from;
    }
    std::size_t end = from;
    bool is_word = true;  // a word of a sentence: letters, of which only the first may be a capital
    while (line_.in(end, NAME | BASE64) || line_.at(end) == '~') {
        const char c = line_.at(end);
        is_word = is_word && line_.in(end, LETTER) && (end == from || c >= 'a');
        ++end;
    }
    if (end - place > 15 && (word == 6 || !is_word)) {
        line_.hide(from, end, secret_rest::WORD);
    }
    return end;
}

// Cookie: x, Set-Cookie: x. The place is behind the "C".
std::size_t ShapeScan::cookie(std::size_t place) {
    if (!line_.saysExactly(place, "ookie: ") || place == 0 || !line_.says(place - 1, "c")) {
        return 0;
    }
    std::size_t from = place - 1;
    if (from >= 4 && line_.says(from - 4, "set-")) {
        from -= 4;
    }
    if (from > 0 && line_.in(from - 1, LETTER)) {
        return 0;
    }
    line_.hideToEnd(place + 7);
    return line_.size();
}

// SCRAM-SHA-256$4096:x
std::size_t ShapeScan::scram(std::size_t place) {
    const std::size_t sign = line_.skip(place, KEY);
    if (!line_.saysExactly(place, "SCRAM-SHA-") || line_.at(sign) != '$') {
        return sign;
    }
    const std::size_t end = line_.until(sign, BLANK | QUOTE);
    line_.hide(sign + 1, end, secret_rest::WORD);
    return end;
}

// HEX:12AB..., md512ab...: sixteen bytes or more.
std::size_t ShapeScan::hexadecimal(std::size_t place, std::string_view beginning) {
    constexpr std::size_t SHORTEST = 32;
    const std::size_t from = place + beginning.size();
    const std::size_t end = line_.skip(from, ANY_HEXADECIMAL);
    if (!line_.saysExactly(place, beginning) || !isApart(place) || line_.in(end, KEY)) {
        return 0;
    }
    return hideLong(from, end, SHORTEST);
}

// "auth": "bWU6...", encrypt = "...": user and password of a registry, a key
std::size_t ShapeScan::base64(std::size_t place) {
    const std::size_t size = line_.saysExactly(place, "auth")      ? 4
                             : line_.saysExactly(place, "encrypt") ? 7
                                                                   : 0;
    if (size == 0 || (place > 0 && (line_.in(place - 1, LETTER) || line_.at(place - 1) == '_'))) {
        return 0;
    }
    std::size_t next = place + size;
    next = line_.skip(line_.skipOne(next, QUOTE), BLANK);
    if (!line_.in(next, SEPARATOR)) {
        return 0;
    }
    next = line_.skip(next + 1, BLANK);
    if (!line_.in(next, QUOTE)) {
        return 0;
    }
    const std::size_t end = line_.until(next + 1, QUOTE);
    std::size_t from = end;
    while (from > next + 1 && line_.in(from - 1, BASE64)) {
        --from;
    }
    if (size == 4 && place > 0 && line_.at(place - 1) == '"' && from == next + 1 &&
        isMixed(from, end)) {
        line_.hide(from, end, secret_rest::WORD);
        return end;
    }
    // Only this stretch was checked: another value may begin in front of it.
    return end - from > 7 ? hideLong(from, end, 8) : 0;
}

// Whether a word of 4 bytes or more has a digit, a sign, or a capital behind its first letter.
bool ShapeScan::isMixed(std::size_t from, std::size_t to) const {
    for (std::size_t place = from; place < to; ++place) {
        const char c = line_.at(place);
        if (!line_.in(place, LETTER) || (place > from && c <= 'Z')) {
            return to - from > 3;
        }
    }
    return false;
}

// Whether no letter or digit is in front of a place, apart from those of an escape such as "%3A".
bool ShapeScan::isApart(std::size_t place) const {
    if (place == 0 || !line_.in(place - 1, LETTER | DIGIT)) {
        return true;
    }
    return place > 2 && line_.at(place - 3) == '%';  // %3A
}

std::size_t ShapeScan::shape(std::size_t place) {
    if (!KEY_BEGINNINGS.has(line_, place)) {
        return service(place);
    }
    for (const secret_shape& one : SECRET_SHAPES) {
        if (line_.saysExactly(place, one.beginning) && (!one.apart || isApart(place)) &&
            !line_.saysExactly(place, "sk-ssh-") && !line_.saysExactly(place, "sk-ecdsa-")) {
            if (const std::size_t next = key(place, one); next != 0) {
                return next;
            }
        }
    }
    return service(place);
}

// The end of the stretch of letters, digits, "_" and "-" around a place. It is searched once for
// each stretch.
std::size_t ShapeScan::stretchEnd(std::size_t place) {
    if (place < stretch_from_ || place >= stretch_to_) {
        stretch_from_ = place;
        stretch_to_ = line_.skip(place, KEY);
    }
    return stretch_to_;
}

std::size_t ShapeScan::key(std::size_t place, const secret_shape& shape) {
    const std::size_t begin = place + shape.beginning.size();
    std::size_t end = stretchEnd(begin);
    if (shape.then != '\0') {
        if (line_.at(end) != shape.then || !line_.in(end + 1, KEY) || end == begin) {
            return 0;
        }
        ++end;
    }
    while (line_.in(end, KEY) || (shape.dots && line_.at(end) == '.')) {
        ++end;
    }
    return hideLong(place, end, shape.shortest);
}

// ghp_x, gho_x and their like; xoxb-x, xoxp-x and theirs.
std::size_t ShapeScan::service(std::size_t place) {
    const bool github =
        line_.saysExactly(place, "gh") && line_.at(place + 3) == '_' && isApart(place);
    const bool slack = line_.saysExactly(place, "xox") && line_.at(place + 4) == '-';
    if (!github && !slack) {
        return 0;
    }
    return hideLong(place, line_.skip(place + 4, KEY), 20);
}

}  // namespace

void markShapes(SecretLine& line) {
    ShapeScan(line).run();
}
