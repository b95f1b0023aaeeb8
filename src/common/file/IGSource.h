// Sources: the files and directories of the machine that are collected. The machine's users go on
// working meanwhile, and what lies in a directory that a user can write to he can exchange at any
// moment for something else: a file for a link to a file that only root can read, a directory for a
// tree without an end. Here is the one place that says whether a path is root's own, and the one
// that opens a source. Nothing here is reported but a failed statfs; errno says what failed.
#ifndef QUENDIL_COMMON_FILE_IGSOURCE_H
#define QUENDIL_COMMON_FILE_IGSOURCE_H

#include <dirent.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>

#include "common/base/IGGuards.h"

/// errno of a symbolic link that is not followed because of whom it belongs to or where it leads.
inline constexpr int LINK_REFUSED = EPERM;

/// True when only root can exchange the entries of the directory: it belongs to root, and neither
/// its group nor others may write to it (the group's bit stands for the entries of an ACL too).
inline bool isRootsOwn(const struct stat& directory) {
    return directory.st_uid == 0 && (directory.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// True when the path is the directory or lies below it; false when the directory is null. Both
/// are compared as texts.
bool liesIn(const char* directory, const char* path);

/// Whether a call failed because its path leads nowhere; any other error is a failure.
inline bool leadsNowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

/// A directory whose entries are collected.
struct SourceDirectory {
    const char* path;  // absolute, and no component is a link
    bool own;          // this directory and all above it are root's own
};

/// What was found under a path. The descriptor holds the very file or directory: whatever takes its
/// name later is another one.
struct Source {
    FdGuard fd;         // O_PATH, close-on-exec
    struct stat st {};  // of the descriptor
    bool own = false;   // every directory on the way to it is root's own
    std::array<char, std::size_t{PATH_MAX}> path{};  // absolute, without links
};

/// Goes along an absolute path, name by name, and follows the links on it. In a directory that is
/// not root's own, or behind one, a link is followed only when it belongs to root or to the owner
/// of what it leads to, and when it does not lead into a file system of the kernel's own.
/// @param ours an output directory of our own (without links on its path), which no other user can
///             enter: what lies in it counts as root's own; or null
/// @return false with errno set: LINK_REFUSED, or as open(2) sets it
bool sourceFollow(const char* path, Source& source, const char* ours = nullptr);

/// Opens an entry that was no link when its directory was read. Where the directory is not root's
/// own, a link in its place, or in the place of a directory above it, is an error (ELOOP).
/// @param path the directory's path, "/" and the entry's name
/// @return false with errno set
bool sourceOpenEntry(const SourceDirectory& directory, const char* path, Source& source);

/// Opens a directory in order to read its entries, under the same rule. Null with errno set.
DIR* sourceOpenDirectory(const SourceDirectory& directory);

/// Opens the regular file that was looked at for reading, without waiting for more than a second:
/// for that long a process that holds a lease on it may finish writing. The descriptor,
/// close-on-exec, or -1 with errno set (ENOTSUP for what is no regular file).
int sourceOpenForReading(const Source& source);

#endif
