#include "ini/IGIniReadPtn.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnFileWord.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniCheck.h"
#include "ini/IGIniTable.h"

namespace {

// Result of handling a word or a value.
enum class Outcome {
    GOOD,
    SYNTAX,      // ZEPA137-W, or ZEPA139-W before the format version was accepted
    INCOMPLETE,  // ZEPA137-W
    FORMAT,      // ZEPA139-W
    NEWER,       // ZEPA159-W
    REPORTED,    // messages of its own
    NO_MEMORY,
};

// The block that a keyword belongs to, or opens.
enum class Context {
    NONE,
    BLOCK,
    TOOL,
    DATA,
};

enum class State {
    STATEMENT,    // a keyword, or a closing brace
    EQUAL,        // the "=" after a keyword
    VALUE,        // the words of a value
    AFTER_VALUE,  // nothing but a comment, up to the end of the line
    BRACE,        // the brace after a block keyword, then the end of the line
};

constexpr std::size_t PATH_LIMIT = 260;  // bytes
constexpr std::size_t TEXT_LIMIT = 256;
constexpr std::size_t VERSION_LIMIT = 10;
constexpr std::size_t TYPE_LIMIT = 20;

struct Reader;
struct Keyword;

// Stores a checked, non-empty value.
using Store = Outcome (*)(Reader& reader, const Keyword& keyword, const char* value);

struct Keyword {
    std::string_view name;
    Context where;           // the innermost open block
    std::uint32_t flag = 0;  // marks it as given
    bool only_once = false;
    bool may_be_empty = false;
    std::size_t longest = 0;  // value in bytes; 0 no limit
    Store store = nullptr;    // null: the keyword opens `opens`
    Context opens = Context::NONE;
    // the members that the general store functions set
    IgCmnListHeader* pickptn_tbl::*pattern_list = nullptr;
    IgCmnListHeader* ptn_block::*block_list = nullptr;
    std::int32_t tool_block::*number = nullptr;
    long lowest = 0;  // range of `number`
    long highest = 0;
};

struct Reader {
    const char* file_name;
    root_tbl* root;
    memory_pool* memoryp;
    pickptn_tbl* ptn;

    State state = State::STATEMENT;
    int level = 1;
    Context context = Context::NONE;
    const Keyword* keyword = nullptr;
    bool brace_seen = false;

    // the value being built
    LocalPool value_pool{};
    char* value = nullptr;
    std::uint32_t value_size = 0;
    bool has_value = false;  // a word of it was read, even an empty quoted one

    [[nodiscard]] bool versionAccepted() const { return (ptn->flags & PTN_FORMAT_VERSION) != 0; }

    // The flags of the keywords given in the innermost open block.
    [[nodiscard]] std::uint32_t& flags() const {
        switch (context) {
            case Context::BLOCK:
                return ptn->current->flags;
            case Context::TOOL:
            case Context::DATA:
                return ptn->current->current->flags;
            default:
                return ptn->flags;
        }
    }
    [[nodiscard]] tool_block& tool() const { return ptn->current->current->tool; }
    [[nodiscard]] data_block& data() const { return ptn->current->current->data; }
};

Outcome orNoMemory(bool done) {
    return done ? Outcome::GOOD : Outcome::NO_MEMORY;
}

// A copy for the table with each "%%" replaced by "%".
char* unescaped(const Reader& reader, const char* value) {
    char* copy = IgCmnStrdup(reader.memoryp, value);
    return copy != nullptr && IgCmnStrUnescapePercent(copy) == 0 ? copy : nullptr;
}

Outcome addUnescaped(const Reader& reader, IgCmnListHeader** list, const char* value) {
    char* copy = unescaped(reader, value);
    return orNoMemory(copy != nullptr && IgCmnListAppend(reader.memoryp, list, copy) != -1);
}

Outcome keepCopy(const Reader& reader, char** field, const char* value) {
    *field = IgCmnStrdup(reader.memoryp, value);
    return orNoMemory(*field != nullptr);
}

// --- format version ---

constexpr int versionPart(std::string_view digits) {
    if (digits.empty() || digits.size() > 2 || (digits.size() == 2 && digits[0] == '0')) {
        return -1;
    }
    int number = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') {
            return -1;
        }
        number = number * 10 + (c - '0');
    }
    return number;
}

