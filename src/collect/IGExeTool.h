// Runs the tools that patterns name.
#ifndef QUENDIL_COLLECT_IGEXETOOL_H
#define QUENDIL_COLLECT_IGEXETOOL_H

#include "collect/IGResult.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;
struct tool_block;

/// Runs one tool: reports its start, runs it with its time-out, reports its end and copies its
/// error output to the run log. Returns RESULT_DONE when it was run, with any outcome;
/// RESULT_INTERRUPTED when the run was interrupted before it was started; RESULT_FAILED when its
/// command line could not be expanded or split, or its output path not be made. All pointers are
/// asserted non-null.
Result IgExeTool(memory_pool* memoryp, root_tbl* root_tblp, tool_block* tool_block);

#endif
