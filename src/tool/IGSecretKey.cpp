// Private keys. A key ends at its end line, or at the first line that is neither Base64 nor a
// header of an encrypted key: a line that only mentions a key hides no line behind it.
#include <algorithm>
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretShapeRules.h"

namespace {

// The length of a piece of Base64 that is no word of a sentence, in bytes.
constexpr std::size_t SURE = 32;

// The first or last line of a key, inside a line; `from` is NOWHERE when there is none.
struct Marker {
    std::size_t from = NOWHERE;
    std::size_t to = 0;
};

// The end of a title of capitals, digits and blanks with "PRIVATE KEY" in it; 0 for any other text.
std::size_t behindTitle(const SecretLine& line, std::size_t from) {
    std::size_t end = from;
    bool has_key = false;
    while ((line.at(end) >= 'A' && line.at(end) <= 'Z') || line.in(end, DIGIT) ||
           line.at(end) == ' ') {
        has_key = has_key || line.saysExactly(end, "PRIVATE KEY");
        ++end;
    }
    return has_key ? end : 0;
}

// The end of a title of a key or of its end line, with the dashes behind it.
std::size_t titleEnd(const SecretLine& line, std::size_t from) {
    std::size_t end = behindTitle(line, from);
    if (end == 0 && line.saysExactly(from, "OpenVPN ")) {
        end = line.untilByte(from, '-');
    }
    while (end != 0 && line.at(end) == '-') {
        ++end;
    }
    return end;
}

// The number of dashes in front of a place, with one blank between or without.
// @param from where the dashes begin
std::size_t dashesBefore(const SecretLine& line, std::size_t place, std::size_t* from) {
    const std::size_t end = place > 0 && line.at(place - 1) == ' ' ? place - 1 : place;
    *from = end;
    while (*from > 0 && line.at(*from - 1) == '-') {
        --*from;
    }
    return end - *from;
}

// The next title with dashes and a word, "BEGIN " or "END ", of a private key.
Marker findMarker(const SecretLine& line, std::size_t from, std::string_view word) {
    for (std::size_t at = line.find(word, from); at != NOWHERE; at = line.find(word, at + 1)) {
        std::size_t dashes = 0;
        if (dashesBefore(line, at, &dashes) >= 4) {
            if (const std::size_t end = titleEnd(line, at + word.size()); end != 0) {
                return {dashes, end};
            }
        }
    }
    return {};
}

// The end of a key that follows its title in the same line, without a last line: the text behind
// the title is part of it while it looks like Base64.
std::size_t keyEnd(SecretLine& line, std::size_t from) {
    if (line.at(from) == '\\') {  // lines of the key, with escaped line feeds
        return line.until(from, QUOTE);
    }
    std::size_t end = line.skip(from, BASE64);
    for (bool again = true; again;) {
        const std::size_t word = line.skip(end, BLANK);
        const std::size_t next = line.skip(word, BASE64);
        again = next - word >= SURE;
        line.state().key_seen = line.state().key_seen || again;
        end = again ? next : end;
    }
    return end;
}

// A line without the bytes that programs put around it: blanks, marks of quotations and comments;
// or the text that it has in quotes. An escaped line feed at the end is left out.
struct Stretch {
    std::size_t from;
    std::size_t to;
};
Stretch withoutMarks(const SecretLine& line) {
    Stretch stretch{0, line.size()};
    constexpr std::string_view BEHIND = " \t\r\"',;\\";
    stretch.from = line.skipBytes(0, " \t>#|*");
    if (line.in(stretch.from, QUOTE)) {
        stretch.to = line.closing(stretch.from + 1, line.text().substr(stretch.from, 1));
        ++stretch.from;
    }
    while (stretch.to > stretch.from) {
        const char last = line.at(stretch.to - 1);
        if (stretch.to > stretch.from + 1 && last == 'n' && line.at(stretch.to - 2) == '\\') {
            stretch.to -= 2;
        } else if (BEHIND.find(last) != NOWHERE) {
            --stretch.to;
        } else {
            break;
        }
    }
    return stretch;
}

// Whether the line has a piece of Base64 that is too long for a word.
bool hasSurePiece(const SecretLine& line) {
    for (std::size_t place = 0; place < line.size(); ++place) {
        const std::size_t end = line.skip(place, BASE64);
        if (end - place >= SURE) {
            return true;
        }
        place = end;
    }
    return false;
}

bool isHeader(const SecretLine& line, std::size_t from) {
    return std::any_of(std::begin(KEY_HEADERS), std::end(KEY_HEADERS),
                       [&](std::string_view header) { return line.saysExactly(from, header); });
}

// Whether a line of a log, which has a prefix in front of each line of the key, has a header of an
// encrypted key or the empty line behind the headers.
bool isPrefixedHeader(const SecretLine& line, const Stretch& stretch) {
    const secret_state& state = line.state();
    return state.key_column > 0 && (isHeader(line, state.key_column) ||
                                    (state.key_headers && stretch.to <= state.key_column));
}

// Whether a line that is not empty belongs to the key. A line that is too short to be sure belongs
// to it behind other lines of the key, or when the key began in a line of its own.
bool isKeyText(const SecretLine& line, const Stretch& stretch) {
    secret_state& state = line.state();
    std::size_t word = stretch.to;
    while (word > stretch.from && line.in(word - 1, BASE64)) {
        --word;
    }
    const bool was_sure = state.key_seen;
    if (hasSurePiece(line)) {
        state.key_seen = true;
        return true;
    }
    const bool whole = word == stretch.from;
    const bool follows = state.key_blank_lines == 0 || state.key_headers;
    const bool in_column = state.key_column != 0 && word == state.key_column && word < stretch.to;
    return follows && ((whole && (was_sure || state.key_alone)) || (in_column && was_sure));
}

}  // namespace

