// The making phase: the logs go into the output, the output into a ".tar" archive, that into ".gz".
#ifndef QUENDIL_COLLECT_IGARCMAKE_H
#define QUENDIL_COLLECT_IGARCMAKE_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Results besides 0 and -1.
inline constexpr int ARC_TAR_NONZERO = 1;      ///< IgArcMake: tar was accepted with a non-zero code
inline constexpr int ARC_INTERRUPTED = 2;      ///< the run was interrupted
inline constexpr int ARC_NOT_COMPRESSED = 16;  ///< IgArcMake: the ".tar" archive is the result

/// Copies the logs into the output, makes the archive and reports what failed. 0, ARC_INTERRUPTED
/// or -1. On success the root table's output file is the compressed archive's full path.
int IgArcMakeOutput(memory_pool* memoryp, root_tbl* root);

/// Makes the ".tar" archive, removes the collected directory and compresses the archive; the return
/// code becomes 10 and then 0. 0, -1, ARC_INTERRUPTED, ARC_NOT_COMPRESSED or ARC_TAR_NONZERO.
int IgArcMake(memory_pool* memoryp, root_tbl* root);

/// The absolute, normalised form of the output name with ".tar" appended, and ".gz" after it when
/// `flag` is 0. "." is the current directory. A new string of the pool, or null.
char* IgArcMakeName(memory_pool* memoryp, const char* name, int flag);

#endif
