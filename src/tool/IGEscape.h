// Makes text safe to read: no name that a user has chosen can send a sequence to the reader's
// terminal or begin a line of its own.
#ifndef QUENDIL_TOOL_IGESCAPE_H
#define QUENDIL_TOOL_IGESCAPE_H

#include <array>
#include <cstddef>
#include <string_view>

/// Text on its way to a descriptor, which is the caller's. Once writing has failed the rest is
/// dropped: the reader has gone.
struct ToolOutput {
    int fd;
    bool failed = false;
    std::size_t used = 0;
    std::array<char, 65536> bytes{};
};

/// Holds text back until there is no more room for it.
void toolWrite(ToolOutput& out, std::string_view text);
/// Writes what is held back. 0, or -1 when this or an earlier write failed (errno is kept).
int toolFlush(ToolOutput& out);
/// Writes the lines that are complete and keeps the rest, unless that fills the room. 0 or -1 as
/// above.
int toolFlushLines(ToolOutput& out);

/// Which line feeds end a line; all others belong to names and are shown as "\012".
enum class LineEnd {
    FEED,        // every one
    NUL,         // none: a NUL ends a line, as find -print0 writes it
    LONG_LINES,  // one before 16 bytes: what is shorter is the rest of a process's name, which has
                 // 15 at most, for all lines of such a program (pidstat) are longer
    SOCKET_USERS,  // one outside of the names of processes that ss lists behind a socket
};

/// The state of a text that is escaped piece by piece.
struct Escape {
    LineEnd ends;
    ToolOutput* out;
    // The beginning of a UTF-8 sequence.
    std::size_t partial_length = 0;
    std::array<unsigned char, 4> partial{};
    // LONG_LINES: line feeds, and the beginning of the line behind them.
    bool holds = false;
    std::size_t feeds = 0;
    std::size_t held_length = 0;
    std::array<char, 16> held{};
    // SOCKET_USERS: what has been seen of the text in front of a name.
    bool in_name = false;
    bool in_users = false;
    std::size_t matched = 0;
};

/// Writes text with every control character but tab and line end as a backslash and three octal
/// digits: 0 to 31, 127, U+0080 to U+009F, and bytes 128 to 159 that are no part of UTF-8.
void escapeText(Escape& escape, std::string_view text);
/// Ends the text: what was held back is written too.
void escapeEnd(Escape& escape);

/// A name with all its control characters, tab and line feed too, shown so.
void escapeName(ToolOutput& out, std::string_view name);

#endif
