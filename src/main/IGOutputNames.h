// How many entries of the output directory begin with the name of a pattern's directory. The
// directory is read once for all names. From then on the kernel reports each entry that the run or
// a tool makes or removes (inotify), so that many patterns with one name take linear time.
#ifndef QUENDIL_MAIN_IGOUTPUTNAMES_H
#define QUENDIL_MAIN_IGOUTPUTNAMES_H

#include <cstdint>

#include "common/base/IGCmnMemory.h"

struct OutputNames;
struct root_tbl;

/// Makes an empty table in `root.output_names`, unless it has one. False when memory runs out.
/// Its descriptor is open until the process ends.
bool makeOutputNames(memory_pool* memoryp, root_tbl& root);
/// Adds a name to the table. A name that is added later makes the directory be read again.
/// @param name must live as long as the table
bool addOutputName(memory_pool* memoryp, root_tbl& root, const char* name);

/// Where to begin when a number N is searched for which `name`_N is free: with the number of
/// entries whose names begin with the name (see countEntries), at least 1; or after it, where all
/// names up to there are known to be taken.
/// @param directory the path of the output directory
/// @param name a name of the table
std::uint32_t firstNumber(root_tbl& root, const char* directory, const char* name);
/// Records the result of that search: all numbers from `first` up to `free` are taken.
void noteTaken(root_tbl& root, const char* name, std::uint32_t first, std::uint32_t free);

#endif
