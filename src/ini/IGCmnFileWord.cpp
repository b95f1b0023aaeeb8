#include "ini/IGCmnFileWord.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnFile.h"
#include "common/report/IGCmnMessage.h"

namespace {

enum class CharClass {
    NEWLINE,
    RETURN,
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
};

CharClass charClassOf(std::wint_t c) {
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
            return IgCmnStrIsAlnum(static_cast<wchar_t>(c)) != 0 ? CharClass::ALNUM
                                                                 : CharClass::OTHER;
    }
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

// Reads one word. Each mode is a member function that handles the next character. It returns MORE
// when the word continues; any other result is that of the whole call.
class WordReader {
  public:
    WordReader(IgCmnFileHandle& handle, read_word& word) : handle_(handle), word_(word) {}

    int read() {
        if (prepare() != 0) {
            return -1;
        }
        int result = MORE;
        while (result == MORE) {
            result = readCharacter();
        }
        return result;
    }

  private:
    static constexpr int MORE = -2;
    using Mode = int (WordReader::*)(CharClass);

    int prepare() {
        if (word_.character == nullptr) {
            const auto size = static_cast<std::uint32_t>(MB_CUR_MAX) + 1;
            word_.character = newFromPool<char>(&handle_.pool, size);
            if (word_.character == nullptr) {
                return -1;
            }
            word_.character_size = size;
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
        return 0;
    }

    int readCharacter() {
        errno = 0;
        const std::wint_t c = std::fgetwc(handle_.stream);
        if (c == WEOF) {
            return endOfInput();
        }
        if (IgCmnStrIsAsciiChar(static_cast<wchar_t>(c)) == 0) {
            return finish(WORD_INVALID, "");
        }
        const CharClass char_class = charClassOf(c);
        if (char_class == CharClass::RETURN) {
            return MORE;
        }
        // Allowed characters are single bytes in every locale.
        word_.character[0] = static_cast<char>(c);
        word_.character[1] = '\0';
        if (++handle_.column > WORD_LINE_LIMIT) {
            return WORD_READ_SYNTAX;
        }
        return (this->*mode_)(char_class);
    }

    int endOfInput() {
        if (errno == EILSEQ) {
            return finish(WORD_INVALID, "");  // a sequence that the locale cannot decode
        }
        // A stream that got no memory for its buffer does not set its error flag.
        if (std::ferror(handle_.stream) != 0 || errno == ENOMEM) {
            IgCmnSysErrPath("fgetwc", errno, handle_.name);
            return WORD_READ_FAILED;
        }
        return WORD_READ_END;
    }

    int startMode(CharClass c) {
        switch (c) {
            case CharClass::NEWLINE:
                return finish(WORD_NEWLINE, "");
            case CharClass::OPEN:
                return finish(WORD_OPEN, "{");
            case CharClass::CLOSE:
                return finish(WORD_CLOSE, "}");
            case CharClass::EQUAL:
                return finish(WORD_EQUAL, "=");
            case CharClass::QUOTE:
                return begin(WORD_QUOTED, &WordReader::quotedMode);
            case CharClass::HASH:
                return begin(WORD_COMMENT, &WordReader::commentMode);
            case CharClass::BLANK:
                return storeAndGo(WORD_BLANK, &WordReader::blankMode);
            case CharClass::BACKSLASH:
                return begin(WORD_TEXT, &WordReader::leadingEscapeMode);
            case CharClass::PERCENT:
                return storeAndGo(WORD_PERCENT, &WordReader::leadingPercentMode);
            default:
                return storeAndGo(WORD_TEXT, &WordReader::textMode);
        }
    }

    // At the start of a word, a backslash escapes only the three characters of isEscapable(); in
    // front of any other it is a word by itself.
    int leadingEscapeMode(CharClass c) {
        if (isEscapable(c)) {
            return storeAndGo(WORD_TEXT, &WordReader::textMode);
        }
        return store("\\") == -1 ? -1 : pushBack();
    }

    int leadingPercentMode(CharClass c) {
        if (c == CharClass::PERCENT) {
            return storeAndGo(WORD_TEXT, &WordReader::textMode);
        }
        if (isNameChar(c)) {
            return storeAndGo(WORD_SPECIAL, &WordReader::textMode);
        }
        return pushBack();
    }

    int quotedMode(CharClass c) {
        if (c == CharClass::NEWLINE) {
            return WORD_READ_SYNTAX;
        }
        if (escape_pending_) {
            return storeEscaped(c);
        }
        if (c == CharClass::BACKSLASH) {
            escape_pending_ = true;
            return MORE;
        }
        if (c == CharClass::QUOTE) {
            word_.quoted = word_.text;
            word_.quoted_size = word_.text_size;
            return 0;
        }
        return storeCharacter();
    }

    int commentMode(CharClass c) { return c == CharClass::NEWLINE ? 0 : storeCharacter(); }

    // Plain words and special strings.
    int textMode(CharClass c) {
        if (escape_pending_) {
            if (c == CharClass::NEWLINE || c == CharClass::PERCENT) {
                return store("\\") == -1 ? -1 : pushBack();
            }
            return storeEscaped(c);
        }
        if (c == CharClass::BACKSLASH) {
            escape_pending_ = true;
            return MORE;
        }
        if (isWordChar(c)) {
            return storeCharacter();
        }
        if (word_.type == WORD_SPECIAL && c == CharClass::PERCENT) {
            return 0;
        }
        if (word_.type == WORD_SPECIAL && c == CharClass::NEWLINE) {
            word_.type = WORD_TEXT;  // never closed on its line: plain text
        }
        return pushBack();
    }

    int blankMode(CharClass c) { return c == CharClass::BLANK ? storeCharacter() : pushBack(); }

    int storeEscaped(CharClass c) {
        escape_pending_ = false;
        if (!isEscapable(c) && store("\\") == -1) {
            return -1;
        }
        return storeCharacter();
    }

    int storeAndGo(WordType type, Mode mode) {
        begin(type, mode);
        return storeCharacter();
    }

    int begin(WordType type, Mode mode) {
        word_.type = type;
        mode_ = mode;
        return MORE;
    }

    int storeCharacter() { return store(word_.character) == -1 ? -1 : MORE; }

    int store(const char* text) {
        return concat_data(&handle_.pool, &word_.text, &word_.text_size, text);
    }

    int finish(WordType type, const char* text) {
        word_.type = type;
        word_.text[0] = '\0';
        return store(text);
    }

    // The character belongs to the next word.
    int pushBack() {
        const auto c = static_cast<std::wint_t>(static_cast<unsigned char>(word_.character[0]));
        if (std::ungetwc(c, handle_.stream) == WEOF) {
            IgCmnSysErrPath("ungetwc", errno, handle_.name);
            return WORD_READ_FAILED;
        }
        --handle_.column;
        return 0;
    }

    IgCmnFileHandle& handle_;
    read_word& word_;
    Mode mode_ = &WordReader::startMode;
    bool escape_pending_ = false;
};

}  // namespace

int IgCmnFileWordRead(struct root_tbl* /*root*/, IgCmnFileHandle* handle, read_word* word,
                      memory_pool* /*memoryp*/) {
    IG_ASSERT_NOT_NULL(handle);
    IG_ASSERT_NOT_NULL(word);
    return WordReader(*handle, *word).read();
}
