#include "ini/IGIniReadCompDef.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniObserver.h"
#include "ini/IGIniTable.h"

namespace {

constexpr std::size_t LINE_LIMIT = 1024;  // bytes, line feed not counted
constexpr std::size_t DIRECTORY_LIMIT = 260;

// Why reading stops.
enum class Outcome {
    GOOD,
    SYNTAX,            // reported with its line; the values of earlier lines count
    SYNTAX_CHARACTER,  // a character that is not allowed: reported, and no value counts
    FAILED,            // reported where it happened
};

// The values while the file is read. They are copied to the root table at the end, or up to a
// syntax error.
struct Values {
    char* output_dir;
    std::int32_t cleanup;
    std::int64_t max_output_size;
};

struct Context {
    root_tbl* root;
    memory_pool* memoryp;
    Values values;
    std::uint32_t seen;  // bit i: key i of the table

    // for the observer
    std::int32_t line_no = 0;
    const char* line = nullptr;
    const char* value = nullptr;  // in the line; null before the "="
    std::string_view key{};
    bool goes_on = false;  // it wants more
};

TextPlace placeOf(const Context& context, const char* at) {
    return {context.line_no, static_cast<std::int32_t>(at - context.line) + 1};
}

// Tells the observer, if there is one, why the file is refused. A carriage return belongs to the
// value and is invisible: it is named as the reason.
Outcome refuse(Context& context, Mistake mistake, const char* at) {
    IniObserver* observer = context.root->observer;
    const bool is_character = mistake.reason == Refusal::CHARACTER_INVALID;
    if (observer != nullptr) {
        const char* end =
            std::strchr(context.value == nullptr ? context.line : context.value, '\r');
        const bool returns = end != nullptr && end[1] == '\0' && !is_character;
        mistake.reason = returns ? Refusal::CARRIAGE_RETURN : mistake.reason;
        mistake.place = placeOf(context, returns ? end : at);
        mistake.keyword = context.key;
        context.goes_on = observer->refused(mistake);
    }
    return is_character ? Outcome::SYNTAX_CHARACTER : Outcome::SYNTAX;
}

Outcome refuse(Context& context, Refusal reason, const char* at, long limit = 0) {
    return refuse(context, Mistake{.reason = reason, .place = {}, .limit = limit}, at);
}

Outcome refuseValue(Context& context, Refusal reason, long limit = 0) {
    return refuse(context, reason, context.value, limit);
}

Outcome refuseSpecialStr(Context& context, const char* value) {
    const BadSpecialStr bad = findBadSpecialStr(value);
    return refuse(context,
                  {.reason = bad.is_closed ? Refusal::SPECIAL_STRING_UNKNOWN
                                           : Refusal::SPECIAL_STRING_UNCLOSED,
                   .place = {},
                   .detail = bad.text},
                  context.value);
}

Outcome setDirectory(Context& context, const char* value) {
    if (std::strlen(value) > DIRECTORY_LIMIT) {
        return refuseValue(context, Refusal::VALUE_TOO_LONG, DIRECTORY_LIMIT);
    }
    const char* bare = IgCmnStrRemoveDQ(context.memoryp, value);
    if (bare == nullptr) {
        return Outcome::FAILED;
    }
    int bad = 0;
    if (IgCmnReplaceStrs(bare, 1, context.root, context.memoryp, &bad) == nullptr) {
        return Outcome::FAILED;
    }
    if (bad != 0) {
        return refuseSpecialStr(context, bare);
    }
    const char* directory = IgCmnReplaceStrs(bare, 1, context.root, context.memoryp, nullptr);
    if (directory == nullptr) {
        return Outcome::FAILED;
    }
    if (std::strlen(directory) > DIRECTORY_LIMIT) {
        return refuseValue(context, Refusal::VALUE_TOO_LONG, DIRECTORY_LIMIT);
    }
    if (IgCmnIsAbsPath(directory) == 0) {
        return refuseValue(context, Refusal::PATH_RELATIVE);
    }
    // Normalised like the option's value: after a symlink, ".." would not lead where the text says.
    const int normal = IgCmnFileNormPath(context.memoryp, directory, &context.values.output_dir);
    return normal == 0 ? Outcome::GOOD : Outcome::FAILED;
}

Outcome setCleanup(Context& context, const char* value) {
    if (std::strcmp(value, "ON") == 0) {
        context.values.cleanup = CLEANUP_ON;
    } else if (std::strcmp(value, "OFF") == 0) {
        context.values.cleanup = CLEANUP_OFF;
    } else {
        return refuseValue(context, Refusal::SWITCH_INVALID);
    }
    return Outcome::GOOD;
}

Outcome setMaxOutputSize(Context& context, const char* value) {
    char* end = nullptr;
    const long number = std::strtol(value, &end, 10);
    if (*end != '\0') {
        return refuseValue(context, Refusal::NUMBER_INVALID);
    }
    if (number < -1 || number > INT_MAX) {
        return refuse(
            context, {.reason = Refusal::NUMBER_RANGE, .place = {}, .lowest = -1, .limit = INT_MAX},
            context.value);
    }
    // Only the plain form is accepted: no leading zero, no "+".
    std::array<char, 16> plain{};
    std::snprintf(plain.data(), plain.size(), "%d", static_cast<int>(number));
    if (std::strcmp(plain.data(), value) != 0) {
        return refuseValue(context, Refusal::NUMBER_INVALID);
    }
    context.values.max_output_size = number;
    return Outcome::GOOD;
}

struct Key {
    const char* name;
    Outcome (*set)(Context& context, const char* value);
};

constexpr std::array<Key, 3> KEYS{{
    {"QUENDIL_DATA_DIRECTORY", setDirectory},
    {"QUENDIL_CLEANUP", setCleanup},
    {"QUENDIL_MAX_OUTPUT_DATA_SIZE", setMaxOutputSize},
}};

const Key* findKey(const char* name) {
    for (const Key& key : KEYS) {
        if (std::strcmp(key.name, name) == 0) {
            return &key;
        }
    }
    return nullptr;
}

Outcome readSetting(Context& context, char* line) {
    char* equal = std::strchr(line, '=');
    if (equal == nullptr) {
        return refuse(context, Refusal::LINE_INVALID, line);
    }
    context.value = equal + 1;
    context.key = {line, static_cast<std::size_t>(equal - line)};
    if (equal[1] == '\0') {
        return refuseValue(context, Refusal::VALUE_EMPTY);
    }
    if (equal[1] == ' ') {
        return refuseValue(context, Refusal::SETTING_BLANK);
    }
    *equal = '\0';
    const Key* key = findKey(line);
    if (key == nullptr) {
        return context.key.ends_with(' ') ? refuse(context, Refusal::SETTING_BLANK, equal - 1)
                                          : refuse(context, Refusal::KEYWORD_UNKNOWN, line);
    }
    const std::uint32_t bit = 1U << (key - KEYS.data());
    if ((context.seen & bit) != 0) {
        return refuse(context, Refusal::KEYWORD_REPEATED, line);
    }
    const Outcome outcome = key->set(context, equal + 1);
    if (outcome == Outcome::GOOD) {
        context.seen |= bit;
        if (context.root->observer != nullptr) {
            context.root->observer->accepted({ValueOwner::TOP, key->name, placeOf(context, line),
                                              placeOf(context, context.value), context.value,
                                              false});
        }
    }
    return outcome;
}

// The first tab, NUL or byte that is not ASCII, or `length`.
std::size_t forbiddenByte(const char* line, std::size_t length) {
    return static_cast<std::size_t>(std::find_if(line, line + length,
                                                 [](char c) {
                                                     return c == '\0' || c == '\t' ||
                                                            static_cast<unsigned char>(c) >= 0x80;
                                                 }) -
                                    line);
}

// The first character that is not allowed in a line of ASCII bytes.
const char* forbiddenCharacter(const char* line) {
    while (*line != '\0' && IgCmnStrIsAsciiChar(static_cast<wchar_t>(*line)) != 0) {
        ++line;
    }
    return line;
}

// One line of `length` bytes, its line feed included when it has one.
Outcome readLine(Context& context, char* line, std::size_t length) {
    context.line = line;
    context.value = nullptr;
    context.key = {};
    if (length > 0 && line[length - 1] == '\n') {
        line[--length] = '\0';
    }
    if (const std::size_t at = forbiddenByte(line, length); at < length) {
        return refuse(context, Refusal::CHARACTER_INVALID, line + at);
    }
    if (const int ascii = IgCmnStrIsAscii(line); ascii != 1) {
        return ascii == 0 ? refuse(context, Refusal::CHARACTER_INVALID, forbiddenCharacter(line))
                          : Outcome::FAILED;
    }
    if (length > LINE_LIMIT) {
        return refuse(context, Refusal::LINE_TOO_LONG, line + LINE_LIMIT, LINE_LIMIT);
    }
    if (line[0] == '#') {
        return Outcome::GOOD;
    }
    if (line[0] == '\0') {
        return refuse(context, Refusal::LINE_EMPTY, line);
    }
    // All keys share their first letter.
    return line[0] == KEYS[0].name[0] ? readSetting(context, line)
                                      : refuse(context, Refusal::LINE_INVALID, line);
}

// A read that a signal ended, such as from a pipe without data, is an interruption and not an error
// of the file.
void reportFailedRead(int error, const char* path) {
    if (IgMainIsInterrupted() == 0) {
        IgCmnSysErrPath("fgets", error, path);
    }
}

using LineBuffer = std::array<char, 1028>;

// Reads the rest of a line whose beginning fills the buffer.
void skipLine(std::FILE* stream, LineBuffer& line, std::size_t length) {
    while (length == line.size() - 1 && line[length - 1] != '\n') {
        length = readTextLine(stream, line.data(), line.size());
    }
}

bool isSyntax(Outcome outcome) {
    return outcome == Outcome::SYNTAX || outcome == Outcome::SYNTAX_CHARACTER;
}

// Reads the file up to its first mistake; with an observer that wants more, all of it. The outcome
// is that of the first mistake. After a failed read, the stream has its error and errno; the line
// that it interrupted is dropped.
Outcome readLines(Context& context, std::FILE* stream) {
    LineBuffer line{};
    Outcome first = Outcome::GOOD;
    for (context.line_no = 1;; ++context.line_no) {
        const std::size_t length = readTextLine(stream, line.data(), line.size());
        if (length == 0 || std::ferror(stream) != 0) {
            return std::ferror(stream) == 0 ? first : Outcome::FAILED;
        }
        const bool whole = line[length - 1] == '\n';
        const Outcome outcome = readLine(context, line.data(), length);
        if (outcome == Outcome::FAILED || (isSyntax(outcome) && !context.goes_on)) {
            return outcome;
        }
        first = first == Outcome::GOOD ? outcome : first;
        if (!whole) {
            skipLine(stream, line, length);
        }
    }
}

// The file was opened without waiting; reads wait for the rest of a pipe's data.
void waitForContent(std::FILE* stream) {
    const int flags = ::fcntl(::fileno(stream), F_GETFL);
    ::fcntl(::fileno(stream), F_SETFL, flags & ~O_NONBLOCK);
}

Context contextOf(root_tbl& root, memory_pool* memoryp) {
    return {&root, memoryp, {root.output_dir, root.cleanup, root.max_output_size}, 0};
}

void keepValues(const Context& context) {
    context.root->output_dir = context.values.output_dir;
    context.root->cleanup = context.values.cleanup;
    context.root->max_output_size = context.values.max_output_size;
}

}  // namespace

