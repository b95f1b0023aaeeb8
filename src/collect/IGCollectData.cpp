#include "collect/IGCollectData.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "collect/IGAttributes.h"
#include "collect/IGCopy.h"
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
    const char* path;
    struct stat source;
};

// One data item while it is collected.
struct Item {
    memory_pool* memoryp;
    root_tbl& root;
    const data_block& block;
    const char* data_dir = nullptr;   // normalised, without trailing slash
    const char* path_name = nullptr;  // expanded and normalised
    const char* place = nullptr;      // the data directory's path from pathInOutput
    const char* index = nullptr;      // the index file, likewise
    bool own_output = false;          // the pattern's own tools wrote the entries
    const char* ours = nullptr;       // then: the output's path for sourceFollow, or null
    IndexRecord record{};
    IgCmnListHeader* made = nullptr;     // MadeDirectory
    const char* first_source = nullptr;  // of the first entry; for restoreAncestors
    const char* first_destination = nullptr;
    const char* prepared = nullptr;  // the last destination whose directories exist; or null
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

bool addFile(Item& item, const char* relative) {
    char* shown = IgCmnStrPrintable(item.memoryp, relative);
    return shown != nullptr && IgCmnListAppend(item.memoryp, &item.record.files, shown) != -1;
}

// The path relative to the data directory; empty for the directory itself.
const char* relativeName(const Item& item, const char* path) {
    const char* rest = path + std::strlen(item.place);
    return *rest == '/' ? rest + 1 : rest;
}

// --- data outside the output ---

// Copies one regular file into the output. If the run makes an archive, a symlink is enough,
// because tar follows it, but only where no other user can replace the file until then.
Collected collectFile(const Item& item, const Source& source, const char* destination,
                      std::int64_t& bytes) {
    const char* path = source.path.data();
    const int kernel_file = kernelFileSystemOf(source.fd.get(), source.st.st_dev, path);
    if (kernel_file != 0 || !source.own) {
        return copyContent(item.root, source, kernel_file, destination, bytes);
    }
    const int link = item.root.output_file != nullptr ? 1 : 0;
    return IgCmnFileCopy(path, destination, 0, link) == 1 ? Collected::WHOLE : Collected::FAILED;
}

Step reportFailed(const char* shown) {
    IgCmnMsg<ZEPA130_W>();
    IgCmnMsg<ZEPA151_E>("path", shown);
    return Step::NEXT;
}

// Opens an entry to check it. If the rules for symlinks refuse it, that is a failed copy and not a
// failed call, and is not reported here.
bool openEntry(const Item& item, const FileEntry& entry, Source& source) {
    if (sourceOfEntry(entry, source, item.ours)) {
        return true;
    }
    if (errno != LINK_REFUSED) {
        IgCmnSysErrPath("open", errno, entry.path);
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
    *made = {destination, source};
    return IgCmnListAppend(item.memoryp, &item.made, made) != -1;
}

// The same for an entry, with the attributes that it has now.
bool rememberEntry(Item& item, const FileEntry& entry, const char* destination) {
    Source source;
    // An entry that cannot be opened has no attributes to copy.
    return !openEntry(item, entry, source) || rememberDirectory(item, source.st, destination);
}

Step collectDirectory(Item& item, const struct stat& source, const char* shown,
                      const char* destination) {
    if (IgCmnFileMkdir(destination) != 0) {
        IgCmnMsg<ZEPA130_W>();
        return Step::NEXT;
    }
    reportCopied(shown, 0);
    const bool kept = rememberDirectory(item, source, destination);
    return kept && addFile(item, relativeName(item, destination)) ? Step::NEXT : Step::FAILED;
}

// Copies a regular file to a free name if it fits the size limit.
Step collectRegular(Item& item, const Source& source, const char* shown, const char* destination) {
    const std::int64_t size = source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return Step::NEXT;
    }
    std::int64_t bytes = 0;
    switch (collectFile(item, source, destination, bytes)) {
        case Collected::FAILED:
            return reportFailed(shown);
        case Collected::OVER_LIMIT:
            reportOverLimit(shown, bytes);
            return Step::NEXT;
        case Collected::TRUNCATED:
            reportFailed(shown);
            break;
        case Collected::WHOLE:
            break;
    }
    reportCopied(shown, size);
    return addFile(item, relativeName(item, destination)) ? Step::NEXT : Step::FAILED;
}

Step collectSource(Item& item, const Source& source, const char* shown, const char* destination) {
    if (S_ISDIR(source.st.st_mode)) {
        return collectDirectory(item, source.st, shown, destination);
    }
    return isData(source) ? collectRegular(item, source, shown, destination) : reportFailed(shown);
}

// Length of the part of the destination whose directories exist: the last destination is in them
// too. Otherwise each entry of a tree would cost an lstat of every directory above it.
std::size_t readyLength(const Item& item, const char* destination) {
    std::size_t ready = std::strlen(item.place) + 1;
    if (item.prepared == nullptr) {
        return ready;
    }
    for (std::size_t i = ready; destination[i] != '\0' && destination[i] == item.prepared[i]; ++i) {
        if (destination[i] == '/') {
            ready = i + 1;
        }
    }
    return ready;
}

// Makes the destination's parent directories in the output, which only this run writes to. A
// symlink among them was made for a file that its owner has since replaced with a directory; it
// leads out of the output.
bool prepareParents(Item& item, const char* destination) {
    const std::size_t ready = readyLength(item, destination);
    LocalPool local;
    char* prefix = IgCmnStrdup(local.get(), destination);
    if (prefix == nullptr) {
        return false;
    }
    for (char* slash = std::strchr(prefix + ready, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        struct stat st = {};
        const bool is_ready = ::lstat(prefix, &st) == 0 && S_ISDIR(st.st_mode);
        if (!is_ready && IgCmnFileMkdir(prefix) != 0) {
            return false;  // reported: another entry has the name
        }
        *slash = '/';
    }
    item.prepared = destination;
    return true;
}

// Collects an entry under a name in the output.
Step collectTo(Item& item, const FileEntry& entry, const char* shown, const char* destination) {
    if (!prepareParents(item, destination)) {
        return Step::NEXT;
    }
    if (item.first_source == nullptr && !item.own_output) {
        item.first_source = entry.path;
        item.first_destination = destination;
    }
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    if (IgCmnFileIsTaken(destination) != 0) {
        // The first copy of a name stays. A directory may have been made as a parent and still
        // needs its attributes, except that of "/": this is the data directory itself and keeps its
        // mode.
        const bool ours = *relativeName(item, destination) == '\0';
        const bool kept = !entry.is_directory || ours || rememberEntry(item, entry, destination);
        return kept ? Step::NEXT : Step::FAILED;
    }
    Source source;
    const bool good =
        openEntry(item, entry, source) && S_ISDIR(source.st.st_mode) == entry.is_directory;
    return good ? collectSource(item, source, shown, destination) : reportFailed(shown);
}

Step collectEntry(Item& item, const FileEntry& entry) {
    LocalPool local;
    const char* destination = IgCmnStrCat(item.memoryp, item.place, entry.path);
    const char* shown = IgCmnStrPrintable(local.get(), entry.path);
    if (destination == nullptr || shown == nullptr) {
        return Step::FAILED;
    }
    return collectTo(item, entry, shown, destination);
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
Step countFile(Item& item, const char* path, const char* shown, std::int64_t size) {
    // The index may be among a tool's output, but it is the run's own.
    const bool is_index = std::strcmp(path, item.index) == 0;
    if (!is_index && !fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return removeFromOutput(path) ? Step::NEXT : Step::SIZE_LIMIT;
    }
    reportCopied(shown, size);
    return addFile(item, relativeName(item, path)) ? Step::NEXT : Step::FAILED;
}

// Collects the target of a tool's symlink. The symlink stays only if the target is safe until tar
// follows it; otherwise it is removed and a copy made.
Step countLink(Item& item, const FileEntry& entry, const char* shown, const char* path) {
    Source source;
    const bool good = openEntry(item, entry, source);
    if (good && source.own && isData(source) &&
        kernelFileSystemOf(source.fd.get(), source.st.st_dev, entry.path) == 0) {
        return countFile(item, path, shown, source.st.st_size);
    }
    if (!removeFromOutput(path)) {
        return Step::NEXT;
    }
    return good ? collectSource(item, source, shown, path) : reportFailed(shown);
}

// Counts an entry of the output that no symlink in the output leads to.
Step countWritten(Item& item, const FileEntry& entry, const char* shown, const char* path) {
    struct stat st = {};
    if (::lstat(path, &st) != 0) {
        if (errno == ENOENT) {
            // It was behind a symlink that countBehind() has replaced with a directory.
            return collectTo(item, entry, shown, path);
        }
        IgCmnSysErrPath("lstat", errno, path);
        return reportFailed(shown);
    }
    if (S_ISLNK(st.st_mode)) {
        return countLink(item, entry, shown, path);
    }
    if (S_ISREG(st.st_mode)) {
        return countFile(item, path, shown, st.st_size);
    }
    if (S_ISDIR(st.st_mode)) {
        reportCopied(shown, 0);
        return addFile(item, relativeName(item, path)) ? Step::NEXT : Step::FAILED;
    }
    removeFromOutput(path);  // a socket, a FIFO, a device
    return reportFailed(shown);
}

// Counts an entry whose path only begins with the same text as the data directory.
Step countOther(Item& item, const FileEntry& entry, const char* shown) {
    Source source;
    if (!openEntry(item, entry, source)) {
        return reportFailed(shown);
    }
    const std::int64_t size = S_ISDIR(source.st.st_mode) ? 0 : source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return Step::NEXT;
    }
    reportCopied(shown, size);
    return addFile(item, entry.path + std::strlen(item.data_dir)) ? Step::NEXT : Step::FAILED;
}

// Collects an entry behind a symlink that leads out of the output: a directory replaces the
// symlink.
Step countBehind(Item& item, const FileEntry& entry, const char* shown, const char* path,
                 const char* link) {
    Source source;
    const bool good = openEntry(item, entry, source);
    if (!removeFromOutput(link) || IgCmnFileMkdir(link) != 0) {
        return reportFailed(shown);
    }
    if (!prepareParents(item, path)) {
        return Step::NEXT;
    }
    return good ? collectSource(item, source, shown, path) : reportFailed(shown);
}

Step countEntry(Item& item, const FileEntry& entry) {
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    LocalPool local;
    const char* shown = IgCmnStrPrintable(local.get(), entry.path);
    const char* path = pathInOutput(item.memoryp, item.root, entry.path);
    if (shown == nullptr || path == nullptr) {
        return Step::FAILED;
    }
    const char behind = entry.path[std::strlen(item.data_dir)];
    if (behind != '/' && behind != '\0') {
        return countOther(item, entry, shown);
    }
    const char* link = firstLink(item, path, local.get());
    return link != nullptr && std::strcmp(link, path) != 0
               ? countBehind(item, entry, shown, path, link)
               : countWritten(item, entry, shown, path);
}

// Sets mode, owner and times of a directory of the output to those of its source. Follows no
// symlink.
void restoreAttributes(const char* path, const struct stat& source) {
    const FdGuard fd(::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        IgCmnSysErrPath("open", errno, path);
        return;
    }
    for (const Attribute attribute : {Attribute::MODE, Attribute::OWNER, Attribute::TIMES}) {
        if (!giveAttribute(attribute, fd.get(), source, path)) {
            return;
        }
    }
}

// Sets the attributes of the directories above the first entry, upwards.
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
    while (cutToParent(source) && cutToParent(destination)) {
        struct stat st = {};
        if (::stat(source, &st) != 0) {
            IgCmnSysErrPath("stat", errno, source);
            continue;
        }
        restoreAttributes(destination, st);
    }
}

void restoreMade(const Item& item) {
    for (const MadeDirectory& made : walkList<const MadeDirectory>(item.made)) {
        restoreAttributes(made.path, made.source);
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
    const char* index = indexPath(item.memoryp, item.root);
    char* normal_index = nullptr;
    if (index == nullptr || IgCmnFileNormPath(item.memoryp, index, &normal_index) != 0) {
        return false;
    }
    item.index = normal_index;
    item.place = pathInOutput(item.memoryp, item.root, item.data_dir);
    return item.place != nullptr;
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
    std::size_t length = std::strlen(item.path_name);
    if (IgCmnFileIsDir(item.path_name) == 0) {
        length = static_cast<std::size_t>(lastSlash(item.path_name) - item.path_name);
    }
    const std::size_t data_dir_length = std::strlen(item.data_dir);
    return length >= data_dir_length &&
           std::strncmp(item.path_name, item.data_dir, data_dir_length) == 0;
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
}

Step eachEntry(Item& item, const IgCmnListHeader* entries,
               Step (*take)(Item& item, const FileEntry& entry)) {
    for (const FileEntry& entry : walkList<const FileEntry>(entries)) {
        if (const Step step = take(item, entry); step != Step::NEXT) {
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
    IgCmnListHeader* entries = nullptr;
    if (item.own_output && !findOurs(item)) {
        return RESULT_DONE;
    }
    if (IgCmnFileMakeTreeList(item.path_name, &entries, item.memoryp, item.ours) == -1) {
        return RESULT_FAILED;
    }
    if (entries == nullptr) {
        if (IgMainIsInterrupted() == 0) {
            IgCmnMsg<ZEPA129_W>(item.path_name);
        }
        return RESULT_DONE;
    }
    if (!item.own_output && !makeDataDirectory(item.place)) {
        return RESULT_DONE;
    }
    describe(item);
    switch (eachEntry(item, entries, item.own_output ? countEntry : collectEntry)) {
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
    if (directory == nullptr ||
        (IgCmnFileIsDir(directory) == 0 && IgCmnFileMkdir(directory) != 0)) {
        return RESULT_FAILED;
    }
    Item item{.memoryp = local.get(), .root = *root_tblp, .block = *data_block};
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
