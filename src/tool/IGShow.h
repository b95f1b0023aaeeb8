// Prints files, for the program "show".
#ifndef QUENDIL_TOOL_IGSHOW_H
#define QUENDIL_TOOL_IGSHOW_H

#include <signal.h>

#include "tool/IGEscape.h"

/// The output of the files, and its limits.
struct Show {
    ToolOutput out;
    int mib;                               ///< at most the last so many MiB of a file are printed
    const volatile sig_atomic_t* stopped;  ///< set to another value than 0 when the time is over
};

/// Whether the reading must end: the time is over, or a write failed.
bool showIsOver(const Show& show);

/// Prints a file, or all files of a directory and of the directories below it, in the order of
/// their names. Each has "==> " and its name in front. Symlinks on the path are followed under the
/// rules of sourceFollow(), symlinks in a directory are not followed. A file that is not printed is
/// named with the reason; so is any failure.
void showPath(Show& show, const char* path);

/// Prints the lines of a file, each with the name of the file in front. Prints nothing for a
/// directory, a file that cannot be read, or one that does not exist.
/// @param must_exist report a file that does not exist
void showValues(Show& show, const char* path, bool must_exist);

#endif
