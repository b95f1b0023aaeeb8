#include "tool/IGSecretText.h"

#include <algorithm>
#include <cstring>

namespace {

void flush(secret_text* text) {
    if (text->collected != 0 && !text->failed) {
        text->failed = !text->write(text->to, text->result, text->collected);
    }
    text->collected = 0;
}

void put(secret_text* text, const char* bytes, std::size_t size) {
    while (size != 0) {
        const std::size_t now = std::min(size, sizeof text->result - text->collected);
        std::memcpy(text->result + text->collected, bytes, now);
        text->collected += now;
        bytes += now;
        size -= now;
        if (text->collected == sizeof text->result) {
            flush(text);
        }
    }
}

void putMask(secret_text* text) {
    put(text, SECRET_MASK.data(), SECRET_MASK.size());
}

// The end of the stretch from `from` whose bytes are all hidden or all shown, at most `to`.
std::size_t stretchEnd(const unsigned char* hidden, std::size_t from, std::size_t to) {
    const bool is_hidden = hidden[from] != 0;
    while (from < to && (hidden[from] != 0) == is_hidden) {
        ++from;
    }
    return from;
}

// Writes the bytes of a line from `from` to `to`, with one mask in place of each hidden stretch.
void putStretch(secret_text* text, const char* bytes, const unsigned char* hidden, std::size_t from,
                std::size_t to) {
    while (from < to) {
        const std::size_t end = stretchEnd(hidden, from, to);
        if (hidden[from] == 0) {
            put(text, bytes + from, end - from);
        } else if (!text->masking) {
            putMask(text);
        }
        text->masking = hidden[from] != 0;
        from = end;
    }
}

void putBlankLines(secret_text* text, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        put(text, "\n", 1);
    }
}

// Masks and writes the line, or the part of a line, that begins at `from` and has `size` bytes.
// `ends` is true for a line or its last part.
void takeLine(secret_text* text, std::size_t from, std::size_t size, bool ends) {
    unsigned char* hidden = text->hidden;
    std::memset(hidden + text->carried, 0, size - text->carried);
    const secret_part part{{text->line + from, size}, hidden, !text->goes_on, ends};
    const secret_fate fate = markSecrets(part, &text->state);
    putBlankLines(text, fate.blank_lines);
    // If the end is hidden, `state.rest` hides what follows. Any other end is kept and checked
    // again with the next part, because a name or a value may continue there.
    const bool keep = !ends && !fate.left_out && hidden[size - 1] == 0;
    const std::size_t kept = keep ? size / 16 : 0;
    const std::size_t end = size - kept;
    if (!fate.left_out) {
        if (!text->goes_on) {
            text->masking = false;
        }
        if (fate.mask_first) {
            putMask(text);
        }
        putStretch(text, text->line + from, hidden, std::min(fate.from, end), end);
        if (ends) {
            put(text, "\n", 1);
        }
    }
    text->goes_on = !ends;
    text->carried = kept;
    std::memmove(text->line, text->line + from + end, kept);
    std::memmove(hidden, hidden + end, kept);
}

}  // namespace

std::span<char> secretRoom(secret_text* text) {
    return {text->line + text->used, text->part - text->used};
}

bool secretTake(secret_text* text, std::size_t size) {
    std::size_t from = 0;  // where the line begins
    std::size_t scanned = text->scanned;
    text->used += size;
    while (true) {
        const void* feed = std::memchr(text->line + scanned, '\n', text->used - scanned);
        if (feed == nullptr) {
            break;
        }
        const auto end = static_cast<std::size_t>(static_cast<const char*>(feed) - text->line);
        takeLine(text, from, end - from, true);
        from = scanned = end + 1;
    }
    text->used -= from;
    if (from != 0) {
        std::memmove(text->line, text->line + from, text->used);
    }
    if (text->used == text->part) {
        takeLine(text, 0, text->part, false);
        text->used = text->carried;
    }
    text->scanned = text->used;
    flush(text);
    return !text->failed;
}

bool secretEnd(secret_text* text) {
    if (text->used != 0 || text->goes_on) {
        takeLine(text, 0, text->used, true);
    }
    putBlankLines(text, blankLinesAtEnd(text->state));
    flush(text);
    return !text->failed;
}
