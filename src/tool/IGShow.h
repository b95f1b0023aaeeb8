// Files as "show" prints them.
#ifndef QUENDIL_TOOL_IGSHOW_H
#define QUENDIL_TOOL_IGSHOW_H

#include <signal.h>

#include "tool/IGEscape.h"

/// What a printing needs to know.
struct Show {
    ToolOutput out;
    int mib;                               // at most the last so many MiB of a file are printed
    const volatile sig_atomic_t* stopped;  // not 0 when the time is over
};

/// True when nothing more is to be read: the time is over, or the reader has gone.
bool showIsOver(const Show& show);

/// Prints a file, or all files of a directory and those below it, in the order of their names: each
/// with "==> " and its name in front. Links on the way to the path are followed under the rules of
/// sourceFollow, those in the directory not at all. What is not printed is named with the reason.
void showPath(Show& show, const char* path);

/// Prints the lines of a file, each with its name in front. Nothing when it is a directory, cannot
/// be read, or is not there; `must_exist` has the last said.
void showValues(Show& show, const char* path, bool must_exist);

#endif
