#include "common/file/IGCmnTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnDir.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGInodeSet.h"
#include "common/file/IGKernelFileSystem.h"
#include "common/report/IGCmnMessage.h"

namespace {

// An entry of a directory at the time the directory was read, symlinks not followed. Its text
// follows it in the same block.
struct Name {
    Name* next;  // in the order of the directory; null at the end
    const char* text;
    mode_t type;  // bits of S_IFMT; 0 when stat failed
    int error;    // errno of that stat
    dev_t device;
    ino_t inode;
    bool own;  // result of isRootsOwn, for a directory
};

// A directory that the walk is in. All its names are read before the first one is entered, so the
// walk keeps no descriptor open on the way down.
struct Level {
    SourceDirectory* directory = nullptr;
    const char* shown = nullptr;  // its path in the list
    dev_t device = 0;
    ino_t inode = 0;
    bool matching = false;       // its entries matched the search's wildcard
    bool behind_link = false;    // it was reached through a symlink, here or above
    bool ours = false;           // it is part of the output
    Name* next = nullptr;        // the next name; null at the end
    memory_pool pool = nullptr;  // owns the names; freed with the level
    Level* outer = nullptr;      // null for the outermost
};

// A symlink to a directory, listed at the end.
struct Link {
    FileEntry entry;
    SourceDirectory* target;
    dev_t device;
    ino_t inode;
    bool enters;  // enters it, unless it is already listed by then
};

// The remaining symlinks, as a heap: the one with the lowest path is first.
class LinkHeap {
  public:
    explicit LinkHeap(memory_pool* memoryp) : memoryp_(memoryp) {}

    bool push(Link* link) {
        if (count_ == capacity_ && !grow()) {
            return false;
        }
        links_[count_++] = link;
        std::push_heap(links_, links_ + count_, isLater);
        return true;
    }
    Link* pop() {
        if (count_ == 0) {
            return nullptr;
        }
        std::pop_heap(links_, links_ + count_, isLater);
        return links_[--count_];
    }

  private:
    static bool isLater(const Link* a, const Link* b) {
        return std::strcmp(a->entry.path, b->entry.path) > 0;
    }
    bool grow() {
        const std::size_t capacity = capacity_ == 0 ? 64 : 2 * capacity_;
        constexpr std::size_t SIZE = sizeof(void*);
        auto* grown = static_cast<Link**>(
            IgCmnMemoryRealloc(memoryp_, links_, capacity_ * SIZE, capacity * SIZE));
        if (grown == nullptr) {
            return false;
        }
        links_ = grown;
        capacity_ = capacity;
        return true;
    }

    memory_pool* memoryp_;
    Link** links_ = nullptr;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
};

class TreeLister {
  public:
    TreeLister(IgCmnListHeader** entries, memory_pool* memoryp, const char* ours)
        : entries_(entries),
          memoryp_(memoryp),
          ours_(ours),
          entered_(local_.get()),
          links_(local_.get()) {}
    ~TreeLister() {
        while (level_ != nullptr) {
            leave();
        }
    }
    TreeLister(const TreeLister&) = delete;
    TreeLister& operator=(const TreeLister&) = delete;

    int list(const char* search_name) {
        Source source;
        if (sourceFollow(search_name, source, ours_)) {
            return startWith(search_name, source) ? walk() : -1;
        }
        if (errno == LINK_REFUSED) {
            return startWith(search_name, source) ? 0 : -1;
        }
        if (!leadsNowhere(errno)) {
            IgCmnSysErrPath("open", errno, search_name);
            return 0;
        }
        if (IgCmnFileIsTaken(search_name) != 0) {
            return 0;  // a dangling symlink finds nothing, which the caller reports
        }
        return startWithMatches(search_name) ? walk() : -1;
    }

  private:
    bool startWith(const char* search_name, const Source& source) {
        const char* path = IgCmnStrdup(memoryp_, search_name);
        const bool is_directory = source.fd && S_ISDIR(source.st.st_mode);
        if (path == nullptr || !append({path, is_directory, true, nullptr})) {
            return false;
        }
        return !is_directory || enter(path, source, nullptr);
    }

