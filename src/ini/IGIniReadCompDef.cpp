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

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
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
};

Outcome setDirectory(Context& context, const char* value) {
    if (std::strlen(value) > DIRECTORY_LIMIT) {
        return Outcome::SYNTAX;
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
        return Outcome::SYNTAX;
    }
    const char* directory = IgCmnReplaceStrs(bare, 1, context.root, context.memoryp, nullptr);
    if (directory == nullptr) {
        return Outcome::FAILED;
    }
    if (std::strlen(directory) > DIRECTORY_LIMIT || IgCmnIsAbsPath(directory) == 0) {
        return Outcome::SYNTAX;
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
        return Outcome::SYNTAX;
    }
    return Outcome::GOOD;
}

Outcome setMaxOutputSize(Context& context, const char* value) {
    char* end = nullptr;
    const long number = std::strtol(value, &end, 10);
    if (*end != '\0' || number < -1 || number > INT_MAX) {
        return Outcome::SYNTAX;
    }
    // Only the plain form is accepted: no leading zero, no "+".
    std::array<char, 16> plain{};
    std::snprintf(plain.data(), plain.size(), "%d", static_cast<int>(number));
    if (std::strcmp(plain.data(), value) != 0) {
        return Outcome::SYNTAX;
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
    if (equal == nullptr || equal[1] == '\0' || equal[1] == ' ') {
        return Outcome::SYNTAX;
    }
    *equal = '\0';
    const Key* key = findKey(line);
    if (key == nullptr) {
        return Outcome::SYNTAX;
    }
    const std::uint32_t bit = 1U << (key - KEYS.data());
    if ((context.seen & bit) != 0) {
        return Outcome::SYNTAX;
    }
    const Outcome outcome = key->set(context, equal + 1);
    if (outcome == Outcome::GOOD) {
        context.seen |= bit;
    }
    return outcome;
}

// Whether the line has a tab, a NUL or a byte that is not ASCII.
bool hasForbiddenByte(const char* line, std::size_t length) {
    return std::any_of(line, line + length, [](char c) {
        return c == '\0' || c == '\t' || static_cast<unsigned char>(c) >= 0x80;
    });
}

// One line of `length` bytes, its line feed included when it has one.
Outcome readLine(Context& context, char* line, std::size_t length) {
    if (length > 0 && line[length - 1] == '\n') {
        line[--length] = '\0';
    }
    if (hasForbiddenByte(line, length)) {
        return Outcome::SYNTAX_CHARACTER;
    }
    if (const int ascii = IgCmnStrIsAscii(line); ascii != 1) {
        return ascii == 0 ? Outcome::SYNTAX_CHARACTER : Outcome::FAILED;
    }
    if (length > LINE_LIMIT) {
        return Outcome::SYNTAX;
    }
    if (line[0] == '#') {
        return Outcome::GOOD;
    }
    // All keys share their first letter.
    return line[0] == KEYS[0].name[0] ? readSetting(context, line) : Outcome::SYNTAX;
}

// A read that a signal ended, such as from a pipe without data, is an interruption and not an error
// of the file.
Outcome readFailed(int error, const char* path) {
    if (IgMainIsInterrupted() == 0) {
        IgCmnSysErrPath("fgets", error, path);
    }
    return Outcome::FAILED;
}

Outcome readLines(Context& context, std::FILE* stream, const char* path) {
    std::array<char, 1028> line{};
    for (int line_no = 1;; ++line_no) {
        const std::size_t length = readTextLine(stream, line.data(), line.size());
        if (length == 0 || std::ferror(stream) != 0) {
            break;  // an incomplete line of a failed read is dropped
        }
        const Outcome outcome = readLine(context, line.data(), length);
        if (outcome == Outcome::SYNTAX || outcome == Outcome::SYNTAX_CHARACTER) {
            IgCmnMsg<ZEPA119_E>();
            IgCmnMsg<ZEPA120_E>(path, line_no);
        }
        if (outcome != Outcome::GOOD) {
            return outcome;
        }
    }
    return std::ferror(stream) == 0 ? Outcome::GOOD : readFailed(errno, path);
}

// The file was opened without waiting; reads wait for the rest of a pipe's data.
void waitForContent(std::FILE* stream) {
    const int flags = ::fcntl(::fileno(stream), F_GETFL);
    ::fcntl(::fileno(stream), F_SETFL, flags & ~O_NONBLOCK);
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
    Context context{
        root_tbl, memoryp, {root_tbl->output_dir, root_tbl->cleanup, root_tbl->max_output_size}, 0};
    const Outcome outcome = readLines(context, stream.get(), compdef_file);
    if (outcome == Outcome::GOOD || outcome == Outcome::SYNTAX) {
        root_tbl->output_dir = context.values.output_dir;
        root_tbl->cleanup = context.values.cleanup;
        root_tbl->max_output_size = context.values.max_output_size;
    }
    return outcome == Outcome::GOOD ? 0 : -1;
}
