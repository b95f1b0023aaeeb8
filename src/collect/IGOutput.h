// The output directory before it is packed.
#ifndef QUENDIL_COLLECT_IGOUTPUT_H
#define QUENDIL_COLLECT_IGOUTPUT_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Records the paths and the identity of the output directory just after it was made. Where another
/// user can replace its path, the root table owns a descriptor of it. `path` must live as long as
/// the root table. Returns false after reporting.
bool noteOutput(memory_pool* memoryp, root_tbl& root, const char* path);

/// True while the output's path still names the directory that this run made. The owner of a
/// directory above it can move it away and put another directory or a symlink in its place: the run
/// would then write into that user's files, and pack or remove them.
bool outputIsOurs(const root_tbl& root);

/// False, after reporting ZEPA104-E if it was ever made, when the output is no longer at its path:
/// the run cannot go on. True also when the check itself failed (reported).
bool checkOutput(const root_tbl& root);

/// The path to use for making something in the output. Where another user can replace the output's
/// own path, it begins with the directory's descriptor and always leads to this run's directory.
/// @param path spelt like the output's own path, or normalised; a path outside of the output is
///             returned unchanged
/// @return null when memory runs out
const char* pathInOutput(memory_pool* memoryp, const root_tbl& root, const char* path);

/// Prepares the output for tar, which follows every symlink in it. A symlink whose file is missing
/// is reported (ZEPA129-W, one stat per symlink), so that the log in the archive shows it. Entries
/// that are not data are removed and reported (ZEPA130-W, ZEPA151-E): symlinks to directories,
/// which would lead tar in circles, sockets, FIFOs and devices. A tool that has run may have made
/// any symlink, so all are then checked as if they were collected now: where another user could
/// replace the file, its content replaces the symlink if it fits the size limit; a dangling symlink
/// is removed.
/// @return false when memory ran out
bool settleOutput(const root_tbl& root);

/// Removes the output directory and everything in it; failures are reported. Its path must still
/// name this run's directory (see outputIsOurs). Where another user can replace the path, the
/// contents are removed through the directory's descriptor.
void removeOutput(const root_tbl& root);

#endif