// Major version times 100 plus minor version; -1 if the text is no version.
constexpr int versionNumber(std::string_view text) {
    const std::size_t dot = text.find('.');
    if (dot == std::string_view::npos) {
        return -1;
    }
    const int major = versionPart(text.substr(0, dot));
    const int minor = versionPart(text.substr(dot + 1));
    return major < 1 || minor < 0 ? -1 : major * 100 + minor;
}

constexpr int OWN_VERSION = versionNumber("1.0");
static_assert(OWN_VERSION == 100 && versionNumber("2.15") == 215 && versionNumber("1.00") == -1);

Outcome storeFormatVersion(Reader& /*reader*/, const Keyword& /*keyword*/, const char* value) {
    const int version = versionNumber(value);
    if (version < 0) {
        return Outcome::FORMAT;
    }
    return version > OWN_VERSION ? Outcome::NEWER : Outcome::GOOD;
}

// --- top level and block ---

Outcome storeVrs(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    reader.ptn->vrs = unescaped(reader, value);
    return orNoMemory(reader.ptn->vrs != nullptr);
}

Outcome storeText(Reader& reader, const Keyword& keyword, const char* value) {
    return addUnescaped(reader, &(reader.ptn->*keyword.pattern_list), value);
}

Outcome storeBlockText(Reader& reader, const Keyword& keyword, const char* value) {
    return addUnescaped(reader, &(reader.ptn->current->*keyword.block_list), value);
}

// --- tool items ---

Outcome storeInteger(Reader& reader, const Keyword& keyword, const char* value) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(value, &end, 10);
    if (end == value || *end != '\0' || errno == ERANGE || number < keyword.lowest ||
        number > keyword.highest) {
        return Outcome::SYNTAX;
    }
    reader.tool().*keyword.number = static_cast<std::int32_t>(number);
    return Outcome::GOOD;
}

// Whether the command of a command line, which may be in double quotes as a whole, has an absolute
// path. It ends at a blank, before which its path has begun.
bool beginsWithAbsPath(const char* line) {
    const std::size_t length = std::strlen(line);
    if (length > 1 && line[0] == '"' && line[length - 1] == '"') {
        ++line;
    }
    return IgCmnIsAbsPathIgnoreDQ(line + std::strspn(line, " \t")) != 0;
}

Outcome storeCommandLine(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    if (!beginsWithAbsPath(value)) {
        return Outcome::SYNTAX;
    }
    tool_block& tool = reader.tool();
    const Outcome outcome = keepCopy(reader, &tool.command_line, value);
    return outcome == Outcome::GOOD ? keepCopy(reader, &tool.command_line_copy, value) : outcome;
}

// Stores a path both as written and without its enclosing double quotes.
Outcome storePath(Reader& reader, const char* value, char** bare, char** written) {
    char* path = IgCmnStrRemoveDQ(reader.memoryp, value);
    if (path == nullptr) {
        return Outcome::NO_MEMORY;
    }
    if (IgCmnIsAbsPathIgnoreDQ(path) == 0) {
        return Outcome::SYNTAX;
    }
    *bare = path;
    return keepCopy(reader, written, value);
}

Outcome storeRedirectPath(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    return storePath(reader, value, &reader.tool().redirect_path,
                     &reader.tool().redirect_path_written);
}

// --- data items ---

// Only the first DESCRIPTION has a limit and "%%" replaced by "%"; further ones are stored as
// written.
Outcome storeDescription(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    if ((reader.flags() & DATA_DESCRIPTION) != 0) {
        return orNoMemory(IgIniCollectList(value, &reader.data().description, reader.memoryp) == 0);
    }
    if (std::strlen(value) > TEXT_LIMIT) {
        return Outcome::SYNTAX;
    }
    return addUnescaped(reader, &reader.data().description, value);
}

