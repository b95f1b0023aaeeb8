// The directories that a walk down a tree is inside of, so that a link back up is not entered
// again.
#ifndef QUENDIL_COMMON_IGANCESTOR_H
#define QUENDIL_COMMON_IGANCESTOR_H

#include <sys/stat.h>

/// One directory of the chain; each lies on the stack of the step that is inside it.
struct Ancestor {
    dev_t device;
    ino_t inode;
    const Ancestor* outer;  // null for the outermost

    /// True when the file is one of the chain, which may be null.
    static bool contains(const Ancestor* innermost, const struct stat& st) {
        for (; innermost != nullptr; innermost = innermost->outer) {
            if (innermost->device == st.st_dev && innermost->inode == st.st_ino) {
                return true;
            }
        }
        return false;
    }
};

#endif
