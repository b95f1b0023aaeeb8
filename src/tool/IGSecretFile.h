// Files of keys and passwords, by their names.
#ifndef QUENDIL_TOOL_IGSECRETFILE_H
#define QUENDIL_TOOL_IGSECRETFILE_H

/// True when the path's name or place tells that the file holds keys or passwords and little else.
/// A link has another name than what it leads to: ask for both.
bool isSecretFile(const char* path);

#endif
