// Reads, matches, counts and lists the entries of one directory.
#ifndef QUENDIL_COMMON_FILE_IGCMNDIR_H
#define QUENDIL_COMMON_FILE_IGCMNDIR_H

#include <dirent.h>
#include <fnmatch.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/report/IGCmnMessage.h"

/// Result of the functions that list: a reported failure; of IgCmnFileMakeList also that nothing
/// matched.
inline constexpr int FILE_LIST_FAILED = 9;

/// The result of a listing.
enum class Listing {
    FOUND,
    NOTHING,    // nothing matched
    FAILED,     // the directory or an entry could not be read (reported)
    NO_MEMORY,  // reported
};

/// Lists `search_name` itself when it exists; else the entries of its directory that match its last
/// component as a shell wildcard (a backslash is an ordinary character, "*" matches a leading dot),
/// in the order of the directory. Skips directories when `skip_directories` is non-zero. The list
/// and its strings are from the pool.
Listing listMatches(const char* search_name, IgCmnListHeader** search_file_list,
                    memory_pool* memoryp, int skip_directories);
/// The same as a code: 0; 9 when nothing matched or a read failed; -1 when memory ran out.
/// The program itself never calls it.
int IgCmnFileMakeList(const char* search_name, IgCmnListHeader** search_file_list,
                      memory_pool* memoryp, int skip_directories);

/// Directory and last component of a search name, as bytes: the locale need not be able to decode
/// them.
struct Search {
    const char* directory;
    const char* wildcard;
};
/// Splits a search name; the directory is a new string of the pool or a constant. False when memory
/// ran out.
bool splitSearch(const char* search_name, Search& search, memory_pool* memoryp);

/// Lists the names of a directory's entries without "." and "..", in its order; with a wildcard
/// only those that match (null: all). 0; 9 after reporting "opendir", "readdir" or "fnmatch", with
/// the names read so far in the list; -1 when memory ran out.
int IgCmnDirReadNames(const char* directory, const char* wildcard, IgCmnListHeader** names,
                      memory_pool* memoryp);

/// 0 when a name matches the wildcard (null matches every name), FNM_NOMATCH when not; any other
/// value is an error of the comparison.
int matchName(const char* wildcard, const char* name);

/// As IgCmnDirReadNames, for an open directory, which stays open: calls `take` with each entry
/// (const struct dirent&) that matches, until it returns false because memory ran out. Same result.
/// @param directory its path, for the reports
template <typename Take>
int readNames(DIR* dir, const char* directory, const char* wildcard, Take take) {
    for (;;) {
        errno = 0;
        const struct dirent* entry = ::readdir(dir);
        if (entry == nullptr) {
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        const int match = matchName(wildcard, entry->d_name);
        if (match != 0 && match != FNM_NOMATCH) {
            IgCmnSysErrPath("fnmatch", errno, directory);
            return FILE_LIST_FAILED;
        }
        if (match == 0 && !take(*entry)) {
            return -1;
        }
    }
    if (errno != 0) {
        IgCmnSysErrPath("readdir", errno, directory);
        return FILE_LIST_FAILED;
    }
    return 0;
}

/// Counts the entries of a directory whose names begin with `beginning`, without "." and "..", and
/// stores none. 0 after reporting "opendir"; after a reported "readdir" the count so far.
std::uint32_t countEntries(const char* directory, const char* beginning);

#endif