int IgIniReadCompDef(const char* compdef_file, root_tbl* root_tbl, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(compdef_file);
    IG_ASSERT_NOT_NULL(root_tbl);
    IG_ASSERT_NOT_NULL(memoryp);
    if (IgCmnFileIsDir(compdef_file) != 0) {
        IgCmnMsg<ZEPA106_E>(compdef_file);
        return -1;
    }
    const FileGuard stream(openStream(compdef_file, "r"));
    if (!stream) {
        if (errno == ENOENT) {
            IgCmnMsg<ZEPA118_E>(compdef_file);
        } else {
            IgCmnMsg<ZEPA112_E>(compdef_file);
        }
        return -1;
    }
    waitForContent(stream.get());
    Context context = contextOf(*root_tbl, memoryp);
    const Outcome outcome = readLines(context, stream.get());
    if (std::ferror(stream.get()) != 0) {
        reportFailedRead(errno, compdef_file);
        return -1;
    }
    if (isSyntax(outcome)) {
        IgCmnMsg<ZEPA119_E>();
        IgCmnMsg<ZEPA120_E>(compdef_file, context.line_no);
    }
    if (outcome == Outcome::GOOD || outcome == Outcome::SYNTAX) {
        keepValues(context);
    }
    return outcome == Outcome::GOOD ? 0 : -1;
}

int observeCompDef(std::FILE* stream, root_tbl& root, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(memoryp);
    Context context = contextOf(root, memoryp);
    const Outcome outcome = readLines(context, stream);
    keepValues(context);
    return outcome == Outcome::GOOD ? 0 : outcome == Outcome::FAILED ? -1 : COMPDEF_REFUSED;
}
