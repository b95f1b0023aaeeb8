// Copies mode, owner and times of a source to its copy.
#ifndef QUENDIL_COLLECT_IGATTRIBUTES_H
#define QUENDIL_COLLECT_IGATTRIBUTES_H

#include <sys/stat.h>

/// The values of a source's attributes.
struct Attributes {
    mode_t mode;
    uid_t owner;
    gid_t group;
    struct timespec accessed;
    struct timespec modified;
};

inline Attributes attributesOf(const struct stat& st) {
    return {st.st_mode, st.st_uid, st.st_gid, st.st_atim, st.st_mtim};
}

/// The attributes that copies of files (IGCopy) and directories (IGCollectData) get from their
/// sources, each in its own order. A file whose path is root's own is usually a symlink in the
/// output and gets none: tar stores those of the target.
enum class Attribute { MODE, OWNER, TIMES };

/// Whether a file or directory has the attribute of its source already.
bool hasAttribute(Attribute attribute, const struct stat& st, const Attributes& source);

/// Sets one attribute of an open file or directory to that of its source. Returns false after
/// reporting "chmod", "chown" or "utime" with the path.
/// @param fd descriptor of the copy
/// @param path its path, for the report
bool giveAttribute(Attribute attribute, int fd, const Attributes& source, const char* path);

#endif
