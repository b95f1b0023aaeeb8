// Makes text safe to read: no name that a user has chosen can control the reader's terminal or
// begin a line.
#ifndef QUENDIL_TOOL_IGESCAPE_H
#define QUENDIL_TOOL_IGESCAPE_H

#include <array>
#include <cstddef>
#include <string_view>

/// A buffer in front of a descriptor, which the caller closes. After a failed write the rest of the
/// text is dropped: the reader has gone.
struct ToolOutput {
    int fd;
    bool failed = false;
    std::size_t used = 0;
    std::array<char, 65536> bytes{};
};

/// Adds text to the buffer, and writes lines when that is full.
void toolWrite(ToolOutput& out, std::string_view text);
/// Writes the whole buffer.
/// @return 0, or -1 when this or an earlier write failed; errno is that of the write
int toolFlush(ToolOutput& out);
/// Writes the whole lines of the buffer and keeps the rest, unless that fills the buffer.
/// @return 0 or -1, as toolFlush()
int toolFlushLines(ToolOutput& out);

/// Which line feeds end a line. All others are parts of names and are shown as "\012".
enum class LineEnd {
    FEED,  ///< every line feed
    NUL,   ///< none: a NUL ends a line, as in the output of find -print0
    /// A line feed that 16 bytes without another follow. A shorter line is the rest of a process's
    /// name, which has 15 bytes at most, because all lines of such a program (pidstat) are longer.
    LONG_LINES,
    SOCKET_USERS,  ///< a line feed outside of the names of processes that ss prints behind a socket
};

/// The state of a text that is escaped in pieces. Each text starts with a new one.
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
    // SOCKET_USERS: how much of the text in front of a name was read.
    bool in_name = false;
    bool in_users = false;
    std::size_t matched = 0;
};

/// Writes text with every control character but tab and line end as a backslash and three octal
/// digits: 0 to 31, 127, U+0080 to U+009F, and bytes 128 to 159 that are no part of UTF-8.
void escapeText(Escape& escape, std::string_view text);
/// Ends the text: writes the bytes that were held back to `out`.
void escapeEnd(Escape& escape);

/// Writes a name with all control characters, tab and line feed too, as octal digits.
void escapeName(ToolOutput& out, std::string_view name);

#endif
