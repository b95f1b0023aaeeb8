#include "collect/IGCollectData.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "collect/IGAttributes.h"
#include "collect/IGCopy.h"
#include "collect/IGDestination.h"
#include "collect/IGIndex.h"
#include "collect/IGOutput.h"
#include "collect/IGResult.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/file/IGKernelFileSystem.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

namespace {

// A directory made in the output, and the attributes to set on it at the end.
struct MadeDirectory {
    MadeDirectory* next;
    const char* path;
    Attributes source;
};

// One data item while it is collected.
struct Item {
    Item(memory_pool* pool, root_tbl& run, const data_block& data)
        : memoryp(pool), root(run), block(data), list(pool) {}

    memory_pool* memoryp;
    root_tbl& root;
    const data_block& block;
    const char* data_dir = nullptr;   // normalised, without trailing slash
    const char* path_name = nullptr;  // expanded and normalised
    const char* place = nullptr;      // the data directory's path from pathInOutput
    bool own_output = false;          // the pattern's own tools wrote the entries
    const char* index = nullptr;      // then: the index file, likewise
    const char* ours = nullptr;       // and the output's path for sourceFollow, or null
    EntryList list;
    SourceOpener opener;
    Destination destination;
    bool resumed = false;  // the destination of the last item
    IndexRecord record{};
    MadeDirectory* made = nullptr;
    MadeDirectory** made_end = &made;
    const char* first_source = nullptr;  // of the first entry; for restoreAncestors
    const char* first_destination = nullptr;
};

// The entry that is collected.
struct Current {
    FileEntry& entry;
    const char* path;    // in the list
    const char* shown;   // the same for messages
    const char* output;  // its path in the output
};

// How to continue after an entry.
enum class Step {
    NEXT,         // with the next entry
    INTERRUPTED,  // the item ends without a record
    FAILED,       // RESULT_FAILED
    SIZE_LIMIT,   // RESULT_SIZE_LIMIT
};

void reportCopied(const char* shown, std::int64_t size) {
    IgCmnMsgInfo<ZEPA209_I>(shown, size);
}

// Reports an entry that is in the output, and lists it in the index.
Step addCollected(const Current& current, std::int64_t size) {
    reportCopied(current.shown, size);
    current.entry.collected = true;
    return Step::NEXT;
}

// --- data outside the output ---

// Whether the output has an entry of that name.
bool isTaken(const NewFile& file) {
    struct stat st = {};
    return ::fstatat(file.directory, file.name, &st, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isReadable(const Source& source) {
    return source.readable || FdGuard(sourceOpenForReading(source));
}

// Makes a symlink to a source, which must be readable.
bool linkSource(const Source& source, const NewFile& destination) {
    return isReadable(source) &&
           ::symlinkat(source.path.data(), destination.directory, destination.name) == 0;
}

// Copies one regular file into the output. If the run makes an archive, a symlink is enough,
// because tar follows it, but only where no other user can replace the file until then.
Collected collectFile(const Item& item, const Source& source, const NewFile& destination,
                      std::int64_t& bytes) {
    if (std::strlen(destination.path) >= std::size_t{PATH_MAX}) {
        return Collected::FAILED;  // no later step could use so long a path
    }
    const char* path = source.path.data();
    const int kernel_file = kernelFileSystemOf(source.fd.get(), source.st.st_dev, path);
    if (kernel_file != 0 || !source.own) {
        return copyContent(item.root, source, kernel_file, destination, bytes);
    }
    const bool done = item.root.output_file != nullptr
                          ? linkSource(source, destination)
                          : IgCmnFileCopy(path, destination.path, 0, 0) == 1;
    return done ? Collected::WHOLE : Collected::FAILED;
}

Step reportFailed(const char* shown) {
    IgCmnMsg<ZEPA130_W>();
    IgCmnMsg<ZEPA151_E>("path", shown);
    return Step::NEXT;
}

// Opens an entry to check it. If the rules for symlinks refuse it, that is a failed copy and not a
// failed call, and is not reported here.
bool openEntry(Item& item, const Current& current, Source& source) {
    if (sourceOfEntry(current.entry, current.path, item.opener, source, item.ours)) {
        return true;
    }
    if (errno != LINK_REFUSED) {
        IgCmnSysErrPath("open", errno, current.path);
    }
    return false;
}

// Whether the source is data. Anything else counts as a failed copy, and so do the lock files.
bool isData(const Source& source) {
    return S_ISREG(source.st.st_mode) && !isLockFile(source.st);
}

// Remembers a directory of the output. Its attributes are set when everything is in it. False when
// memory ran out.
bool rememberDirectory(Item& item, const struct stat& source, const char* destination) {
    struct stat there = {};
    if (::lstat(destination, &there) != 0) {
        IgCmnSysErrPath("lstat", errno, destination);
        return true;
    }
    if (!S_ISDIR(there.st_mode)) {
        return true;  // it was still a file when it was collected earlier
    }
    auto* made = newFromPool<MadeDirectory>(item.memoryp);
    if (made == nullptr) {
        return false;
    }
    const char* path = IgCmnStrdup(item.memoryp, destination);
    *made = {nullptr, path, attributesOf(source)};
    *item.made_end = made;
    item.made_end = &made->next;
    return path != nullptr;
}

// The same for an entry, with the attributes that it has now.
bool rememberEntry(Item& item, const Current& current) {
    Source source;
    // An entry that cannot be opened has no attributes to copy.
    return !openEntry(item, current, source) || rememberDirectory(item, source.st, current.output);
}

Step collectDirectory(Item& item, const struct stat& source, const Current& current) {
    if (IgCmnFileMkdir(current.output) != 0) {
        IgCmnMsg<ZEPA130_W>();
        return Step::NEXT;
    }
    addCollected(current, 0);
    return rememberDirectory(item, source, current.output) ? Step::NEXT : Step::FAILED;
}

// Copies a regular file to a free name if it fits the size limit.
Step collectRegular(Item& item, const Source& source, const Current& current,
                    const NewFile& destination) {
    const std::int64_t size = source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(current.shown, size);
        return Step::NEXT;
    }
    std::int64_t bytes = 0;
    switch (collectFile(item, source, destination, bytes)) {
        case Collected::FAILED:
            return reportFailed(current.shown);
        case Collected::OVER_LIMIT:
            reportOverLimit(current.shown, bytes);
            return Step::NEXT;
        case Collected::TRUNCATED:
            reportFailed(current.shown);
            break;
        case Collected::WHOLE:
            break;
    }
    return addCollected(current, size);
}

Step collectSource(Item& item, const Source& source, const Current& current,
                   const NewFile& destination) {
    if (S_ISDIR(source.st.st_mode)) {
        return collectDirectory(item, source.st, current);
    }
    return isData(source) ? collectRegular(item, source, current, destination)
                          : reportFailed(current.shown);
}

// The source that was opened for the list, or the entry opened now.
bool openAgain(Item& item, const Current& current, Source& opened, const Source*& source) {
    if (current.entry.directory == nullptr && item.list.named.fd) {
        source = &item.list.named;
        return true;
    }
    source = &opened;
    return openEntry(item, current, opened);
}

// Continues after a directory above an entry could not be made, which is reported, or not opened:
// without a descriptor for it, this entry cannot be collected.
Step notPrepared(Destination::Prepared prepared, const Current& current) {
    return prepared == Destination::Prepared::NOT_MADE ? Step::NEXT : reportFailed(current.shown);
}

// Collects an entry under a name in the output.
Step collectTo(Item& item, const Current& current) {
    const Destination::Prepared prepared = item.destination.prepare(current.output);
    if (prepared != Destination::Prepared::READY) {
        return notPrepared(prepared, current);
    }
    if (item.first_source == nullptr && !item.own_output) {
        item.first_source = IgCmnStrdup(item.memoryp, current.path);
        item.first_destination = IgCmnStrdup(item.memoryp, current.output);
        if (item.first_source == nullptr || item.first_destination == nullptr) {
            return Step::FAILED;
        }
    }
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    const NewFile file = item.destination.file(current.output);
    if (*file.name == '\0') {
        return Step::NEXT;  // "/" is the data directory itself, which keeps its mode
    }
    if (isTaken(file)) {
        // The first copy of a name stays. A directory may have been made as a parent and still
        // needs its attributes.
        const bool kept = !current.entry.is_directory || rememberEntry(item, current);
        return kept ? Step::NEXT : Step::FAILED;
    }
    Source opened;
    const Source* source = nullptr;
    const bool good = openAgain(item, current, opened, source) &&
                      S_ISDIR(source->st.st_mode) == current.entry.is_directory;
    return good ? collectSource(item, *source, current, file) : reportFailed(current.shown);
}

Step collectEntry(Item& item, const EntryPath& path, FileEntry& entry) {
    LocalPool local;
    const char* shown = IgCmnStrShown(local.get(), path.path());
    return shown == nullptr ? Step::FAILED
                            : collectTo(item, {entry, path.path(), shown, path.prefixed()});
}

// --- data that a tool wrote into the data directory ---

// The first symlink on the path from the data directory to the entry, the entry included, as a new
// string; null when there is none or memory ran out.
char* firstLink(const Item& item, const char* path, memory_pool* memoryp) {
    char* prefix = IgCmnStrdup(memoryp, path);
    if (prefix == nullptr) {
        return nullptr;
    }
    char* slash = prefix + std::strlen(item.place);
    while (slash != nullptr && *slash == '/') {
        slash = std::strchr(slash + 1, '/');
        if (slash != nullptr) {
            *slash = '\0';
        }
        struct stat st = {};
        if (::lstat(prefix, &st) == 0 && S_ISLNK(st.st_mode)) {
            return prefix;
        }
        if (slash != nullptr) {
            *slash = '/';
        }
    }
    return nullptr;
}

// Removes an entry that must not stay in the output. Returns false after reporting.
bool removeFromOutput(const char* path) {
    if (std::remove(path) == 0) {
        return true;
    }
    IgCmnSysErrPath("remove", errno, path);
    return false;
}

// Counts a file that was written there, or a symlink to one elsewhere, as it is.
Step countFile(Item& item, const Current& current, std::int64_t size) {
    // The index may be among a tool's output, but it is the run's own.
    const bool is_index = std::strcmp(current.output, item.index) == 0;
    if (!is_index && !fitsLimit(item.root, size)) {
        reportOverLimit(current.shown, size);
        return removeFromOutput(current.output) ? Step::NEXT : Step::SIZE_LIMIT;
    }
    return addCollected(current, size);
}

// Collects the target of a tool's symlink. The symlink stays only if the target is safe until tar
// follows it; otherwise it is removed and a copy made.
Step countLink(Item& item, const Current& current) {
    Source source;
    const bool good = openEntry(item, current, source);
    if (good && source.own && isData(source) &&
        kernelFileSystemOf(source.fd.get(), source.st.st_dev, current.path) == 0) {
        return countFile(item, current, source.st.st_size);
    }
    if (!removeFromOutput(current.output)) {
        return Step::NEXT;
    }
    return good ? collectSource(item, source, current, byPath(current.output))
                : reportFailed(current.shown);
}

// Counts an entry of the output that no symlink in the output leads to.
Step countWritten(Item& item, const Current& current) {
    struct stat st = {};
    if (::lstat(current.output, &st) != 0) {
        if (errno == ENOENT) {
            // It was behind a symlink that countBehind() has replaced with a directory.
            return collectTo(item, current);
        }
        IgCmnSysErrPath("lstat", errno, current.output);
        return reportFailed(current.shown);
    }
    if (S_ISLNK(st.st_mode)) {
        return countLink(item, current);
    }
    if (S_ISREG(st.st_mode)) {
        return countFile(item, current, st.st_size);
    }
    if (S_ISDIR(st.st_mode)) {
        return addCollected(current, 0);
    }
    removeFromOutput(current.output);  // a socket, a FIFO, a device
    return reportFailed(current.shown);
}

// Counts an entry whose path only begins with the same text as the data directory.
Step countOther(Item& item, const Current& current) {
    Source source;
    if (!openEntry(item, current, source)) {
        return reportFailed(current.shown);
    }
    const std::int64_t size = S_ISDIR(source.st.st_mode) ? 0 : source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(current.shown, size);
        return Step::NEXT;
    }
    return addCollected(current, size);
}

// Collects an entry behind a symlink that leads out of the output: a directory replaces the
// symlink.
Step countBehind(Item& item, const Current& current, const char* link) {
    Source source;
    const bool good = openEntry(item, current, source);
    if (!removeFromOutput(link) || IgCmnFileMkdir(link) != 0) {
        return reportFailed(current.shown);
    }
    const Destination::Prepared prepared = item.destination.prepare(current.output);
    if (prepared != Destination::Prepared::READY) {
        return notPrepared(prepared, current);
    }
    return good ? collectSource(item, source, current, byPath(current.output))
                : reportFailed(current.shown);
}

Step countEntry(Item& item, const EntryPath& path, FileEntry& entry) {
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    LocalPool local;
    const char* shown = IgCmnStrShown(local.get(), path.path());
    const char* output = pathInOutput(local.get(), item.root, path.path());
    if (shown == nullptr || output == nullptr) {
        return Step::FAILED;
    }
    const Current current{entry, path.path(), shown, output};
    const char behind = path.path()[std::strlen(item.data_dir)];
    if (behind != '/' && behind != '\0') {
        return countOther(item, current);
    }
    const char* link = firstLink(item, output, local.get());
    return link != nullptr && std::strcmp(link, output) != 0 ? countBehind(item, current, link)
                                                             : countWritten(item, current);
}

// Sets mode, owner and times of an open directory of the output to those of its source. False when
// that failed (reported).
bool restoreOpen(const char* path, int fd, const Attributes& source) {
    struct stat st = {};
    const bool known = ::fstat(fd, &st) == 0;
    bool good = true;
    for (const Attribute attribute : {Attribute::MODE, Attribute::OWNER, Attribute::TIMES}) {
        const bool same = known && hasAttribute(attribute, st, source);
        good = good && (same || giveAttribute(attribute, fd, source, path));
    }
    return good;
}

// The same for a directory's path. Follows no symlink.
bool restoreAttributes(const char* path, const Attributes& source) {
    const FdGuard fd(::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        IgCmnSysErrPath("open", errno, path);
        return false;
    }
    return restoreOpen(path, fd.get(), source);
}

// Sets the attributes of one directory above the first entry.
// @param fd of the destination, or -1
bool restoreAncestor(const char* source, const char* destination, int fd) {
    struct stat st = {};
    if (::stat(source, &st) != 0) {
        IgCmnSysErrPath("stat", errno, source);
        return false;
    }
    const Attributes attributes = attributesOf(st);
    return fd == -1 ? restoreAttributes(destination, attributes)
                    : restoreOpen(destination, fd, attributes);
}

// Sets the attributes of the directories above the first entry, upwards. The ones above its own
// directory have them already if the last item was in the same directory: only an entry that is
// made in a directory changes its times.
void restoreAncestors(const Item& item) {
    if (item.first_source == nullptr) {
        return;
    }
    LocalPool local;
    char* source = IgCmnStrdup(local.get(), item.first_source);
    char* destination = IgCmnStrdup(local.get(), item.first_destination);
    if (source == nullptr || destination == nullptr) {
        return;
    }
    bool complete = true;
    int fd = item.destination.directoryOf(destination);
    while (cutToParent(source) && cutToParent(destination)) {
        complete = restoreAncestor(source, destination, fd) && complete;
        fd = -1;
        if (complete && item.destination.wasComplete()) {
            return;
        }
    }
    if (complete) {
        item.destination.recordComplete(item.first_destination);
    } else {
        Destination::forgetComplete();
    }
}

void restoreMade(const Item& item) {
    for (const MadeDirectory* made = item.made; made != nullptr; made = made->next) {
        restoreAttributes(made->path, made->source);
    }
}

// --- the item ---

// Expands and normalises the paths; false ends the item without a message.
bool prepare(Item& item) {
    char* data_dir = nullptr;
    char* path_name = nullptr;
    const char* expanded =
        IgCmnReplaceStrs(item.block.path_name, 1, &item.root, item.memoryp, nullptr);
    if (expanded == nullptr || IgCmnFileNormPath(item.memoryp, item.root.d, &data_dir) != 0 ||
        IgCmnFileNormPath(item.memoryp, expanded, &path_name) != 0) {
        return false;
    }
    item.data_dir = data_dir;
    item.path_name = path_name;
    item.record.path_name = path_name;
    item.place = pathInOutput(item.memoryp, item.root, item.data_dir);
    item.destination.begin(item.place);
    return item.place != nullptr;
}

bool findIndex(Item& item) {
    const char* index = indexPath(item.memoryp, item.root);
    char* normal = nullptr;
    if (index == nullptr || IgCmnFileNormPath(item.memoryp, index, &normal) != 0) {
        return false;
    }
    item.index = normal;
    return true;
}

// Finds the output directory, symlinks resolved: no other user can replace what is in it. Where a
// user can replace the output itself, what its path names is checked like any other file of that
// user.
bool findOurs(Item& item) {
    if (item.root.output_held) {
        return true;
    }
    const char* output = outputDirectory(item.memoryp, item.root);
    Source source;
    if (output == nullptr) {
        return false;
    }
    if (!sourceFollow(output, source)) {
        IgCmnSysErrPath("open", errno, output);
        return false;
    }
    item.ours = IgCmnStrdup(item.memoryp, source.path.data());
    return item.ours != nullptr;
}

// Whether the item names output of the pattern's own tools: compares the text of the directory that
// is read.
bool isOwnOutput(const Item& item) {
    const std::size_t data_dir_length = std::strlen(item.data_dir);
    if (std::strncmp(item.path_name, item.data_dir, data_dir_length) != 0) {
        return false;
    }
    std::size_t length = std::strlen(item.path_name);
    if (IgCmnFileIsDir(item.path_name) == 0) {
        length = static_cast<std::size_t>(lastSlash(item.path_name) - item.path_name);
    }
    return length >= data_dir_length;
}

void describe(Item& item) {
    std::array<char, TIME_STAMP_SIZE> stamp{};
    IgCmnGetTimeStamp(stamp.data());
    std::memcpy(item.record.date.data(), stamp.data(), item.record.date.size() - 1);
    item.record.type = item.block.file_type;
    if (item.block.file_type_word != nullptr) {
        std::snprintf(item.record.type_word.data(), item.record.type_word.size(), "%s",
                      item.block.file_type_word);
    }
    item.record.description = item.block.description;
    item.record.entries = item.list.first();
    item.record.base_length = item.own_output ? std::strlen(item.data_dir) : 0;
}

Step eachEntry(Item& item) {
    EntryPath path(item.memoryp, item.own_output ? "" : item.place);
    for (FileEntry* entry = item.list.first(); entry != nullptr; entry = entry->next) {
        if (!path.set(*entry)) {
            return Step::FAILED;
        }
        const Step step =
            item.own_output ? countEntry(item, path, *entry) : collectEntry(item, path, *entry);
        if (step != Step::NEXT) {
            return step;
        }
    }
    return Step::NEXT;
}

bool makeDataDirectory(const char* place) {
    return IgCmnFileExists(place) != 0 || IgCmnFileMkdir(place) == 0;
}

// Collects the item and appends its record to `records` if it has one.
Result collectDataItem(Item& item, IgCmnListHeader** records) {
    if (!prepare(item)) {
        return RESULT_DONE;
    }
    item.own_output = isOwnOutput(item);
    if (item.own_output) {
        Destination::forgetComplete();
        if (!findIndex(item) || !findOurs(item)) {
            return RESULT_DONE;
        }
    }
    if (IgCmnFileMakeTreeList(item.path_name, item.list, item.ours) == -1) {
        return RESULT_FAILED;
    }
    if (item.list.first() == nullptr) {
        if (IgMainIsInterrupted() == 0) {
            IgCmnMsg<ZEPA129_W>(item.path_name);
        }
        return RESULT_DONE;
    }
    if (!item.own_output && !item.resumed && !makeDataDirectory(item.place)) {
        return RESULT_DONE;
    }
    describe(item);
    switch (eachEntry(item)) {
        case Step::NEXT:
            break;
        case Step::INTERRUPTED:
            return RESULT_DONE;
        case Step::SIZE_LIMIT:
            return RESULT_SIZE_LIMIT;
        default:
            return RESULT_FAILED;
    }
    if (IgCmnListAppend(item.memoryp, records, &item.record) == -1) {
        return RESULT_FAILED;
    }
    restoreMade(item);
    restoreAncestors(item);
    return RESULT_DONE;
}

}  // namespace

