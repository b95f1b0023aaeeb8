// Checks of where a run's result is to go, which command line and configuration share.
#ifndef QUENDIL_INI_IGINICHECK_H
#define QUENDIL_INI_IGINICHECK_H

#include "common/IGCmnMemory.h"

/// True when `path` is a directory whose owner may write to it and enter it; otherwise false after
/// ZEPA104-E or ZEPA105-E with the text `shown`.
bool isWritableDirectory(const char* path, const char* shown);

/// Whether the names that the making phase gives its results are free: `base` with ".tar" and with
/// ".tar.gz". 0; 1 after ZEPA109-E with the first that exists; -1 when memory ran out.
int resultNamesTaken(memory_pool* memoryp, const char* base);

#endif
