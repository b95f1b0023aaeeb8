// Lists all files and directories that a data item names, and sums the sizes of a tree.
#ifndef QUENDIL_COMMON_FILE_IGCMNTREE_H
#define QUENDIL_COMMON_FILE_IGCMNTREE_H

#include <cstdint>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/file/IGSource.h"

/// An entry of a collection list.
struct FileEntry {
    const char* path;                  // bytes as read from the directory
    bool is_directory;                 // when it was listed (symlinks followed)
    bool is_link;                      // it may be a symlink: sourceOfEntry follows it
    const SourceDirectory* directory;  // its directory; null for what the search itself names
};

/// Lists what a data item names: like listMatches, but each directory is followed by everything
/// below it, parents first, in the order of its directory. An ancestor is not entered again.
/// Symlinks to directories are last, sorted by path, so that equal trees give equal lists
/// regardless of the order of their directories; symlinks enter each directory once, and not if it
/// is listed under its own name. In kernel file systems a symlink is entered only where the
/// search's wildcard matched it, and not if it leads out of them. A symlink that must not be
/// followed (see sourceFollow) is listed as a file, which will not open. A missing entry is
/// reported (ZEPA129-W) and skipped. Stops early when the run is interrupted.
/// @param search_name absolute
/// @param entries receives the list of FileEntry, from the pool; stays null when nothing was found
/// @param ours the output directory when the item lists what tools wrote there, as for
///             sourceFollow; or null
/// @return 0; -1 when memory ran out
int IgCmnFileMakeTreeList(const char* search_name, IgCmnListHeader** entries, memory_pool* memoryp,
                          const char* ours = nullptr);

/// Opens an entry, under the rules of sourceFollow and sourceOpenEntry. False with errno set.
bool sourceOfEntry(const FileEntry& entry, Source& source, const char* ours = nullptr);

/// The bytes of a file, or of all files below a directory (symlinks followed, each directory
/// entered once; directories themselves count 0). 0 after a reported failure at the start; the
/// partial sum when an entry fails or the run is interrupted.
std::int64_t IgCmnFileGetSize(const char* path);
/// The same; 0 without a report when the file does not exist.
std::int64_t IgCmnFileSizeIfThere(const char* path);

#endif
