#include "tool/IGEscape.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// Writes the first bytes of the buffer, and removes them from it.
int flush(ToolOutput& out, std::size_t length) {
    for (std::size_t done = 0; done < length && !out.failed;) {
        const ssize_t written = ::write(out.fd, out.bytes.data() + done, length - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else {
            out.failed = errno != EINTR;
        }
    }
    out.used -= length;
    std::memmove(out.bytes.data(), out.bytes.data() + length, out.used);
    return out.failed ? -1 : 0;
}

}  // namespace

void toolWrite(ToolOutput& out, std::string_view text) {
    while (!text.empty() && !out.failed) {
        const std::size_t part = std::min(text.size(), out.bytes.size() - out.used);
        std::memcpy(out.bytes.data() + out.used, text.data(), part);
        out.used += part;
        text.remove_prefix(part);
        if (out.used == out.bytes.size()) {
            toolFlushLines(out);
        }
    }
}

int toolFlush(ToolOutput& out) {
    return flush(out, out.used);
}

int toolFlushLines(ToolOutput& out) {
    const std::size_t feed = std::string_view(out.bytes.data(), out.used).rfind('\n');
    if (feed != std::string_view::npos) {
        return flush(out, feed + 1);
    }
    return flush(out, out.used == out.bytes.size() ? out.used : 0);
}

namespace {

void writeOctal(ToolOutput& out, unsigned char byte) {
    const std::array<char, 4> text{'\\', static_cast<char>('0' + (byte >> 6U)),
                                   static_cast<char>('0' + ((byte >> 3U) & 7U)),
                                   static_cast<char>('0' + (byte & 7U))};
    toolWrite(out, {text.data(), text.size()});
}

void writeByte(ToolOutput& out, unsigned char byte) {
    const char character = static_cast<char>(byte);
    toolWrite(out, {&character, 1});
}

// --- UTF-8 ---

enum class Sequence { WHOLE, PARTIAL, INVALID };

std::size_t sequenceLength(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xc2 || first > 0xf4) {
        return 0;
    }
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

// Whether a second byte is valid: no overlong form, no surrogate, nothing beyond U+10FFFF.
bool isSecond(unsigned char first, unsigned char second) {
    const unsigned char least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    return second >= least && second <= most;
}

Sequence readSequence(const Escape& escape) {
    const auto& bytes = escape.partial;
    const std::size_t length = sequenceLength(bytes[0]);
    if (length == 0 || (escape.partial_length > 1 && !isSecond(bytes[0], bytes[1]))) {
        return Sequence::INVALID;
    }
    for (std::size_t i = 2; i < escape.partial_length; ++i) {
        if ((bytes.at(i) & 0xc0U) != 0x80) {
            return Sequence::INVALID;
        }
    }
    return escape.partial_length == length ? Sequence::WHOLE : Sequence::PARTIAL;
}

void writeSequence(Escape& escape) {
    const unsigned char first = escape.partial[0];
    const bool control = escape.partial_length == 1
                             ? (first < 0x20 && first != '\t') || first == 0x7f
                             : first == 0xc2 && escape.partial[1] <= 0x9f;  // U+0080 to 9F
    for (std::size_t i = 0; i < escape.partial_length; ++i) {
        control ? writeOctal(*escape.out, escape.partial.at(i))
                : writeByte(*escape.out, escape.partial.at(i));
    }
    escape.partial_length = 0;
}

// Writes the first byte, which is part of no sequence. The bytes behind it may begin one.
void writeStray(Escape& escape) {
    const unsigned char byte = escape.partial[0];
    byte >= 0x80 && byte <= 0x9f ? writeOctal(*escape.out, byte) : writeByte(*escape.out, byte);
    --escape.partial_length;
    std::memmove(escape.partial.data(), escape.partial.data() + 1, escape.partial_length);
}

void finishSequence(Escape& escape) {
    while (escape.partial_length > 0) {
        readSequence(escape) == Sequence::WHOLE ? writeSequence(escape) : writeStray(escape);
    }
}

void putCharacter(Escape& escape, char character) {
    escape.partial.at(escape.partial_length++) = static_cast<unsigned char>(character);
    while (escape.partial_length > 0) {
        const Sequence sequence = readSequence(escape);
        if (sequence == Sequence::PARTIAL) {
            return;
        }
        sequence == Sequence::WHOLE ? writeSequence(escape) : writeStray(escape);
    }
}

void putLineEnd(Escape& escape) {
    finishSequence(escape);
    writeByte(*escape.out, '\n');
}

// --- which line feeds end a line ---

void putFeeds(Escape& escape, void (*put)(Escape&)) {
    for (; escape.feeds > 0; --escape.feeds) {
        put(escape);
    }
}

void putFeedOfName(Escape& escape) {
    putCharacter(escape, '\n');
}

void putHeld(Escape& escape) {
    for (std::size_t i = 0; i < escape.held_length; ++i) {
        putCharacter(escape, escape.held.at(i));
    }
    escape.held_length = 0;
}

void takeOfLongLines(Escape& escape, char character) {
    if (character == '\n') {
        if (escape.held_length > 0) {
            putFeeds(escape, putFeedOfName);
            putHeld(escape);
        }
        escape.holds = true;
        ++escape.feeds;
    } else if (!escape.holds) {
        putCharacter(escape, character);
    } else {
        escape.held.at(escape.held_length++) = character;
        if (escape.held_length == escape.held.size()) {
            putFeeds(escape, putLineEnd);
            putHeld(escape);
            escape.holds = false;
        }
    }
}

// The first name follows ` users:(("`, each other one `,("`. It ends at the first closing
// parenthesis, because ss itself reads a process's name only up to that. No address of a socket
// contains ` users:`.
void takeOfSocketUsers(Escape& escape, char character) {
    if (character == '\n' && !escape.in_name) {
        putLineEnd(escape);
    } else {
        putCharacter(escape, character);
    }
    if (escape.in_name) {
        escape.in_name = character != ')';
        return;
    }
    const std::string_view front = escape.in_users ? ",(\"" : " users:((\"";
    if (character != front.at(escape.matched)) {
        escape.in_users = false;
        escape.matched = character == ' ' ? 1 : 0;
    } else if (++escape.matched == front.size()) {
        escape.in_users = true;
        escape.in_name = true;
        escape.matched = 0;
    }
}

void take(Escape& escape, char character) {
    switch (escape.ends) {
        case LineEnd::FEED:
            character == '\n' ? putLineEnd(escape) : putCharacter(escape, character);
            break;
        case LineEnd::NUL:
            character == '\0' ? putLineEnd(escape) : putCharacter(escape, character);
            break;
        case LineEnd::LONG_LINES:
            takeOfLongLines(escape, character);
            break;
        case LineEnd::SOCKET_USERS:
            takeOfSocketUsers(escape, character);
            break;
    }
}

}  // namespace

void escapeText(Escape& escape, std::string_view text) {
    for (const char character : text) {
        take(escape, character);
    }
}

void escapeEnd(Escape& escape) {
    putFeeds(escape, escape.held_length > 0 ? putFeedOfName : putLineEnd);
    putHeld(escape);
    finishSequence(escape);
}

void escapeName(ToolOutput& out, std::string_view name) {
    Escape escape{.ends = LineEnd::NUL, .out = &out};
    for (const char character : name) {
        if (character == '\t') {
            finishSequence(escape);
            writeOctal(out, '\t');
        } else {
            putCharacter(escape, character);
        }
    }
    finishSequence(escape);
}
