// Running the tools that patterns name.
#ifndef QUENDIL_COLLECT_IGEXETOOL_H
#define QUENDIL_COLLECT_IGEXETOOL_H

#include "collect/IGResult.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;
struct tool_block;

/// Runs one tool: announces it, runs it under its time-out, announces its end and passes its error
/// output on to the run log. RESULT_DONE when it was run, whatever its outcome; RESULT_INTERRUPTED
/// when the run was interrupted before anything was started; RESULT_FAILED when its command line or
/// output path could not be made. All pointers are asserted non-null.
Result IgExeTool(memory_pool* memoryp, root_tbl* root_tblp, tool_block* tool_block);

#endif
