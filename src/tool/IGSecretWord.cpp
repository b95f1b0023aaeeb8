#include "tool/IGSecretWord.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "tool/IGSecretBeginning.h"
#include "tool/IGSecretLine.h"
#include "tool/IGSecretNameRules.h"

namespace {

constexpr auto WORD_BEGINNINGS = filterOf<BeginningFilter>(SECRET_WORDS);
constexpr auto SHORT_BEGINNINGS = filterOf<PairFilter>(SECRET_SHORTS, &secret_short::word);

// Where a word of SECRET_WORDS that begins at a place ends; 0 when the place has another word.
std::size_t matchWord(const SecretLine& line, std::size_t from, std::string_view word) {
    std::size_t place = from;
    for (const char c : word) {
        if (c == '~') {
            const char here = line.at(place);
            place += here == '-' || here == '_' || here == '.' ? 1 : 0;
        } else if (lowered(line.at(place)) == c) {
            ++place;
        } else {
            return 0;
        }
    }
    return place;
}

// The secret word that begins at a place.
secret_word wordAt(const SecretLine& line, std::size_t from) {
    if (WORD_BEGINNINGS.has(line, from)) {
        const char first = lowered(line.at(from));
        for (const std::string_view word : SECRET_WORDS) {
            if (word[0] != first) {
                continue;
            }
            if (const std::size_t to = matchWord(line, from, word); to != 0) {
                return {from, to};
            }
        }
    }
    return {};
}

std::size_t withoutDigits(const SecretLine& line, std::size_t from, std::size_t to) {
    while (to > from && line.in(to - 1, DIGIT)) {
        --to;
    }
    return to;
}

// The last letters of SECRET_ENDINGS.
constexpr std::array<bool, 256> lastLetters() {
    std::array<bool, 256> letters{};
    for (const secret_short& one : SECRET_ENDINGS) {
        const char c = one.word.back();
        letters[static_cast<unsigned char>(c)] = true;
        letters[static_cast<unsigned char>(c - 'a' + 'A')] = true;
    }
    return letters;
}
constexpr std::array<bool, 256> LAST_LETTERS = lastLetters();

// The row of a short word; null for any other part of a name.
const secret_short* shortWord(const SecretLine& line, std::size_t from, std::size_t to) {
    if (!SHORT_BEGINNINGS.has(line.at(from), line.at(from + 1))) {
        return nullptr;
    }
    const std::size_t end = withoutDigits(line, from, to);
    for (const secret_short& one : SECRET_SHORTS) {
        const std::size_t last = one.numbered ? end : to;
        if (line.is(from, last, one.word)) {
            return &one;
        }
    }
    return nullptr;
}

void readShortWords(const SecretLine& line, secret_name* name) {
    std::size_t before = name->from;  // the part before
    for (std::size_t from = name->from; from < name->to;) {
        const std::size_t to = line.skip(from, LETTER | DIGIT);
        const secret_short* found = shortWord(line, from, to);
        const bool auth =
            from > name->from && line.at(from - 1) == '_' && line.is(from, to, "auth");
        if (found != nullptr || auth) {
            name->is_short = true;
            name->short_to = to;
            name->is_pin = name->is_pin || (found != nullptr && found->word == "pin");
            name->short_from = to != name->to ? NOWHERE : auth ? before : from;
        }
        before = from;
        from = to + 1;
    }
}

bool hasEnding(const SecretLine& line, std::size_t from, std::size_t to) {
    const std::size_t end = withoutDigits(line, from, to);
    if (end == from || !LAST_LETTERS[static_cast<unsigned char>(line.at(end - 1))]) {
        return false;
    }
    return std::any_of(std::begin(SECRET_ENDINGS), std::end(SECRET_ENDINGS), [&](const auto& one) {
        const std::size_t last = one.numbered ? end : to;
        return last > from + one.word.size() && line.endsWith(from, last, one.word) &&
               line.in(last - one.word.size() - 1, LETTER | DIGIT);
    });
}

// Whether a name is that of a parameter of an address that signs it: ?sig=x.
bool signsAddress(const SecretLine& line, std::size_t from, std::size_t to) {
    if (from == 0) {
        return false;
    }
    const char before = line.at(from - 1);
    return (before == '?' || before == '&' || before == ';') &&
           line.isOneOf(from, to, SECRET_SIGNATURES);
}

// Whether a word is the second of a row of SECRET_PAIRS, behind the first: recovery code.
bool isSecond(const SecretLine& line, std::size_t from, std::size_t to) {
    if (from == 0 || line.at(from - 1) != ' ' || to - from > 6 || to - from < 3) {
        return false;
    }
    return std::any_of(std::begin(SECRET_PAIRS), std::end(SECRET_PAIRS), [&](const auto& pair) {
        return line.is(from, to, pair.second) && line.endsWith(0, from, pair.first);
    });
}

// Whether a short word is inside a name whose words begin with capitals: dbPwdProd.
bool hasCapitalPart(const SecretLine& line, std::size_t from, std::size_t to) {
    constexpr std::size_t SHORTEST = 5;
    if (to < from + SHORTEST) {
        return false;
    }
    const std::string_view text = line.text();
    for (std::size_t place = from + 1; place + 2 < to; ++place) {
        if (text[place] != 'P' || !line.in(place - 1, LETTER) || line.at(place - 1) < 'a') {
            continue;
        }
        for (const std::string_view word : {"Pwd", "Pw", "Passwd"}) {
            const char next = line.at(place + word.size());
            if (line.saysExactly(place, word) && next >= 'A' && next <= 'Z') {
                return true;
            }
        }
    }
    return false;
}

bool hasPart(const SecretLine& line, const secret_name& name, std::string_view part) {
    for (std::size_t place = name.from; place + part.size() <= name.to; ++place) {
        if (line.says(place, part)) {
            return true;
        }
    }
    return false;
}

// A key that is no secret: the sense key of a disk, the public key of a peer.
bool isHarmlessKey(const SecretLine& line, const secret_name& name) {
    if (!line.endsWith(name.from, name.to, "key")) {
        return false;
    }
    std::size_t before = name.to - 3;
    if (before > 0 &&
        (line.at(before - 1) == ' ' || line.at(before - 1) == '_' || line.at(before - 1) == '-')) {
        --before;
    }
    return std::any_of(std::begin(HARMLESS_KEYS), std::end(HARMLESS_KEYS),
                       [&](std::string_view word) { return line.endsWith(0, before, word); });
}

}  // namespace

