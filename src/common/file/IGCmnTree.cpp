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

// A directory among the entries of a level, when that was read, symlinks not followed.
struct FoundDirectory {
    FoundDirectory* next;
    int error;  // errno of a stat that failed, here of an entry of any type; else 0
    dev_t device;
    ino_t inode;
    bool own;  // result of isRootsOwn
};

// A directory that the walk is in. All its names are read before the first one is entered, so the
// walk keeps no descriptor open on the way down.
struct Level {
    ListedDirectory* directory = nullptr;
    dev_t device = 0;
    ino_t inode = 0;
    bool matching = false;      // its entries matched the search's wildcard
    bool behind_link = false;   // it was reached through a symlink, here or above
    bool ours = false;          // it is part of the output
    FileEntry* next = nullptr;  // the next entry, in the order of the directory; null at the end
    FoundDirectory* found = nullptr;  // its directories in the same order: the next one
    memory_pool pool = nullptr;       // owns them; freed with the level
    Level* outer = nullptr;           // null for the outermost
};

// A symlink to a directory, listed at the end.
struct Link {
    FileEntry* entry;
    const char* path;  // of the entry
    ListedDirectory* target;
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
    static bool isLater(const Link* a, const Link* b) { return std::strcmp(a->path, b->path) > 0; }
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
    TreeLister(EntryList& list, const char* ours)
        : list_(list),
          memoryp_(list.pool()),
          ours_(ours),
          entered_(local_.get()),
          links_(local_.get()),
          path_(local_.get(), "") {}
    ~TreeLister() {
        while (level_ != nullptr) {
            leave();
        }
    }
    TreeLister(const TreeLister&) = delete;
    TreeLister& operator=(const TreeLister&) = delete;

