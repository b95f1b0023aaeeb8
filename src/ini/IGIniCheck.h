// Checks of paths, shared by command line, configuration and pattern files.
#ifndef QUENDIL_INI_IGINICHECK_H
#define QUENDIL_INI_IGINICHECK_H

#include <cstdint>

/// Returns 1 when the owner bits of the file's mode include all of `bits` (such as 0200), and for a
/// directory also 0100; else 0. The super user has access in any case; the bits show what the owner
/// wants to allow.
int IgCmnFileCheckMode(const char* path, std::uint16_t bits);

/// IgCmnIsAbsPath of the text after its leading double quotes; also 1 when that begins with "%",
/// because a special string such as %d% expands to an absolute path.
int IgCmnIsAbsPathIgnoreDQ(const char* path);

/// Returns true when `path` is a directory whose owner may write to it and enter it, else false
/// after ZEPA104-E or ZEPA105-E with the text `shown`.
bool isWritableDirectory(const char* path, const char* shown);

#endif
