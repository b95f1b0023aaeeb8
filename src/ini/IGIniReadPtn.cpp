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
#include "ini/IGIniObserver.h"
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

    // for the observer
    TextPlace word_place{};             // of the last word
    TextPlace statement{};              // of the keyword
    TextPlace value_place{};            // where the value begins
    TextPlace blank{};                  // after the value
    TextPlace comment{};                // that is joined to the value
    std::array<TextPlace, 3> opened{};  // the keywords of the open blocks
    Refusal mistake = Refusal::COUNT;   // the last one
    bool goes_on = false;               // the observer wants more
    bool version_excused = false;  // its mistake is known: the rest is read as if it were right
    bool item_excused = false;     // a mistake in the item may be its missing keyword
    const Keyword* misplaced = nullptr;  // the keyword that is not valid where it stands

    [[nodiscard]] bool versionAccepted() const {
        return (ptn->flags & PTN_FORMAT_VERSION) != 0 || version_excused;
    }
    [[nodiscard]] IniObserver* observer() const { return root->observer; }

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

// Tells the observer, if there is one, why the file is refused.
Outcome refuse(Reader& reader, Mistake mistake, Outcome outcome = Outcome::SYNTAX) {
    if (reader.observer() != nullptr) {
        if (reader.comment.line != 0 && reader.word_place.line > reader.comment.line) {
            mistake = {.reason = Refusal::COMMENT_JOINED,
                       .place = {reader.word_place.line, 1},
                       .other = reader.comment};
        }
        if (mistake.keyword.empty() && reader.keyword != nullptr) {
            mistake.keyword = reader.keyword->name;
        }
        reader.mistake = mistake.reason;
        reader.goes_on = reader.observer()->refused(mistake);
    }
    return outcome;
}

// The same for the last word, and for the value.
Outcome refuseWord(Reader& reader, Refusal reason) {
    return refuse(reader, {.reason = reason, .place = reader.word_place});
}
Outcome refuseValue(Reader& reader, Refusal reason, Outcome outcome = Outcome::SYNTAX) {
    return refuse(reader, {.reason = reason, .place = reader.value_place}, outcome);
}

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

Outcome storeFormatVersion(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    const int version = versionNumber(value);
    if (version < 0) {
        return refuseValue(reader, Refusal::FORMAT_VERSION_INVALID, Outcome::FORMAT);
    }
    return version > OWN_VERSION
               ? refuseValue(reader, Refusal::FORMAT_VERSION_NEWER, Outcome::NEWER)
               : Outcome::GOOD;
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
    if (end == value || *end != '\0') {
        return refuseValue(reader, Refusal::NUMBER_INVALID);
    }
    if (errno == ERANGE || number < keyword.lowest || number > keyword.highest) {
        return refuse(reader, {.reason = Refusal::NUMBER_RANGE,
                               .place = reader.value_place,
                               .lowest = keyword.lowest,
                               .limit = keyword.highest});
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
        return refuseValue(reader, Refusal::PATH_RELATIVE);
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
        return refuseValue(reader, Refusal::PATH_RELATIVE);
    }
    *bare = path;
    return keepCopy(reader, written, value);
}

Outcome storeRedirectPath(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    return storePath(reader, value, &reader.tool().redirect_path,
                     &reader.tool().redirect_path_written);
}

// --- data items ---

// Refuses a value of more bytes than its keyword may have.
Outcome refuseLength(Reader& reader, std::size_t longest) {
    return refuse(reader, {.reason = Refusal::VALUE_TOO_LONG,
                           .place = reader.value_place,
                           .limit = static_cast<long>(longest)});
}

