// Copies mode, owner and times of a source to its copy.
#ifndef QUENDIL_COLLECT_IGATTRIBUTES_H
#define QUENDIL_COLLECT_IGATTRIBUTES_H

#include <sys/stat.h>

/// The attributes that copies of files (IGCopy) and directories (IGCollectData) get from their
/// sources, each in its own order. A file whose path is root's own is usually a symlink in the
/// output and gets none: tar stores those of the target.
enum class Attribute { MODE, OWNER, TIMES };

/// Sets one attribute of an open file or directory to that of its source. Returns false after
/// reporting "chmod", "chown" or "utime" with the path.
/// @param fd descriptor of the copy
/// @param path its path, for the report
bool giveAttribute(Attribute attribute, int fd, const struct stat& source, const char* path);

#endif
