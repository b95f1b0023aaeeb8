// A set of files by device and inode, in a pool: records what a walk has entered.
#ifndef QUENDIL_COMMON_FILE_IGINODESET_H
#define QUENDIL_COMMON_FILE_IGINODESET_H

#include <sys/stat.h>

#include <cstddef>

#include "common/base/IGCmnMemory.h"

/// Grows as needed; lives as long as its pool.
class InodeSet {
  public:
    explicit InodeSet(memory_pool* memoryp) : memoryp_(memoryp) {}

    enum class Added { NEW, KNOWN, NO_MEMORY };
    /// Adds the file, unless the set has it.
    Added add(const struct stat& st);

  private:
    struct Slot {
        dev_t device;
        ino_t inode;
        bool used;
    };
    bool grow();
    [[nodiscard]] Slot* find(const struct stat& st) const;

    memory_pool* memoryp_;
    Slot* slots_ = nullptr;
    std::size_t capacity_ = 0;  // a power of two, or 0
    std::size_t count_ = 0;
};

#endif
