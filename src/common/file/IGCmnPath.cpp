#include "common/file/IGCmnPath.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/report/IGCmnMessage.h"

namespace {

bool isSeparator(wchar_t c) {
    return c == L' ' || c == L'\t';
}

// Finds the end of the command that begins at `text`: a blank or tab outside its quotes, or the end
// of the text.
wchar_t* endOfCommand(wchar_t* text) {
    wchar_t* c = text;
    if (*text == L'"') {
        ++c;
        while (*c != L'\0' && *c != L'"') {
            ++c;
        }
    }
    while (*c != L'\0' && !isSeparator(*c)) {
        ++c;
    }
    return c;
}

int toPool(const wchar_t* wide, char** result, memory_pool* memoryp) {
    char* bytes = IgCmnWCS2MBS(memoryp, wide);
    if (bytes == nullptr) {
        return -1;
    }
    *result = bytes;
    return 0;
}

// Appends one component to the absolute path from `start` to `end`. Returns the new end.
char* appendComponent(const char* start, char* end, const char* component, std::size_t length) {
    if (length == 0 || (length == 1 && component[0] == '.')) {
        return end;
    }
    if (length == 2 && component[0] == '.' && component[1] == '.') {
        while (end > start && *--end != '/') {
        }
        return end;
    }
    *end++ = '/';
    std::memcpy(end, component, length);
    return end + length;
}

char* appendPath(const char* start, char* end, const char* more) {
    while (*more != '\0') {
        const std::size_t length = std::strcspn(more, "/");
        end = appendComponent(start, end, more, length);
        more += length + (more[length] == '/' ? 1 : 0);
    }
    return end;
}

// Whether a path is absolute and has no empty, "." or ".." component and no slash at its end. Most
// paths are written like this.
bool isNormal(const char* path) {
    if (path[0] != '/') {
        return false;
    }
    while (*path == '/') {
        const char* name = path + 1;
        const std::size_t length = std::strcspn(name, "/");
        const bool dots = length <= 2 && std::strncmp(name, "..", length) == 0;
        if (length == 0 || dots) {
            return false;
        }
        path = name + length;
    }
    return true;
}

}  // namespace

int IgCmnFileSplitPath(const char* path_name, char** directory, char** file, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(path_name);
    IG_ASSERT_NOT_NULL(memoryp);
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), path_name);
    if (wide == nullptr) {
        return -1;
    }
    wchar_t* slash = lastSlash(wide);
    if (file != nullptr) {
        *file = nullptr;
        if (slash != nullptr && toPool(slash + 1, file, memoryp) != 0) {
            return -1;
        }
    }
    if (slash != nullptr) {
        *slash = L'\0';
    }
    return directory == nullptr ? 0 : toPool(wide, directory, memoryp);
}

int IgCmnFileNormPath(memory_pool* memoryp, const char* path, char** result) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(path);
    IG_ASSERT_NOT_NULL(result);
    if (isNormal(path)) {
        char* copy = IgCmnStrdup(memoryp, path);
        *result = copy != nullptr ? copy : *result;
        return copy != nullptr ? 0 : -1;
    }
    std::array<char, PATH_MAX + 1> cwd{};
    if (path[0] != '/' && IgCmnFileGetCwd(cwd.data(), cwd.size()) == nullptr) {
        return -1;
    }
    // Each component gets one slash, so the result has at most one byte more than the two texts.
    LocalPool local;
    auto* normal = newFromPool<char>(local.get(), std::strlen(cwd.data()) + std::strlen(path) + 3);
    if (normal == nullptr) {
        return -1;
    }
    char* end = appendPath(normal, normal, cwd.data());
    end = appendPath(normal, end, path);
    if (end == normal) {
        *end++ = '/';
    }
    char* exact = IgCmnStrndup(memoryp, normal, static_cast<std::size_t>(end - normal));
    if (exact == nullptr) {
        return -1;
    }
    *result = exact;
    return 0;
}

int IgCmnIsAbsPath(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    return path[0] == '/' ? 1 : 0;
}

int IgCmnFileSplitCmdOpt(const char* path_name, char** command, char** options,
                         memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(path_name);
    IG_ASSERT_NOT_NULL(command);
    IG_ASSERT_NOT_NULL(options);
    IG_ASSERT_NOT_NULL(memoryp);
    LocalPool local;
    wchar_t* start = IgCmnMBS2WCS(local.get(), path_name);
    if (start == nullptr) {
        return -1;
    }
    while (isSeparator(*start)) {
        ++start;
    }
    *command = nullptr;
    *options = nullptr;
    if (*start == L'\0') {
        return 0;
    }
    wchar_t* end = endOfCommand(start);
    if (*end != L'\0') {
        *end = L'\0';
        if (toPool(end + 1, options, memoryp) != 0) {
            return -1;
        }
    }
    return toPool(start, command, memoryp);
}

char* IgCmnFileGetCwd(char* buffer, std::size_t size) {
    IG_ASSERT_NOT_NULL(buffer);
    if (::getcwd(buffer, size) == nullptr) {
        IgCmnSysErrPlain("getcwd", errno);
        return nullptr;
    }
    return buffer;
}
