// Lists all files and directories that a data item names, and sums the sizes of a tree.
#ifndef QUENDIL_COMMON_FILE_IGCMNTREE_H
#define QUENDIL_COMMON_FILE_IGCMNTREE_H

#include <cstddef>
#include <cstdint>

#include "common/base/IGCmnMemory.h"
#include "common/file/IGSource.h"

/// A directory of a collection list.
struct ListedDirectory {
    SourceDirectory source;  // where its entries are opened
    const char* shown;       // its path in the list: bytes as read, symlinks not resolved
};

/// An entry of a collection list. A tree may have very many: the name follows in the same block.
struct FileEntry {
    FileEntry* next;                   // null at the end
    const ListedDirectory* directory;  // null for what the search itself names
    bool is_directory;                 // when it was listed (symlinks followed)
    bool is_link;                      // it may be a symlink: it is followed when it is opened
    bool collected;                    // set by the caller: it is in the output

    /// The name in its directory, as bytes; without a directory the whole path.
    [[nodiscard]] const char* name() const { return reinterpret_cast<const char*>(this + 1); }
};

/// A collection list, in a pool. Its entries may be changed, the list only grows.
class EntryList {
  public:
    explicit EntryList(memory_pool* memoryp) : memoryp_(memoryp) {}

    [[nodiscard]] FileEntry* first() const { return first_; }
    /// A new entry that is in no list yet, or null when memory runs out.
    [[nodiscard]] FileEntry* make(const ListedDirectory* directory, const char* name) const;
    void append(FileEntry* entry);
    [[nodiscard]] memory_pool* pool() const { return memoryp_; }

    /// The file that the search itself names, as it was opened for the list; else without a
    /// descriptor.
    Source named;

  private:
    memory_pool* memoryp_;
    FileEntry* first_ = nullptr;
    FileEntry* last_ = nullptr;
};

/// Paths of entries, built in a buffer: the path of a directory is copied once for all its entries.
class EntryPath {
  public:
    /// `prefix`, of any length, precedes each path; the buffer is from the pool.
    EntryPath(memory_pool* memoryp, const char* prefix);

    /// Builds the path of an entry. False when memory ran out.
    bool set(const FileEntry& entry);
    /// The path in the list, until the next set().
    [[nodiscard]] const char* path() const { return text_ + prefix_length_; }
    /// The prefix and the path.
    [[nodiscard]] const char* prefixed() const { return text_; }

  private:
    bool reserve(std::size_t size);
    bool changeTo(const ListedDirectory& directory);

    memory_pool* memoryp_;
    const char* prefix_;
    std::size_t prefix_length_;
    const ListedDirectory* directory_ = nullptr;
    std::size_t name_offset_ = 0;  // of a name in that directory, in the buffer
    char* text_ = nullptr;
    std::size_t size_ = 0;
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
/// @param list empty; stays empty when nothing was found
/// @param ours the output directory when the item lists what tools wrote there, as for
///             sourceFollow; or null
/// @return 0; -1 when memory ran out
int IgCmnFileMakeTreeList(const char* search_name, EntryList& list, const char* ours = nullptr);

/// Opens an entry, under the rules of sourceFollow and SourceOpener. False with errno set.
/// @param path the entry's path in the list
bool sourceOfEntry(const FileEntry& entry, const char* path, SourceOpener& opener, Source& source,
                   const char* ours = nullptr);

/// The bytes of a file, or of all files below a directory (symlinks followed, each directory
/// entered once; directories themselves count 0). 0 after a reported failure at the start; the
/// partial sum when an entry fails or the run is interrupted.
std::int64_t IgCmnFileGetSize(const char* path);
/// The same; 0 without a report when the file does not exist.
std::int64_t IgCmnFileSizeIfThere(const char* path);

#endif
