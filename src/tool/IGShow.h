// Prints files, for the program "show".
#ifndef QUENDIL_TOOL_IGSHOW_H
#define QUENDIL_TOOL_IGSHOW_H

#include <signal.h>

#include "tool/IGEscape.h"

/// Where files are printed, and the limits.
struct Show {
    ToolOutput out;
    int mib;                               ///< of each file, at most its last `mib` MiB are printed
    const volatile sig_atomic_t* stopped;  ///< not 0 once SIGTERM has ended the reading
};

/// Whether the reading must end: `stopped` is set, or a write failed.
bool showIsOver(const Show& show);

/// Prints a file, or all regular files in a directory and below it, sorted by path. Each has "==> "
/// and its path in front. Symlinks on the path are followed under the rules of sourceFollow(); in a
/// directory, symlinks and other entries that are neither files nor directories are skipped. A path
/// that is not printed is named with the reason.
void showPath(Show& show, const char* path);

/// Prints the lines of a file, each with the path of the file and ":" in front. A file of secrets,
/// one that is not regular, or one behind a symlink that is not followed is named with the reason.
/// Prints nothing for a directory or a file that cannot be read.
/// @param must_exist whether to name a file that does not exist
void showValues(Show& show, const char* path, bool must_exist);

#endif
