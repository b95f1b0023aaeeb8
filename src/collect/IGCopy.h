// Content that is copied into the output where a link cannot take its place.
#ifndef QUENDIL_COLLECT_IGCOPY_H
#define QUENDIL_COLLECT_IGCOPY_H

#include <cstdint>

#include "common/file/IGSource.h"

struct root_tbl;

/// Largest content taken of one file of the kernel's own file systems, in bytes: some, like the
/// kernel's own memory, never end.
inline constexpr std::int64_t KERNEL_FILE_LIMIT = std::int64_t{64} << 20;

/// What became of a copy.
enum class Copied {
    ALL,
    TRUNCATED,  // there is more than `most` bytes
    FAILED,     // nothing is left of it
};

/// Reads the regular file that was looked at and makes a file of what was read, with the mode,
/// owner and times of the source. Reads without waiting for more than is there. Ends early, as a
/// failure, when the run is interrupted. An attribute that cannot be set is reported ("chown",
/// "chmod", "utime"), and the copy stays; a part of a copy that cannot be removed is reported
/// ("unlink").
/// @param destination must not exist
/// @param most how many bytes are read
/// @param bytes how many were
Copied copySource(const Source& source, const char* destination, std::int64_t most,
                  std::int64_t& bytes);

/// What became of a file that was to be brought in.
enum class Collected {
    WHOLE,
    TRUNCATED,   // up to the bound of a kernel file; what was read is there
    OVER_LIMIT,  // it had more to read than the limit leaves; nothing is there
    FAILED,      // nothing is there
};

/// Brings the content of a file in, its size being counted already. Files of the kernel's own file
/// systems have a size that says nothing about their content, and tar would store them empty or
/// padded with zeros: what is read beyond it counts too.
/// @param kernel_file as kernelFileSystemOf says of the source
/// @param bytes how many were read
Collected copyContent(const root_tbl& root, const Source& source, int kernel_file,
                      const char* destination, std::int64_t& bytes);

#endif
