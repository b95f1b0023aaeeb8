#include "common/IGCmnPath.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>

#include "common/IGAssert.h"
#include "common/IGCmnFile.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnStr.h"
#include "common/IGGuards.h"

namespace {

bool isSeparator(wchar_t c) {
    return c == L' ' || c == L'\t';
}

// The end of the command that begins at `text`: a blank or tab outside its quotes, or the end.
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

// Appends one component to the absolute path from `start` to `end`; the new end.
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

}  // namespace

int IgCmnFileSplitPath(const char* path_name, char** directory, char** file, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(path_name);
    IG_ASSERT_NOT_NULL(memoryp);
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), path_name);
    if (wide == nullptr) {
        return -1;
    }
    wchar_t* slash = std::wcsrchr(wide, L'/');
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
    std::array<char, PATH_MAX + 1> cwd{};
    if (path[0] != '/' && IgCmnFileGetCwd(cwd.data(), cwd.size()) == nullptr) {
        return -1;
    }
    // Each component brings one slash: that is at most one byte more than the two texts together.
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

int IgCmnIsAbsPathIgnoreDQ(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    path += std::strspn(path, "\"");
    return path[0] == '%' ? 1 : IgCmnIsAbsPath(path);
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

int makeList(const char* find_file, IgCmnListHeader** search_file_list, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(find_file);
    IG_ASSERT_NOT_NULL(search_file_list);
    IG_ASSERT_NOT_NULL(memoryp);
    char* copy = IgCmnStrdup(memoryp, find_file);
    return copy == nullptr || IgCmnListAppend(memoryp, search_file_list, copy) == -1 ? -1 : 0;
}

int IgCmnDirReadNames(const char* directory, const char* wildcard, IgCmnListHeader** names,
                      memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(directory);
    IG_ASSERT_NOT_NULL(names);
    IG_ASSERT_NOT_NULL(memoryp);
    const DirGuard dir(::opendir(directory));
    if (!dir) {
        IgCmnSysErrPath("opendir", errno, directory);
        return FILE_LIST_FAILED;
    }
    return readNames(dir.get(), directory, wildcard, [&](const struct dirent& entry) {
        return makeList(entry.d_name, names, memoryp) == 0;
    });
}

int matchName(const char* wildcard, const char* name) {
    // "*" by itself also matches what the locale cannot decode.
    if (wildcard == nullptr || std::strcmp(wildcard, "*") == 0) {
        return 0;
    }
    return ::fnmatch(wildcard, name, FNM_NOESCAPE);
}

bool splitSearch(const char* search_name, Search& search, memory_pool* memoryp) {
    const char* slash = std::strrchr(search_name, '/');
    if (slash == nullptr) {
        search = {".", search_name};
        return true;
    }
    const auto length = static_cast<std::size_t>(slash - search_name);
    search = {length == 0 ? "/" : IgCmnStrndup(memoryp, search_name, length), slash + 1};
    return search.directory != nullptr;
}

std::uint32_t countEntries(const char* directory, const char* beginning) {
    IG_ASSERT_NOT_NULL(directory);
    IG_ASSERT_NOT_NULL(beginning);
    const DirGuard dir(::opendir(directory));
    if (!dir) {
        IgCmnSysErrPath("opendir", errno, directory);
        return 0;
    }
    const std::size_t length = std::strlen(beginning);
    std::uint32_t count = 0;
    readNames(dir.get(), directory, nullptr, [&](const struct dirent& entry) {
        count += std::strncmp(entry.d_name, beginning, length) == 0 ? 1 : 0;
        return true;
    });
    return count;
}

Listing listMatches(const char* search_name, IgCmnListHeader** search_file_list,
                    memory_pool* memoryp, int skip_directories) {
    if (IgCmnFileExists(search_name) != 0) {
        return makeList(search_name, search_file_list, memoryp) == 0 ? Listing::FOUND
                                                                     : Listing::NO_MEMORY;
    }
    LocalPool local;
    Search search{};
    IgCmnListHeader* names = nullptr;
    if (!splitSearch(search_name, search, local.get())) {
        return Listing::NO_MEMORY;
    }
    const int read = IgCmnDirReadNames(search.directory, search.wildcard, &names, local.get());
    if (read != 0) {
        return read == -1 ? Listing::NO_MEMORY : Listing::FAILED;
    }
    Listing listing = Listing::NOTHING;
    for (const char& name : walkStrings(names)) {
        const char* path = IgCmnStrCatDir(local.get(), search.directory, &name);
        if (path == nullptr) {
            return Listing::NO_MEMORY;
        }
        struct stat st = {};
        if (::stat(path, &st) != 0) {
            IgCmnSysErrPath("stat", errno, path);
            return Listing::FAILED;
        }
        if (skip_directories != 0 && S_ISDIR(st.st_mode)) {
            continue;
        }
        if (makeList(path, search_file_list, memoryp) != 0) {
            return Listing::NO_MEMORY;
        }
        listing = Listing::FOUND;
    }
    return listing;
}

int IgCmnFileMakeList(const char* search_name, IgCmnListHeader** search_file_list,
                      memory_pool* memoryp, int skip_directories) {
    IG_ASSERT_NOT_NULL(search_name);
    IG_ASSERT_NOT_NULL(search_file_list);
    IG_ASSERT_NOT_NULL(memoryp);
    switch (listMatches(search_name, search_file_list, memoryp, skip_directories)) {
        case Listing::FOUND:
            return 0;
        case Listing::NO_MEMORY:
            return -1;
        default:
            return FILE_LIST_FAILED;
    }
}
