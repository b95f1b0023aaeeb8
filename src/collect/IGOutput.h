// The output directory before it is packed.
#ifndef QUENDIL_COLLECT_IGOUTPUT_H
#define QUENDIL_COLLECT_IGOUTPUT_H

#include "common/IGCmnMemory.h"

struct root_tbl;

/// Remembers which directory the run's output is, just after it was made. The path lives as long as
/// the root table. False after reporting.
bool noteOutput(root_tbl& root, const char* path);

/// True while the directory that was made still has its name. Who owns a directory above it can
/// move it away and put another one, or a link, in its place: what is written there would be his,
/// and what is packed or removed not ours.
bool outputIsOurs(const root_tbl& root);

/// The same for a run that cannot go on without it: reports the lost directory (ZEPA104-E).
bool checkOutput(const root_tbl& root);

/// The path by which something is made in the output. Where the output's own path can be exchanged,
/// it begins with the directory itself, by its descriptor, and leads there whatever has its name.
/// @param path normalised; one outside of the output is given back as it is
/// @return null when memory runs out
const char* pathInOutput(memory_pool* memoryp, const root_tbl& root, const char* path);

/// Readies the output for tar, which follows every link in it. A link whose file has gone is
/// reported (ZEPA129-W, one stat a link), so that the log in the archive tells its reader. What is
/// no data is taken out and reported (ZEPA130-W, ZEPA151-E): links to directories, with which tar
/// would walk in circles, sockets, FIFOs and devices. A link that a tool made and no item listed is
/// judged like any other: where its file could be exchanged, the content takes its place.
/// @return false when memory ran out
bool settleOutput(const root_tbl& root);

#endif
