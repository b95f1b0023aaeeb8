// Filters a text that arrives in blocks of any size.
#ifndef QUENDIL_TOOL_IGSECRETTEXT_H
#define QUENDIL_TOOL_IGSECRETTEXT_H

#include <cstddef>
#include <span>
#include <string_view>

#include "tool/IGSecret.h"

/// What replaces a secret.
inline constexpr std::string_view SECRET_MASK = "********";

/// The size of the longest line that is filtered as a whole, in bytes. A longer line is masked in
/// parts: a value that is hidden at the end of a part stays hidden up to its own end, and the last
/// sixteenth of a part is read once more with the next part. In such a line, a name and a value
/// with more than that between them are not recognised.
inline constexpr std::size_t SECRET_PART = 1 << 20;

/// Writes bytes of the result.
/// @param to the pointer of the text
/// @param size of `bytes`
/// @return whether all of them were written
using secret_writer = bool (*)(void* to, const char* bytes, std::size_t size);

/// The memory for a text: two MiB, of which short lines use little. Each text starts with a new
/// one, in which the caller sets `write` and `to`.
struct secret_text {
    secret_writer write = nullptr;
    void* to = nullptr;
    std::size_t part = SECRET_PART;  ///< the size of the parts: 16 to SECRET_PART bytes

    secret_state state;
    std::size_t used = 0;       ///< bytes in `line`
    std::size_t scanned = 0;    ///< how many of them have no line feed
    std::size_t carried = 0;    ///< how many of them the part before had too
    bool goes_on = false;       ///< the line began in a part before
    bool masking = false;       ///< the end of that part was hidden
    bool failed = false;        ///< a write failed: no other follows
    std::size_t collected = 0;  ///< bytes in `result`
    char line[SECRET_PART];
    unsigned char hidden[SECRET_PART];
    char result[1 << 16];
};

/// The memory for the next bytes of the text, of one byte at least.
std::span<char> secretRoom(secret_text* text);

/// Masks and writes all lines that end in the next bytes.
/// @param size how many bytes the caller put into the room
/// @return false when this or an earlier write failed
bool secretTake(secret_text* text, std::size_t size);

/// Masks and writes the last line, and adds a line feed if it has none.
/// @return false when this or an earlier write failed
bool secretEnd(secret_text* text);

#endif