    int list(const char* search_name) {
        Source& source = list_.named;
        if (sourceFollowToRead(search_name, source, ours_)) {
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
    bool startWith(const char* search_name, Source& source) {
        FileEntry* entry = list_.make(nullptr, search_name);
        if (entry == nullptr) {
            return false;
        }
        entry->is_directory = source.fd && S_ISDIR(source.st.st_mode);
        entry->is_link = true;
        list_.append(entry);
        if (!entry->is_directory) {
            return true;
        }
        const bool entered = enter(entry->name(), source, nullptr);
        source.fd.reset();
        return entered;
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
        ListedDirectory* directory = directoryOf(source, path, true);
        if (directory == nullptr || entered_.add(source.st) == InodeSet::Added::NO_MEMORY) {
            return false;
        }
        return push({.directory = directory,
                     .device = source.st.st_dev,
                     .inode = source.st.st_ino,
                     .matching = wildcard != nullptr,
                     .ours = liesIn(ours_, source.path.data())},
                    wildcard);
    }

    ListedDirectory* directoryOf(const Source& source, const char* shown, bool own) {
        auto* directory = newFromPool<ListedDirectory>(memoryp_);
        const char* real = source.path[0] == '\0' ? "/" : source.path.data();
        const char* path = std::strcmp(real, shown) == 0 ? shown : IgCmnStrdup(memoryp_, real);
        if (directory == nullptr || path == nullptr) {
            return nullptr;
        }
        *directory = {{path, own && source.own &&
                                 (isRootsOwn(source.st) || liesIn(ours_, source.path.data()))},
                      shown};
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
                FileEntry* entry = level_->next;
                level_->next = entry->next;
                if (!take(*level_, *entry)) {
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

    bool readLevel(Level& level, const char* wildcard) {
        const DirGuard dir(sourceOpenDirectory(level.directory->source));
        if (!dir || !checkOpened(level, ::dirfd(dir.get()))) {
            IgCmnSysErrPath("opendir", errno, level.directory->shown);
            return true;
        }
        FileEntry** end = &level.next;
        FoundDirectory** found = &level.found;
        const auto take = [&](const struct dirent& read) {
            FileEntry* entry = list_.make(level.directory, read.d_name);
            if (entry == nullptr || !classify(level, ::dirfd(dir.get()), read, *entry, &found)) {
                return false;
            }
            *end = entry;
            end = &entry->next;
            return true;
        };
        return readNames(dir.get(), level.directory->shown, wildcard, take) != -1;
    }

    // Sets the type of an entry. Only a directory needs a stat: of the others the type is enough,
    // and the directory usually has it. False when memory ran out.
    static bool classify(Level& level, int directory, const struct dirent& read, FileEntry& entry,
                         FoundDirectory*** end) {
        unsigned char type = read.d_type;
        FoundDirectory found{};
        if (type == DT_DIR || type == DT_UNKNOWN) {
            struct stat st = {};
            if (::fstatat(directory, read.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
                found.error = errno;
            }
            found.device = st.st_dev;
            found.inode = st.st_ino;
            found.own = isRootsOwn(st);
            type = static_cast<unsigned char>(IFTODT(st.st_mode));
        }
        entry.is_link = type == DT_LNK;
        entry.is_directory = type == DT_DIR || found.error != 0;
        if (!entry.is_directory) {
            return true;
        }
        auto* kept = newFromPool<FoundDirectory>(&level.pool);
        if (kept == nullptr) {
            return false;
        }
        *kept = found;
        **end = kept;
        *end = &kept->next;
        return true;
    }

    // Checks the opened directory: a file system may have been mounted on it after its stat. Where
    // other users can replace it, it must be the same one. False with errno set.
    static bool checkOpened(const Level& level, int opened) {
        struct stat st = {};
        if (::fstat(opened, &st) != 0) {
            return false;
        }
        SourceDirectory& directory = level.directory->source;
        if (!directory.own && (st.st_dev != level.device || st.st_ino != level.inode)) {
            errno = ESTALE;
            return false;
        }
        directory.own = directory.own && (level.ours || isRootsOwn(st));
        return true;
    }

    bool take(Level& level, FileEntry& entry) {
        if (!entry.is_link && !entry.is_directory) {
            list_.append(&entry);
            return true;
        }
        if (!path_.set(entry)) {
            return false;
        }
        if (entry.is_link) {
            return addLink(level, entry);
        }
        const FoundDirectory& found = *level.found;
        level.found = found.next;
        if (found.error != 0) {
            return reportSkipped("fstatat", found.error, path_.path());
        }
        list_.append(&entry);
        return enterReal(level, found);
    }

    // Enters a directory from its parent.
    bool enterReal(const Level& level, const FoundDirectory& found) {
        if (isInside(found) || isKernelMount(level, path_.path(), found)) {
            return true;
        }
        struct stat st = {};
        st.st_dev = found.device;
        st.st_ino = found.inode;
        const InodeSet::Added added = entered_.add(st);
        if (added == InodeSet::Added::KNOWN && level.behind_link) {
            return true;
        }
        auto* directory = newFromPool<ListedDirectory>(memoryp_);
        const char* path = IgCmnStrdup(memoryp_, path_.path());
        if (added == InodeSet::Added::NO_MEMORY || directory == nullptr || path == nullptr) {
            return false;
        }
        const ListedDirectory& parent = *level.directory;
        const char* place = parent.source.path == parent.shown
                                ? path
                                : IgCmnStrCatDir(memoryp_, parent.source.path, lastComponent(path));
        if (place == nullptr) {
            return false;
        }
        *directory = {{place, parent.source.own && (found.own || level.ours)}, path};
        return push({.directory = directory,
                     .device = found.device,
                     .inode = found.inode,
                     .behind_link = level.behind_link,
                     .ours = level.ours},
                    nullptr);
    }

    [[nodiscard]] bool isInside(const FoundDirectory& found) const {
        for (const Level* level = level_; level != nullptr; level = level->outer) {
            if (level->device == found.device && level->inode == found.inode) {
                return true;
            }
        }
        return false;
    }

    // Whether a kernel file system is mounted on a directory behind a symlink.
    static bool isKernelMount(const Level& level, const char* path, const FoundDirectory& found) {
        return level.behind_link && found.device != level.device &&
               liesInKernelFileSystem(path) != 0;
    }

    // Lists a symlink to a file at once; keeps a symlink to a directory for the end.
    bool addLink(const Level& level, FileEntry& entry) {
        Source source;
        if (!sourceOfEntry(entry, path_.path(), opener_, source, ours_) && errno != LINK_REFUSED) {
            return reportSkipped("open", errno, path_.path());
        }
        if (!source.fd || !S_ISDIR(source.st.st_mode)) {
            list_.append(&entry);
            return true;
        }
        auto* link = newFromPool<Link>(local_.get());
        const char* path = IgCmnStrdup(memoryp_, path_.path());
        if (link == nullptr || path == nullptr) {
            return false;
        }
        ListedDirectory* target = directoryOf(source, path, level.directory->source.own);
        if (target == nullptr) {
            return false;
        }
        entry.is_directory = true;
        *link = {&entry,           path,
                 target,           source.st.st_dev,
                 source.st.st_ino, mayEnter(level, path, source)};
        return links_.push(link);
    }

    // In kernel file systems symlinks point anywhere, also out of them: a process's "root" is the
    // whole machine. If statfs fails, the file system is treated as one of them.
    static bool mayEnter(const Level& level, const char* path, const Source& source) {
        const int there = kernelFileSystemOf(source.fd.get(), source.st.st_dev, path);
        if (there != 0) {
            return there == 1 && level.matching;
        }
        return level.device == source.st.st_dev ||
               liesInKernelFileSystem(level.directory->shown) == 0;
    }

    bool takeLink(const Link& link) {
        list_.append(link.entry);
        struct stat st = {};
        st.st_dev = link.device;
        st.st_ino = link.inode;
        const InodeSet::Added added = link.enters ? entered_.add(st) : InodeSet::Added::KNOWN;
        if (added != InodeSet::Added::NEW) {
            return added == InodeSet::Added::KNOWN;
        }
        return push({.directory = link.target,
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
    EntryList& list_;
    memory_pool* memoryp_;
    const char* ours_;
    InodeSet entered_;
    LinkHeap links_;
    SourceOpener opener_;
    EntryPath path_;          // of the entry that is taken
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

FileEntry* EntryList::make(const ListedDirectory* directory, const char* name) const {
    const std::size_t size = std::strlen(name) + 1;
    auto* entry = static_cast<FileEntry*>(IgCmnMemoryAlloc(memoryp_, sizeof(FileEntry) + size));
    if (entry != nullptr) {
        entry->directory = directory;
        std::memcpy(entry + 1, name, size);
    }
    return entry;
}

void EntryList::append(FileEntry* entry) {
    entry->next = nullptr;
    (last_ == nullptr ? first_ : last_->next) = entry;
    last_ = entry;
}

EntryPath::EntryPath(memory_pool* memoryp, const char* prefix)
    : memoryp_(memoryp), prefix_(prefix), prefix_length_(std::strlen(prefix)) {
}

bool EntryPath::reserve(std::size_t size) {
    if (size <= size_) {
        return true;
    }
    const std::size_t grown = std::max(size, 2 * size_);
    auto* text = static_cast<char*>(IgCmnMemoryRealloc(memoryp_, text_, size_, grown));
    if (text == nullptr) {
        return false;
    }
    text_ = text;
    size_ = grown;
    return true;
}

bool EntryPath::changeTo(const ListedDirectory& directory) {
    if (directory_ == &directory) {
        return true;
    }
    const std::size_t length = std::strlen(directory.shown);
    if (!reserve(prefix_length_ + length + 2)) {
        return false;
    }
    std::memcpy(text_, prefix_, prefix_length_);
    std::memcpy(text_ + prefix_length_, directory.shown, length);
    name_offset_ = prefix_length_ + length;
    if (length == 0 || directory.shown[length - 1] != '/') {
        text_[name_offset_++] = '/';
    }
    directory_ = &directory;
    return true;
}

bool EntryPath::set(const FileEntry& entry) {
    const char* name = entry.name();
    const std::size_t size = std::strlen(name) + 1;
    if (entry.directory != nullptr) {
        if (!changeTo(*entry.directory)) {
            return false;
        }
    } else {
        directory_ = nullptr;
        name_offset_ = prefix_length_;
    }
    if (!reserve(name_offset_ + size)) {
        return false;
    }
    if (entry.directory == nullptr) {
        std::memcpy(text_, prefix_, prefix_length_);
    }
    std::memcpy(text_ + name_offset_, name, size);
    return true;
}

int IgCmnFileMakeTreeList(const char* search_name, EntryList& list, const char* ours) {
    IG_ASSERT_NOT_NULL(search_name);
    IG_ASSERT_NOT_NULL(list.pool());
    return TreeLister(list, ours).list(search_name);
}

bool sourceOfEntry(const FileEntry& entry, const char* path, SourceOpener& opener, Source& source,
                   const char* ours) {
    if (entry.directory == nullptr) {
        return sourceFollow(path, source, ours);
    }
    const SourceDirectory& directory = entry.directory->source;
    if (!entry.is_link) {
        return opener.open(directory, entry.name(), source);
    }
    std::array<char, std::size_t{PATH_MAX} + NAME_MAX + 2> link{};
    std::snprintf(link.data(), link.size(), "%s/%s",
                  std::strcmp(directory.path, "/") == 0 ? "" : directory.path, entry.name());
    const bool followed = sourceFollow(link.data(), source, ours);
    source.own = source.own && directory.own;
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
