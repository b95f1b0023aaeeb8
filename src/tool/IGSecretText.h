// A text on its way through the rules, as it comes: in blocks of any size.
#ifndef QUENDIL_TOOL_IGSECRETTEXT_H
#define QUENDIL_TOOL_IGSECRETTEXT_H

#include <cstddef>
#include <span>
#include <string_view>

#include "tool/IGSecret.h"

/// What replaces a secret.
inline constexpr std::string_view SECRET_MASK = "********";

/// The longest line that is filtered as a whole. A longer one is masked in parts: what is
/// hidden at the end of a part is hidden on to its own end, and the last sixteenth of a part is
/// read once more with the next one. So what is parted by more than that, such as a name and a
/// value with blanks between them, is not recognised in such a line.
inline constexpr std::size_t SECRET_PART = 1 << 20;

/// Writes some bytes of the result.
/// @return whether they were all written
using secret_writer = bool (*)(void* to, const char* bytes, std::size_t size);

/// Everything that masking a text needs; two megabytes, of which short lines touch little. A new
/// text begins with a new one, in which `write` and `to` are set.
struct secret_text {
    secret_writer write = nullptr;
    void* to = nullptr;
    std::size_t part = SECRET_PART;  ///< the size of the parts, at least 16 bytes

    secret_state state;
    std::size_t used = 0;       ///< bytes of `line` that are waiting
    std::size_t scanned = 0;    ///< of them, those that hold no line feed
    std::size_t carried = 0;    ///< of them, those that were read already with the part before
    bool goes_on = false;       ///< the line has begun in a part before
    bool masking = false;       ///< and the end of that was hidden
    bool failed = false;        ///< something could not be written; nothing more is
    std::size_t collected = 0;  ///< bytes of `result`
    char line[SECRET_PART];
    unsigned char hidden[SECRET_PART];
    char result[1 << 16];
};

/// Where the next bytes of the text belong: never empty.
std::span<char> secretRoom(secret_text* text);

/// Masks and writes all lines that have come to an end with the next bytes.
/// @param size so many bytes were put into the room
/// @return false when something could not be written
bool secretTake(secret_text* text, std::size_t size);

/// Masks and writes the last line. One without a line feed gets one.
/// @return false when something could not be written
bool secretEnd(secret_text* text);

#endif
