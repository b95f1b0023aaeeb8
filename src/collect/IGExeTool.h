// Running the tools that patterns name.
#ifndef QUENDIL_COLLECT_IGEXETOOL_H
#define QUENDIL_COLLECT_IGEXETOOL_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;
struct tool_block;

/// Result when the run was interrupted before anything was started.
inline constexpr int TOOL_INTERRUPTED = 2;

/// Runs one tool: announces it, runs it under its time-out, announces its end and passes its error
/// output on to the run log. 0 when it was run, whatever its outcome; TOOL_INTERRUPTED; -1 when its
/// command line or output path could not be made. All pointers are asserted non-null.
int IgExeTool(memory_pool* memoryp, root_tbl* root_tblp, tool_block* tool_block);

#endif
