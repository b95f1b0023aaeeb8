#include "common/base/IGPrintable.h"

#include <cstdio>
#include <cstring>

namespace {

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Length in bytes of the multibyte UTF-8 sequence that begins at `text`; 0 when there is none.
std::size_t sequenceLength(const char* text) {
    struct Lead {
        unsigned char first, last;  // the range of the leading byte
        unsigned char lowest,
            highest;  // the range of the second byte: no overlong form, no surrogate
        std::size_t length;
    };
    constexpr Lead LEADS[] = {{0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
                              {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3},
                              {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
                              {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4}};
    const auto first = static_cast<unsigned char>(text[0]);
    for (const Lead& lead : LEADS) {
        if (first < lead.first || first > lead.last) {
            continue;
        }
        const auto second = static_cast<unsigned char>(text[1]);
        bool whole = second >= lead.lowest && second <= lead.highest;
        for (std::size_t i = 2; i < lead.length; ++i) {
            whole = whole && isContinuation(text[i]);
        }
        return whole ? lead.length : 0;
    }
    return 0;
}

// The number of printable ASCII characters at the beginning of a text: most names have no others.
std::size_t plainLength(const char* text) {
    const char* end = text;
    while (*end >= 0x20 && *end < 0x7f) {
        ++end;
    }
    return static_cast<std::size_t>(end - text);
}

// The first unit of a text: its length in bytes, and whether to escape it.
struct Unit {
    std::size_t length;
    bool escaped;
    [[nodiscard]] std::size_t shown() const { return escaped ? 4 * length : length; }
};

// A terminal obeys a C1 character like an escape sequence: both in its UTF-8 form and as a byte of
// 0x80 to 0x9f outside a sequence.
Unit firstUnit(const char* text, Tabs tabs) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        const bool control = first < 0x20 || first == 0x7f;
        return {1, control && (first != '\t' || tabs == Tabs::ESCAPED)};
    }
    if (const std::size_t length = sequenceLength(text); length != 0) {
        return {length, first == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0};
    }
    return {1, first < 0xa0};
}

}  // namespace

void IgCmnMsgPrintable(const char* name, char* out, std::size_t size, Tabs tabs) {
    std::size_t used = 0;
    while (*name != '\0') {
        const Unit unit = firstUnit(name, tabs);
        if (used + unit.shown() >= size) {
            break;
        }
        if (!unit.escaped) {
            std::memcpy(out + used, name, unit.length);
        }
        for (std::size_t i = 0; unit.escaped && i < unit.length; ++i) {
            std::snprintf(out + used + 4 * i, 5, "\\%03o", static_cast<unsigned char>(name[i]));
        }
        used += unit.shown();
        name += unit.length;
    }
    out[used] = '\0';
}

std::size_t IgCmnMsgPrintableSize(const char* name, Tabs tabs) {
    std::size_t size = 1;
    for (;;) {
        const std::size_t plain = plainLength(name);
        size += plain;
        name += plain;
        if (*name == '\0') {
            return size;
        }
        const Unit unit = firstUnit(name, tabs);
        size += unit.shown();
        name += unit.length;
    }
}
