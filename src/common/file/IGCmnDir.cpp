#include "common/file/IGCmnDir.h"

#include <sys/stat.h>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/file/IGCmnFile.h"
#include "common/report/IGCmnMessage.h"

bool splitSearch(const char* search_name, Search& search, memory_pool* memoryp) {
    const char* slash = lastSlash(search_name);
    if (slash == nullptr) {
        search = {".", search_name};
        return true;
    }
    const auto length = static_cast<std::size_t>(slash - search_name);
    search = {length == 0 ? "/" : IgCmnStrndup(memoryp, search_name, length), slash + 1};
    return search.directory != nullptr;
}

int matchName(const char* wildcard, const char* name) {
    // "*" also matches names that the locale cannot decode.
    if (wildcard == nullptr || std::strcmp(wildcard, "*") == 0) {
        return 0;
    }
    return ::fnmatch(wildcard, name, FNM_NOESCAPE);
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