Outcome storeFileType(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    constexpr std::array<const char*, FILE_OTHER> WORDS{"text", "binary", "archive", "directory"};
    data_block& data = reader.data();
    data.file_type_word = unescaped(reader, value);
    if (data.file_type_word == nullptr) {
        return Outcome::NO_MEMORY;
    }
    data.file_type = FILE_OTHER;
    for (std::size_t i = 0; i < WORDS.size(); ++i) {
        if (std::strcmp(data.file_type_word, WORDS[i]) == 0) {
            data.file_type = static_cast<std::int32_t>(i);
        }
    }
    return Outcome::GOOD;
}

Outcome storePathName(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    return storePath(reader, value, &reader.data().path_name, &reader.data().path_name_written);
}

// --- keywords ---

// The keywords REG0 to REG9 are not here: they are a syntax error like every unknown word.
constexpr Keyword KEYWORDS[] = {
    {.name = "FORMAT_VERSION",
     .where = Context::NONE,
     .flag = PTN_FORMAT_VERSION,
     .only_once = true,
     .store = storeFormatVersion},
    {.name = "PP_VRS",
     .where = Context::NONE,
     .flag = PTN_VRS,
     .only_once = true,
     .may_be_empty = true,
     .longest = VERSION_LIMIT,
     .store = storeVrs},
    {.name = "PP_KATAMEI",
     .where = Context::NONE,
     .flag = PTN_KATAMEI,
     .only_once = true,
     .may_be_empty = true,
     .longest = TEXT_LIMIT,
     .store = storeText,
     .pattern_list = &pickptn_tbl::katamei},
    {.name = "PP_NAME",
     .where = Context::NONE,
     .flag = PTN_NAME,
     .only_once = true,
     .may_be_empty = true,
     .longest = TEXT_LIMIT,
     .store = storeText,
     .pattern_list = &pickptn_tbl::name},
    {.name = "PP_GROUP",
     .where = Context::NONE,
     .flag = PTN_GROUP,
     .may_be_empty = true,
     .longest = TEXT_LIMIT,
     .store = storeText,
     .pattern_list = &pickptn_tbl::group},
    {.name = "BLOCK", .where = Context::NONE, .opens = Context::BLOCK},
    {.name = "TARGET",
     .where = Context::BLOCK,
     .flag = BLOCK_TARGET,
     .may_be_empty = true,
     .longest = TEXT_LIMIT,
     .store = storeBlockText,
     .block_list = &ptn_block::target},
    {.name = "TOOL_BLOCK", .where = Context::BLOCK, .opens = Context::TOOL},
    {.name = "DATA_BLOCK", .where = Context::BLOCK, .opens = Context::DATA},
    {.name = "TIMEOUT",
     .where = Context::TOOL,
     .flag = TOOL_TIMEOUT,
     .only_once = true,
     .may_be_empty = true,
     .store = storeInteger,
     .number = &tool_block::timeout,
     .lowest = -1,
     .highest = 36000},
    {.name = "TIMEOUT_SIGNAL",
     .where = Context::TOOL,
     .flag = TOOL_TIMEOUT_SIGNAL,
     .only_once = true,
     .may_be_empty = true,
     .store = storeInteger,
     .number = &tool_block::timeout_signal,
     .lowest = 0,
     .highest = INT_MAX},
    {.name = "WAIT_TERMINATION",
     .where = Context::TOOL,
     .flag = TOOL_WAIT_TERMINATION,
     .only_once = true,
     .may_be_empty = true,
     .store = storeInteger,
     .number = &tool_block::wait_termination,
     .lowest = 0,
     .highest = 600},
    {.name = "COMMAND_LINE",
     .where = Context::TOOL,
     .flag = TOOL_COMMAND_LINE,
     .only_once = true,
     .longest = PATH_LIMIT,
     .store = storeCommandLine},
    {.name = "REDIRECT_PATH",
     .where = Context::TOOL,
     .flag = TOOL_REDIRECT_PATH,
     .only_once = true,
     .longest = PATH_LIMIT,
     .store = storeRedirectPath},
    {.name = "DESCRIPTION",
     .where = Context::DATA,
     .flag = DATA_DESCRIPTION,
     .may_be_empty = true,
     .store = storeDescription},
    {.name = "FILE_TYPE",
     .where = Context::DATA,
     .flag = DATA_FILE_TYPE,
     .only_once = true,
     .may_be_empty = true,
     .longest = TYPE_LIMIT,
     .store = storeFileType},
    {.name = "PATH_NAME",
     .where = Context::DATA,
     .flag = DATA_PATH_NAME,
     .only_once = true,
     .longest = PATH_LIMIT,
     .store = storePathName},
};

