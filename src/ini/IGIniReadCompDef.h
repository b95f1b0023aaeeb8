// The configuration file: KEY=VALUE lines and comments.
#ifndef QUENDIL_INI_IGINIREADCOMPDEF_H
#define QUENDIL_INI_IGINIREADCOMPDEF_H

#include <cstdio>

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Reads the configuration file into the root table: output base directory, cleanup and maximum
/// output size (in units of 512 bytes), each unchanged if the file does not set it. Returns 0, or
/// -1 after reporting.
int IgIniReadCompDef(const char* compdef_file, root_tbl* root_tbl, memory_pool* memoryp);

/// Result of observeCompDef for a file with mistakes.
inline constexpr int COMPDEF_REFUSED = 1;

/// The same for the root table's observer, which must not be null, and for an open stream. The
/// observer gets every mistake, and the root table the values of the lines without one. Returns 0;
/// COMPDEF_REFUSED; -1 when reading failed (errno) or memory ran out. The caller closes the stream.
int observeCompDef(std::FILE* stream, root_tbl& root, memory_pool* memoryp);

#endif
