// Collects what a data item names.
#ifndef QUENDIL_COLLECT_IGCOLLECTDATA_H
#define QUENDIL_COLLECT_IGCOLLECTDATA_H

#include "collect/IGResult.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;
struct data_block;

/// Collects one data item into the data directory of the current pattern (the root table's %d%
/// value): lists what PATH_NAME names, copies or links each entry, or counts it when a tool of the
/// pattern wrote it there, copies attributes, reports, and adds a record to the index. All
/// pointers are asserted non-null; the pool is not used. Returns RESULT_DONE, also when nothing was
/// found or the run was interrupted; RESULT_FAILED; or RESULT_SIZE_LIMIT.
Result IgCollectData(memory_pool* memoryp, root_tbl* root_tblp, data_block* data_block);

#endif
