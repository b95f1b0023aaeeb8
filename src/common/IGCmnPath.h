// Paths as texts, and lists of the paths that a directory or wildcard names.
#ifndef QUENDIL_COMMON_IGCMNPATH_H
#define QUENDIL_COMMON_IGCMNPATH_H

#include "common/IGCmnList.h"
#include "common/IGCmnMemory.h"

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

/// An entry of a collection list.
struct FileEntry {
    const char* path;   // bytes as the directory gave them
    bool is_directory;  // when it was listed (links followed)
};

/// Lists what a data item names: like IgCmnFileMakeList, but a directory is followed by all that
/// lies below it, parents first. An ancestor met again through a link is not entered, nor any
/// directory a second time through links, nor through a link at all in the kernel's own file
/// systems, nor outside of them through a link that was found in them. What cannot be looked at is
/// reported (ZEPA129-W) and skipped. Ends early when the run is interrupted. The list of FileEntry
/// stays null when nothing was found. 0, or -1 when memory ran out.
int IgCmnFileMakeTreeList(const char* search_name, IgCmnListHeader** entries, memory_pool* memoryp);

/// Names of the entries of a directory without "." and "..", in its order; with a wildcard only
/// those that match it (null: all). 0; 9 after reporting "opendir", "readdir" or "fnmatch", the
/// names read so far being kept; -1 when memory ran out.
int IgCmnDirReadNames(const char* directory, const char* wildcard, IgCmnListHeader** names,
                      memory_pool* memoryp);

#endif
