// Files of keys and passwords, known by their names.
#ifndef QUENDIL_TOOL_IGSECRETFILE_H
#define QUENDIL_TOOL_IGSECRETFILE_H

/// Whether a path looks like that of a file of keys or passwords, by its name or its directory. The
/// file is not opened. A symlink and its target have different names: check both.
/// @param path without a trailing slash; "" is no such file
bool isSecretFile(const char* path);

#endif