// Only the first DESCRIPTION has a limit and "%%" replaced by "%"; further ones are stored as
// written.
Outcome storeDescription(Reader& reader, const Keyword& /*keyword*/, const char* value) {
    if ((reader.flags() & DATA_DESCRIPTION) != 0) {
        return orNoMemory(IgIniCollectList(value, &reader.data().description, reader.memoryp) == 0);
    }
    if (std::strlen(value) > TEXT_LIMIT) {
        return refuseLength(reader, TEXT_LIMIT);
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

constexpr std::string_view nameOf(Context context) {
    switch (context) {
        case Context::BLOCK:
            return "BLOCK";
        case Context::TOOL:
            return "TOOL_BLOCK";
        case Context::DATA:
            return "DATA_BLOCK";
        default:
            return {};
    }
}

// The keyword of the innermost open block.
TextPlace openedBlock(const Reader& reader) {
    return reader.level > 1 ? reader.opened.at(static_cast<std::size_t>(reader.level) - 1)
                            : TextPlace{};
}

// Why a word is not accepted as a keyword where it stands.
Mistake keywordMistake(Reader& reader, const char* word) {
    const std::string_view name(word);
    Mistake mistake{
        .reason = Refusal::KEYWORD_UNKNOWN, .place = reader.word_place, .keyword = name};
    for (const Keyword& keyword : KEYWORDS) {
        if (keyword.name.size() == name.size() && IgCmnStrCmpi(word, keyword.name.data()) == 0) {
            const bool follows_block =
                keyword.opens != Context::NONE && levelOf(keyword.where) < reader.level;
            mistake.reason = follows_block ? Refusal::BLOCK_OPEN : Refusal::KEYWORD_MISPLACED;
            mistake.detail = nameOf(keyword.where);
            mistake.other = follows_block ? openedBlock(reader) : TextPlace{};
            reader.misplaced = &keyword;
        }
    }
    const bool reserved =
        name.size() == 4 && name[3] >= '0' && name[3] <= '9' &&
        IgCmnStrCmpi("REG", std::array{word[0], word[1], word[2], '\0'}.data()) == 0;
    if (reserved) {
        mistake.reason = Refusal::KEYWORD_RESERVED;
    }
    return mistake;
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
    reader.item_excused = false;
    return Outcome::GOOD;
}

Outcome makeRecord(Reader& reader) {
    switch (reader.context) {
        case Context::TOOL:
            return openItem(reader, ITEM_TOOL);
        case Context::DATA:
            return openItem(reader, ITEM_DATA);
        default:
            return openBlock(reader);
    }
}

Outcome openContext(Reader& reader) {
    ++reader.level;
    const Outcome outcome = makeRecord(reader);
    if (outcome == Outcome::GOOD && reader.observer() != nullptr) {
        reader.opened.at(static_cast<std::size_t>(reader.level) - 1) = reader.statement;
        const ptn_block& block = *reader.ptn->current;
        reader.observer()->opened(reader.statement, block,
                                  reader.context == Context::BLOCK ? nullptr : block.current);
    }
    return outcome;
}

// The level and the context differ when a block keyword had no opening brace.
bool lacksBrace(const Reader& reader) {
    return levelOf(reader.context) != reader.level;
}

Outcome refuseMissingBrace(Reader& reader) {
    return refuse(
        reader,
        {.reason = Refusal::BRACE_MISSING, .place = reader.word_place, .other = reader.statement});
}

void leaveContext(Reader& reader) {
    reader.context = reader.context == Context::BLOCK ? Context::NONE : Context::BLOCK;
}

// Whether the item that is closed has the keyword that it needs.
Outcome checkItem(Reader& reader) {
    if (reader.item_excused) {
        return Outcome::GOOD;
    }
    if (reader.context == Context::TOOL && (reader.flags() & TOOL_COMMAND_LINE) == 0) {
        return refuse(reader, {.reason = Refusal::COMMAND_LINE_MISSING,
                               .place = reader.word_place,
                               .other = openedBlock(reader)});
    }
    if (reader.context == Context::DATA && (reader.flags() & DATA_PATH_NAME) == 0) {
        return refuse(reader, {.reason = Refusal::PATH_NAME_MISSING,
                               .place = reader.word_place,
                               .other = openedBlock(reader)});
    }
    return Outcome::GOOD;
}

Outcome closeContext(Reader& reader) {
    reader.keyword = nullptr;
    if (lacksBrace(reader)) {
        return refuseMissingBrace(reader);
    }
    if (reader.level == 1) {
        return refuseWord(reader, Refusal::BRACE_UNEXPECTED);
    }
    const Outcome outcome = checkItem(reader);
    leaveContext(reader);
    --reader.level;
    return outcome;
}

// --- values ---

Outcome refuseSpecialStr(Reader& reader, const char* value) {
    const BadSpecialStr bad = findBadSpecialStr(value);
    const Outcome outcome = reader.keyword == FORMAT_VERSION ? Outcome::FORMAT : Outcome::SYNTAX;
    return refuse(reader,
                  {.reason = bad.is_closed ? Refusal::SPECIAL_STRING_UNKNOWN
                                           : Refusal::SPECIAL_STRING_UNCLOSED,
                   .place = reader.value_place,
                   .detail = bad.text},
                  outcome);
}

Outcome checkSpecialStrs(Reader& reader, const char* value) {
    int bad = 0;
    if (IgCmnReplaceStrs(value, 1, reader.root, reader.memoryp, &bad) == nullptr) {
        return Outcome::NO_MEMORY;
    }
    return bad == 0 ? Outcome::GOOD : refuseSpecialStr(reader, value);
}

// Checks the value by its keyword's rules and stores it.
Outcome storeChecked(Reader& reader, const Keyword& keyword, const char* value) {
    if (const Outcome outcome = checkSpecialStrs(reader, value); outcome != Outcome::GOOD) {
        return outcome;
    }
    if (keyword.only_once && (reader.flags() & keyword.flag) != 0) {
        return refuse(reader, {.reason = Refusal::KEYWORD_REPEATED, .place = reader.statement});
    }
    if (value[0] == '\0') {
        return keyword.may_be_empty
                   ? Outcome::GOOD
                   : refuseValue(reader, Refusal::VALUE_EMPTY,
                                 &keyword == FORMAT_VERSION ? Outcome::FORMAT : Outcome::SYNTAX);
    }
    if (keyword.longest > 0 && std::strlen(value) > keyword.longest) {
        return refuseLength(reader, keyword.longest);
    }
    return keyword.store(reader, keyword, value);
}

constexpr ValueOwner ownerOf(Context context) {
    switch (context) {
        case Context::NONE:
            return ValueOwner::TOP;
        case Context::BLOCK:
            return ValueOwner::BLOCK;
        default:
            return ValueOwner::ITEM;
    }
}

// `joined`: a comment follows without a blank.
Outcome storeValue(Reader& reader, bool joined = false) {
    const Keyword& keyword = *reader.keyword;
    const char* value = reader.value == nullptr ? "" : reader.value;
    if (!reader.has_value) {
        reader.value_place = reader.word_place;
    }
    const Outcome outcome = storeChecked(reader, keyword, value);
    if (outcome == Outcome::GOOD) {
        reader.flags() |= keyword.flag;
        if (reader.observer() != nullptr) {
            reader.observer()->accepted({ownerOf(reader.context), keyword.name, reader.statement,
                                         reader.value_place, value, joined});
        }
    }
    return outcome;
}

// The buffer stays: the next value seldom needs a larger one.
void clearValue(Reader& reader) {
    if (reader.value != nullptr) {
        reader.value[0] = '\0';
    }
    reader.has_value = false;
}

Outcome appendValue(Reader& reader, const read_word& word) {
    if (!reader.has_value) {
        reader.value_place = reader.word_place;
    }
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
            reader.keyword = nullptr;
            return lacksBrace(reader) ? refuseMissingBrace(reader)
                                      : refuseWord(reader, Refusal::STATEMENT_INVALID);
    }
    reader.keyword = getKeyword(reader, word.text);
    if (reader.keyword == nullptr) {
        return lacksBrace(reader) ? refuseMissingBrace(reader)
                                  : refuse(reader, keywordMistake(reader, word.text));
    }
    reader.statement = reader.word_place;
    reader.comment = {};
    if (!reader.versionAccepted() && reader.keyword != FORMAT_VERSION) {
        return refuse(reader, {.reason = Refusal::FORMAT_VERSION_FIRST, .place = reader.word_place},
                      Outcome::FORMAT);
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
    return word.type == WORD_BLANK ? Outcome::GOOD : refuseWord(reader, Refusal::EQUAL_MISSING);
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
            reader.blank = reader.word_place;
            return storeValue(reader);
        case WORD_NEWLINE:
            reader.state = State::STATEMENT;
            return storeValue(reader);
        case WORD_COMMENT:
            // The statement stays open: a comment must be separated from the value by a blank.
            if (reader.comment.line == 0) {
                reader.comment = reader.word_place;
            }
            return storeValue(reader, true);
        case WORD_PERCENT:
            return refuseWord(reader, Refusal::SPECIAL_STRING_UNCLOSED);
        default:
            return refuseWord(reader, Refusal::VALUE_MARK);
    }
}

Outcome inAfterValue(Reader& reader, const read_word& word) {
    if (word.type != WORD_COMMENT && word.type != WORD_NEWLINE) {
        return refuse(reader, {.reason = Refusal::VALUE_BLANK, .place = reader.blank});
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
                return refuseWord(reader, Refusal::BRACE_REPEATED);
            }
            reader.brace_seen = true;
            return openContext(reader);
        default:
            return reader.brace_seen ? refuseWord(reader, Refusal::BRACE_TEXT)
                                     : refuseMissingBrace(reader);
    }
}