secret_word lastSecretWord(const SecretLine& line, std::size_t from, std::size_t to) {
    secret_word last;
    constexpr std::size_t SHORTEST = 3;
    static_assert(std::all_of(std::begin(SECRET_WORDS), std::end(SECRET_WORDS),
                              [](std::string_view word) { return word.size() >= SHORTEST; }));
    for (std::size_t place = from; place + SHORTEST <= to; ++place) {
        if (const secret_word found = wordAt(line, place);
            found.from != NOWHERE && found.to <= to) {
            last = found;
        }
    }
    return last;
}

secret_name readSecretName(const SecretLine& line, std::size_t from, std::size_t to) {
    secret_name name{from, to, lastSecretWord(line, from, to)};
    name.is_second = isSecond(line, from, to);
    readShortWords(line, &name);
    name.ends_in_pass = hasEnding(line, from, to) || hasCapitalPart(line, from, to);
    name.signs = signsAddress(line, from, to);
    return name;
}

bool isHarmlessName(const SecretLine& line, const secret_name& name) {
    const auto ends = [&](std::string_view ending) {
        return line.endsWith(name.from, name.to, ending);
    };
    const auto begins = [&](std::string_view beginning) { return line.says(name.from, beginning); };
    const auto holds = [&](std::string_view part) { return hasPart(line, name, part); };
    return std::any_of(std::begin(HARMLESS_ENDINGS), std::end(HARMLESS_ENDINGS), ends) ||
           std::any_of(std::begin(HARMLESS_BEGINNINGS), std::end(HARMLESS_BEGINNINGS), begins) ||
           std::any_of(std::begin(HARMLESS_PARTS), std::end(HARMLESS_PARTS), holds) ||
           isHarmlessKey(line, name);
}
