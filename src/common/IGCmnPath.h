// Paths as texts, and lists of the paths that a directory or wildcard names.
#ifndef QUENDIL_COMMON_IGCMNPATH_H
#define QUENDIL_COMMON_IGCMNPATH_H

#include <dirent.h>
#include <fnmatch.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "common/IGCmnFile.h"
#include "common/IGCmnList.h"
#include "common/IGCmnMemory.h"
#include "common/IGCmnMessage.h"

// All strings that come out are blocks of the caller's pool. Pointers are asserted non-null unless
// said otherwise; 0 is success, -1 memory or conversion failure (reported).

/// Splits at the last "/": `directory` is what stands before it (empty for "/name"), `file` what
/// follows. Without a slash the whole text is the `directory` and `file` is null, so the file part
/// of a bare name is taken from the directory. Either output may be null when not wanted.
int IgCmnFileSplitPath(const char* path_name, char** directory, char** file, memory_pool* memoryp);

/// The path made absolute with the current directory, without empty and "." components and trailing
/// slash; ".." removes the component before it and stops at "/". Works on bytes and resolves no
/// links.
int IgCmnFileNormPath(memory_pool* memoryp, const char* path, char** result);

/// 1 when the path begins with "/", else 0.
int IgCmnIsAbsPath(const char* path);
/// The same after leading double quotes, and 1 as well when a "%" follows them: a special string
/// expands to an absolute path.
int IgCmnIsAbsPathIgnoreDQ(const char* path);

/// Splits a command line into the command, with its quotes, and everything after the one separator
/// behind it; either is null when there is none.
int IgCmnFileSplitCmdOpt(const char* path_name, char** command, char** options,
                         memory_pool* memoryp);

/// Appends a copy of the name to the list, making the list when it is still null. 0, or -1.
int makeList(const char* find_file, IgCmnListHeader** search_file_list, memory_pool* memoryp);

/// What became of a listing.
enum class Listing {
    FOUND,
    NOTHING,    // nothing matched
    FAILED,     // the directory or an entry could not be read (reported)
    NO_MEMORY,  // reported
};

/// Lists what `search_name` names: itself when it exists, else the entries of its directory that
/// match its last component as a shell wildcard (a backslash is an ordinary character, "*" matches
/// a leading dot), in the order the directory gives. Directories are left out when
/// `skip_directories` is non-zero.
Listing listMatches(const char* search_name, IgCmnListHeader** search_file_list,
                    memory_pool* memoryp, int skip_directories);
/// The same as a code: 0; 9 when nothing matched or something could not be read; -1 when memory ran
/// out.
int IgCmnFileMakeList(const char* search_name, IgCmnListHeader** search_file_list,
                      memory_pool* memoryp, int skip_directories);

/// Directory and last component of a search name, as bytes: a name that the locale cannot decode is
/// a name all the same.
struct Search {
    const char* directory;
    const char* wildcard;
};
/// Splits a search name; the directory is a new string of the pool or a constant. False when memory
/// ran out.
bool splitSearch(const char* search_name, Search& search, memory_pool* memoryp);

/// Names of the entries of a directory without "." and "..", in its order; with a wildcard only
/// those that match it (null: all). 0; 9 after reporting "opendir", "readdir" or "fnmatch", the
/// names read so far being kept; -1 when memory ran out.
int IgCmnDirReadNames(const char* directory, const char* wildcard, IgCmnListHeader** names,
                      memory_pool* memoryp);

/// 0 when a name matches the wildcard (null: every name does), FNM_NOMATCH when not; anything else
/// is a failure of the comparison.
int matchName(const char* wildcard, const char* name);

/// The same of a directory that was opened: `take` gets each entry (const struct dirent&) and
/// returns false when memory ran out, which ends the reading.
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
/// How many entries of a directory have a name that begins so, "." and ".." left out. Keeps none of
/// them. 0 after reporting "opendir", or what was counted until a "readdir" that is reported.
std::uint32_t countEntries(const char* directory, const char* beginning);

#endif
