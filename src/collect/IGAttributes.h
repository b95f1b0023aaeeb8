// Copies mode, owner and times of a source to its copy.
#ifndef QUENDIL_COLLECT_IGATTRIBUTES_H
#define QUENDIL_COLLECT_IGATTRIBUTES_H

#include <sys/stat.h>

/// What copies of files (IGCopy) and directories (IGCollectData) get of their sources, each in its
/// own order. A file below a path that is root's own is only a symlink in the output: tar takes the
/// attributes of its target.
enum class Attribute { MODE, OWNER, TIMES };

/// Sets one attribute of an open file or directory to that of its source. Returns false after
/// reporting "chmod", "chown" or "utime" with the path.
/// @param fd descriptor of the copy
/// @param path its path, for the report
bool giveAttribute(Attribute attribute, int fd, const struct stat& source, const char* path);

#endif
