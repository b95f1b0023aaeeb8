// The word reader of the pattern files: keywords, values, quoted texts, special strings, marks,
// blanks, comments and line ends, one per call.
#ifndef QUENDIL_INI_IGCMNFILEWORD_H
#define QUENDIL_INI_IGCMNFILEWORD_H

#include <cstdint>

#include "common/file/IGCmnFile.h"

struct root_tbl;

enum WordType : std::int32_t {
    WORD_QUOTED = 0,    ///< the characters between double quotes, escapes resolved
    WORD_EQUAL = 1,     ///< "="
    WORD_COMMENT = 2,   ///< the characters after "#" up to the end of the line
    WORD_TEXT = 3,      ///< a plain word
    WORD_OPEN = 5,      ///< "{" (4 is reserved and never produced)
    WORD_CLOSE = 6,     ///< "}"
    WORD_BLANK = 7,     ///< a run of blanks and tabs
    WORD_SPECIAL = 8,   ///< a special string: "%" and its name, without the closing "%"
    WORD_NEWLINE = 9,   ///< empty text
    WORD_PERCENT = 10,  ///< "%"
    WORD_INVALID = 11,  ///< empty text: a character that pattern files may not contain
};

/// Results of the word reader besides 0 and -1.
inline constexpr int WORD_READ_END = 1;     ///< end of file; a word it interrupts is lost
inline constexpr int WORD_READ_SYNTAX = 9;  ///< line too long, or a line feed inside quotes
inline constexpr int WORD_READ_FAILED = FILE_FAILED;  ///< the stream failed (reported)

/// Longest line in characters, its line feed included, carriage returns not counted.
inline constexpr std::int32_t WORD_LINE_LIMIT = 1025;

/// The last word read. The caller zero-fills it once and passes it to every call; its buffers
/// belong to the file handle's pool.
struct read_word {
    std::int32_t type;        // WordType; the next call counts a line after a line feed or comment
    char* text;               // the word, terminated
    std::uint32_t text_size;  // bytes allocated for `text`
    char* quoted;             // set when a quoted string ends: the same buffer as `text`
    std::uint32_t quoted_size;
    char* character;  // the last one that was pushed back, in multibyte form
    std::uint32_t character_size;
};

/// Reads the next word of the open file in the current locale. The line number in the handle is
/// that of the word; it goes up at the start of the call after a line feed or comment. Returns 0
/// with the word in the record; WORD_READ_END; WORD_READ_SYNTAX (unreported: the caller reports the
/// line); WORD_READ_FAILED; -1 when memory ran out. `root` and `memoryp` are not used.
int IgCmnFileWordRead(struct root_tbl* root, IgCmnFileHandle* handle, read_word* word,
                      memory_pool* memoryp);

#endif
