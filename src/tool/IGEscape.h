// Makes text safe to read: no name that a user has chosen can control the reader's terminal or
// begin a line.
#ifndef QUENDIL_TOOL_IGESCAPE_H
#define QUENDIL_TOOL_IGESCAPE_H

#include <array>
#include <cstddef>
#include <string_view>

/// A buffer in front of a descriptor, which the caller closes. After a failed write all further
/// text is dropped.
struct ToolOutput {
    int fd;
    bool failed = false;
    std::size_t used = 0;
    std::array<char, 65536> bytes{};
};

/// Adds text to the buffer. Each time the buffer is full, writes the whole lines in it, or all of
/// it when it has no line feed. A failure is returned by the next flush.
void toolWrite(ToolOutput& out, std::string_view text);
/// Writes the whole buffer.
/// @return 0, or -1 when this or an earlier write failed; errno is that of the write
int toolFlush(ToolOutput& out);
/// Writes the whole lines of the buffer and keeps the rest. A buffer that is full of one line is
/// written as a whole.
/// @return as toolFlush()
int toolFlushLines(ToolOutput& out);

/// Which line feeds end a line. All others are parts of names and are shown as "\012".
enum class LineEnd {
    FEED,  ///< every line feed
    NUL,   ///< none: a NUL ends a line, as in the output of find -print0
    /// A line feed in front of a line of at least 16 bytes. All lines of such a program (pidstat)
    /// are that long; a shorter one is the rest of a process's name, which has at most 15 bytes.
    LONG_LINES,
    SOCKET_USERS,  ///< a line feed outside of the names of processes that ss prints behind a socket
};

/// The state of a text that is escaped in pieces. The caller makes a new one for each text and sets
/// `ends` and `out`, which must outlive it.
struct Escape {
    LineEnd ends;
    ToolOutput* out;
    // The bytes of a UTF-8 sequence that is not complete yet.
    std::size_t partial_length = 0;
    std::array<unsigned char, 4> partial{};
    // LONG_LINES: line feeds that are not written yet, and the beginning of the line behind them.
    bool holds = false;
    std::size_t feeds = 0;
    std::size_t held_length = 0;
    std::array<char, 16> held{};
    // SOCKET_USERS: whether a name is being read, whether others were read, and how many bytes of
    // the text in front of the next one.
    bool in_name = false;
    bool in_users = false;
    std::size_t matched = 0;
};

/// Writes text to `escape.out`, with each byte of a control character other than tab and line end
/// as a backslash and three octal digits. Control characters are 0 to 31, 127, U+0080 to U+009F,
/// and bytes 128 to 159 outside a UTF-8 sequence: a terminal obeys these too.
void escapeText(Escape& escape, std::string_view text);
/// Ends the text: writes the bytes that were held back. The caller flushes `out`.
void escapeEnd(Escape& escape);

/// Writes a name with all control characters, tab and line feed too, as octal digits.
void escapeName(ToolOutput& out, std::string_view name);

#endif