Result IgCollectData(memory_pool* memoryp, root_tbl* root_tblp, data_block* data_block) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root_tblp);
    IG_ASSERT_NOT_NULL(data_block);
    if (IgCmnFileIsDir(root_tblp->output_dir) == 0) {
        IgCmnMsg<ZEPA104_E>(static_cast<const char*>(root_tblp->output_dir));
        return RESULT_FAILED;
    }
    // A tree may have very many long paths: they are freed with their item.
    LocalPool local;
    const char* directory = pathInOutput(local.get(), *root_tblp, root_tblp->d);
    if (directory == nullptr) {
        return RESULT_FAILED;
    }
    Item item(local.get(), *root_tblp, *data_block);
    item.resumed = item.destination.resume(directory, data_block->path_name);
    if (!item.resumed && IgCmnFileIsDir(directory) == 0 && IgCmnFileMkdir(directory) != 0) {
        return RESULT_FAILED;
    }
    IgCmnListHeader* records = nullptr;
    const Result result = collectDataItem(item, &records);
    if (result != RESULT_DONE) {
        return result;
    }
    IgCmnMsgInfo<ZEPA210_I>(collected_size.total);
    const bool written =
        records == nullptr || indexAppend(local.get(), *root_tblp, item.data_dir, records) == 0;
    return written ? RESULT_DONE : RESULT_FAILED;
}
