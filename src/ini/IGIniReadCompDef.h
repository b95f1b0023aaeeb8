// The configuration file: KEY=VALUE lines and comments.
#ifndef QUENDIL_INI_IGINIREADCOMPDEF_H
#define QUENDIL_INI_IGINIREADCOMPDEF_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Reads the configuration file into the root table: output base directory, cleanup and maximum
/// output size (in units of 512 bytes), each unchanged if the file does not set it. Returns 0, or
/// -1 after reporting.
int IgIniReadCompDef(const char* compdef_file, root_tbl* root_tbl, memory_pool* memoryp);

#endif
