// The output directory before it is packed.
#ifndef QUENDIL_COLLECT_IGOUTPUT_H
#define QUENDIL_COLLECT_IGOUTPUT_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Remembers which directory the run's output is, just after it was made. The path lives as long as
/// the root table. False after reporting.
bool noteOutput(memory_pool* memoryp, root_tbl& root, const char* path);

/// True while the directory that was made still has its name. Who owns a directory above it can
/// move it away and put another one, or a link, in its place: what is written there would be his,
/// and what is packed or removed not ours.
bool outputIsOurs(const root_tbl& root);

/// The same for a run that cannot go on without it: reports the lost directory (ZEPA104-E).
bool checkOutput(const root_tbl& root);

/// The path by which something is made in the output. Where the output's own path can be exchanged,
/// it begins with the directory itself, by its descriptor, and leads there whatever has its name.
/// @param path spelt as the output's own path is, or normalised; one outside of the output is given
///             back as it is
/// @return null when memory runs out
const char* pathInOutput(memory_pool* memoryp, const root_tbl& root, const char* path);

/// Readies the output for tar, which follows every link in it. A link whose file has gone is
/// reported (ZEPA129-W, one stat a link), so that the log in the archive tells its reader. What is
/// no data is taken out and reported (ZEPA130-W, ZEPA151-E): links to directories, with which tar
/// would walk in circles, sockets, FIFOs and devices. Where a tool has run, any link may be its
/// work, and all are judged as if they were brought in now: where the file could be exchanged, the
/// content takes the link's place, as far as the limit goes, and a link to nowhere goes too.
/// @return false when memory ran out
bool settleOutput(const root_tbl& root);

/// Removes the output directory with all that is in it; what fails is reported. It must be ours
/// still (see outputIsOurs). Where its path can be exchanged, what lies in it is removed by its
/// descriptor.
void removeOutput(const root_tbl& root);

#endif
