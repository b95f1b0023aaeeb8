#include "main/IGOutputNames.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/file/IGCmnDir.h"
#include "ini/IGIniTable.h"

namespace {

constexpr std::size_t BUCKETS = 1024;

struct NameCount {
    const char* name;
    std::size_t length;
    std::uint32_t hash;
    std::uint32_t count;       // entries that begin with the name
    std::uint32_t taken_from;  // the numbers from here ...
    std::uint32_t taken_to;    // ... up to here were taken ...
    std::uint32_t losses;      // ... when the table had lost so many times
    NameCount* next;
};

std::uint32_t hashOf(const char* name, std::size_t length) {
    std::uint32_t hash = EMPTY_HASH;
    for (std::size_t i = 0; i < length; ++i) {
        hash = extendHash(hash, name[i]);
    }
    return hash;
}

}  // namespace

struct OutputNames {
    std::array<NameCount*, BUCKETS> buckets;
    std::size_t longest;  // length of the longest name
    int inotify;          // descriptor; -1: none
    int watch;            // of the directory that was read
    dev_t device;         // identity of that directory
    ino_t inode;
    bool current;          // the counts are those of the directory, with the reports read so far
    std::uint32_t losses;  // grows when an entry may have been removed
};

namespace {

NameCount* find(const OutputNames& names, const char* name, std::size_t length,
                std::uint32_t hash) {
    NameCount* known = names.buckets[hash % BUCKETS];
    while (known != nullptr && (known->hash != hash || known->length != length ||
                                std::memcmp(known->name, name, length) != 0)) {
        known = known->next;
    }
    return known;
}

NameCount* find(const OutputNames& names, const char* name) {
    const std::size_t length = std::strlen(name);
    return find(names, name, length, hashOf(name, length));
}

// Counts an entry, or takes one off, for each name that it begins with.
void count(OutputNames& names, const char* entry, std::uint32_t by) {
    std::uint32_t hash = EMPTY_HASH;
    for (std::size_t length = 0;; ++length) {
        if (NameCount* known = find(names, entry, length, hash); known != nullptr) {
            known->count += by;
        }
        if (length == names.longest || entry[length] == '\0') {
            return;
        }
        hash = extendHash(hash, entry[length]);
    }
}

void lose(OutputNames& names) {
    names.current = false;
    ++names.losses;
}

// Where an entry is moved to, there may have been another, and a queue that was full has dropped
// reports: the directory must be read again.
void take(OutputNames& names, const struct inotify_event& event) {
    const bool is_of_all = (event.mask & IN_Q_OVERFLOW) != 0;
    if (!names.current || (event.wd != names.watch && !is_of_all)) {
        return;
    }
    if ((event.mask & IN_CREATE) != 0) {
        count(names, event.name, 1);
    } else if ((event.mask & IN_DELETE) != 0) {
        count(names, event.name, static_cast<std::uint32_t>(-1));
        ++names.losses;
    } else {
        lose(names);
    }
}

// Takes all reports. Returns whether there were any. If they cannot be read, there is no watch any
// more.
bool takeReports(OutputNames& names) {
    alignas(struct inotify_event) std::array<char, 4096> bytes{};
    bool any = false;
    for (;;) {
        const ssize_t size = ::read(names.inotify, bytes.data(), bytes.size());
        if (size <= 0) {
            if (size == 0 || errno != EAGAIN) {
                ::close(std::exchange(names.inotify, -1));
                lose(names);
            }
            return any;
        }
        any = true;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(bytes.data() + at);
            take(names, *event);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
}

// Watches the directory that is open. False where that is not possible.
bool watch(OutputNames& names, DIR* dir) {
    constexpr std::uint32_t CHANGES =
        IN_CREATE | IN_DELETE | IN_MOVE | IN_DELETE_SELF | IN_MOVE_SELF;
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", ::dirfd(dir));
    names.watch = ::inotify_add_watch(names.inotify, path.data(), CHANGES);
    return names.watch != -1;
}

// Whether the directory that is open is the output: another user may have replaced its path.
bool isOutput(DIR* dir, const root_tbl& root) {
    struct stat st = {};
    return ::fstat(::dirfd(dir), &st) == 0 && root.output_device == st.st_dev &&
           root.output_inode == st.st_ino;
}

// Counts for all names. The counts stay current unless the directory changes meanwhile. False when
// it cannot be watched.
bool readDirectory(OutputNames& names, const root_tbl& root, const char* directory) {
    lose(names);
    const DirGuard dir(::opendir(directory));
    if (!dir || !isOutput(dir.get(), root) || !watch(names, dir.get())) {
        return false;
    }
    takeReports(names);
    for (NameCount* known : names.buckets) {
        for (; known != nullptr; known = known->next) {
            known->count = 0;
        }
    }
    const int result =
        readNames(dir.get(), directory, nullptr, [&names](const struct dirent& entry) {
            count(names, entry.d_name, 1);
            return true;
        });
    const bool changed = names.inotify == -1 || takeReports(names);
    names.current = result == 0 && !changed;
    names.device = root.output_device;
    names.inode = root.output_inode;
    return true;
}

// False when the directory must be read for a single name.
bool updateCounts(OutputNames& names, const root_tbl& root, const char* directory) {
    if (names.inotify == -1) {
        lose(names);  // nothing reports what is removed
        return false;
    }
    takeReports(names);
    const bool same = names.device == root.output_device && names.inode == root.output_inode;
    return (names.current && same) || readDirectory(names, root, directory);
}

}  // namespace

bool makeOutputNames(memory_pool* memoryp, root_tbl& root) {
    if (root.output_names != nullptr) {
        return true;
    }
    auto* names = newFromPool<OutputNames>(memoryp);
    if (names == nullptr) {
        return false;
    }
    names->inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    root.output_names = names;
    return true;
}

bool addOutputName(memory_pool* memoryp, root_tbl& root, const char* name) {
    OutputNames& names = *root.output_names;
    const std::size_t length = std::strlen(name);
    const std::uint32_t hash = hashOf(name, length);
    if (find(names, name, length, hash) != nullptr) {
        return true;
    }
    auto* added = newFromPool<NameCount>(memoryp);
    if (added == nullptr) {
        return false;
    }
    NameCount*& bucket = names.buckets[hash % BUCKETS];
    added->name = name;
    added->length = length;
    added->hash = hash;
    added->next = bucket;
    bucket = added;
    names.longest = std::max(names.longest, length);
    names.current = false;
    return true;
}

std::uint32_t firstNumber(root_tbl& root, const char* directory, const char* name) {
    OutputNames& names = *root.output_names;
    const NameCount& known = *find(names, name);
    const bool counted = updateCounts(names, root, directory);
    const std::uint32_t present = counted ? known.count : countEntries(directory, name);
    const std::uint32_t first = std::max(present, 1U);
    const bool taken = known.losses == names.losses && known.taken_from <= first;
    return taken ? std::max(first, known.taken_to) : first;
}

void noteTaken(root_tbl& root, const char* name, std::uint32_t first, std::uint32_t free) {
    const OutputNames& names = *root.output_names;
    NameCount& known = *find(names, name);
    const bool follows = known.losses == names.losses && known.taken_to == first;
    known.taken_from = follows ? known.taken_from : first;
    known.taken_to = free;
    known.losses = names.losses;
}
