// Collection pattern definition files.
#ifndef QUENDIL_INI_IGINIREADPTN_H
#define QUENDIL_INI_IGINIREADPTN_H

#include <cstddef>
#include <string_view>

#include "common/base/IGCmnMemory.h"

struct IgCmnFileHandle;
struct root_tbl;

/// Result for a file that is skipped, after a warning or the report of an interruption.
inline constexpr int PTN_SKIPPED = 9;

/// Reads one pattern file into the root table's current pattern (`crnt_ptn_def`, asserted
/// non-null). Returns 0; PTN_SKIPPED, also when the run is interrupted meanwhile; -1 when memory
/// ran out.
int IgIniReadPtnDef(const char* file_name, root_tbl* root, memory_pool* memoryp);

/// The same for the root table's observer, which must not be null, and for a file that is open. The
/// observer gets every mistake, and the pattern table what could be read. Returns 0; PTN_SKIPPED
/// for a file with a mistake; -1 when memory ran out or reading failed (reported). The caller
/// closes the file.
int observePtnDef(IgCmnFileHandle& file, root_tbl& root, memory_pool* memoryp);

/// The keywords of pattern files, counted from 0; "" after the last one.
std::string_view patternKeyword(std::size_t index);

#endif