    bool startWithMatches(const char* search_name) {
        Search search{};
        Source source;
        if (!splitSearch(search_name, search, memoryp_)) {
            return false;
        }
        if (sourceFollow(search.directory, source, ours_)) {
            return enter(search.directory, source, search.wildcard);
        }
        IgCmnSysErrPath("opendir", errno, search.directory);
        return true;
    }

    // Enters the directory that the search names, or the one whose entries it matches.
    bool enter(const char* path, const Source& source, const char* wildcard) {
        SourceDirectory* directory = directoryOf(source, true);
        if (directory == nullptr || entered_.add(source.st) == InodeSet::Added::NO_MEMORY) {
            return false;
        }
        return push({.directory = directory,
                     .shown = path,
                     .device = source.st.st_dev,
                     .inode = source.st.st_ino,
                     .matching = wildcard != nullptr,
                     .ours = liesIn(ours_, source.path.data())},
                    wildcard);
    }

    SourceDirectory* directoryOf(const Source& source, bool own) {
        auto* directory = newFromPool<SourceDirectory>(memoryp_);
        const char* path = IgCmnStrdup(memoryp_, source.path[0] == '\0' ? "/" : source.path.data());
        if (directory == nullptr || path == nullptr) {
            return nullptr;
        }
        *directory = {path, own && source.own &&
                                (isRootsOwn(source.st) || liesIn(ours_, source.path.data()))};
        return directory;
    }

    // Walks the levels, and after them the symlinks that were kept.
    int walk() {
        for (;;) {
            if (IgMainIsInterrupted() != 0) {
                return 0;
            }
            if (level_ == nullptr) {
                const Link* link = links_.pop();
                if (link == nullptr) {
                    return 0;
                }
                if (!takeLink(*link)) {
                    return -1;
                }
            } else if (level_->next == nullptr) {
                leave();
            } else {
                const Name* name = level_->next;
                level_->next = name->next;
                if (!take(*level_, *name)) {
                    return -1;
                }
            }
        }
    }

    bool push(const Level& model, const char* wildcard) {
        auto* level = newFromPool<Level>(local_.get());
        if (level == nullptr) {
            return false;
        }
        *level = model;
        level->outer = level_;
        level_ = level;
        return readLevel(*level, wildcard);
    }

    void leave() {
        Level* left = level_;
        level_ = left->outer;
        IgCmnMemoryFree(&left->pool, nullptr, 0);
        IgCmnMemoryFree(local_.get(), left, sizeof *left);
    }

    static bool readLevel(Level& level, const char* wildcard) {
        const DirGuard dir(sourceOpenDirectory(*level.directory));
        if (!dir || !checkOpened(level, ::dirfd(dir.get()))) {
            IgCmnSysErrPath("opendir", errno, level.shown);
            return true;
        }
        Name** end = &level.next;
        const auto take = [&](const struct dirent& entry) {
            *end = newName(level, ::dirfd(dir.get()), entry.d_name);
            if (*end == nullptr) {
                return false;
            }
            end = &(*end)->next;
            return true;
        };
        return readNames(dir.get(), level.shown, wildcard, take) != -1;
    }

    // Checks the opened directory: a file system may have been mounted on it after its stat. Where
    // other users can replace it, it must be the same one. False with errno set.
    static bool checkOpened(const Level& level, int opened) {
        struct stat st = {};
        if (::fstat(opened, &st) != 0) {
            return false;
        }
        SourceDirectory& directory = *level.directory;
        if (!directory.own && (st.st_dev != level.device || st.st_ino != level.inode)) {
            errno = ESTALE;
            return false;
        }
        directory.own = directory.own && (level.ours || isRootsOwn(st));
        return true;
    }

    static Name* newName(Level& level, int directory, const char* text) {
        const std::size_t size = std::strlen(text) + 1;
        void* block = IgCmnMemoryAlloc(&level.pool, sizeof(Name) + size);
        if (block == nullptr) {
            return nullptr;
        }
        auto* name = static_cast<Name*>(block);
        name->text = static_cast<const char*>(std::memcpy(name + 1, text, size));
        struct stat st = {};
        if (::fstatat(directory, text, &st, AT_SYMLINK_NOFOLLOW) == 0) {
            name->type = st.st_mode & S_IFMT;
            name->device = st.st_dev;
            name->inode = st.st_ino;
            name->own = isRootsOwn(st);
        } else {
            name->error = errno;
        }
        return name;
    }

