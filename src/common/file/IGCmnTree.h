// The walk over all that a data item names.
#ifndef QUENDIL_COMMON_FILE_IGCMNTREE_H
#define QUENDIL_COMMON_FILE_IGCMNTREE_H

#include <cstdint>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/file/IGSource.h"

/// An entry of a collection list.
struct FileEntry {
    const char* path;                  // bytes as the directory gave them
    bool is_directory;                 // when it was listed (links followed)
    bool is_link;                      // a link has to be followed, and judged, to come to it
    const SourceDirectory* directory;  // where its name lies; null for what the search itself names
};

/// Lists what a data item names: like IgCmnFileMakeList, but a directory is followed by all that
/// lies below it, parents first, each in the order of its directory. An ancestor met again is not
/// entered. Links to directories come after everything else, in the order of their paths, so that
/// equal trees give equal lists whatever order their directories have; each directory is entered
/// through links once, and not when it was listed by its own name. In the kernel's own file systems
/// a link is entered only where the search's wildcard matched it, and not when it leads out of
/// them. A link that must not be followed (see sourceFollow) is listed as a file, which will not
/// open. What is not there is reported (ZEPA129-W) and skipped. Ends early when the run is
/// interrupted.
/// @param search_name absolute
/// @param ours the output directory when the item lists what tools wrote there, as for
///             sourceFollow; or null
/// @return 0, the list of FileEntry staying null when nothing was found; -1 when memory ran out
int IgCmnFileMakeTreeList(const char* search_name, IgCmnListHeader** entries, memory_pool* memoryp,
                          const char* ours = nullptr);

/// Opens what an entry stands for, under the rules of sourceFollow and sourceOpenEntry. False with
/// errno set.
bool sourceOfEntry(const FileEntry& entry, Source& source, const char* ours = nullptr);

/// Bytes of a file, or of all files below a directory (links followed, each directory entered once;
/// directories themselves count 0). 0 after a reported failure, or the partial sum, as when the run
/// is interrupted meanwhile.
std::int64_t IgCmnFileGetSize(const char* path);
/// The same; 0 without a report when there is no such file.
std::int64_t IgCmnFileSizeIfThere(const char* path);

#endif
