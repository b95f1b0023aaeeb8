// Mode, owner and times of a source, given to its copy.
#ifndef QUENDIL_COLLECT_IGATTRIBUTES_H
#define QUENDIL_COLLECT_IGATTRIBUTES_H

#include <sys/stat.h>

enum class Attribute { MODE, OWNER, TIMES };

/// Gives an open file or directory one attribute of its source. False after reporting "chmod",
/// "chown" or "utime" with the path.
/// @param fd descriptor of the copy
/// @param path its path, for the report
bool giveAttribute(Attribute attribute, int fd, const struct stat& source, const char* path);

#endif