    bool append(const FileEntry& entry) {
        auto* added = newFromPool<FileEntry>(memoryp_);
        if (added == nullptr) {
            return false;
        }
        *added = entry;
        return IgCmnListAppend(memoryp_, entries_, added) != -1;
    }

    bool take(const Level& level, const Name& name) {
        const char* path = IgCmnStrCatDir(memoryp_, level.shown, name.text);
        if (path == nullptr) {
            return false;
        }
        if (name.type == 0) {
            return reportSkipped("fstatat", name.error, path);
        }
        const bool is_link = S_ISLNK(name.type);
        const bool is_directory = S_ISDIR(name.type);
        const FileEntry entry{path, is_directory, is_link, level.directory};
        if (is_link) {
            return addLink(level, entry);
        }
        return append(entry) && (!is_directory || enterReal(level, path, name));
    }

    // Enters a directory from its parent.
    bool enterReal(const Level& level, const char* path, const Name& name) {
        if (isInside(name) || isKernelMount(level, path, name)) {
            return true;
        }
        struct stat st = {};
        st.st_dev = name.device;
        st.st_ino = name.inode;
        const InodeSet::Added added = entered_.add(st);
        if (added == InodeSet::Added::KNOWN && level.behind_link) {
            return true;
        }
        auto* directory = newFromPool<SourceDirectory>(memoryp_);
        const char* place = IgCmnStrCatDir(memoryp_, level.directory->path, lastComponent(path));
        if (added == InodeSet::Added::NO_MEMORY || directory == nullptr || place == nullptr) {
            return false;
        }
        *directory = {place, level.directory->own && (name.own || level.ours)};
        return push({.directory = directory,
                     .shown = path,
                     .device = name.device,
                     .inode = name.inode,
                     .behind_link = level.behind_link,
                     .ours = level.ours},
                    nullptr);
    }

    [[nodiscard]] bool isInside(const Name& name) const {
        for (const Level* level = level_; level != nullptr; level = level->outer) {
            if (level->device == name.device && level->inode == name.inode) {
                return true;
            }
        }
        return false;
    }

    // Whether a kernel file system is mounted on a directory behind a symlink.
    static bool isKernelMount(const Level& level, const char* path, const Name& name) {
        return level.behind_link && name.device != level.device &&
               liesInKernelFileSystem(path) != 0;
    }

    // Lists a symlink to a file at once; keeps a symlink to a directory for the end.
    bool addLink(const Level& level, const FileEntry& entry) {
        Source source;
        if (!sourceOfEntry(entry, source, ours_) && errno != LINK_REFUSED) {
            return reportSkipped("open", errno, entry.path);
        }
        if (!source.fd || !S_ISDIR(source.st.st_mode)) {
            return append(entry);
        }
        auto* link = newFromPool<Link>(local_.get());
        SourceDirectory* target = directoryOf(source, level.directory->own);
        if (link == nullptr || target == nullptr) {
            return false;
        }
        *link = {entry, target, source.st.st_dev, source.st.st_ino, mayEnter(level, entry, source)};
        link->entry.is_directory = true;
        return links_.push(link);
    }

    // In kernel file systems symlinks point anywhere, also out of them: a process's "root" is the
    // whole machine. If statfs fails, the file system is treated as one of them.
    static bool mayEnter(const Level& level, const FileEntry& entry, const Source& source) {
        const int there = kernelFileSystemOf(source.fd.get(), source.st.st_dev, entry.path);
        if (there != 0) {
            return there == 1 && level.matching;
        }
        return level.device == source.st.st_dev || liesInKernelFileSystem(level.shown) == 0;
    }

    bool takeLink(const Link& link) {
        if (!append(link.entry)) {
            return false;
        }
        struct stat st = {};
        st.st_dev = link.device;
        st.st_ino = link.inode;
        const InodeSet::Added added = link.enters ? entered_.add(st) : InodeSet::Added::KNOWN;
        if (added != InodeSet::Added::NEW) {
            return added == InodeSet::Added::KNOWN;
        }
        return push({.directory = link.target,
                     .shown = link.entry.path,
                     .device = link.device,
                     .inode = link.inode,
                     .behind_link = true},
                    nullptr);
    }

