#include "ini/IGCmnFileWord.h"

#include <stdio_ext.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnFile.h"
#include "common/report/IGCmnMessage.h"

namespace {

enum class CharClass : std::uint8_t {
    NEWLINE,
    OPEN,
    CLOSE,
    EQUAL,
    BACKSLASH,
    QUOTE,
    HASH,
    PERCENT,
    BLANK,
    UNDERSCORE,
    ALNUM,
    OTHER,
    // no part of a word
    RETURN,
    FORBIDDEN,
    NONE,  // there is no next character
};

constexpr CharClass asciiClassOf(wchar_t c) {
    switch (c) {
        case L'\n':
            return CharClass::NEWLINE;
        case L'\r':
            return CharClass::RETURN;
        case L'{':
            return CharClass::OPEN;
        case L'}':
            return CharClass::CLOSE;
        case L'=':
            return CharClass::EQUAL;
        case L'\\':
            return CharClass::BACKSLASH;
        case L'"':
            return CharClass::QUOTE;
        case L'#':
            return CharClass::HASH;
        case L'%':
            return CharClass::PERCENT;
        case L' ':
        case L'\t':
            return CharClass::BLANK;
        case L'_':
            return CharClass::UNDERSCORE;
        default:
            break;
    }
    if (IgCmnStrIsAlnum(c) != 0) {
        return CharClass::ALNUM;
    }
    return IgCmnStrIsAsciiChar(c) != 0 ? CharClass::OTHER : CharClass::FORBIDDEN;
}

// Every character of every pattern file is classified: a table is faster than comparisons.
constexpr std::array<CharClass, 128> ASCII_CLASSES = [] {
    std::array<CharClass, 128> classes{};
    for (std::size_t c = 0; c < classes.size(); ++c) {
        classes[c] = asciiClassOf(static_cast<wchar_t>(c));
    }
    return classes;
}();

CharClass charClassOf(std::wint_t c) {
    return c < ASCII_CLASSES.size() ? ASCII_CLASSES[c] : CharClass::FORBIDDEN;
}

bool isNameChar(CharClass c) {
    return c == CharClass::UNDERSCORE || c == CharClass::ALNUM;
}

bool isWordChar(CharClass c) {
    return isNameChar(c) || c == CharClass::OTHER;
}

// The three characters that a backslash escapes.
bool isEscapable(CharClass c) {
    return c == CharClass::HASH || c == CharClass::QUOTE || c == CharClass::BACKSLASH;
}

// Reads one word: a member function for each kind of word.
class WordReader {
  public:
    WordReader(IgCmnFileHandle& handle, read_word& word) : handle_(handle), word_(word) {}

    int read() {
        if (prepare() != 0) {
            return -1;
        }
        const int result = readWord();
        return result == 0 ? complete() : result;
    }

  private:
    int prepare() {
        if (word_.character == nullptr) {
            const auto size = static_cast<std::uint32_t>(MB_CUR_MAX) + 1;
            word_.character = newFromPool<char>(&handle_.pool, size);
            if (word_.character == nullptr) {
                return -1;
            }
            word_.character_size = size;
            // No other thread uses the stream: a lock for each character would take longer than
            // all the rest.
            ::__fsetlocking(handle_.stream, FSETLOCKING_BYCALLER);
        }
        if (word_.text != nullptr) {
            std::memset(word_.text, 0, word_.text_size);
        } else if (concat_data(&handle_.pool, &word_.text, &word_.text_size, "") != 0) {
            return -1;  // the text is never null, even for an empty word
        }
        if (word_.type == WORD_NEWLINE || word_.type == WORD_COMMENT) {
            ++handle_.line_no;
            handle_.column = 0;
        }
        errno = 0;  // only a character that cannot be read sets it: see endOfInput()
        return 0;
    }

    // Copies the word to the record. Its text, which is cleared, grows only for the longest word.
    int complete() {
        if (length_ < word_.text_size) {
            std::memcpy(word_.text, text_, length_);
        } else {
            text_[length_] = '\0';
            if (concat_data(&handle_.pool, &word_.text, &word_.text_size, text_) != 0) {
                return -1;
            }
        }
        if (word_.type == WORD_QUOTED) {
            word_.quoted = word_.text;
            word_.quoted_size = word_.text_size;
        }
        return 0;
    }

    // Reads the next character. When there is none, the result of the word is in `end_`.
    CharClass next() {
        for (;;) {
            const std::wint_t c = ::fgetwc_unlocked(handle_.stream);
            const CharClass char_class = charClassOf(c);
            if (char_class < CharClass::RETURN) {
                character_ = static_cast<char>(c);  // a single byte in every locale
                return ++handle_.column > WORD_LINE_LIMIT ? end(WORD_READ_SYNTAX) : char_class;
            }
            if (char_class != CharClass::RETURN) {
                return end(c == WEOF ? endOfInput() : finish(WORD_INVALID));
            }
        }
    }

    CharClass end(int result) {
        end_ = result;
        return CharClass::NONE;
    }

    int endOfInput() {
        if (errno == EILSEQ) {
            return finish(WORD_INVALID);  // a sequence that the locale cannot decode
        }
        // A stream that got no memory for its buffer does not set its error flag.
        if (std::ferror(handle_.stream) != 0 || errno == ENOMEM) {
            IgCmnSysErrPath("fgetwc", errno, handle_.name);
            return WORD_READ_FAILED;
        }
        return WORD_READ_END;
    }

