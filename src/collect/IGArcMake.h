// The archive: copies the logs into the output, packs the output with tar and compresses the
// archive with gzip.
#ifndef QUENDIL_COLLECT_IGARCMAKE_H
#define QUENDIL_COLLECT_IGARCMAKE_H

#include "collect/IGResult.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Prepares the output for tar, copies the logs into it, makes the archive and reports what failed.
/// Returns RESULT_DONE, RESULT_INTERRUPTED or RESULT_FAILED; RESULT_DONE also when the archive's
/// name is taken (ZEPA109-E). The return code shows what was made. With 0, `output_file` of the
/// root table is the full path of the compressed archive, a string of the pool.
Result IgArcMakeOutput(memory_pool* memoryp, root_tbl* root);

/// Makes the ".tar" archive, removes the output directory and compresses the archive; sets the
/// return code to 10 and then to 0. Returns any result but RESULT_SIZE_LIMIT.
/// The program itself never calls it.
Result IgArcMake(memory_pool* memoryp, root_tbl* root);

/// The absolute, normalised form of the output name with ".tar" appended, and ".gz" after it when
/// `flag` is 0. "." is the current directory. Returns a new string of the pool, or null after a
/// failure.
char* IgArcMakeName(memory_pool* memoryp, const char* name, int flag);

#endif