    // Reports an entry that is skipped. False when memory ran out.
    bool reportSkipped(const char* call, int error, const char* path) {
        if (!leadsNowhere(error)) {
            IgCmnSysErrPath(call, error, path);
            return true;
        }
        const char* shown = IgCmnStrPrintable(memoryp_, path);
        if (shown != nullptr) {
            IgCmnMsg<ZEPA129_W>(shown);
        }
        return shown != nullptr;
    }

    LocalPool local_;
    IgCmnListHeader** entries_;
    memory_pool* memoryp_;
    const char* ours_;
    InodeSet entered_;
    LinkHeap links_;
    Level* level_ = nullptr;  // the innermost
};

// Sums the sizes of the files in one directory; appends its directories to the list, each once.
std::int64_t sizeOfEntries(const char* directory, IgCmnListHeader** directories, InodeSet& entered,
                           memory_pool* memoryp) {
    LocalPool local;
    IgCmnListHeader* names = nullptr;
    IgCmnDirReadNames(directory, nullptr, &names,
                      local.get());  // reports; the names read count
    std::int64_t sum = 0;
    for (const char& name : walkStrings(names)) {
        char* path = IgCmnStrCatDir(memoryp, directory, &name);
        struct stat st = {};
        if (path == nullptr) {
            break;
        }
        if (::stat(path, &st) != 0) {
            IgCmnSysErrPath("stat", errno, path);
        } else if (!S_ISDIR(st.st_mode)) {
            sum += st.st_size;
        } else if (entered.add(st) == InodeSet::Added::NEW &&
                   IgCmnListAppend(memoryp, directories, path) == -1) {
            break;
        }
    }
    return sum;
}

}  // namespace

int IgCmnFileMakeTreeList(const char* search_name, IgCmnListHeader** entries, memory_pool* memoryp,
                          const char* ours) {
    IG_ASSERT_NOT_NULL(search_name);
    IG_ASSERT_NOT_NULL(entries);
    IG_ASSERT_NOT_NULL(memoryp);
    return TreeLister(entries, memoryp, ours).list(search_name);
}

bool sourceOfEntry(const FileEntry& entry, Source& source, const char* ours) {
    if (entry.directory == nullptr) {
        return sourceFollow(entry.path, source, ours);
    }
    std::array<char, std::size_t{PATH_MAX} + NAME_MAX + 2> path{};
    const char* parent = entry.directory->path;
    std::snprintf(path.data(), path.size(), "%s/%s", std::strcmp(parent, "/") == 0 ? "" : parent,
                  lastComponent(entry.path));
    if (!entry.is_link) {
        return sourceOpenEntry(*entry.directory, path.data(), source);
    }
    const bool followed = sourceFollow(path.data(), source, ours);
    source.own = source.own && entry.directory->own;
    return followed;
}

std::int64_t IgCmnFileGetSize(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    struct stat st = {};
    if (::stat(path, &st) != 0) {
        IgCmnSysErrPath("stat", errno, path);
        return 0;
    }
    if (!S_ISDIR(st.st_mode)) {
        return st.st_size;
    }
    LocalPool local;
    InodeSet entered(local.get());
    IgCmnListHeader* directories = nullptr;  // grows during the walk
    char* first = IgCmnStrdup(local.get(), path);
    if (first == nullptr || entered.add(st) == InodeSet::Added::NO_MEMORY ||
        IgCmnListAppend(local.get(), &directories, first) == -1) {
        return 0;
    }
    std::int64_t sum = 0;
    for (const char& directory : walkStrings(directories)) {
        if (IgMainIsInterrupted() != 0) {
            break;
        }
        sum += sizeOfEntries(&directory, &directories, entered, local.get());
    }
    return sum;
}

std::int64_t IgCmnFileSizeIfThere(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    return IgCmnFileExists(path) != 0 ? IgCmnFileGetSize(path) : 0;
}
