// The index file: it lists which data item collected which files of the output.
#ifndef QUENDIL_COLLECT_IGINDEX_H
#define QUENDIL_COLLECT_IGINDEX_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/base/IGSourcePlace.h"
#include "common/file/IGCmnFile.h"

struct FileEntry;
struct root_tbl;

inline constexpr const char* INDEX_NAME = "quendil_index";
/// Longest type word that the index shows, in bytes.
inline constexpr std::size_t INDEX_TYPE_LENGTH = 31;

/// One record: what one data item produced.
struct IndexRecord {
    std::array<char, 13> date;  // YYMMDDhhmmss, when the item was listed
    const char* path_name;      // expanded; kept, not written
    FileEntry* entries;         // the files are those that are `collected`; null when none
    std::size_t base_length;    // of the entries' paths, in bytes: what the names leave out
    std::int32_t type;          // FileType
    std::array<char, INDEX_TYPE_LENGTH + 1> type_word;  // for FILE_OTHER
    const IgCmnListHeader* description;                 // strings; null when the item has none
};

/// The open index. print() writes a line. It reports the first failure with the place in the source
/// that opened the index, and writes nothing after that.
class IndexFile {
  public:
    /// `mode` is "w" or "a"; a failure to open is reported. Only its owner can read the file.
    IndexFile(const char* path, const char* mode, SourcePlace place = SourcePlace::current());
    ~IndexFile();
    IndexFile(const IndexFile&) = delete;
    IndexFile& operator=(const IndexFile&) = delete;

    __attribute__((format(printf, 2, 3))) void print(const char* format, ...);
    /// Flushes. Returns 0 when everything was written, else -1 (reported).
    int finish();

  private:
    IgCmnFileHandle file_{};
    SourcePlace place_;
    bool good_;
};

/// The name of an entry in the index: its path without its first `base_length` bytes and the slash
/// that follows them.
inline const char* indexName(const char* path, std::size_t base_length) {
    const char* rest = path + base_length;
    return *rest == '/' ? rest + 1 : rest;
}

/// The index's path in the output directory, as from pathInOutput(); null when memory runs out.
const char* indexPath(memory_pool* memoryp, const root_tbl& root);

/// Appends the records of the list. File names get the data directory's last component as a prefix
/// unless that directory is the output directory itself. Returns 0, or -1 after reporting.
int indexAppend(memory_pool* memoryp, const root_tbl& root, const char* data_dir,
                const IgCmnListHeader* records);

#endif