// Whether a row is complete. A general store function needs the member that it sets, and no other
// row has one. A keyword opens a block, or stores a value and has a flag.
constexpr bool isWhole(const Keyword& keyword) {
    const bool opens = keyword.opens != Context::NONE;
    return opens == (keyword.store == nullptr) && opens == (keyword.flag == 0) &&
           (keyword.store == storeText) == (keyword.pattern_list != nullptr) &&
           (keyword.store == storeBlockText) == (keyword.block_list != nullptr) &&
           (keyword.store == storeInteger) == (keyword.number != nullptr) &&
           keyword.lowest <= keyword.highest;
}
static_assert(std::all_of(std::begin(KEYWORDS), std::end(KEYWORDS), isWhole),
              "a keyword's row is incomplete");
static_assert(KEYWORDS[0].flag == PTN_FORMAT_VERSION);
constexpr const Keyword* FORMAT_VERSION = &KEYWORDS[0];

constexpr int levelOf(Context context) {
    return context == Context::NONE ? 1 : context == Context::BLOCK ? 2 : 3;
}

// Finds a keyword only where it is valid: in its own kind of block and at that block's level. The
// two do not agree while the opening brace of a block is missing.
const Keyword* getKeyword(const Reader& reader, const char* word) {
    const std::size_t length = std::strlen(word);
    for (const Keyword& keyword : KEYWORDS) {
        if (keyword.where == reader.context && levelOf(keyword.where) == reader.level &&
            keyword.name.size() == length && IgCmnStrCmpi(word, keyword.name.data()) == 0) {
            return &keyword;
        }
    }
    return nullptr;
}

// --- blocks ---

Outcome openBlock(Reader& reader) {
    ptn_block* block = IgIniGetPickPtnBlock(reader.memoryp);
    if (block == nullptr || IgCmnListAppend(reader.memoryp, &reader.ptn->blocks, block) == -1) {
        return Outcome::NO_MEMORY;
    }
    reader.ptn->current = block;
    reader.ptn->flags |= PTN_BLOCK;
    return Outcome::GOOD;
}

Outcome openItem(Reader& reader, ItemKind kind) {
    ptn_block* block = reader.ptn->current;
    collect_item* item = IgIniGetPickPtnCmdData(reader.memoryp, kind);
    if (item == nullptr || IgCmnListAppend(reader.memoryp, &block->items, item) == -1) {
        return Outcome::NO_MEMORY;
    }
    block->current = item;
    return Outcome::GOOD;
}

Outcome openContext(Reader& reader) {
    ++reader.level;
    switch (reader.context) {
        case Context::TOOL:
            return openItem(reader, ITEM_TOOL);
        case Context::DATA:
            return openItem(reader, ITEM_DATA);
        default:
            return openBlock(reader);
    }
}

Outcome closeContext(Reader& reader) {
    // The level and the context differ when a block keyword had no opening brace.
    if (reader.level == 1 || levelOf(reader.context) != reader.level) {
        return Outcome::SYNTAX;
    }
    if (reader.context == Context::TOOL && (reader.flags() & TOOL_COMMAND_LINE) == 0) {
        return Outcome::SYNTAX;
    }
    if (reader.context == Context::DATA && (reader.flags() & DATA_PATH_NAME) == 0) {
        return Outcome::SYNTAX;
    }
    reader.context = reader.context == Context::BLOCK ? Context::NONE : Context::BLOCK;
    --reader.level;
    return Outcome::GOOD;
}

// --- values ---

