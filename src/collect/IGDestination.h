// The directories of the output in which an item's files are made.
#ifndef QUENDIL_COLLECT_IGDESTINATION_H
#define QUENDIL_COLLECT_IGDESTINATION_H

#include <fcntl.h>

#include <array>
#include <climits>
#include <cstddef>

#include "common/base/IGGuards.h"

/// A new file or directory: its name in an open directory. The calls that make it need not walk
/// along its whole path.
struct NewFile {
    int directory;     // descriptor, or AT_FDCWD when the name is a path
    const char* name;  // in the directory
    const char* path;  // the whole path, for reports
};

/// The same for a path alone.
inline NewFile byPath(const char* path) {
    return {AT_FDCWD, path, path};
}

/// Makes directories in the output, which only this run writes to, and keeps the last one open. A
/// symlink among them was made for a file that its owner has since replaced with a directory; it
/// leads out of the output and is not followed.
class Destination {
  public:
    Destination() { current_[0] = '\0'; }

    /// Opens the directory for files of one source directory, if recordComplete() was called last
    /// with it and it is still there. The data directory and all below it then exist.
    /// @param place the data directory's path from pathInOutput
    /// @param source absolute path of a file
    bool resume(const char* place, const char* source);

    /// Begins with the data directory, which exists: `place` is its path from pathInOutput.
    void begin(const char* place) { place_ = place; }

    enum class Prepared {
        READY,
        NOT_MADE,    // a directory cannot be made: another entry has its name (reported)
        NOT_OPENED,  // a directory cannot be opened (reported)
    };
    /// Makes the directories above a path in the data directory.
    Prepared prepare(const char* path);
    /// The file of the path that was prepared last. Its directory stays open until the next
    /// prepare().
    [[nodiscard]] NewFile file(const char* path) const;
    /// True when the directory of the first path was the one that was resumed, and its source was
    /// followed to without a new walk: all directories above it have their attributes.
    [[nodiscard]] bool wasComplete() const;
    /// Descriptor of the directory that was prepared last, if the path is in it; else -1.
    [[nodiscard]] int directoryOf(const char* path) const;

    /// Records that all directories above this one, and itself, have the attributes of their
    /// sources. Only the directory prepared last is recorded.
    void recordComplete(const char* path) const;
    /// Forgets that: something else may have changed the output.
    static void forgetComplete();

  private:
    bool isCurrent(const char* path, std::size_t length) const;
    std::size_t readyLength(const char* path, std::size_t length) const;
    void makeCurrent(const char* path, std::size_t length);
    Prepared openReady(char* path, std::size_t ready);
    Prepared enter(char* path, std::size_t begin);
    Prepared walk(char* path, std::size_t ready, std::size_t length);

    const char* place_ = nullptr;
    std::array<char, std::size_t{PATH_MAX}> current_;  // the open directory's path, unterminated
    std::size_t current_length_ = 0;                   // without a slash at its end
    FdGuard fd_;
    bool first_ = true;
    bool was_complete_ = false;
};

#endif
