#include "common/IGCmnPath.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>

#include "common/IGAncestor.h"
#include "common/IGAssert.h"
#include "common/IGCmnFile.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnStr.h"
#include "common/IGGuards.h"
#include "common/IGInodeSet.h"
#include "common/IGKernelFileSystem.h"
#include "common/IGRunState.h"

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

bool isDotEntry(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// 0 for a match, FNM_NOMATCH for none; anything else is a failure of the comparison.
int matchName(const char* wildcard, const char* name) {
    // "*" by itself also matches what the locale cannot decode.
    if (wildcard == nullptr || std::strcmp(wildcard, "*") == 0) {
        return 0;
    }
    return ::fnmatch(wildcard, name, FNM_NOESCAPE);
}

// Directory and last component of a search name, as bytes: a name that the locale cannot decode is
// a name all the same.
struct Search {
    const char* directory;
    const char* wildcard;
};

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

class TreeLister {
  public:
    TreeLister(IgCmnListHeader** entries, memory_pool* memoryp)
        : entries_(entries), memoryp_(memoryp), entered_(local_.get()) {}

    // How a directory was come to, which decides whether it is entered.
    enum class Way {
        NAMED,    // as the search itself
        MATCHED,  // by the search's wildcard
        REAL,     // from its own parent
        BY_LINK,  // through a symbolic link, here or further up
    };

    // The path and, when it is a directory, all that lies below it. `link_in` is the directory in
    // which a link of that path was found; null when the path is no link or was named.
    int add(const char* path, const Ancestor* ancestors, Way way, const char* link_in = nullptr) {
        struct stat st = {};
        if (::stat(path, &st) != 0) {
            // Of the search itself nothing is found then, which the caller tells.
            return way == Way::NAMED ? 0 : reportMissing(path);
        }
        auto* entry = newFromPool<FileEntry>(memoryp_);
        if (entry == nullptr) {
            return -1;
        }
        *entry = {path, S_ISDIR(st.st_mode)};
        if (IgCmnListAppend(memoryp_, entries_, entry) == -1) {
            return -1;
        }
        if (!entry->is_directory || Ancestor::contains(ancestors, st)) {
            return 0;
        }
        return enter(path, st, ancestors, way, link_in);
    }

    // The entries of a directory that match. They are read before the first one is entered, so that
    // no descriptor stays open on the way down.
    int addMatches(const char* directory, const char* wildcard, const Ancestor* ancestors,
                   Way way) {
        LocalPool local;
        IgCmnListHeader* names = nullptr;
        if (IgCmnDirReadNames(directory, wildcard, &names, local.get()) == -1) {
            return -1;
        }
        for (const char& name : walkStrings(names)) {
            if (IgMainIsInterrupted() != 0) {
                return 0;
            }
            const char* path = IgCmnStrCatDir(memoryp_, directory, &name);
            if (path == nullptr) {
                return -1;
            }
            const char* link_in = isLink(path) ? directory : nullptr;
            const Way found = way == Way::REAL && link_in != nullptr ? Way::BY_LINK : way;
            if (add(path, ancestors, found, link_in) == -1) {
                return -1;
            }
        }
        return 0;
    }

  private:
    // A directory is entered through links once only, and not at all where the kernel's own file
    // systems link everything with everything: else there would be a path for every way through the
    // graph of links. Where nobody can tell the file system it might be one of those.
    int enter(const char* path, const struct stat& st, const Ancestor* ancestors, Way way,
              const char* link_in) {
        if (link_in != nullptr && leadsOut(link_in, path)) {
            return 0;
        }
        const InodeSet::Added added = entered_.add(st);
        if (added == InodeSet::Added::NO_MEMORY) {
            return -1;
        }
        if (way == Way::BY_LINK &&
            (added == InodeSet::Added::KNOWN || liesInKernelFileSystem(path) != 0)) {
            return 0;
        }
        const Ancestor here{st.st_dev, st.st_ino, ancestors};
        return addMatches(path, nullptr, &here, way == Way::BY_LINK ? way : Way::REAL);
    }

    // Whether a link found in the kernel's own file systems leaves them: a process's "root" is the
    // whole machine, and its "cwd" may be as much.
    static bool leadsOut(const char* link_in, const char* path) {
        return liesInKernelFileSystem(link_in) != 0 && liesInKernelFileSystem(path) != 1;
    }

    static bool isLink(const char* path) {
        struct stat st = {};
        return ::lstat(path, &st) == 0 && S_ISLNK(st.st_mode);
    }

    int reportMissing(const char* path) {
        const char* shown = IgCmnStrPrintable(memoryp_, path);
        if (shown == nullptr) {
            return -1;
        }
        IgCmnMsg<ZEPA129_W>(shown);
        return 0;
    }

    LocalPool local_;
    IgCmnListHeader** entries_;
    memory_pool* memoryp_;
    InodeSet entered_;
};

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
    for (;;) {
        errno = 0;
        const struct dirent* entry = ::readdir(dir.get());
        if (entry == nullptr) {
            break;
        }
        if (isDotEntry(entry->d_name)) {
            continue;
        }
        const int match = matchName(wildcard, entry->d_name);
        if (match != 0 && match != FNM_NOMATCH) {
            IgCmnSysErrPath("fnmatch", errno, directory);
            return FILE_LIST_FAILED;
        }
        if (match == 0 && makeList(entry->d_name, names, memoryp) != 0) {
            return -1;
        }
    }
    if (errno != 0) {
        IgCmnSysErrPath("readdir", errno, directory);
        return FILE_LIST_FAILED;
    }
    return 0;
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

int IgCmnFileMakeTreeList(const char* search_name, IgCmnListHeader** entries,
                          memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(search_name);
    IG_ASSERT_NOT_NULL(entries);
    IG_ASSERT_NOT_NULL(memoryp);
    TreeLister lister(entries, memoryp);
    if (IgCmnFileExists(search_name) != 0) {
        const char* path = IgCmnStrdup(memoryp, search_name);
        return path == nullptr ? -1 : lister.add(path, nullptr, TreeLister::Way::NAMED);
    }
    if (IgCmnFileIsTaken(search_name) != 0) {
        return 0;  // a link to nowhere: nothing is found, which the caller tells
    }
    Search search{};
    if (!splitSearch(search_name, search, memoryp)) {
        return -1;
    }
    return lister.addMatches(search.directory, search.wildcard, nullptr, TreeLister::Way::MATCHED);
}