Outcome takeWord(Reader& reader, const read_word& word) {
    if (word.type == WORD_INVALID) {
        return refuseWord(reader, Refusal::CHARACTER_INVALID);
    }
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

// The end of the file counts as the end of its last line.
Outcome atEnd(Reader& reader, const IgCmnFileHandle& file) {
    const bool complete =
        reader.level == 1 && reader.versionAccepted() && (reader.ptn->flags & PTN_BLOCK) != 0;
    if (complete) {
        return Outcome::GOOD;
    }
    const bool after_line = file.column == 0 && file.line_no > 1;
    reader.comment = {};
    reader.keyword = nullptr;
    Mistake mistake{.reason = Refusal::BLOCK_UNCLOSED,
                    .place = {after_line ? file.line_no - 1 : file.line_no, 1}};
    if (reader.level > 1) {
        mistake.other = openedBlock(reader);
    } else if (reader.mistake == Refusal::COUNT) {
        mistake.reason =
            reader.versionAccepted() ? Refusal::BLOCK_MISSING : Refusal::FORMAT_VERSION_MISSING;
    } else {
        return Outcome::INCOMPLETE;  // an earlier mistake may be the cause
    }
    return refuse(reader, mistake, Outcome::INCOMPLETE);
}

// Reads a word and notes its place. A character that is not allowed does not count.
int readWord(Reader& reader, IgCmnFileHandle& file, read_word& word) {
    const bool new_line = word.type == WORD_NEWLINE || word.type == WORD_COMMENT;
    const std::int32_t before = new_line ? 0 : file.column;
    const int result = IgCmnFileWordRead(reader.root, &file, &word, reader.memoryp);
    const bool invalid = result == 0 && word.type == WORD_INVALID;
    reader.word_place = {file.line_no, (invalid ? file.column : before) + 1};
    return result;
}

// The reader of words stops at a line that is too long, or at the end of a line inside quotes.
Outcome refuseLine(Reader& reader, const IgCmnFileHandle& file) {
    if (file.column <= WORD_LINE_LIMIT) {
        return refuse(reader, {.reason = Refusal::QUOTE_UNCLOSED, .place = reader.word_place},
                      Outcome::INCOMPLETE);
    }
    return refuse(reader,
                  {.reason = Refusal::LINE_TOO_LONG,
                   .place = {file.line_no, WORD_LINE_LIMIT},
                   .limit = WORD_LINE_LIMIT - 1},
                  Outcome::INCOMPLETE);
}

Outcome takeNext(Reader& reader, IgCmnFileHandle& file, read_word& word, bool& ended) {
    switch (readWord(reader, file, word)) {
        case 0:
            return takeWord(reader, word);
        case WORD_READ_END:
            ended = true;
            return atEnd(reader, file);
        case WORD_READ_SYNTAX:
            return refuseLine(reader, file);
        case -1:
            return Outcome::NO_MEMORY;
        default:
            return Outcome::REPORTED;
    }
}

// Repairs the state of the reader after a missing opening brace.
bool supplyBrace(Reader& reader, const read_word& word) {
    if (word.type == WORD_CLOSE) {
        leaveContext(reader);
        return true;
    }
    return openContext(reader) == Outcome::GOOD;
}

// Whether the misplaced keyword opens an item at the top: the BLOCK is missing, or was closed by
// one brace too many.
bool isItemOutsideOfBlock(const Reader& reader) {
    return reader.context == Context::NONE && reader.misplaced->where == Context::BLOCK &&
           reader.misplaced->opens != Context::NONE;
}

bool supplyBlock(Reader& reader) {
    reader.context = Context::BLOCK;
    reader.statement = reader.word_place;
    return openContext(reader) == Outcome::GOOD;
}

// After a mistake: makes an observed file continue on the next line, or on the same one when the
// mistake is an earlier one. Returns false to end the reading.
bool continueAfter(Reader& reader, IgCmnFileHandle& file, read_word& word) {
    bool same_line = reader.mistake == Refusal::COMMENT_JOINED;
    Skipped skipped = Skipped::NOTHING;
    switch (reader.mistake) {
        case Refusal::COMMAND_LINE_MISSING:
        case Refusal::PATH_NAME_MISSING:
            return true;  // nothing was left out
        case Refusal::BRACE_MISSING:
            same_line = reader.state == State::STATEMENT && word.type == WORD_TEXT;
            if (lacksBrace(reader) && !supplyBrace(reader, word)) {
                return false;
            }
            break;
        case Refusal::FORMAT_VERSION_FIRST:
            same_line = true;
            break;
        case Refusal::BLOCK_OPEN:
            same_line = true;
            while (reader.context != reader.misplaced->where) {
                leaveContext(reader);
                --reader.level;
            }
            break;
        case Refusal::KEYWORD_MISPLACED:
            same_line = isItemOutsideOfBlock(reader);
            if (!same_line) {
                skipped = Skipped::OPENS;
            } else if (!supplyBlock(reader)) {
                return false;
            }
            break;
        case Refusal::KEYWORD_UNKNOWN:
        case Refusal::KEYWORD_RESERVED:
        case Refusal::STATEMENT_INVALID:
            skipped = Skipped::OPENS;
            break;
        case Refusal::BRACE_TEXT:
        case Refusal::VALUE_BLANK:
        case Refusal::VALUE_MARK:
            skipped = Skipped::CLOSES;
            break;
        default:
            break;
    }
    reader.version_excused = true;  // the line with the mistake may be that of the version
    reader.item_excused = true;
    reader.state = State::STATEMENT;
    reader.comment = {};
    word.type = WORD_TEXT;
    return reader.observer()->resume(file, same_line ? file.line_no : file.line_no + 1, skipped);
}

Outcome readWords(Reader& reader, IgCmnFileHandle& file) {
    read_word word{};
    Outcome first = Outcome::GOOD;
    for (bool ended = false; !ended;) {
        if (IgMainIsInterrupted() != 0) {
            return Outcome::REPORTED;
        }
        const Outcome outcome = takeNext(reader, file, word, ended);
        if (outcome == Outcome::GOOD) {
            continue;
        }
        first = first == Outcome::GOOD ? outcome : first;
        if (!reader.goes_on || ended || outcome == Outcome::NO_MEMORY ||
            outcome == Outcome::REPORTED || outcome == Outcome::NEWER ||
            !continueAfter(reader, file, word)) {
            const bool failed = outcome == Outcome::NO_MEMORY || outcome == Outcome::REPORTED;
            return failed ? outcome : first;
        }
    }
    return first;
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

int observePtnDef(IgCmnFileHandle& file, root_tbl& root, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(memoryp);
    Reader reader{
        .file_name = file.name, .root = &root, .memoryp = memoryp, .ptn = root.crnt_ptn_def};
    switch (readWords(reader, file)) {
        case Outcome::GOOD:
            return 0;
        case Outcome::NO_MEMORY:
        case Outcome::REPORTED:
            return -1;
        default:
            return PTN_SKIPPED;
    }
}

std::string_view patternKeyword(std::size_t index) {
    return index < std::size(KEYWORDS) ? KEYWORDS[index].name : std::string_view();
}
