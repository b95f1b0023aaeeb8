// Checks of where a run's result is to go, which command line and configuration share.
#ifndef QUENDIL_INI_IGINICHECK_H
#define QUENDIL_INI_IGINICHECK_H

#include <cstdint>

#include "common/base/IGCmnMemory.h"

/// 1 when the owner bits of the file's mode include all of `bits` (such as 0200), and for a
/// directory its owner may also enter it (0100). 0 otherwise. The super user could do all of it
/// anyhow; the bits tell what the owner means to allow.
int IgCmnFileCheckMode(const char* path, std::uint16_t bits);

/// The same after leading double quotes, and 1 as well when a "%" follows them: a special string
/// expands to an absolute path.
int IgCmnIsAbsPathIgnoreDQ(const char* path);

/// True when `path` is a directory whose owner may write to it and enter it; otherwise false after
/// ZEPA104-E or ZEPA105-E with the text `shown`.
bool isWritableDirectory(const char* path, const char* shown);

#endif
