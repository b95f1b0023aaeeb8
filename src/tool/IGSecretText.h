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
/// @param to the member `to` of the text
/// @param size of `bytes`
/// @return whether all of them were written
using secret_writer = bool (*)(void* to, const char* bytes, std::size_t size);

/// The state and the buffers of one text: about 2 MiB, of which a text of short lines uses little.
/// Each text starts with a new one, in which the caller sets `write` and `to`.
struct secret_text {
    secret_writer write = nullptr;
    void* to = nullptr;
    std::size_t part = SECRET_PART;  ///< the size of the parts: 16 to SECRET_PART bytes

    secret_state state;
    std::size_t used = 0;       ///< bytes in `line`
    std::size_t scanned = 0;    ///< how many of them were searched for a line feed
    std::size_t carried = 0;    ///< how many of them were in the part before
    bool goes_on = false;       ///< the line began in a part before
    bool masking = false;       ///< the last bytes that were written are a mask
    bool failed = false;        ///< a write failed: nothing more is written
    std::size_t collected = 0;  ///< bytes in `result`
    char line[SECRET_PART];
    unsigned char hidden[SECRET_PART];  ///< of the line: not 0 for a byte that is hidden
    char result[1 << 16];
};

/// The buffer for the next bytes of the text, at least one byte. It belongs to `text` and is valid
/// until the next call.
std::span<char> secretRoom(secret_text* text);

/// Masks and writes all lines that end in the next bytes, and a full part of a longer line.
/// @param size how many bytes the caller has put into secretRoom()
/// @return false when this or an earlier write failed
bool secretTake(secret_text* text, std::size_t size);

/// Masks and writes the last line, and adds a line feed if it has none.
/// @return false when this or an earlier write failed
bool secretEnd(secret_text* text);

#endif
