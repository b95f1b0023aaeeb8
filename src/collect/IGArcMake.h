// The making phase: the logs go into the output, the output into a ".tar" archive, that into ".gz".
#ifndef QUENDIL_COLLECT_IGARCMAKE_H
#define QUENDIL_COLLECT_IGARCMAKE_H

#include "collect/IGResult.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Copies the logs into the output, makes the archive and reports what failed. RESULT_DONE,
/// RESULT_INTERRUPTED or RESULT_FAILED. On success the root table's output file is the compressed
/// archive's full path.
Result IgArcMakeOutput(memory_pool* memoryp, root_tbl* root);

/// Makes the ".tar" archive, removes the collected directory and compresses the archive; the return
/// code becomes 10 and then 0. Any result but
/// RESULT_SIZE_LIMIT.
Result IgArcMake(memory_pool* memoryp, root_tbl* root);

/// The absolute, normalised form of the output name with ".tar" appended, and ".gz" after it when
/// `flag` is 0. "." is the current directory. A new string of the pool, or null.
char* IgArcMakeName(memory_pool* memoryp, const char* name, int flag);

#endif
