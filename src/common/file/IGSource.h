// Sources: the files and directories of the machine that are collected. Users keep working
// meanwhile: a user can replace any entry of a directory that he can write to at any moment, a file
// by a symlink to a file that only root can read, a directory by an endless tree. This unit
// alone decides whether a path is root's own, and it alone opens sources. It reports only a failed
// statfs; errno has every other error.
#ifndef QUENDIL_COMMON_FILE_IGSOURCE_H
#define QUENDIL_COMMON_FILE_IGSOURCE_H

#include <dirent.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "common/base/IGGuards.h"

/// errno of a symlink that is not followed because of its owner or its target.
inline constexpr int LINK_REFUSED = EPERM;

/// True when only root can replace the entries of the directory: root owns it, and neither its
/// group nor others may write to it (the group's bit covers the entries of an ACL too).
inline bool isRootsOwn(const struct stat& directory) {
    return directory.st_uid == 0 && (directory.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// True when the path is the directory or below it; false when the directory is null. Compares
/// texts.
bool liesIn(const char* directory, const char* path);

/// Whether the error means that the path does not exist; any other error is a failure.
inline bool leadsNowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

/// A directory whose entries are collected.
struct SourceDirectory {
    const char* path;  // absolute, and no component is a symlink
    bool own;          // this directory and all above it are root's own
};

/// A file or directory found under a path. The descriptor refers to exactly this file: a later file
/// of the same name is another one.
struct Source {
    Source() { path[0] = '\0'; }  // clearing the whole path for each file would cost time
    FdGuard fd;                   // O_PATH, close-on-exec; see `readable`
    struct stat st {};            // of the descriptor
    bool own = false;             // every directory on the way to it is root's own
    bool readable = false;        // the descriptor is open for reading instead
    std::array<char, std::size_t{PATH_MAX}> path;  // absolute, without symlinks; "" for the root
};

/// Walks along an absolute path, name by name, and follows its symlinks. In a directory that is not
/// root's own, or behind one, a symlink is followed only when root or its target's owner owns it,
/// and when it does not lead into a kernel file system.
/// @param ours an output directory of the program (without symlinks on its path), which no other
///             user can enter: everything in it counts as root's own; or null
/// @return false with errno set: LINK_REFUSED, or as open(2) sets it. `source` then has no
/// descriptor; its `own` is about the directories up to where the walk ended
bool sourceFollow(const char* path, Source& source, const char* ours = nullptr);
/// The same for a file that is collected: it may be opened for reading at once, see SourceOpener.
bool sourceFollowToRead(const char* path, Source& source, const char* ours = nullptr);

/// Forgets the directory of the last file that was followed to, so that the next path is walked
/// along name by name.
void sourceForget();

/// How many paths were walked along name by name so far. While the number stays the same, all files
/// that were followed to were in one directory, and neither its owner, mode or times nor those of
/// the directories above it have changed.
std::uint64_t sourceWalks();

/// Opens entries of directories, one after the other. Where the directory is not root's own, a
/// symlink in an entry's place, or in place of the directory or one above it, is an error (ELOOP).
/// Where it is root's own, a regular file that is not in a kernel file system is opened for reading
/// at once: nobody else can put another file in its place, and this takes half the time. Keeps the
/// directory of the last entry open, so that opening the next one does not walk along the whole
/// path again.
class SourceOpener {
  public:
    /// @param name of an entry that was no symlink when the directory was read
    /// @return false with errno set
    bool open(const SourceDirectory& directory, const char* name, Source& source);

  private:
    bool changeTo(const SourceDirectory& directory);
    bool openToFind(const char* name, int flags, Source& source) const;

    const SourceDirectory* directory_ = nullptr;  // that is open; or null
    FdGuard fd_;                                  // its descriptor
    dev_t device_ = 0;        // its device, if files in it may be opened for reading at once
    std::size_t length_ = 0;  // of its path with a slash at its end, in bytes
};

/// Opens a directory to read its entries, under the same rule as the opener. The caller closes it.
/// Null with errno set.
DIR* sourceOpenDirectory(const SourceDirectory& directory);

/// Opens the regular file of `source` for reading (reopenForReading). While another process holds a
/// lease on the file, retries for up to a second.
/// @return the descriptor, close-on-exec, which the caller closes; -1 with errno set (ENOTSUP when
/// it is no regular file)
int sourceOpenForReading(const Source& source);

#endif