bool markKeys(SecretLine& line) {
    secret_state& state = line.state();
    bool goes_on = false;
    bool may_end = true;
    for (std::size_t place = 0;;) {
        const Marker begin = findMarker(line, place, "BEGIN ");
        if (begin.from == NOWHERE) {
            return goes_on;
        }
        state.key_seen = state.key_headers = false;
        const Marker end = may_end ? findMarker(line, begin.to, "END ") : Marker{};
        may_end = end.from != NOWHERE;
        place = may_end ? end.to : keyEnd(line, begin.to);
        line.hide(begin.from, place, may_end ? secret_rest::NOTHING : secret_rest::WORD);
        goes_on = !may_end;
        state.key_alone = !line.has(0, begin.from, LETTER | DIGIT) &&
                          !line.has(begin.to, line.size(), LETTER | DIGIT);
        state.key_column = begin.from;
        state.key_blank_lines = 0;
    }
}

bool continuesKey(const SecretLine& line) {
    secret_state& state = line.state();
    const Stretch stretch = withoutMarks(line);
    if (stretch.from == stretch.to) {
        const bool may_follow = state.key_blank_lines < 2;
        state.key_blank_lines += may_follow ? 1 : 0;
        return may_follow;
    }
    if (isKeyText(line, stretch)) {
        state.key_blank_lines = 0;
        return true;
    }
    const bool header = !state.key_seen && ((state.key_alone && isHeader(line, stretch.from)) ||
                                            isPrefixedHeader(line, stretch));
    state.key_headers = state.key_headers || header;
    return header;
}

std::size_t behindKeyEnd(const SecretLine& line) {
    std::size_t end = findMarker(line, 0, "END ").to;
    const std::size_t dashes = line.find("-----END");
    if (end == 0 && dashes != NOWHERE) {
        end = line.untilByte(dashes + 8, '-');
        while (line.at(end) == '-') {
            ++end;
        }
    }
    return end == 0 ? NOWHERE : line.has(end, line.size(), LETTER | DIGIT) ? end : line.size();
}
