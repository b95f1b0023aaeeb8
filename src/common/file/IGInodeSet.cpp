#include "common/file/IGInodeSet.h"

#include <cstdint>

namespace {

constexpr std::size_t FIRST_CAPACITY = 64;

std::size_t hashOf(dev_t device, ino_t inode) {
    // Multiplying by a large odd number spreads neighbouring inodes over the whole table.
    return (static_cast<std::uint64_t>(inode) ^ static_cast<std::uint64_t>(device) << 32) *
               0x9e3779b97f4a7c15U >>
           16;
}

}  // namespace

// Finds the slot of the file, or the free slot for it.
InodeSet::Slot* InodeSet::find(const struct stat& st) const {
    std::size_t at = hashOf(st.st_dev, st.st_ino) & (capacity_ - 1);
    while (slots_[at].used && (slots_[at].device != st.st_dev || slots_[at].inode != st.st_ino)) {
        at = (at + 1) & (capacity_ - 1);
    }
    return &slots_[at];
}

bool InodeSet::grow() {
    Slot* old_slots = slots_;
    const std::size_t old_capacity = capacity_;
    const std::size_t capacity = old_capacity == 0 ? FIRST_CAPACITY : 2 * old_capacity;
    auto* slots = newFromPool<Slot>(memoryp_, capacity);
    if (slots == nullptr) {
        return false;
    }
    slots_ = slots;
    capacity_ = capacity;
    for (std::size_t i = 0; i < old_capacity; ++i) {
        if (old_slots[i].used) {
            struct stat st = {};
            st.st_dev = old_slots[i].device;
            st.st_ino = old_slots[i].inode;
            *find(st) = old_slots[i];
        }
    }
    if (old_slots != nullptr) {
        IgCmnMemoryFree(memoryp_, old_slots, old_capacity * sizeof(Slot));
    }
    return true;
}

InodeSet::Added InodeSet::add(const struct stat& st) {
    if (2 * (count_ + 1) > capacity_ && !grow()) {
        return Added::NO_MEMORY;
    }
    Slot* slot = find(st);
    if (slot->used) {
        return Added::KNOWN;
    }
    *slot = {st.st_dev, st.st_ino, true};
    ++count_;
    return Added::NEW;
}