Outcome checkSpecialStrs(const Reader& reader, const char* value) {
    int bad = 0;
    if (IgCmnReplaceStrs(value, 1, reader.root, reader.memoryp, &bad) == nullptr) {
        return Outcome::NO_MEMORY;
    }
    if (bad == 0) {
        return Outcome::GOOD;
    }
    return reader.keyword == FORMAT_VERSION ? Outcome::FORMAT : Outcome::SYNTAX;
}

// Checks the value by its keyword's rules and stores it.
Outcome storeValue(Reader& reader) {
    const Keyword& keyword = *reader.keyword;
    const char* value = reader.value == nullptr ? "" : reader.value;
    if (const Outcome outcome = checkSpecialStrs(reader, value); outcome != Outcome::GOOD) {
        return outcome;
    }
    if (keyword.only_once && (reader.flags() & keyword.flag) != 0) {
        return Outcome::SYNTAX;
    }
    if (value[0] == '\0') {
        if (!keyword.may_be_empty) {
            return &keyword == FORMAT_VERSION ? Outcome::FORMAT : Outcome::SYNTAX;
        }
    } else {
        if (keyword.longest > 0 && std::strlen(value) > keyword.longest) {
            return Outcome::SYNTAX;
        }
        if (const Outcome outcome = keyword.store(reader, keyword, value);
            outcome != Outcome::GOOD) {
            return outcome;
        }
    }
    reader.flags() |= keyword.flag;
    return Outcome::GOOD;
}

// The buffer stays: the next value seldom needs a larger one.
void clearValue(Reader& reader) {
    if (reader.value != nullptr) {
        reader.value[0] = '\0';
    }
    reader.has_value = false;
}

Outcome appendValue(Reader& reader, const read_word& word) {
    reader.has_value = true;
    memory_pool* pool = reader.value_pool.get();
    int result = concat_data(pool, &reader.value, &reader.value_size, word.text);
    if (result == 0 && word.type == WORD_SPECIAL) {
        result = concat_data(pool, &reader.value, &reader.value_size, "%");
    }
    return orNoMemory(result == 0);
}

// --- statements: one function per state ---

Outcome inStatement(Reader& reader, const read_word& word) {
    switch (word.type) {
        case WORD_BLANK:
        case WORD_COMMENT:
        case WORD_NEWLINE:
            return Outcome::GOOD;
        case WORD_CLOSE:
            return closeContext(reader);
        case WORD_TEXT:
            break;
        default:
            return Outcome::SYNTAX;
    }
    reader.keyword = getKeyword(reader, word.text);
    if (reader.keyword == nullptr) {
        return Outcome::SYNTAX;
    }
    if (!reader.versionAccepted() && reader.keyword != FORMAT_VERSION) {
        return Outcome::FORMAT;
    }
    if (reader.keyword->store == nullptr) {
        reader.context = reader.keyword->opens;
        reader.brace_seen = false;
        reader.state = State::BRACE;
    } else {
        clearValue(reader);
        reader.state = State::EQUAL;
    }
    return Outcome::GOOD;
}

Outcome inEqual(Reader& reader, const read_word& word) {
    if (word.type == WORD_EQUAL) {
        reader.state = State::VALUE;
        return Outcome::GOOD;
    }
    return word.type == WORD_BLANK ? Outcome::GOOD : Outcome::SYNTAX;
}

Outcome inValue(Reader& reader, const read_word& word) {
    switch (word.type) {
        case WORD_TEXT:
        case WORD_QUOTED:
        case WORD_SPECIAL:
            return appendValue(reader, word);
        case WORD_BLANK:
            if (!reader.has_value) {
                return Outcome::GOOD;
            }
            reader.state = State::AFTER_VALUE;
            return storeValue(reader);
        case WORD_NEWLINE:
            reader.state = State::STATEMENT;
            return storeValue(reader);
        case WORD_COMMENT:
            // The statement stays open: a comment must be separated from the value by a blank.
            return storeValue(reader);
        default:
            return Outcome::SYNTAX;
    }
}