    int readWord() {
        switch (next()) {
            case CharClass::NONE:
                return end_;
            case CharClass::NEWLINE:
                return finish(WORD_NEWLINE);
            case CharClass::OPEN:
                return mark(WORD_OPEN);
            case CharClass::CLOSE:
                return mark(WORD_CLOSE);
            case CharClass::EQUAL:
                return mark(WORD_EQUAL);
            case CharClass::QUOTE:
                return quoted();
            case CharClass::HASH:
                return comment();
            case CharClass::BLANK:
                return blanks();
            case CharClass::BACKSLASH:
                return leadingEscape();
            case CharClass::PERCENT:
                return leadingPercent();
            default:
                return text(WORD_TEXT);
        }
    }

    // At the start of a word, a backslash escapes only the three characters of isEscapable(); in
    // front of any other it is a word by itself.
    int leadingEscape() {
        word_.type = WORD_TEXT;
        const CharClass c = next();
        if (c == CharClass::NONE) {
            return end_;
        }
        if (isEscapable(c)) {
            return text(WORD_TEXT);
        }
        store('\\');
        return pushBack();
    }

    int leadingPercent() {
        word_.type = WORD_PERCENT;
        storeCharacter();
        const CharClass c = next();
        if (c == CharClass::NONE) {
            return end_;
        }
        if (c == CharClass::PERCENT) {
            return text(WORD_TEXT);
        }
        return isNameChar(c) ? text(WORD_SPECIAL) : pushBack();
    }

    int quoted() {
        word_.type = WORD_QUOTED;
        bool escape_pending = false;
        for (CharClass c = next(); c != CharClass::NONE; c = next()) {
            if (c == CharClass::NEWLINE) {
                return WORD_READ_SYNTAX;
            }
            if (escape_pending) {
                escape_pending = false;
                storeEscaped(c);
            } else if (c == CharClass::BACKSLASH) {
                escape_pending = true;
            } else if (c == CharClass::QUOTE) {
                return 0;
            } else {
                storeCharacter();
            }
        }
        return end_;
    }

    int comment() {
        word_.type = WORD_COMMENT;
        for (CharClass c = next(); c != CharClass::NONE; c = next()) {
            if (c == CharClass::NEWLINE) {
                return 0;
            }
            storeCharacter();
        }
        return end_;
    }

    // Plain words and special strings, from the character that was read last.
    int text(WordType type) {
        word_.type = type;
        storeCharacter();
        bool escape_pending = false;
        for (CharClass c = next(); c != CharClass::NONE; c = next()) {
            if (escape_pending) {
                if (c == CharClass::NEWLINE || c == CharClass::PERCENT) {
                    store('\\');
                    return pushBack();
                }
                escape_pending = false;
                storeEscaped(c);
            } else if (c == CharClass::BACKSLASH) {
                escape_pending = true;
            } else if (isWordChar(c)) {
                storeCharacter();
            } else {
                return endOfText(c);
            }
        }
        return end_;
    }

    int endOfText(CharClass c) {
        if (word_.type == WORD_SPECIAL && c == CharClass::PERCENT) {
            return 0;
        }
        if (word_.type == WORD_SPECIAL && c == CharClass::NEWLINE) {
            word_.type = WORD_TEXT;  // never closed on its line: plain text
        }
        return pushBack();
    }

    int blanks() {
        word_.type = WORD_BLANK;
        storeCharacter();
        for (CharClass c = next(); c != CharClass::NONE; c = next()) {
            if (c != CharClass::BLANK) {
                return pushBack();
            }
            storeCharacter();
        }
        return end_;
    }

    int mark(WordType type) {
        word_.type = type;
        storeCharacter();
        return 0;
    }

    // An empty word, whatever of it was read.
    int finish(WordType type) {
        word_.type = type;
        length_ = 0;
        return 0;
    }

    void storeEscaped(CharClass c) {
        if (!isEscapable(c)) {
            store('\\');
        }
        storeCharacter();
    }

    void storeCharacter() { store(character_); }

    // There is room: a stored character was counted on the line of the word, which has a limit.
    void store(char c) { text_[length_++] = c; }

    // The character belongs to the next word.
    int pushBack() {
        word_.character[0] = character_;
        const auto c = static_cast<std::wint_t>(static_cast<unsigned char>(character_));
        if (std::ungetwc(c, handle_.stream) == WEOF) {
            IgCmnSysErrPath("ungetwc", errno, handle_.name);
            return WORD_READ_FAILED;
        }
        --handle_.column;
        return 0;
    }

    IgCmnFileHandle& handle_;
    read_word& word_;
    int end_ = 0;
    char character_ = '\0';  // the last one that was read
    std::size_t length_ = 0;
    char text_[WORD_LINE_LIMIT + 1];  // not cleared: most words are short
};

}  // namespace

int IgCmnFileWordRead(struct root_tbl* /*root*/, IgCmnFileHandle* handle, read_word* word,
                      memory_pool* /*memoryp*/) {
    IG_ASSERT_NOT_NULL(handle);
    IG_ASSERT_NOT_NULL(word);
    return WordReader(*handle, *word).read();
}
