// Copies content into the output where a symlink is not enough.
#ifndef QUENDIL_COLLECT_IGCOPY_H
#define QUENDIL_COLLECT_IGCOPY_H

#include <cstdint>

#include "collect/IGDestination.h"
#include "common/file/IGSource.h"

struct root_tbl;

/// Most bytes copied from one file of the kernel's own file systems: some, like the kernel's own
/// memory, never end.
inline constexpr std::int64_t KERNEL_FILE_LIMIT = std::int64_t{64} << 20;

/// Result of a copy.
enum class Copied {
    ALL,        // the whole source
    TRUNCATED,  // the source has more than `most` bytes, and `most` is not its size
    FAILED,     // no copy is left
};

/// Copies the regular file of `source` to a new file with its mode, owner and times. Does
/// not wait for data that is not there yet. Fails when the run is interrupted. An attribute that
/// cannot be set is reported ("chown", "chmod", "utime"), and the copy stays; a partial copy that
/// cannot be removed is reported ("unlink").
/// @param destination must not exist
/// @param most largest number of bytes to copy
/// @param bytes set to the number of bytes copied
Copied copySource(const Source& source, const NewFile& destination, std::int64_t most,
                  std::int64_t& bytes);

/// Result of copying one file into the output.
enum class Collected {
    WHOLE,
    TRUNCATED,   // copied up to KERNEL_FILE_LIMIT
    OVER_LIMIT,  // more than the size limit allows; no copy is left
    FAILED,      // no copy is left
};

/// Copies a file's content into the output, up to the size in `source.st`, which the caller has
/// counted. A file of the kernel's own file systems is copied up to KERNEL_FILE_LIMIT: its size
/// says nothing about its content, and tar would store it empty or padded with zeros. The bytes
/// read beyond that size are counted here.
/// @param kernel_file result of kernelFileSystemOf for the source
/// @param bytes set to the number of bytes read, unless `kernel_file` is -1
Collected copyContent(const root_tbl& root, const Source& source, int kernel_file,
                      const NewFile& destination, std::int64_t& bytes);

#endif