Outcome inAfterValue(Reader& reader, const read_word& word) {
    if (word.type != WORD_COMMENT && word.type != WORD_NEWLINE) {
        return Outcome::SYNTAX;
    }
    reader.state = State::STATEMENT;
    return Outcome::GOOD;
}

Outcome inBrace(Reader& reader, const read_word& word) {
    switch (word.type) {
        case WORD_BLANK:
            return Outcome::GOOD;
        case WORD_NEWLINE:
            reader.state = State::STATEMENT;
            return Outcome::GOOD;
        case WORD_OPEN:
            if (reader.brace_seen) {
                return Outcome::SYNTAX;
            }
            reader.brace_seen = true;
            return openContext(reader);
        default:
            return Outcome::SYNTAX;
    }
}

Outcome takeWord(Reader& reader, const read_word& word) {
    switch (reader.state) {
        case State::STATEMENT:
            return inStatement(reader, word);
        case State::EQUAL:
            return inEqual(reader, word);
        case State::VALUE:
            return inValue(reader, word);
        case State::AFTER_VALUE:
            return inAfterValue(reader, word);
        default:
            return inBrace(reader, word);
    }
}

// --- the file ---

Outcome atEnd(const Reader& reader) {
    const bool complete =
        reader.level == 1 && reader.versionAccepted() && (reader.ptn->flags & PTN_BLOCK) != 0;
    return complete ? Outcome::GOOD : Outcome::INCOMPLETE;
}

Outcome readWords(Reader& reader, IgCmnFileHandle& file) {
    read_word word{};
    for (;;) {
        if (IgMainIsInterrupted() != 0) {
            return Outcome::REPORTED;
        }
        switch (IgCmnFileWordRead(reader.root, &file, &word, reader.memoryp)) {
            case 0:
                break;
            case WORD_READ_END:
                return atEnd(reader);
            case WORD_READ_SYNTAX:
                return Outcome::INCOMPLETE;
            case -1:
                return Outcome::NO_MEMORY;
            default:
                return Outcome::REPORTED;
        }
        if (const Outcome outcome = takeWord(reader, word); outcome != Outcome::GOOD) {
            return outcome;
        }
    }
}

int report(const Reader& reader, Outcome outcome, int line_no) {
    if (outcome == Outcome::SYNTAX && !reader.versionAccepted()) {
        outcome = Outcome::FORMAT;
    }
    if (outcome == Outcome::GOOD || outcome == Outcome::NO_MEMORY) {
        return outcome == Outcome::GOOD ? 0 : -1;
    }
    // A file in the pattern directory may have any name: none may forge a line of the log or send
    // control characters to the terminal.
    LocalPool local;
    const char* shown = IgCmnStrPrintable(local.get(), reader.file_name);
    if (shown == nullptr) {
        return -1;
    }
    switch (outcome) {
        case Outcome::SYNTAX:
        case Outcome::INCOMPLETE:
            IgCmnMsg<ZEPA137_W>();
            IgCmnMsg<ZEPA138_W>(shown, line_no);
            break;
        case Outcome::FORMAT:
            IgCmnMsg<ZEPA139_W>(shown);
            break;
        case Outcome::NEWER:
            IgCmnMsg<ZEPA159_W>(shown);
            break;
        default:
            break;
    }
    return PTN_SKIPPED;
}

}  // namespace

int IgIniReadPtnDef(const char* file_name, root_tbl* root, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(file_name);
    IG_ASSERT_NOT_NULL(root);
    IG_ASSERT_NOT_NULL(memoryp);
    pickptn_tbl* crnt_ptn_def = root->crnt_ptn_def;
    IG_ASSERT_NOT_NULL(crnt_ptn_def);
    IgCmnFileHandle file{};
    if (const int opened = IgCmnFileOpen(&file, file_name, "r"); opened != 0) {
        return opened == -1 ? -1 : PTN_SKIPPED;
    }
    Reader reader{.file_name = file_name, .root = root, .memoryp = memoryp, .ptn = crnt_ptn_def};
    const Outcome outcome = readWords(reader, file);
    const int line_no = file.line_no;
    IgCmnFileClose(&file);
    return report(reader, outcome, line_no);
}
